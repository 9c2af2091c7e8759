// zel-author replay: arguments, output and exit status.
#include <stdlib.h>

#include "Commands.h"
#include "Replay.h"

namespace zelauthor {

void replayUsage(FILE* out) {
    fprintf(out,
            "usage: zel-author replay RULES.json [--j1939 TABLE.csv] [--scenario FILE]\n"
            "                         [--can LOG] [--svg OUT.svg] [--until SECONDS]\n"
            "                         [--clock [YYYY/MM/DD ]HH:MM:SS] [--strict]\n"
            "\n"
            "Runs the service's own code on a virtual clock over the rule set, the table,\n"
            "a scenario and/or a CAN log (a log alone plays from 0), far faster than\n"
            "real time, and prints the alert episodes, the alert records (message 3215),\n"
            "the rules that never held and why (window, area, no reading, threshold\n"
            "never crossed), and the alerts still running or holding when it stopped.\n"
            "It warns on stderr of every event a rule names that the input never gave a\n"
            "value (a J1939 event without --j1939, SPEED from a CAN log alone, ...).\n"
            "\n"
            "  --svg      draws each rule's trigger signals against their thresholds,\n"
            "             with its window, area, Holding and Running spans\n"
            "  --until    ends the run (default: the last step and %.0f s; at most %.0f s,\n"
            "             %.0f days of device time)\n"
            "  --clock    sets the device clock at 0 (default 2026/03/05 12:00:00)\n"
            "  --strict   exit 1 when there is a warning\n"
            "\n"
            "TABLE is the CSV of zel-j1939-table or a 6048-byte table. LOG is a candump\n"
            "log (-l or -ta). Each rising alert costs the service 50 ms of log writing,\n"
            "on the device as here: many alerts rising at once are reported late.\n"
            "\n"
            "exit status: 0 the run completed; 1 it completed with warnings and --strict;\n"
            "             2 a usage error or an input that could not be used.\n"
            "\n"
            "examples:\n"
            "  zel-author replay examples/rules/fleet.json --scenario examples/scenarios/road.scn \\\n"
            "      --clock 19:00:00 --svg /tmp/road.svg\n"
            "  zel-author replay rules.json --j1939 signals.csv --can drive.log --strict\n",
            kTailSeconds, kMaxUntil, kMaxUntil / 86400);
}

int replayCommand(int argc, char** argv) {
    ReplayArgs args;
    bool strict = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        std::string value;
        if (a == "--j1939" || a == "--can" || a == "--scenario" || a == "--svg" ||
            a == "--until" || a == "--clock") {
            std::string error;
            if (!optionValue(argc, argv, i, value, error)) return usageError("replay", error);
            if (a == "--j1939") args.table = value;
            else if (a == "--can") args.can = value;
            else if (a == "--scenario") args.scenario = value;
            else if (a == "--svg") args.svg = value;
            else if (a == "--clock") args.clock = value;
            else {
                char* end = nullptr;
                args.until = strtod(value.c_str(), &end);
                if (end == value.c_str() || *end != '\0' || !(args.until >= 0))
                    return usageError("replay", "--until " + value + ": expected seconds, such as 30");
                if (args.until > kMaxUntil) {
                    char text[160];
                    snprintf(text, sizeof text,
                             "--until %s: a replay runs at most %.0f s (%.0f days) of device "
                             "time; replay a long drive in parts",
                             value.c_str(), kMaxUntil, kMaxUntil / 86400);
                    return usageError("replay", text);
                }
            }
        } else if (a == "--strict") {
            strict = true;
        } else if (!a.empty() && a[0] == '-') {
            return usageError("replay", "unknown option " + a);
        } else if (args.rules.empty()) {
            args.rules = a;
        } else {
            return usageError("replay", "one rule set only; '" + a + "' is extra");
        }
    }
    if (args.rules.empty()) return usageError("replay", "no rule set given");

    ReplayResult result;
    std::string error;
    if (runReplay(args, result, error) != kClean) {
        fprintf(stderr, "zel-author replay: %s\n", error.c_str());
        return kExitUsage;
    }
    printReplay(stdout, result);
    if (!args.svg.empty()) printf("timeline: %s\n", args.svg.c_str());
    fflush(stdout);
    for (const std::string& w : result.warnings)
        fprintf(stderr, "zel-author replay: warning: %s\n", w.c_str());
    return strict && !result.warnings.empty() ? kExitNo : kExitDone;
}

}  // namespace zelauthor
