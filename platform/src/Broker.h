// The bus broker: one epoll loop that routes frames between clients (see
// BusProtocol.h for the frames and the routing rules).
//
// Used by q7x-busd on its main thread and by q7x-host on a thread of its own
// when no broker listens yet. Open and Run belong to one thread; Stop and the
// counters may be used from any thread, and Stop also from a signal handler.
//
// Each client has a bounded queue for frames its socket cannot take yet. A
// client that stops reading fills it, and what does not fit is dropped,
// counted and logged: it never stalls the loop or the other clients.
#ifndef Q7X_BROKER_H
#define Q7X_BROKER_H

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace q7x {

class CBusBroker {
public:
    // Queue bound per client, in frames and in bytes. The busiest stream on a
    // recorder is CAN, up to 8,000 frames of 48 bytes a second. A reader that
    // sleeps 100 ms falls 800 frames behind; the kernel buffer (raised to
    // 1 MiB where allowed, else about 200 KiB, some 270 small frames) takes
    // part of that, and this queue holds 4096 more: half a second of CAN at
    // full rate. The byte cap bounds the memory one stuck client can pin to
    // 32 frames of the largest size.
    static constexpr size_t kMaxQueuedFrames = 4096;
    static constexpr size_t kMaxQueuedBytes = 4u << 20;

    explicit CBusBroker(std::string path);
    // Closes every connection and removes the socket file if it is still the
    // one this broker bound.
    ~CBusBroker();
    CBusBroker(const CBusBroker&) = delete;
    CBusBroker& operator=(const CBusBroker&) = delete;

    // Binds and listens at the path, replacing a stale socket file. Fails,
    // with one diagnostic line, when another broker answers there, when the
    // path is something other than a socket, or when binding fails.
    int Open();
    // Serves until Stop. Frames that clients sent before the stop are still
    // read and handed on, as far as their readers' sockets take them.
    void Run();
    void Stop();

    // The receive path without the loop, for tests and fuzzing. Adopt serves
    // a connected socket as a new client and returns its id (0 on failure);
    // Feed handles frame f of n bytes as if that client had sent it, and
    // hands on at once what it routes. Both belong to the thread that would
    // run Run, and not while Run runs.
    uint32_t Adopt(int fd);
    void Feed(uint32_t clientId, const unsigned char* f, size_t n);

    uint64_t Dropped() const { return m_dropped.load(std::memory_order_relaxed); }
    uint64_t Malformed() const { return m_malformed.load(std::memory_order_relaxed); }
    uint64_t Delivered() const { return m_delivered.load(std::memory_order_relaxed); }

private:
    struct Client;
    // A frame shared by the queues it joins. The loop is the only thread that
    // touches frames, so the count is a plain one.
    struct Frame {
        size_t refs = 0;
        std::vector<unsigned char> bytes;
    };

    void AcceptAll();
    size_t ReadFrom(uint32_t id);
    void Handle(Client& c, const unsigned char* f, size_t n);
    void Route(const Client& from, const unsigned char* f, size_t n, uint32_t op);
    void Enqueue(Client& to, Frame* frame);
    Frame* NewFrame(const unsigned char* f, size_t n);
    void Release(Frame* frame);
    void FlushDirty();
    void Flush(Client& c);
    void ArmWrite(Client& c, bool on);
    void Subscribe(Client& c, uint32_t msgId);
    void Unsubscribe(Client& c, uint32_t msgId);
    void Close(uint32_t id, const char* why);
    void CountMalformed(const Client& c, const char* what);

    const std::string m_path;
    int m_listen = -1;
    int m_epoll = -1;
    int m_stop = -1;
    bool m_bound = false;
    dev_t m_dev = 0;
    ino_t m_ino = 0;

    uint32_t m_nextId = 1;
    std::unordered_map<uint32_t, std::unique_ptr<Client>> m_clients;
    std::unordered_map<uint32_t, std::vector<uint32_t>> m_subscribers;  // msg id -> client ids
    std::vector<uint32_t> m_dirty;                                      // clients to flush
    std::vector<uint32_t> m_flushing;                                   // those being flushed
    std::vector<Client*> m_route;      // receivers of the frame in hand
    std::vector<Frame*> m_freeFrames;  // small frames kept for reuse

    std::unique_ptr<unsigned char[]> m_rxBlock;
    std::vector<struct iovec> m_rxIov;
    std::vector<struct mmsghdr> m_rxMsgs;
    std::vector<struct iovec> m_txIov;
    std::vector<struct mmsghdr> m_txMsgs;

    std::atomic<uint64_t> m_dropped{0};
    std::atomic<uint64_t> m_malformed{0};
    std::atomic<uint64_t> m_delivered{0};
};

}  // namespace q7x

#endif  // Q7X_BROKER_H
