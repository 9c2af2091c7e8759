// zel-author: tools for the people who write alert rules.
//
// Every subcommand runs the service's sources in-process (no bus, no peers),
// so it works on any PC. zelctl's lint and replay run this program with the
// same arguments. A subcommand is one row of kSubcommands (Commands.h).
#include <stdio.h>
#include <string.h>

#include <string>

#include "Backtest.h"
#include "Commands.h"
#include "RuleTest.h"

using namespace zelauthor;

namespace {

const Subcommand kSubcommands[] = {
    {"lint", "check a rule set, a J1939 table and a CAN log for traps", lintUsage,
     lintCommand},
    {"replay", "run the service's code over a scenario or CAN log on a virtual clock",
     replayUsage, replayCommand},
    {"test", "run a rule set's unit tests: input steps and the alerts expected", testUsage,
     [](int argc, char** argv) { return testMain(argc - 1, argv + 1); }},
    {"backtest", "run a rule set over many drives in parallel; --diff against another",
     backtestUsage, [](int argc, char** argv) { return backtestMain(argc - 1, argv + 1); }},
};

const Subcommand* find(const char* name) {
    for (const Subcommand& s : kSubcommands)
        if (strcmp(s.name, name) == 0) return &s;
    return nullptr;
}

void printUsage(FILE* out) {
    fprintf(out, "usage: zel-author SUBCOMMAND ARGS...\n"
                 "       zel-author help SUBCOMMAND | --help | --version\n\n");
    for (const Subcommand& s : kSubcommands) fprintf(out, "  %-8s %s\n", s.name, s.summary);
    fprintf(out,
            "\nexit status: 0 done; 1 findings (lint), a failed case (test) or warnings of\n"
            "             a --strict replay;\n"
            "             2 a usage error or an input that could not be used.\n"
            "`zel-author help SUBCOMMAND` tells more.\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "zel-author: no subcommand given (see zel-author --help)\n");
        return kExitUsage;
    }
    const char* first = argv[1];
    if (strcmp(first, "--help") == 0 || strcmp(first, "-h") == 0 ||
        (strcmp(first, "help") == 0 && argc == 2)) {
        printUsage(stdout);
        return kExitDone;
    }
    if (strcmp(first, "--version") == 0) {
        printf("zel-author %s\n", AZ_VERSION);
        return kExitDone;
    }
    if (strcmp(first, "help") == 0) {
        const Subcommand* s = find(argv[2]);
        if (s == nullptr || argc > 3) {
            fprintf(stderr, "zel-author help: no subcommand '%s' (see zel-author --help)\n",
                    argv[2]);
            return kExitUsage;
        }
        s->usage(stdout);
        return kExitDone;
    }
    const Subcommand* s = find(first);
    if (s == nullptr) {
        fprintf(stderr, "zel-author: unknown subcommand '%s' (see zel-author --help)\n", first);
        return kExitUsage;
    }
    if (wantsHelp(argc - 1, argv + 1)) {
        s->usage(stdout);
        return kExitDone;
    }
    return s->run(argc - 1, argv + 1);
}
