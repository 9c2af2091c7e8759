// The two buses the bus figures compare, behind one small interface: the
// product's broker with its client library, and the bare relay with bare
// sockets. A benchmark or the load program writes its traffic once and runs
// it on both.
//
// Frames on the bare relay have the bus's own layout (see BusProtocol.h), so
// that both carry the same bytes, but nobody reads the head except a
// responder, which turns a request's id into id | 0x8000.
//
// A Relay runs its loop on a thread of its own until it is destroyed. An
// Endpoint belongs to one thread at a time.
#ifndef AZ_BENCH_BUS_PEERS_H
#define AZ_BENCH_BUS_PEERS_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace bench {

// What an endpoint hands each received message to: the 16-byte head
// (sender, session, id word, length) and the payload, as a bus callback
// receives them.
class Handler {
public:
    virtual ~Handler() = default;
    virtual void OnMessage(const unsigned char* msg, size_t len) = 0;
};

class Endpoint {
public:
    virtual ~Endpoint() = default;
    virtual int Send(uint32_t id, const void* payload, size_t len) = 0;
    // Answers the request whose head is msg with id | 0x8000.
    virtual int Reply(const unsigned char* msg, const void* payload, size_t len) = 0;
    // Blocks up to timeoutMs for messages and hands each to h; returns how
    // many it handed on.
    virtual int Receive(int timeoutMs, Handler& h) = 0;
};

class Relay {
public:
    virtual ~Relay() = default;
    // A new client that receives message id (the bare relay sends every
    // client everything; the id only matters on the bus).
    virtual std::unique_ptr<Endpoint> Connect(int appId, uint32_t subscribeId) = 0;
    // Messages the relay itself dropped for want of room.
    virtual uint64_t Dropped() const = 0;
};

enum class Kind { kBare, kBus };
const char* KindName(Kind kind);

// A relay of the kind on a fresh path under /tmp, running on its own thread.
std::unique_ptr<Relay> StartRelay(Kind kind, const std::string& tag);
// A client of a relay that another process runs at path.
std::unique_ptr<Endpoint> ConnectTo(Kind kind, const std::string& path, int appId,
                                    uint32_t subscribeId);

// Counts what it receives; optionally answers every request.
class CountingHandler : public Handler {
public:
    explicit CountingHandler(Endpoint* replyFrom = nullptr) : m_replyFrom(replyFrom) {}
    void OnMessage(const unsigned char* msg, size_t len) override;
    std::atomic<uint64_t> received{0};

private:
    Endpoint* m_replyFrom;
};

// Receivers that run on threads of their own until Stop.
class ReceiverThreads {
public:
    ~ReceiverThreads() { Stop(); }
    void Start(std::vector<std::unique_ptr<Endpoint>> endpoints, bool reply);
    void Stop();
    uint64_t Received() const;  // over all receivers
    uint64_t Least() const;     // of the receiver that has seen the fewest
    size_t Count() const { return m_handlers.size(); }

private:
    std::vector<std::unique_ptr<Endpoint>> m_endpoints;
    std::vector<std::unique_ptr<CountingHandler>> m_handlers;
    std::vector<std::thread> m_threads;
    std::atomic<bool> m_stop{false};
};

// Sends id from `sender` until every receiver has seen one, at most ~5 s:
// subscriptions and accepts are asynchronous. False if they never did.
bool WarmUp(Endpoint& sender, uint32_t id, const ReceiverThreads& receivers);

}  // namespace bench

#endif  // AZ_BENCH_BUS_PEERS_H
