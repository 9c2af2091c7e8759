// The subcommands of zel-author and the conventions they share.
//
// Each subcommand reads its own arguments (argv[0] is its name) and returns
// the program's exit status:
//   0  done: nothing found, or only what the subcommand is told to let pass;
//   1  it did its job and the answer is "no": findings, or a strict replay
//      with warnings;
//   2  usage error or an input it could not use; one line on stderr.
// `--help` or `-h` anywhere among its arguments prints its usage on stdout
// and exits 0.
#ifndef ZELAUTHOR_COMMANDS_H
#define ZELAUTHOR_COMMANDS_H

#include <stdio.h>

#include <string>

namespace zelauthor {

enum Exit { kExitDone = 0, kExitNo = 1, kExitUsage = 2 };

struct Subcommand {
    const char* name;
    const char* summary;  // one line for the program's usage
    void (*usage)(FILE* out);
    int (*run)(int argc, char** argv);
};

void lintUsage(FILE* out);
int lintCommand(int argc, char** argv);
void replayUsage(FILE* out);
int replayCommand(int argc, char** argv);

// "zel-author SUB: WHAT (see zel-author SUB --help)" on stderr; kExitUsage.
int usageError(const char* sub, const std::string& what);
// True when --help or -h is among the arguments behind argv[0].
bool wantsHelp(int argc, char** argv);
// The value behind option argv[i], moving i onto it; false with `error`
// when there is none.
bool optionValue(int argc, char** argv, int& i, std::string& value, std::string& error);

}  // namespace zelauthor

#endif  // ZELAUTHOR_COMMANDS_H
