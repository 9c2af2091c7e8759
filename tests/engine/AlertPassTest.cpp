// The alert pass: every transition of a rule, the hold, the window, the area,
// the tick and the report of the edges.
#include <stdio.h>

#include <gtest/gtest.h>

#include "ByteOrder.h"
#include "Harness.h"

using harness::Harness;
using harness::makeRule;

namespace {

const uint32_t kSpeed = 14;

sInputTrigger speedOver(double mph) { return sInputTrigger{kSpeed, GT, mph}; }

struct Report {
    uint32_t alertID;
    std::vector<uint8_t> time;
    uint8_t ended;
};

class AlertPass : public ::testing::Test {
protected:
    void SetUp() override {
        h.start();
        h.announceStorage();
        h.cycle();
        svc().m_bParaReady = 1;
        h.clearSent();
        h.clearLines();
    }

    CAlertZelManage& svc() { return h.service(); }

    ZelAlertPara_t& addRule(uint32_t id, uint32_t atLeast,
                            std::vector<sInputTrigger> triggers = {speedOver(60.0)}) {
        svc().m_ParaList.push_back(makeRule(id, atLeast, triggers));
        return svc().m_ParaList.back();
    }

    void speed(double mph) {
        svc().m_Speed = mph;
        svc().setEventValid(kSpeed);
    }

    // The messages 3215 sent so far, decoded.
    std::vector<std::vector<Report>> reports() {
        std::vector<std::vector<Report>> out;
        for (const harness::SentMessage& m : h.sentWithId(3215)) {
            uint32_t count = zel::getLe32(m.payload.data(), 0);
            EXPECT_EQ(zel::getLe32(m.payload.data(), 4), count * 32);
            EXPECT_EQ(m.payload.size(), 8 + count * 32);
            std::vector<Report> list;
            for (uint32_t i = 0; i < count; ++i) {
                const uint8_t* rec = m.payload.data() + 8 + 32 * i;
                list.push_back(Report{zel::getLe32(rec, 0),
                                      std::vector<uint8_t>(rec + 16, rec + 22), rec[24]});
                EXPECT_EQ(zel::getLe64(rec, 8), 0u);
            }
            out.push_back(list);
        }
        return out;
    }

    // utc printed by the latest line that has the form `format` (one %d for
    // the id, one for the time), or -1.
    long printedUtc(const char* format, uint32_t id) {
        long found = -1;
        for (const harness::DebugLine& l : h.lines()) {
            int gotId = 0, t = 0;
            if (sscanf(l.text.c_str(), format, &gotId, &t) == 2 &&
                gotId == static_cast<int>(id))
                found = t;
        }
        return found;
    }

    static std::vector<uint8_t> six(const Common::_datetime_& dt) {
        const uint8_t* p = reinterpret_cast<const uint8_t*>(&dt);
        return std::vector<uint8_t>(p, p + 6);
    }

    Harness h;
};

TEST_F(AlertPass, IdleThatFailsStaysIdleAndNotesTheFailure) {
    ZelAlertPara_t& r = addRule(7, 5);
    speed(50);
    h.cycle();
    EXPECT_EQ(r.bConditionMet, 0);
    EXPECT_EQ(r.bState, 0);
    EXPECT_EQ(r.conditionTime, h.nowUs() / 1000000 - 0);  // the pass's utc, before the sleep
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
    for (int i = 0; i < 20 && !r.bState; ++i) h.cycle();
    ASSERT_EQ(r.bState, 1);
    long rise = printedUtc("alertID[%d] time[%d] new alert !\n", 7);
    EXPECT_EQ(rise, t0 + 5);
    std::vector<std::vector<Report>> reps = reports();
    ASSERT_EQ(reps.size(), 1u);
    const Report& rep = reps[0][0];
    EXPECT_EQ(rep.alertID, 7u);
    EXPECT_EQ(rep.ended, 0);
    EXPECT_EQ(rep.time, six(start));
    char add[64];
    snprintf(add, sizeof add, "==add==alertID[7]==[%02d%02d%02d]==\n", start.hour, start.minute,
             start.second);
    EXPECT_TRUE(h.hasLine(add));
}

TEST_F(AlertPass, ZeroHoldRisesInThePassThatFirstHolds) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.cycle();
    EXPECT_EQ(r.bState, 1);
    EXPECT_EQ(r.bLastState, 1);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0][0].time, six(r.alarmStart));
    // Level 3 only: the log dialogue (level 2) follows the add line.
    std::vector<std::string> texts;
    for (const harness::DebugLine& l : h.lines())
        if (l.level == 3) texts.push_back(l.text);
    ASSERT_GE(texts.size(), 3u);
    std::vector<std::string> tail(texts.end() - 3, texts.end());
    EXPECT_EQ(tail[0].find("alertID[7] time["), 0u);
    EXPECT_NE(tail[0].find("all event happen"), std::string::npos);
    EXPECT_NE(tail[1].find("new alert"), std::string::npos);
    EXPECT_EQ(tail[2].find("==add==alertID[7]==["), 0u);
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
    for (int i = 0; i < 20 && !r.bState; ++i) h.cycle();
    EXPECT_EQ(printedUtc("alertID[%d] time[%d] new alert !\n", 7), restart + 5);
}

TEST_F(AlertPass, RunningAlertIsPatchedOnEachTickAndNotReported) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.cycle();
    ASSERT_EQ(r.bState, 1);
    h.clearSent();
    h.clearLines();
    h.runFor(20.5);
    EXPECT_EQ(h.countLines("==modify==== alertID[000007]==event[00000000]======\n"), 4);
    EXPECT_TRUE(reports().empty());
}

