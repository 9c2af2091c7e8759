#include "BusClient.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

#include "BusProtocol.h"
#include "Log.h"
#include "UnixSocket.h"

namespace q7x {

namespace {

// How long a send may stall on a full socket (the broker not reading) before
// the message is dropped instead of stalling the service further.
constexpr std::chrono::milliseconds kSendStall{200};
// Frames taken off the socket per pass of a wait, so that a flood cannot keep
// one wait from ever returning.
constexpr size_t kMaxDrain = 4096;
// Frames up to 128 KiB plus the kernel's overhead must fit the send buffer.
constexpr int kSendBuffer = 512 * 1024;

// Whole milliseconds until t, rounded up so that a wait never ends early.
int MillisUntil(CBusClient::Clock::time_point t) {
    const auto left = t - CBusClient::Clock::now();
    if (left <= CBusClient::Clock::duration::zero()) return 0;
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::min<long long>(ms, 1 << 30));
}

// Reports counts 1, 2, 4, 8, ...: a steady fault stays visible without
// flooding the log.
bool PowerOfTwo(uint64_t n) { return n != 0 && (n & (n - 1)) == 0; }

}  // namespace

CBusClient::CBusClient(int appId, std::string path)
    : m_appId(appId), m_path(std::move(path)), m_rx(kMaxFrame) {
    // An unconnected socket holds the descriptor number until the first
    // connect succeeds.
    m_fd = NewSeqpacketSocket();
    sockaddr_un addr;
    socklen_t len;
    if (!MakeAddress(m_path, &addr, &len))
        Q7X_LOG(1, "bus path \"%s\" is too long for a socket address\n", m_path.c_str());
    std::lock_guard<std::mutex> lock(m_mu);
    ReconnectLocked(true);
}

CBusClient::~CBusClient() {
    if (m_fd >= 0) close(m_fd);
}

