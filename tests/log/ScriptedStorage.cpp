#include "ScriptedStorage.h"

#include "ByteOrder.h"
#include "LogFrame.h"
#include "MessageIds.h"

namespace logtest {

ScriptedStorage::ScriptedStorage(harness::Harness& h) : m_h(h) {
    h.onSend(zel::kMsgLogWrite, [this](const harness::SentMessage& m) { onWrite(m); });
    h.onSend(zel::kMsgLogModify, [this](const harness::SentMessage& m) { onModify(m); });
    h.onSend(zel::kMsgLogSize, [this](const harness::SentMessage& m) { onSize(m); });
}

std::vector<Bytes>& ScriptedStorage::today() {
    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    uint32_t day = (2000u + now.year) * 10000u + now.month * 100u + now.day;
    return m_logs[day];
}

uint64_t ScriptedStorage::size() {
    std::vector<Bytes>& log = today();
    return log.empty() ? 0 : zel::kLogFirstFrame + zel::kFrameSize * log.size();
}

void ScriptedStorage::onWrite(const harness::SentMessage& m) {
    int8_t result = writeResult;
    if (m.payload.size() == zel::kWriteSize && result == 0)
        today().push_back(Bytes(m.payload.begin() + zel::kWriteFrame, m.payload.end()));
    Bytes r(zel::kWriteReplySize, 0);
    r[zel::kReqLogType] = zel::kAlertLogType;
    r[zel::kReplyResult] = static_cast<uint8_t>(result);
    reply(writeReplyDelayUs, zel::kMsgLogWrite, zel::kMsgLogWriteReply, r);
}

void ScriptedStorage::onModify(const harness::SentMessage& m) {
    if (m.payload.size() != zel::kModifySize) return;
    uint64_t offset = zel::getLe64(m.payload.data(), zel::kModifyOffset);
    std::vector<Bytes>& log = today();
    if (offset < zel::kLogFirstFrame || (offset - zel::kLogFirstFrame) % zel::kFrameSize) return;
    uint64_t index = (offset - zel::kLogFirstFrame) / zel::kFrameSize;
    if (index >= log.size()) return;
    log[index].assign(m.payload.begin() + zel::kModifyFrame,
                      m.payload.begin() + zel::kModifyFrame + zel::kFrameSize);
}

void ScriptedStorage::onSize(const harness::SentMessage& m) {
    Bytes r(zel::kSizeReplySize, 0);
    r[zel::kReqLogType] = zel::kAlertLogType;
    r[zel::kReplyResult] = static_cast<uint8_t>(sizeResult);
    zel::putLe64(r.data(), zel::kSizeReplyLogSize, size());
    reply(sizeReplyDelayUs, zel::kMsgLogSize, zel::kMsgLogSizeReply, r);
}

void ScriptedStorage::reply(int64_t delayUs, unsigned int request, unsigned int id,
                            const Bytes& payload) {
    if (replyDelay) delayUs = replyDelay();
    int64_t at = delayUs < 0 ? -1 : m_h.nowUs() + delayUs;
    if (at >= 0) m_h.injectAt(at, id, payload);
    if (inRequest) inRequest(request, at);
}

uint32_t frameAlertId(const Bytes& frame) { return zel::getLe32(frame.data(), zel::kFrameAlertId); }

Bytes frameStart(const Bytes& frame) {
    return Bytes(frame.begin() + zel::kFrameAlarmStart,
                 frame.begin() + zel::kFrameAlarmStart + zel::kStampSize);
}

Bytes frameEnd(const Bytes& frame) {
    return Bytes(frame.begin() + zel::kFrameAlarmEnd,
                 frame.begin() + zel::kFrameAlarmEnd + zel::kStampSize);
}

Bytes stampOf(const Common::_datetime_& dt) {
    Bytes b(zel::kStampSize);
    zel::putStamp(b.data(), dt);
    return b;
}

}  // namespace logtest
