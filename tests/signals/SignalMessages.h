// Payloads of the signal messages at the offsets the senders use (written out
// here, not taken from the service's constants, so that a wrong offset in the
// service fails a test), and a snapshot of all a signal handler may change.
#ifndef ALERTZEL_TEST_SIGNALMESSAGES_H
#define ALERTZEL_TEST_SIGNALMESSAGES_H

#include <string.h>

#include <initializer_list>

#include "ServiceFixture.h"

namespace sig {

using harness::Bytes;

// {offset, width in bytes, value}, written little-endian over `fill`.
struct Field { size_t at; int width; uint64_t value; };
inline Bytes record(size_t size, std::initializer_list<Field> fields, uint8_t fill = 0) {
    Bytes b(size, fill);
    for (const Field& f : fields)
        for (int i = 0; i < f.width; ++i) b[f.at + i] = static_cast<uint8_t>(f.value >> (8 * i));
    return b;
}
inline uint64_t bitsOf(double d) {
    uint64_t u;
    memcpy(&u, &d, sizeof u);
    return u;
}

inline Bytes panicKey(uint8_t state, uint8_t flags) { return Bytes{state, flags, 0xAA, 0x55}; }
inline Bytes accData(uint16_t x, uint16_t y, uint16_t z) {
    return record(40, {{6, 2, x}, {8, 2, y}, {10, 2, z}}, 0x5A);
}
// `size` bytes, byte i holding i, then the state at offset 8.
inline Bytes gpsInfo(uint8_t state, size_t size = 52) {
    Bytes b(size);
    for (size_t i = 0; i < size; ++i) b[i] = static_cast<uint8_t>(i);
    b[8] = state;
    return b;
}
inline Bytes speedInfo(uint8_t unit, uint32_t speed) {
    return record(12, {{0, 1, unit}, {4, 4, speed}});
}
// Vehicle information, fields in record order; the temperatures are signed.
inline Bytes vehicleInfo(uint32_t vehicleMask, uint16_t tempMask = 0, uint16_t sysInt = 0,
                         uint16_t sysDec = 0, uint16_t diskInt = 0, uint16_t diskDec = 0,
                         uint32_t voltMask = 0, uint8_t voltInt = 0, uint8_t voltDec = 0,
                         uint32_t statusMask = 0, uint8_t status = 0) {
    return record(64, {{0, 4, vehicleMask}, {4, 2, tempMask}, {12, 2, sysInt}, {14, 2, sysDec},
                       {20, 2, diskInt}, {22, 2, diskDec},
                       {24, 4, voltMask}, {28, 1, voltInt}, {29, 1, voltDec},
                       {48, 4, statusMask}, {52, 1, status}});
}
inline Bytes alprEvent(uint8_t mask, const std::vector<uint8_t>& values = {}) {
    Bytes b = record(16, {{8, 1, mask}});
    std::copy(values.begin(), values.end(), b.begin() + 9);
    return b;
}
// Motion: per channel its tag at i and its status at 32 + i.
inline Bytes mdState(const std::vector<uint8_t>& tags, const std::vector<uint8_t>& status) {
    Bytes b(48, 0);
    std::copy(tags.begin(), tags.end(), b.begin());
    std::copy(status.begin(), status.end(), b.begin() + 32);
    return b;
}
// Camera settings: per channel a 200-byte row, its kind at 8 and its tag at 14.
inline Bytes ipcSetting(const std::vector<uint8_t>& kinds, const std::vector<uint8_t>& tags = {}) {
    Bytes b(3208, 0);
    for (size_t i = 0; i < kinds.size(); ++i) b[8 + 200 * i] = kinds[i];
    for (size_t i = 0; i < tags.size(); ++i) b[14 + 200 * i] = tags[i];
    return b;
}

struct J1939Row {
    uint32_t id;
    int32_t length;
    uint32_t pgn, startbyte, startbit;
    double resolution, offset;
    uint32_t max = 0, source = 0;
};
// The 6048-byte table with `rows` at rows 0, 1, ... or at the rows `at` names.
inline Bytes j1939Table(const std::vector<J1939Row>& rows, const std::vector<size_t>& at = {}) {
    Bytes b(6048, 0);
    for (size_t n = 0; n < rows.size(); ++n) {
        const J1939Row& r = rows[n];
        Bytes row = record(84, {{0, 4, r.id}, {4, 4, static_cast<uint32_t>(r.length)},
                                {8, 4, r.max}, {12, 4, r.pgn}, {16, 4, r.source},
                                {24, 4, r.startbit}, {28, 4, r.startbyte},
                                {36, 8, bitsOf(r.offset)}, {44, 8, bitsOf(r.resolution)}});
        std::copy(row.begin(), row.end(), b.begin() + 84 * (at.empty() ? n : at[n]));
    }
    return b;
}
inline Bytes canFrame(uint32_t canId, uint64_t data) {
    return record(28, {{12, 4, canId}, {20, 8, data}}, 0xEE);
}

// Every field a signal handler may write, as bytes.
template <typename... T>
Bytes bytesOf(const T&... v) {
    Bytes out;
    (out.insert(out.end(), reinterpret_cast<const uint8_t*>(&v),
                reinterpret_cast<const uint8_t*>(&v) + sizeof v), ...);
    return out;
}
inline Bytes snapshot(CAlertZelManage& s) {
    double j1939[64] = {};
    bool present[64];
    for (uint32_t row = 0; row < 64; ++row) present[row] = s.m_J1939Value.find(row, j1939[row]);
    return bytesOf(s.m_PanicKey, s.m_AccData, s.m_GpsInfo, s.m_Speed, s.m_HdTemp, s.m_SysTemp,
                   s.m_SysVolt, s.m_Ignition, s.m_Accel, s.m_AlprValue, s.m_VehicleInfo,
                   s.m_MdRecord, s.m_IpcSetting, s.m_MdState, s.m_IoState, s.m_IOlState,
                   s.m_J1939Param, s.m_EventValid, s.m_bDiskTempOk, present, j1939);
}

// Accepted messages of every kind with non-zero values, so that a refusal
// that wrongly clears or writes something shows.
inline void primeEverySignal(harness::Harness& h) {
    h.setChannels(2, 2);
    h.deliver(320, ipcSetting({0, 0, 1, 1}, {0, 0, 7, 7}));
    h.deliver(1288, mdState({0, 0, 7, 7}, {1, 0, 1, 0}));
    h.deliver(1031, harness::le32(0x0001A5A5));
    h.deliver(1176, panicKey(0x31, 1));
    h.deliver(1071, accData(0x0180, 0x8180, 0x7fff));
    h.deliver(1073, gpsInfo(3));
    h.deliver(6777, speedInfo(0, 90));
    h.deliver(1081, vehicleInfo(0xB, 3, 40, 0, 35, 0, 1, 12, 0, 9, 1));
    h.deliver(8963, alprEvent(0x1f, {1, 2, 3, 4, 5}));
    h.deliver(476, j1939Table({{5, 8, 65262, 0, 0, 1.0, -40.0}}));
    h.deliver(1089, canFrame(0x18FEEE00, 0x84));
}

}  // namespace sig

#endif
