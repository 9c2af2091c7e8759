#include "MemoryStorage.h"

#include "ByteOrder.h"
#include "LogFrame.h"
#include "MessageIds.h"

namespace zelauthor {

MemoryStorage::MemoryStorage(harness::Harness& h) : m_h(h) {
    h.onSend(zel::kMsgLogWrite, [this](const harness::SentMessage& m) { onWrite(m); });
    h.onSend(zel::kMsgLogModify, [this](const harness::SentMessage& m) { onModify(m); });
    h.onSend(zel::kMsgLogSize, [this](const harness::SentMessage& m) { onSize(m); });
}

std::vector<harness::Bytes>& MemoryStorage::today() {
    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    return m_logs[(2000u + now.year) * 10000u + now.month * 100u + now.day];
}

void MemoryStorage::onWrite(const harness::SentMessage& m) {
    if (m.payload.size() == zel::kWriteSize)
        today().emplace_back(m.payload.begin() + zel::kWriteFrame, m.payload.end());
    harness::Bytes reply(zel::kWriteReplySize, 0);
    reply[zel::kReqLogType] = zel::kAlertLogType;
    m_h.inject(zel::kMsgLogWriteReply, reply);
}

void MemoryStorage::onModify(const harness::SentMessage& m) {
    if (m.payload.size() != zel::kModifySize) return;
    uint64_t offset = zel::getLe64(m.payload.data(), zel::kModifyOffset);
    std::vector<harness::Bytes>& log = today();
    if (offset < zel::kLogFirstFrame || (offset - zel::kLogFirstFrame) % zel::kFrameSize) return;
    uint64_t index = (offset - zel::kLogFirstFrame) / zel::kFrameSize;
    if (index >= log.size()) return;
    log[index].assign(m.payload.begin() + zel::kModifyFrame,
                      m.payload.begin() + zel::kModifyFrame + zel::kFrameSize);
}

void MemoryStorage::onSize(const harness::SentMessage& m) {
    const std::vector<harness::Bytes>& log = today();
    uint64_t size = log.empty() ? 0 : zel::kLogFirstFrame + zel::kFrameSize * log.size();
    harness::Bytes reply(zel::kSizeReplySize, 0);
    reply[zel::kReqLogType] = zel::kAlertLogType;
    zel::putLe64(reply.data(), zel::kSizeReplyLogSize, size);
    m_h.inject(zel::kMsgLogSizeReply, reply);
}

}  // namespace zelauthor
