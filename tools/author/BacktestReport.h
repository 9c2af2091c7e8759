// What a backtest reports, from the drives' alerts: per rule, the drives with
// an alert, the alerts, their total and longest time and the flaps; the rules
// that never got a reading; per drive, its alerts; and with an old rule set,
// what changes. As text, JSON and CSV.
#ifndef ZELAUTHOR_BACKTESTREPORT_H
#define ZELAUTHOR_BACKTESTREPORT_H

#include <stdio.h>

#include <string>
#include <vector>

#include "Backtest.h"
#include "RuleFile.h"

namespace zelauthor {

struct RuleSummary {
    uint32_t alert = 0;
    size_t drives = 0, count = 0, flaps = 0;
    double seconds = 0, longest = 0;
};

struct Change {
    std::string file;
    uint32_t alert;
    std::string change;   // "appears", "vanishes", "earlier", "later"
    double oldAt, newAt;  // when it began; below 0: not at all
};

struct Report {
    std::vector<DriveResult> drives;
    std::vector<RuleSummary> rules;  // every rule of the set, in its order
    std::vector<uint32_t> unread;    // rules that never got a reading
    std::vector<Change> changes;
    bool diff = false;
    double flap = 10;
};

// An alert's time: to its end, or to the end of its drive.
double alertSeconds(const DriveAlert& a, double driveSeconds);

Report makeReport(const std::vector<DriveResult>& drives, const RuleFile& rules, double flap,
                  bool diff);
void printReport(FILE* f, const Report& r);
bool writeJsonReport(const std::string& path, const Report& report, std::string& error);
bool writeCsvReport(const std::string& path, const Report& report, std::string& error);

}  // namespace zelauthor

#endif  // ZELAUTHOR_BACKTESTREPORT_H
