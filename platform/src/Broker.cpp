#include "Broker.h"

#include <errno.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <unordered_set>

#include "BusProtocol.h"
#include "Log.h"
#include "UnixSocket.h"

namespace q7x {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kRxBatch = 64;  // frames per recvmmsg
constexpr size_t kTxBatch = 64;  // frames per sendmmsg
constexpr int kSocketBuffer = 1 << 20;
// Frames kept for reuse once every queue is done with them: how many, and
// up to what size. CAN traffic then allocates nothing per frame.
constexpr size_t kMaxFreeFrames = 1024;
constexpr size_t kReuseCapacity = 4096;
constexpr mode_t kSocketMode = 0600;

// epoll tags: client ids are 32-bit and start at 1.
constexpr uint64_t kTagListen = 0;
constexpr uint64_t kTagStop = uint64_t{1} << 32;

}  // namespace

struct CBusBroker::Client {
    uint32_t id = 0;
    int fd = -1;
    int appId = -1;
    std::unordered_set<uint32_t> subs;
    std::deque<Frame*> out;
    size_t outBytes = 0;
    bool dirty = false;
    bool wantWrite = false;
    uint64_t dropped = 0;
    Clock::time_point lastDropLog{};
};

CBusBroker::CBusBroker(std::string path)
    : m_path(std::move(path)),
      m_rxBlock(new unsigned char[kRxBatch * kMaxFrame]),
      m_rxIov(kRxBatch),
      m_rxMsgs(kRxBatch),
      m_txIov(kTxBatch),
      m_txMsgs(kTxBatch) {}

CBusBroker::~CBusBroker() {
    for (const auto& kv : m_clients) {
        close(kv.second->fd);
        for (Frame* f : kv.second->out) Release(f);
    }
    for (Frame* f : m_freeFrames) delete f;
    if (m_listen >= 0) close(m_listen);
    if (m_epoll >= 0) close(m_epoll);
    if (m_stop >= 0) close(m_stop);
    // Another broker may have replaced a file that was removed under us.
    struct stat st;
    if (m_bound && lstat(m_path.c_str(), &st) == 0 && st.st_dev == m_dev && st.st_ino == m_ino)
        unlink(m_path.c_str());
}

int CBusBroker::Open() {
    sockaddr_un addr;
    socklen_t alen;
    if (!MakeAddress(m_path, &addr, &alen)) {
        Q7X_LOG(1, "bus path \"%s\" is too long for a socket address\n", m_path.c_str());
        return -1;
    }
    struct stat st;
    if (lstat(m_path.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            Q7X_LOG(1, "%s exists and is not a socket; leaving it alone\n", m_path.c_str());
            return -1;
        }
        if (BrokerListening(m_path)) {
            Q7X_LOG(1, "a broker already listens at %s\n", m_path.c_str());
            return -1;
        }
        unlink(m_path.c_str());  // left behind by a broker that died
    }

    m_listen = NewSeqpacketSocket();
    if (m_listen < 0) {
        Q7X_LOG(1, "socket: %s\n", q7x::ErrorText(errno).c_str());
        return -1;
    }
    // The socket file takes its mode from the socket at bind, so it is never
    // writable by other users, not even for a moment; chmod covers kernels
    // that ignore the first.
    fchmod(m_listen, kSocketMode);
    if (bind(m_listen, reinterpret_cast<const sockaddr*>(&addr), alen) != 0) {
        Q7X_LOG(1, "bind %s: %s\n", m_path.c_str(), q7x::ErrorText(errno).c_str());
        return -1;
    }
    m_bound = lstat(m_path.c_str(), &st) == 0;
    m_dev = st.st_dev;
    m_ino = st.st_ino;
    chmod(m_path.c_str(), kSocketMode);
    if (listen(m_listen, SOMAXCONN) != 0) {
        Q7X_LOG(1, "listen %s: %s\n", m_path.c_str(), q7x::ErrorText(errno).c_str());
        return -1;
    }

    m_epoll = epoll_create1(EPOLL_CLOEXEC);
    m_stop = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_epoll < 0 || m_stop < 0) {
        Q7X_LOG(1, "epoll/eventfd: %s\n", q7x::ErrorText(errno).c_str());
        return -1;
    }
    struct epoll_event ev = {};
    ev.events = EPOLLIN;
    ev.data.u64 = kTagListen;
    epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_listen, &ev);
    ev.data.u64 = kTagStop;
    epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_stop, &ev);

    for (size_t i = 0; i < kRxBatch; ++i) {
        m_rxIov[i].iov_base = m_rxBlock.get() + i * kMaxFrame;
        m_rxIov[i].iov_len = kMaxFrame;
        m_rxMsgs[i] = {};
        m_rxMsgs[i].msg_hdr.msg_iov = &m_rxIov[i];
        m_rxMsgs[i].msg_hdr.msg_iovlen = 1;
    }
    Q7X_LOG(4, "bus broker listening on %s\n", m_path.c_str());
    return 0;
}

