// Routing and dispatch through a real broker: who gets a message, what its
// head says, and how waits hand messages to callbacks.
#include <condition_variable>
#include <mutex>

#include "BusTestUtil.h"

namespace q7xtest {
namespace {

using Common::Q7X_MSGEventUnRegister;
using Common::Q7X_MSGResponseMessage;
using Common::Q7X_MSGWaitForEvent;

class BusRouting : public BusTest {};

TEST_F(BusRouting, SentMessageReachesEveryOtherSubscriberButNeverItsSender) {
    void* a = NewClient(1);
    void* b = NewClient(2);
    void* c = NewClient(3);
    void* quiet = NewClient(4);
    Recorder ra, rb, rc, rq;
    Subscribe(a, ra, 0x20);
    Subscribe(b, rb, 0x20);
    Subscribe(c, rc, 0x20);
    Subscribe(a, ra, 0x21);
    Subscribe(quiet, rq, 0x21);
    for (void* client : {a, b, c, quiet}) Sync(client, quiet == client ? a : quiet);

    ASSERT_EQ(Send(a, 0x20, "hello"), 0);
    ASSERT_EQ(Send(a, 0x20, "query", 1), 0);
    ASSERT_TRUE(WaitUntil(b, [&] { return rb.got.size() == 2; }));
    ASSERT_TRUE(WaitUntil(c, [&] { return rc.got.size() == 2; }));
    // Anything echoed to a would be queued before this message from b.
    ASSERT_EQ(Send(b, 0x21, "after"), 0);
    ASSERT_TRUE(WaitUntil(a, [&] { return ra.Count(0x21) == 1; }));
    EXPECT_EQ(ra.Count(0x20), 0u);
    // quiet never subscribed to 0x20.
    ASSERT_TRUE(WaitUntil(quiet, [&] { return rq.Count(0x21) == 1; }));
    EXPECT_EQ(rq.Count(0x20), 0u);

    const Received& first = rb.got[0];
    const Received& second = rb.got[1];
    EXPECT_EQ(first.payload, "hello");
    EXPECT_EQ(first.len, 16 + 5);
    EXPECT_FALSE(first.request);
    EXPECT_EQ(second.payload, "query");
    EXPECT_TRUE(second.request);
    EXPECT_GT(second.session, first.session);
    EXPECT_NE(first.source, 0u);
    EXPECT_EQ(first.source, second.source);
    EXPECT_EQ(rc.got[0].source, first.source);
    EXPECT_NE(ra.got[0].source, first.source);  // b's id, not a's
}

TEST_F(BusRouting, ResponseGoesToTheRequesterAloneWithTheResponseBit) {
    void* server = NewClient(1);
    void* requester = NewClient(2);
    void* bystander = NewClient(3);
    Recorder rs, rr, rb;
    Subscribe(server, rs, 0x30);
    rs.onEach = [&](const Received& r, const char* msg) {
        const std::string answer = "pong:" + r.payload;
        Q7X_MSGResponseMessage(server, msg, answer.data(), static_cast<int>(answer.size()));
    };
    Subscribe(requester, rr, 0x8030);
    for (uint32_t id : {0x30u, 0x8030u, 0x31u}) Subscribe(bystander, rb, id);
    for (void* client : {server, requester, bystander}) Sync(client, client == server ? requester : server);

    ASSERT_EQ(Send(requester, 0x30, "ping", 1), 0);
    ASSERT_TRUE(WaitUntil(server, [&] { return rs.got.size() == 1; }));
    ASSERT_TRUE(WaitUntil(requester, [&] { return rr.got.size() == 1; }));
    const Received& request = rs.got[0];
    const Received& answer = rr.got[0];
    EXPECT_EQ(answer.id, 0x8030u);
    EXPECT_FALSE(answer.request);
    EXPECT_EQ(answer.payload, "pong:ping");
    EXPECT_EQ(answer.session, request.session);
    EXPECT_NE(answer.source, request.source);

    // The bystander subscribed to the answer's id too; a response would sit
    // in its queue before this later message from the server.
    ASSERT_EQ(Send(server, 0x31, "later"), 0);
    ASSERT_TRUE(WaitUntil(bystander, [&] { return rb.Count(0x31) == 1; }));
    EXPECT_EQ(rb.Count(0x30), 1u);
    EXPECT_EQ(rb.Count(0x8030), 0u);
}

// sender sends ids to receiver, then a marker to a third client that only
// takes the marker. The broker queues and flushes in order, so once the
// marker is in, every earlier message sits in the receiver's socket.
void SendAndSettle(void* sender, const std::vector<uint32_t>& ids, void* marker,
                   Recorder& markerRec) {
    const size_t before = markerRec.got.size();
    for (uint32_t id : ids) ASSERT_EQ(Send(sender, id, "x"), 0);
    ASSERT_EQ(Send(sender, 0x7f00, "marker"), 0);
    ASSERT_TRUE(WaitUntil(marker, [&] { return markerRec.got.size() > before; }));
}

TEST_F(BusRouting, WaitDispatchesEverythingWaitingAndReturnsAtOnce) {
    void* a = NewClient(1);
    void* sender = NewClient(2);
    void* marker = NewClient(3);
    Recorder ra, rm;
    Subscribe(a, ra, 0x40);
    Subscribe(marker, rm, 0x7f00);
    Sync(a, sender);
    Sync(marker, sender);

    SendAndSettle(sender, {0x40, 0x40, 0x40}, marker, rm);
    const auto start = Clock::now();
    EXPECT_EQ(Q7X_MSGWaitForEvent(a, 60000), 3);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));

    // A message that comes while the wait blocks ends it too.
    std::thread late([&] { Send(sender, 0x40, "late"); });
    EXPECT_EQ(Q7X_MSGWaitForEvent(a, 60000), 1);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
    late.join();
    EXPECT_EQ(ra.got.size(), 4u);
}

