#include "SignalMessages.h"

#include "ByteOrder.h"

namespace sig {

namespace {

void put16(Bytes& b, size_t pos, uint16_t v) { zel::putLe16(b.data(), pos, v); }
void put32(Bytes& b, size_t pos, uint32_t v) { zel::putLe32(b.data(), pos, v); }

void append(Bytes&) {}
template <typename T, typename... More>
void append(Bytes& out, const T& value, const More&... more) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&value);
    out.insert(out.end(), p, p + sizeof value);
    append(out, more...);
}

}  // namespace

Bytes ioState(uint32_t word) { return harness::le32(word); }

Bytes panicKey(uint8_t state, uint8_t flags) { return Bytes{state, flags, 0xAA, 0x55}; }

Bytes accData(uint16_t x, uint16_t y, uint16_t z) {
    Bytes b(40, 0x5A);  // reserved bytes carry noise
    put16(b, 6, x);
    put16(b, 8, y);
    put16(b, 10, z);
    return b;
}

Bytes gpsInfo(uint8_t state, size_t size) {
    Bytes b(size);
    for (size_t i = 0; i < size; ++i) b[i] = static_cast<uint8_t>(i);
    b[8] = state;
    return b;
}

Bytes speedInfo(uint8_t unit, uint32_t speed) {
    Bytes b(12, 0);
    b[0] = unit;
    put32(b, 4, speed);
    return b;
}

Bytes vehicleInfo(const Vehicle& v) {
    Bytes b(64, 0);
    put32(b, 0, v.vehicleMask);
    put16(b, 4, v.tempMask);
    put16(b, 12, static_cast<uint16_t>(v.sysInt));
    put16(b, 14, static_cast<uint16_t>(v.sysDec));
    put16(b, 20, static_cast<uint16_t>(v.diskInt));
    put16(b, 22, static_cast<uint16_t>(v.diskDec));
    put32(b, 24, v.voltMask);
    b[28] = v.voltInt;
    b[29] = v.voltDec;
    put32(b, 48, v.statusMask);
    b[52] = v.status;
    return b;
}

Bytes alprEvent(uint8_t mask, std::vector<uint8_t> values) {
    Bytes b(16, 0);
    b[8] = mask;
    for (size_t i = 0; i < values.size() && i < 5; ++i) b[9 + i] = values[i];
    return b;
}

Bytes mdState(std::vector<uint8_t> tags, std::vector<uint8_t> status) {
    Bytes b(48, 0);
    for (size_t i = 0; i < tags.size() && i < 16; ++i) b[i] = tags[i];
    for (size_t i = 0; i < status.size() && i < 16; ++i) b[32 + i] = status[i];
    return b;
}

Bytes ipcSetting(std::vector<uint8_t> kinds, std::vector<uint8_t> tags) {
    Bytes b(3208, 0);
    for (size_t i = 0; i < kinds.size() && i < 16; ++i) b[8 + 200 * i] = kinds[i];
    for (size_t i = 0; i < tags.size() && i < 16; ++i) b[14 + 200 * i] = tags[i];
    return b;
}

Bytes j1939Table(const std::vector<J1939Row>& rows, std::vector<int> at) {
    Bytes b(6048, 0);
    for (size_t n = 0; n < rows.size(); ++n) {
        const J1939Row& r = rows[n];
        size_t base = 84 * static_cast<size_t>(at.empty() ? static_cast<int>(n) : at[n]);
        put32(b, base + 0, r.id);
        put32(b, base + 4, static_cast<uint32_t>(r.length));
        put32(b, base + 8, r.max);
        put32(b, base + 12, r.pgn);
        put32(b, base + 16, r.source);
        put32(b, base + 24, r.startbit);
        put32(b, base + 28, r.startbyte);
        zel::putLeDouble(b.data(), base + 36, r.offset);
        zel::putLeDouble(b.data(), base + 44, r.resolution);
    }
    return b;
}

Bytes canFrame(uint32_t canId, uint64_t data) {
    Bytes b(28, 0xEE);  // reserved bytes carry noise
    put32(b, 12, canId);
    zel::putLe64(b.data(), 20, data);
    return b;
}

Bytes snapshot(CAlertZelManage& s) {
    Bytes out;
    append(out, s.m_PanicKey, s.m_AccData, s.m_GpsInfo, s.m_Speed, s.m_HdTemp, s.m_SysTemp,
           s.m_SysVolt, s.m_Ignition, s.m_Accel, s.m_AlprValue, s.m_VehicleInfo, s.m_MdRecord,
           s.m_IpcSetting, s.m_MdState, s.m_IoState, s.m_IOlState, s.m_J1939Param,
           s.m_EventValid, s.m_bDiskTempOk);
    for (uint32_t row = 0; row < 64; ++row) {
        double v = 0;
        bool present = s.m_J1939Value.find(row, v);
        append(out, present, v);
    }
    return out;
}

void primeEverySignal(harness::Harness& h) {
    h.setChannels(2, 2);
    h.deliver(320, ipcSetting({0, 0, 1, 1}, {0, 0, 7, 7}));
    h.deliver(1288, mdState({0, 0, 7, 7}, {1, 0, 1, 0}));
    h.deliver(1031, ioState(0x0001A5A5));
    h.deliver(1176, panicKey(0x31, 1));
    h.deliver(1071, accData(0x0180, 0x8180, 0x7fff));
    h.deliver(1073, gpsInfo(3));
    h.deliver(6777, speedInfo(0, 90));
    h.deliver(1081, vehicleInfo(Vehicle{0xB, 3, 40, 0, 35, 0, 1, 12, 0, 9, 1}));
    h.deliver(8963, alprEvent(0x1f, {1, 2, 3, 4, 5}));
    h.deliver(476, j1939Table({{5, 8, 65262, 0, 0, 1.0, -40.0}}));
    h.deliver(1089, canFrame(0x18FEEE00, 0x84));
}

}  // namespace sig
