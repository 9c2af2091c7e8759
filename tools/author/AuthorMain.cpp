// zel-author: tools for the people who write alert rules.
//
//   lint    what a rule author would otherwise learn in the field
//   replay  the service's own code over a recorded or scripted drive
//
// Both run the service's sources in-process (no bus, no peers), so they work
// on any PC. zelctl's lint and replay run this program with the same
// arguments.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "Lint.h"
#include "Replay.h"
#include "Backtest.h"
#include "RuleTest.h"

using namespace zelauthor;

namespace {

void printUsage(FILE* out) {
    fprintf(out,
            "usage: zel-author lint RULES.json [--j1939 TABLE.csv] [--can LOG]\n"
            "       zel-author test TESTS.json... [--junit REPORT.xml]\n"
            "       zel-author backtest RULES.json DRIVE... [--j1939 TABLE] [--jobs N] ...\n"
            "       zel-author replay RULES.json [--j1939 TABLE.csv] [--scenario FILE]\n"
            "                         [--can LOG] [--svg OUT.svg] [--until SECONDS]\n"
            "                         [--clock [YYYY/MM/DD ]HH:MM:SS]\n"
            "\n"
            "lint    checks a rule set, and with --j1939 the J1939 table, and with --can\n"
            "        a CAN log against that table, for what the service would do\n"
            "        differently from what was meant. One finding per line:\n"
            "            RULE 7: what — advice        (also SET, TABLE row n, CAN pgn p)\n"
            "replay  runs the service's own code on a virtual clock over the rule set,\n"
            "        the table, a scenario and/or a CAN log (a log alone plays from 0),\n"
            "        far faster than real time, and prints the alert episodes and the\n"
            "        alert records (message 3215); --svg draws each rule's trigger\n"
            "        signals against their thresholds, with its Holding and Running spans.\n"
            "        --until ends the run (default: the last step and %.0f s);\n"
            "        --clock sets the device clock at 0 (default 2026/03/05 12:00:00).\n"
            "\n"
            "RULES.json is a whole rule set {\"DUMMY100\": [...], \"RECT100\": [...], ...},\n"
            "a pushed command's {\"DUMMY\": [...]}, or an array of rules. TABLE is the\n"
            "CSV of zel-j1939-table or a 6048-byte table. LOG is a candump log (-l or -ta).\n"
            "\n"
            "exit status: 0 nothing found (lint) or the run completed (replay);\n"
            "             1 findings, or an input refused (the message says where);\n"
            "             2 a file could not be read or written.\n"
            "\n"
            "examples:\n"
            "  zel-author lint examples/rules/fleet.json --j1939 examples/j1939/signals.csv\n"
            "  zel-author lint rules.json --j1939 signals.csv --can drive.log\n"
            "  zel-author replay examples/rules/fleet.json --scenario examples/scenarios/road.scn \\\n"
            "      --clock 19:00:00 --svg /tmp/road.svg\n"
            "  zel-author replay rules.json --j1939 signals.csv --can drive.log\n",
            kTailSeconds);
}

struct Options {
    std::string rules, table, scenario, can, svg, clock;
    double until = -1;
};

// Reads the arguments behind the subcommand. `replay` allows its own options.
bool parseOptions(int argc, char** argv, bool replay, Options& o, std::string& error) {
    for (int i = 2; i < argc; ++i) {
        std::string a = argv[i];
        bool takesValue = a == "--j1939" || a == "--can" ||
                          (replay && (a == "--scenario" || a == "--svg" || a == "--until" ||
                                      a == "--clock"));
        if (takesValue) {
            if (i + 1 >= argc) {
                error = a + " needs a value";
                return false;
            }
            std::string v = argv[++i];
            if (a == "--j1939") o.table = v;
            else if (a == "--can") o.can = v;
            else if (a == "--scenario") o.scenario = v;
            else if (a == "--svg") o.svg = v;
            else if (a == "--clock") o.clock = v;
            else {
                char* end = NULL;
                o.until = strtod(v.c_str(), &end);
                if (end == v.c_str() || *end != '\0' || o.until < 0) {
                    error = "--until " + v + ": expected seconds, such as 30";
                    return false;
                }
            }
        } else if (!a.empty() && a[0] == '-') {
            error = "unknown option " + a;
            return false;
        } else if (o.rules.empty()) {
            o.rules = a;
        } else {
            error = "one rule set only; '" + a + "' is extra";
            return false;
        }
    }
    if (o.rules.empty()) {
        error = "no rule set given";
        return false;
    }
    return true;
}

int lint(const Options& o) {
    LintArgs args;
    args.rules = o.rules;
    args.table = o.table;
    args.can = o.can;
    Findings findings;
    std::string error;
    Status s = runLint(args, findings, error);
    if (!error.empty()) {
        fprintf(stderr, "zel-author lint: %s\n", error.c_str());
        return s;
    }
    for (const Finding& f : findings) printFinding(stdout, f);
    if (!findings.empty())
        fprintf(stderr, "%zu finding%s\n", findings.size(), findings.size() == 1 ? "" : "s");
    return s;
}

int replay(const Options& o) {
    ReplayArgs args;
    args.rules = o.rules;
    args.table = o.table;
    args.scenario = o.scenario;
    args.can = o.can;
    args.svg = o.svg;
    args.until = o.until;
    args.clock = o.clock;
    ReplayResult result;
    std::string error;
    Status s = runReplay(args, result, error);
    if (s != kClean) {
        fprintf(stderr, "zel-author replay: %s\n", error.c_str());
        return s;
    }
    printReplay(stdout, result);
    if (!o.svg.empty()) printf("timeline: %s\n", o.svg.c_str());
    return kClean;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 2 && (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0 ||
                      strcmp(argv[1], "help") == 0)) {
        printUsage(stdout);
        return 0;
    }
    std::string command = argc >= 2 ? argv[1] : "";
    if (command == "test") return testMain(argc - 2, argv + 2);
    if (command == "backtest") return backtestMain(argc - 2, argv + 2);
    if (command != "lint" && command != "replay") {
        if (!command.empty()) fprintf(stderr, "zel-author: unknown command '%s'\n\n", argv[1]);
        printUsage(stderr);
        return 1;
    }
    Options o;
    std::string error;
    if (!parseOptions(argc, argv, command == "replay", o, error)) {
        fprintf(stderr, "zel-author %s: %s (see zel-author --help)\n", command.c_str(),
                error.c_str());
        return 1;
    }
    return command == "lint" ? lint(o) : replay(o);
}
