// The alert pass: one walk that decides each rule's state from its area, its
// daily window and its triggers, and one walk that acts on the edges (log
// frame, report record) and patches running alerts on the 5-second tick.
#include <stdlib.h>
#include <time.h>

#include "AlertZelManage.h"

namespace {

const long kTickInterval = 4;  // a tick once the gap exceeds this

bool isZeroDateTime(const Common::_datetime_& dt) {
    return dt.year == 0 && dt.month == 0 && dt.day == 0 && dt.hour == 0 && dt.minute == 0 &&
           dt.second == 0;
}

long secondsOfDay(const Common::_datetime_& dt) {
    return dt.hour * 3600L + dt.minute * 60L + dt.second;
}

}  // namespace

void CAlertZelManage::CheckAlarm() {
    if (!m_bStorageReady) {
        ZEL_LOG(4, "Zel Alert storage plugin have not run success...\n");
        return;
    }
    if (!m_bParaReady) {
        ZEL_LOG(4, "Zel Alert get para ...\n");
        GetZelAlertPara();
        return;
    }

    m_bTickDue = 0;
    long t = time(nullptr);
    if (labs(t - static_cast<long>(m_LastTickTime)) > kTickInterval) {
        m_LastTickTime = static_cast<int32_t>(t);
        m_bTickDue = 1;
    }

    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    long utc = 0;
    Common::Q7X_TMDateTimeToUtcTime(&now, &utc);

    // Nothing in this walk waits on the bus, so all triggers see one state of
    // the signal cache: its usable values are read once per pass.
    snapshotEvents();
    bool anyEdge = false;
    for (ZelAlertPara_t& para : m_ParaList) {
        bool holds = true;
        if (!checkIsInArea(para.alertID)) {
            ZEL_LOG(3, "alertID[%d]: checkIsInArea fail !\n", static_cast<int>(para.alertID));
            holds = false;
        } else if (!checkTime(para.startTime, para.endTime)) {
            ZEL_LOG(3, "alertID[%d]: checkTime fail !\n", static_cast<int>(para.alertID));
            holds = false;
        } else if (!triggersHold(para)) {
            ZEL_LOG(3, "alertID[%d]: EventMark == 0x00 !\n", static_cast<int>(para.alertID));
            holds = false;
        }

        if (!holds) {
            para.bConditionMet = 0;
            para.conditionTime = utc;
            para.bState = 0;
            para.alarmEnd = now;
            anyEdge |= para.bLastState != 0;
            continue;
        }
        if (para.bConditionMet == 0) {
            para.bConditionMet = 1;
            para.conditionTime = utc;
            para.alarmStart = now;
            ZEL_LOG(3, "alertID[%d] time[%d] all event happen !\n",
                    static_cast<int>(para.alertID), static_cast<int>(utc));
        }
        // Unsigned: a clock stepped back behind the hold's start completes it.
        uint32_t held = static_cast<uint32_t>(utc) - static_cast<uint32_t>(para.conditionTime);
        if (held >= para.atLeast && para.bState == 0) {
            ZEL_LOG(3, "alertID[%d] time[%d] new alert !\n", static_cast<int>(para.alertID),
                    static_cast<int>(utc));
            para.bState = 1;
        }
        anyEdge |= para.bState != para.bLastState;
    }
    // Without an edge or a tick the second walk would change nothing.
    if (!anyEdge && !m_bTickDue) return;

    // The storage dialogue below waits on the bus; rule changes that arrive
    // meanwhile are held until this scope ends.
    BusyScope busy(*this);
    m_AlertList.clear();
    for (ZelAlertPara_t& para : m_ParaList) {
        if (para.bState == 1 && para.bLastState == 0) {
            ZEL_LOG(3, "==add==alertID[%d]==[%02d%02d%02d]==\n", static_cast<int>(para.alertID),
                    para.alarmStart.hour, para.alarmStart.minute, para.alarmStart.second);
            writeAlertZelLog(para.alertID, para.EventMark, para.alarmStart);
            appendAlertRecord(para, para.alarmStart, 0);
        }
        if (para.bState == 0 && para.bLastState == 1) {
            ZEL_LOG(3, "==delete==alertID[%d]==[%02d%02d%02d]==\n",
                    static_cast<int>(para.alertID), para.alarmEnd.hour, para.alarmEnd.minute,
                    para.alarmEnd.second);
            modifyAlertZelLog(para.alertID, para.alarmEnd, true);
            appendAlertRecord(para, para.alarmEnd, 1);
        }
        if (m_bTickDue && para.bState == 1 && para.bLastState == 1) {
            ZEL_LOG(3, "==modify==== alertID[%06d]==event[%08lld]======\n",
                    static_cast<int>(para.alertID), static_cast<long long>(para.EventMark));
            modifyAlertZelLog(para.alertID, now, false);
        }
        para.bLastState = para.bState;
    }
    if (!m_AlertList.empty()) sendAlertList(__FUNCTION__);
}

bool CAlertZelManage::checkTime(const Common::_datetime_& start,
                                const Common::_datetime_& end) {
    if (isZeroDateTime(start)) return true;
    if (isZeroDateTime(end)) return true;
    Common::_datetime_ current;
    Common::Q7X_TMGetShareTime(&current);
    long secs = secondsOfDay(current);
    return secs >= secondsOfDay(start) && secs <= secondsOfDay(end);
}

CAlertZelManage::BusyScope::BusyScope(CAlertZelManage& owner) : m_owner(owner) {
    ++m_owner.m_BusyDepth;
}

CAlertZelManage::BusyScope::~BusyScope() {
    if (--m_owner.m_BusyDepth == 0 && !m_owner.m_bApplyingHeld) m_owner.applyHeldMessages();
}

bool CAlertZelManage::holdIfBusy(Handler handler, const char* msg, int len) {
    if (m_BusyDepth == 0 || msg == nullptr || len < 16) return false;
    HeldMessage held;
    held.handler = handler;
    held.bytes.assign(msg, msg + len);
    m_HeldMessages.push_back(held);
    return true;
}

void CAlertZelManage::applyHeldMessages() {
    m_bApplyingHeld = 1;
    // A held message may bring waits of its own; what arrives there is held
    // behind the rest and applied by this same loop.
    while (!m_HeldMessages.empty()) {
        HeldMessage held;
        held.handler = m_HeldMessages.front().handler;
        held.bytes.swap(m_HeldMessages.front().bytes);
        m_HeldMessages.pop_front();
        (this->*held.handler)(held.bytes.data(), static_cast<int>(held.bytes.size()));
    }
    m_bApplyingHeld = 0;
}
