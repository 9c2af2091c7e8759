// Alert reports: the list of transitions published as message 3215, and the
// answer to the query 3216 for the running alerts.
//
// Alert record, 32 bytes, little-endian:
// | Offset | Width | Field                                 |
// |--------|-------|---------------------------------------|
// | 0      | u32   | alertID                               |
// | 4      | 4     | reserved (0)                          |
// | 8      | u64   | EventMark                             |
// | 16     | 6     | alertTime: year, month, day, h, m, s  |
// | 22     | 2     | reserved (0)                          |
// | 24     | u8    | bEnded: 0 began, 1 ended              |
// | 25     | 7     | reserved (0)                          |
// List payload: u32 alertCount, u32 alertBytes (= count * 32), records.
#include <stdlib.h>
#include <string.h>

#include "AlertZelManage.h"
#include "ByteOrder.h"
#include "LogFrame.h"
#include "MessageIds.h"

namespace {

const size_t kListHeadSize = 8;
const size_t kRecordSize = 32;
const size_t kRecAlertId = 0;
const size_t kRecEventMark = 8;
const size_t kRecAlertTime = 16;
const size_t kRecEnded = 24;

void encodeRecord(uint8_t* out, const tag_ZELAlert& rec) {
    memset(out, 0, kRecordSize);
    zel::putLe32(out, kRecAlertId, rec.alertID);
    zel::putLe64(out, kRecEventMark, rec.EventMark);
    memcpy(out + kRecAlertTime, rec.alertTime, sizeof rec.alertTime);
    zel::putU8(out, kRecEnded, rec.bEnded);
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
    if (payload == NULL) {
        ZEL_LOG_AS(caller, 3, "msgZelAlertData malloc fail !\n");
        return false;
    }
    zel::putLe32(payload, 0, static_cast<uint32_t>(count));
    zel::putLe32(payload, 4, static_cast<uint32_t>(kRecordSize * count));
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
    if (msg == NULL || len < 16) {
        ZEL_LOG(3, "OnGetZelAlertState length error \n");
        return;
    }
    size_t count = m_LogFrameMap.size();
    size_t size = kListHeadSize + kRecordSize * count;
    uint8_t* payload = static_cast<uint8_t*>(malloc(size));
    if (payload == NULL) {
        ZEL_LOG(3, "msgZelAlertData malloc fail !\n");
        return;
    }
    zel::putLe32(payload, 0, static_cast<uint32_t>(count));
    zel::putLe32(payload, 4, static_cast<uint32_t>(kRecordSize * count));
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
