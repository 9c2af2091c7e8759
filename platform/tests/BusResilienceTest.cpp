// What the bus does when something goes wrong: a client that stops reading,
// frames that are too big or malformed, a peer that dies mid-message, a socket
// path that is taken. (A broker killed and restarted: DeviceTest.)
#include <sys/stat.h>

#include "BusClient.h"
#include "BusTestUtil.h"

namespace q7xtest {
namespace {

using Common::Q7X_MSGWaitForEvent;
using Bytes = std::vector<unsigned char>;

// Little-endian words, then bytes; cut (when not 0) keeps only the first bytes.
Bytes Frame(std::initializer_list<uint32_t> words, const std::string& tail = "", size_t cut = 0) {
    // Sized once: an insert after the words makes GCC 12 at -O3 see a
    // memcpy past the end of the first allocation (-Warray-bounds).
    Bytes f(4 * words.size() + tail.size());
    for (size_t i = 0; i < words.size(); ++i) q7x::Store32(&f[4 * i], words.begin()[i]);
    std::copy(tail.begin(), tail.end(), f.begin() + 4 * words.size());
    if (cut) f.resize(cut);
    return f;
}
// A message frame: op, peer, session 1, id word, length (skewed by lengthDelta), payload.
Bytes Msg(uint32_t op, uint32_t peer, uint32_t idWord, const std::string& payload,
          int lengthDelta = 0) {
    return Frame({op, peer, 1, idWord, uint32_t(int(payload.size()) + lengthDelta)}, payload);
}

class BusResilience : public BusTest {};

TEST_F(BusResilience, SubscriberThatStopsReadingLosesOnlyItsOwnMessages) {
    void* stuck = NewClient(1);
    void* reader = NewClient(2);
    void* sender = NewClient(3);
    Recorder rs;
    Recorder rr;
    Subscribe(stuck, rs, 0x70);
    Subscribe(reader, rr, 0x70);
    Sync(stuck, sender);
    Sync(reader, sender);

    // More frames than the stuck client's socket and queue can hold: CAN-sized
    // ones, and every 16th larger.
    constexpr uint32_t kFrames = 12000;
    for (uint32_t i = 0; i < kFrames; ++i) {
        std::string payload(i % 16 ? 48 : 3000, '\0');
        q7x::Store32(reinterpret_cast<unsigned char*>(payload.data()), i);
        ASSERT_EQ(Send(sender, 0x70, payload), 0);
        ASSERT_TRUE((i + 1) % 500 || WaitUntil(reader, [&] { return rr.got.size() == i + 1; }))
            << i;
    }
    auto seq = [](const Received& r) {
        return q7x::Load32(reinterpret_cast<const unsigned char*>(r.payload.data()));
    };
    for (uint32_t i = 0; i < kFrames; ++i) ASSERT_EQ(seq(rr.got[i]), i);
    const uint64_t dropped = m_broker->broker.Dropped();
    ASSERT_GT(dropped, 0u);
    // Reading at last, and slowly, so that the broker fills its socket again
    // and again, the stuck client finds exactly what was not dropped.
    rs.onEach = [](const Received&, const char*) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    };
    ASSERT_TRUE(WaitUntil(
        stuck, [&] { return rs.got.size() >= kFrames - dropped; }, 10000));
    EXPECT_EQ(Q7X_MSGWaitForEvent(stuck, 0), 0);
    ASSERT_EQ(rs.got.size(), kFrames - dropped);
    for (size_t i = 1; i < rs.got.size(); ++i) ASSERT_GT(seq(rs.got[i]), seq(rs.got[i - 1]));
}

TEST_F(BusResilience, PayloadBeyondTheLimitIsRefusedWithOneLine) {
    const int kMax = static_cast<int>(q7x::kMaxPayload);
    const struct {
        int len;
        bool nullPayload, sent;
    } cases[] = {{0, true, true},          {1, false, true},   {kMax, false, true},
                 {kMax + 1, false, false}, {-1, false, false}, {10, true, false}};
    void* a = NewClient(1);
    void* b = NewClient(2);
    Recorder rb;
    Subscribe(b, rb, 0x73);
    Subscribe(b, rb, 0x74);
    Sync(b, a);

    std::string big(static_cast<size_t>(kMax) + 1, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + 3);
    for (const auto& c : cases) {
        rb.got.clear();
        int rc = 0;
        const std::string text = StderrOf([&] {
            rc = Common::Q7X_MSGSendMessage(a, 0, 0x73, 0, c.nullPayload ? nullptr : big.data(),
                                            c.len, 0);
        });
        EXPECT_EQ(rc, c.sent ? 0 : -1) << c.len;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), c.sent ? 0 : 1) << c.len << text;
        ASSERT_EQ(Send(a, 0x74, "end"), 0);
        ASSERT_TRUE(WaitUntil(b, [&] { return rb.Count(0x74) == 1; })) << c.len;
        ASSERT_EQ(rb.Count(0x73), c.sent ? 1u : 0u) << c.len;
        EXPECT_TRUE(!c.sent || rb.got[0].payload == big.substr(0, size_t(c.len))) << c.len;
    }
}

