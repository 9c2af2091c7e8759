// The platform API of Common.h, in-process: one fake bus client, a virtual
// clock, a thread base that the caller steps by hand, and captured diagnostics.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <deque>
#include <map>

#include "FakePlatform.h"
#include "VirtualTime.h"

namespace harness {

int g_captureLevel = 1 << 30;

FakeState& state() {
    static FakeState s;
    return s;
}

void resetState() {
    FakeState& s = state();
    for (const auto& entry : s.callbacks) delete entry.second;
    s.callbacks.clear();
    s.registerLog.clear();
    s.queue.clear();
    s.sent.clear();
    s.lines.clear();
    s.responders.clear();
    s.nowUs = kDefaultEpoch * 1000000LL;
    s.timeOnlyOffsetS = 0;
    s.deviceOffsetS = 0;
    s.timeFlag = 0;
    s.video = 4;
    s.digital = 4;
    s.session = 0;
    s.verbose = getenv("ZEL_HARNESS_VERBOSE") != nullptr;
    g_captureLevel = 1 << 30;
}

Bytes makeMessage(unsigned int id, uint32_t claimedLength, const Bytes& payload) {
    Bytes msg;
    appendLe32(msg, 77);  // source id of the test peer
    appendLe32(msg, ++state().session);
    appendLe32(msg, id);
    appendLe32(msg, claimedLength);
    msg.insert(msg.end(), payload.begin(), payload.end());
    return msg;
}

void dispatch(const Queued& q) {
    FakeState& s = state();
    auto it = s.callbacks.find(q.id);
    if (it == s.callbacks.end()) return;
    it->second->Invoke(reinterpret_cast<const char*>(q.bytes.data()),
                       static_cast<int>(q.bytes.size()));
}

}  // namespace harness

using harness::state;

extern "C" long long harness_now_us(void) {
    return state().nowUs + state().timeOnlyOffsetS * 1000000LL;
}

extern "C" void harness_advance_us(long long us) { state().nowUs += us; }

