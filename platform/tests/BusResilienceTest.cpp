// What the bus does when something goes wrong: a client that stops reading,
// a broker that goes away, frames that are too big or malformed, a socket
// path that is taken.
#include <poll.h>
#include <sys/stat.h>

#include "BusTestUtil.h"
#include "UnixSocket.h"

namespace q7xtest {
namespace {

using Common::Q7X_MSGSendMessage;
using Common::Q7X_MSGWaitForEvent;
using Bytes = std::vector<unsigned char>;

// A frame as the wire protocol lays it out; lengthDelta skews the length word.
Bytes MessageFrame(uint32_t op, uint32_t peer, uint32_t idWord, const std::string& payload,
                   int lengthDelta = 0) {
    Bytes f(20 + payload.size());
    q7x::Store32(&f[0], op);
    q7x::Store32(&f[4], peer);
    q7x::Store32(&f[8], 1);
    q7x::Store32(&f[12], idWord);
    q7x::Store32(&f[16], static_cast<uint32_t>(static_cast<int>(payload.size()) + lengthDelta));
    std::copy(payload.begin(), payload.end(), f.begin() + 20);
    return f;
}

Bytes Cut(Bytes f, size_t n) {
    f.resize(n);
    return f;
}

Bytes Words(std::initializer_list<uint32_t> words) {
    Bytes f(4 * words.size());
    size_t off = 0;
    for (uint32_t w : words) q7x::Store32(&f[off], w), off += 4;
    return f;
}

class BusResilience : public BusTest {};

TEST_F(BusResilience, SubscriberThatStopsReadingLosesOnlyItsOwnMessages) {
    void* stuck = NewClient(1);
    void* reader = NewClient(2);
    void* sender = NewClient(3);
    Recorder rs, rr;
    Subscribe(stuck, rs, 0x70);
    Subscribe(reader, rr, 0x70);
    Sync(stuck, sender);
    Sync(reader, sender);

    // More CAN-sized frames than the stuck client's socket and queue can hold.
    constexpr uint32_t kFrames = 12000;
    std::string payload(48, '\0');
    for (uint32_t i = 0; i < kFrames; ++i) {
        q7x::Store32(reinterpret_cast<unsigned char*>(&payload[0]), i);
        ASSERT_EQ(Send(sender, 0x70, payload), 0);
        if ((i + 1) % 500 == 0) {
            ASSERT_TRUE(WaitUntil(reader, [&] { return rr.got.size() == i + 1; })) << i;
        }
    }
    size_t outOfOrder = 0;
    for (uint32_t i = 0; i < kFrames; ++i)
        outOfOrder += q7x::Load32(reinterpret_cast<const unsigned char*>(rr.got[i].payload.data())) != i;
    EXPECT_EQ(outOfOrder, 0u);

    const uint64_t dropped = broker().Dropped();
    ASSERT_GT(dropped, 0u);
    ASSERT_LT(dropped, kFrames);
    // Reading at last, the stuck client finds exactly what was not dropped.
    ASSERT_TRUE(WaitUntil(stuck, [&] { return rs.got.size() >= kFrames - dropped; }, 10000));
    EXPECT_EQ(Q7X_MSGWaitForEvent(stuck, 0), 0);
    EXPECT_EQ(rs.got.size(), kFrames - dropped);
    uint32_t last = 0;
    bool increasing = true;
    for (const Received& r : rs.got) {
        const uint32_t seq = q7x::Load32(reinterpret_cast<const unsigned char*>(r.payload.data()));
        increasing = increasing && (&r == &rs.got[0] || seq > last);
        last = seq;
    }
    EXPECT_TRUE(increasing);
}

TEST_F(BusResilience, ClientsReconnectAndReRegisterWhenTheBrokerComesBack) {
    void* a = NewClient(1);
    void* b = NewClient(2);
    Recorder ra;
    Subscribe(a, ra, 0x71);
    Subscribe(a, ra, 0x72);
    Sync(a, b);

    m_brokerThread.reset();
    EXPECT_EQ(Send(b, 0x71, "lost"), -1);
    const auto start = Clock::now();
    EXPECT_EQ(Q7X_MSGWaitForEvent(a, 50), 0);
    EXPECT_GE(Clock::now() - start, milliseconds(50));

    m_brokerThread = std::make_unique<BrokerThread>(m_path);
    ASSERT_TRUE(m_brokerThread->ok());
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while ((ra.Count(0x71) == 0 || ra.Count(0x72) == 0) && Clock::now() < deadline) {
        Send(b, 0x71, "back");
        Send(b, 0x72, "back");
        Q7X_MSGWaitForEvent(a, 20);
    }
    EXPECT_GE(ra.Count(0x71), 1u);
    EXPECT_GE(ra.Count(0x72), 1u);
    for (const Received& r : ra.got) EXPECT_EQ(r.payload, "back");
}

TEST_F(BusResilience, PayloadSizesAtAndBeyondTheLimit) {
    struct Case {
        const char* name;
        int len;
        bool nullPayload;
        bool sent;
    };
    const int kMax = static_cast<int>(q7x::kMaxPayload);
    const Case cases[] = {
        {"empty, no buffer", 0, true, true},
        {"one byte", 1, false, true},
        {"largest", kMax, false, true},
        {"one byte too many", kMax + 1, false, false},
        {"negative length", -1, false, false},
        {"length without a buffer", 10, true, false},
    };
    void* a = NewClient(1);
    void* b = NewClient(2);
    Recorder rb;
    Subscribe(b, rb, 0x73);
    Subscribe(b, rb, 0x74);
    Sync(b, a);

    std::string big(static_cast<size_t>(kMax) + 1, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + 3);
    for (const Case& c : cases) {
        rb.got.clear();
        StderrCapture err(m_dir.Path("stderr"));
        const int rc = Q7X_MSGSendMessage(a, 0, 0x73, 0, c.nullPayload ? nullptr : big.data(),
                                          c.len, 0);
        const std::string text = err.Text();
        EXPECT_EQ(rc, c.sent ? 0 : -1) << c.name;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), c.sent ? 0 : 1) << c.name << text;
        ASSERT_EQ(Send(a, 0x74, "end"), 0);
        ASSERT_TRUE(WaitUntil(b, [&] { return rb.Count(0x74) == 1; })) << c.name;
        ASSERT_EQ(rb.Count(0x73), c.sent ? 1u : 0u) << c.name;
        if (!c.sent) continue;
        const Received& r = *rb.Find(0x73);
        EXPECT_EQ(r.len, 16 + c.len) << c.name;
        EXPECT_TRUE(r.payload == big.substr(0, static_cast<size_t>(c.len))) << c.name;
    }
}

