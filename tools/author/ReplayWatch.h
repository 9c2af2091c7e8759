// What a replay watches after each pass of the service: each rule's trigger
// signals, its daily window and area, its Holding and Running spans, and
// from them why a rule never held and which events the input never gave a
// value.
//
// Memory stays flat in virtual time: a signal is kept only where it changes,
// a span only where it begins and ends, so an hour with nothing happening
// costs nothing. Lives inside runReplay; reads the service it is given
// between passes, on the caller's thread.
#ifndef ZELAUTHOR_REPLAYWATCH_H
#define ZELAUTHOR_REPLAYWATCH_H

#include <stdint.h>

#include <string>
#include <vector>

#include "AlertZelManage.h"
#include "Replay.h"

namespace zelauthor {

// What the replay was given, for the likely cause of a missing value.
struct ReplayInputs {
    bool table = false;
    bool scenario = false;
    bool can = false;
};

class PassWatch {
public:
    // Takes the rules the service holds now; fills `out.rules`.
    PassWatch(CAlertZelManage& service, ReplayResult& out);

    // After a pass at `t` seconds from 0.
    void afterPass(double t);
    // At the end of the run at `t`: closes the spans, ends each signal at
    // `t`, and fills the result's never-held reasons, still-running alerts
    // and warnings. Call once, after the episodes are known.
    void finish(double t, const ReplayInputs& inputs);

private:
    struct TriggerStats {
        bool everValue = false;
        bool everTrue = false;
        double lo = 0, hi = 0;
    };
    struct RuleStats {
        std::vector<TriggerStats> triggers;
        bool allTrue = false;          // all triggers held in one pass
        bool allTrueInArea = false;    // ... with the vehicle inside the area
        bool allTrueInWindow = false;  // ... and the window open
    };
    std::string neverHeldReason(const RuleTrace& rule, const RuleStats& stats) const;

    CAlertZelManage& m_service;
    ReplayResult& m_out;
    std::vector<RuleStats> m_stats;
};

}  // namespace zelauthor

#endif  // ZELAUTHOR_REPLAYWATCH_H
