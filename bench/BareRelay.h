// The baseline of the bus figures: the least a SOCK_SEQPACKET relay through
// an epoll loop can do. Every record a client sends goes, unread and
// unchanged, to every other connected client: recvmmsg in, sendmmsg out.
// No protocol, no subscriptions, no queues; a record that a full socket
// refuses is dropped and counted. With two clients that is a point-to-point
// pipe in both directions, with n clients a fan-out of n - 1.
//
// Open and Run belong to one thread; Stop and the counters may be used from
// any thread, Stop also from a signal handler.
#ifndef AZ_BENCH_BARE_RELAY_H
#define AZ_BENCH_BARE_RELAY_H

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace bench {

class CBareRelay {
public:
    static constexpr size_t kBatch = 64;
    static constexpr size_t kMaxRecord = 2048;

    explicit CBareRelay(std::string path);
    ~CBareRelay();
    CBareRelay(const CBareRelay&) = delete;
    CBareRelay& operator=(const CBareRelay&) = delete;

    // Binds and listens at path (a stale file there is removed). -1 on failure.
    int Open();
    void Run();
    void Stop();

    uint64_t Relayed() const { return m_relayed.load(std::memory_order_relaxed); }
    uint64_t Dropped() const { return m_dropped.load(std::memory_order_relaxed); }

private:
    void Accept();
    void Relay(size_t from);
    void Drop(size_t index);

    const std::string m_path;
    int m_listen = -1;
    int m_epoll = -1;
    int m_stop = -1;
    std::vector<int> m_fds;  // connected clients, in order of arrival

    std::unique_ptr<unsigned char[]> m_block;
    struct mmsghdr m_rx[kBatch];
    struct iovec m_rxIov[kBatch];
    struct mmsghdr m_tx[kBatch];
    struct iovec m_txIov[kBatch];

    std::atomic<uint64_t> m_relayed{0};
    std::atomic<uint64_t> m_dropped{0};
};

// A client of the bare relay: a blocking connected socket, or -1.
int BareConnect(const std::string& path);

}  // namespace bench

#endif  // AZ_BENCH_BARE_RELAY_H
