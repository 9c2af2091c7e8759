// zel-author test: unit tests for rules. A test file is JSON, with paths
// relative to its folder:
//
//   {"rules": "rules.json", "j1939": "signals.csv", "clock": "2026/11/23 19:00:00",
//    "cases": [
//      {"name": "overspeed held 5 s",
//       "steps": ["0 speed 40 mph", "3 speed 70 mph", "12 speed 50 mph"],
//       "until": 20,
//       "expect": [{"alert": 7, "began": 8, "ended": 12, "within": 1}],
//       "never": [12]}]}
//
// A case's input is "steps" (scenario lines), "scenario" (a scenario file)
// or "can" (a candump log, decoded with the table of "j1939"); a case may
// name its own "rules", "j1939" and "clock". "until" is how long it runs in
// device seconds (default: its last step and 10 s). Each expectation names
// an alert, the second its start record went out ("began"), its end record
// ("ended"; null: still running at "until"; absent: not checked), optionally
// the time its start record carries ("since"), each within "within" seconds
// (default 1). An alert that is expected begins exactly as often as
// expected; those in "never" must not begin; any other alert is not looked at.
#ifndef ZELAUTHOR_RULETEST_H
#define ZELAUTHOR_RULETEST_H

#include <stdio.h>

#include <string>
#include <vector>

#include "Findings.h"

namespace zelauthor {

struct CaseResult {
    std::string file;
    std::string name;
    bool passed = false;
    std::vector<std::string> failures;  // expected against seen, one per line
    double seconds = 0;                 // wall time of the case
};

// Runs every case of one test file. kUnreadable (with `error`) when the file
// or a file it names cannot be used; otherwise kClean, with the results.
Status runTestFile(const std::string& path, std::vector<CaseResult>& out, std::string& error);

// The JUnit XML report of the results: one suite per test file.
bool writeJunit(const std::string& path, const std::vector<CaseResult>& results,
                std::string& error);

// The `test` subcommand: arguments behind "test". 0 all passed, 1 a case
// failed, 2 a file was unusable or the arguments wrong.
void testUsage(FILE* out);
// The arguments behind the subcommand's name.
int testMain(int argc, char** argv);

}  // namespace zelauthor

#endif  // ZELAUTHOR_RULETEST_H
