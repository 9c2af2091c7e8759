// The alert pass: every transition of a rule, the hold, the window, the area,
// the tick and the report of the edges.
#include <stdio.h>

#include "ServiceFixture.h"

using harness::Bytes;
using harness::Report;
using harness::six;

namespace {

class AlertPass : public harness::ReadyServiceTest {
protected:
    // The utc printed when alert 7 rose last, or -1.
    long riseUtc() {
        long found = -1;
        long utc = 0;
        char bang = 0;
        for (const std::string& t : h.texts())
            if (sscanf(t.c_str(), "alertID[7] time[%ld] new alert %c", &utc, &bang) == 2) found = utc;
        return found;
    }
};

TEST_F(AlertPass, HoldRestartsOnAFailingPassAndRisesWhenHeldLongEnough) {
    ZelAlertPara_t& r = addRule(7, 5);
    ZelAlertPara_t& hour = addRule(8, 3600);
    speed(50);
    h.cycle();  // idle, and the failure is noted with the pass's time
    EXPECT_EQ(r.bConditionMet + r.bState, 0);
    EXPECT_EQ(r.conditionTime, h.nowUs() / 1000000);  // the pass's utc, before the sleep
    EXPECT_EQ(r.alarmEnd.hour, 12);
    speed(70);
    h.runFor(3);
    speed(50);
    h.cycle();
    EXPECT_EQ(r.bConditionMet, 0);
    speed(70);
    h.cycle();
    long t0 = r.conditionTime;
    Common::_datetime_ start = r.alarmStart;
    EXPECT_EQ(r.bConditionMet + 10 * r.bState, 1);
    for (int i = 0; i < 20 && !r.bState; ++i) h.cycle();
    ASSERT_EQ(r.bState, 1);
    EXPECT_EQ(riseUtc(), t0 + 5);
    EXPECT_EQ(reports(), (std::vector<std::vector<Report>>{{{7, six(start), 0}}}));
    // A clock stepped back behind the start of a hold completes it at once.
    h.stepDeviceOnly(-30);
    h.cycle();
    EXPECT_EQ(hour.bState, 1);
}

TEST_F(AlertPass, ZeroHoldRisesAtOnceIsPatchedOnLaterTicksAndEdgesOfAPassShareOneMessage) {
    const char kModify7[] = "==modify==== alertID[000007]==event[00000000]======\n";
    ZelAlertPara_t& r = addRule(7, 0);
    addRule(2, 0, {{harness::kSpeedEvent, LT, 60.0}});
    speed(70);
    h.cycle();
    ASSERT_EQ(svc().m_bTickDue, 1);
    EXPECT_EQ(r.bState + r.bLastState, 2);
    EXPECT_EQ(reports(), (std::vector<std::vector<Report>>{{{7, six(r.alarmStart), 0}}}));
    EXPECT_EQ(h.countLines(kModify7), 0);  // not in the tick it rose in
    h.runFor(20.5);
    EXPECT_EQ(h.countLines(kModify7), 4);
    EXPECT_EQ(reports().size(), 1u);  // no edge, no message, ticks or not
    speed(50);  // 7 falls in the first failing pass, 2 rises: one message, rule order
    h.cycle();
    EXPECT_EQ(r.bState + r.bConditionMet, 0);
    ASSERT_EQ(reports().size(), 2u);
    Bytes at = reports()[1][1].time;
    EXPECT_EQ(reports()[1], (std::vector<Report>{{7, six(r.alarmEnd), 1}, {2, at, 0}}));
}

TEST_F(AlertPass, DailyWindowIncludesBothBoundsNeverWrapsAndAZeroBoundAlwaysHolds) {
    struct { int startH, endH, hour, minute, second; bool holds; } rows[] = {
        {8, 17, 7, 59, 59, false}, {8, 17, 8, 0, 0, true},   {8, 17, 17, 0, 0, true},
        {8, 17, 17, 0, 1, false},  {22, 6, 23, 0, 0, false}, {22, 6, 3, 0, 0, false},
        {23, -1, 3, 0, 0, true},  // -1: an end of all zeros
    };
    auto at = [](int hour) { return harness::dateTime(21, 6, 15, uint8_t(hour), 0, 0); };
    ZelAlertPara_t& r = addRule(5, 0, {});  // no triggers: area and window decide
    for (const auto& row : rows) {
        r.startTime = at(row.startH);
        r.endTime = row.endH < 0 ? Common::_datetime_{} : at(row.endH);
        // The pass reads the clock after the cycle's 500 ms wait.
        h.setDeviceTime(2026, 3, 5, row.hour, row.minute, row.second);
        h.advance(-0.5);
        h.cycle();
        EXPECT_EQ(r.bConditionMet, row.holds) << row.startH << "-" << row.endH << " " << row.hour;
    }
}

TEST_F(AlertPass, TickFallsInTheFirstPassAndEveryFiveSecondsOfTime) {
    h.cycle();
    EXPECT_EQ(svc().m_bTickDue, 1);
    std::vector<long> ticks;
    for (int i = 0; i < 50; ++i) {  // 30 s of cycles
        h.cycle();
        if (svc().m_bTickDue) ticks.push_back(svc().m_LastTickTime);
    }
    ASSERT_EQ(ticks.size(), 6u);
    for (size_t i = 1; i < ticks.size(); ++i) EXPECT_EQ(ticks[i] - ticks[i - 1], 5);
    h.stepTimeOnly(-7);
    h.cycle();
    EXPECT_EQ(svc().m_bTickDue, 1);
}

TEST_F(AlertPass, LeavingTheAreaEndsTheAlertAndComingBackStartsANewHold) {
    ZelAlertPara_t& r = addRule(9, 2);
    speed(70);
    h.runFor(4);
    ASSERT_EQ(r.bState, 1);
    svc().m_IsInGPSAreaMap[9] = false;
    h.cycle();
    EXPECT_EQ(r.bState, 0);
    svc().m_IsInGPSAreaMap[9] = true;
    h.cycle();
    EXPECT_EQ(r.bConditionMet + 10 * r.bState, 1);
}

}  // namespace
