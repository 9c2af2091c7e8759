// The device in-process: the service's own sources run on a fake bus with a
// virtual clock, on the caller's thread. zel-author's replay, the benchmarks,
// the fuzzers and the component tests drive the service through it.
//
// The fake bus keeps the service's one client. A caller injects messages (at
// once or at a virtual time), runs worker cycles, and reads back every
// message the service sent, byte for byte, and every diagnostic line. The
// virtual clock drives time(), usleep() and the device clock: a wait with
// nothing to dispatch advances it by its timeout, or to the next scheduled
// message, so a 6-second storage wait costs no real time.
//
// Not thread-safe: one harness at a time, on one thread.
#ifndef ALERTZEL_SIM_HARNESS_H
#define ALERTZEL_SIM_HARNESS_H

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "AlertZelManage.h"

namespace harness {

typedef std::vector<uint8_t> Bytes;

struct SentMessage {
    unsigned int id;       // for a response: the request id | 0x8000
    int flag;              // send flag; 0 for responses
    bool response;         // sent with Q7X_MSGResponseMessage
    Bytes payload;
    int64_t atUs;          // virtual time of the send
};

struct DebugLine {
    int level;
    std::string file;
    std::string func;
    std::string text;  // formatted, verbatim
};

// A responder runs inside the service's send, as a peer that answers at once
// would; it may inject replies, which the next wait dispatches.
typedef std::function<void(const SentMessage&)> Responder;

// Default virtual start: 2026-03-05 12:00:00 device time (UTC).
const int64_t kDefaultEpoch = 1772712000;

class Harness {
public:
    Harness();
    ~Harness();

    // Create() as the host calls it; stop() destroys it through CServiceBase.
    void start();
    void stop();
    CAlertZelManage& service();
    bool running() const { return m_service != nullptr; }

    // One worker cycle (wait, feed, rollover, pass, sleep), n times.
    void cycle(int n = 1);
    // Worker cycles until the virtual clock has advanced by at least seconds.
    void runFor(double seconds);

    // Queue a message for the next wait (or for virtual time atUs).
    void inject(unsigned int id, const Bytes& payload);
    void inject(unsigned int id, const std::string& text);
    void injectAt(int64_t atUs, unsigned int id, const Bytes& payload);
    // A message whose head claims claimedLength, with only `payload` behind it.
    void injectClaiming(unsigned int id, uint32_t claimedLength, const Bytes& payload);
    // Calls the subscribed handler of id at once, outside any wait.
    void deliver(unsigned int id, const Bytes& payload);
    bool subscribed(unsigned int id) const;
    std::vector<unsigned int> subscriptions() const;
    // Ids in the order in which they were registered.
    const std::vector<unsigned int>& registrationOrder() const;

    void onSend(unsigned int id, Responder responder);
    // Storage that announces itself (2086) before the next wait.
    void announceStorage();

    std::vector<SentMessage>& sent();
    std::vector<SentMessage> sentWithId(unsigned int id) const;
    void clearSent();

    std::vector<DebugLine>& lines();
    // Lines whose text equals `text` exactly.
    int countLines(const std::string& text) const;
    bool hasLine(const std::string& text) const { return countLines(text) > 0; }
    // Texts only, in order, of lines at or below maxLevel.
    std::vector<std::string> texts(int maxLevel = 4) const;
    void clearLines();

    // Virtual clock. advance moves time() and the device clock together.
    int64_t nowUs() const;
    void advance(double seconds);
    void stepTimeOnly(long seconds);     // time() only
    void stepDeviceOnly(long seconds);   // device clock only
    void setDeviceTime(int year, int month, int day, int hour, int minute, int second);
    void setTimeFlag(unsigned char flag);
    void setChannels(int video, int digital);
    // Lines above maxLevel are dropped unformatted, as the platform library
    // drops those above Q7X_DEBUG_LEVEL; a benchmark then measures the
    // service, not the capture. A new harness keeps every level.
    void setCaptureLevel(int maxLevel);

    Harness(const Harness&) = delete;
    Harness& operator=(const Harness&) = delete;

private:
    CServiceBase* m_service = nullptr;
};

// Little builders for payloads.
// Seconds since 1970 of a UTC date and time.
int64_t utcSeconds(int year, int month, int day, int hour, int minute, int second);
Bytes le32(uint32_t v);
void appendLe32(Bytes& b, uint32_t v);
void appendLe64(Bytes& b, uint64_t v);
Bytes textBytes(const std::string& s);
std::string hex(const Bytes& b);

// A rule in m_ParaList without going through JSON.
ZelAlertPara_t makeRule(uint32_t alertID, uint32_t atLeast,
                        std::vector<sInputTrigger> triggers = {});

}  // namespace harness

#endif  // ALERTZEL_SIM_HARNESS_H