void CBusBroker::Stop() {
    if (m_stop < 0) return;
    const uint64_t one = 1;
    ssize_t rc = write(m_stop, &one, sizeof one);
    (void)rc;  // a full counter means a stop is pending already
}

void CBusBroker::Run() {
    if (m_epoll < 0) return;
    struct epoll_event evs[64];
    bool stopping = false;
    while (!stopping) {
        const int n = epoll_wait(m_epoll, evs, 64, -1);
        if (n < 0) {
            if (errno == EINTR) continue;
            Q7X_LOG(1, "epoll_wait: %s\n", q7x::ErrorText(errno).c_str());
            break;
        }
        for (int i = 0; i < n; ++i) {
            const uint64_t tag = evs[i].data.u64;
            if (tag == kTagListen) {
                AcceptAll();
            } else if (tag == kTagStop) {
                stopping = true;
            } else {
                const uint32_t id = static_cast<uint32_t>(tag);
                if (evs[i].events & (EPOLLIN | EPOLLHUP | EPOLLERR)) ReadFrom(id);
                auto it = m_clients.find(id);
                if (it != m_clients.end() && (evs[i].events & EPOLLOUT)) {
                    Client& c = *it->second;
                    if (!c.dirty) {
                        c.dirty = true;
                        m_dirty.push_back(id);
                    }
                }
            }
        }
        FlushDirty();
    }

    // Last pass: hand on what was sent before the stop.
    std::vector<uint32_t> ids;
    for (const auto& kv : m_clients) ids.push_back(kv.first);
    for (uint32_t id : ids)
        for (int round = 0; round < 64 && ReadFrom(id) == kRxBatch; ++round) {
        }
    FlushDirty();
    Q7X_LOG(4, "bus broker at %s stopped\n", m_path.c_str());
}

void CBusBroker::AcceptAll() {
    for (;;) {
        const int fd = accept4(m_listen, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                Q7X_LOG(1, "accept: %s\n", q7x::ErrorText(errno).c_str());
            return;
        }
        Adopt(fd);
    }
}

uint32_t CBusBroker::Adopt(int fd) {
    // Beyond wmem_max only with privilege; otherwise take what is allowed.
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &kSocketBuffer, sizeof kSocketBuffer) != 0)
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);

    auto c = std::make_unique<Client>();
    c->id = m_nextId++;
    if (m_nextId == 0) m_nextId = 1;
    c->fd = fd;
    if (m_epoll >= 0) {  // without Open, only Feed reads for the client
        struct epoll_event ev = {};
        ev.events = EPOLLIN;
        ev.data.u64 = c->id;
        if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &ev) != 0) {
            Q7X_LOG(1, "epoll_ctl: %s\n", q7x::ErrorText(errno).c_str());
            close(fd);
            return 0;
        }
    }
    const uint32_t id = c->id;
    Q7X_LOG(4, "client %u connected\n", id);
    m_clients.emplace(id, std::move(c));
    return id;
}

void CBusBroker::Feed(uint32_t clientId, const unsigned char* f, size_t n) {
    auto it = m_clients.find(clientId);
    if (it == m_clients.end()) return;
    Handle(*it->second, f, n);
    FlushDirty();
}

