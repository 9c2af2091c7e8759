// Routing and dispatch through a real broker: who gets a message, what its
// head says, and how waits hand messages to callbacks.
#include "BusTestUtil.h"

namespace q7xtest {
namespace {

using Common::Q7X_MSGEventUnRegister;
using Common::Q7X_MSGWaitForEvent;

class BusRouting : public BusTest {};

TEST_F(BusRouting, MessageReachesEveryOtherSubscriberAndItsResponseTheRequesterAlone) {
    void* a = NewClient(1);
    void* server = NewClient(2);
    void* bystander = NewClient(3);
    Recorder ra;
    Recorder rs;
    Recorder rb;
    for (uint32_t id : {0x20u, 0x8020u}) Subscribe(a, ra, id);
    Subscribe(server, rs, 0x20);
    for (uint32_t id : {0x20u, 0x8020u, 0x21u}) Subscribe(bystander, rb, id);
    rs.onEach = [&](const Received& r, const char* msg) {
        const std::string answer = "pong:" + r.payload;
        if (r.request)
            Common::Q7X_MSGResponseMessage(server, msg, answer.data(), int(answer.size()));
    };
    for (void* client : {a, server, bystander}) Sync(client, client == a ? server : a);

    ASSERT_EQ(Send(a, 0x20, "hello"), 0);
    ASSERT_EQ(Send(a, 0x20, "query", 1), 0);
    ASSERT_TRUE(WaitUntil(server, [&] { return rs.got.size() == 2; }));
    // An echo of a's own messages would be queued before the answer.
    ASSERT_TRUE(WaitUntil(a, [&] { return ra.Count(0x8020) == 1; }));
    EXPECT_EQ(ra.Count(0x20), 0u);
    // A broadcast answer would reach the bystander before this later message.
    ASSERT_EQ(Send(server, 0x21, "later"), 0);
    ASSERT_TRUE(WaitUntil(bystander, [&] { return rb.Count(0x21) == 1; }));
    EXPECT_EQ(rb.Count(0x20), 2u);
    EXPECT_EQ(rb.Count(0x8020), 0u);

    const Received& hello = rs.got.at(0);
    const Received& query = rs.got.at(1);
    const Received& answer = *ra.Find(0x8020);
    EXPECT_EQ(hello.payload, "hello");
    EXPECT_FALSE(hello.request);
    EXPECT_TRUE(query.request);
    EXPECT_GT(query.session, hello.session);
    EXPECT_NE(hello.source, 0u);
    EXPECT_EQ(rb.got[0].source, hello.source);
    EXPECT_EQ(answer.payload, "pong:query");
    EXPECT_FALSE(answer.request);
    EXPECT_EQ(answer.session, query.session);
    EXPECT_NE(answer.source, query.source);
}

// a subscribes to ids; they are sent, then a marker to a client that takes
// only the marker. The broker queues and flushes in order, so once the marker
// is in, every earlier message sits in a's socket: then one wait dispatches
// them all, and returns at once.
class BusWait : public BusTest {
protected:
    void SendAndSettle(const std::vector<uint32_t>& ids) {
        void* marker = NewClient(3);
        Recorder rm;
        for (uint32_t id : ids) Subscribe(a, ra, id);
        Subscribe(marker, rm, 0x7f00);
        Sync(a, sender);
        Sync(marker, sender);
        for (uint32_t id : ids) ASSERT_EQ(Send(sender, id, "x"), 0);
        ASSERT_EQ(Send(sender, 0x7f00, "marker"), 0);
        ASSERT_TRUE(WaitUntil(marker, [&] { return !rm.got.empty(); }));
    }
    void* a = NewClient(1);
    void* sender = NewClient(2);
    Recorder ra;
};

TEST_F(BusWait, DispatchesEverythingWaitingAndReturnsAtOnce) {
    SendAndSettle({0x40, 0x41, 0x42});
    const auto start = Clock::now();
    EXPECT_EQ(Q7X_MSGWaitForEvent(a, 60000), 3);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
}

TEST_F(BusWait, InsideACallbackDispatchesTheMessagesAfterTheCurrentOne) {
    std::vector<std::string> order;
    ra.onEach = [&](const Received& r, const char*) {
        order.push_back(std::to_string(r.id - 0x50));
        if (r.id != 0x50) return;
        // What a handler does that waits for a storage reply.
        EXPECT_TRUE(WaitUntil(a, [&] { return ra.Count(0x51) == 1; }));
        order.emplace_back("0 done");
    };
    SendAndSettle({0x50, 0x51, 0x52});
    EXPECT_GE(Q7X_MSGWaitForEvent(a, 5000), 1);
    EXPECT_EQ(order, (std::vector<std::string>{"0", "1", "2", "0 done"}));
}

// A callback that blocks until released, and says when it is destroyed.
struct GateCallback : Common::CMsgCallback {
    explicit GateCallback(std::atomic<int>& s) : state(s) {}
    ~GateCallback() override { state = 3; }
    void Invoke(const char*, int) override {
        state = 1;
        Eventually([&] { return state == 2; });
        ++calls;  // touches the object after the unregister: must still live
    }
    std::atomic<int>& state;  // 0 idle, 1 running, 2 released, 3 destroyed
    int calls = 0;
};

TEST_F(BusWait, UnregisterWhileItsCallbackRunsDefersTheDelete) {
    std::atomic<int> state{0};
    SendAndSettle({0x60, 0x61});
    ASSERT_EQ(Common::Q7X_MSGEventRegister(a, 0x60, new GateCallback(state)), 0);  // replaces ra's
    std::thread worker([&] { Q7X_MSGWaitForEvent(a, 5000); });
    ASSERT_TRUE(Eventually([&] { return state == 1; }));
    EXPECT_EQ(Q7X_MSGEventUnRegister(a, 0x60), 0);
    EXPECT_EQ(state, 1);
    state = 2;
    worker.join();
    EXPECT_EQ(state, 3);
    EXPECT_EQ(ra.Count(0x61), 1u);  // the next one on the same connection still came
    EXPECT_EQ(Q7X_MSGEventUnRegister(a, 0x60), -1);
}

// More frames than the client takes in one receive batch, with sizes on both
// sides of each of its boundaries (the inline send buffer, the part of a
// receive slot kept resident) and the largest: each arrives whole, in order.
TEST_F(BusWait, BurstOfMixedSizesArrivesWholeAndInOrder) {
    Subscribe(a, ra, 0x42);
    Sync(a, sender);
    const size_t sizes[] = {0, 1, 64, 2047, 2048, 2049, 16 * 1024 - 20, 16 * 1024 + 1};
    std::vector<std::string> sent;
    for (size_t i = 0; i < 150; ++i) {
        const size_t n = i % 50 == 49 ? q7x::kMaxPayload : sizes[i % std::size(sizes)];
        sent.emplace_back(n, '\0');
        for (size_t k = 0; k < n; ++k) sent.back()[k] = static_cast<char>(i * 31 + k);
        ASSERT_EQ(Send(sender, 0x42, sent.back()), 0);
    }
    ASSERT_TRUE(WaitUntil(a, [&] { return ra.got.size() >= sent.size(); }));
    ASSERT_EQ(ra.got.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_TRUE(ra.got[i].payload == sent[i] && ra.got[i].len == int(16 + sent[i].size())) << i;
}

}  // namespace
}  // namespace q7xtest
