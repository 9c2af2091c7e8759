#include "ReplayWatch.h"

#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <set>

namespace zelauthor {

namespace {

const uint32_t kPanic = 8;
const uint32_t kSpeed = 14;
const uint32_t kFirstJ1939 = 34;
const uint32_t kLastJ1939 = 97;

// A trigger's signal as the pass reads it: NaN while it has no value.
double eventValue(CAlertZelManage& svc, uint32_t event) {
    double v = NAN;
    if (!svc.isEventValid(event)) return NAN;
    if (event == kPanic) return svc.panicValue(v) ? v : NAN;
    if (event >= kFirstJ1939 && event <= kLastJ1939)
        return svc.m_J1939Value.find(event - kFirstJ1939, v) ? v : NAN;
    return svc.familyValue(event);
}

bool holds(int type, double v, double threshold) {
    if (std::isnan(v)) return false;
    return type == GT ? v > threshold : type == LT ? v < threshold : v == threshold;
}

// The unit of a built-in event's value, as the service keeps it.
const char* unitOf(uint32_t e) {
    if (e <= kPanic || e == 13 || (e >= 18 && e <= 33)) return "";  // 0 off, 1 on
    if (e <= 11) return "g";  // 9..11: the three axes
    if (e == kSpeed) return "mph";
    if (e == 15 || e == 16) return "\xC2\xB0" "C";
    if (e == 17) return "V";
    return "";
}

void track(std::vector<Span>& spans, bool on, double t) {
    bool open = !spans.empty() && spans.back().to < 0;
    if (on && !open) spans.push_back(Span{t, -1});
    if (!on && open) spans.back().to = t;
}

void closeSpans(std::vector<Span>& spans, double t) {
    if (!spans.empty() && spans.back().to < 0) spans.back().to = t;
}

bool isZero(const Common::_datetime_& d) {
    return d.year == 0 && d.month == 0 && d.day == 0 && d.hour == 0 && d.minute == 0 &&
           d.second == 0;
}

std::string clock(const Common::_datetime_& d) {
    char buf[16];
    snprintf(buf, sizeof buf, "%02d:%02d:%02d", d.hour, d.minute, d.second);
    return buf;
}

std::string number(double v) {
    char buf[32];
    snprintf(buf, sizeof buf, "%.10g", v);
    std::string s = buf;
    if (s.find_first_of(".eEn") == std::string::npos) s += ".0";
    return s;
}

const char* const kTypes[3] = {"GT", "LT", "EQ"};

// "rule 7", "rules 7, 11 and 20", "rules 7, 11, 20, 31, 32 and 6 more".
std::string ruleList(const std::vector<uint32_t>& ids, const std::string& noun = "rule") {
    std::string text = noun + (ids.size() == 1 ? " " : "s ");
    size_t shown = std::min<size_t>(ids.size(), 5);
    for (size_t i = 0; i < shown; ++i) {
        if (i > 0) text += i + 1 == shown && shown == ids.size() ? " and " : ", ";
        text += std::to_string(ids[i]);
    }
    if (shown < ids.size()) text += " and " + std::to_string(ids.size() - shown) + " more";
    return text;
}

std::string whyNoValue(uint32_t event, const ReplayInputs& in) {
    if (event >= kFirstJ1939 && event <= kLastJ1939) {
        if (!in.table)
            return "no J1939 table was given, so no CAN frame decodes into it (add --j1939 "
                   "TABLE.csv)";
        return "no frame of its table row's group came" +
               std::string(in.can ? "" : " (no CAN log was given: add --can LOG)");
    }
    if (event == kSpeed && !in.scenario)
        return "the speed comes in its own message (6777), not from CAN: give a scenario "
               "with speed steps";
    return in.scenario ? "the scenario has no step for it"
                       : "only a scenario gives it (add --scenario FILE)";
}

}  // namespace

PassWatch::PassWatch(CAlertZelManage& service, ReplayResult& out)
    : m_service(service), m_out(out) {
    for (const ZelAlertPara_t& p : service.m_ParaList) {
        RuleTrace r;
        r.id = p.alertID;
        for (const sInputTrigger& t : p.triggers) {
            RuleTrace::Trigger trig{t.Event, static_cast<int>(t.Type), t.Value, "", "", {}};
            trig.name = t.Event < static_cast<uint32_t>(kEventCount) ? EVENT_NAME[t.Event] : "?";
            trig.unit = unitOf(t.Event);
            uint32_t row = t.Event - kFirstJ1939;
            if (t.Event >= kFirstJ1939 && t.Event <= kLastJ1939 && row < out.j1939Rows.size() &&
                !out.j1939Rows[row].name.empty()) {
                trig.name = out.j1939Rows[row].name + " (" + trig.name + ")";
                trig.unit = out.j1939Rows[row].unit;
            }
            r.triggers.push_back(trig);
        }
        if (!isZero(p.startTime) && !isZero(p.endTime))
            r.window = clock(p.startTime) + " to " + clock(p.endTime);
        out.rules.push_back(r);
        RuleStats stats;
        stats.triggers.resize(r.triggers.size());
        m_stats.push_back(stats);
    }
}

void PassWatch::afterPass(double t) {
    size_t i = 0;
    for (const ZelAlertPara_t& p : m_service.m_ParaList) {
        if (i >= m_out.rules.size()) break;
        RuleTrace& r = m_out.rules[i];
        RuleStats& stats = m_stats[i++];
        track(r.running, p.bState, t);
        track(r.holding, p.bConditionMet && !p.bState, t);
        bool inArea = m_service.checkIsInArea(p.alertID);
        bool inWindow = m_service.checkTime(p.startTime, p.endTime);
        track(r.outsideArea, !inArea, t);
        track(r.windowClosed, !inWindow, t);
        bool all = true;
        for (size_t k = 0; k < r.triggers.size(); ++k) {
            RuleTrace::Trigger& trig = r.triggers[k];
            TriggerStats& ts = stats.triggers[k];
            double v = eventValue(m_service, trig.event);
            auto& s = trig.samples;
            bool changed = s.empty() || std::isnan(s.back().second) != std::isnan(v) ||
                           (!std::isnan(v) && s.back().second != v);
            if (changed) s.emplace_back(t, v);
            if (!std::isnan(v)) {
                ts.lo = ts.everValue ? std::min(ts.lo, v) : v;
                ts.hi = ts.everValue ? std::max(ts.hi, v) : v;
                ts.everValue = true;
            }
            bool h = holds(trig.type, v, trig.threshold);
            ts.everTrue = ts.everTrue || h;
            all = all && h;
        }
        if (all) {
            stats.allTrue = true;
            stats.allTrueInArea = stats.allTrueInArea || inArea;
            stats.allTrueInWindow = stats.allTrueInWindow || (inArea && inWindow);
        }
    }
}

std::string PassWatch::neverHeldReason(const RuleTrace& r, const RuleStats& stats) const {
    for (size_t k = 0; k < r.triggers.size(); ++k)
        if (!stats.triggers[k].everValue)
            return "no reading: " + r.triggers[k].name + " never had a value";
    for (size_t k = 0; k < r.triggers.size(); ++k) {
        const TriggerStats& ts = stats.triggers[k];
        if (ts.everTrue) continue;
        const RuleTrace::Trigger& trig = r.triggers[k];
        std::string range = ts.lo == ts.hi ? "it stayed at " + number(ts.lo)
                                           : "it read " + number(ts.lo) + " to " + number(ts.hi);
        return "threshold never crossed: " + trig.name + " " + kTypes[trig.type % 3] + " " +
               number(trig.threshold) + " never held (" + range + ")";
    }
    if (!stats.allTrue) return "its triggers each held, but never in the same pass";
    if (!stats.allTrueInArea)
        return "area: the vehicle was outside area " + std::to_string(r.id) +
               " whenever its triggers held";
    if (!stats.allTrueInWindow)
        return "window: the daily window " + r.window + " was closed whenever its triggers held";
    return "";
}

void PassWatch::finish(double t, const ReplayInputs& inputs) {
    std::map<uint32_t, std::vector<uint32_t>> silent;  // event -> rules
    std::map<uint32_t, uint32_t> atLeast;              // id -> its ATLEAST
    std::set<uint32_t> reported;                       // ids with a running episode
    for (const Episode& e : m_out.episodes)
        if (e.ended < 0) reported.insert(e.id);
    size_t i = 0;
    for (const ZelAlertPara_t& p : m_service.m_ParaList) {
        if (i >= m_out.rules.size()) break;
        RuleTrace& r = m_out.rules[i];
        const RuleStats& stats = m_stats[i++];
        for (std::vector<Span>* spans :
             {&r.running, &r.holding, &r.outsideArea, &r.windowClosed})
            closeSpans(*spans, t);
        for (size_t k = 0; k < r.triggers.size(); ++k) {
            auto& s = r.triggers[k].samples;
            if (!s.empty() && s.back().first < t) s.emplace_back(t, s.back().second);
            if (!stats.triggers[k].everValue) {
                std::vector<uint32_t>& ids = silent[r.triggers[k].event];
                if (ids.empty() || ids.back() != r.id) ids.push_back(r.id);
            }
        }
        atLeast[p.alertID] = p.atLeast;
        if (p.bState) {
            m_out.runningAtEnd.push_back(p.alertID);
            if (!reported.count(p.alertID)) m_out.unreportedAtEnd.push_back(p.alertID);
        } else if (p.bConditionMet) {
            m_out.holdingAtEnd.push_back(p.alertID);
        }
        if (r.holding.empty() && r.running.empty())
            m_out.neverHeld.push_back(ReplayResult::Quiet{r.id, neverHeldReason(r, stats)});
    }
    for (const auto& entry : silent) {
        std::string name = entry.first < static_cast<uint32_t>(kEventCount)
                               ? EVENT_NAME[entry.first]
                               : std::to_string(entry.first);
        m_out.warnings.push_back(name + " (" + ruleList(entry.second) +
                                 ") never had a value: " + whyNoValue(entry.first, inputs));
    }
    // A record comes at most a cycle after ATLEAST is reached, and its time
    // is whole seconds: more than kLate behind is the log writing's doing.
    const double kLate = 2.0;
    std::vector<uint32_t> late;
    double worst = 0;
    for (const Episode& e : m_out.episodes) {
        double delay = e.rose - e.heldSince - atLeast[e.id];
        if (delay <= kLate) continue;
        if (std::find(late.begin(), late.end(), e.id) == late.end()) late.push_back(e.id);
        worst = std::max(worst, delay);
    }
    if (!late.empty()) {
        char text[64];
        snprintf(text, sizeof text, "%.1f", worst);
        m_out.warnings.push_back(
            ruleList(late, "alert") + ": reported up to " + text +
            " s after ATLEAST was reached: each rising alert costs the service 50 ms of log "
            "writing, so many rising at once are reported late, on the device as here");
    }
    if (!m_out.unreportedAtEnd.empty())
        m_out.warnings.push_back(
            ruleList(m_out.unreportedAtEnd, "alert") +
            ": risen, and not yet reported when the replay stopped (each rising alert costs "
            "the service 50 ms of log writing): run longer with --until");
}

}  // namespace zelauthor