// Reads one batch from a client and handles it. Returns the number of frames
// read; the client may be gone afterwards.
size_t CBusBroker::ReadFrom(uint32_t id) {
    auto it = m_clients.find(id);
    if (it == m_clients.end()) return 0;
    Client& c = *it->second;
    const int n = recvmmsg(c.fd, m_rxMsgs.data(), kRxBatch, MSG_DONTWAIT, nullptr);
    if (n < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            Close(id, q7x::ErrorText(errno).c_str());
        return 0;
    }
    for (int i = 0; i < n; ++i) {
        const size_t len = m_rxMsgs[i].msg_len;
        if (len == 0) {  // end of stream: a SEQPACKET peer that closed
            Close(id, "closed");
            return static_cast<size_t>(i);
        }
        const unsigned char* f = m_rxBlock.get() + static_cast<size_t>(i) * kMaxFrame;
        if (m_rxMsgs[i].msg_hdr.msg_flags & MSG_TRUNC)
            CountMalformed(c, "oversized frame");
        else
            Handle(c, f, len);
    }
    return static_cast<size_t>(n);
}

void CBusBroker::Handle(Client& c, const unsigned char* f, size_t n) {
    if (n < 4) {
        CountMalformed(c, "short frame");
        return;
    }
    const uint32_t op = Load32(f + kOffOp);
    switch (op) {
        case kOpHello:
            if (n != 8) break;
            c.appId = static_cast<int>(Load32(f + 4));
            Q7X_LOG(4, "client %u is app %d\n", c.id, c.appId);
            return;
        case kOpRegister:
        case kOpUnregister:
            if (n < 8 || n % 4 != 0) break;
            for (size_t off = 4; off < n; off += 4) {
                const uint32_t msgId = Load32(f + off);
                if (msgId > kIdMask)
                    CountMalformed(c, "message id out of range");
                else if (op == kOpRegister)
                    Subscribe(c, msgId);
                else
                    Unsubscribe(c, msgId);
            }
            return;
        case kOpSend:
        case kOpResponse:
            if (!MessageFrameOk(f, n)) break;
            Route(c, f, n, op);
            return;
        default:
            break;
    }
    CountMalformed(c, "malformed frame");
}

void CBusBroker::Route(const Client& from, const unsigned char* f, size_t n, uint32_t op) {
    std::vector<Client*>& to = m_route;
    to.clear();
    if (op == kOpResponse) {
        auto it = m_clients.find(Load32(f + kOffPeer));
        if (it == m_clients.end()) return;  // the requester has left
        to.push_back(it->second.get());
    } else {
        auto it = m_subscribers.find(Load32(f + kOffIdWord) & kIdMask);
        if (it == m_subscribers.end()) return;
        for (uint32_t id : it->second) {
            if (id == from.id) continue;  // never back to the sender
            auto c = m_clients.find(id);
            if (c != m_clients.end()) to.push_back(c->second.get());
        }
    }
    if (to.empty()) return;
    // One copy, shared by every queue it joins.
    Frame* frame = NewFrame(f, n);
    Store32(frame->bytes.data() + kOffOp, kOpDeliver);
    Store32(frame->bytes.data() + kOffPeer, from.id);
    ++frame->refs;  // held while it is handed round
    for (Client* c : to) Enqueue(*c, frame);
    Release(frame);
}

CBusBroker::Frame* CBusBroker::NewFrame(const unsigned char* f, size_t n) {
    Frame* frame;
    if (m_freeFrames.empty()) {
        frame = new Frame;
    } else {
        frame = m_freeFrames.back();
        m_freeFrames.pop_back();
    }
    frame->bytes.assign(f, f + n);
    return frame;
}

void CBusBroker::Release(Frame* frame) {
    if (--frame->refs > 0) return;
    if (frame->bytes.capacity() <= kReuseCapacity && m_freeFrames.size() < kMaxFreeFrames)
        m_freeFrames.push_back(frame);
    else
        delete frame;
}

void CBusBroker::Enqueue(Client& to, Frame* frame) {
    if (to.out.size() >= kMaxQueuedFrames ||
        to.outBytes + frame->bytes.size() > kMaxQueuedBytes) {
        ++to.dropped;
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        const auto now = Clock::now();
        if (now - to.lastDropLog >= std::chrono::seconds(1)) {
            to.lastDropLog = now;
            Q7X_LOG(2, "client %u (app %d) is not reading: %llu messages dropped so far\n",
                    to.id, to.appId, static_cast<unsigned long long>(to.dropped));
        }
        return;
    }
    ++frame->refs;
    to.out.push_back(frame);
    to.outBytes += frame->bytes.size();
    if (!to.dirty) {
        to.dirty = true;
        m_dirty.push_back(to.id);
    }
}

