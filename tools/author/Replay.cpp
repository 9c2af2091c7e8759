#include "Replay.h"

#include <errno.h>
#include <math.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <set>

#include "AlertZelManage.h"
#include "ByteOrder.h"
#include "Candump.h"
#include "CommandLine.h"
#include "DriveRun.h"
#include "Harness.h"
#include "MemoryStorage.h"
#include "MessageIds.h"
#include "PlatformRules.h"
#include "RuleFile.h"
#include "Scenario.h"
#include "SignalRecords.h"
#include "SignalTable.h"
#include "ReplayWatch.h"
#include "TableLint.h"
#include "Timeline.h"

namespace zelauthor {

namespace {

typedef std::vector<zelscenario::Step> Steps;

// Steps go into the harness this far ahead of the virtual clock: beyond the
// 500 ms that one cycle's wait may skip, so that no step is passed over, and
// no further, since the harness scans its whole queue for each message.
const int64_t kLookaheadUs = 600000;

const size_t kListHead = 8;
const size_t kRecordSize = 32;

bool readable(const std::string& path, std::string& error) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        error = path + ": " + cli::errorText(errno);
        return false;
    }
    fclose(f);
    return true;
}

Status tableStep(const std::string& path, Steps& steps, std::vector<RowName>& names,
                 std::string& error) {
    std::string data;
    if (!platformpeer::readFile(path, data, error)) return kUnreadable;
    zelscenario::Step s;
    s.at = 0;
    s.id = zel::kMsgJ1939Param;
    s.line = 0;
    if (zelj1939::isTablePayload(data)) {
        s.payload.assign(data.begin(), data.end());
    } else {
        std::istringstream csv(data);
        std::vector<zelj1939::SignalRow> rows;
        if (!zelj1939::parseSignalTable(csv, rows, error)) {
            // "line N: what" as "PATH:N: what", as lint names it.
            error = error.compare(0, 5, "line ") == 0 ? path + ":" + error.substr(5)
                                                      : path + ": " + error;
            return kUnreadable;
        }
        s.payload = zelj1939::buildTablePayload(rows);
        for (const zelj1939::SignalRow& r : rows) names.push_back(RowName{r.name, r.unit});
    }
    steps.push_back(s);
    return kClean;
}

Status canSteps(const std::string& path, Steps& steps, std::string& error) {
    std::vector<zelj1939::CanFrame> frames;
    Status s = loadCanLog(path, frames, error);
    if (s != kClean) return s;
    double first = frames.front().time;
    for (const zelj1939::CanFrame& f : frames) {
        zelscenario::Step step;
        step.at = std::max(0.0, f.time - first);
        step.id = zel::kMsgCanFrame;
        step.payload = zelj1939::canFramePayload(f);
        step.line = 0;
        steps.push_back(step);
    }
    return kClean;
}

Status loadSteps(const ReplayArgs& args, Steps& steps, std::vector<RowName>& names,
                 std::string& error) {
    if (!args.table.empty()) {
        Status s = tableStep(args.table, steps, names, error);
        if (s != kClean) return s;
    }
    if (!args.scenario.empty()) {
        if (!readable(args.scenario, error)) return kUnreadable;
        Steps scenario;
        if (!zelscenario::loadScenario(args.scenario, scenario, error)) return kUnreadable;
        steps.insert(steps.end(), scenario.begin(), scenario.end());
    }
    if (!args.can.empty()) {
        Status s = canSteps(args.can, steps, error);
        if (s != kClean) return s;
    }
    std::stable_sort(steps.begin(), steps.end(),
                     [](const zelscenario::Step& a, const zelscenario::Step& b) {
                         return a.at < b.at;
                     });
    return kClean;
}

// The areas the vehicle is in after the fence steps up to `upTo` seconds.
std::set<uint32_t> insideAreas(const Steps& steps, double upTo) {
    std::set<uint32_t> inside;
    for (const zelscenario::Step& s : steps) {
        if (s.at > upTo) break;
        uint32_t id = 0;
        bool in = false;
        if (!fenceOf(s, id, in)) continue;
        if (in)
            inside.insert(id);
        else
            inside.erase(id);
    }
    return inside;
}

