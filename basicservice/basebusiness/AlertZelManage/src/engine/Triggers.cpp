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

// The plain value of an event. PANIC and the J1939 rows have values that may
// be missing (panicValue, m_J1939Value); for them this gives 0.0.
double CAlertZelManage::familyValue(uint32_t event) const {
    if (event <= kEventIn8) return m_IoState[event - kEventIn1] ? 1.0 : 0.0;
    if (event == kEventPanic || (event >= kEventJ1939First && event <= kEventJ1939Last) ||
        event >= kEventCount)
        return 0.0;
    if (event <= kEventAccelZ) return m_Accel[event - kEventAccelX];
    if (event == kEventGps) return static_cast<double>(m_GpsInfo[kGpsStateOffset]);
    if (event == kEventIgnition) return m_Ignition;
    if (event <= kEventSysVolt) {
        const double* values[] = {&m_Speed, &m_HdTemp, &m_SysTemp, &m_SysVolt};
        return *values[event - kEventSpeed];
    }
    if (event <= kEventMotion16) return m_MdState[event - kEventMotion1] ? 1.0 : 0.0;
    return m_AlprValue[event - kEventAlprFirst];
}

bool CAlertZelManage::panicValue(double& value) const {
    uint8_t keyState = m_PanicKey[0];
    if (keyState == 0x30 || keyState == 0x31) {
        value = 1.0;
        return true;
    }
    if (keyState == 0x32) {
        value = 0.0;
        return true;
    }
    return false;
}

void CAlertZelManage::checkAlertIO(sInputTrigger& trigger, unsigned int& atLeast,
                                   unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
}

void CAlertZelManage::checkAlertPanicKey(sInputTrigger& trigger, unsigned int& atLeast,
                                         unsigned long long& EventMark, bool& result) {
    double value;
    if (!panicValue(value)) {
        ZEL_LOG(3, "value[%d] is error !", m_PanicKey[0]);
        return;
    }
    upDateEvent(trigger, atLeast, EventMark, value, result);
}

void CAlertZelManage::checkAlertACC(sInputTrigger& trigger, unsigned int& atLeast,
                                    unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
}

void CAlertZelManage::checkAlertGPS(sInputTrigger& trigger, unsigned int& atLeast,
                                    unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
}

void CAlertZelManage::checkAlertIgnition(sInputTrigger& trigger, unsigned int& atLeast,
                                         unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
}

void CAlertZelManage::checkAlertVehicleInfo(sInputTrigger& trigger, unsigned int& atLeast,
                                            unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
}

void CAlertZelManage::checkAlertMDVideo(sInputTrigger& trigger, unsigned int& atLeast,
                                        unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
}

void CAlertZelManage::checkAlprValue(sInputTrigger& trigger, unsigned int& atLeast,
                                     unsigned long long& EventMark, bool& result) {
    upDateEvent(trigger, atLeast, EventMark, familyValue(trigger.Event), result);
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

void CAlertZelManage::snapshotEvents() {
    for (uint32_t event = 0; event < kEventCount; ++event) {
        bool usable = isEventValid(event);
        double value = 0.0;
        if (!usable)
            ;
        else if (event == kEventPanic)
            usable = panicValue(value);
        else if (event >= kEventJ1939First && event <= kEventJ1939Last)
            usable = m_J1939Value.find(event - kEventJ1939First, value);
        else
            value = familyValue(event);
        m_PassUsable[event] = usable;
        m_PassValue[event] = value;
    }
}

bool CAlertZelManage::triggersHold(ZelAlertPara_t& para) {
    for (sInputTrigger& trigger : para.triggers) {
        bool result = false;
        uint32_t event = trigger.Event;
        // Events with a plain value take the short way; every other case
        // (no value, an unknown panic code, a J1939 row without a value, an
        // event beyond the catalogue) goes through upDateTrigger and its
        // diagnostics. The cache does not change during the walk, so both
        // ways give the same result.
        if (event < static_cast<uint32_t>(kEventCount) && m_PassUsable[event])
            upDateEvent(trigger, para.atLeast, para.EventMark, m_PassValue[event], result);
        else
            upDateTrigger(trigger, para.atLeast, para.EventMark, result);
        if (!result) return false;
    }
    return true;
}

void CAlertZelManage::upDateEvent(sInputTrigger& trigger, unsigned int& atLeast,
                                  unsigned long long& EventMark, double value, bool& result) {
    result = checkValue(value, trigger.Value, trigger.Type);
    if (m_LastResult[trigger.Event] != static_cast<uint8_t>(result))
        noteResultChange(trigger, value, result);
}

void CAlertZelManage::noteResultChange(const sInputTrigger& trigger, double value, bool result) {
    m_LastResult[trigger.Event] = result ? 1 : 0;
    // The line belongs to upDateEvent; it is printed here to keep that small.
    ZEL_LOG_AS("upDateEvent", 3,
               "checkAlert Event[%s]==value[%lf]==opt[%d]==param[%lf]==result[%d] \n",
               EVENT_NAME[trigger.Event].c_str(), value, static_cast<int>(trigger.Type),
               trigger.Value, result ? 1 : 0);
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
        return refuseTriggerType(type);
    }
}

bool CAlertZelManage::refuseTriggerType(eTriggerType type) {
    ZEL_LOG_AS("checkValue", 3, "checkValue invalid type =%d\n", static_cast<int>(type));
    return false;
}
