// Records held by the service: rules and their triggers, alert records, the
// place of a log frame, and the decoded J1939 values.
#ifndef ALERTZEL_TYPES_H
#define ALERTZEL_TYPES_H

#include <stdint.h>
#include <string.h>

#include <vector>

#include "Common.h"
#include "LogFrame.h"

// Comparison of a trigger with its threshold.
enum eTriggerType : int32_t { GT = 0, LT = 1, EQ = 2 };

// One condition of a rule: event number (index into EVENT_NAME), comparison,
// threshold.
struct sInputTrigger {
    uint32_t Event;
    eTriggerType Type;
    double Value;
};

// One rule with its run state. The run-state fields (bLastState to
// conditionTime) belong to the alert pass; the parser writes the rest.
struct ZelAlertPara_t {
    uint8_t bLastState;              // alert state at the end of the previous pass
    uint8_t bState;                  // alert state of this pass
    Common::_datetime_ alarmStart;   // when all conditions began to hold
    Common::_datetime_ alarmEnd;     // latest failing pass, or a stop
    uint8_t bConditionMet;           // the conditions held in the latest pass
    long conditionTime;              // UTC seconds: start of the hold
    uint32_t alertID;                // rule id; also the id of its area
    Common::_datetime_ startTime;    // daily window start (all zero: none)
    Common::_datetime_ endTime;      // daily window end (all zero: none)
    uint32_t atLeast;                // seconds the condition must hold
    unsigned long long EventMark;    // always 0; reported in alert records
    std::vector<sInputTrigger> triggers;  // in ascending Event order, contiguous
};

// One alert transition as reported on the bus (32 bytes on the wire, see
// AlertReport.h). Reserved bytes are not kept.
struct tag_ZELAlert {
    uint32_t alertID;
    unsigned long long EventMark;
    uint8_t alertTime[6];  // year..second of a _datetime_
    uint8_t bEnded;        // 0: began, 1: ended
};

// Place and last built content of one running alert's frame in the log.
struct _AlertZelLogFrame_t_ {
    unsigned long long frameOffset;
    uint8_t frame[zel::kFrameSize];
};

// Decoded J1939 values by table row (0..63). A fixed map: a frame's decode
// never allocates.
class J1939ValueMap {
public:
    J1939ValueMap() { memset(m_value, 0, sizeof m_value); }
    bool find(uint32_t row, double& out) const {
        if (row >= 64 || !(m_present & (1ull << row))) return false;
        out = m_value[row];
        return true;
    }
    void set(uint32_t row, double v) {
        if (row >= 64) return;
        m_value[row] = v;
        m_present |= 1ull << row;
    }
    size_t size() const { return static_cast<size_t>(__builtin_popcountll(m_present)); }
    bool empty() const { return m_present == 0; }

private:
    uint64_t m_present = 0;
    double m_value[64];
};

#endif  // ALERTZEL_TYPES_H
