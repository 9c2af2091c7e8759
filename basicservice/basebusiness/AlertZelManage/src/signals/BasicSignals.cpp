// Inputs, panic key, accelerometer, GPS and speed into the signal cache.
//
// All handlers run on the worker inside Common::Q7X_MSGWaitForEvent and never
// inside the first walk of a pass, so the cache needs no lock. A refused
// message changes nothing; an accepted one only ever sets validity bits.
#include <string.h>

#include "AlertZelManage.h"
#include "SignalInput.h"
#include "SignalRecords.h"

namespace {

const uint32_t kEventIn1 = 0;
const int kInputEvents = 8;
const int kInputFlags = 16;
const uint32_t kEventPanic = 8;
const uint32_t kEventAccelX = 9;
const uint32_t kEventGps = 12;
const uint32_t kEventSpeed = 14;

const double kMilesPerKilometre = 0.6213712;

// Bit 15 clear: whole units in the high byte. Bit 15 set: the low 15 bits in
// 1/256 units. Never negative.
double decodeAccel(uint16_t raw) {
    if (raw & 0x8000u) return static_cast<double>(raw & 0x7fffu) * 0.00390625;
    return static_cast<double>(raw >> 8);
}

}  // namespace

void CAlertZelManage::OnUpdateIOState(const char* msg, int len) {
    ZEL_LOG(3, "=======OnUpdateIOState======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "update io state length error \n");
        return;
    }
    if (!in.carriesExactly(IoStateMsg_t::kSize)) {
        ZEL_LOG(3, "update io state failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    IoStateMsg_t rec = IoStateMsg_t::read(in.payload);
    if (rec.uiIoState != m_IOlState) {
        ZEL_LOG(3, "m_IOlState change from[0x%x] to [0x%x]\n", m_IOlState, rec.uiIoState);
        m_IOlState = rec.uiIoState;
    }
    for (int i = 0; i < kInputFlags; ++i) {
        m_IoState[i] = static_cast<uint8_t>((rec.uiIoState >> i) & 1u);
        ZEL_LOG(4, "OnUpdateIO[%d] = %d \n", i, m_IoState[i]);
    }
    for (int i = 0; i < kInputEvents; ++i) setEventValid(kEventIn1 + i);
}

void CAlertZelManage::OnUpdatePanicKeyState(const char* msg, int len) {
    ZEL_LOG(3, "=======OnUpdatePanicKeyState======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "OnUpdatePanicKeyState length error \n");
        return;
    }
    if (!in.carriesExactly(PanicKeyMsg_t::kSize)) {
        ZEL_LOG(3, "uOnUpdatePanicKeyState failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    // A record without the flag says nothing, not even a release.
    if (!(PanicKeyMsg_t::read(in.payload).ucKeyFlags & PanicKeyMsg_t::kFlagCounts)) return;
    memcpy(m_PanicKey, in.payload, PanicKeyMsg_t::kSize);
    setEventValid(kEventPanic);
}

void CAlertZelManage::OnUpdateAccData(const char* msg, int len) {
    ZEL_LOG(3, "=======OnUpdateAccData======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "update acc data length error \n");
        return;
    }
    if (!in.carriesExactly(AccDataMsg_t::kSize)) {
        ZEL_LOG(3, "update acc data failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    memcpy(m_AccData, in.payload, AccDataMsg_t::kSize);
    AccDataMsg_t rec = AccDataMsg_t::read(m_AccData);
    for (int axis = 0; axis < 3; ++axis) {
        m_Accel[axis] = decodeAccel(rec.usAcc[axis]);
        setEventValid(kEventAccelX + axis);
    }
}

void CAlertZelManage::OnUpdateGPSInfo(const char* msg, int len) {
    ZEL_LOG(3, "=======OnUpdateGPSInfo======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "update station length error \n");
        return;
    }
    // The one signal record that may grow: only its first bytes are kept.
    if (!in.carriesAtLeast(GpsInfoMsg_t::kSize)) {
        ZEL_LOG(3, "update gps failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    memcpy(m_GpsInfo, in.payload, GpsInfoMsg_t::kSize);
    setEventValid(kEventGps);
}

void CAlertZelManage::OnUpdateSpeedInfo(const char* msg, int len) {
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "record param length error \n");
        return;
    }
    if (!in.carriesExactly(SpeedInfoMsg_t::kSize)) {
        ZEL_LOG(3, "record param failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    SpeedInfoMsg_t rec = SpeedInfoMsg_t::read(in.payload);
    ZEL_LOG(3, "==uiSpeedUnit =%d uiCurSpeed =%d \n", static_cast<int>(rec.uiSpeedUnit),
            static_cast<int>(rec.uiCurSpeed));
    // Triggers on SPEED are in miles per hour, whatever the sender uses.
    double speed = static_cast<double>(rec.uiCurSpeed);
    if (rec.uiSpeedUnit == 0) speed *= kMilesPerKilometre;
    m_Speed = speed;
    setEventValid(kEventSpeed);
}
