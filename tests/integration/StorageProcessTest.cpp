// zel-storage as a real program on a private bus, and zel-logdump on what it
// wrote.
#include "AlertLogStore.h"
#include "ServiceRig.h"
#include "StorageMessages.h"

namespace {

using namespace storagetest;

class StorageProcess : public rig::ProcessTest {
protected:
    void SetUp() override {
        rig::ProcessTest::SetUp();
        listen({39429, 39439});
        startStorage();
    }
    // The reply to one request, waiting for it; empty when none came.
    std::string ask(uint32_t id, const Bytes& payload, uint32_t replyId) {
        size_t before = with(replyId).size();
        send(id, payload);
        EXPECT_TRUE(waitFor([&] { return with(replyId).size() > before; }));
        return with(replyId).size() > before ? with(replyId).back().payload : "";
    }
    // Result byte of the reply to one write.
    int write(const Bytes& payload) {
        std::string reply = ask(6661, payload, 39429);
        EXPECT_EQ(reply.size(), 8u);
        return reply.size() == 8 ? static_cast<int8_t>(reply[1]) : 99;
    }
    uint64_t size() {
        std::string reply = ask(6671, sizeRequest(), 39439);
        EXPECT_EQ(reply.size(), 32u);
        if (reply.size() != 32) return ~0ull;
        EXPECT_EQ(reply[1], 0);
        return zel::getLe64(reinterpret_cast<const uint8_t*>(reply.data()), 24);
    }
};

TEST_F(StorageProcess, AppendsPatchesTellsTheSizeAndRefusesMalformedRequests) {
    EXPECT_EQ(size(), 0u);
    EXPECT_EQ(write(Bytes(10, 0)), -1);
    send(6668, Bytes(3, 0));
    Bytes frame = frameOf(7, at(5, 12, 34, 56));
    ASSERT_EQ(write(writeRequest(frame)), 0);
    EXPECT_EQ(size(), 144u);
    zel::patchLogFrameEnd(frame.data(), at(5, 12, 40, 0));
    send(6668, modifyRequest(frame, 84));
    EXPECT_EQ(size(), 144u);  // answered after the patch: one client, one order
    std::vector<zelstore::FrameInfo> f = frames();
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].alertID, 7u);
    EXPECT_EQ(zelstore::stampText(f[0].end), "2026-03-05 12:40:00");
    EXPECT_TRUE(rig::has(out("storage"), "zel-storage: refused write (6661) from client"));
    EXPECT_TRUE(rig::has(out("storage"), "zel-storage: refused modify (6668) from client"));
}

TEST_F(StorageProcess, AcknowledgedFramesSurviveAKillRightAfterTheAck) {
    const int kFrames = 5;
    int acked = 0;
    // The kill goes out from inside the callback of the last ack.
    seen.onEach = [&](const q7xtest::Received& m, const char*) {
        if (m.id == 39429 && m.payload.size() == 8 && m.payload[1] == 0 && ++acked == kFrames)
            signalChild("storage", SIGKILL);
    };
    for (int i = 0; i < kFrames; ++i) send(6661, writeRequest(frameOf(100 + i, at(5, 9, 0, i))));
    ASSERT_TRUE(waitFor([&] { return acked == kFrames; }));
    stop("storage", SIGKILL);
    std::vector<zelstore::FrameInfo> f = frames();
    ASSERT_EQ(f.size(), static_cast<size_t>(kFrames));
    for (int i = 0; i < kFrames; ++i) EXPECT_EQ(f[i].alertID, 100u + i);
    // A new storage peer on the same folder goes on with the same log.
    startStorage();
    EXPECT_EQ(size(), 84u + 60u * kFrames);
}

TEST(LogDump, PrintsOneLinePerFrameAndRefusesADamagedFile) {
    q7xtest::TempDir dir;
    Common::_datetime_ clock = at(5, 9, 0, 0);
    zelstore::AlertLogStore store(dir.Path(""), [&] { return clock; }, [](const std::string&) {});
    Bytes closed8 = frameOf(8, at(5, 9, 0, 5));
    zel::patchLogFrameEnd(closed8.data(), at(5, 9, 1, 45));
    uint64_t offset = 0;
    std::string why;
    ASSERT_EQ(store.append(19, frameOf(7, at(5, 9, 0, 0)).data(), offset, why), 0) << why;
    ASSERT_EQ(store.append(19, closed8.data(), offset, why), 0) << why;
    std::string path = store.pathOf(19, zelstore::Day{2026, 3, 5});
    auto dump = [&] { return rig::run({ZEL_LOGDUMP_BIN, path}, dir.Path("dump.out")); };
    EXPECT_EQ(dump(), 0) << q7xtest::ReadText(dir.Path("dump.out"));
    EXPECT_EQ(q7xtest::ReadText(dir.Path("dump.out")),
              "offset 84     alert 7      start 2026-03-05 09:00:00  end -                    "
              "duration -\n"
              "offset 144    alert 8      start 2026-03-05 09:00:05  end 2026-03-05 09:01:45  "
              "duration 100 s\n");

    FILE* f = fopen(path.c_str(), "ab");
    ASSERT_NE(f, nullptr);
    fwrite("torn", 1, 4, f);
    fclose(f);
    EXPECT_EQ(dump(), 1);
    std::string text = q7xtest::ReadText(dir.Path("dump.out"));
    EXPECT_FALSE(rig::has(text, "alert 7"));  // no frame of a damaged file
    EXPECT_TRUE(rig::has(text, "is damaged: 4 of 208 bytes could not be read")) << text;
}

}  // namespace
