// Motion per channel: a message's state for a channel counts only when the
// camera settings agree, video inputs and digital channels by their own rule.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

class Motion : public harness::ServiceTest {
protected:
    void settings(const std::vector<uint8_t>& kinds, const std::vector<uint8_t>& tags) {
        h.deliver(320, sig::ipcSetting(kinds, tags));
    }
    void motion(const std::vector<uint8_t>& tags, const std::vector<uint8_t>& status) {
        h.deliver(1288, sig::mdState(tags, status));
    }
    // Channels whose flag is set, or (valid) whose event 18 + i is valid, as bits.
    uint32_t channels(bool valid) {
        uint32_t out = 0;
        for (uint32_t i = 0; i < 16; ++i)
            out |= uint32_t(valid ? svc().isEventValid(18 + i) : svc().m_MdState[i] != 0) << i;
        return out;
    }
};

TEST_F(Motion, ChannelsCountByTheirSettingsRow) {
    const std::vector<uint8_t> all1(16, 1);
    // video, digital: the platform's counts; kinds, chnTags: the settings rows.
    struct { const char* what; int video, digital; std::vector<uint8_t> kinds, chnTags, mdTags,
             status; uint32_t flags, valid; } rows[] = {
        {"zero settings: video inputs with tag 0 follow, digital never counts", 4, 4, {}, {},
         {0, 0, 0, 5}, {1, 2, 1, 1, 1, 1, 1, 1}, 0x05, 0x07},
        {"status other than 1 is no motion, and valid", 2, 0, {}, {}, {}, {2, 0xFF}, 0x0, 0x3},
        {"a row of the other kind is skipped", 2, 2, {1, 0, 0, 1}, {}, {}, all1, 0xA, 0xA},
        {"digital tag 3 counts only with message tag 3", 1, 3, {0, 1, 1, 1}, {0, 3, 3, 0},
         {0, 3, 0, 0}, all1, 0xB, 0xB},
        {"no video: digital from 0", 0, 2, {1, 1}, {4, 4}, {4, 4}, all1, 0x3, 0x3},
        {"sixteen channels: the last one counts", 8, 8,
         {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1}, {}, {}, all1, 0xFFFF, 0xFFFF},
        {"channels past V + D are not read", 2, 1, {0, 0, 1, 1}, {}, {}, all1, 0x7, 0x7},
        {"a count above 16 stops at channel 15", 12, 12, {}, {}, {}, all1, 0xFFF, 0xFFF},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        h.stop();
        h.start();
        h.setChannels(r.video, r.digital);
        if (!r.kinds.empty()) settings(r.kinds, r.chnTags);
        motion(r.mdTags, r.status);
        EXPECT_EQ(channels(false), r.flags);
        EXPECT_EQ(channels(true), r.valid);
        EXPECT_FALSE(svc().isEventValid(34));
        EXPECT_EQ(Bytes(svc().m_MdRecord, svc().m_MdRecord + 48), sig::mdState(r.mdTags, r.status));
    }
}

// Every camera settings block is kept and asks for the motion state again.
TEST_F(Motion, ChannelThatStopsCountingKeepsItsFlagAndBitAndEveryBlockAsks) {
    h.setChannels(0, 2);
    settings({1, 1}, {6, 6});
    motion({6, 6}, {1, 1});
    ASSERT_EQ(channels(false), 0x3u);
    h.deliver(33087, sig::ipcSetting({1, 1}, {6, 9}));  // channel 1 now wants tag 9
    motion({6, 6}, {0, 0});
    EXPECT_EQ(channels(false), 0x2u);
    EXPECT_EQ(channels(true), 0x3u);
    settings({1, 1}, {6, 9});  // identical: asks again
    EXPECT_EQ(Bytes(svc().m_IpcSetting, svc().m_IpcSetting + 3208),
              sig::ipcSetting({1, 1}, {6, 9}));
    std::vector<harness::SentMessage> asks = h.sentWithId(1289);
    ASSERT_EQ(asks.size(), 3u);
    EXPECT_TRUE(asks[2].flag == 1 && asks[2].payload.empty());
}

}  // namespace