std::string clockText(const Common::_datetime_& d) {
    char buf[32];
    snprintf(buf, sizeof buf, "%04d/%02d/%02d %02d:%02d:%02d", 2000 + d.year, d.month, d.day,
             d.hour, d.minute, d.second);
    return buf;
}

int64_t utcOf(const uint8_t t[6]) {
    struct tm tm;
    memset(&tm, 0, sizeof tm);
    tm.tm_year = t[0] + 100;
    tm.tm_mon = t[1] - 1;
    tm.tm_mday = t[2];
    tm.tm_hour = t[3];
    tm.tm_min = t[4];
    tm.tm_sec = t[5];
    return static_cast<int64_t>(timegm(&tm));
}

}  // namespace

bool decodeAlertList(const std::vector<uint8_t>& payload, double at, std::vector<Record>& out) {
    if (payload.size() < kListHead) return false;
    uint32_t count = zel::getLe32(payload.data(), 0);
    if (payload.size() != kListHead + kRecordSize * static_cast<size_t>(count)) return false;
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t* p = payload.data() + kListHead + kRecordSize * i;
        Record r;
        r.at = at;
        r.id = zel::getLe32(p, 0);
        memcpy(r.time, p + 16, sizeof r.time);
        r.ended = p[24] != 0;
        out.push_back(r);
    }
    return true;
}

std::vector<Episode> episodesOf(const std::vector<Record>& records, int64_t deviceZero) {
    std::vector<Episode> episodes;
    std::map<uint32_t, size_t> open;  // id -> index of its running episode
    for (const Record& r : records) {
        auto it = open.find(r.id);
        if (!r.ended) {
            if (it != open.end()) episodes[it->second].ended = r.at;  // risen again
            Episode e;
            e.id = r.id;
            e.heldSince = static_cast<double>(utcOf(r.time) - deviceZero);
            e.rose = r.at;
            e.ended = -1;
            open[r.id] = episodes.size();
            episodes.push_back(e);
        } else if (it != open.end()) {
            episodes[it->second].ended = r.at;
            open.erase(it);
        }
    }
    return episodes;
}

Status runReplay(const ReplayArgs& args, ReplayResult& out, std::string& error) {
    out = ReplayResult();
    auto wallStart = std::chrono::steady_clock::now();
    RuleFile file;
    Status s = loadRuleFile(args.rules, file, error);
    if (s != kClean) return s;
    int clock[6] = {2026, 3, 5, 12, 0, 0};
    if (!args.clock.empty() && !parseDeviceClock(args.clock, clock)) {
        error = "--clock " + args.clock + ": expected HH:MM:SS or YYYY/MM/DD HH:MM:SS";
        return kUnreadable;
    }
    if (args.until > kMaxUntil) {
        error = "--until " + std::to_string(static_cast<long long>(args.until)) +
                ": a replay runs at most " + std::to_string(static_cast<long>(kMaxUntil)) +
                " s of device time";
        return kUnreadable;
    }
    Steps steps;
    s = loadSteps(args, steps, out.j1939Rows, error);
    if (s != kClean) return s;
    out.steps = steps.size();
    double end = args.until >= 0 ? args.until : (steps.empty() ? 0 : steps.back().at) + kTailSeconds;
    end = std::min(end, kMaxUntil);

    harness::Harness h;
    h.setDeviceTime(clock[0], clock[1], clock[2], clock[3], clock[4], clock[5]);
    h.start();
    MemoryStorage storage(h);
    std::string rulesText = wholeSetText(file);
    int64_t zeroUs = 0;
    answerPlatform(h, rulesText, zeroUs, [&steps](double t) { return insideAreas(steps, t); });
    CAlertZelManage& svc = h.service();
    zeroUs = settleAtZero(h, clock);
    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    out.clockAtZero = clockText(now);
    const uint8_t fields[6] = {now.year, now.month, now.day, now.hour, now.minute, now.second};
    out.deviceZero = utcOf(fields);

    PassWatch watch(svc, out);

    size_t next = 0;
    h.clearSent();
    h.clearLines();
    double t = 0;
    while (t < end) {
        int64_t horizon = h.nowUs() + kLookaheadUs;
        for (; next < steps.size(); ++next) {
            int64_t due = zeroUs + static_cast<int64_t>(llround(steps[next].at * 1e6));
            if (due > horizon) break;
            h.injectAt(due, steps[next].id, steps[next].payload);
        }
        h.cycle();
        t = (h.nowUs() - zeroUs) / 1e6;
        for (const harness::SentMessage& m : h.sent())
            if (m.id == zel::kMsgAlertList)
                decodeAlertList(m.payload, (m.atUs - zeroUs) / 1e6, out.records);
        h.clearSent();
        h.clearLines();
        watch.afterPass(t);
    }
    out.duration = t;
    out.episodes = episodesOf(out.records, out.deviceZero);
    ReplayInputs inputs;
    inputs.table = !args.table.empty();
    inputs.scenario = !args.scenario.empty();
    inputs.can = !args.can.empty();
    watch.finish(t, inputs);
    for (const auto& day : storage.logs()) out.logFrames += day.second.size();
    h.stop();
    out.realSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();

    if (!args.svg.empty() && !writeTimeline(args.svg, out, error)) return kUnreadable;
    return kClean;
}

