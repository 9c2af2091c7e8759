// The whole device over the real bus: the plug-in in its host with every peer
// beside it, driven by the signal player, zelctl and zel-platform as a person
// would.
#include <time.h>

#include "DeviceRig.h"
#include "PlatformRules.h"

namespace zeltest {
namespace {

using zelctl::alertTimeText;

// A rule set of one rule: alert 7 on a speed above `mph` held `atLeast` seconds.
std::string Speeding(int atLeast, int mph = 60) {
    return "{\"DUMMY100\":[{\"ID\":7,\"ATLEAST\":" + std::to_string(atLeast) +
           ",\"SPEED\":{\"GT\":" + std::to_string(mph) +
           ".0}}],\"CIRCLE100\":[],\"LINE100\":[],\"POLY100\":[],\"RECT100\":[]}";
}

class Device : public Rig {};

TEST_F(Device, RoadOfOneAlertFromItsRuleToTheDecodedLogAndTheServiceStop) {
    StartDevice(Speeding(5), "0 input 2 on\n0 speed 70 mph\n");
    const auto heldSince = Clock::now();
    AlertRecord began;
    AlertRecord ended;
    ASSERT_TRUE(WaitRecord(7, false, &began)) << Out("host");
    // Five seconds on time()'s whole seconds: at least four of real time.
    EXPECT_GE(Clock::now() - heldSince, milliseconds(4000));
    EXPECT_TRUE(Has(Out("player"), "answered request 1032 with the input word (4 bytes)"));
    const std::string state = Zelctl({"state"});
    EXPECT_TRUE(
        Has(state, "1 running alert\n  alert 7          since " + alertTimeText(began.time)))
        << state;

    // The watchdog hears the service's first feed, ten seconds after its
    // start; by then a tick has patched the running alert's frame.
    ASSERT_TRUE(WaitFor([&] {
        std::vector<FrameInfo> f = Frames(DayLog(began));
        return Has(Out("watchdog"), "feed  BasicService.11 (timeout 300000 ms)") && f.size() == 1 &&
               f[0].patched();
    })) << Out("watchdog");

    Zelctl({"send", "speed", "40", "mph"});
    ASSERT_TRUE(WaitRecord(7, true, &ended));
    long long from = 0;
    long long to = 0;
    ASSERT_TRUE(zelctl::alertTimeSeconds(began.time, from) &&
                zelctl::alertTimeSeconds(ended.time, to));
    ASSERT_TRUE(WaitFor([&] {
        return Has(Out("watch"), "alert 7 ended  " + alertTimeText(ended.time) + "  after " +
                                     std::to_string(to - from) + " s");
    })) << Out("watch");
    EXPECT_TRUE(Has(Out("watch"), "alert 7 began  " + alertTimeText(began.time)));

    // The closing patch is one-way: wait for the file to hold it.
    ASSERT_TRUE(WaitFor([&] {
        std::vector<FrameInfo> f = Frames(DayLog(began));
        return f.size() == 1 && Stamp(f[0].end) == Stamp(ended.time);
    }));
    const std::string log = Zelctl({"log", m_dir.Path("logs")});
    EXPECT_TRUE(Has(log, "1 frame\n")) << log;
    EXPECT_TRUE(Has(log, "offset 84     alert 7      start " + alertTimeText(began.time) +
                             "  end " + alertTimeText(ended.time)))
        << log;

    // SIGTERM ends the service cleanly, and it tells the watchdog.
    Stop("host");
    EXPECT_TRUE(WaitFor([&] { return Has(Out("watchdog"), "stop  BasicService.11"); }));
}

TEST_F(Device, RulesAndFenceMessagesFromThePlatformChangeTheRunningAlertsInOrder) {
    StartDevice(Speeding(1));
    Zelctl({"send", "speed", "70", "mph"});
    ASSERT_TRUE(WaitRecord(7, false)) << Out("host");

    // An added rule joins; the running alert goes on.
    WriteText(m_dir.Path("add.json"),
              "{\"DUMMY\":[{\"ID\":8,\"ATLEAST\":0,\"SPEED\":{\"GT\":50.0}}]}");
    EXPECT_TRUE(Has(Run({ZEL_PLATFORM_BIN, "push", "1", m_dir.Path("add.json")}), "sent CMD 1"));
    ASSERT_TRUE(WaitRecord(8, false));
    // Covering the running rule ends its alert; the new limit is not met.
    WriteText(m_dir.Path("cover.json"), Speeding(0, 80));
    EXPECT_TRUE(Has(Zelctl({"rules", "push", "5", m_dir.Path("cover.json")}), "pushed CMD 5"));
    ASSERT_TRUE(WaitRecord(7, true));
    // A rule tied to an area runs only while the vehicle is inside.
    WriteText(m_dir.Path("area.json"),
              "{\"DUMMY\":[{\"ID\":9,\"SPEED\":{\"GT\":40.0}}],\"CIRCLE\":[{\"ID\":9}]}");
    Zelctl({"rules", "push", "1", m_dir.Path("area.json")});
    Run({ZEL_PLATFORM_BIN, "fence-event", "9", "1"});
    ASSERT_TRUE(WaitRecord(9, false));
    Run({ZEL_PLATFORM_BIN, "fence-state", "9", "0"});
    ASSERT_TRUE(WaitRecord(9, true));
    Zelctl({"send", "speed", "40", "mph"});
    ASSERT_TRUE(WaitRecord(8, true));

    const std::vector<AlertRecord> r = Records();
    std::vector<std::pair<uint32_t, bool>> order;
    order.reserve(r.size());
    for (const AlertRecord& x : r) order.emplace_back(x.alertID, x.ended);
    EXPECT_EQ(order, (std::vector<std::pair<uint32_t, bool>>{
                         {7, false}, {8, false}, {7, true}, {9, false}, {9, true}, {8, true}}));
    // The frames of 7, 8 and 9 close at their alerts' reported ends.
    ASSERT_TRUE(WaitFor([&] {
        std::vector<FrameInfo> f = Frames(DayLog(r[0]));
        return f.size() == 3 && Stamp(f[0].end) == Stamp(r[2].time) &&
               Stamp(f[1].end) == Stamp(r[5].time) && Stamp(f[2].end) == Stamp(r[4].time);
    }));
    EXPECT_EQ(RulesApplied(), 4u);  // the rule set and the three pushes

    // The platform serves what it was told since.
    const std::string request = "{\"CMD\":8,\"SOURCE\":100}";
    Send(6796, std::vector<uint8_t>(request.begin(), request.end()));
    ASSERT_TRUE(WaitFor([&] { return m_seen.Count(39564) > 0; }));
    Json::Value set;
    std::string error;
    ASSERT_TRUE(platformpeer::parseJson("reply", m_seen.Find(39564)->payload, set, error)) << error;
    std::vector<std::pair<uint32_t, double>> served;
    for (const Json::Value& rule : set["DUMMY100"])
        served.emplace_back(rule["ID"].asUInt(), rule["SPEED"]["GT"].asDouble());
    std::sort(served.begin(), served.end());
    EXPECT_EQ(served, (std::vector<std::pair<uint32_t, double>>{{7, 80.0}, {8, 50.0}, {9, 40.0}}));
}

TEST_F(Device, StoragePeerAndBrokerKilledAndRestartedTheServiceResumesAndTheLogStaysWhole) {
    StartDevice(Speeding(0));
    Zelctl({"send", "speed", "70", "mph"});
    AlertRecord first;
    AlertRecord ended;
    AlertRecord again;
    AlertRecord endedAgain;
    ASSERT_TRUE(WaitRecord(7, false, &first)) << Out("host");
    ASSERT_TRUE(WaitFor([&] { return Frames(DayLog(first)).size() == 1; }));

    Stop("busd", SIGKILL);
    Stop("storage", SIGKILL);
    m_kids.Start("busd", {Q7X_BUSD_BIN});
    ASSERT_TRUE(WaitListening(m_dir.Path("bus")));
    StartStorage();  // the test's own client is back on the bus

    // The service is back too, once it hears a speed: the new storage process
    // patches the frame the old one wrote, and appends the next alert behind.
    ASSERT_TRUE(WaitFor([&] {
        Zelctl({"send", "speed", "40", "mph"});
        return WaitRecord(7, true, &ended, 1, 0);
    })) << Out("host");
    Zelctl({"send", "speed", "75", "mph"});
    ASSERT_TRUE(WaitRecord(7, false, &again, 2));
    Zelctl({"send", "speed", "30", "mph"});
    ASSERT_TRUE(WaitRecord(7, true, &endedAgain, 2));
    std::vector<FrameInfo> f;
    ASSERT_TRUE(WaitFor([&] {
        f = Frames(DayLog(first));
        return f.size() == 2 && Stamp(f[0].end) == Stamp(ended.time) &&
               Stamp(f[1].end) == Stamp(endedAgain.time);
    })) << Zelctl({"log", m_dir.Path("logs")});
    EXPECT_EQ(f[1].offset, 84u + 60u);
    EXPECT_EQ(Stamp(f[1].start), Stamp(again.time));
    EXPECT_TRUE(Has(Out("storage"), "patched alert 7 at offset 84"));
}

TEST_F(Device, DayRolloverEndsTheAlertAtMidnightAndTheNewDayHasItsOwnLog) {
    // The device's clock starts at 23:59:50 local time.
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    const long sinceMidnight = tm.tm_hour * 3600L + tm.tm_min * 60L + tm.tm_sec;
    // The test's one thread reads and writes the environment.
    const std::string offset = std::to_string(86400 - 10 - sinceMidnight);
    setenv("Q7X_TIME_OFFSET_S", offset.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    StartDevice(Speeding(1));
    unsetenv("Q7X_TIME_OFFSET_S");  // NOLINT(concurrency-mt-unsafe)
    Zelctl({"send", "speed", "70", "mph"});
    AlertRecord began;
    AlertRecord midnight;
    AlertRecord again;
    ASSERT_TRUE(WaitRecord(7, false, &began)) << Out("host");
    EXPECT_EQ(began.time[3], 23);
    ASSERT_TRUE(WaitRecord(7, true, &midnight));
    EXPECT_EQ(midnight.time[3], 0);
    EXPECT_EQ(midnight.time[4], 0);
    EXPECT_NE(DayLog(midnight), DayLog(began));
    // The speed still holds: the alert rises again in the new day.
    ASSERT_TRUE(WaitRecord(7, false, &again, 2));

    std::vector<FrameInfo> before = Frames(DayLog(began));
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(Stamp(before[0].start), Stamp(began.time));
    ASSERT_TRUE(WaitFor([&] {
        for (const FrameInfo& f : Frames(DayLog(midnight)))
            if (Stamp(f.end) == Stamp(midnight.time)) return true;
        return false;
    }));
    // zelctl reads both days' logs whole.
    const std::string log = Zelctl({"log", m_dir.Path("logs")});
    EXPECT_TRUE(Has(log, DayLog(began))) << log;
    EXPECT_TRUE(Has(log, DayLog(midnight))) << log;
}

}  // namespace
}  // namespace zeltest
