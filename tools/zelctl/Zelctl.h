// zelctl's subcommands and what they share. Each subcommand lives in its own
// file as `int runX(int argc, char** argv)`, with argv[0] the subcommand's
// name; it returns the exit status: 0 done, 1 refused or failed, 2 a wrong
// call, with one line on standard error that says what and where.
#ifndef ZELCTL_ZELCTL_H
#define ZELCTL_ZELCTL_H

#include <signal.h>
#include <stdio.h>

#include <string>

namespace zelctl {

// Cleared by SIGINT or SIGTERM once catchStop() has run.
extern volatile sig_atomic_t g_running;
void catchStop();

// A bus client (Q7X_BUS_PATH selects the bus).
void* openBus();
// False, after "zelctl SUB: no broker at PATH" on standard error, when no
// broker listens on the bus a client would use.
bool brokerThere(const char* sub);
// Prints "zelctl SUB: what" on standard error; returns 1.
int refuse(const char* sub, const std::string& what);
// -h or --help as the only argument behind the subcommand.
bool asksHelp(int argc, char** argv);
// Prints `usage` on standard output and returns 0.
int usage(const char* text);
// A wrong call of SUB: "zelctl SUB: what" and a hint to `zelctl help SUB` on
// standard error; returns 2.
int wrongCall(const char* sub, const std::string& what);

int runWatch(int argc, char** argv);
int runState(int argc, char** argv);
int runSend(int argc, char** argv);
int runTable(int argc, char** argv);
int runRules(int argc, char** argv);
int runLog(int argc, char** argv);
// lint and replay: run by zel-author beside this program.
int runAuthor(int argc, char** argv);

}  // namespace zelctl

#endif  // ZELCTL_ZELCTL_H
