// The storage dialogue: the bytes of every request, the reply waits, replies
// that are late, refusing or malformed, and the renumbering of open frames
// when the log comes up empty.
#include <stdlib.h>

#include "ByteOrder.h"
#include "LogFixture.h"
#include "LogFrame.h"
#include "MessageIds.h"

using harness::Bytes;
using logtest::dateTime;
using logtest::LogFixture;

namespace {

Bytes fromHex(const char* text) {
    Bytes out;
    char* end = nullptr;
    for (const char* p = text; *p;) {
        unsigned long v = strtoul(p, &end, 16);
        if (end == p) break;
        out.push_back(static_cast<uint8_t>(v));
        p = end;
    }
    return out;
}

// The frame of alertID 7 that starts at 1A 05 03 0C 22 38 05 00, unpatched.
const char kFrame7[] =
    "7A 32 64 62 2C 00 00 02 00 00 00 00 00 00 00 00 "
    "01 0C 00 00 1A 05 03 0C 22 38 00 14 10 20 00 00 "
    "07 00 00 00 00 00 00 00 00 00 00 00 1A 05 03 0C "
    "22 38 00 14 00 00 00 00 00 00 00 00";
const Common::_datetime_ kStart7 = dateTime(0x1A, 5, 3, 12, 34, 56, 5);
const Common::_datetime_ kPatch7 = dateTime(0x1A, 5, 3, 12, 35, 2, 0x0D);

class LogWriter : public LogFixture {
protected:
    void write(uint32_t id, const Common::_datetime_& start = kStart7) {
        svc().writeAlertZelLog(id, 0, start);
    }
    bool hasEntry(uint32_t id) { return svc().m_LogFrameMap.count(id) > 0; }
    uint64_t offsetOf(uint32_t id) { return svc().m_LogFrameMap.at(id).frameOffset; }
};

TEST_F(LogWriter, WriteAndPatchOfAlert7AreTheDocumentedBytes) {
    ASSERT_EQ(fromHex(kFrame7).size(), 60u);
    write(7);
    std::vector<harness::SentMessage> writes = h.sentWithId(6661);
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].flag, 1);
    EXPECT_EQ(harness::hex(writes[0].payload),
              "13 00 00 00 00 00 00 00 1A 05 03 0C 22 38 00 00 " + std::string(kFrame7));
    ASSERT_TRUE(hasEntry(7));
    EXPECT_EQ(offsetOf(7), 84u);  // empty log: the size reply says 144
    EXPECT_EQ(harness::hex(Bytes(svc().m_LogFrameMap[7].frame, svc().m_LogFrameMap[7].frame + 60)),
              kFrame7);

    h.clearSent();
    svc().modifyAlertZelLog(7, kPatch7, false);
    ASSERT_EQ(sentIds(), (std::vector<unsigned int>{6671, 6668}));
    EXPECT_EQ(harness::hex(h.sent()[0].payload), "13 00 00 00 00 00 00 00 00 00 00 00");
    std::string patched(kFrame7);
    patched.replace(patched.size() - 23, 23, "1A 05 03 0C 23 02 00 14");  // 0x0D -> 5 << 2
    EXPECT_EQ(harness::hex(h.sent()[1].payload),
              "13 00 00 00 00 00 00 00 1A 05 03 0C 23 02 00 00 "
              "54 00 00 00 00 00 00 00 00 00 00 00 " + patched + " 00 00 00 00");
    EXPECT_EQ(h.sent()[1].flag, 1);
    EXPECT_EQ(harness::hex(storage.today()[0]), patched);
}

TEST_F(LogWriter, PatchKeepsTheBitsOfTheLastByteOutsideTheWeekday) {
    uint8_t frame[60];
    zel::buildLogFrame(frame, 7, kStart7);
    frame[58] = 0x5A;
    frame[59] = 0xE3;
    zel::patchLogFrameEnd(frame, kPatch7);
    EXPECT_EQ(frame[58], 0x5A);
    EXPECT_EQ(frame[59], 0xF7);  // (0xE3 & ~0x1C) | 0x14
}

TEST_F(LogWriter, ResponsiveStorageCostsTheSettleSleepAndNoTimeout) {
    double took = timed([&] { write(7); });
    EXPECT_LT(took, 0.1);
    EXPECT_GE(took, 0.05);
    EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6661, 6671}));
    took = timed([&] { svc().modifyAlertZelLog(7, kPatch7, true); });
    EXPECT_LT(took, 0.01);
    EXPECT_FALSE(hasEntry(7));
}

