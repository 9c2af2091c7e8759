// The storage dialogue: the bytes of every request, the reply waits, replies
// that are late, refusing or malformed, and the renumbering of open frames
// when the log comes up empty or its size cannot be had. Then the forced ends
// (day rollover, clock flag, one alert by id), the alert lists (3215) they
// send, and the state query (3216) answered from the open frames.
#include "ScriptedStorage.h"

using harness::Bytes;
using harness::dateTime;
using harness::Report;
using harness::six;
using logtest::slice;
using logtest::stampOf;

namespace {

typedef std::vector<unsigned int> Ids;

// The frame of alertID 7 that starts at 1A 05 03 0C 22 38 05 00, unpatched.
const std::string kFrame7 =
    "7A 32 64 62 2C 00 00 02 00 00 00 00 00 00 00 00 01 0C 00 00 1A 05 03 0C 22 38 00 14 "
    "10 20 00 00 07 00 00 00 00 00 00 00 00 00 00 00 1A 05 03 0C 22 38 00 14 "
    "00 00 00 00 00 00 00 00";
const Common::_datetime_ kStart7 = dateTime(0x1A, 5, 3, 12, 34, 56, 5);
const Common::_datetime_ kPatch7 = dateTime(0x1A, 5, 3, 12, 35, 2, 0x0D);

class LogWriter : public logtest::LogFixture {
protected:
    void write(uint32_t id, const Common::_datetime_& start = kStart7) {
        svc().writeAlertZelLog(id, 0, start);
    }
    bool hasEntry(uint32_t id) { return svc().m_LogFrameMap.count(id) > 0; }
    uint64_t offsetOf(uint32_t id) { return svc().m_LogFrameMap.at(id).frameOffset; }
};

TEST_F(LogWriter, WriteAndPatchOfAlert7AreTheDocumentedBytes) {
    write(7);
    ASSERT_EQ(sentIds(), (Ids{6661, 6671}));
    EXPECT_EQ(h.sent()[0].flag, 1);
    EXPECT_EQ(harness::hex(h.sent()[0].payload),
              "13 00 00 00 00 00 00 00 1A 05 03 0C 22 38 00 00 " + kFrame7);
    EXPECT_EQ(harness::hex(h.sent()[1].payload), "13 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(offsetOf(7), 84u);  // the size reply says 144
    h.clearSent();
    svc().modifyAlertZelLog(7, kPatch7, false);
    ASSERT_EQ(sentIds(), (Ids{6671, 6668}));
    std::string patched = kFrame7;
    patched.replace(patched.size() - 23, 23, "1A 05 03 0C 23 02 00 14");  // 0x0D -> 5 << 2
    EXPECT_EQ(harness::hex(h.sent()[1].payload),
              "13 00 00 00 00 00 00 00 1A 05 03 0C 23 02 00 00 "
              "54 00 00 00 00 00 00 00 00 00 00 00 " + patched + " 00 00 00 00");
    EXPECT_EQ(harness::hex(storage.today()[0]), patched);
    // A patch sets the weekday bits of the last byte and keeps the others.
    uint8_t frame[60] = {};
    frame[59] = 0xE3;
    zel::patchLogFrameEnd(frame, kPatch7);
    EXPECT_EQ(frame[59], 0xF7);
}

// How long a write waits and what it leaves, by how storage answers.
TEST_F(LogWriter, WriteWaitsForOneRoundTripAtMostAboutSixSeconds) {
    struct Row {
        int64_t writeDelayUs, sizeDelayUs;  // -1: no reply
        int8_t result;
        double minS, maxS;  // whole seconds of time(): a silent wait takes 5 to 6.5 s
        bool entry;         // the write made an entry
    } rows[] = {
        {0, 0, 0, 0.05, 0.1, true},      // the settle sleep only
        {20000, 0, 0, 0.05, 0.1, true},  // reply inside the settle sleep
        {-1, 0, 0, 5.0, 6.6, false},
        {0, -1, 0, 5.0, 6.6, false},
        {0, 0, -3, 0, 0.1, false},
    };
    // The limit is more than five whole seconds of time(): six from the start of one.
    h.advance(1.0 - static_cast<double>(h.nowUs() % 1000000) / 1e6);
    storage.sizeReplyDelayUs = -1;
    EXPECT_GE(timed([&] { svc().GetZelAlertLogSize(); }), 5.9);
    for (uint32_t id = 1; id <= 5; ++id) {
        const Row& row = rows[id - 1];
        SCOPED_TRACE(id);
        h.clearSent();
        storage.writeReplyDelayUs = row.writeDelayUs;
        storage.sizeReplyDelayUs = row.sizeDelayUs;
        storage.writeResult = row.result;
        double took = timed([&] { write(id); });
        EXPECT_GE(took, row.minS);
        EXPECT_LE(took, row.maxS);
        EXPECT_EQ(sentIds(), row.writeDelayUs < 0 || row.result ? Ids({6661}) : Ids({6661, 6671}));
        EXPECT_EQ(hasEntry(id), row.entry);
        EXPECT_EQ(svc().m_bWritePending, row.writeDelayUs < 0 ? 1 : 0);  // a time-out leaves it
    }
}

TEST_F(LogWriter, ClockSetBackDuringAWaitDoesNotStretchIt) {
    storage.sizeReplyDelayUs = -1;
    // A rule command lands one second into the wait; the area request that
    // follows it is the moment to set time() back by an hour.
    h.onSend(6796, [&](const harness::SentMessage&) { h.stepTimeOnly(-3600); });
    h.injectAt(h.nowUs() + 1000000, 6796, harness::textBytes("{\"SOURCE\":100,\"CMD\":4}"));
    double took = timed([&] { svc().GetZelAlertLogSize(); });
    EXPECT_TRUE(h.hasLine("======delete all alert===== !\n"));
    EXPECT_GE(took, 5.0);
    EXPECT_LE(took, 7.6);  // the step hides at most the second it fell in
}

// Any reply ends its wait; it counts only when well formed and successful.
TEST_F(LogWriter, RepliesOfAWrongLengthOrARefusalCountForNothing) {
    struct Row {
        bool write;        // a write reply, else a size reply
        uint32_t claimed;  // the head's length word
        int len;           // bytes handed over, head included
        int8_t result;
        bool counts;
    } rows[] = {
        {false, 32 | 0xFF800000u, 48, 0, true}, {false, 32, 48, -1, false},
        {false, 33, 49, 0, false}, {false, 32, 36, 0, false},  // claims more than came
        {false, 32, 10, 0, false}, {true, 8 | 0x800000u, 24, 0, true},
        {true, 12, 28, 0, false},  {true, 8, 18, 0, false}, {true, 8, 0, 0, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        char msg[64] = {};
        zel::putLe32(msg, 12, row.claimed);
        msg[17] = static_cast<char>(row.result);
        msg[16 + 24] = static_cast<char>(204);
        svc().m_bWritePending = svc().m_bSizePending = 1;
        svc().m_WriteResult = -1;
        svc().m_LogSize = 0;
        if (row.write) svc().OnReturnWriteResult(row.len ? msg : nullptr, row.len);
        else svc().OnReturnAlarmLogSize(msg, row.len);
        if (row.write) EXPECT_EQ(svc().m_WriteResult == 0, row.counts);
        else EXPECT_EQ(svc().m_LogSize, row.counts ? 204u : 0u);  // a refusal reads as empty
        EXPECT_EQ(row.write ? svc().m_bWritePending : svc().m_bSizePending, 0);
    }
    svc().m_bStorageReady = 0;
    svc().OnCheckStoragePlugin(std::string(15, 0).data(), 15);
    EXPECT_EQ(svc().m_bStorageReady, 0);
    svc().OnCheckStoragePlugin(std::string(16, 0).data(), 16);  // a head alone will do
    EXPECT_EQ(svc().m_bStorageReady, 1);
}

// Open frames are written again, in id order, from the log's first frame on.
TEST_F(LogWriter, EmptyLogOrSilentSizeQueryRewritesOpenFramesInIdOrder) {
    for (bool silent : {false, true}) {
        SCOPED_TRACE(silent ? "size query times out" : "empty log");
        storage.wipe();
        storage.sizeReplyDelayUs = 0;
        for (uint8_t id : {9, 2, 5}) write(id, dateTime(26, 3, 5, 10, 0, id));
        EXPECT_EQ(offsetOf(5), 204u);
        const Common::_datetime_ firstPatch = dateTime(26, 3, 5, 11, 0, 0);
        const Common::_datetime_ secondPatch = dateTime(26, 3, 5, 11, 0, 5);
        svc().modifyAlertZelLog(5, firstPatch, false);
        if (silent) storage.sizeReplyDelayUs = -1;
        else storage.wipe();
        h.clearSent();
        svc().modifyAlertZelLog(5, secondPatch, false);
        ASSERT_EQ(sentIds(), (Ids{6671, 6661, 6661, 6661, 6668}));
        const uint32_t order[] = {2, 5, 9};
        for (int i = 0; i < 3; ++i) {
            Bytes frame = slice(h.sent()[1 + i].payload, 16, 60);
            EXPECT_EQ(zel::getLe32(frame.data(), zel::kFrameAlertId), order[i]);
            EXPECT_EQ(slice(h.sent()[1 + i].payload, 8, 6), slice(frame, 44, 6));  // log date
            EXPECT_EQ(offsetOf(order[i]), 84u + 60u * i);
        }
        // 5 goes out with its old end, then is patched with the new one.
        EXPECT_EQ(slice(h.sent()[2].payload, 16 + 52), stampOf(firstPatch));
        EXPECT_EQ(zel::getLe64(h.sent()[4].payload.data(), 16), 144u);
        EXPECT_EQ(slice(h.sent()[4].payload, 28 + 52), stampOf(secondPatch));
    }
}

class Stops : public logtest::LogFixture {
protected:
    // Storage requests and alert lists, in order, from message `from` on.
    Ids dialogue(size_t from = 0) {
        Ids ids;
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
    const Bytes start = six(a.alarmStart);
    size_t before = 0;
    for (int i = 0; i < 40 && !h.hasLine("======StopAllAlarm==Start=== !\n"); ++i) {
        before = h.sent().size();
        h.cycle();
    }
    // The stop found the new day's log empty, wrote both open frames into it,
    // then patched each; the pass right after raised both again.
    EXPECT_EQ(dialogue(before),
              (Ids{6671, 6661, 6661, 6668, 6671, 6668, 3215, 6661, 6671, 6661, 6671, 3215}));
    std::vector<std::vector<Report>> reps = reports();
    ASSERT_EQ(reps.size(), 3u);
    const Bytes end = reps[1][0].time;
    EXPECT_EQ(slice(end, 0, 4), (Bytes{26, 3, 6, 0}));
    EXPECT_EQ(reps[1], (std::vector<Report>{{3, end, 1}, {8, end, 1}}));
    EXPECT_EQ(reps[2], (std::vector<Report>{{3, start, 0}, {8, six(b.alarmStart), 0}}));

    std::vector<Bytes>& newDay = storage.logOf(2026, 3, 6);
    ASSERT_EQ(newDay.size(), 4u);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(zel::getLe32(newDay[i].data(), zel::kFrameAlertId), i % 2 ? 8u : 3u);
        EXPECT_EQ(slice(newDay[i], 44), stampOf(a.alarmStart));
        EXPECT_EQ(slice(newDay[i], 52, 6), i < 2 ? end : Bytes(6, 0));
    }
    ASSERT_EQ(storage.logOf(2026, 3, 5).size(), 2u);  // they keep their last tick there
}

TEST_F(Stops, ClockFlagOrDateChangeStopsAllOnceAndAnHourChangeDoesNot) {
    std::pair<std::function<void()>, bool> rows[] = {  // change, whether it stops all
        {[&] { h.setTimeFlag(1); }, true},
        {[&] { h.setTimeFlag(0); }, true},
        {[&] { h.stepDeviceOnly(-86400); }, true},
        {[&] { h.stepDeviceOnly(3600); }, false},
    };
    ZelAlertPara_t& r = addRule(5);
    speed(70);
    h.cycle();
    const Bytes start = six(r.alarmStart);
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        h.clearSent();
        row.first();
        h.cycle(3);
        std::vector<std::vector<Report>> reps = reports();
        ASSERT_EQ(reps.size(), row.second ? 2u : 0u);
        if (!row.second) continue;
        EXPECT_EQ(reps[0][0].ended, 1);
        EXPECT_EQ(reps[1], (std::vector<Report>{{5, start, 0}}));
    }
}

TEST_F(Stops, StopOneStopsTheFirstRuleOfAnIdAndItRisesAgain) {
    ZelAlertPara_t& first = addRule(6);
    ZelAlertPara_t& second = addRule(6);
    speed(70);
    h.cycle();
    const Bytes start = six(first.alarmStart);
    h.clearSent();
    svc().StopOneAlarm(8);  // no such rule: the pass's records are not sent again
    EXPECT_TRUE(h.sent().empty());
    svc().StopOneAlarm(6);
    EXPECT_EQ(first.bLastState, 0);
    EXPECT_EQ(second.bLastState, 1);
    EXPECT_EQ(dialogue(), (Ids{6671, 6668, 3215}));
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
    std::vector<std::vector<Report>> reps = reports();
    ASSERT_EQ(reps.size(), 2u);
    EXPECT_EQ(reps[0][0].ended * 10 + reps[1][0].ended, 1);
}

TEST_F(Stops, StateQueryListsTheOpenFramesInAscendingIdWithTheirStart) {
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
    EXPECT_EQ(harness::decodeList(replies[0].payload),  // 9 with its start, not its patch
              (std::vector<Report>{{2, six(start2), 0}, {9, six(start9), 0}}));
}

}  // namespace