namespace Common {

void* Q7X_MSGCreateMessageClient(int appId, const char* path, int flags) {
    static int client;
    return &client;
}

int Q7X_MSGEventRegister(void* client, unsigned int msgId, void* callback) {
    harness::FakeState& s = state();
    CMsgCallback* cb = static_cast<CMsgCallback*>(callback);
    auto it = s.callbacks.find(msgId);
    if (it != s.callbacks.end()) {
        delete cb;
        return -1;
    }
    s.callbacks[msgId] = cb;
    s.registerLog.push_back(msgId);
    return 0;
}

int Q7X_MSGEventUnRegister(void* client, unsigned int msgId) {
    harness::FakeState& s = state();
    auto it = s.callbacks.find(msgId);
    if (it == s.callbacks.end()) return -1;
    delete it->second;
    s.callbacks.erase(it);
    return 0;
}

int Q7X_MSGWaitForEvent(void* client, int timeoutMs) {
    harness::FakeState& s = state();
    int64_t deadline = s.nowUs + static_cast<int64_t>(timeoutMs) * 1000;
    // The earliest scheduled message, if it falls inside this wait.
    int64_t earliest = deadline + 1;
    for (const harness::Queued& q : s.queue)
        if (q.dueUs < earliest) earliest = q.dueUs;
    if (earliest > deadline) {
        s.nowUs = deadline;
        return 0;
    }
    if (earliest > s.nowUs) s.nowUs = earliest;
    // What is due now is this wait's inbox. It is taken one message at a time,
    // earliest due first, then in queue order, so that a wait inside a handler
    // carries on with the messages behind the current one, as on the bus.
    // What the handlers cause waits for the next call.
    auto sessionOf = [](const harness::Queued& q) {
        return static_cast<uint32_t>(q.bytes[4] | (q.bytes[5] << 8) | (q.bytes[6] << 16) |
                                     (static_cast<uint32_t>(q.bytes[7]) << 24));
    };
    std::map<uint32_t, bool> inbox;
    for (const harness::Queued& q : s.queue)
        if (q.dueUs <= s.nowUs) inbox[sessionOf(q)] = true;
    int dispatched = 0;
    for (;;) {
        auto next = s.queue.end();
        for (auto it = s.queue.begin(); it != s.queue.end(); ++it)
            if (inbox.count(sessionOf(*it)) && (next == s.queue.end() || it->dueUs < next->dueUs))
                next = it;
        if (next == s.queue.end()) break;
        harness::Queued q = *next;
        s.queue.erase(next);
        harness::dispatch(q);
        ++dispatched;
    }
    return dispatched;
}

int Q7X_MSGSendMessage(void* client, int dest, unsigned int msgId, int flag,
                       const void* payload, int len, int reserved) {
    harness::SentMessage m;
    m.id = msgId;
    m.flag = flag;
    m.response = false;
    if (payload != nullptr && len > 0) {
        const uint8_t* p = static_cast<const uint8_t*>(payload);
        m.payload.assign(p, p + len);
    }
    m.atUs = state().nowUs;
    state().sent.push_back(m);
    auto it = state().responders.find(msgId);
    if (it != state().responders.end()) {
        harness::Responder responder = it->second;
        responder(m);
    }
    return 0;
}

int Q7X_MSGResponseMessage(void* client, const void* requestHead, const void* payload,
                           int len) {
    harness::SentMessage m;
    const uint8_t* head = static_cast<const uint8_t*>(requestHead);
    uint32_t requestId = static_cast<uint32_t>(head[8] | (head[9] << 8));
    m.id = requestId | 0x8000;
    m.flag = 0;
    m.response = true;
    if (payload != nullptr && len > 0) {
        const uint8_t* p = static_cast<const uint8_t*>(payload);
        m.payload.assign(p, p + len);
    }
    m.atUs = state().nowUs;
    state().sent.push_back(m);
    return 0;
}

static void deviceTime(_datetime_* out, unsigned char* flag) {
    harness::FakeState& s = state();
    time_t secs = static_cast<time_t>(s.nowUs / 1000000 + s.deviceOffsetS);
    struct tm tm;
    gmtime_r(&secs, &tm);
    out->year = static_cast<unsigned char>(tm.tm_year - 100);
    out->month = static_cast<unsigned char>(tm.tm_mon + 1);
    out->day = static_cast<unsigned char>(tm.tm_mday);
    out->hour = static_cast<unsigned char>(tm.tm_hour);
    out->minute = static_cast<unsigned char>(tm.tm_min);
    out->second = static_cast<unsigned char>(tm.tm_sec);
    out->weekday = static_cast<unsigned char>(tm.tm_wday);
    out->reserved = 0;
    if (flag) *flag = s.timeFlag;
}

int Q7X_TMGetShareTime(_datetime_* now) {
    deviceTime(now, nullptr);
    return 0;
}

int Q7X_TMGetShareTime(_datetime_* now, unsigned char& timeFlag) {
    deviceTime(now, &timeFlag);
    return 0;
}

int Q7X_TMDateTimeToUtcTime(const _datetime_* dt, long* utc) {
    struct tm tm;
    memset(&tm, 0, sizeof tm);
    tm.tm_year = dt->year + 100;
    tm.tm_mon = dt->month - 1;
    tm.tm_mday = dt->day;
    tm.tm_hour = dt->hour;
    tm.tm_min = dt->minute;
    tm.tm_sec = dt->second;
    *utc = static_cast<long>(timegm(&tm));
    return 0;
}

namespace {

// Out of line, so that a dropped line costs only the level test and not the
// frame of the formatting.
__attribute__((noinline)) void captureLine(int level, const char* file, const char* func,
                                           int line, const char* fmt, va_list ap) {
    char buf[8192];
    vsnprintf(buf, sizeof buf, fmt, ap);
    harness::DebugLine l;
    l.level = level;
    l.file = file ? file : "";
    l.func = func ? func : "";
    l.text = buf;
    state().lines.push_back(l);
    if (state().verbose) fprintf(stderr, "[%d] %s:%d %s", level, l.func.c_str(), line, buf);
}

}  // namespace

void gclDebugPrintf(int level, const char* file, const char* func, int line,
                    const char* fmt, ...) {
    if (level > harness::g_captureLevel) return;
    va_list ap;
    va_start(ap, fmt);
    captureLine(level, file, func, line, fmt, ap);
    va_end(ap);
}

CThread::CThread() : m_impl(nullptr) { state().thread = this; }

CThread::~CThread() {
    if (state().thread == this) state().thread = nullptr;
}

int CThread::PreBeginThread() { return 0; }
int CThread::PostExitThread() { return 0; }

int CThread::Start(int flags) {
    state().threadStarted = true;
    return 0;
}

int CThread::Stop() {
    state().threadStarted = false;
    return 0;
}

}  // namespace Common

int Q7X_GetVichnNum() { return state().video; }
int Q7X_GetDigitalchnNum() { return state().digital; }
