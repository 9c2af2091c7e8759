// One drive through the service's own code, streamed: steps go in one at a
// time in order of time, and only the alert records (message 3215) are kept,
// so that memory stays flat however long the drive. The rule tests and the
// backtest run their drives through it; each answer is what the plug-in
// would do on the device.
//
// As in replay, time 0 is the first pass with the rules in place, on a whole
// second, with the device clock there as asked; a platform that answers the
// rule and area requests and a storage that answers at once stand in for the
// peers. A step is queued at its time when it lies ahead, so that the
// worker's wait wakes for it; steps already due when the worker comes round
// go to their handlers at once, as that wait would have handed them over.
//
// Runs a harness of its own: one DriveRun at a time in a process.
#ifndef ZELAUTHOR_DRIVERUN_H
#define ZELAUTHOR_DRIVERUN_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Findings.h"
#include "Replay.h"
#include "Scenario.h"

namespace harness {
class Harness;
}

namespace zelauthor {

// The platform's part in the service's start, shared by replay and the
// drives: answers the rule-set request (CMD 8) with `rulesText` and each
// area request (CMD 11) with the areas `areasAt` gives for the seconds since
// time 0 (`zeroUs`, read at the request; 0 seconds before it is set).
typedef std::function<std::set<uint32_t>(double seconds)> AreasAt;
void answerPlatform(harness::Harness& h, const std::string& rulesText, const int64_t& zeroUs,
                    const AreasAt& areasAt);
// Lets the started service take its storage, rules and areas, then puts time
// 0 on a whole second with the device clock at `clock`; returns time 0 in the
// harness's microseconds.
int64_t settleAtZero(harness::Harness& h, const int clock[6]);
// A fence step's area and whether it puts the vehicle inside; false for any
// other step.
bool fenceOf(const zelscenario::Step& s, uint32_t& id, bool& in);

// "HH:MM:SS" or "YYYY/MM/DD HH:MM:SS" (or with '-') into year..second;
// false when malformed or out of range. The date defaults to 2026/03/05.
bool parseDeviceClock(const std::string& text, int fields[6]);

class DriveRun {
public:
    // Starts the service with `rulesText` (the whole-set form) and brings it
    // to time 0 with the device clock at `clock` (year..second).
    DriveRun(const std::string& rulesText, const int clock[6]);
    ~DriveRun();

    // A step at `step.at` seconds from 0; no earlier than the one before.
    void play(const zelscenario::Step& step);
    // Runs worker cycles until `seconds` from 0.
    void runUntil(double seconds);
    double now() const;

    const std::vector<Record>& records() const { return m_records; }
    std::vector<Episode> episodes() const;
    int64_t deviceZero() const { return m_deviceZero; }
    // The rules of the set, in its order, and those whose trigger signals all
    // had a value at once at some pass.
    const std::vector<uint32_t>& rules() const { return m_rules; }
    const std::set<uint32_t>& rulesRead() const { return m_read; }

    DriveRun(const DriveRun&) = delete;
    DriveRun& operator=(const DriveRun&) = delete;

private:
    struct Impl;
    void cycle();

    std::unique_ptr<Impl> m_impl;
    std::vector<Record> m_records;
    std::vector<uint32_t> m_rules;
    std::set<uint32_t> m_read;
    int64_t m_zeroUs = 0;
    int64_t m_deviceZero = 0;
    int64_t m_aheadUs = -1;  // the latest step queued ahead of the clock
};

// The table message of a J1939 table file (CSV, DBC or a 6048-byte payload)
// as a step at 0. kFound with a reason for a table refused, kUnreadable when
// the file cannot be read.
Status loadTableStep(const std::string& path, zelscenario::Step& step, std::string& error);

// Plays a candump log (either form) line by line from 0 at its recorded
// pace; `last` gets the time of its last frame. kFound for a line that holds
// no frame or a log without one, kUnreadable when it cannot be read.
Status playCanLog(const std::string& path, DriveRun& run, double& last, std::string& error);

}  // namespace zelauthor

#endif  // ZELAUTHOR_DRIVERUN_H
