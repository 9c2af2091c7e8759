// zel-author replay: the service's own code, in-process on the harness's
// virtual clock, over a rule set, a J1939 table, a scenario and a CAN log.
//
// The run plays the device's peers: a storage that answers at once, and a
// platform that answers the service's rule request (CMD 8) with the rule set
// and its area request (CMD 11) with the areas the scenario's fence steps
// have put the vehicle in. Time 0 is the first pass with the rules in place;
// every step goes out at its time from there, and the worker cycles as on a
// device, 100 ms apart and more, until the last step and a few seconds
// beyond. A 30-second drive replays in a small part of a second.
//
// Runs a harness of its own: not while another harness is alive.
#ifndef ZELAUTHOR_REPLAY_H
#define ZELAUTHOR_REPLAY_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <utility>
#include <vector>

#include "Findings.h"

namespace zelauthor {

struct ReplayArgs {
    std::string rules;
    std::string table;     // J1939 table, CSV or a 6048-byte payload; sent at 0
    std::string scenario;  // see formats/Scenario.h
    std::string can;       // candump log, played from 0 at its recorded pace
    std::string svg;       // timeline picture to write
    double until = -1;     // seconds; below 0: the last step and kTailSeconds
    std::string clock;     // device clock at 0: "HH:MM:SS" or "YYYY/MM/DD HH:MM:SS"
};

const double kTailSeconds = 3.0;
// The longest run: 31 days of device time.
const double kMaxUntil = 31 * 86400.0;

// One message 3215 record.
struct Record {
    double at;         // seconds from 0, when the list went out
    uint32_t id;
    bool ended;
    uint8_t time[6];   // year - 2000, month, day, hour, minute, second
};

// One alert from its rise to its fall, in seconds from 0.
struct Episode {
    uint32_t id;
    double heldSince;  // when its conditions began to hold (the record's time)
    double rose;
    double ended;      // below 0: still running at the end
};

struct Span {
    double from, to;
};

// What the timeline shows of one rule.
struct RuleTrace {
    uint32_t id;
    struct Trigger {
        uint32_t event;
        int type;  // 0 GT, 1 LT, 2 EQ
        double threshold;
        std::string name;  // the event's name; a J1939 row's as the table names it
        std::string unit;  // "" when unknown
        // (t, value) where the value changes, and at the end; NaN: no value.
        std::vector<std::pair<double, double>> samples;
    };
    std::vector<Trigger> triggers;
    std::vector<Span> holding, running;
    std::string window;                    // "08:00:00 to 18:00:00", or "" for none
    std::vector<Span> windowClosed;        // while the daily window is closed
    std::vector<Span> outsideArea;         // while the vehicle is outside its area
};

// A J1939 table row as the table names it.
struct RowName {
    std::string name, unit;
};

struct ReplayResult {
    std::vector<Record> records;
    std::vector<Episode> episodes;
    std::vector<RuleTrace> rules;
    size_t steps = 0;
    double duration = 0;       // virtual seconds run from 0
    double realSeconds = 0;    // wall time of the run
    std::string clockAtZero;   // device clock at 0
    int64_t deviceZero = 0;    // the same as UTC seconds
    size_t logFrames = 0;      // frames the storage holds at the end
    std::vector<RowName> j1939Rows;  // of the table given, by row

    // Rules that never held, each with the reason: "no reading", "threshold
    // never crossed", "window", "area".
    struct Quiet {
        uint32_t id;
        std::string why;
    };
    std::vector<Quiet> neverHeld;
    // Alerts running at the end, and those holding (conditions met, ATLEAST
    // not yet reached), by id; and the running ones whose start no record
    // has yet reported.
    std::vector<uint32_t> runningAtEnd, holdingAtEnd, unreportedAtEnd;
    // What the run could not show, with the likely cause: events a rule names
    // that the input never gave a value, alerts not yet reported at the end.
    std::vector<std::string> warnings;
};

Status runReplay(const ReplayArgs& args, ReplayResult& out, std::string& error);
void printReplay(FILE* f, const ReplayResult& r);

// A message 3215 payload as records at time `at`; false when malformed.
bool decodeAlertList(const std::vector<uint8_t>& payload, double at, std::vector<Record>& out);
// Episodes from records in order of time. `deviceZero` converts record
// times into seconds from 0.
std::vector<Episode> episodesOf(const std::vector<Record>& records, int64_t deviceZero);

}  // namespace zelauthor

#endif  // ZELAUTHOR_REPLAY_H
