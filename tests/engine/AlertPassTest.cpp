// The alert pass: every transition of a rule, the hold, the window, the area,
// the tick and the report of the edges.
#include <stdio.h>

#include "ServiceFixture.h"

using harness::Harness;
using harness::Report;
using harness::six;

namespace {

const char kModify7[] = "==modify==== alertID[000007]==event[00000000]======\n";

class AlertPass : public harness::ReadyServiceTest {
protected:
    // utc printed by the latest line of the form `format` (%d id, %d time), or -1.
    long printedUtc(const char* format, uint32_t id) {
        long found = -1;
        for (const harness::DebugLine& l : h.lines()) {
            int gotId = 0, t = 0;
            if (sscanf(l.text.c_str(), format, &gotId, &t) == 2 && gotId == static_cast<int>(id))
                found = t;
        }
        return found;
    }
    long riseUtc(uint32_t id) { return printedUtc("alertID[%d] time[%d] new alert !\n", id); }
    void cycleUntilRunning(const ZelAlertPara_t& r) {
        for (int i = 0; i < 20 && !r.bState; ++i) h.cycle();
    }
};

TEST_F(AlertPass, IdleThatFailsStaysIdleAndNotesTheFailure) {
    ZelAlertPara_t& r = addRule(7, 5);
    speed(50);
    h.cycle();
    EXPECT_EQ(r.bConditionMet + r.bState, 0);
    EXPECT_EQ(r.conditionTime, h.nowUs() / 1000000);  // the pass's utc, before the sleep
    EXPECT_EQ(r.alarmEnd.hour, 12);
    EXPECT_TRUE(h.hasLine("alertID[7]: EventMark == 0x00 !\n"));
    EXPECT_TRUE(reports().empty());
}

TEST_F(AlertPass, HoldingRisesAtTheFirstPassHeldLongEnoughWithTheStartOfTheHold) {
    ZelAlertPara_t& r = addRule(7, 5);
    speed(70);
    h.cycle();
    long t0 = r.conditionTime;
    Common::_datetime_ start = r.alarmStart;
    EXPECT_EQ(printedUtc("alertID[%d] time[%d] all event happen !\n", 7), t0);
    EXPECT_EQ(r.bConditionMet, 1);
    EXPECT_EQ(r.bState, 0);
    cycleUntilRunning(r);
    ASSERT_EQ(r.bState, 1);
    EXPECT_EQ(riseUtc(7), t0 + 5);
    EXPECT_EQ(reports(), (std::vector<std::vector<Report>>{{{7, six(start), 0}}}));
    EXPECT_TRUE(h.hasLine(harness::fmt("==add==alertID[7]==[%02d%02d%02d]==\n", start.hour,
                                       start.minute, start.second)));
}

TEST_F(AlertPass, ZeroHoldRisesInThePassThatFirstHolds) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.cycle();
    EXPECT_EQ(r.bState + r.bLastState, 2);
    EXPECT_EQ(reports(), (std::vector<std::vector<Report>>{{{7, six(r.alarmStart), 0}}}));
    // Level 3 only: the log dialogue (level 2) follows the add line.
    std::vector<std::string> t = h.texts(3);
    auto it = std::find_if(t.begin(), t.end(), [](const std::string& s) {
        return s.find("alertID[7] time[") == 0;
    });
    ASSERT_GE(t.end() - it, 3);
    EXPECT_NE(it[0].find("all event happen"), std::string::npos);
    EXPECT_NE(it[1].find("new alert"), std::string::npos);
    EXPECT_EQ(it[2].find("==add==alertID[7]==["), 0u);
}

TEST_F(AlertPass, OneFailingPassDuringTheHoldRestartsIt) {
    ZelAlertPara_t& r = addRule(7, 5);
    speed(70);
    h.runFor(3);
    speed(50);
    h.cycle();
    EXPECT_EQ(r.bConditionMet, 0);
    speed(70);
    h.cycle();
    long restart = r.conditionTime;
    cycleUntilRunning(r);
    EXPECT_EQ(riseUtc(7), restart + 5);
}

TEST_F(AlertPass, RunningAlertIsPatchedOnEachTickButNotInTheTickItRoseIn) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.cycle();
    ASSERT_EQ(svc().m_bTickDue, 1);
    ASSERT_EQ(r.bState, 1);
    EXPECT_EQ(h.countLines(kModify7), 0);
    h.clearSent();
    h.clearLines();
    h.runFor(20.5);
    EXPECT_EQ(h.countLines(kModify7), 4);
    EXPECT_TRUE(reports().empty());
}

TEST_F(AlertPass, RunningAlertFallsInTheFirstFailingPass) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.runFor(3);
    speed(60);  // GT excludes the threshold
    h.cycle();
    EXPECT_EQ(r.bState + r.bConditionMet, 0);
    ASSERT_EQ(reports().size(), 2u);
    EXPECT_EQ(reports()[1], (std::vector<Report>{{7, six(r.alarmEnd), 1}}));
    EXPECT_TRUE(h.hasLine(harness::fmt("==delete==alertID[7]==[%02d%02d%02d]==\n",
                                       r.alarmEnd.hour, r.alarmEnd.minute, r.alarmEnd.second)));
}