void CBusClient::ReconnectLocked(bool force) {
    if (m_connected) return;
    const auto now = Clock::now();
    if (!force && now < m_nextAttempt) return;
    m_nextAttempt = now + kRetryInterval;

    const int s = ConnectSeqpacket(m_path);
    if (s < 0) {
        if (!m_reportedLoss) {
            Q7X_LOG(3, "no broker at %s yet (%s); retrying every %d ms\n", m_path.c_str(),
                    strerror(errno), static_cast<int>(kRetryInterval.count()));
            m_reportedLoss = true;
        }
        return;
    }
    setsockopt(s, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    if (m_fd < 0) {
        m_fd = s;
    } else {
        const int rc = dup3(s, m_fd, O_CLOEXEC);
        close(s);
        if (rc < 0) {
            Q7X_LOG(1, "dup3 failed: %s\n", strerror(errno));
            return;
        }
    }
    m_connected = true;
    if (m_reportedLoss) {
        Q7X_LOG(3, "connected to the broker at %s\n", m_path.c_str());
        m_reportedLoss = false;
    }

    unsigned char hello[8];
    Store32(hello + kOffOp, kOpHello);
    Store32(hello + 4, static_cast<uint32_t>(m_appId));
    struct iovec iov = {hello, sizeof hello};
    SendFrameLocked(&iov, 1);

    std::vector<uint32_t> ids;
    ids.reserve(m_callbacks.size());
    for (const auto& kv : m_callbacks) ids.push_back(kv.first);
    SendIdsLocked(kOpRegister, ids);
}

void CBusClient::DisconnectedLocked(const char* why) {
    if (!m_connected) return;
    m_connected = false;
    m_reportedLoss = true;
    m_nextAttempt = Clock::now();
    Q7X_LOG(2, "lost the broker at %s (%s); retrying every %d ms\n", m_path.c_str(), why,
            static_cast<int>(kRetryInterval.count()));
}

int CBusClient::SendFrameLocked(const struct iovec* iov, int iovcnt) {
    struct msghdr mh = {};
    mh.msg_iov = const_cast<struct iovec*>(iov);
    mh.msg_iovlen = static_cast<size_t>(iovcnt);
    const auto deadline = Clock::now() + kSendStall;
    for (;;) {
        if (sendmsg(m_fd, &mh, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) return 0;
        const int err = errno;
        if (err == EINTR) continue;
        if (err == EAGAIN || err == EWOULDBLOCK) {
            const int ms = MillisUntil(deadline);
            if (ms > 0) {
                struct pollfd p = {m_fd, POLLOUT, 0};
                poll(&p, 1, ms);
                continue;
            }
            const uint64_t n = m_dropped.load(std::memory_order_relaxed) + 1;
            if (PowerOfTwo(n))
                Q7X_LOG(2, "broker not reading for %d ms; %llu messages dropped so far\n",
                        static_cast<int>(kSendStall.count()), static_cast<unsigned long long>(n));
            return -1;
        }
        if (err == EMSGSIZE || err == ENOBUFS) {
            Q7X_LOG(1, "frame refused by the socket: %s\n", strerror(err));
            return -1;
        }
        DisconnectedLocked(strerror(err));
        return -1;
    }
}

void CBusClient::SendIdsLocked(uint32_t op, const std::vector<uint32_t>& ids) {
    unsigned char buf[4 + 4 * kMaxIdsPerFrame];
    for (size_t i = 0; i < ids.size() && m_connected; i += kMaxIdsPerFrame) {
        const size_t n = std::min(kMaxIdsPerFrame, ids.size() - i);
        Store32(buf + kOffOp, op);
        for (size_t k = 0; k < n; ++k) Store32(buf + 4 + 4 * k, ids[i + k]);
        struct iovec iov = {buf, 4 + 4 * n};
        SendFrameLocked(&iov, 1);
    }
}

int CBusClient::Register(uint32_t id, Common::CMsgCallback* cb) {
    std::unique_ptr<Common::CMsgCallback> owned(cb);
    if (!owned) return -1;
    if (id > kIdMask) {
        Q7X_LOG(1, "message id %u out of range; not registered\n", id);
        return -1;
    }
    auto entry = std::make_shared<Entry>();
    entry->cb = std::move(owned);
    std::shared_ptr<Entry> old;
    {
        std::lock_guard<std::mutex> lock(m_mu);
        std::shared_ptr<Entry>& slot = m_callbacks[id];
        old = std::move(slot);
        slot = std::move(entry);
        if (old) old->live.store(false, std::memory_order_release);
        ReconnectLocked(false);
        // A reconnect has just registered every id, this one included.
        if (!old && m_connected) SendIdsLocked(kOpRegister, {id});
    }
    return 0;  // old, if any, is released here, outside the lock
}

int CBusClient::Unregister(uint32_t id) {
    std::shared_ptr<Entry> old;
    {
        std::lock_guard<std::mutex> lock(m_mu);
        auto it = m_callbacks.find(id);
        if (it == m_callbacks.end()) return -1;
        old = std::move(it->second);
        m_callbacks.erase(it);
        old->live.store(false, std::memory_order_release);
        if (m_connected) SendIdsLocked(kOpUnregister, {id});
    }
    // A wait that is running this callback right now holds another reference;
    // the callback is then deleted when that call returns.
    return 0;
}

void CBusClient::DrainLocked() {
    for (size_t i = 0; i < kMaxDrain && m_connected; ++i) {
        const ssize_t r = recv(m_fd, m_rx.data(), m_rx.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (r < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) DisconnectedLocked(strerror(errno));
            return;
        }
        if (r == 0) {
            DisconnectedLocked("connection closed");
            return;
        }
        const size_t n = static_cast<size_t>(r);
        if (n > m_rx.size() || Load32(m_rx.data() + kOffOp) != kOpDeliver ||
            !MessageFrameOk(m_rx.data(), n)) {
            if (PowerOfTwo(++m_malformed))
                Q7X_LOG(2, "%llu malformed frames from the broker dropped\n",
                        static_cast<unsigned long long>(m_malformed));
            continue;
        }
        m_inbox.emplace_back(m_rx.begin() + kOffHead, m_rx.begin() + static_cast<long>(n));
    }
}

// Takes one frame at a time off the shared inbox, so that a wait called from
// inside a callback carries on with the frames after the current one.
int CBusClient::DispatchInbox() {
    int dispatched = 0;
    for (;;) {
        Frame frame;
        std::shared_ptr<Entry> entry;
        {
            std::lock_guard<std::mutex> lock(m_mu);
            if (m_inbox.empty()) break;
            frame = std::move(m_inbox.front());
            m_inbox.pop_front();
            const uint32_t id = Load32(frame.data() + (kOffIdWord - kOffHead)) & kIdMask;
            auto it = m_callbacks.find(id);
            if (it != m_callbacks.end()) entry = it->second;
        }
        if (!entry || !entry->live.load(std::memory_order_acquire)) continue;
        entry->cb->Invoke(reinterpret_cast<const char*>(frame.data()),
                          static_cast<int>(frame.size()));
        ++dispatched;
    }
    return dispatched;
}

int CBusClient::Wait(int timeoutMs) {
    const bool forever = timeoutMs < 0;
    const auto deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : timeoutMs);
    for (;;) {
        int fd;
        bool connected;
        Clock::time_point retryAt;
        {
            std::lock_guard<std::mutex> lock(m_mu);
            ReconnectLocked(false);
            DrainLocked();
            fd = m_fd;
            connected = m_connected;
            retryAt = m_nextAttempt;
        }
        const int n = DispatchInbox();
        if (n > 0) return n;

        int ms = forever ? -1 : MillisUntil(deadline);
        if (ms == 0) return 0;
        if (connected) {
            struct pollfd p = {fd, POLLIN, 0};
            poll(&p, 1, ms);
        } else {
            const int retry = std::max(1, MillisUntil(retryAt));
            poll(nullptr, 0, ms < 0 ? retry : std::min(ms, retry));
        }
    }
}

int CBusClient::SendMessage(uint32_t op, uint32_t peer, uint32_t session, uint32_t idWord,
                            const void* payload, size_t len) {
    unsigned char head[kOffPayload];
    Store32(head + kOffOp, op);
    Store32(head + kOffPeer, peer);
    Store32(head + kOffSession, session);
    Store32(head + kOffIdWord, idWord);
    Store32(head + kOffLength, static_cast<uint32_t>(len));
    struct iovec iov[2] = {{head, sizeof head}, {const_cast<void*>(payload), len}};

    std::lock_guard<std::mutex> lock(m_mu);
    ReconnectLocked(false);
    const int rc = m_connected ? SendFrameLocked(iov, len > 0 ? 2 : 1) : -1;
    if (rc != 0) m_dropped.fetch_add(1, std::memory_order_relaxed);
    return rc;
}

namespace {

bool PayloadOk(uint32_t id, const void* payload, int len) {
    if (len < 0 || (len > 0 && !payload)) {
        Q7X_LOG(1, "message %u: bad payload (%p, %d); not sent\n", id, payload, len);
        return false;
    }
    if (static_cast<size_t>(len) > kMaxPayload) {
        Q7X_LOG(1, "message %u: payload of %d bytes exceeds the bus limit of %zu; not sent\n",
                id, len, kMaxPayload);
        return false;
    }
    return true;
}

}  // namespace

int CBusClient::Send(uint32_t id, bool request, const void* payload, int len) {
    if (id > kIdMask) {
        Q7X_LOG(1, "message id %u out of range; not sent\n", id);
        return -1;
    }
    if (!PayloadOk(id, payload, len)) return -1;
    const uint32_t session = m_session.fetch_add(1, std::memory_order_relaxed) + 1;
    return SendMessage(kOpSend, 0, session, id | (request ? kSendFlag : 0), payload,
                       static_cast<size_t>(len));
}

// The requester and the session come from the request's head, so the answer
// goes back to that client alone and can be matched to its request.
int CBusClient::Respond(const void* requestHead, const void* payload, int len) {
    if (!requestHead) return -1;
    const unsigned char* h = static_cast<const unsigned char*>(requestHead);
    const uint32_t requester = Load32(h + (kOffPeer - kOffHead));
    const uint32_t session = Load32(h + (kOffSession - kOffHead));
    const uint32_t id = (Load32(h + (kOffIdWord - kOffHead)) & kIdMask) | kResponseBit;
    if (!PayloadOk(id, payload, len)) return -1;
    return SendMessage(kOpResponse, requester, session, id, payload, static_cast<size_t>(len));
}

}  // namespace q7x