// A raw connection sends what no client library would, then dies in the
// middle of a message, its request still unanswered: the broker drops and
// counts each bad frame, drops the late answer, and serves everyone else.
TEST_F(BusResilience, MalformedFramesAndAPeerKilledMidMessageLeaveTheBusServing) {
    const Bytes malformed[] = {
        {1, 0},                                   // shorter than an op
        Frame({99, 0}),                           // unknown op
        Frame({1, 7, 7}),                         // hello of the wrong size
        Frame({2}),                               // register without ids
        Frame({2, 0x10000}),                      // register of an id above 0xffff
        Msg(4, 0, 0x75, "abcd", 1),               // length word too large
        Msg(4, 0, 0x75, "abcd", -1),              // length word too small
        Msg(4, 0, 0x20075, "abcd"),               // id word beyond the send flag
        Frame({5, 1, 1, 0x8075, 0}, "", 12),      // response cut inside its head
        Frame({4, 0, 1, 0x75, 11}, "never", 18),  // the last: cut by the kill
    };
    void* server = NewClient(1);
    void* helper = NewClient(2);
    Recorder rs;
    Subscribe(server, rs, 0x75);
    std::string heldRequest;
    rs.onEach = [&](const Received&, const char* msg) { heldRequest.assign(msg, 16); };
    Sync(server, helper);  // NOLINT(readability-suspicious-call-argument): server receives

    const int raw = q7x::ConnectSeqpacket(m_path);
    ASSERT_GE(raw, 0);
    std::vector<Bytes> frames = {Frame({2, 0x76}), Msg(4, 0, 0x10075, "still here")};
    frames.insert(frames.end(), std::begin(malformed), std::end(malformed));
    for (const Bytes& f : frames)
        ASSERT_EQ(send(raw, f.data(), f.size(), MSG_NOSIGNAL), ssize_t(f.size()));
    close(raw);
    ASSERT_TRUE(WaitUntil(server, [&] { return rs.got.size() == 1; }));
    EXPECT_EQ(rs.got[0].payload, "still here");
    // Whether or not the broker saw the end yet, a delivery to 0x76 finds it.
    ASSERT_EQ(Send(helper, 0x76, "to the dead"), 0);
    Sync(server, helper);  // NOLINT(readability-suspicious-call-argument): server receives
    EXPECT_EQ(Common::Q7X_MSGResponseMessage(server, heldRequest.data(), "late", 4), 0);
    ASSERT_EQ(Send(helper, 0x75, "after"), 0);
    ASSERT_TRUE(WaitUntil(server, [&] { return rs.got.size() == 2; }));
    EXPECT_EQ(m_broker->broker.Malformed(), std::size(malformed));
}

TEST(BusClientInput, MalformedDeliveriesAreDroppedAndTheRestDispatched) {
    q7x::CBusClient client(1, "/tmp/q7xtest-no-bus-here");
    Recorder r;
    client.Register(0x90,
                    static_cast<Common::CMsgCallback*>(Common::Q7X_Bind(&r, &Recorder::OnMessage)));
    for (const Bytes& f :
         {Msg(4, 9, 0x90, "sent, not delivered"), Bytes{6, 0, 0, 0, 9},
          Msg(6, 9, 0x90, "length too large", 1), Msg(6, 9, 0x90, "too small", -1),
          Msg(6, 9, 0x90, "first"), Msg(6, 9, 0x91, "nobody's"), Msg(6, 9, 0x90, "second")})
        client.Inject(f.data(), f.size());
    ASSERT_EQ(r.got.size(), 2u);
    EXPECT_EQ(r.got[0].payload, "first");
    EXPECT_EQ(r.got[0].source, 9u);
    EXPECT_EQ(r.got[1].payload, "second");
}

TEST(BrokerOpen, WhatIsAlreadyAtThePathDecides) {
    std::unique_ptr<BrokerThread> live;
    const struct {
        std::function<void(const std::string& path)> prepare;
        bool opens;
    } cases[] = {
        {[](const std::string&) {}, true},  // nothing
        // The socket of a broker that died, a file, a live broker.
        {[](const std::string& path) { mknod(path.c_str(), S_IFSOCK | 0600, 0); }, true},
        {[](const std::string& path) { fclose(fopen(path.c_str(), "w")); }, false},
        {[&](const std::string& path) { live = std::make_unique<BrokerThread>(path); }, false},
    };
    for (const auto& c : cases) {
        TempDir dir;
        const std::string path = dir.Path("bus");
        c.prepare(path);
        struct stat before = {};
        struct stat st;
        lstat(path.c_str(), &before);
        {
            q7x::CBusBroker broker(path);
            EXPECT_EQ(broker.Open() == 0, c.opens) << &c - cases;
            // Its socket is not writable by other users; anything else is left alone.
            ASSERT_EQ(lstat(path.c_str(), &st), 0) << &c - cases;
            EXPECT_TRUE(c.opens ? S_ISSOCK(st.st_mode) && (st.st_mode & 0077) == 0
                                : st.st_ino == before.st_ino)
                << &c - cases;
        }
        // A broker removes its socket file when it ends.
        EXPECT_EQ(lstat(path.c_str(), &st) == 0, !c.opens) << &c - cases;
        live.reset();
    }
}

}  // namespace
}  // namespace q7xtest
