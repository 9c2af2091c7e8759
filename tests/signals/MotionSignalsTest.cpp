// Motion per channel: a message's state for a channel counts only when the
// camera settings agree, video inputs and digital channels by their own rule.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

const uint32_t kMotion1 = 18;

class Motion : public harness::ServiceTest {
protected:
    void settings(std::vector<uint8_t> kinds, std::vector<uint8_t> tags = {}) {
        h.deliver(320, sig::ipcSetting(kinds, tags));
    }
    void motion(std::vector<uint8_t> tags, std::vector<uint8_t> status) {
        h.deliver(1288, sig::mdState(tags, status));
    }
    // Channels whose flag is 1, and channels that are valid, as bit sets.
    uint32_t flags() { return bits([&](int i) { return svc().m_MdState[i] != 0; }); }
    uint32_t valid() { return bits([&](int i) { return svc().isEventValid(kMotion1 + i); }); }
    template <class F>
    static uint32_t bits(F f) {
        uint32_t out = 0;
        for (int i = 0; i < 16; ++i) out |= static_cast<uint32_t>(f(i)) << i;
        return out;
    }
};

TEST_F(Motion, ChannelsCountByTheirSettingsRow) {
    const std::vector<uint8_t> all1(16, 1);
    struct Row {
        const char* what;
        int video, digital;
        std::vector<uint8_t> kinds, chnTags, mdTags, status;
        uint32_t flags, valid;
    } rows[] = {
        {"zero settings: video inputs with tag 0 follow, digital never counts", 4, 4, {}, {},
         {0, 0, 0, 5}, {1, 2, 1, 1, 1, 1, 1, 1}, 0x05, 0x07},
        {"status other than 1 is no motion, and valid", 2, 0, {}, {}, {}, {2, 0xFF}, 0x0, 0x3},
        {"video row saying digital is skipped, digital row saying video too", 2, 2, {1, 0, 0, 1},
         {0, 0, 0, 0}, {}, all1, 0xA, 0xA},
        {"digital tag 3 counts only with message tag 3", 1, 3, {0, 1, 1, 1}, {0, 3, 3, 0},
         {0, 3, 0, 0}, all1, 0xB, 0xB},
        {"no video inputs: the digital run starts at channel 0", 0, 2, {1, 1}, {4, 4}, {4, 4},
         all1, 0x3, 0x3},
        {"sixteen channels: the last one counts", 8, 8,
         {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1}, {}, {}, all1, 0xFFFF, 0xFFFF},
        {"channels past V + D are not read", 2, 1, {0, 0, 1, 1}, {}, {}, all1, 0x7, 0x7},
        {"a count above 16 stops at channel 15", 12, 12, {}, {}, {}, all1, 0xFFF, 0xFFF},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        h.stop();
        h.start();
        h.setChannels(r.video, r.digital);
        if (!r.kinds.empty()) settings(r.kinds, r.chnTags);
        motion(r.mdTags, r.status);
        EXPECT_EQ(flags(), r.flags);
        EXPECT_EQ(valid(), r.valid);
        EXPECT_FALSE(svc().isEventValid(34));
        EXPECT_EQ(Bytes(svc().m_MdRecord, svc().m_MdRecord + 48), sig::mdState(r.mdTags, r.status));
    }
}

TEST_F(Motion, ChannelThatStopsCountingKeepsItsFlagAndBit) {
    h.setChannels(0, 2);
    settings({1, 1}, {6, 6});
    motion({6, 6}, {1, 1});
    ASSERT_EQ(flags(), 0x3u);
    settings({1, 1}, {6, 9});  // channel 1 now wants tag 9
    motion({6, 6}, {0, 0});
    EXPECT_EQ(flags(), 0x2u);
    EXPECT_EQ(valid(), 0x3u);
}

TEST_F(Motion, DiagnosticsNameTheRunAndEveryDigitalChannel) {
    h.setChannels(2, 2);
    settings({0, 0, 1, 1}, {0, 0, 5, 5});
    h.clearLines();
    motion({0, 1, 5, 0}, {1, 1, 1, 1});
    std::vector<std::string> expected = {
        "=======OnUpdateMDVideo======!\n",
        "OnUpdateMDVideo::1index[0] MdStatus[1]\n",
        "OnUpdateMDVideo::2index[2] MdStatus[1]\n",
        "[1]MD\n\n",
        "[0]MD\n\n",  // channel 3 didn't count and kept 0
    };
    EXPECT_EQ(h.texts(), expected);
    for (const harness::DebugLine& l : h.lines()) EXPECT_EQ(l.level, l.text[0] == '=' ? 3 : 2);
}

TEST_F(Motion, EverySettingsBlockAsksForTheMotionState) {
    Bytes block = sig::ipcSetting({0, 1}, {0, 2});
    h.deliver(33087, block);
    h.deliver(320, block);  // identical: asks again
    std::vector<harness::SentMessage> asks = h.sentWithId(1289);
    ASSERT_EQ(asks.size(), 2u);
    EXPECT_EQ(asks[0].flag, 1);
    EXPECT_TRUE(asks[0].payload.empty());
    EXPECT_EQ(Bytes(svc().m_IpcSetting, svc().m_IpcSetting + 3208), block);
}

}  // namespace
