// Vehicle information and plate-reader values into the signal cache.
//
// These two records carry their own presence bits, so they are the only
// handlers that take validity away: each accepted record first clears the
// bits of the values it may carry (never IGTN), then sets those it does
// carry. Both happen in one call, so no pass sees the gap. A refused record
// clears nothing.
#include <string.h>

#include "AlertZelManage.h"
#include "SignalInput.h"
#include "SignalRecords.h"

namespace {

const uint32_t kEventIgnition = 13;
const uint32_t kEventHdTemp = 15;
const uint32_t kEventSysTemp = 16;
const uint32_t kEventSysVolt = 17;
const uint32_t kEventAlprFirst = 98;

// Whole part and hundredths, each with its own sign, summed in 32 bits and
// then truly divided (not multiplied by 0.01).
double hundredths(int32_t whole, int32_t fraction) {
    return static_cast<double>(whole * 100 + fraction) / 100.0;
}

}  // namespace

void CAlertZelManage::OnUpdataVehicleInfo(const char* msg, int len) {
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "[MTMAN]-vehicle length error \n");
        return;
    }
    if (!in.carriesExactly(VehicleInfoMsg_t::kSize)) {
        ZEL_LOG(3, "[MTMAN]-vehicle failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    clearEventValid(kEventHdTemp);
    clearEventValid(kEventSysTemp);
    clearEventValid(kEventSysVolt);
    memcpy(m_VehicleInfo, in.payload, VehicleInfoMsg_t::kSize);
    VehicleInfoMsg_t rec = VehicleInfoMsg_t::read(in.payload);
    typedef VehicleInfoMsg_t V;

    // The disk status comes first: it rules this same record's disk
    // temperature. A record without a status leaves the last verdict.
    bool hasStatus = (rec.uiVehicleMask & V::kHasStatus) != 0;
    if (hasStatus && (rec.uiStatusMask & V::kDiskStatusPresent))
        m_bDiskTempOk = (rec.ucStatus & V::kDiskStatusBits) == 0 ? 1 : 0;

    if (rec.uiVehicleMask & V::kHasTemps) {
        if ((rec.usTempMask & V::kDiskTempPresent) && m_bDiskTempOk) {
            m_HdTemp = hundredths(rec.sDiskTempInt, rec.sDiskTempDec);
            setEventValid(kEventHdTemp);
        }
        if (rec.usTempMask & V::kSysTempPresent) {
            m_SysTemp = hundredths(rec.sSysTempInt, rec.sSysTempDec);
            setEventValid(kEventSysTemp);
        }
    }
    if ((rec.uiVehicleMask & V::kHasVolt) && (rec.uiVoltMask & V::kVoltPresent)) {
        m_SysVolt = hundredths(rec.ucVoltInt, rec.ucVoltDec);
        setEventValid(kEventSysVolt);
    }
    if (hasStatus && (rec.uiStatusMask & V::kIgnitionPresent)) {
        m_Ignition = (rec.ucStatus & V::kIgnitionOn) ? 1.0 : 0.0;
        setEventValid(kEventIgnition);
    }
}

void CAlertZelManage::onGetAlprEvent(const char* msg, int len) {
    ZEL_LOG(3, "=======onGetAlprEvent======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "onGetAlprEvent length error \n");
        return;
    }
    if (!in.carriesExactly(AlprEventMsg_t::kSize)) {
        ZEL_LOG(3, "onGetAlprEvent length= %d \n", static_cast<int>(in.claimed));
        return;
    }
    AlprEventMsg_t rec = AlprEventMsg_t::read(in.payload);
    for (int i = 0; i < AlprEventMsg_t::kValueCount; ++i) clearEventValid(kEventAlprFirst + i);
    for (int i = 0; i < AlprEventMsg_t::kValueCount; ++i) {
        if (!(rec.ucAlprMask & (1u << i))) continue;
        m_AlprValue[i] = static_cast<double>(rec.ucValue[i]);
        setEventValid(kEventAlprFirst + i);
    }
}