TEST_F(AlertPass, RunningAlertFallsInTheFirstFailingPass) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.runFor(3);
    speed(60);  // GT excludes the threshold
    h.cycle();
    EXPECT_EQ(r.bState, 0);
    EXPECT_EQ(r.bConditionMet, 0);
    ASSERT_EQ(reports().size(), 2u);
    EXPECT_EQ(reports()[1][0].ended, 1);
    EXPECT_EQ(reports()[1][0].time, six(r.alarmEnd));
    char del[64];
    snprintf(del, sizeof del, "==delete==alertID[7]==[%02d%02d%02d]==\n", r.alarmEnd.hour,
             r.alarmEnd.minute, r.alarmEnd.second);
    EXPECT_TRUE(h.hasLine(del));
}

TEST_F(AlertPass, RuleWithoutTriggersHoldsWheneverAreaAndWindowAllow) {
    ZelAlertPara_t& r = addRule(3, 0, {});
    h.cycle();
    EXPECT_EQ(r.bState, 1);
}

TEST_F(AlertPass, FirstFalseTriggerEndsTheRulesEvaluation) {
    addRule(7, 0, {speedOver(60.0), sInputTrigger{9, GT, 1.0}});
    speed(50);
    h.cycle();
    EXPECT_FALSE(h.hasLine("Event[9][AccelX] the value is Invalid !\n"));
    speed(70);
    h.cycle();
    EXPECT_TRUE(h.hasLine("Event[9][AccelX] the value is Invalid !\n"));
}

TEST_F(AlertPass, DailyWindowIncludesBothBoundsAndNeverWraps) {
    struct Row {
        int startH, endH, hour, minute, second;
        bool holds;
    } rows[] = {
        {8, 17, 7, 59, 59, false}, {8, 17, 8, 0, 0, true},   {8, 17, 17, 0, 0, true},
        {8, 17, 17, 0, 1, false},  {22, 6, 23, 0, 0, false}, {22, 6, 3, 0, 0, false},
    };
    ZelAlertPara_t& r = addRule(5, 0, {});
    for (const Row& row : rows) {
        r.startTime = Common::_datetime_{21, 6, 15, static_cast<unsigned char>(row.startH), 0, 0, 0, 0};
        r.endTime = Common::_datetime_{21, 6, 15, static_cast<unsigned char>(row.endH), 0, 0, 0, 0};
        // The pass reads the clock after the cycle's 500 ms wait.
        h.setDeviceTime(2026, 3, 5, row.hour, row.minute, row.second);
        h.advance(-0.5);
        h.cycle();
        EXPECT_EQ(r.bConditionMet, row.holds ? 1 : 0)
            << row.startH << "-" << row.endH << " at " << row.hour << ":" << row.minute << ":"
            << row.second;
    }
}

TEST_F(AlertPass, WindowWithAZeroBoundAlwaysHolds) {
    ZelAlertPara_t& r = addRule(5, 0, {});
    r.startTime = Common::_datetime_{0, 0, 0, 23, 0, 0, 0, 0};
    h.setDeviceTime(2026, 3, 5, 3, 0, 0);
    h.cycle();
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
    std::vector<long> tickSeconds;
    for (int i = 0; i < 50; ++i) {  // 30 s of cycles
        h.cycle();
        if (svc().m_bTickDue) tickSeconds.push_back(svc().m_LastTickTime);
    }
    ASSERT_EQ(tickSeconds.size(), 6u);
    for (size_t i = 1; i < tickSeconds.size(); ++i)
        EXPECT_EQ(tickSeconds[i] - tickSeconds[i - 1], 5);
    h.stepTimeOnly(-7);
    h.cycle();
    EXPECT_EQ(svc().m_bTickDue, 1);
}

TEST_F(AlertPass, AlertThatRisesInATickPassIsNotPatchedThere) {
    ZelAlertPara_t& r = addRule(7, 0);
    speed(70);
    h.cycle();
    ASSERT_EQ(svc().m_bTickDue, 1);
    ASSERT_EQ(r.bState, 1);
    EXPECT_EQ(h.countLines("==modify==== alertID[000007]==event[00000000]======\n"), 0);
}

TEST_F(AlertPass, EdgesOfOnePassShareOneMessageInRuleOrder) {
    addRule(1, 0, {speedOver(60.0)});
    addRule(2, 0, {sInputTrigger{kSpeed, LT, 60.0}});
    speed(70);
    h.cycle();
    speed(50);
    h.cycle();
    std::vector<std::vector<Report>> r = reports();
    ASSERT_EQ(r.size(), 2u);
    ASSERT_EQ(r[1].size(), 2u);
    EXPECT_EQ(r[1][0].alertID, 1u);
    EXPECT_EQ(r[1][0].ended, 1);
    EXPECT_EQ(r[1][1].alertID, 2u);
    EXPECT_EQ(r[1][1].ended, 0);
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


TEST(AlertPassGuards, WithoutStorageOrRulesNoRuleNoTickNoClock) {
    Harness h;
    h.start();
    h.service().m_ParaList.push_back(makeRule(7, 0));
    h.cycle(3);
    const ZelAlertPara_t& r = h.service().m_ParaList.front();
    EXPECT_EQ(r.bConditionMet, 0);
    EXPECT_EQ(h.service().m_LastTickTime, 0);
    EXPECT_GE(h.countLines("Zel Alert storage plugin have not run success...\n"), 3);
    h.announceStorage();
    h.cycle(3);
    EXPECT_EQ(r.bConditionMet, 0);
    EXPECT_EQ(h.service().m_LastTickTime, 0);
    EXPECT_GE(h.countLines("Zel Alert get para ...\n"), 2);
}

}  // namespace