void printReplay(FILE* f, const ReplayResult& r) {
    fprintf(f, "replay: %zu rule%s, %zu step%s, %.1f s of device time from %s\n",
            r.rules.size(), r.rules.size() == 1 ? "" : "s", r.steps, r.steps == 1 ? "" : "s",
            r.duration, r.clockAtZero.c_str());
    fprintf(f, "\nepisodes (seconds from the start):\n");
    if (r.episodes.empty()) fprintf(f, "  none\n");
    else fprintf(f, "  %8s %8s %8s %8s %9s\n", "alert", "held", "rose", "ended", "duration");
    for (const Episode& e : r.episodes) {
        if (e.ended >= 0)
            fprintf(f, "  %8u %8.1f %8.1f %8.1f %9.1f\n", e.id, e.heldSince, e.rose, e.ended,
                    e.ended - e.rose);
        else
            fprintf(f, "  %8u %8.1f %8.1f %8s %9s\n", e.id, e.heldSince, e.rose, "-", "running");
    }
    fprintf(f, "\nrecords (message 3215):\n");
    if (r.records.empty()) fprintf(f, "  none\n");
    for (const Record& rec : r.records) {
        fprintf(f, "  %8.1f s  alert %u %s  %04d/%02d/%02d %02d:%02d:%02d\n", rec.at, rec.id,
                rec.ended ? "ended" : "began", 2000 + rec.time[0], rec.time[1], rec.time[2],
                rec.time[3], rec.time[4], rec.time[5]);
    }
    fprintf(f, "\nnever held:\n");
    if (r.neverHeld.empty()) fprintf(f, "  none\n");
    for (const ReplayResult::Quiet& q : r.neverHeld)
        fprintf(f, "  alert %u: %s\n", q.id, q.why.c_str());
    fprintf(f, "\nat the end (%.1f s): ", r.duration);
    auto list = [&](const char* what, const std::vector<uint32_t>& ids) {
        fprintf(f, "%zu %s", ids.size(), what);
        for (size_t i = 0; i < ids.size() && i < 20; ++i) fprintf(f, "%s%u", i ? ", " : " (", ids[i]);
        if (ids.size() > 20) fprintf(f, ", ...");
        if (!ids.empty()) fprintf(f, ")");
    };
    list("running", r.runningAtEnd);
    fprintf(f, ", ");
    list("holding", r.holdingAtEnd);
    fprintf(f, ", ");
    list("not yet reported", r.unreportedAtEnd);
    fprintf(f, "\n");
    fprintf(f, "\nlog: %zu frame%s; replayed in %.3f s\n", r.logFrames,
            r.logFrames == 1 ? "" : "s", r.realSeconds);
}

}  // namespace zelauthor