void CBusBroker::FlushDirty() {
    // Flush may close a client, which never adds to m_dirty; swap anyway so
    // that the loop runs over a list nobody changes.
    m_flushing.swap(m_dirty);
    for (uint32_t id : m_flushing) {
        auto it = m_clients.find(id);
        if (it == m_clients.end()) continue;
        it->second->dirty = false;
        Flush(*it->second);
    }
    m_flushing.clear();
}

void CBusBroker::Flush(Client& c) {
    while (!c.out.empty()) {
        const size_t k = std::min(c.out.size(), kTxBatch);
        for (size_t i = 0; i < k; ++i) {
            m_txIov[i].iov_base = c.out[i]->bytes.data();
            m_txIov[i].iov_len = c.out[i]->bytes.size();
            m_txMsgs[i] = {};
            m_txMsgs[i].msg_hdr.msg_iov = &m_txIov[i];
            m_txMsgs[i].msg_hdr.msg_iovlen = 1;
        }
        const int sent = sendmmsg(c.fd, m_txMsgs.data(), static_cast<unsigned>(k),
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                ArmWrite(c, true);
            } else {
                Close(c.id, q7x::ErrorText(errno).c_str());
            }
            return;
        }
        for (int i = 0; i < sent; ++i) {
            c.outBytes -= c.out.front()->bytes.size();
            Release(c.out.front());
            c.out.pop_front();
        }
        m_delivered.fetch_add(static_cast<uint64_t>(sent), std::memory_order_relaxed);
        if (static_cast<size_t>(sent) < k) {  // the socket is full
            ArmWrite(c, true);
            return;
        }
    }
    ArmWrite(c, false);
}

void CBusBroker::ArmWrite(Client& c, bool on) {
    if (c.wantWrite == on) return;
    c.wantWrite = on;
    struct epoll_event ev = {};
    ev.events = EPOLLIN | (on ? EPOLLOUT : 0u);
    ev.data.u64 = c.id;
    epoll_ctl(m_epoll, EPOLL_CTL_MOD, c.fd, &ev);
}

void CBusBroker::Subscribe(Client& c, uint32_t msgId) {
    if (c.subs.insert(msgId).second) m_subscribers[msgId].push_back(c.id);
}

void CBusBroker::Unsubscribe(Client& c, uint32_t msgId) {
    if (c.subs.erase(msgId) == 0) return;
    auto it = m_subscribers.find(msgId);
    if (it == m_subscribers.end()) return;
    std::vector<uint32_t>& ids = it->second;
    ids.erase(std::remove(ids.begin(), ids.end(), c.id), ids.end());
    if (ids.empty()) m_subscribers.erase(it);
}

void CBusBroker::Close(uint32_t id, const char* why) {
    auto it = m_clients.find(id);
    if (it == m_clients.end()) return;
    Client& c = *it->second;
    const std::vector<uint32_t> subs(c.subs.begin(), c.subs.end());
    for (uint32_t msgId : subs) Unsubscribe(c, msgId);
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, c.fd, nullptr);
    close(c.fd);
    for (Frame* f : c.out) Release(f);
    if (c.dropped > 0)
        Q7X_LOG(2, "client %u (app %d) left (%s); %llu messages were dropped for it\n", c.id,
                c.appId, why, static_cast<unsigned long long>(c.dropped));
    else
        Q7X_LOG(4, "client %u (app %d) left (%s)\n", c.id, c.appId, why);
    m_clients.erase(it);
}

void CBusBroker::CountMalformed(const Client& c, const char* what) {
    const uint64_t n = m_malformed.fetch_add(1, std::memory_order_relaxed) + 1;
    if ((n & (n - 1)) == 0)  // 1, 2, 4, 8, ...: visible without flooding
        Q7X_LOG(2, "%s from client %u (app %d); %llu dropped so far\n", what, c.id, c.appId,
                static_cast<unsigned long long>(n));
}

}  // namespace q7x
