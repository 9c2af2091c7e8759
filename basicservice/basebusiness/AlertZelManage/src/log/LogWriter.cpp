// The storage dialogue: write, patch and size of the alert log.
//
// For its callers the dialogue is synchronous: a write and a size query block
// the worker in a reply wait of at most about 6 seconds of time(nullptr), and
// the bus handlers, the replies among them, run inside that wait. Replies are
// not matched to requests: whichever wait runs when a reply lands takes it.
// Callers hold a BusyScope, so rule changes that land in a wait are applied
// only after the walk or stop that waited.
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "AlertZelManage.h"
#include "ByteOrder.h"
#include "LogFrame.h"
#include "MessageHead.h"
#include "MessageIds.h"

namespace {

const int kReplyWaitMs = 500;
const long kReplyLimitS = 5;                // the wait ends once more have passed
const unsigned int kWriteSettleUs = 50000;  // between a write and its wait
const unsigned int kRewriteGapUs = 50;      // between the writes of a renumbering
const uint64_t kFrameStep = zel::kFrameSize;

// Waits until *pending is cleared by a reply, or until a reading of time(nullptr)
// lies more than kReplyLimitS whole seconds after the first. A clock set back
// during the wait moves the start back with it, so a step never stretches the
// wait by its own size.
void replyWait(void* client, const uint8_t& pending) {
    long t0 = time(nullptr);
    long last = t0;
    while (pending) {
        Common::Q7X_MSGWaitForEvent(client, kReplyWaitMs);
        long now = time(nullptr);
        if (now < last) t0 -= last - now;
        last = now;
        if (now - t0 > kReplyLimitS) break;
    }
}

// The payload length a reply handler judges: the head's, taken as true, but
// never more than really arrived, so that a reply is not read past len.
uint32_t checkedLength(const char* msg, int len, uint32_t expected) {
    return zel::judgedPayload(msg, len, expected, expected);
}

}  // namespace

void CAlertZelManage::writeAlertZelLog(unsigned int alertID, unsigned long long EventMark,
                                       Common::_datetime_ start) {
    uint8_t frame[zel::kFrameSize];
    zel::buildLogFrame(frame, alertID, start);
    zel::fillWriteRequest(write_frame, reinterpret_cast<const uint8_t*>(&start), frame);
    ZEL_LOG(2, "=========write Zel alert log ID[%d]...\n", static_cast<int>(alertID));
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgLogWrite, 1, write_frame,
                               static_cast<int>(zel::kWriteSize), 0);
    usleep(kWriteSettleUs);  // cppcheck-suppress usleepCalled ; the device's pause
    // No reply is dispatched before the wait, so setting these after the send
    // loses none: a reply sent during the sleep counts.
    m_bWritePending = 1;
    m_WriteResult = -1;
    replyWait(m_pMsgManage, m_bWritePending);
    if (m_WriteResult != 0) {  // cppcheck-suppress knownConditionTrueFalse ; the reply sets it in the wait
        ZEL_LOG(2, "=========write Zel alert fail ID[%d]...\n", static_cast<int>(alertID));
        return;
    }
    unsigned long long size = GetZelAlertLogSize();
    if (size == 0) {
        ZEL_LOG(2, "=========GetZelAlertLogSize() fail ID[%d]...\n", static_cast<int>(alertID));
        return;
    }
    _AlertZelLogFrame_t_& entry = m_LogFrameMap[alertID];
    entry.frameOffset = size - kFrameStep;
    memcpy(entry.frame, frame, sizeof entry.frame);
}