TEST_F(BusResilience, SocketFileIsNotWritableByOthers) {
    struct stat st;
    ASSERT_EQ(lstat(m_path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0077, 0u) << std::oct << st.st_mode;
}

TEST_F(BusResilience, BrokerDropsAndCountsMalformedFramesButKeepsTheConnection) {
    struct Case {
        const char* name;
        Bytes frame;
    };
    const Case cases[] = {
        {"shorter than an op", {1, 0}},
        {"unknown op", Words({99, 0})},
        {"hello of the wrong size", Words({1, 7, 7})},
        {"register without ids", Words({2})},
        {"register of an id above 0xffff", Words({2, 0x10000})},
        {"length word too large", MessageFrame(4, 0, 0x75, "abcd", 1)},
        {"length word too small", MessageFrame(4, 0, 0x75, "abcd", -1)},
        {"id word beyond the send flag", MessageFrame(4, 0, 0x20075, "abcd")},
        {"response cut inside its head", Cut(MessageFrame(5, 1, 0x8075, ""), 12)},
    };
    void* reader = NewClient(1);
    void* helper = NewClient(2);
    Recorder rr;
    Subscribe(reader, rr, 0x75);
    Sync(reader, helper);
    const int raw = q7x::ConnectSeqpacket(m_path);
    ASSERT_GE(raw, 0);

    for (const Case& c : cases)
        ASSERT_EQ(send(raw, c.frame.data(), c.frame.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(c.frame.size()))
            << c.name;
    const Bytes ok = MessageFrame(4, 0, 0x75, "still here");
    ASSERT_EQ(send(raw, ok.data(), ok.size(), MSG_NOSIGNAL), static_cast<ssize_t>(ok.size()));
    ASSERT_TRUE(WaitUntil(reader, [&] { return rr.got.size() == 1; }));
    EXPECT_EQ(rr.got[0].payload, "still here");
    EXPECT_EQ(broker().Malformed(), std::size(cases));
    close(raw);
}

TEST(BusClientInput, MalformedDeliveriesAreDroppedAndTheRestDispatched) {
    TempDir dir;
    const std::string path = dir.Path("bus");
    setenv("Q7X_BUS_PATH", path.c_str(), 1);
    // A stand-in broker that says whatever the test wants.
    const int listener = q7x::NewSeqpacketSocket();
    sockaddr_un addr;
    socklen_t alen;
    ASSERT_TRUE(q7x::MakeAddress(path, &addr, &alen));
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&addr), alen), 0);
    ASSERT_EQ(listen(listener, 4), 0);

    void* client = NewClient(1);
    Recorder r;
    Subscribe(client, r, 0x90);
    struct pollfd p = {listener, POLLIN, 0};
    ASSERT_EQ(poll(&p, 1, 5000), 1);
    const int server = accept(listener, nullptr, nullptr);
    ASSERT_GE(server, 0);

    const Bytes frames[] = {
        MessageFrame(4, 9, 0x90, "sent, not delivered"),
        Bytes{6, 0, 0, 0, 9},
        MessageFrame(6, 9, 0x90, "length too large", 1),
        MessageFrame(6, 9, 0x90, "length too small", -1),
        MessageFrame(6, 9, 0x90, "first"),
        MessageFrame(6, 9, 0x91, "nobody's"),
        MessageFrame(6, 9, 0x90, "second"),
    };
    for (const Bytes& f : frames)
        ASSERT_EQ(send(server, f.data(), f.size(), MSG_NOSIGNAL), static_cast<ssize_t>(f.size()));
    ASSERT_TRUE(WaitUntil(client, [&] { return r.got.size() >= 2; }));
    EXPECT_EQ(Q7X_MSGWaitForEvent(client, 0), 0);
    ASSERT_EQ(r.got.size(), 2u);
    EXPECT_EQ(r.got[0].payload, "first");
    EXPECT_EQ(r.got[0].source, 9u);
    EXPECT_EQ(r.got[1].payload, "second");
    close(server);
    close(listener);
}

