// Forced ends of alerts: all at once, one by id, and the day rollover. A stop
// does what a falling edge does: it patches the frame, drops its entry and
// reports the end. It leaves the hold (bConditionMet, conditionTime,
// alarmStart) alone, so a rule whose triggers still hold rises again at the
// next pass with its old start.
#include <string.h>

#include "AlertZelManage.h"

void CAlertZelManage::StopAllAlarm() {
    ZEL_LOG(3, "======StopAllAlarm==Start=== !\n");
    if (!m_bStorageReady) {
        ZEL_LOG(3, "Zel Alert storage plugin have not run success...\n");
        return;
    }
    BusyScope busy(*this);
    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    for (ZelAlertPara_t& para : m_ParaList) {
        para.bState = 0;
        para.alarmEnd = now;
    }
    m_AlertList.clear();
    for (ZelAlertPara_t& para : m_ParaList) {
        if (para.bLastState) {
            modifyAlertZelLog(para.alertID, para.alarmEnd, true);
            appendAlertRecord(para, para.alarmEnd, 1);
        }
        para.bLastState = para.bState;
    }
    if (!sendAlertList(__FUNCTION__)) return;
    ZEL_LOG(3, "======StopAllAlarm==End=== !\n");
}

void CAlertZelManage::StopOneAlarm(unsigned int alertID) {
    ZEL_LOG(3, "======StopOneAlarm[%d]==Start=== !\n", static_cast<int>(alertID));
    if (!m_bStorageReady) {
        ZEL_LOG(3, "Zel Alert storage plugin have not run success...\n");
        return;
    }
    BusyScope busy(*this);
    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    m_AlertList.clear();
    for (ZelAlertPara_t& para : m_ParaList) {
        if (para.alertID != alertID) continue;
        para.bState = 0;
        para.alarmEnd = now;
        if (para.bLastState) {
            modifyAlertZelLog(para.alertID, para.alarmEnd, true);
            appendAlertRecord(para, para.alarmEnd, 1);
        }
        para.bLastState = para.bState;
        break;
    }
    if (!sendAlertList(__FUNCTION__)) return;
    ZEL_LOG(3, "======StopOneAlarm[%d]==End=== !\n", static_cast<int>(alertID));
}

int CAlertZelManage::LocalCancelAlarm(Common::_datetime_ time) {
    StopAllAlarm();
    return 0;
}

int CAlertZelManage::HandleAlarmCrossDay() {
    Common::_datetime_ now;
    unsigned char flag = 0;
    Common::Q7X_TMGetShareTime(&now, flag);
    if (CheckDateTime(m_LastDate, now) || m_TimeFlag != flag) {
        StopAllAlarm();
        m_TimeFlag = flag;
    }
    memcpy(&m_LastDate, &now, sizeof m_LastDate);
    return 0;
}

bool CAlertZelManage::CheckDateTime(Common::_datetime_ a, Common::_datetime_ b) {
    return a.year != b.year || a.month != b.month || a.day != b.day;
}
