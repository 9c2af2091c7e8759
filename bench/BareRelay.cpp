#include "BareRelay.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/un.h>
#include <unistd.h>

#include "Log.h"

namespace bench {

namespace {

// The same socket buffers the broker asks for, so that neither side wins by
// queueing more in the kernel.
constexpr int kRelayBuffer = 1 << 20;
constexpr int kClientBuffer = 512 * 1024;
constexpr uint64_t kTagListen = ~uint64_t{0};
constexpr uint64_t kTagStop = ~uint64_t{0} - 1;

bool Address(const std::string& path, sockaddr_un* addr, socklen_t* len) {
    if (path.empty() || path.size() >= sizeof addr->sun_path) return false;
    memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    *len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

}  // namespace

CBareRelay::CBareRelay(std::string path)
    : m_path(std::move(path)), m_block(new unsigned char[kBatch * kMaxRecord]) {
    for (size_t i = 0; i < kBatch; ++i) {
        m_rxIov[i] = {m_block.get() + i * kMaxRecord, kMaxRecord};
        m_rx[i] = {};
        m_rx[i].msg_hdr.msg_iov = &m_rxIov[i];
        m_rx[i].msg_hdr.msg_iovlen = 1;
        m_txIov[i] = {m_block.get() + i * kMaxRecord, 0};
        m_tx[i] = {};
        m_tx[i].msg_hdr.msg_iov = &m_txIov[i];
        m_tx[i].msg_hdr.msg_iovlen = 1;
    }
}

CBareRelay::~CBareRelay() {
    for (int fd : m_fds) close(fd);
    if (m_listen >= 0) {
        close(m_listen);
        unlink(m_path.c_str());
    }
    if (m_epoll >= 0) close(m_epoll);
    if (m_stop >= 0) close(m_stop);
}

int CBareRelay::Open() {
    sockaddr_un addr;
    socklen_t len;
    if (!Address(m_path, &addr, &len)) return -1;
    unlink(m_path.c_str());
    m_listen = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    m_epoll = epoll_create1(EPOLL_CLOEXEC);
    m_stop = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_listen < 0 || m_epoll < 0 || m_stop < 0) return -1;
    if (bind(m_listen, reinterpret_cast<const sockaddr*>(&addr), len) != 0 ||
        listen(m_listen, SOMAXCONN) != 0) {
        fprintf(stderr, "bare relay: %s: %s\n", m_path.c_str(),
                q7x::ErrorText(errno).c_str());
        return -1;
    }
    struct epoll_event ev = {};
    ev.events = EPOLLIN;
    ev.data.u64 = kTagListen;
    epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_listen, &ev);
    ev.data.u64 = kTagStop;
    epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_stop, &ev);
    return 0;
}

void CBareRelay::Stop() {
    const uint64_t one = 1;
    if (m_stop >= 0 && write(m_stop, &one, sizeof one) < 0) {
        // a full counter: a stop is pending already
    }
}

void CBareRelay::Run() {
    struct epoll_event evs[64];
    for (;;) {
        const int n = epoll_wait(m_epoll, evs, 64, -1);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return;
        for (int i = 0; i < n; ++i) {
            const uint64_t tag = evs[i].data.u64;
            if (tag == kTagStop) return;
            if (tag == kTagListen) {
                Accept();
                continue;
            }
            // Tags are client fds; find the client's index (a handful at most).
            for (size_t k = 0; k < m_fds.size(); ++k)
                if (static_cast<uint64_t>(m_fds[k]) == tag) {
                    Relay(k);
                    break;
                }
        }
    }
}

void CBareRelay::Accept() {
    for (;;) {
        const int fd = accept4(m_listen, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;
        if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &kRelayBuffer, sizeof kRelayBuffer) != 0)
            setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kRelayBuffer, sizeof kRelayBuffer);
        struct epoll_event ev = {};
        ev.events = EPOLLIN;
        ev.data.u64 = static_cast<uint64_t>(fd);
        epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &ev);
        m_fds.push_back(fd);
    }
}

// One batch per readiness: the loop comes back while the socket stays
// readable, as the broker's does.
void CBareRelay::Relay(size_t from) {
    const int n = recvmmsg(m_fds[from], m_rx, kBatch, MSG_DONTWAIT, nullptr);
    if (n < 0) {
        if (errno != EAGAIN && errno != EINTR) Drop(from);
        return;
    }
    int count = 0;
    while (count < n && m_rx[count].msg_len > 0) {
        m_txIov[count].iov_len = m_rx[count].msg_len;
        ++count;
    }
    for (size_t k = 0; k < m_fds.size() && count > 0; ++k) {
        if (k == from) continue;
        const int sent = sendmmsg(m_fds[k], m_tx, static_cast<unsigned>(count),
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
        const int ok = sent < 0 ? 0 : sent;
        m_relayed.fetch_add(static_cast<uint64_t>(ok), std::memory_order_relaxed);
        m_dropped.fetch_add(static_cast<uint64_t>(count - ok), std::memory_order_relaxed);
    }
    if (count < n) Drop(from);  // a record of zero bytes: the client has closed
}

void CBareRelay::Drop(size_t index) {
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, m_fds[index], nullptr);
    close(m_fds[index]);
    m_fds.erase(m_fds.begin() + static_cast<long>(index));
}

int BareConnect(const std::string& path) {
    sockaddr_un addr;
    socklen_t len;
    if (!Address(path, &addr, &len)) return -1;
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), len) != 0) {
        close(fd);
        return -1;
    }
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kClientBuffer, sizeof kClientBuffer);
    return fd;
}

}  // namespace bench