TEST_F(LogWriter, SilentStorageEndsEachWaitAfterAboutSixSeconds) {
    storage.writeReplyDelayUs = -1;
    double took = timed([&] { write(7); });
    EXPECT_GE(took, 5.0);  // whole seconds of time(): 5 to 6.5 s
    EXPECT_LE(took, 6.6);
    EXPECT_TRUE(h.hasLine("=========write Zel alert fail ID[7]...\n"));
    EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6661}));  // no size query
    EXPECT_FALSE(hasEntry(7));
    EXPECT_EQ(svc().m_bWritePending, 1);  // a time-out leaves the flag set

    storage.writeReplyDelayUs = 0;
    storage.sizeReplyDelayUs = -1;
    h.clearLines();
    took = timed([&] { write(8); });
    EXPECT_GE(took, 5.0);  // whole seconds of time(): 5 to 6.5 s
    EXPECT_LE(took, 6.6);
    EXPECT_TRUE(h.hasLine("=========write Zel alert log size[0]...\n"));
    EXPECT_TRUE(h.hasLine("=========GetZelAlertLogSize() fail ID[8]...\n"));
    EXPECT_FALSE(hasEntry(8));
}

TEST_F(LogWriter, ClockSetBackDuringAWaitDoesNotStretchIt) {
    storage.sizeReplyDelayUs = -1;
    // A rule command lands one second into the wait; the area request that
    // follows it is the moment to set time() back by an hour.
    h.onSend(6796, [&](const harness::SentMessage&) { h.stepTimeOnly(-3600); });
    h.injectAt(h.nowUs() + 1000000, 6796, harness::textBytes("{\"SOURCE\":100,\"CMD\":4}"));
    double took = timed([&] { svc().GetZelAlertLogSize(); });
    EXPECT_TRUE(h.hasLine("======delete all alert===== !\n"));
    EXPECT_GE(took, 5.0);  // whole seconds of time(): 5 to 6.5 s
    EXPECT_LE(took, 7.6);  // the step hides at most the second it fell in
}

TEST_F(LogWriter, WriteReplySentDuringTheSettleSleepCounts) {
    storage.writeReplyDelayUs = 20000;
    double took = timed([&] { write(7); });
    EXPECT_LT(took, 0.1);
    EXPECT_TRUE(hasEntry(7));
}

TEST_F(LogWriter, LateWriteReplyCountsForTheWriteThatWaitsWhenItLands) {
    storage.writeReplyDelayUs = 8000000;
    write(3);
    EXPECT_FALSE(hasEntry(3));
    // The reply to 3 lands eight seconds after its request, inside the wait of 4.
    double took = timed([&] { write(4); });
    EXPECT_GT(took, 0.5);
    EXPECT_LT(took, 3.0);
    EXPECT_TRUE(hasEntry(4));
    EXPECT_FALSE(hasEntry(3));
}

TEST_F(LogWriter, RefusedWriteEndsTheWaitAndMakesNoEntry) {
    storage.writeResult = static_cast<int8_t>(0xFD);
    double took = timed([&] { write(7); });
    EXPECT_LT(took, 0.1);
    std::vector<std::string> texts = h.texts(2);
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[1], "write Zel alert log result = -3 \n");
    EXPECT_EQ(texts[2], "=========write Zel alert fail ID[7]...\n");
    EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6661}));
    EXPECT_FALSE(hasEntry(7));
}

// A reply to the size query as a row: the head's length word, the bytes that
// really follow it, and what the query then returns.
struct SizeReplyRow {
    const char* name;
    uint32_t claimed;
    Bytes payload;
    uint64_t expectSize;
    const char* expectLine;  // level 3, or "" for none
};

Bytes sizeReply(int8_t result, uint64_t size, size_t length = 32) {
    Bytes b(32, 0);
    b[1] = static_cast<uint8_t>(result);
    zel::putLe64(b.data(), 24, size);
    b.resize(length);
    return b;
}

