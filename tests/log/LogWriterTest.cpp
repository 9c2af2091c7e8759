// The storage dialogue: the bytes of every request, the reply waits, replies
// that are late, refusing or malformed, and the renumbering of open frames
// when the log comes up empty.
#include <stdlib.h>

#include "LogFrame.h"
#include "ScriptedStorage.h"

using harness::Bytes;
using harness::dateTime;
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

// How long a write waits and what it leaves, by how storage answers.
TEST_F(LogWriter, WriteWaitsForOneRoundTripAtMostAboutSixSeconds) {
    struct Row {
        const char* name;
        int64_t writeDelayUs, sizeDelayUs;  // -1: no reply
        int8_t result;
        double minS, maxS;  // whole seconds of time(): a silent wait takes 5 to 6.5 s
        std::vector<unsigned int> sent;
        std::vector<const char*> lines;  // one %d: the id
        bool entry;
    } rows[] = {
        {"responsive: the settle sleep only", 0, 0, 0, 0.05, 0.1, {6661, 6671}, {}, true},
        {"write reply inside the settle sleep", 20000, 0, 0, 0.05, 0.1, {6661, 6671}, {}, true},
        {"silent on the write", -1, 0, 0, 5.0, 6.6, {6661},
         {"=========write Zel alert fail ID[%d]...\n"}, false},
        {"silent on the size", 0, -1, 0, 5.0, 6.6, {6661, 6671},
         {"=========write Zel alert log size[0]...\n",
          "=========GetZelAlertLogSize() fail ID[%d]...\n"}, false},
        {"write refused", 0, 0, static_cast<int8_t>(0xFD), 0, 0.1, {6661},
         {"write Zel alert log result = -3 \n", "=========write Zel alert fail ID[%d]...\n"},
         false},
    };
    uint32_t id = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        h.clearSent();
        h.clearLines();
        storage.writeReplyDelayUs = row.writeDelayUs;
        storage.sizeReplyDelayUs = row.sizeDelayUs;
        storage.writeResult = row.result;
        double took = timed([&] { write(++id); });
        EXPECT_GE(took, row.minS);
        EXPECT_LE(took, row.maxS);
        EXPECT_EQ(sentIds(), row.sent);
        for (const char* line : row.lines) EXPECT_TRUE(h.hasLine(harness::fmt(line, id))) << line;
        EXPECT_EQ(hasEntry(id), row.entry);
        // A time-out leaves the flag set.
        EXPECT_EQ(svc().m_bWritePending, row.writeDelayUs < 0 ? 1 : 0);
    }
    storage.sizeReplyDelayUs = 0;
    EXPECT_LT(timed([&] { svc().modifyAlertZelLog(1, kPatch7, true); }), 0.01);
    EXPECT_FALSE(hasEntry(1));
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

Bytes sizeReply(int8_t result, uint64_t size, size_t length = 32) {
    Bytes b(32, 0);
    b[1] = static_cast<uint8_t>(result);
    zel::putLe64(b.data(), 24, size);
    b.resize(length);
    return b;
}

// Any reply ends its wait; it counts only when well formed and successful.
TEST_F(LogWriter, RepliesOfAWrongLengthOrARefusalCountForNothing) {
    const std::string kWrite = "write file failed msgerror length=", kSize = "file info failed msgerror=";
    const std::string kFrom = ", sourceid = 0x4d session = 0x";
    struct Row {
        unsigned int reply;  // 39429 to a write, 39439 to a size query
        uint32_t claimed;    // the head's length word
        Bytes payload;
        bool counts;
        std::string line;  // the start of a level-3 line, or ""
    } rows[] = {
        {39439, 32, sizeReply(0, 204), true, ""},
        {39439, 32 | 0xFF800000u, sizeReply(0, 204), true, ""},
        {39439, 32, sizeReply(-1, 204), false, ""},
        {39439, 33, sizeReply(0, 204, 33), false, kSize + "33\n"},
        {39439, 31, sizeReply(0, 204, 31), false, kSize + "31\n"},
        {39439, 32, sizeReply(0, 204, 20), false, kSize + "20\n"},  // claims more than came
        {39439, 40, sizeReply(0, 204), false, kSize + "40\n"},
        {39429, 8, Bytes(8, 0), true, ""},
        {39429, 8 | 0x800000u, Bytes(8, 0), true, ""},
        {39429, 12, Bytes(12, 0), false, kWrite + "12" + kFrom},
        {39429, 8, Bytes(2, 0), false, kWrite + "2" + kFrom},
        {39429, 12, Bytes(8, 0), false, kWrite + "12" + kFrom},
        {39429, 0, Bytes(), false, kWrite + "0" + kFrom},
    };
    uint32_t id = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        h.clearLines();
        h.onSend(6671, [&](const harness::SentMessage&) { h.inject(39439, sizeReply(0, 144)); });
        h.onSend(row.reply == 39429 ? 6661 : 6671, [&](const harness::SentMessage&) {
            h.injectClaiming(row.reply, row.claimed, row.payload);
        });
        if (row.reply == 39429) {
            EXPECT_LT(timed([&] { write(++id); }), 0.6);
            EXPECT_EQ(hasEntry(id), row.counts);
        } else {
            unsigned long long size = 0;
            EXPECT_LT(timed([&] { size = svc().GetZelAlertLogSize(); }), 0.6);
            EXPECT_EQ(size, row.counts ? 204u : 0u);
            EXPECT_EQ(h.countLines(harness::fmt("=========write Zel alert log size[%llu]...\n", size)), 1);
        }
        bool found = row.line.empty();
        for (const harness::DebugLine& l : h.lines())
            found |= !row.line.empty() && l.level == 3 && l.text.rfind(row.line, 0) == 0;
        EXPECT_TRUE(found);
    }
}

TEST_F(LogWriter, HandlersRefuseNullAndShortMessagesButClearTheirFlag) {
    const char shortMsg[10] = {};
    svc().m_bWritePending = svc().m_bSizePending = 1;
    svc().m_bStorageReady = 0;
    svc().OnReturnWriteResult(nullptr, 0);
    svc().OnReturnAlarmLogSize(shortMsg, 10);
    svc().OnCheckStoragePlugin(shortMsg, 15);
    EXPECT_EQ(svc().m_bWritePending + svc().m_bSizePending + svc().m_bStorageReady, 0);
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
    for (uint8_t id : {9, 2, 5}) write(id, dateTime(26, 3, 5, 10, 0, id));
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

// An empty log and no open frame, or a frame its closing patch dropped.
TEST_F(LogWriter, PatchOfAnIdWithoutAnEntryFailsAfterItsSizeQuery) {
    write(7);
    svc().modifyAlertZelLog(7, kPatch7, true);
    EXPECT_FALSE(hasEntry(7));
    for (uint32_t id : {7u, 4u}) {
        if (id == 4) storage.wipe();
        h.clearSent();
        svc().modifyAlertZelLog(id, kPatch7, id == 4);
        EXPECT_EQ(sentIds(), (std::vector<unsigned int>{6671}));  // nothing written
        EXPECT_TRUE(h.hasLine(harness::fmt("=========modify Zel alert fail ID[%d]...\n", id)));
    }
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