void CAlertZelManage::modifyAlertZelLog(unsigned int alertID, Common::_datetime_ time,
                                        bool erase) {
    if (GetZelAlertLogSize() == 0) ModifyZelAlertFrameOffset();
    std::map<uint32_t, _AlertZelLogFrame_t_>::iterator it = m_LogFrameMap.find(alertID);
    if (it == m_LogFrameMap.end()) {
        ZEL_LOG(2, "=========modify Zel alert fail ID[%d]...\n", static_cast<int>(alertID));
        return;
    }
    _AlertZelLogFrame_t_& entry = it->second;
    zel::patchLogFrameEnd(entry.frame, time);
    zel::fillModifyRequest(modify_frame, reinterpret_cast<const uint8_t*>(&time),
                            entry.frameOffset, entry.frame);
    ZEL_LOG(2, "=========modify Zel alert log ID[%d]...\n", static_cast<int>(alertID));
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgLogModify, 1, modify_frame,
                               static_cast<int>(zel::kModifySize), 0);
    if (erase) m_LogFrameMap.erase(it);
}

unsigned long long CAlertZelManage::GetZelAlertLogSize() {
    uint8_t query[zel::kSizeQuerySize];
    zel::buildSizeQuery(query);
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgLogSize, 1, query,
                               static_cast<int>(sizeof query), 0);
    m_bSizePending = 1;
    m_LogSize = 0;
    replyWait(m_pMsgManage, m_bSizePending);
    ZEL_LOG(2, "=========write Zel alert log size[%llu]...\n", m_LogSize);
    return m_LogSize;
}

void CAlertZelManage::ModifyZelAlertFrameOffset() {
    uint64_t offset = zel::kLogFirstFrame;
    for (std::pair<const uint32_t, _AlertZelLogFrame_t_>& item : m_LogFrameMap) {
        _AlertZelLogFrame_t_& entry = item.second;
        zel::fillWriteRequest(write_frame, entry.frame + zel::kFrameAlarmStart, entry.frame);
        Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgLogWrite, 1, write_frame,
                                   static_cast<int>(zel::kWriteSize), 0);
        usleep(kRewriteGapUs);  // cppcheck-suppress usleepCalled ; the device's pause
        entry.frameOffset = offset;
        offset += kFrameStep;
    }
}

void CAlertZelManage::OnReturnWriteResult(const char* msg, int len) {
    m_bWritePending = 0;
    if (msg == nullptr || len < zel::kHeadSize) {
        ZEL_LOG(3, "write file length error \n");
        return;
    }
    uint32_t payload = checkedLength(msg, len, zel::kWriteReplySize);
    if (payload != zel::kWriteReplySize) {
        ZEL_LOG(3, "write file failed msgerror length=%d, sourceid = 0x%x session = 0x%x\n",
                static_cast<int>(payload), zel::getLe32(msg, zel::kHeadSourceId),
                zel::getLe32(msg, zel::kHeadSession));
        return;
    }
    int8_t result = static_cast<int8_t>(zel::getU8(msg, zel::kHeadSize + zel::kReplyResult));
    ZEL_LOG(2, "write Zel alert log result = %d \n", result);
    m_WriteResult = result;  // NOLINT(bugprone-signed-char-misuse,cert-str34-c): the result byte is signed
}

void CAlertZelManage::OnReturnAlarmLogSize(const char* msg, int len) {
    m_bSizePending = 0;
    if (msg == nullptr || len < zel::kHeadSize) {
        ZEL_LOG(3, "file info length error \n");
        return;
    }
    uint32_t payload = checkedLength(msg, len, zel::kSizeReplySize);
    if (payload != zel::kSizeReplySize) {
        ZEL_LOG(3, "file info failed msgerror=%d\n", static_cast<int>(payload));
        return;
    }
    const char* body = msg + zel::kHeadSize;
    if (static_cast<int8_t>(zel::getU8(body, zel::kReplyResult)) == 0)
        m_LogSize = zel::getLe64(body, zel::kSizeReplyLogSize);
    else
        m_LogSize = 0;
}

void CAlertZelManage::OnCheckStoragePlugin(const char* msg, int len) {
    if (msg == nullptr || len < zel::kHeadSize) {
        ZEL_LOG(3, "update StorageState length error \n");
        return;
    }
    m_bStorageReady = 1;
}