TEST_F(LogWriter, SizeRepliesAreReadOnlyWhenWellFormedAndSuccessful) {
    const SizeReplyRow rows[] = {
        {"good", 32, sizeReply(0, 204), 204, ""},
        {"high bits of the length word", 32 | 0xFF800000u, sizeReply(0, 204), 204, ""},
        {"refused", 32, sizeReply(-1, 204), 0, ""},
        {"too long", 33, sizeReply(0, 204, 33), 0, "file info failed msgerror=33\n"},
        {"too short", 31, sizeReply(0, 204, 31), 0, "file info failed msgerror=31\n"},
        {"head claims more than came", 32, sizeReply(0, 204, 20), 0,
         "file info failed msgerror=20\n"},
        {"head claims a longer reply", 40, sizeReply(0, 204), 0, "file info failed msgerror=40\n"},
    };
    for (const SizeReplyRow& row : rows) {
        SCOPED_TRACE(row.name);
        h.clearLines();
        h.onSend(6671, [&](const harness::SentMessage&) {
            h.injectClaiming(39439, row.claimed, row.payload);
        });
        unsigned long long size = 0;
        double took = timed([&] { size = svc().GetZelAlertLogSize(); });
        EXPECT_EQ(size, row.expectSize);
        EXPECT_LT(took, 0.6);  // any reply ends the wait
        EXPECT_EQ(h.hasLine(row.expectLine), *row.expectLine != 0);
        EXPECT_EQ(h.countLines("=========write Zel alert log size[" +
                               std::to_string(row.expectSize) + "]...\n"),
                  1);
    }
}

TEST_F(LogWriter, WriteRepliesOfAWrongLengthFailTheWriteAtOnce) {
    struct Row {
        uint32_t claimed;
        size_t bytes;
        bool stored;
        const char* line;
    } rows[] = {
        {8, 8, true, ""},
        {8 | 0x800000u, 8, true, ""},
        {12, 12, false, "write file failed msgerror length=12, sourceid = 0x4d session = 0x"},
        {8, 2, false, "write file failed msgerror length=2, sourceid = 0x4d session = 0x"},
        {12, 8, false, "write file failed msgerror length=12, sourceid = 0x4d session = 0x"},
        {0, 0, false, "write file failed msgerror length=0, sourceid = 0x4d session = 0x"},
    };
    h.onSend(6671, [&](const harness::SentMessage&) { h.inject(39439, sizeReply(0, 144)); });
    uint32_t id = 1;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.claimed);
        h.clearLines();
        h.onSend(6661, [&](const harness::SentMessage&) {
            h.injectClaiming(39429, row.claimed, Bytes(row.bytes, 0));
        });
        double took = timed([&] { write(id); });
        EXPECT_LT(took, 0.6);
        EXPECT_EQ(svc().m_LogFrameMap.count(id), row.stored ? 1u : 0u);
        bool found = *row.line == 0;
        for (const harness::DebugLine& l : h.lines())
            if (*row.line && l.text.rfind(row.line, 0) == 0 && l.level == 3) found = true;
        EXPECT_TRUE(found);
        ++id;
    }
}

TEST_F(LogWriter, HandlersRefuseNullAndShortMessagesButClearTheirFlag) {
    const char shortMsg[10] = {};
    svc().m_bWritePending = 1;
    svc().OnReturnWriteResult(nullptr, 0);
    EXPECT_EQ(svc().m_bWritePending, 0);
    svc().m_bSizePending = 1;
    svc().OnReturnAlarmLogSize(shortMsg, 10);
    EXPECT_EQ(svc().m_bSizePending, 0);
    svc().m_bStorageReady = 0;
    svc().OnCheckStoragePlugin(shortMsg, 15);
    EXPECT_EQ(svc().m_bStorageReady, 0);
    svc().OnGetZelAlertState(nullptr, 16);
    EXPECT_EQ(h.texts(), (std::vector<std::string>{"write file length error \n",
                                                   "file info length error \n",
                                                   "update StorageState length error \n",
                                                   "=======OnGetZelAlertState======!\n",
                                                   "OnGetZelAlertState length error \n"}));
    EXPECT_TRUE(h.sent().empty());
}

TEST_F(LogWriter, SizeQueryNeverReturnsASizeFromBeforeIt) {
    storage.sizeReplyDelayUs = -1;
    h.deliver(39439, sizeReply(0, 144));  // outside any wait
    EXPECT_EQ(svc().m_LogSize, 144u);
    EXPECT_EQ(svc().GetZelAlertLogSize(), 0u);
    // A late reply to an earlier query that lands in this wait does count.
    h.injectAt(h.nowUs() + 2000000, 39439, sizeReply(0, 264));
    EXPECT_EQ(svc().GetZelAlertLogSize(), 264u);
}

