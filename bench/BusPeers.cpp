#include "BusPeers.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "BareRelay.h"
#include "Broker.h"
#include "BusClient.h"
#include "BusProtocol.h"

namespace bench {

namespace {

std::string FreshPath(const std::string& tag) {
    static std::atomic<int> serial{0};
    return "/tmp/azbench-" + tag + "-" + std::to_string(getpid()) + "-" +
           std::to_string(serial.fetch_add(1));
}

// ---- the bare relay ----

class BareEndpoint : public Endpoint {
public:
    // The buffers are filled by recvmmsg and by Send before they are read.
    // cppcheck-suppress uninitMemberVar
    explicit BareEndpoint(int fd) : m_fd(fd) {
        for (size_t i = 0; i < kBatch; ++i) {
            m_iov[i] = {m_rx + i * CBareRelay::kMaxRecord, CBareRelay::kMaxRecord};
            m_msgs[i] = {};
            m_msgs[i].msg_hdr.msg_iov = &m_iov[i];
            m_msgs[i].msg_hdr.msg_iovlen = 1;
        }
    }
    ~BareEndpoint() override { close(m_fd); }

    int Send(uint32_t id, const void* payload, size_t len) override {
        return Frame(q7x::kOpSend, 0, ++m_session, id, payload, len);
    }
    int Reply(const unsigned char* msg, const void* payload, size_t len) override {
        const uint32_t id = (q7x::Load32(msg + 8) & q7x::kIdMask) | q7x::kResponseBit;
        return Frame(q7x::kOpResponse, q7x::Load32(msg), q7x::Load32(msg + 4), id, payload, len);
    }
    int Receive(int timeoutMs, Handler& h) override {
        struct pollfd p = {m_fd, POLLIN, 0};
        if (poll(&p, 1, timeoutMs) <= 0) return 0;
        const int n = recvmmsg(m_fd, m_msgs, kBatch, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < n; ++i) {
            const size_t len = m_msgs[i].msg_len;
            if (len < q7x::kOffPayload) continue;
            h.OnMessage(m_rx + static_cast<size_t>(i) * CBareRelay::kMaxRecord + q7x::kOffHead,
                        len - q7x::kOffHead);
        }
        return n < 0 ? 0 : n;
    }

private:
    static constexpr size_t kBatch = 64;

    int Frame(uint32_t op, uint32_t peer, uint32_t session, uint32_t id, const void* payload,
              size_t len) {
        if (q7x::kOffPayload + len > sizeof m_tx) return -1;
        q7x::Store32(m_tx + q7x::kOffOp, op);
        q7x::Store32(m_tx + q7x::kOffPeer, peer);
        q7x::Store32(m_tx + q7x::kOffSession, session);
        q7x::Store32(m_tx + q7x::kOffIdWord, id);
        q7x::Store32(m_tx + q7x::kOffLength, static_cast<uint32_t>(len));
        if (len > 0) memcpy(m_tx + q7x::kOffPayload, payload, len);
        return send(m_fd, m_tx, q7x::kOffPayload + len, MSG_NOSIGNAL) < 0 ? -1 : 0;
    }

    int m_fd;
    uint32_t m_session = 0;
    unsigned char m_tx[CBareRelay::kMaxRecord];
    unsigned char m_rx[kBatch * CBareRelay::kMaxRecord];
    struct iovec m_iov[kBatch];
    struct mmsghdr m_msgs[kBatch];
};

class BareRunner : public Relay {
public:
    explicit BareRunner(const std::string& tag) : m_path(FreshPath(tag)), m_relay(m_path) {
        if (m_relay.Open() == 0) m_thread = std::thread([this] { m_relay.Run(); });
    }
    ~BareRunner() override {
        m_relay.Stop();
        if (m_thread.joinable()) m_thread.join();
    }
    std::unique_ptr<Endpoint> Connect(int, uint32_t) override {
        return ConnectTo(Kind::kBare, m_path, 0, 0);
    }
    uint64_t Dropped() const override { return m_relay.Dropped(); }

private:
    std::string m_path;
    CBareRelay m_relay;
    std::thread m_thread;
};

// ---- the product's bus ----

class BusEndpoint : public Endpoint {
public:
    BusEndpoint(int appId, const std::string& path, uint32_t subscribeId)
        : m_client(appId, path) {
        if (subscribeId != 0) m_client.Register(subscribeId, new Forward(this));
    }
    int Send(uint32_t id, const void* payload, size_t len) override {
        return m_client.Send(id, false, payload, static_cast<int>(len));
    }
    int Reply(const unsigned char* msg, const void* payload, size_t len) override {
        return m_client.Respond(msg, payload, static_cast<int>(len));
    }
    int Receive(int timeoutMs, Handler& h) override {
        m_handler = &h;
        return m_client.Wait(timeoutMs);
    }

private:
    class Forward : public Common::CMsgCallback {
    public:
        explicit Forward(BusEndpoint* to) : m_to(to) {}
        void Invoke(const char* msg, int len) override {
            if (m_to->m_handler)
                m_to->m_handler->OnMessage(reinterpret_cast<const unsigned char*>(msg),
                                           static_cast<size_t>(len));
        }

