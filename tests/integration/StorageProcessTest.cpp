// zel-storage as a real program on a private bus, and zel-logdump on what it
// wrote.
#include "ByteOrder.h"
#include "DeviceRig.h"
#include "StorageMessages.h"

namespace zeltest {
namespace {

using namespace storagetest;

class StorageProcess : public Rig {};

TEST_F(StorageProcess, AcknowledgedFramesSurviveAKillRightAfterTheAck) {
    StartBus({2086, 39429, 39439});
    StartStorage();
    const int kFrames = 5;
    int acked = 0;
    // The kill goes out from inside the callback of the last ack.
    m_seen.onEach = [&](const Received& m, const char*) {
        if (m.id == 39429 && m.payload.size() == 8 && m.payload[1] == 0 && ++acked == kFrames)
            Stop("storage", SIGKILL);
    };
    Bytes last = frameOf(104, at(5, 9, 0, 4));
    zel::patchLogFrameEnd(last.data(), at(5, 9, 2, 0));
    for (int i = 0; i < kFrames; ++i)
        Send(6661, writeRequest(i < 4 ? frameOf(100 + i, at(5, 9, 0, i)) : last));
    ASSERT_TRUE(WaitFor([&] { return acked == kFrames; }));
    const std::string log = OnlyLog();
    std::vector<FrameInfo> f = Frames(log);
    ASSERT_EQ(f.size(), static_cast<size_t>(kFrames));
    for (int i = 0; i < kFrames; ++i) EXPECT_EQ(f[i].alertID, 100u + i);

    // A new storage peer on the same folder goes on with the same log.
    StartStorage();
    Send(6671, sizeRequest());
    ASSERT_TRUE(WaitFor([&] { return m_seen.Count(39439) == 1; }));
    const std::string& size = m_seen.Find(39439)->payload;
    ASSERT_EQ(size.size(), 32u);
    EXPECT_EQ(zel::getLe64(reinterpret_cast<const uint8_t*>(size.data()), 24), 84u + 60u * kFrames);

    const std::string dump = Run({ZEL_LOGDUMP_BIN, log});
    EXPECT_TRUE(Has(dump, "offset 84     alert 100    start 2026-03-05 09:00:00  end -  "));
    EXPECT_TRUE(Has(dump,
                    "offset 324    alert 104    start 2026-03-05 09:00:04  end 2026-03-05 "
                    "09:02:00  duration 116 s\n"))
        << dump;
}

}  // namespace
}  // namespace zeltest
