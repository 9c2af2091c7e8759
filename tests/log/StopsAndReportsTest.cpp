// Forced ends (day rollover, clock flag, one alert by id) and the reports
// they make, and the state query answered from the log's open frames.
#include "ScriptedStorage.h"

using harness::Bytes;
using harness::dateTime;
using harness::Report;
using harness::six;
using logtest::LogFixture;

namespace {

class Stops : public LogFixture {
protected:
    // Storage requests and alert lists only, in order, from message `from` on.
    std::vector<unsigned int> dialogue(size_t from = 0) {
        std::vector<unsigned int> ids;
        for (size_t i = from; i < h.sent().size(); ++i) {
            unsigned int id = h.sent()[i].id;
            if (id == 6661 || id == 6668 || id == 6671 || id == 3215) ids.push_back(id);
        }
        return ids;
    }
};

TEST_F(Stops, MidnightSplitsEachRunningAlertIntoTwoFrames) {
    h.setDeviceTime(2026, 3, 5, 23, 59, 50);
    h.cycle();
    ZelAlertPara_t& a = addRule(3);
    ZelAlertPara_t& b = addRule(8);
    speed(70);
    h.cycle();
    const Common::_datetime_ start = a.alarmStart;
    ASSERT_EQ(reports().size(), 1u);
    // Cycle up to the one in which the date moves.
    const std::string stopLine = "======StopAllAlarm==Start=== !\n";
    size_t before = 0;
    for (int i = 0; i < 40 && !h.hasLine(stopLine); ++i) {
        before = h.sent().size();
        h.cycle();
    }
    ASSERT_TRUE(h.hasLine(stopLine));
    // The stop found the new day's log empty, wrote both open frames into it,
    // then patched each; the pass right after raised both again.
    EXPECT_EQ(dialogue(before), (std::vector<unsigned int>{6671, 6661, 6661, 6668, 6671, 6668,
                                                           3215, 6661, 6671, 6661, 6671, 3215}));
    std::vector<std::vector<Report>> reps = reports();
    ASSERT_GE(reps.size(), 3u);
    const Bytes midnight = six(dateTime(26, 3, 6, 0, 0, 0));
    ASSERT_EQ(reps[reps.size() - 2].size(), 2u);
    const Bytes endTime = reps[reps.size() - 2][0].time;
    EXPECT_EQ(Bytes(endTime.begin(), endTime.begin() + 4), Bytes(midnight.begin(), midnight.begin() + 4));
    EXPECT_EQ(reps[reps.size() - 2], (std::vector<Report>{{3, endTime, 1}, {8, endTime, 1}}));
    // Both rise again with their starts of the day before.
    EXPECT_EQ(reps.back(), (std::vector<Report>{{3, six(start), 0}, {8, six(b.alarmStart), 0}}));
    EXPECT_EQ(a.bState, 1);

    std::vector<Bytes>& newDay = storage.logOf(2026, 3, 6);
    ASSERT_EQ(newDay.size(), 4u);
    const uint32_t ids[] = {3, 8, 3, 8};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(logtest::frameAlertId(newDay[i]), ids[i]);
        EXPECT_EQ(logtest::frameStart(newDay[i]), logtest::stampOf(start));
        Bytes end = logtest::frameEnd(newDay[i]);
        if (i < 2) EXPECT_EQ(Bytes(end.begin(), end.begin() + 6), endTime);
        else EXPECT_EQ(end, Bytes(8, 0));
    }
    EXPECT_EQ(svc().m_LogFrameMap.at(3).frameOffset, 204u);
    EXPECT_EQ(svc().m_LogFrameMap.at(8).frameOffset, 264u);
    // The old day's frames keep their last tick.
    std::vector<Bytes>& oldDay = storage.logOf(2026, 3, 5);
    ASSERT_EQ(oldDay.size(), 2u);
    EXPECT_EQ(logtest::frameEnd(oldDay[0])[2], 5);
    EXPECT_EQ(logtest::frameEnd(oldDay[0])[3], 23);
}