    private:
        BusEndpoint* m_to;
    };

    q7x::CBusClient m_client;
    Handler* m_handler = nullptr;
};

class BusRunner : public Relay {
public:
    explicit BusRunner(const std::string& tag) : m_path(FreshPath(tag)), m_broker(m_path) {
        if (m_broker.Open() == 0) m_thread = std::thread([this] { m_broker.Run(); });
    }
    ~BusRunner() override {
        m_broker.Stop();
        if (m_thread.joinable()) m_thread.join();
    }
    std::unique_ptr<Endpoint> Connect(int appId, uint32_t subscribeId) override {
        return ConnectTo(Kind::kBus, m_path, appId, subscribeId);
    }
    uint64_t Dropped() const override { return m_broker.Dropped(); }

private:
    std::string m_path;
    q7x::CBusBroker m_broker;
    std::thread m_thread;
};

}  // namespace

const char* KindName(Kind kind) { return kind == Kind::kBare ? "bare" : "bus"; }

std::unique_ptr<Relay> StartRelay(Kind kind, const std::string& tag) {
    if (kind == Kind::kBare) return std::make_unique<BareRunner>(tag);
    return std::make_unique<BusRunner>(tag);
}

std::unique_ptr<Endpoint> ConnectTo(Kind kind, const std::string& path, int appId,
                                    uint32_t subscribeId) {
    if (kind == Kind::kBus) return std::make_unique<BusEndpoint>(appId, path, subscribeId);
    const int fd = BareConnect(path);
    if (fd < 0) return nullptr;
    return std::make_unique<BareEndpoint>(fd);
}

void CountingHandler::OnMessage(const unsigned char* msg, size_t len) {
    if (m_replyFrom && len >= q7x::kHeadSize)
        m_replyFrom->Reply(msg, msg + q7x::kHeadSize, len - q7x::kHeadSize);
    received.fetch_add(1, std::memory_order_relaxed);
}

void ReceiverThreads::Start(std::vector<std::unique_ptr<Endpoint>> endpoints, bool reply) {
    m_endpoints = std::move(endpoints);
    m_stop = false;
    for (auto& ep : m_endpoints)
        m_handlers.push_back(std::make_unique<CountingHandler>(reply ? ep.get() : nullptr));
    for (size_t i = 0; i < m_endpoints.size(); ++i)
        m_threads.emplace_back([this, i] {
            while (!m_stop.load(std::memory_order_relaxed))
                m_endpoints[i]->Receive(100, *m_handlers[i]);
        });
}

void ReceiverThreads::Stop() {
    m_stop = true;
    for (auto& t : m_threads) t.join();
    m_threads.clear();
}

uint64_t ReceiverThreads::Received() const {
    uint64_t sum = 0;
    for (const auto& h : m_handlers) sum += h->received.load(std::memory_order_relaxed);
    return sum;
}

uint64_t ReceiverThreads::Least() const {
    uint64_t least = UINT64_MAX;
    for (const auto& h : m_handlers)
        least = std::min<uint64_t>(least, h->received.load(std::memory_order_relaxed));
    return m_handlers.empty() ? 0 : least;
}

bool WarmUp(Endpoint& sender, uint32_t id, const ReceiverThreads& receivers) {
    const unsigned char probe[64] = {};
    for (int i = 0; i < 250; ++i) {
        sender.Send(id, probe, sizeof probe);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (receivers.Least() > 0) return true;
    }
    return false;
}

}  // namespace bench
