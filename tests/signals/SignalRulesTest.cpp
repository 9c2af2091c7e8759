// A rule on each family of signals goes Idle -> Holding -> Running -> Idle on
// real bus messages: the message that makes its trigger hold, the hold time,
// and the message that makes it fail.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

struct Message {
    unsigned int id;
    Bytes payload;
};

struct Family {
    std::string name;
    sInputTrigger trigger;
    Message holds, fails;
    std::vector<Message> before = {};  // e.g. the J1939 table
    int video = 4;
};

void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }

std::vector<Family> families() {
    const uint32_t ccvs = 0x18FEF100;  // wheel speed in bytes 1-2, 1/256 km/h
    Bytes speedTable = sig::j1939Table({{0, 16, 65265, 1, 0, 0.00390625, 0}});
    return {
        {"Inputs", {0, EQ, 1.0}, {1031, sig::ioState(0x1)}, {1031, sig::ioState(0x2)}},
        {"PanicKey", {8, EQ, 1.0}, {1176, sig::panicKey(0x31, 1)}, {1176, sig::panicKey(0x32, 1)}},
        {"Accelerometer", {10, GT, 1.25}, {1071, sig::accData(0, 0x8180, 0)},
         {1071, sig::accData(0, 0x0100, 0)}},
        {"Gps", {12, EQ, 1.0}, {1073, sig::gpsInfo(1)}, {1073, sig::gpsInfo(0)}},
        // 100 km/h is 62.1 mph, 96 km/h is 59.7 mph.
        {"Speed", {14, GT, 60.0}, {6777, sig::speedInfo(0, 100)}, {6777, sig::speedInfo(0, 96)}},
        // A record that leaves the voltage out ends the alert.
        {"VehicleVoltage", {17, GT, 12.0}, {1081, sig::vehicleInfo(sig::Vehicle{2, 0, 0, 0, 0, 0, 1, 13})},
         {1081, sig::vehicleInfo(sig::Vehicle())}},
        {"VehicleIgnition", {13, EQ, 1.0}, {1081, sig::vehicleInfo(sig::Vehicle{8, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1})},
         {1081, sig::vehicleInfo(sig::Vehicle{8, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0})}},
        {"PlateReader", {99, GT, 50.0}, {8963, sig::alprEvent(0x02, {0, 80})},
         {8963, sig::alprEvent(0x00)}},
        {"Motion", {18, EQ, 1.0}, {1288, sig::mdState({0}, {1})}, {1288, sig::mdState({0}, {0})},
         {}, 1},
        {"J1939", {34, GT, 80.0}, {1089, sig::canFrame(ccvs, 90 << 16)},
         {1089, sig::canFrame(ccvs, 50 << 16)}, {{476, speedTable}}},
    };
}

class SignalRule : public harness::ServiceTest, public ::testing::WithParamInterface<Family> {
protected:
    void SetUp() override {
        h.setChannels(GetParam().video, 0);
        up(true, true);
    }
    void send(const Message& m) { ServiceTest::send(m.id, m.payload); }
    // alertID and bEnded of every record sent in 3215 so far.
    std::vector<std::pair<uint32_t, uint8_t>> edges() {
        std::vector<std::pair<uint32_t, uint8_t>> out;
        for (const auto& list : reports())
            for (const harness::Report& r : list) out.push_back({r.alertID, r.ended});
        return out;
    }
};

TEST_P(SignalRule, GoesIdleHoldingRunningIdle) {
    const Family& f = GetParam();
    for (const Message& m : f.before) send(m);
    ZelAlertPara_t& rule = addRule(7, 2, {f.trigger});

    // state: bConditionMet + 10 * bState
    h.cycle();  // no value yet: Idle
    EXPECT_EQ(rule.bConditionMet + 10 * rule.bState, 0);
    send(f.holds);  // Holding
    EXPECT_EQ(rule.bConditionMet + 10 * rule.bState, 1);
    EXPECT_TRUE(edges().empty());
    for (int i = 0; i < 60 && !rule.bState; ++i) h.cycle();  // Running after the hold
    ASSERT_EQ(rule.bState + rule.bLastState, 2);
    EXPECT_EQ(edges(), (std::vector<std::pair<uint32_t, uint8_t>>{{7, 0}}));
    h.runFor(3);  // the signal stays: the alert keeps running
    EXPECT_EQ(rule.bState, 1);
    send(f.fails);  // Idle again in the first failing pass
    EXPECT_EQ(rule.bConditionMet + 10 * rule.bState, 0);
    EXPECT_EQ(edges(), (std::vector<std::pair<uint32_t, uint8_t>>{{7, 0}, {7, 1}}));
}

INSTANTIATE_TEST_SUITE_P(EachFamily, SignalRule, ::testing::ValuesIn(families()),
                         [](const ::testing::TestParamInfo<Family>& param) {
                             return param.param.name;
                         });

}  // namespace
