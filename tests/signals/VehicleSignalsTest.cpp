// Vehicle information and the plate reader: the records that carry their own
// presence bits, so that an accepted record also takes validity away.
#include "SignalMessages.h"

using harness::Bytes;
using sig::Vehicle;

namespace {

const uint32_t kIgnition = 13, kHdTemp = 15, kSysTemp = 16, kSysVolt = 17;

class VehicleSignals : public harness::ServiceTest {
protected:
    void vehicle(const Vehicle& v) { send(1081, sig::vehicleInfo(v)); }
    // A record with every group present and the disk allowed.
    static Vehicle full() { return Vehicle{0x0B, 0x03, 41, 0, 33, 0, 1, 12, 80, 0x09, 0x01}; }
};

TEST_F(VehicleSignals, HundredthsAddWithTheirOwnSignsAndDivideExactly) {
    struct Row {
        int16_t whole, hundredths;
        double value;
    } temps[] = {{45, 50, 45.5}, {-5, -25, -5.25}, {-5, 25, -4.75}, {0, 150, 1.5}, {-40, 0, -40.0}};
    for (const Row& r : temps) {
        Vehicle v = full();
        v.diskInt = v.sysInt = r.whole;
        v.diskDec = v.sysDec = r.hundredths;
        vehicle(v);
        EXPECT_EQ(svc().m_HdTemp, r.value) << r.whole << " " << r.hundredths;
        EXPECT_EQ(svc().m_SysTemp, r.value) << r.whole << " " << r.hundredths;
    }
    struct Volt {
        uint8_t whole, hundredths;
        double value;
    } volts[] = {{12, 34, 12.34}, {12, 150, 13.5}, {255, 255, 257.55}, {10, 29, 10.29}};
    for (const Volt& r : volts) {
        Vehicle v = full();
        v.voltInt = r.whole;
        v.voltDec = r.hundredths;
        vehicle(v);
        EXPECT_EQ(svc().m_SysVolt, r.value) << int(r.whole) << " " << int(r.hundredths);
    }
    // 10.29 is where a multiplication by 0.01 would differ from the division.
    volatile double hundredth = 0.01;
    EXPECT_NE(1029 * hundredth, 10.29);
}

TEST_F(VehicleSignals, EachRecordClearsTheTemperaturesAndVoltageButNotIgnition) {
    vehicle(full());
    svc().m_HdTemp = -1;  // marks: a value stays when its bit falls
    Vehicle empty;        // uiVehicleMask 0
    empty.voltInt = 99;
    vehicle(empty);
    CAlertZelManage& s = svc();
    for (uint32_t e : {kHdTemp, kSysTemp, kSysVolt}) EXPECT_FALSE(s.isEventValid(e)) << e;
    EXPECT_TRUE(s.isEventValid(kIgnition));
    EXPECT_EQ(s.m_Ignition, 1.0);
    EXPECT_EQ(s.m_HdTemp, -1.0);
    EXPECT_EQ(s.m_SysVolt, 12.8);
    EXPECT_EQ(Bytes(s.m_VehicleInfo, s.m_VehicleInfo + 64), sig::vehicleInfo(empty));
}

TEST_F(VehicleSignals, GroupAndPresenceBitsMustBothBeSet) {
    struct Row {
        const char* what;
        uint32_t vehicleMask;
        uint16_t tempMask;
        uint32_t voltMask, statusMask;
        bool sys, volt, ignition;
    } rows[] = {
        {"temperatures without their group", 0x0A, 0x03, 1, 0x09, false, true, true},
        {"voltage without its group", 0x09, 0x03, 1, 0x09, true, false, true},
        {"voltage group without presence", 0x0B, 0x03, 0, 0x09, true, false, true},
        {"status presence without its group", 0x03, 0x03, 1, 0x09, true, true, false},
        {"status group without ignition", 0x0B, 0x03, 1, 0x08, true, true, false},
        {"system temperature absent", 0x0B, 0x02, 1, 0x09, false, true, true},
    };
    for (const Row& r : rows) {
        svc().clearEventValid(kIgnition);  // the one bit a record never clears
        Vehicle v = full();
        v.vehicleMask = r.vehicleMask;
        v.tempMask = r.tempMask;
        v.voltMask = r.voltMask;
        v.statusMask = r.statusMask;
        vehicle(v);
        EXPECT_EQ(svc().isEventValid(kSysTemp), r.sys) << r.what;
        EXPECT_EQ(svc().isEventValid(kSysVolt), r.volt) << r.what;
        EXPECT_EQ(svc().isEventValid(kIgnition), r.ignition) << r.what;
    }
}

TEST_F(VehicleSignals, DiskTemperatureNeedsAReportedHealthyDisk) {
    Vehicle temps = full();
    temps.vehicleMask = 0x01;  // temperatures, no status
    vehicle(temps);
    EXPECT_TRUE(svc().isEventValid(kSysTemp));
    EXPECT_FALSE(svc().isEventValid(kHdTemp));  // no disk status seen yet
    EXPECT_EQ(svc().m_HdTemp, 0.0);

    struct Step {
        uint32_t vehicleMask, statusMask;
        uint8_t status;
        bool diskOk, hdValid;
    } steps[] = {
        {0x0B, 0x09, 0x01, true, true},   // healthy, and it rules its own record
        {0x0B, 0x09, 0x08, false, false},
        {0x0B, 0x09, 0x10, false, false},
        {0x0B, 0x09, 0x18, false, false},
        {0x03, 0x09, 0x00, false, false},  // status without its group: no verdict
        {0x0B, 0x01, 0x00, false, false},  // status group without disk status
        {0x0B, 0x08, 0x00, true, true},
        {0x0B, 0x01, 0x18, true, true},    // the verdict stays until the next status
    };
    for (const Step& st : steps) {
        Vehicle v = full();
        v.vehicleMask = st.vehicleMask;
        v.statusMask = st.statusMask;
        v.status = st.status;
        vehicle(v);
        EXPECT_EQ(svc().m_bDiskTempOk, st.diskOk ? 1 : 0) << std::hex << st.vehicleMask << " "
                                                          << st.statusMask << " " << int(st.status);
        EXPECT_EQ(svc().isEventValid(kHdTemp), st.hdValid);
    }
}

TEST_F(VehicleSignals, PlateReaderValuesAreValidOnlyAsTheLatestRecordSays) {
    struct Step {
        uint8_t mask;
        std::vector<uint8_t> values;
        std::vector<double> expected;  // m_AlprValue afterwards
        uint8_t validBits;             // bit i = event 98 + i
    } steps[] = {
        {0x1F, {1, 2, 3, 4, 255}, {1, 2, 3, 4, 255}, 0x1F},  // 255 stays unsigned
        {0x01, {7, 9, 9, 9, 9}, {7, 2, 3, 4, 255}, 0x01},
        {0x00, {8, 8, 8, 8, 8}, {7, 2, 3, 4, 255}, 0x00},    // values stay, bits fall
        {0xE0, {8, 8, 8, 8, 8}, {7, 2, 3, 4, 255}, 0x00},    // bits 5..7 mean nothing
        {0x12, {0, 20, 0, 0, 40}, {7, 20, 3, 4, 40}, 0x12},
    };
    for (const Step& st : steps) {
        send(8963, sig::alprEvent(st.mask, st.values));
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(svc().m_AlprValue[i], st.expected[i]) << int(st.mask) << " value " << i;
            EXPECT_EQ(svc().isEventValid(98 + i), ((st.validBits >> i) & 1) != 0)
                << int(st.mask) << " bit " << i;
        }
    }
    EXPECT_FALSE(svc().isEventValid(97));
    EXPECT_EQ(h.countLines("=======onGetAlprEvent======!\n"), 5);
}

}  // namespace