TEST(BrokerOpen, WhatIsAlreadyAtThePathDecides) {
    struct Case {
        const char* name;
        std::function<void(const std::string& path)> prepare;
        bool opens;
    };
    std::unique_ptr<BrokerThread> live;
    const Case cases[] = {
        {"nothing", [](const std::string&) {}, true},
        {"socket of a broker that died",
         [](const std::string& path) {
             const int s = q7x::NewSeqpacketSocket();
             sockaddr_un addr;
             socklen_t alen = 0;
             ASSERT_TRUE(q7x::MakeAddress(path, &addr, &alen));
             bind(s, reinterpret_cast<const sockaddr*>(&addr), alen);
             close(s);
         },
         true},
        {"regular file",
         [](const std::string& path) {
             FILE* f = fopen(path.c_str(), "w");
             fputs("keep", f);
             fclose(f);
         },
         false},
        {"live broker", [&](const std::string& path) { live = std::make_unique<BrokerThread>(path); },
         false},
    };
    for (const Case& c : cases) {
        TempDir dir;
        const std::string path = dir.Path("bus");
        c.prepare(path);
        struct stat before;
        const bool existed = lstat(path.c_str(), &before) == 0;
        {
            q7x::CBusBroker broker(path);
            EXPECT_EQ(broker.Open() == 0, c.opens) << c.name;
        }
        struct stat after;
        const bool exists = lstat(path.c_str(), &after) == 0;
        if (c.opens) {
            EXPECT_FALSE(exists) << c.name << ": a broker removes its socket file";
        } else {
            ASSERT_TRUE(existed && exists) << c.name;
            EXPECT_EQ(after.st_ino, before.st_ino) << c.name << ": left alone";
        }
        live.reset();
    }
}

}  // namespace
}  // namespace q7xtest
