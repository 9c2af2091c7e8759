// Vehicle information and the plate reader: the records that carry their own
// presence bits, so that an accepted record also takes validity away.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

const uint32_t kIgnition = 13, kHdTemp = 15, kSysTemp = 16, kSysVolt = 17;
// What a vehicle record leaves counting, as bits.
const int kSys = 1, kVolt = 2, kIgn = 4, kDiskOk = 8, kHd = 16;

class VehicleSignals : public harness::ServiceTest {
protected:
    template <typename... Fields>
    void vehicle(Fields... f) {
        send(1081, sig::vehicleInfo(f...));
    }
};

TEST_F(VehicleSignals, HundredthsAddWithTheirOwnSignsAndDivideExactly) {
    struct { int16_t whole, hundredths; double value; } rows[] = {
        {45, 50, 45.5}, {-5, -25, -5.25}, {-5, 25, -4.75}, {0, 150, 1.5}, {255, 255, 257.55},
        {10, 29, 10.29}};  // 10.29: not 1029 * 0.01
    for (auto [w, c, value] : rows) {
        // Every group present, the disk healthy; the disk gets the negated
        // values and the voltage (unsigned bytes) the non-negative ones.
        bool volt = w >= 0 && c >= 0;
        vehicle(0x0B, 0x03, w, c, -w, -c, 1, volt ? w : 0, volt ? c : 0, 0x09, 0x01);
        EXPECT_EQ(svc().m_SysTemp, value) << w << " " << c;
        EXPECT_EQ(svc().m_HdTemp, -value) << w << " " << c;
        EXPECT_EQ(svc().m_SysVolt, volt ? value : 0.0) << w << " " << c;
    }
}

TEST_F(VehicleSignals, EachRecordClearsTheTemperaturesAndVoltageButNotIgnition) {
    vehicle(0x0B, 0x03, 41, 0, 33, 0, 1, 12, 80, 0x09, 0x01);
    svc().m_HdTemp = -1;  // a value stays when its bit falls
    vehicle(0, 0, 0, 0, 0, 0, 0, 99);  // no group present
    CAlertZelManage& s = svc();
    for (uint32_t e : {kHdTemp, kSysTemp, kSysVolt}) EXPECT_FALSE(s.isEventValid(e)) << e;
    EXPECT_TRUE(s.isEventValid(kIgnition));
    EXPECT_EQ(s.m_Ignition, 1.0);
    EXPECT_EQ(s.m_HdTemp, -1.0);
    EXPECT_EQ(s.m_SysVolt, 12.8);
    EXPECT_EQ(Bytes(s.m_VehicleInfo, s.m_VehicleInfo + 64),
              sig::vehicleInfo(0, 0, 0, 0, 0, 0, 0, 99));
}

// Each value needs its group bit and its presence bit; the disk temperature
// also a healthy disk, by the latest record that carried a disk status.
TEST_F(VehicleSignals, GroupPresenceAndDiskStatusDecideWhatCounts) {
    vehicle(0x01, 0x03, 41, 0, 33);  // temperatures, no disk verdict yet
    EXPECT_TRUE(svc().isEventValid(kSysTemp));
    EXPECT_FALSE(svc().isEventValid(kHdTemp));
    struct {
        const char* what;
        uint32_t vehicleMask, tempMask, voltMask, statusMask, status;
        int counts;
    } rows[] = {
        {"all present", 0x0B, 3, 1, 0x09, 0x01, kSys | kVolt | kIgn | kDiskOk | kHd},
        {"temperatures without group", 0x0A, 3, 1, 0x09, 0x01, kVolt | kIgn | kDiskOk},
        {"voltage without group", 0x09, 3, 1, 0x09, 0x01, kSys | kIgn | kDiskOk | kHd},
        {"voltage without presence", 0x0B, 3, 0, 0x09, 0x01, kSys | kIgn | kDiskOk | kHd},
        {"system temperature absent", 0x0B, 2, 1, 0x09, 0x01, kVolt | kIgn | kDiskOk | kHd},
        {"disk status 0x08", 0x0B, 3, 1, 0x09, 0x08, kSys | kVolt | kIgn},
        {"status without ignition", 0x0B, 3, 1, 0x08, 0x00, kSys | kVolt | kDiskOk | kHd},
        {"disk status 0x10", 0x0B, 3, 1, 0x09, 0x10, kSys | kVolt | kIgn},
        {"status without group: no verdict", 0x03, 3, 1, 0x09, 0x00, kSys | kVolt},
        {"status without disk status: no verdict", 0x0B, 3, 1, 0x01, 0x00, kSys | kVolt | kIgn},
        {"healthy again", 0x0B, 3, 1, 0x08, 0x00, kSys | kVolt | kDiskOk | kHd},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        svc().clearEventValid(kIgnition);  // the one bit a record never clears
        vehicle(r.vehicleMask, r.tempMask, 41, 0, 33, 0, r.voltMask, 12, 80, r.statusMask,
                r.status);
        CAlertZelManage& s = svc();
        int counts = (s.isEventValid(kSysTemp) ? kSys : 0) | (s.isEventValid(kSysVolt) ? kVolt : 0) |
                     (s.isEventValid(kIgnition) ? kIgn : 0) | (s.m_bDiskTempOk ? kDiskOk : 0) |
                     (s.isEventValid(kHdTemp) ? kHd : 0);
        EXPECT_EQ(counts, r.counts);
        EXPECT_TRUE(!(counts & kIgn) || s.m_Ignition == (r.status & 1));
    }
}

TEST_F(VehicleSignals, PlateReaderValuesAreValidOnlyAsTheLatestRecordSays) {
    struct { uint8_t mask; std::vector<uint8_t> values; std::vector<double> kept; } steps[] = {
        {0x1F, {1, 2, 3, 4, 255}, {1, 2, 3, 4, 255}},  // 255 stays unsigned
        {0x01, {7, 9, 9, 9, 9}, {7, 2, 3, 4, 255}},
        {0xE0, {8, 8, 8, 8, 8}, {7, 2, 3, 4, 255}},  // values stay, bits fall; 5..7 mean nothing
        {0x12, {0, 20, 0, 0, 40}, {7, 20, 3, 4, 40}},
    };
    for (const auto& st : steps) {
        send(8963, sig::alprEvent(st.mask, st.values));
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(svc().m_AlprValue[i], st.kept[i]) << int(st.mask) << " value " << i;
            EXPECT_EQ(svc().isEventValid(98 + i), ((st.mask >> i) & 1) != 0)
                << int(st.mask) << " bit " << i;
        }
    }
    EXPECT_FALSE(svc().isEventValid(97));
}

}  // namespace
