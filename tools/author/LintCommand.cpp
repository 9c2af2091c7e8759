// zel-author lint: arguments, output and exit status.
#include <string.h>

#include "Commands.h"
#include "Lint.h"

namespace zelauthor {

void lintUsage(FILE* out) {
    fprintf(out,
            "usage: zel-author lint RULES.json [--j1939 TABLE.csv] [--can LOG]\n"
            "                       [--fail-on warning|error] [--json]\n"
            "\n"
            "Checks a rule set, and with --j1939 the J1939 table, and with --can a CAN\n"
            "log against that table, for what the service would do differently from\n"
            "what was meant. One finding per line on stdout:\n"
            "    RULE 7: error: what \xE2\x80\x94 advice    (also SET, TABLE row n, CAN pgn p)\n"
            "and a count on stderr. Severities:\n"
            "    error    the service does something else than what is written\n"
            "    warning  it does what is written, which is likely not what is meant\n"
            "    note     no rule is affected (e.g. CAN findings on rows no rule reads)\n"
            "\n"
            "RULES.json is a whole rule set {\"DUMMY100\": [...], \"RECT100\": [...], ...},\n"
            "a pushed command's {\"DUMMY\": [...]}, or an array of rules. TABLE is the\n"
            "CSV of zel-j1939-table or a 6048-byte table. LOG is a candump log (-l or -ta).\n"
            "\n"
            "  --fail-on warning  exit 1 on a warning or an error (the default)\n"
            "  --fail-on error    exit 1 on an error only\n"
            "  --json             the findings as one JSON document on stdout\n"
            "\n"
            "exit status: 0 clean, or nothing at or above --fail-on; 1 findings at or\n"
            "             above it; 2 a usage error or an input that could not be used.\n"
            "\n"
            "examples:\n"
            "  zel-author lint examples/rules/fleet.json --j1939 examples/j1939/signals.csv\n"
            "  zel-author lint rules.json --j1939 signals.csv --can drive.log --fail-on error\n");
}

int lintCommand(int argc, char** argv) {
    LintArgs args;
    bool json = false;
    Severity failOn = kWarning;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        std::string value;
        if (a == "--j1939" || a == "--can" || a == "--fail-on") {
            std::string error;
            if (!optionValue(argc, argv, i, value, error)) return usageError("lint", error);
            if (a == "--j1939") args.table = value;
            else if (a == "--can") args.can = value;
            else if (value == "warning") failOn = kWarning;
            else if (value == "error") failOn = kError;
            else return usageError("lint", "--fail-on " + value + ": expected warning or error");
        } else if (a == "--json") {
            json = true;
        } else if (!a.empty() && a[0] == '-') {
            return usageError("lint", "unknown option " + a);
        } else if (args.rules.empty()) {
            args.rules = a;
        } else {
            return usageError("lint", "one rule set only; '" + a + "' is extra");
        }
    }
    if (args.rules.empty()) return usageError("lint", "no rule set given");

    Findings findings;
    std::string error;
    if (runLint(args, findings, error) == kUnreadable) {
        fprintf(stderr, "zel-author lint: %s\n", error.c_str());
        return kExitUsage;
    }
    int counts[3] = {0, 0, 0};
    for (const Finding& f : findings) ++counts[f.severity];
    if (json) {
        fputs(findingsJson(findings).c_str(), stdout);
    } else {
        for (const Finding& f : findings) printFinding(stdout, f);
        if (!findings.empty())
            fprintf(stderr, "%d error%s, %d warning%s, %d note%s\n", counts[kError],
                    counts[kError] == 1 ? "" : "s", counts[kWarning],
                    counts[kWarning] == 1 ? "" : "s", counts[kNote],
                    counts[kNote] == 1 ? "" : "s");
    }
    bool fail = counts[kError] > 0 || (failOn == kWarning && counts[kWarning] > 0);
    return fail ? kExitNo : kExitDone;
}

}  // namespace zelauthor
