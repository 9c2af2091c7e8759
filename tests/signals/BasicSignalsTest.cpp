// Inputs, panic key, accelerometer, GPS and speed: what an accepted message
// leaves in the cache, in the validity bits and in the diagnostics.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

using BasicSignals = harness::ServiceTest;

TEST_F(BasicSignals, InputWordSetsSixteenFlagsAndTheEightInputEvents) {
    struct Step {
        uint32_t word;
        const char* changeLine;  // "" when the word equals the last one
        uint16_t flags;          // bit i = m_IoState[i]
    } steps[] = {
        {0x00000000, "", 0x0000},  // first word 0: no change line, still valid
        {0x00010000, "m_IOlState change from[0x0] to [0x10000]\n", 0x0000},
        {0x80018001, "m_IOlState change from[0x10000] to [0x80018001]\n", 0x8001},
        {0x80018001, "", 0x8001},
        {0x0000007E, "m_IOlState change from[0x80018001] to [0x7e]\n", 0x007E},
    };
    for (const Step& st : steps) {
        SCOPED_TRACE(st.word);
        h.clearLines();
        send(1031, sig::ioState(st.word));
        CAlertZelManage& s = svc();
        EXPECT_EQ(s.m_IOlState, st.word);
        for (int i = 0; i < 16; ++i) {
            EXPECT_EQ(s.m_IoState[i], (st.flags >> i) & 1) << i;
            EXPECT_EQ(h.countLines(harness::fmt("OnUpdateIO[%d] = %d \n", i, (st.flags >> i) & 1)), 1);
        }
        for (uint32_t e = 0; e < 8; ++e) EXPECT_TRUE(s.isEventValid(e)) << e;
        EXPECT_FALSE(s.isEventValid(8));
        std::vector<std::string> changes;
        for (const std::string& t : h.texts())
            if (t.find("m_IOlState change") == 0) changes.push_back(t);
        EXPECT_EQ(changes, *st.changeLine ? std::vector<std::string>{st.changeLine}
                                          : std::vector<std::string>{});
    }
    // The per-flag lines are the busy kind; the change line is ordinary.
    for (const harness::DebugLine& l : h.lines())
        EXPECT_TRUE(l.func != "OnUpdateIOState" || l.level == (l.text.find("OnUpdateIO[") ? 3 : 4))
            << l.text;
}

TEST_F(BasicSignals, PanicKeyCountsOnlyWithItsFlagBit) {
    struct Step {
        uint8_t state, flags;
        uint8_t keptState;  // m_PanicKey[0] afterwards
        bool valid;
    } steps[] = {
        {0x31, 0x00, 0x00, false},  // flag clear: ignored, bit stays clear
        {0x31, 0xFE, 0x00, false},  // other flag bits don't count
        {0x30, 0x01, 0x30, true},
        {0x32, 0x00, 0x30, true},   // a release without the flag is not seen
        {0x32, 0x03, 0x32, true},
    };
    for (const Step& st : steps) {
        send(1176, sig::panicKey(st.state, st.flags));
        EXPECT_EQ(svc().m_PanicKey[0], st.keptState) << int(st.state) << "/" << int(st.flags);
        EXPECT_EQ(svc().isEventValid(8), st.valid);
    }
    // The whole record is kept, reserved bytes too.
    EXPECT_EQ(Bytes(svc().m_PanicKey, svc().m_PanicKey + 4), (Bytes{0x32, 0x03, 0xAA, 0x55}));
}

TEST_F(BasicSignals, AccelerometerRawValuesDecodeByTheirTopBit) {
    struct Row {
        uint16_t raw;
        double value;
    } rows[] = {
        {0x0180, 1.0},   {0x8180, 1.5},   {0x00ff, 0.0}, {0x7fff, 127.0},
        {0xffff, 127.99609375}, {0x8000, 0.0}, {0x8001, 0.00390625}, {0x0000, 0.0},
    };
    for (const Row& r : rows) {
        // Each axis in its own slot, so that swapped axes show.
        send(1071, sig::accData(r.raw, 0x0100, 0x0200));
        EXPECT_EQ(std::vector<double>(svc().m_Accel, svc().m_Accel + 3),
                  (std::vector<double>{r.value, 1.0, 2.0})) << std::hex << r.raw;
        send(1071, sig::accData(0, 0, r.raw));
        EXPECT_EQ(svc().m_Accel[2], r.value) << std::hex << r.raw;
    }
    EXPECT_EQ(Bytes(svc().m_AccData, svc().m_AccData + 40), sig::accData(0, 0, 0));
    for (uint32_t e = 9; e <= 11; ++e) EXPECT_TRUE(svc().isEventValid(e));
    EXPECT_FALSE(svc().isEventValid(12));
}

TEST_F(BasicSignals, GpsKeepsTheFirst52BytesOfALongerRecord) {
    send(1073, sig::gpsInfo(2, 60));
    EXPECT_EQ(Bytes(svc().m_GpsInfo, svc().m_GpsInfo + 52), sig::gpsInfo(2, 52));
    EXPECT_TRUE(svc().isEventValid(12));
    send(1073, sig::gpsInfo(5, 52));
    EXPECT_EQ(svc().m_GpsInfo[8], 5);
}

TEST_F(BasicSignals, SpeedIsKeptInMilesPerHour) {
    struct Row {
        uint8_t unit;
        uint32_t speed;
        double mph;
    } rows[] = {
        {0x00, 100, 100 * 0.6213712},
        {0x01, 100, 100.0},
        {0xFE, 100, 100 * 0.6213712},  // only bit 0 of the unit counts
        {0x03, 100, 100.0},
        {0x01, 4294967295u, 4294967295.0},  // unsigned, stays positive
        {0x00, 0, 0.0},
    };
    for (const Row& r : rows) {
        h.clearLines();
        send(6777, sig::speedInfo(r.unit, r.speed));
        EXPECT_EQ(svc().m_Speed, r.mph) << int(r.unit) << " " << r.speed;
        EXPECT_TRUE(h.hasLine(harness::fmt("==uiSpeedUnit =%d uiCurSpeed =%d \n", r.unit & 1,
                                       static_cast<int>(r.speed))));
    }
    EXPECT_TRUE(svc().isEventValid(14));
}

}  // namespace
