// zelctl's subcommands and what they share. Each subcommand lives in its own
// file as `int runX(int argc, char** argv)`, with argv[0] the subcommand's
// name; it returns the exit status: 0 done, 1 refused or failed, with one
// line on standard error that says what and where.
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
// Prints "zelctl SUB: what" on standard error; returns 1.
int refuse(const char* sub, const std::string& what);
// -h or --help as the only argument behind the subcommand.
bool asksHelp(int argc, char** argv);
// Prints `usage` on standard output for a help request and returns 0, or on
// standard error after a wrong call and returns 1.
int usage(const char* text, bool asked);

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
