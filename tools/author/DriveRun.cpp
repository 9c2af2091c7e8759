#include "DriveRun.h"

#include <errno.h>
#include <math.h>
#include <string.h>
#include <time.h>

#include <fstream>
#include <memory>
#include <sstream>

#include <json/json.h>

#include "AlertZelManage.h"
#include "ByteOrder.h"
#include "Candump.h"
#include "CommandLine.h"
#include "FakePlatform.h"
#include "Harness.h"
#include "MemoryStorage.h"
#include "MessageIds.h"
#include "PlatformRules.h"
#include "ScanInts.h"
#include "SignalTable.h"

namespace zelauthor {

namespace {

const unsigned int kCmdRules = 8;
const unsigned int kCmdAreas = 11;
const int kSetupCycles = 50;

}  // namespace

bool fenceOf(const zelscenario::Step& s, uint32_t& id, bool& in) {
    if (s.id == zel::kMsgFenceEvent) {
        Json::Value v;
        Json::Reader reader;
        std::string text(s.payload.begin(), s.payload.end());
        if (!reader.parse(text, v) || !v.isObject() || !v["ID"].isUInt()) return false;
        id = v["ID"].asUInt();
        in = v["EVENT"].isInt() && v["EVENT"].asInt() == 1;
        return true;
    }
    if (s.id == zel::kMsgFenceInfo && s.payload.size() >= 8) {
        in = s.payload[0] & 1;
        id = zel::getLe32(s.payload.data(), 4);
        return true;
    }
    return false;
}


bool parseDeviceClock(const std::string& text, int f[6]) {
    f[0] = 2026, f[1] = 3, f[2] = 5;
    const char* s = text.c_str();
    if (!scanIntsWhole(s, "%d:%d:%d", f + 3, 3) && !scanIntsWhole(s, "%d/%d/%d %d:%d:%d", f, 6) &&
        !scanIntsWhole(s, "%d-%d-%d %d:%d:%d", f, 6))
        return false;
    return f[0] >= 2001 && f[0] <= 2099 && f[1] >= 1 && f[1] <= 12 && f[2] >= 1 && f[2] <= 31 &&
           f[3] >= 0 && f[3] <= 23 && f[4] >= 0 && f[4] <= 59 && f[5] >= 0 && f[5] <= 59;
}

void answerPlatform(harness::Harness& h, const std::string& rulesText, const int64_t& zeroUs,
                    const AreasAt& areasAt) {
    h.onSend(zel::kMsgPlatformRule, [&h, rulesText, &zeroUs, areasAt](const harness::SentMessage& m) {
        Json::Value request;
        Json::Reader reader;
        std::string text(m.payload.begin(), m.payload.end());
        if (!reader.parse(text, request) || !request.isObject()) return;
        unsigned int cmd = request["CMD"].asUInt();
        if (cmd == kCmdRules) {
            h.inject(zel::kMsgPlatformRuleReply, rulesText);
        } else if (cmd == kCmdAreas) {
            Json::Value reply(Json::objectValue);
            reply["AREALINE"] = Json::Value(Json::arrayValue);
            for (uint32_t id : areasAt(zeroUs ? (h.nowUs() - zeroUs) / 1e6 : 0)) {
                Json::Value area;
                area["ID"] = id;
                reply["AREALINE"].append(area);
            }
            h.inject(zel::kMsgPlatformRuleReply, Json::FastWriter().write(reply));
        }
    });
}

int64_t settleAtZero(harness::Harness& h, const int clock[6]) {
    const CAlertZelManage& svc = h.service();
    h.announceStorage();
    for (int i = 0; i < kSetupCycles && !svc.m_bParaReady; ++i) h.cycle();
    h.cycle();  // the area answer
    // Time 0 on a whole second, so that record times read exactly (half a
    // microsecond more, since advance() truncates). No signal has come yet,
    // so no alert runs while the clock is set.
    h.advance((1000000 - h.nowUs() % 1000000 + 0.5) / 1e6);
    int64_t zeroUs = h.nowUs();
    h.setDeviceTime(clock[0], clock[1], clock[2], clock[3], clock[4], clock[5]);
    return zeroUs;
}

struct DriveRun::Impl {
    harness::Harness h;
    std::unique_ptr<MemoryStorage> storage;
    // Fence steps played, (seconds, area, inside), for the area answers.
    std::vector<std::pair<double, std::pair<uint32_t, bool>>> fences;
};

DriveRun::DriveRun(const std::string& rulesText, const int clock[6]) : m_impl(new Impl) {
    harness::Harness& h = m_impl->h;
    h.setCaptureLevel(0);
    h.setDeviceTime(clock[0], clock[1], clock[2], clock[3], clock[4], clock[5]);
    h.start();
    m_impl->storage = std::make_unique<MemoryStorage>(h);
    Impl* impl = m_impl.get();
    answerPlatform(h, rulesText, m_zeroUs, [impl](double t) {
        std::set<uint32_t> inside;
        for (const auto& f : impl->fences) {
            if (f.first > t) break;
            if (f.second.second) inside.insert(f.second.first);
            else inside.erase(f.second.first);
        }
        return inside;
    });
    m_zeroUs = settleAtZero(h, clock);
    m_deviceZero = harness::utcSeconds(clock[0], clock[1], clock[2], clock[3], clock[4], clock[5]);
    const CAlertZelManage& svc = h.service();
    for (const ZelAlertPara_t& p : svc.m_ParaList) m_rules.push_back(p.alertID);
    h.clearSent();
    h.clearLines();
}

DriveRun::~DriveRun() {
    m_impl->h.stop();
    m_impl->storage.reset();
}

double DriveRun::now() const { return (m_impl->h.nowUs() - m_zeroUs) / 1e6; }

void DriveRun::cycle() {
    harness::Harness& h = m_impl->h;
    h.cycle();
    double t = now();
    for (const harness::SentMessage& m : h.sent())
        if (m.id == zel::kMsgAlertList)
            decodeAlertList(m.payload, (m.atUs - m_zeroUs) / 1e6, m_records);
    h.clearSent();
    h.clearLines();
    (void)t;
    const CAlertZelManage& svc = h.service();
    if (m_read.size() == m_rules.size()) return;
    for (const ZelAlertPara_t& p : svc.m_ParaList) {
        if (m_read.count(p.alertID)) continue;
        bool all = !p.triggers.empty();
        for (const sInputTrigger& trig : p.triggers) all = all && svc.isEventValid(trig.Event);
        if (all) m_read.insert(p.alertID);
    }
}

void DriveRun::play(const zelscenario::Step& step) {
    harness::Harness& h = m_impl->h;
    int64_t due = m_zeroUs + static_cast<int64_t>(llround(step.at * 1e6));
    uint32_t area = 0;
    bool in = false;
    if (fenceOf(step, area, in))
        m_impl->fences.emplace_back(step.at, std::make_pair(area, in));
    for (;;) {
        if (due <= h.nowUs()) {
            // Due already: what a queued step would be, handed over in the
            // next wait; with nothing queued before it, it may go at once.
            if (harness::state().queue.empty()) h.deliver(step.id, step.payload);
            else h.injectAt(due, step.id, step.payload);
            return;
        }
        if (m_aheadUs <= h.nowUs()) {
            // The first step ahead of the clock: queued, the wait wakes for it.
            h.injectAt(due, step.id, step.payload);
            m_aheadUs = due;
            return;
        }
        cycle();
    }
}

void DriveRun::runUntil(double seconds) {
    while (now() < seconds) cycle();
}

std::vector<Episode> DriveRun::episodes() const { return episodesOf(m_records, m_deviceZero); }

Status loadTableStep(const std::string& path, zelscenario::Step& step, std::string& error) {
    std::string data;
    if (!platformpeer::readFile(path, data, error)) return kUnreadable;
    step = zelscenario::Step();
    step.at = 0;
    step.id = zel::kMsgJ1939Param;
    step.line = 0;
    if (zelj1939::isTablePayload(data)) {
        step.payload.assign(data.begin(), data.end());
        return kClean;
    }
    std::istringstream text(data);
    std::vector<zelj1939::SignalRow> rows;
    if (!zelj1939::parseSignalTable(text, rows, error)) {
        error = path + ": " + error;
        return kFound;
    }
    step.payload = zelj1939::buildTablePayload(rows);
    return kClean;
}

Status playCanLog(const std::string& path, DriveRun& run, double& last, std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = path + ": " + cli::errorText(errno);
        return kUnreadable;
    }
    std::string line;
    int number = 0;
    bool any = false;
    double first = 0;
    zelj1939::CanFrame frame;
    zelscenario::Step step;
    step.id = zel::kMsgCanFrame;
    step.line = 0;
    last = 0;
    while (std::getline(in, line)) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        if (!zelj1939::parseCandumpLine(line, frame)) {
            std::ostringstream what;
            what << path << ":" << number << ": not a classic CAN frame of candump -l or -ta";
            error = what.str();
            return kFound;
        }
        if (!any) first = frame.time;
        any = true;
        step.at = std::max(last, frame.time - first);
        last = step.at;
        step.payload = zelj1939::canFramePayload(frame);
        run.play(step);
    }
    if (in.bad()) {
        error = path + ": " + cli::errorText(errno);
        return kUnreadable;
    }
    if (!any) {
        error = path + " holds no frame";
        return kFound;
    }
    return kClean;
}

}  // namespace zelauthor
