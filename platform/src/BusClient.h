// One client's connection to the broker, behind the Q7X_MSG* functions.
//
// Threads: Wait runs callbacks on the thread that calls it and may be called
// again from inside a callback. Register, Unregister, Send and Respond may be
// called from any thread, also while another thread waits. One mutex guards
// the connection, the callback table and the inbox; callbacks run without it.
//
// No thread of its own: reconnection to a broker that went away happens inside
// Wait and Send, at most once per kRetryInterval.
//
// Receiving takes up to kRxSlots frames per recvmmsg. Each slot has room for
// the largest frame, but the block is mapped untouched, so a slot costs
// resident memory only as far as frames have filled it; past kKeepResident
// bytes a slot is handed back to the kernel after use.
#ifndef Q7X_BUS_CLIENT_H
#define Q7X_BUS_CLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Common.h"

namespace q7x {

class CBusClient {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kRetryInterval{150};
    static constexpr size_t kRxSlots = 64;
    static constexpr size_t kKeepResident = size_t{16} * 1024;

    // path is used as given (callers apply ResolveBusPath). Tries to connect
    // at once; a missing broker only delays delivery.
    CBusClient(int appId, std::string path);
    ~CBusClient();
    CBusClient(const CBusClient&) = delete;
    CBusClient& operator=(const CBusClient&) = delete;

    // Takes ownership of cb in every case: on failure it is deleted at once.
    // Registering an id again replaces its callback.
    int Register(uint32_t id, Common::CMsgCallback* cb);
    // The callback is deleted once no wait is still running it.
    int Unregister(uint32_t id);
    int Wait(int timeoutMs);
    int Send(uint32_t id, bool request, const void* payload, int len);
    int Respond(const void* requestHead, const void* payload, int len);

    // The delivery path without a socket, for tests and fuzzing: takes n
    // bytes as one record from the broker, as a wait would, and dispatches
    // what is waiting. Returns how many callbacks ran.
    int Inject(const void* record, size_t n);

    // Messages this client could not hand to the broker.
    uint64_t Dropped() const { return m_dropped.load(std::memory_order_relaxed); }

private:
    struct Entry {
        std::unique_ptr<Common::CMsgCallback> cb;
        std::atomic<bool> live{true};
    };
    using Frame = std::vector<unsigned char>;  // SMessageHead + payload

    int SendMessage(uint32_t op, uint32_t peer, uint32_t session, uint32_t idWord,
                    const void* payload, size_t len);
    int SendFrameLocked(const struct iovec* iov, int iovcnt);
    void SendIdsLocked(uint32_t op, const std::vector<uint32_t>& ids);
    void ReconnectLocked(bool force);
    void DisconnectedLocked(const char* why);
    void DrainLocked();
    void TakeRecordLocked(const unsigned char* f, size_t n);
    int DispatchInbox();

    const int m_appId;
    const std::string m_path;
    // The descriptor number stays the same for the client's whole life; a
    // reconnect puts the new socket on it with dup3. A wait polling it from
    // another thread therefore never ends up on somebody else's file.
    int m_fd = -1;

    std::mutex m_mu;
    bool m_connected = false;
    bool m_reportedLoss = false;
    Clock::time_point m_nextAttempt{};
    std::map<uint32_t, std::shared_ptr<Entry>> m_callbacks;
    std::deque<Frame> m_inbox;
    std::vector<Frame> m_spare;  // dispatched small frames, kept for reuse
    // Set when a drain found the socket empty: the next wait goes straight to
    // poll, which tells it when there is more.
    bool m_rxEmpty = false;
    unsigned char* m_rxBlock = nullptr;  // kRxSlots slots of m_slotStride bytes, mapped
    size_t m_slotStride = 0;             // kMaxFrame rounded up to whole pages
    size_t m_keepResident = 0;           // kKeepResident rounded up to whole pages
    struct iovec m_rxIov[kRxSlots];
    struct mmsghdr m_rxMsgs[kRxSlots];
    uint64_t m_malformed = 0;

    std::atomic<uint32_t> m_session{0};
    std::atomic<uint64_t> m_dropped{0};
};

}  // namespace q7x

#endif  // Q7X_BUS_CLIENT_H
