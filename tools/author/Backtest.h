// zel-author backtest: a rule set over a fleet's drives, through the
// service's own code. Drives are candump logs (a folder: every .log in it)
// or scenarios (.scn); each runs in a simulator of its own, in worker
// processes (one per job; the simulator is single-threaded), and the results
// come back in the order the drives were named, whatever the number of jobs.
// --diff runs a second, older rule set over the same drives and reports the
// alerts that appear, vanish, or begin earlier or later.
#ifndef ZELAUTHOR_BACKTEST_H
#define ZELAUTHOR_BACKTEST_H

#include <stdint.h>
#include <stdio.h>

#include <set>
#include <string>
#include <vector>

namespace zelauthor {

struct DriveAlert {
    uint32_t alert;
    double began;
    double ended;  // below 0: still running at the drive's end
    double since;
};

struct DriveResult {
    std::string file;
    std::string error;                // why the drive could not run
    double seconds = 0;               // length of the drive as run
    std::vector<DriveAlert> alerts;   // of the rule set, by time
    std::vector<DriveAlert> old;      // of the --diff rule set
    std::set<uint32_t> read, oldRead; // rules whose signals all had a value
};

// The `backtest` subcommand: arguments behind "backtest". 0 done, 2 an
// argument, the rule set or a drive unusable.
void backtestUsage(FILE* out);
// The arguments behind the subcommand's name.
int backtestMain(int argc, char** argv);

}  // namespace zelauthor

#endif  // ZELAUTHOR_BACKTEST_H
