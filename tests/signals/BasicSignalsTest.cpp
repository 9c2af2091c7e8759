// Inputs, panic key, accelerometer, GPS and speed: what an accepted message
// leaves in the cache and in the validity bits.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

using BasicSignals = harness::ServiceTest;

TEST_F(BasicSignals, InputWordSetsSixteenFlagsAndTheEightInputEventsAndNotesAChange) {
    // The change lines are compared in SignalLinesTest.
    for (uint32_t word : {0x00000000u, 0x80018001u, 0x80018001u, 0x0000007Eu}) {
        send(1031, harness::le32(word));
        EXPECT_EQ(svc().m_IOlState, word);
        for (int i = 0; i < 16; ++i) EXPECT_EQ(svc().m_IoState[i], (word >> i) & 1) << i;
        for (uint32_t e = 0; e <= 8; ++e) EXPECT_EQ(svc().isEventValid(e), e < 8) << e;
    }
}

TEST_F(BasicSignals, PanicKeyCountsOnlyWithItsFlagBit) {
    // keptState: m_PanicKey[0] afterwards.
    const struct { uint8_t state, flags, keptState; bool valid; } steps[] = {
        {0x31, 0xFE, 0x00, false},  // flag clear: ignored, bit stays clear
        {0x30, 0x01, 0x30, true},
        {0x32, 0x00, 0x30, true},  // a release without the flag is not seen
        {0x32, 0x03, 0x32, true},
    };
    for (const auto& st : steps) {
        send(1176, sig::panicKey(st.state, st.flags));
        EXPECT_EQ(svc().m_PanicKey[0], st.keptState) << int(st.state) << "/" << int(st.flags);
        EXPECT_EQ(svc().isEventValid(8), st.valid);
    }
    // The whole record is kept, reserved bytes too.
    EXPECT_EQ(Bytes(svc().m_PanicKey, svc().m_PanicKey + 4), (Bytes{0x32, 0x03, 0xAA, 0x55}));
}

TEST_F(BasicSignals, AccelerometerRawValuesDecodeByTheirTopBit) {
    const std::pair<uint16_t, double> rows[] = {
        {0x0180, 1.0},  {0x8180, 1.5},          {0x00ff, 0.0},       {0x7fff, 127.0},
        {0x4000, 64.0}, {0xffff, 127.99609375}, {0x8001, 0.00390625}};
    for (auto [raw, value] : rows) {
        // Each axis in its own slot, so that swapped axes show.
        send(1071, sig::accData(raw, 0x0100, 0x0200));
        EXPECT_EQ(std::vector<double>(svc().m_Accel, svc().m_Accel + 3),
                  (std::vector<double>{value, 1.0, 2.0})) << std::hex << raw;
    }
    EXPECT_EQ(Bytes(svc().m_AccData, svc().m_AccData + 40), sig::accData(0x8001, 0x100, 0x200));
    for (uint32_t e = 8; e <= 12; ++e) EXPECT_EQ(svc().isEventValid(e), e >= 9 && e <= 11) << e;
}

TEST_F(BasicSignals, GpsKeepsTheFirst52BytesOfALongerRecord) {
    send(1073, sig::gpsInfo(2, 60));
    EXPECT_EQ(Bytes(svc().m_GpsInfo, svc().m_GpsInfo + 52), sig::gpsInfo(2, 52));
    EXPECT_TRUE(svc().isEventValid(12));
}

TEST_F(BasicSignals, SpeedIsKeptInMilesPerHourByBitZeroOfTheUnit) {
    const double kmh = 0.6213712;
    const struct { uint8_t unit; uint32_t speed; double mph; } rows[] = {
        {0x00, 100, 100 * kmh}, {0x01, 100, 100.0}, {0xFE, 100, 100 * kmh}, {0x03, 100, 100.0},
        {0x01, 4294967295u, 4294967295.0}};  // unsigned
    for (const auto& r : rows) {
        send(6777, sig::speedInfo(r.unit, r.speed));
        EXPECT_EQ(svc().m_Speed, r.mph) << int(r.unit) << " " << r.speed;
    }
    EXPECT_TRUE(svc().isEventValid(14));
}

}  // namespace