TEST_F(AlertPass, FirstFalseTriggerEndsTheRulesEvaluation) {
    addRule(7, 0, {{harness::kSpeedEvent, GT, 60.0}, {9, GT, 1.0}});
    const char kAccelX[] = "Event[9][AccelX] the value is Invalid !\n";
    speed(50);
    h.cycle();
    EXPECT_FALSE(h.hasLine(kAccelX));
    speed(70);
    h.cycle();
    EXPECT_TRUE(h.hasLine(kAccelX));
}

TEST_F(AlertPass, DailyWindowIncludesBothBoundsNeverWrapsAndAZeroBoundAlwaysHolds) {
    struct Row {
        int startH, endH, hour, minute, second;
        bool holds;
    } rows[] = {
        {8, 17, 7, 59, 59, false}, {8, 17, 8, 0, 0, true},   {8, 17, 17, 0, 0, true},
        {8, 17, 17, 0, 1, false},  {22, 6, 23, 0, 0, false}, {22, 6, 3, 0, 0, false},
        {23, -1, 3, 0, 0, true},  // -1: an end of all zeros
    };
    ZelAlertPara_t& r = addRule(5, 0, {});  // no triggers: area and window decide
    for (const Row& row : rows) {
        r.startTime = harness::dateTime(21, 6, 15, static_cast<uint8_t>(row.startH), 0, 0);
        r.endTime = row.endH < 0 ? Common::_datetime_{}
                                 : harness::dateTime(21, 6, 15, static_cast<uint8_t>(row.endH), 0, 0);
        // The pass reads the clock after the cycle's 500 ms wait.
        h.setDeviceTime(2026, 3, 5, row.hour, row.minute, row.second);
        h.advance(-0.5);
        h.cycle();
        EXPECT_EQ(r.bConditionMet, row.holds ? 1 : 0)
            << row.startH << "-" << row.endH << " at " << row.hour << ":" << row.minute << ":"
            << row.second;
    }
    EXPECT_EQ(r.bState, 1);
}

TEST_F(AlertPass, ClockSteppedBackBehindTheHoldCompletesItAtOnce) {
    ZelAlertPara_t& r = addRule(7, 3600);
    speed(70);
    h.cycle();
    h.stepDeviceOnly(-30);
    h.cycle();
    EXPECT_EQ(r.bState, 1);
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

TEST_F(AlertPass, EdgesOfOnePassShareOneMessageInRuleOrder) {
    addRule(1, 0);
    addRule(2, 0, {{harness::kSpeedEvent, LT, 60.0}});
    speed(70);
    h.cycle();
    speed(50);
    h.cycle();
    auto r = reports();
    ASSERT_EQ(r.size(), 2u);
    ASSERT_EQ(r[1].size(), 2u);
    EXPECT_EQ(r[1][0].alertID * 10 + r[1][0].ended, 11u);
    EXPECT_EQ(r[1][1].alertID * 10 + r[1][1].ended, 20u);
    h.runFor(10);
    EXPECT_EQ(reports().size(), 2u);  // no edge, no message, ticks or not
}

TEST_F(AlertPass, LeavingTheAreaEndsTheAlertAndComingBackStartsANewHold) {
    ZelAlertPara_t& r = addRule(9, 2);
    speed(70);
    h.runFor(4);
    ASSERT_EQ(r.bState, 1);
    svc().m_IsInGPSAreaMap[9] = false;
    h.cycle();
    EXPECT_EQ(r.bState, 0);
    EXPECT_TRUE(h.hasLine("alertID[9]: checkIsInArea fail !\n"));
    svc().m_IsInGPSAreaMap[9] = true;
    h.cycle();
    EXPECT_EQ(r.bConditionMet, 1);
    EXPECT_EQ(r.bState, 0);
}

// Without storage, then without rules: no rule, no tick, but the watchdog is fed.
TEST(AlertPassGuards, WithoutStorageOrRulesNoRuleNoTickButTheFeedGoesOn) {
    Harness h;
    h.start();
    h.service().m_ParaList.push_back(harness::makeRule(7, 0));
    const ZelAlertPara_t& r = h.service().m_ParaList.front();
    h.runFor(25);
    EXPECT_EQ(h.sentWithId(3).size(), 2u);
    EXPECT_GT(h.countLines("Zel Alert storage plugin have not run success...\n"), 30);
    h.announceStorage();
    h.runFor(20);
    EXPECT_EQ(h.sentWithId(3).size(), 4u);
    EXPECT_GT(h.countLines("Zel Alert get para ...\n"), 10);
    EXPECT_EQ(r.bConditionMet, 0);
    EXPECT_EQ(h.service().m_LastTickTime, 0);
}

}  // namespace
