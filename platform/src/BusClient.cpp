#include "BusClient.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/mman.h>
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
// Payloads up to this size are sent from one buffer on the stack.
constexpr size_t kInlinePayload = 2048;
// Dispatched frames kept for reuse: how many, and up to what size.
constexpr size_t kMaxSpare = 64;
constexpr size_t kSpareCapacity = 4096;

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
    : m_appId(appId), m_path(std::move(path)) {
    // Slots start on page boundaries, so that handing the tail of one back
    // to the kernel never touches the next.
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    m_slotStride = (kMaxFrame + page - 1) / page * page;
    m_keepResident = (kKeepResident + page - 1) / page * page;
    // An anonymous mapping takes no descriptor: -1 is what it asks for.
    void* block = mmap(nullptr, kRxSlots * m_slotStride, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);  // cppcheck-suppress invalidFunctionArg
    if (block == MAP_FAILED) {
        Q7X_LOG(1, "no memory for the receive slots: %s\n", q7x::ErrorText(errno).c_str());
        abort();
    }
    m_rxBlock = static_cast<unsigned char*>(block);
    for (size_t i = 0; i < kRxSlots; ++i) {
        m_rxIov[i].iov_base = m_rxBlock + i * m_slotStride;
        m_rxIov[i].iov_len = kMaxFrame;
        m_rxMsgs[i] = {};
        m_rxMsgs[i].msg_hdr.msg_iov = &m_rxIov[i];
        m_rxMsgs[i].msg_hdr.msg_iovlen = 1;
    }
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
    munmap(m_rxBlock, kRxSlots * m_slotStride);
}

void CBusClient::ReconnectLocked(bool force) {
    if (m_connected) return;
    const auto now = Clock::now();
    if (!force && now < m_nextAttempt) return;
    m_nextAttempt = now + kRetryInterval;

    const int s = ConnectSeqpacket(m_path);
    if (s < 0) {
        if (!m_reportedLoss) {
            Q7X_LOG(4, "no broker at %s yet (%s); retrying every %d ms\n", m_path.c_str(),
                    q7x::ErrorText(errno).c_str(), static_cast<int>(kRetryInterval.count()));
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
            Q7X_LOG(1, "dup3 failed: %s\n", q7x::ErrorText(errno).c_str());
            return;
        }
    }
    m_connected = true;
    m_rxEmpty = false;
    if (m_reportedLoss) {
        Q7X_LOG(4, "connected to the broker at %s\n", m_path.c_str());
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
    Clock::time_point deadline{};  // taken on the first refusal only
    for (;;) {
        const int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
        const ssize_t rc = iovcnt == 1 ? send(m_fd, iov[0].iov_base, iov[0].iov_len, flags)
                                       : sendmsg(m_fd, &mh, flags);
        if (rc >= 0) return 0;
        const int err = errno;
        if (err == EINTR) continue;
        if (err == EAGAIN || err == EWOULDBLOCK) {
            if (deadline == Clock::time_point{}) deadline = Clock::now() + kSendStall;
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
            Q7X_LOG(1, "frame refused by the socket: %s\n", q7x::ErrorText(err).c_str());
            return -1;
        }
        DisconnectedLocked(q7x::ErrorText(err).c_str());
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
    size_t got = 0;
    while (got < kMaxDrain && m_connected) {
        const int n = recvmmsg(m_fd, m_rxMsgs, kRxSlots, MSG_DONTWAIT, nullptr);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                m_rxEmpty = true;
            else
                DisconnectedLocked(q7x::ErrorText(errno).c_str());
            return;
        }
        for (int i = 0; i < n; ++i) {
            const size_t len = m_rxMsgs[i].msg_len;
            if (len == 0) {  // end of stream: a SEQPACKET peer that closed
                DisconnectedLocked("connection closed");
                return;
            }
            unsigned char* f = m_rxBlock + static_cast<size_t>(i) * m_slotStride;
            TakeRecordLocked(f, (m_rxMsgs[i].msg_hdr.msg_flags & MSG_TRUNC) ? 0 : len);
            if (len > m_keepResident)
                madvise(f + m_keepResident, m_slotStride - m_keepResident, MADV_DONTNEED);
        }
        got += static_cast<size_t>(n);
        // A short batch took all there was. Whatever comes later, the next
        // wait's poll reports.
        if (static_cast<size_t>(n) < kRxSlots) {
            m_rxEmpty = true;
            return;
        }
    }
}

// One received record, n bytes (0 for one cut short by the slot).
void CBusClient::TakeRecordLocked(const unsigned char* f, size_t n) {
    if (n < kOffPayload || Load32(f + kOffOp) != kOpDeliver || !MessageFrameOk(f, n)) {
        if (PowerOfTwo(++m_malformed))
            Q7X_LOG(2, "%llu malformed frames from the broker dropped\n",
                    static_cast<unsigned long long>(m_malformed));
        return;
    }
    if (m_spare.empty()) {
        m_inbox.emplace_back(f + kOffHead, f + n);
    } else {
        m_inbox.push_back(std::move(m_spare.back()));
        m_spare.pop_back();
        m_inbox.back().assign(f + kOffHead, f + n);
    }
}

int CBusClient::Inject(const void* record, size_t n) {
    {
        std::lock_guard<std::mutex> lock(m_mu);
        TakeRecordLocked(static_cast<const unsigned char*>(record), n);
    }
    return DispatchInbox();
}

// Takes one frame at a time off the shared inbox, so that a wait called from
// inside a callback carries on with the frames after the current one.
int CBusClient::DispatchInbox() {
    int dispatched = 0;
    Frame frame;
    for (;;) {
        std::shared_ptr<Entry> entry;
        {
            std::lock_guard<std::mutex> lock(m_mu);
            if (frame.capacity() > 0 && frame.capacity() <= kSpareCapacity &&
                m_spare.size() < kMaxSpare)
                m_spare.push_back(std::move(frame));
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
    bool readable = false;
    for (;;) {
        int fd;
        bool connected;
        Clock::time_point retryAt;
        {
            std::lock_guard<std::mutex> lock(m_mu);
            ReconnectLocked(false);
            if (readable || !m_rxEmpty) DrainLocked();
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
            readable = poll(&p, 1, ms) != 0;  // ready, or an error to look at
        } else {
            const int retry = std::max(1, MillisUntil(retryAt));
            poll(nullptr, 0, ms < 0 ? retry : std::min(ms, retry));
        }
    }
}

int CBusClient::SendMessage(uint32_t op, uint32_t peer, uint32_t session, uint32_t idWord,
                            const void* payload, size_t len) {
    // Small payloads join the head in one buffer: one piece for the kernel
    // to copy instead of two.
    unsigned char frame[kOffPayload + kInlinePayload];
    Store32(frame + kOffOp, op);
    Store32(frame + kOffPeer, peer);
    Store32(frame + kOffSession, session);
    Store32(frame + kOffIdWord, idWord);
    Store32(frame + kOffLength, static_cast<uint32_t>(len));
    struct iovec iov[2] = {{frame, kOffPayload}, {const_cast<void*>(payload), len}};
    int pieces = len > 0 ? 2 : 1;
    if (len > 0 && len <= kInlinePayload) {
        memcpy(frame + kOffPayload, payload, len);
        iov[0].iov_len = kOffPayload + len;
        pieces = 1;
    }

    std::lock_guard<std::mutex> lock(m_mu);
    ReconnectLocked(false);
    const int rc = m_connected ? SendFrameLocked(iov, pieces) : -1;
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
