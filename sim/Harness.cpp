#include "Harness.h"

#include <stdio.h>
#include <string.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <utility>

#include "FakePlatform.h"
#include "MessageIds.h"

namespace harness {

Harness::Harness() { resetState(); }

Harness::~Harness() {
    if (m_service) stop();
    resetState();
}

void Harness::start() {
    // Create prints its banner on standard output; keep test output readable.
    fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDOUT_FILENO);
    m_service = Create();
    fflush(stdout);
    if (saved >= 0) dup2(saved, STDOUT_FILENO);
    if (null >= 0) close(null);
    if (saved >= 0) close(saved);
}

void Harness::stop() {
    delete m_service;
    m_service = nullptr;
}

CAlertZelManage& Harness::service() { return *static_cast<CAlertZelManage*>(m_service); }

void Harness::cycle(int n) {
    for (int i = 0; i < n; ++i) state().thread->ThreadFuncImpl();
}

void Harness::runFor(double seconds) {
    int64_t end = nowUs() + static_cast<int64_t>(seconds * 1e6);
    while (nowUs() < end) cycle();
}

void Harness::inject(unsigned int id, const Bytes& payload) {
    injectAt(nowUs(), id, payload);
}

void Harness::inject(unsigned int id, const std::string& text) { inject(id, textBytes(text)); }

void Harness::injectAt(int64_t atUs, unsigned int id, const Bytes& payload) {
    Queued q;
    q.id = id;
    q.dueUs = atUs;
    q.bytes = makeMessage(id, static_cast<uint32_t>(payload.size()), payload);
    state().queue.push_back(q);
}

// Not const: it changes the simulated device the harness stands for.
void Harness::injectClaiming(  // NOLINT(readability-make-member-function-const)
    unsigned int id, uint32_t claimedLength, const Bytes& payload) {
    Queued q;
    q.id = id;
    q.dueUs = nowUs();
    q.bytes = makeMessage(id, claimedLength, payload);
    state().queue.push_back(q);
}

void Harness::deliver(  // NOLINT(readability-make-member-function-const): as above
    unsigned int id, const Bytes& payload) {
    Queued q;
    q.id = id;
    q.dueUs = nowUs();
    q.bytes = makeMessage(id, static_cast<uint32_t>(payload.size()), payload);
    dispatch(q);
}

bool Harness::subscribed(unsigned int id) const { return state().callbacks.count(id) > 0; }

std::vector<unsigned int> Harness::subscriptions() const {
    std::vector<unsigned int> ids;
    for (const auto& entry : state().callbacks) ids.push_back(entry.first);
    return ids;
}

const std::vector<unsigned int>& Harness::registrationOrder() const {
    return state().registerLog;
}

void Harness::onSend(unsigned int id, Responder responder) {
    state().responders[id] = std::move(responder);
}

void Harness::announceStorage() { inject(zel::kMsgStorageAnnounce, Bytes(4, 0)); }

std::vector<SentMessage>& Harness::sent() { return state().sent; }

std::vector<SentMessage> Harness::sentWithId(unsigned int id) const {
    std::vector<SentMessage> out;
    for (const SentMessage& m : state().sent)
        if (m.id == id) out.push_back(m);
    return out;
}

void Harness::clearSent() { state().sent.clear(); }

std::vector<DebugLine>& Harness::lines() { return state().lines; }

int Harness::countLines(const std::string& text) const {
    int n = 0;
    for (const DebugLine& l : state().lines)
        if (l.text == text) ++n;
    return n;
}

std::vector<std::string> Harness::texts(int maxLevel) const {
    std::vector<std::string> out;
    for (const DebugLine& l : state().lines)
        if (l.level <= maxLevel) out.push_back(l.text);
    return out;
}

void Harness::clearLines() { state().lines.clear(); }

int64_t Harness::nowUs() const { return state().nowUs; }

void Harness::advance(double seconds) { state().nowUs += static_cast<int64_t>(seconds * 1e6); }

void Harness::stepTimeOnly(long seconds) { state().timeOnlyOffsetS += seconds; }

void Harness::stepDeviceOnly(long seconds) { state().deviceOffsetS += seconds; }

int64_t utcSeconds(int year, int month, int day, int hour, int minute, int second) {
    struct tm tm;
    memset(&tm, 0, sizeof tm);
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return static_cast<int64_t>(timegm(&tm));
}

void Harness::setDeviceTime(int year, int month, int day, int hour, int minute, int second) {
    int64_t target = utcSeconds(year, month, day, hour, minute, second);
    state().deviceOffsetS = static_cast<long>(target - state().nowUs / 1000000);
}

void Harness::setTimeFlag(unsigned char flag) { state().timeFlag = flag; }

void Harness::setChannels(int video, int digital) {
    state().video = video;
    state().digital = digital;
}

void Harness::setCaptureLevel(int maxLevel) { g_captureLevel = maxLevel; }

Bytes le32(uint32_t v) {
    Bytes b;
    appendLe32(b, v);
    return b;
}

void appendLe32(Bytes& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void appendLe64(Bytes& b, uint64_t v) {
    for (int i = 0; i < 8; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

Bytes textBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

std::string hex(const Bytes& b) {
    std::string out;
    char buf[4];
    for (size_t i = 0; i < b.size(); ++i) {
        snprintf(buf, sizeof buf, i ? " %02X" : "%02X", b[i]);
        out += buf;
    }
    return out;
}

ZelAlertPara_t makeRule(uint32_t alertID, uint32_t atLeast, std::vector<sInputTrigger> triggers) {
    ZelAlertPara_t para;
    memset(&para.alarmStart, 0, sizeof para.alarmStart);
    para.bLastState = 0;
    para.bState = 0;
    para.alarmEnd = para.alarmStart;
    para.bConditionMet = 0;
    para.conditionTime = 0;
    para.alertID = alertID;
    para.startTime = para.alarmStart;
    para.endTime = para.alarmStart;
    para.atLeast = atLeast;
    para.EventMark = 0;
    para.triggers.assign(triggers.begin(), triggers.end());
    return para;
}

}  // namespace harness
