// Alert reports: the list of transitions published as message 3215, and the
// answer to the query 3216 for the running alerts (layout: AlertReport.h).
#include <stdlib.h>
#include <string.h>

#include "AlertReport.h"
#include "AlertZelManage.h"
#include "ByteOrder.h"
#include "LogFrame.h"
#include "MessageIds.h"

namespace {

using zel::kListHeadSize;
using zel::kRecordSize;

void encodeRecord(uint8_t* out, const tag_ZELAlert& rec) {
    memset(out, 0, kRecordSize);
    zel::putLe32(out, zel::kRecAlertId, rec.alertID);
    zel::putLe64(out, zel::kRecEventMark, rec.EventMark);
    memcpy(out + zel::kRecAlertTime, rec.alertTime, sizeof rec.alertTime);
    zel::putU8(out, zel::kRecEnded, rec.bEnded);
}

}  // namespace

void CAlertZelManage::appendAlertRecord(const ZelAlertPara_t& para,
                                        const Common::_datetime_& time, uint8_t ended) {
    tag_ZELAlert rec;
    rec.alertID = para.alertID;
    rec.EventMark = para.EventMark;
    memcpy(rec.alertTime, &time, sizeof rec.alertTime);
    rec.bEnded = ended;
    m_AlertList.push_back(rec);
}

bool CAlertZelManage::sendAlertList(const char* caller) {
    size_t count = m_AlertList.size();
    if (count == 0) return true;
    size_t size = kListHeadSize + kRecordSize * count;
    uint8_t* payload = static_cast<uint8_t*>(malloc(size));
    if (payload == nullptr) {
        ZEL_LOG_AS(caller, 3, "msgZelAlertData malloc fail !\n");
        return false;
    }
    zel::putLe32(payload, zel::kListCount, static_cast<uint32_t>(count));
    zel::putLe32(payload, zel::kListBytes, static_cast<uint32_t>(kRecordSize * count));
    for (size_t i = 0; i < count; ++i)
        encodeRecord(payload + kListHeadSize + kRecordSize * i, m_AlertList[i]);
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgAlertList, 0, payload,
                               static_cast<int>(size), 0);
    free(payload);
    return true;
}

// The running alerts as the log knows them: one record per entry of
// m_LogFrameMap, ascending by id, with the frame's start and bEnded 0. The
// request's payload is not read.
void CAlertZelManage::OnGetZelAlertState(const char* msg, int len) {
    ZEL_LOG(3, "=======OnGetZelAlertState======!\n");
    if (msg == nullptr || len < 16) {
        ZEL_LOG(3, "OnGetZelAlertState length error \n");
        return;
    }
    size_t count = m_LogFrameMap.size();
    size_t size = kListHeadSize + kRecordSize * count;
    uint8_t* payload = static_cast<uint8_t*>(malloc(size));
    if (payload == nullptr) {
        ZEL_LOG(3, "msgZelAlertData malloc fail !\n");
        return;
    }
    zel::putLe32(payload, zel::kListCount, static_cast<uint32_t>(count));
    zel::putLe32(payload, zel::kListBytes, static_cast<uint32_t>(kRecordSize * count));
    uint8_t* out = payload + kListHeadSize;
    for (const auto& entry : m_LogFrameMap) {
        tag_ZELAlert rec;
        rec.alertID = zel::getLe32(entry.second.frame, zel::kFrameAlertId);
        rec.EventMark = 0;
        memcpy(rec.alertTime, entry.second.frame + zel::kFrameAlarmStart, sizeof rec.alertTime);
        rec.bEnded = 0;
        encodeRecord(out, rec);
        out += kRecordSize;
    }
    Common::Q7X_MSGResponseMessage(m_pMsgManage, msg, payload, static_cast<int>(size));
    free(payload);
}
