// A storage peer for the in-process harness: answers the service's write and
// size requests from inside its sends and keeps one log per day of the device
// clock, as the real peer does. Knobs make it silent, late or refusing.
#ifndef ALERTZEL_TEST_SCRIPTEDSTORAGE_H
#define ALERTZEL_TEST_SCRIPTEDSTORAGE_H

#include <functional>
#include <map>

#include "LogFrame.h"
#include "MessageIds.h"
#include "ServiceFixture.h"

namespace logtest {

using harness::Bytes;

// Bytes [at, at + n) of a frame or request, and a stamp as a frame holds it.
inline Bytes slice(const Bytes& b, size_t at, size_t n = zel::kStampSize) {
    return Bytes(b.begin() + at, b.begin() + at + n);
}
inline Bytes stampOf(const Common::_datetime_& dt) {
    Bytes b(zel::kStampSize);
    zel::putStamp(b.data(), dt);
    return b;
}

class ScriptedStorage {
public:
    explicit ScriptedStorage(harness::Harness& h) : m_h(h) {
        h.onSend(zel::kMsgLogWrite, [this](const harness::SentMessage& m) {
            if (writeResult == 0) today().push_back(slice(m.payload, zel::kWriteFrame, 60));
            reply(writeReplyDelayUs, m.id, zel::kMsgLogWriteReply, Bytes(zel::kWriteReplySize));
        });
        h.onSend(zel::kMsgLogModify, [this](const harness::SentMessage& m) {
            uint64_t i = (zel::getLe64(m.payload.data(), zel::kModifyOffset) - 84) / 60;
            if (i < today().size()) today()[i] = slice(m.payload, zel::kModifyFrame, 60);
        });
        h.onSend(zel::kMsgLogSize, [this](const harness::SentMessage& m) {
            Bytes r(zel::kSizeReplySize);
            uint64_t n = today().size();
            zel::putLe64(r.data(), zel::kSizeReplyLogSize, n ? 84 + 60 * n : 0);
            reply(sizeReplyDelayUs, m.id, zel::kMsgLogSizeReply, r);
        });
    }

    // Replies go out this long after the request (virtual time); -1: never.
    // replyDelay, when set, draws the delay of every reply instead.
    int64_t writeReplyDelayUs = 0, sizeReplyDelayUs = 0;
    std::function<int64_t()> replyDelay;
    int8_t writeResult = 0;
    // Runs inside each write and size request, after its reply is queued
    // for replyAtUs (-1: none).
    std::function<void(unsigned int id, int64_t replyAtUs)> inRequest;

    // The frames of the log of a day, or of the device's current day.
    std::vector<Bytes>& logOf(int year, int month, int day) {
        return m_logs[year * 10000 + month * 100 + day];
    }
    std::vector<Bytes>& today() {
        Common::_datetime_ now;
        Common::Q7X_TMGetShareTime(&now);
        return logOf(2000 + now.year, now.month, now.day);
    }
    void wipe() { m_logs.clear(); }  // as a storage that lost its disk

private:
    void reply(int64_t delayUs, unsigned int request, unsigned int id, Bytes r) {
        r[zel::kReqLogType] = zel::kAlertLogType;
        if (id == zel::kMsgLogWriteReply) r[zel::kReplyResult] = static_cast<uint8_t>(writeResult);
        if (replyDelay) delayUs = replyDelay();
        int64_t at = delayUs < 0 ? -1 : m_h.nowUs() + delayUs;
        if (at >= 0) m_h.injectAt(at, id, r);
        if (inRequest) inRequest(request, at);
    }

    harness::Harness& m_h;
    std::map<int, std::vector<Bytes>> m_logs;  // by yyyymmdd
};

// One step of a table of exact lines: what it does and what it prints.
struct Step {
    const char* what;
    std::function<void()> run;
    std::vector<harness::Line> lines;
};

// A ready service with this storage behind it.
class LogFixture : public harness::ReadyServiceTest {
protected:
    // Runs the steps in order on the one service, each printing exactly its
    // lines apart from those of the operations in `skip`.
    void runSteps(const std::vector<Step>& steps, const std::set<std::string>& skip = {}) {
        for (const Step& st : steps) {
            SCOPED_TRACE(st.what);
            h.clearLines();
            st.run();
            expectLines(st.lines, skip);
        }
    }

    ScriptedStorage storage{h};
};

}  // namespace logtest

#endif