// More frames than the client takes in one receive batch, with sizes on both
// sides of each of its boundaries (the inline send buffer, the part of a
// receive slot kept resident) and the largest: each arrives whole, in order.
TEST_F(BusRouting, BurstOfMixedSizesArrivesWholeAndInOrder) {
    void* a = NewClient(1);
    void* sender = NewClient(2);
    Recorder ra;
    Subscribe(a, ra, 0x42);
    Sync(a, sender);
    const size_t sizes[] = {0, 1, 64, 2047, 2048, 2049, 16 * 1024 - 20, 16 * 1024 + 1};
    std::vector<std::string> sent;
    for (size_t i = 0; i < 150; ++i) {
        const size_t n = i % 50 == 49 ? q7x::kMaxPayload : sizes[i % std::size(sizes)];
        std::string p(n, '\0');
        for (size_t k = 0; k < n; ++k) p[k] = static_cast<char>(i * 31 + k);
        sent.push_back(p);
    }
    for (const std::string& p : sent) ASSERT_EQ(Send(sender, 0x42, p), 0);
    ASSERT_TRUE(WaitUntil(a, [&] { return ra.got.size() >= sent.size(); }));
    ASSERT_EQ(ra.got.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(ra.got[i].len, static_cast<int>(16 + sent[i].size())) << i;
        EXPECT_TRUE(ra.got[i].payload == sent[i]) << i;
    }
}

TEST_F(BusRouting, WaitWithNothingToDispatchLastsItsTimeout) {
    void* a = NewClient(1);
    Recorder ra;
    Subscribe(a, ra, 0x41);
    for (int timeoutMs : {0, 1, 50}) {
        const auto start = Clock::now();
        EXPECT_EQ(Q7X_MSGWaitForEvent(a, timeoutMs), 0) << timeoutMs;
        EXPECT_GE(Clock::now() - start, milliseconds(timeoutMs)) << timeoutMs;
    }
}

TEST_F(BusRouting, WaitInsideACallbackDispatchesTheMessagesAfterTheCurrentOne) {
    void* a = NewClient(1);
    void* sender = NewClient(2);
    void* marker = NewClient(3);
    Recorder ra, rm;
    std::vector<std::string> order;
    for (uint32_t id : {0x50u, 0x51u, 0x52u}) Subscribe(a, ra, id);
    Subscribe(marker, rm, 0x7f00);
    Sync(a, sender);
    Sync(marker, sender);
    ra.onEach = [&](const Received& r, const char*) {
        order.push_back(std::to_string(r.id - 0x50));
        if (r.id != 0x50) return;
        // What a handler does that waits for a storage reply.
        EXPECT_TRUE(WaitUntil(a, [&] { return ra.Count(0x51) == 1; }, 5000));
        order.push_back("0 done");
    };

    SendAndSettle(sender, {0x50, 0x51, 0x52}, marker, rm);
    EXPECT_GE(Q7X_MSGWaitForEvent(a, 5000), 1);
    EXPECT_EQ(order, (std::vector<std::string>{"0", "1", "2", "0 done"}));
}

// A callback that blocks until released, and says when it is destroyed.
struct Gate {
    std::mutex mu;
    std::condition_variable cv;
    bool entered = false;
    bool released = false;
    bool destroyed = false;
};

class GateCallback : public Common::CMsgCallback {
public:
    explicit GateCallback(Gate& g) : m_gate(g) {}
    ~GateCallback() override {
        std::lock_guard<std::mutex> lock(m_gate.mu);
        m_gate.destroyed = true;
    }
    void Invoke(const char*, int) override {
        std::unique_lock<std::mutex> lock(m_gate.mu);
        m_gate.entered = true;
        m_gate.cv.notify_all();
        m_gate.cv.wait_for(lock, std::chrono::seconds(5), [&] { return m_gate.released; });
        ++m_calls;  // touches the object after the unregister: must still live
    }

private:
    Gate& m_gate;
    int m_calls = 0;
};

TEST_F(BusRouting, UnregisterWhileItsCallbackRunsDefersTheDelete) {
    void* a = NewClient(1);
    void* sender = NewClient(2);
    Gate gate;
    Recorder ra;
    ASSERT_EQ(Common::Q7X_MSGEventRegister(a, 0x60, new GateCallback(gate)), 0);
    Subscribe(a, ra, 0x61);
    Sync(a, sender);

    ASSERT_EQ(Send(sender, 0x60, "block"), 0);
    std::thread worker([&] { Q7X_MSGWaitForEvent(a, 5000); });
    {
        std::unique_lock<std::mutex> lock(gate.mu);
        ASSERT_TRUE(gate.cv.wait_for(lock, std::chrono::seconds(5), [&] { return gate.entered; }));
    }
    EXPECT_EQ(Q7X_MSGEventUnRegister(a, 0x60), 0);
    {
        std::lock_guard<std::mutex> lock(gate.mu);
        EXPECT_FALSE(gate.destroyed);
        gate.released = true;
        gate.cv.notify_all();
    }
    worker.join();
    EXPECT_TRUE(gate.destroyed);
    EXPECT_EQ(Q7X_MSGEventUnRegister(a, 0x60), -1);

    // No more calls for the id; the next one on the same connection still comes.
    gate.entered = false;
    ASSERT_EQ(Send(sender, 0x60, "again"), 0);
    ASSERT_EQ(Send(sender, 0x61, "next"), 0);
    ASSERT_TRUE(WaitUntil(a, [&] { return ra.got.size() == 1; }));
    EXPECT_FALSE(gate.entered);
}

}  // namespace
}  // namespace q7xtest