TEST_F(Stops, ClockFlagOrDateChangeStopsAllOnceAndAnHourChangeDoesNot) {
    struct Row {
        const char* name;
        std::function<void()> change;
        bool stops;
    } rows[] = {
        {"time flag flips", [&] { h.setTimeFlag(1); }, true},
        {"time flag flips back", [&] { h.setTimeFlag(0); }, true},
        {"date set back a day", [&] { h.stepDeviceOnly(-86400); }, true},
        {"hour moves on", [&] { h.stepDeviceOnly(3600); }, false},
    };
    ZelAlertPara_t& r = addRule(5);
    speed(70);
    h.cycle();
    const Bytes start = six(r.alarmStart);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        h.clearLines();
        h.clearSent();
        row.change();
        h.cycle(3);
        EXPECT_EQ(h.countLines("======StopAllAlarm==Start=== !\n"), row.stops ? 1 : 0);
        std::vector<std::vector<Report>> reps = reports();
        ASSERT_EQ(reps.size(), row.stops ? 2u : 0u);
        if (!row.stops) continue;
        EXPECT_EQ(reps[0][0].ended, 1);
        EXPECT_EQ(reps[1], (std::vector<Report>{{5, start, 0}}));
        EXPECT_EQ(r.bState, 1);
    }
}

TEST_F(Stops, StopOneStopsTheFirstRuleOfAnIdAndItRisesAgain) {
    ZelAlertPara_t& first = addRule(6);
    ZelAlertPara_t& second = addRule(6);
    speed(70);
    h.cycle();
    const Bytes start = six(first.alarmStart);
    h.clearSent();
    h.clearLines();
    svc().StopOneAlarm(6);
    EXPECT_EQ(first.bLastState, 0);
    EXPECT_EQ(second.bLastState, 1);
    EXPECT_EQ(dialogue(), (std::vector<unsigned int>{6671, 6668, 3215}));
    EXPECT_TRUE(h.hasLine("======StopOneAlarm[6]==End=== !\n"));
    h.clearSent();
    h.cycle();
    EXPECT_EQ(reports(), (std::vector<std::vector<Report>>{{{6, start, 0}}}));
}

TEST_F(Stops, AlertWithoutAFrameIsStillReportedAtBothEnds) {
    storage.writeResult = -1;
    addRule(4);
    speed(70);
    h.cycle();
    svc().StopAllAlarm();
    EXPECT_TRUE(h.hasLine("=========modify Zel alert fail ID[4]...\n"));
    std::vector<std::vector<Report>> reps = reports();
    ASSERT_EQ(reps.size(), 2u);
    EXPECT_EQ(reps[0][0].ended * 10 + reps[1][0].ended, 1);
    EXPECT_TRUE(h.hasLine("======StopAllAlarm==End=== !\n"));
}

TEST_F(Stops, StopOfAnUnknownIdEmptiesTheListAndSendsNothing) {
    svc().m_AlertList.push_back(tag_ZELAlert());
    svc().StopOneAlarm(42);
    EXPECT_TRUE(svc().m_AlertList.empty());
    EXPECT_TRUE(h.sent().empty());
    EXPECT_EQ(h.texts(), (std::vector<std::string>{"======StopOneAlarm[42]==Start=== !\n",
                                                   "======StopOneAlarm[42]==End=== !\n"}));
}

using StateQuery = LogFixture;

TEST_F(StateQuery, ListsTheOpenFramesInAscendingIdWithTheirStart) {
    const Common::_datetime_ start9 = dateTime(26, 3, 5, 10, 9, 9);
    const Common::_datetime_ start2 = dateTime(26, 3, 5, 10, 2, 2);
    svc().writeAlertZelLog(9, 0, start9);
    svc().writeAlertZelLog(2, 0, start2);
    svc().modifyAlertZelLog(9, dateTime(26, 3, 5, 11, 0, 0), false);
    h.clearSent();
    h.inject(3216, Bytes(3, 0xAA));
    h.cycle();
    std::vector<harness::SentMessage> replies = h.sentWithId(3216 | 0x8000);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_TRUE(replies[0].response);
    // 9 with its start, not its last patch.
    EXPECT_EQ(harness::decodeList(replies[0].payload),
              (std::vector<Report>{{2, six(start2), 0}, {9, six(start9), 0}}));
}

TEST_F(StateQuery, QueryDuringAWriteDoesNotYetSeeThatAlert) {
    storage.inRequest = [&](unsigned int id, int64_t) {
        if (id == 6661) h.inject(3216, Bytes());
    };
    svc().writeAlertZelLog(7, 0, dateTime(26, 3, 5, 10, 0, 0));
    std::vector<harness::SentMessage> replies = h.sentWithId(3216 | 0x8000);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(harness::hex(replies[0].payload), "00 00 00 00 00 00 00 00");
    EXPECT_EQ(svc().m_LogFrameMap.count(7), 1u);
}

}  // namespace
