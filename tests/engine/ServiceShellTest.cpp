// The service's life on the bus: start sequence, subscriptions, watchdog
// feed and stop.
#include <gtest/gtest.h>

#include "Harness.h"

using harness::Bytes;
using harness::Harness;

namespace {

Bytes watchRecord() {  // "BasicService.11", 300000
    Bytes rec = harness::textBytes("BasicService.11");
    rec.resize(32, 0);
    harness::appendLe32(rec, 300000);
    return rec;
}

// id, flag and payload of each message sent so far.
std::vector<std::string> sentList(Harness& h) {
    std::vector<std::string> out;
    for (const harness::SentMessage& m : h.sent())
        out.push_back(std::to_string(m.id) + "/" + std::to_string(m.flag) + "/" +
                      harness::hex(m.payload));
    return out;
}

TEST(ServiceShell, StartAnnouncesSubscribesAndRequestsAndStopUndoesIt) {
    Harness h;
    h.start();
    const std::string watch = harness::hex(watchRecord());
    EXPECT_EQ(sentList(h), (std::vector<std::string>{"6/0/" + watch, "1289/1/", "1071/1/",
                                                     "1032/1/", "475/1/"}));
    EXPECT_EQ(h.registrationOrder(),
              (std::vector<unsigned int>{34057, 1288, 1081, 6777, 1073, 1071, 1176, 33800,
                                         1031, 39564, 6796, 6689, 6795, 33087, 320, 39429,
                                         39439, 2086, 3216, 8963, 476, 33243, 1089}));
    h.clearSent();
    h.stop();
    EXPECT_EQ(sentList(h), (std::vector<std::string>{"7/0/" + watch}));
    EXPECT_TRUE(h.subscriptions().empty());
}

// Storage or not, rules or not. time() moves in whole seconds: a feed falls
// in the cycle after the gap has reached 10, in either direction.
TEST(ServiceShell, WatchdogIsFedEveryTenSecondsAndAfterAClockStepEitherWay) {
    Harness h;
    h.start();
    h.clearSent();
    int64_t t0 = h.nowUs();
    h.runFor(9.5);
    EXPECT_TRUE(h.sentWithId(3).empty());
    h.runFor(21);
    std::vector<harness::SentMessage> feeds = h.sentWithId(3);
    ASSERT_EQ(feeds.size(), 3u);
    for (size_t i = 0; i < feeds.size(); ++i) {
        EXPECT_EQ(feeds[i].payload, watchRecord());
        EXPECT_NEAR((feeds[i].atUs - t0) / 1e6, 10.0 * (i + 1), 1.2);
    }
    // The cycle's own 0.6 s counts against a step back: 11 back is a gap of 10.
    for (long step : {10L, -11L}) {
        h.stepTimeOnly(step);
        h.clearSent();
        h.cycle();
        EXPECT_EQ(h.sentWithId(3).size(), 1u) << "step " << step;
    }
}

// Handlers run from the first wait on; that cycle's rollover stops nothing.
TEST(ServiceShell, FirstCycleTakesTheStorageAnnouncementAndTriesARollover) {
    for (bool storage : {false, true}) {
        Harness h;
        h.start();
        if (storage) h.announceStorage();
        h.clearLines();
        EXPECT_FALSE(h.service().m_bStorageReady);
        h.cycle();
        EXPECT_EQ(h.service().m_bStorageReady, storage);
        EXPECT_EQ(h.service().m_LastTickTime, 0);  // no pass without storage and rules
        std::vector<std::string> t = h.texts(3);
        if (storage) t.resize(2);  // the pass's own lines follow
        EXPECT_EQ(t, (std::vector<std::string>{
                         "======StopAllAlarm==Start=== !\n",
                         storage ? "======StopAllAlarm==End=== !\n"
                                 : "Zel Alert storage plugin have not run success...\n"}));
        EXPECT_TRUE(h.sentWithId(3215).empty());
    }
}

}  // namespace