TEST_F(LogWriter, EmptyLogRewritesOpenFramesInIdOrderAndRenumbersThem) {
    write(9, dateTime(26, 3, 5, 10, 0, 9));
    write(2, dateTime(26, 3, 5, 10, 0, 2));
    write(5, dateTime(26, 3, 5, 10, 0, 5));
    EXPECT_EQ(offsetOf(9), 84u);
    EXPECT_EQ(offsetOf(5), 204u);
    const Common::_datetime_ firstPatch = dateTime(26, 3, 5, 11, 0, 0);
    svc().modifyAlertZelLog(5, firstPatch, false);
    storage.wipe();
    h.clearSent();

    const Common::_datetime_ secondPatch = dateTime(26, 3, 5, 11, 0, 5);
    svc().modifyAlertZelLog(5, secondPatch, false);
    ASSERT_EQ(sentIds(), (std::vector<unsigned int>{6671, 6661, 6661, 6661, 6668}));
    const uint32_t order[] = {2, 5, 9};
    for (int i = 0; i < 3; ++i) {
        const Bytes& w = h.sent()[1 + i].payload;
        Bytes frame(w.begin() + 16, w.end());
        EXPECT_EQ(logtest::frameAlertId(frame), order[i]);
        EXPECT_EQ(Bytes(w.begin() + 8, w.begin() + 14),
                  Bytes(frame.begin() + 44, frame.begin() + 50));
        EXPECT_EQ(offsetOf(order[i]), 84u + 60u * i);
    }
    // 5 goes out with its old end first, then is patched with the new one.
    Bytes rewritten5(h.sent()[2].payload.begin() + 16, h.sent()[2].payload.end());
    EXPECT_EQ(logtest::frameEnd(rewritten5), logtest::stampOf(firstPatch));
    const Bytes& modify = h.sent()[4].payload;
    EXPECT_EQ(zel::getLe64(modify.data(), 16), 144u);
    EXPECT_EQ(logtest::frameEnd(Bytes(modify.begin() + 28, modify.begin() + 88)),
              logtest::stampOf(secondPatch));
    ASSERT_EQ(storage.today().size(), 3u);
    EXPECT_EQ(logtest::frameEnd(storage.today()[1]), logtest::stampOf(secondPatch));
}

TEST_F(LogWriter, EmptyLogWithoutOpenFramesWritesNothingAndFailsThePatch) {
    svc().modifyAlertZelLog(4, kPatch7, true);
    EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6671}));
    EXPECT_TRUE(h.hasLine("=========modify Zel alert fail ID[4]...\n"));
}

TEST_F(LogWriter, SizeQueryThatTimesOutRewritesEveryOpenFrame) {
    write(2);
    write(9);
    storage.sizeReplyDelayUs = -1;
    h.clearSent();
    double took = timed([&] { svc().modifyAlertZelLog(9, kPatch7, false); });
    EXPECT_GE(took, 5.0);  // whole seconds of time(): 5 to 6.5 s
    EXPECT_LE(took, 6.6);
    EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6671, 6661, 6661, 6668}));
    EXPECT_EQ(offsetOf(9), 144u);
}

TEST_F(LogWriter, ClosingPatchDropsTheEntrySoALaterPatchFails) {
    write(7);
    svc().modifyAlertZelLog(7, kPatch7, true);
    EXPECT_FALSE(hasEntry(7));
    h.clearSent();
    svc().modifyAlertZelLog(7, kPatch7, false);
    EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6671}));  // the query still goes out
    EXPECT_TRUE(h.hasLine("=========modify Zel alert fail ID[7]...\n"));
}

TEST_F(LogWriter, SecondWriteOfAnIdReplacesItsWholeEntry) {
    write(7);
    svc().modifyAlertZelLog(7, kPatch7, false);
    write(7, dateTime(26, 3, 5, 9, 0, 0));
    EXPECT_EQ(offsetOf(7), 144u);
    Bytes frame(svc().m_LogFrameMap[7].frame, svc().m_LogFrameMap[7].frame + 60);
    EXPECT_EQ(logtest::frameStart(frame), logtest::stampOf(dateTime(26, 3, 5, 9, 0, 0)));
    EXPECT_EQ(logtest::frameEnd(frame), Bytes(8, 0));
}

}  // namespace
