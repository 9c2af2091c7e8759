// A storage peer for the in-process harness: answers the service's write and
// size requests from inside its sends and keeps one log per day of the device
// clock, as the real peer keeps one per day of its own. Knobs make it silent,
// late or refusing.
#ifndef ALERTZEL_TEST_SCRIPTEDSTORAGE_H
#define ALERTZEL_TEST_SCRIPTEDSTORAGE_H

#include <stdint.h>

#include <functional>
#include <map>
#include <vector>

#include "ServiceFixture.h"

namespace logtest {

using harness::Bytes;

class ScriptedStorage {
public:
    // Installs responders on 6661, 6668 and 6671 of h.
    explicit ScriptedStorage(harness::Harness& h);

    // Replies go out this long after the request (virtual time); -1: never.
    // replyDelay, when set, draws the delay of every reply instead.
    int64_t writeReplyDelayUs = 0;
    int64_t sizeReplyDelayUs = 0;
    std::function<int64_t()> replyDelay;
    int8_t writeResult = 0;
    int8_t sizeResult = 0;

    // The log of the device's current day: frames back to back after the
    // 84-byte head; size 0 while the day has none.
    std::vector<Bytes>& today();
    std::vector<Bytes>& logOf(int year, int month, int day) {
        return m_logs[static_cast<uint32_t>(year * 10000 + month * 100 + day)];
    }
    uint64_t size();
    // Forgets every log, as a storage that lost its disk would.
    void wipe() { m_logs.clear(); }

    // Runs inside each write and size request, after its reply is queued
    // for replyAtUs (-1: none).
    std::function<void(unsigned int id, int64_t replyAtUs)> inRequest;

private:
    void onWrite(const harness::SentMessage& m);
    void onModify(const harness::SentMessage& m);
    void onSize(const harness::SentMessage& m);
    void reply(int64_t delayUs, unsigned int request, unsigned int id, const Bytes& payload);

    harness::Harness& m_h;
    std::map<uint32_t, std::vector<Bytes>> m_logs;  // by yyyymmdd
};

// The log frame's fields as a test reads them.
uint32_t frameAlertId(const Bytes& frame);
Bytes frameStart(const Bytes& frame);  // 8-byte stamp at 44
Bytes frameEnd(const Bytes& frame);    // 8-byte stamp at 52
// A stamp of dt as the frame holds it.
Bytes stampOf(const Common::_datetime_& dt);

// A ready service with this storage behind it.
class LogFixture : public harness::ReadyServiceTest {
protected:
    ScriptedStorage storage{h};
};

}  // namespace logtest

#endif
