// The whole device over the real bus: the plug-in in its host with every peer
// beside it, driven by the signal player and zelctl as a person would.
#include <time.h>

#include "DeviceRig.h"

namespace zeltest {
namespace {

using zelctl::AlertRecord;
using zelctl::alertTimeText;

std::string RuleSet(const std::string& rules) {
    return "{\"DUMMY100\":[" + rules +
           "],\"CIRCLE100\":[],\"LINE100\":[],\"POLY100\":[],\"RECT100\":[]}";
}

const std::string kSpeeding = RuleSet("{\"ID\":7,\"ATLEAST\":5,\"SPEED\":{\"GT\":60.0}}");
const std::string kQuickSpeeding = RuleSet("{\"ID\":7,\"ATLEAST\":1,\"SPEED\":{\"GT\":60.0}}");
const std::string kInstantSpeeding = RuleSet("{\"ID\":7,\"ATLEAST\":0,\"SPEED\":{\"GT\":60.0}}");

typedef DeviceRig Device;

long long Seconds(const AlertRecord& r) {
    long long s = 0;
    EXPECT_TRUE(zelctl::alertTimeSeconds(r.time, s));
    return s;
}

TEST_F(Device, RoadOfOneAlertFromItsRuleToTheDecodedLog) {
    StartDevice(kSpeeding, "0 input 2 on\n0 speed 70 mph\n");
    const auto heldSince = q7xtest::Clock::now();
    AlertRecord began, ended;
    ASSERT_TRUE(WaitRecord(7, false, &began)) << Out("host");
    // Five seconds on time()'s whole seconds: at least four of real time.
    EXPECT_GE(q7xtest::Clock::now() - heldSince, milliseconds(4000));
    EXPECT_EQ(m_seen.Count(6661), 1u);
    EXPECT_TRUE(Has(Out("player"), "answered request 1032 with the input word (4 bytes)"));
    EXPECT_TRUE(Has(Out("watchdog"), "start BasicService.11 (timeout 300000 ms)"));

    const std::string state = Zelctl({"state"});
    EXPECT_TRUE(Has(state, "1 running alert\n")) << state;
    EXPECT_TRUE(Has(state, "alert 7          since " + alertTimeText(began.time))) << state;

    Zelctl({"send", "speed", "40", "mph"});
    ASSERT_TRUE(WaitRecord(7, true, &ended));
    EXPECT_GE(m_seen.Count(6668), 1u);
    const std::string after = "after " + std::to_string(Seconds(ended) - Seconds(began)) + " s";
    ASSERT_TRUE(WaitFor([&] {
        return Has(Out("watch"), "alert 7 ended  " + alertTimeText(ended.time) + "  " + after);
    })) << Out("watch");
    EXPECT_TRUE(Has(Out("watch"), "alert 7 began  " + alertTimeText(began.time)));

    // The closing patch is one-way: wait for the file to hold it.
    ASSERT_TRUE(WaitFor([&] {
        std::vector<zelstore::FrameInfo> f = Frames(DayOf(began));
        return f.size() == 1 && Stamp(f[0].end) == Stamp(ended.time);
    }));
    const std::string log = Zelctl({"log", m_dir.Path("logs")});
    EXPECT_TRUE(Has(log, "1 frame\n")) << log;
    EXPECT_TRUE(Has(log, "offset 84     alert 7      start " + alertTimeText(began.time) +
                             "  end " + alertTimeText(ended.time)))
        << log;
}

TEST_F(Device, RulesPushedWhileAnAlertRunsLeaveItOrEndItAsTheyShould) {
    StartDevice(kQuickSpeeding);
    Zelctl({"send", "speed", "70", "mph"});
    ASSERT_TRUE(WaitRecord(7, false)) << Out("host");

    // An added rule joins; the running alert goes on.
    WriteText(m_dir.Path("add.json"),
              "{\"DUMMY\":[{\"ID\":8,\"ATLEAST\":0,\"SPEED\":{\"GT\":50.0}}]}");
    EXPECT_TRUE(Has(Zelctl({"rules", "push", "1", m_dir.Path("add.json")}), "pushed CMD 1"));
    ASSERT_TRUE(WaitRecord(8, false));
    // Covering the running rule ends its alert; the new limit is not met.
    WriteText(m_dir.Path("cover.json"),
              RuleSet("{\"ID\":7,\"ATLEAST\":0,\"SPEED\":{\"GT\":80.0}}"));
    Zelctl({"rules", "push", "5", m_dir.Path("cover.json")});
    ASSERT_TRUE(WaitRecord(7, true));

    const std::string state = Zelctl({"state"});
    EXPECT_TRUE(Has(state, "1 running alert\n  alert 8 ")) << state;
    Zelctl({"send", "speed", "40", "mph"});
    ASSERT_TRUE(WaitRecord(8, true));

    std::vector<std::pair<uint32_t, bool>> order;
    for (const AlertRecord& r : Records()) order.push_back({r.alertID, r.ended});
    EXPECT_EQ(order, (std::vector<std::pair<uint32_t, bool>>{
                         {7, false}, {8, false}, {7, true}, {8, true}}));
    const std::vector<AlertRecord> r = Records();
    ASSERT_TRUE(WaitFor([&] {
        std::vector<zelstore::FrameInfo> f = Frames(DayOf(r[0]));
        return f.size() == 2 && Stamp(f[0].end) == Stamp(r[2].time) &&
               Stamp(f[1].end) == Stamp(r[3].time);
    }));
    EXPECT_EQ(RulesApplied(), 3u);  // the rule set and the two pushes
}

TEST_F(Device, StoragePeerKilledAndRestartedKeepsTheLogWhole) {
    StartDevice(kInstantSpeeding);
    Zelctl({"send", "speed", "70", "mph"});
    AlertRecord first;
    ASSERT_TRUE(WaitRecord(7, false, &first)) << Out("host");
    ASSERT_TRUE(WaitFor([&] { return Frames(DayOf(first)).size() == 1; }));

    const size_t announced = m_seen.Count(2086);
    Kill9("storage");
    RestartStorage();
    ASSERT_TRUE(WaitSeen(2086, announced + 1)) << Out("storage");

    // The new storage process patches the frame the old one wrote, and
    // appends the next alert behind it.
    AlertRecord ended, again, endedAgain;
    Zelctl({"send", "speed", "40", "mph"});
    ASSERT_TRUE(WaitRecord(7, true, &ended));
    Zelctl({"send", "speed", "75", "mph"});
    ASSERT_TRUE(WaitRecord(7, false, &again, 2));
    Zelctl({"send", "speed", "30", "mph"});
    ASSERT_TRUE(WaitRecord(7, true, &endedAgain, 2));
    ASSERT_TRUE(WaitFor([&] {
        std::vector<zelstore::FrameInfo> f = Frames(DayOf(first));
        return f.size() == 2 && Stamp(f[0].end) == Stamp(ended.time) &&
               Stamp(f[1].end) == Stamp(endedAgain.time);
    })) << Zelctl({"log", m_dir.Path("logs")});
    const std::vector<zelstore::FrameInfo> f = Frames(DayOf(first));
    EXPECT_EQ(f[1].offset, 84u + 60u);
    EXPECT_EQ(Stamp(f[1].start), Stamp(again.time));
    EXPECT_TRUE(Has(Out("storage"), "patched alert 7 at offset 84"));
}

// The device's clock (service and storage) starts at 23:59:50 local time.
TEST_F(Device, DayRolloverEndsTheAlertAtMidnightAndTheNewDayHasItsOwnLog) {
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    const long sinceMidnight = tm.tm_hour * 3600L + tm.tm_min * 60L + tm.tm_sec;
    StartDevice(kQuickSpeeding, "",
                {"Q7X_TIME_OFFSET_S=" + std::to_string(86400 - 10 - sinceMidnight)});
    Zelctl({"send", "speed", "70", "mph"});
    AlertRecord began, midnight, again;
    ASSERT_TRUE(WaitRecord(7, false, &began)) << Out("host");
    EXPECT_EQ(began.time[3], 23);
    ASSERT_TRUE(WaitRecord(7, true, &midnight));
    EXPECT_EQ(midnight.time[3], 0);
    EXPECT_EQ(midnight.time[4], 0);
    EXPECT_FALSE(DayOf(midnight) == DayOf(began));
    // The speed still holds: the alert rises again in the new day.
    ASSERT_TRUE(WaitRecord(7, false, &again, 2));

    ASSERT_TRUE(WaitFor([&] {
        return Has(Out("watch"), "alert 7 ended  " + alertTimeText(midnight.time) + "  after ");
    })) << Out("watch");
    std::vector<zelstore::FrameInfo> before = Frames(DayOf(began));
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(Stamp(before[0].start), Stamp(began.time));
    std::vector<zelstore::FrameInfo> after;
    ASSERT_TRUE(WaitFor([&] {
        after = Frames(DayOf(midnight));
        for (const zelstore::FrameInfo& f : after)
            if (Stamp(f.end) == Stamp(midnight.time)) return true;
        return false;
    }));
    // zelctl reads both days' logs whole.
    const std::string log = Zelctl({"log", m_dir.Path("logs")});
    EXPECT_TRUE(Has(log, zelstore::logFileName(19, DayOf(began)))) << log;
    EXPECT_TRUE(Has(log, zelstore::logFileName(19, DayOf(midnight)))) << log;
}

}  // namespace
}  // namespace zeltest
