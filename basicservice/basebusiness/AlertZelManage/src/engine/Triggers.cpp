// Trigger evaluation: does one trigger of a rule hold on the signal cache now?
// Never waits and never allocates.
#include "AlertZelManage.h"

namespace {

const uint32_t kEventIn1 = 0;
const uint32_t kEventIn8 = 7;
const uint32_t kEventPanic = 8;
const uint32_t kEventAccelX = 9;
const uint32_t kEventAccelZ = 11;
const uint32_t kEventGps = 12;
const uint32_t kEventIgnition = 13;
const uint32_t kEventSpeed = 14;
const uint32_t kEventSysVolt = 17;
const uint32_t kEventMotion1 = 18;
const uint32_t kEventMotion16 = 33;
const uint32_t kEventJ1939First = 34;
const uint32_t kEventJ1939Last = 97;
const uint32_t kEventAlprFirst = 98;
const uint32_t kEventLast = 102;

const size_t kGpsStateOffset = 8;

}  // namespace

void CAlertZelManage::upDateTrigger(sInputTrigger& trigger, unsigned int& atLeast,
                                    unsigned long long& EventMark, bool& result) {
    uint32_t event = trigger.Event;
    if (event > kEventLast) {
        ZEL_LOG(3, "update EventList  invalid Event =%d\n", static_cast<int>(event));
        return;
    }
    if (!isEventValid(event)) {
        ZEL_LOG(3, "Event[%d][%s] the value is Invalid !\n", static_cast<int>(event),
                EVENT_NAME[event].c_str());
        result = false;
        return;
    }
    if (event <= kEventIn8)
        checkAlertIO(trigger, atLeast, EventMark, result);
    else if (event == kEventPanic)
        checkAlertPanicKey(trigger, atLeast, EventMark, result);
    else if (event <= kEventAccelZ)
        checkAlertACC(trigger, atLeast, EventMark, result);
    else if (event == kEventGps)
        checkAlertGPS(trigger, atLeast, EventMark, result);
    else if (event == kEventIgnition)
        checkAlertIgnition(trigger, atLeast, EventMark, result);
    else if (event <= kEventSysVolt)
        checkAlertVehicleInfo(trigger, atLeast, EventMark, result);
    else if (event <= kEventMotion16)
        checkAlertMDVideo(trigger, atLeast, EventMark, result);
    else if (event <= kEventJ1939Last)
        checkJ1939Value(trigger, atLeast, EventMark, result);
    else
        checkAlprValue(trigger, atLeast, EventMark, result);
}

void CAlertZelManage::checkAlertIO(sInputTrigger& trigger, unsigned int& atLeast,
                                   unsigned long long& EventMark, bool& result) {
    double value = m_IoState[trigger.Event - kEventIn1] ? 1.0 : 0.0;
    upDateEvent(trigger, atLeast, EventMark, value, result);
}

void CAlertZelManage::checkAlertPanicKey(sInputTrigger& trigger, unsigned int& atLeast,
                                         unsigned long long& EventMark, bool& result) {
    uint8_t keyState = m_PanicKey[0];
    double value;
    if (keyState == 0x30 || keyState == 0x31) {
        value = 1.0;
    } else if (keyState == 0x32) {
        value = 0.0;
    } else {
        ZEL_LOG(3, "value[%d] is error !", keyState);
        return;
    }
    upDateEvent(trigger, atLeast, EventMark, value, result);
}

void CAlertZelManage::checkAlertACC(sInputTrigger& trigger, unsigned int& atLeast,
                                    unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, m_Accel[trigger.Event - kEventAccelX], result);
}

void CAlertZelManage::checkAlertGPS(sInputTrigger& trigger, unsigned int& atLeast,
                                    unsigned long long& EventMark, bool& result) {
    double value = static_cast<double>(m_GpsInfo[kGpsStateOffset]);
    upDateEvent(trigger, atLeast, EventMark, value, result);
}

void CAlertZelManage::checkAlertIgnition(sInputTrigger& trigger, unsigned int& atLeast,
                                         unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, m_Ignition, result);
}

void CAlertZelManage::checkAlertVehicleInfo(sInputTrigger& trigger, unsigned int& atLeast,
                                            unsigned long long& EventMark, bool& result) {
    const double* values[] = {&m_Speed, &m_HdTemp, &m_SysTemp, &m_SysVolt};
    upDateEvent(trigger, atLeast, EventMark, *values[trigger.Event - kEventSpeed], result);
}

void CAlertZelManage::checkAlertMDVideo(sInputTrigger& trigger, unsigned int& atLeast,
                                        unsigned long long& EventMark, bool& result) {
    double value = m_MdState[trigger.Event - kEventMotion1] ? 1.0 : 0.0;
    upDateEvent(trigger, atLeast, EventMark, value, result);
}

void CAlertZelManage::checkAlprValue(sInputTrigger& trigger, unsigned int& atLeast,
                                     unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, m_AlprValue[trigger.Event - kEventAlprFirst],
                result);
}

void CAlertZelManage::checkJ1939Value(sInputTrigger& trigger, unsigned int& atLeast,
                                      unsigned long long& EventMark, bool& result) {
    double value;
    if (!m_J1939Value.find(trigger.Event - kEventJ1939First, value)) {
        result = false;
        return;
    }
    upDateEvent(trigger, atLeast, EventMark, value, result);
}

void CAlertZelManage::upDateEvent(sInputTrigger& trigger, unsigned int& atLeast,
                                  unsigned long long& EventMark, double value, bool& result) {
    result = checkValue(value, trigger.Value, trigger.Type);
    uint8_t now = result ? 1 : 0;
    if (m_LastResult[trigger.Event] != now) {
        m_LastResult[trigger.Event] = now;
        ZEL_LOG(3, "checkAlert Event[%s]==value[%lf]==opt[%d]==param[%lf]==result[%d] \n",
                EVENT_NAME[trigger.Event].c_str(), value, static_cast<int>(trigger.Type),
                trigger.Value, static_cast<int>(now));
    }
}

bool CAlertZelManage::checkValue(double value, double threshold, eTriggerType type) {
    switch (type) {
    case GT:
        return value > threshold;
    case LT:
        return value < threshold;
    case EQ:
        return value == threshold;
    default:
        ZEL_LOG(3, "checkValue invalid type =%d\n", static_cast<int>(type));
        return false;
    }
}
