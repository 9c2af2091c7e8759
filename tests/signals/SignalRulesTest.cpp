// A rule on each family of signals goes Idle -> Holding -> Running -> Idle on
// real bus messages: the message that makes its trigger hold, the hold time,
// and the message that makes it fail.
#include <gtest/gtest.h>

#include "ByteOrder.h"
#include "SignalMessages.h"

using harness::Bytes;
using harness::Harness;

namespace {

struct Message {
    unsigned int id;
    Bytes payload;
};

struct Family {
    std::string name;
    sInputTrigger trigger;
    std::vector<Message> before;  // e.g. the J1939 table
    Message holds;
    Message fails;
    int video = 4;
};

void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }

sig::Vehicle volts(uint8_t whole, uint8_t hundredths) {
    sig::Vehicle v;
    v.vehicleMask = 0x02;
    v.voltMask = 1;
    v.voltInt = whole;
    v.voltDec = hundredths;
    return v;
}

sig::Vehicle ignition(bool on) {
    sig::Vehicle v;
    v.vehicleMask = 0x08;
    v.statusMask = 0x01;
    v.status = on ? 1 : 0;
    return v;
}

std::vector<Family> families() {
    const uint32_t ccvs = 0x18FEF100;  // wheel speed in bytes 1-2, 1/256 km/h
    Bytes speedTable = sig::j1939Table({{0, 16, 65265, 1, 0, 0.00390625, 0}});
    std::vector<Family> f(10);
    f[0] = {"Inputs", {0, EQ, 1.0}, {}, {1031, sig::ioState(0x1)}, {1031, sig::ioState(0x2)}};
    f[1] = {"PanicKey", {8, EQ, 1.0}, {}, {1176, sig::panicKey(0x31, 1)},
            {1176, sig::panicKey(0x32, 1)}};
    f[2] = {"Accelerometer", {10, GT, 1.25}, {}, {1071, sig::accData(0, 0x8180, 0)},
            {1071, sig::accData(0, 0x0100, 0)}};
    f[3] = {"Gps", {12, EQ, 1.0}, {}, {1073, sig::gpsInfo(1)}, {1073, sig::gpsInfo(0)}};
    // 100 km/h is 62.1 mph, 96 km/h is 59.7 mph.
    f[4] = {"Speed", {14, GT, 60.0}, {}, {6777, sig::speedInfo(0, 100)},
            {6777, sig::speedInfo(0, 96)}};
    // A record that leaves the voltage out ends the alert.
    f[5] = {"VehicleVoltage", {17, GT, 12.0}, {}, {1081, sig::vehicleInfo(volts(12, 80))},
            {1081, sig::vehicleInfo(sig::Vehicle())}};
    f[6] = {"VehicleIgnition", {13, EQ, 1.0}, {}, {1081, sig::vehicleInfo(ignition(true))},
            {1081, sig::vehicleInfo(ignition(false))}};
    f[7] = {"PlateReader", {99, GT, 50.0}, {}, {8963, sig::alprEvent(0x02, {0, 80})},
            {8963, sig::alprEvent(0x00)}};
    f[8] = {"Motion", {18, EQ, 1.0}, {}, {1288, sig::mdState({0}, {1})},
            {1288, sig::mdState({0}, {0})}, 1};
    f[9] = {"J1939", {34, GT, 80.0}, {{476, speedTable}}, {1089, sig::canFrame(ccvs, 90 << 16)},
            {1089, sig::canFrame(ccvs, 50 << 16)}};
    return f;
}

class SignalRule : public ::testing::TestWithParam<Family> {
protected:
    void SetUp() override {
        h.setChannels(GetParam().video, 0);
        h.start();
        h.announceStorage();
        h.cycle();
        svc().m_bParaReady = 1;
        h.clearSent();
    }
    CAlertZelManage& svc() { return h.service(); }
    void send(const Message& m) {
        h.inject(m.id, m.payload);
        h.cycle();
    }
    // alertID and bEnded of every record sent in 3215 so far.
    std::vector<std::pair<uint32_t, uint8_t>> reports() {
        std::vector<std::pair<uint32_t, uint8_t>> out;
        for (const harness::SentMessage& m : h.sentWithId(3215)) {
            uint32_t count = zel::getLe32(m.payload.data(), 0);
            for (uint32_t i = 0; i < count && 8 + 32 * (i + 1) <= m.payload.size(); ++i) {
                const uint8_t* rec = m.payload.data() + 8 + 32 * i;
                out.push_back(std::make_pair(zel::getLe32(rec, 0), rec[24]));
            }
        }
        return out;
    }

    Harness h;
};

TEST_P(SignalRule, GoesIdleHoldingRunningIdle) {
    const Family& f = GetParam();
    for (const Message& m : f.before) send(m);
    svc().m_ParaList.push_back(harness::makeRule(7, 2, {f.trigger}));
    ZelAlertPara_t& rule = svc().m_ParaList.back();

    h.cycle();  // no value yet: Idle
    EXPECT_EQ(rule.bConditionMet, 0);
    EXPECT_EQ(rule.bState, 0);

    send(f.holds);  // Holding
    EXPECT_EQ(rule.bConditionMet, 1);
    EXPECT_EQ(rule.bState, 0);
    EXPECT_TRUE(reports().empty());

    for (int i = 0; i < 60 && !rule.bState; ++i) h.cycle();  // Running after the hold
    ASSERT_EQ(rule.bState, 1);
    EXPECT_EQ(rule.bLastState, 1);
    std::vector<std::pair<uint32_t, uint8_t>> began = {{7, 0}};
    EXPECT_EQ(reports(), began);

    h.runFor(3);  // the signal stays: the alert keeps running
    EXPECT_EQ(rule.bState, 1);

    send(f.fails);  // Idle again in the first failing pass
    EXPECT_EQ(rule.bState, 0);
    EXPECT_EQ(rule.bConditionMet, 0);
    std::vector<std::pair<uint32_t, uint8_t>> ended = {{7, 0}, {7, 1}};
    EXPECT_EQ(reports(), ended);
}

INSTANTIATE_TEST_SUITE_P(EachFamily, SignalRule, ::testing::ValuesIn(families()),
                         [](const ::testing::TestParamInfo<Family>& param) {
                             return param.param.name;
                         });

}  // namespace
