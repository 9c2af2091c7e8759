// Helpers for tests on a private bus: a temporary folder, an in-process
// broker, a recorder of received messages and bounded waits.
#ifndef Q7X_BUS_TEST_UTIL_H
#define Q7X_BUS_TEST_UTIL_H

#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Broker.h"
#include "BusProtocol.h"
#include "Common.h"

namespace q7xtest {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A folder under /tmp, removed with its contents at the end of the scope.
class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/q7xtest.XXXXXX";
        const char* made = mkdtemp(tmpl);
        EXPECT_NE(made, nullptr);
        m_path = made ? made : "/tmp";
    }
    ~TempDir() {
        nftw(m_path.c_str(),
             [](const char* p, const struct stat*, int, struct FTW*) { return remove(p); }, 8,
             FTW_DEPTH | FTW_PHYS);
    }
    std::string Path(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// A broker serving on its own thread for the life of the object.
class BrokerThread {
public:
    explicit BrokerThread(const std::string& path) : m_broker(path) {
        m_ok = m_broker.Open() == 0;
        if (m_ok) m_thread = std::thread([this] { m_broker.Run(); });
    }
    ~BrokerThread() { Stop(); }
    void Stop() {
        if (!m_thread.joinable()) return;
        m_broker.Stop();
        m_thread.join();
    }
    bool ok() const { return m_ok; }
    q7x::CBusBroker& broker() { return m_broker; }

private:
    q7x::CBusBroker m_broker;
    bool m_ok = false;
    std::thread m_thread;
};

// One message as a callback saw it, decoded from its head.
struct Received {
    uint32_t id = 0;
    bool request = false;
    uint32_t source = 0;
    uint32_t session = 0;
    int len = 0;
    std::string payload;
};

// Collects what the ids it is bound to deliver. onEach, when set, runs inside
// the callback after the message is recorded, with the message as received.
class Recorder {
public:
    void OnMessage(const char* msg, int len) {
        const unsigned char* h = reinterpret_cast<const unsigned char*>(msg);
        Received r;
        r.source = q7x::Load32(h + 0);
        r.session = q7x::Load32(h + 4);
        r.id = q7x::Load32(h + 8) & 0xffff;
        r.request = (q7x::Load32(h + 8) & 0x10000) != 0;
        r.len = len;
        const uint32_t n = q7x::Load32(h + 12) & 0x7fffff;
        r.payload.assign(msg + 16, n);
        got.push_back(r);
        if (onEach) onEach(got.back(), msg);
    }
    size_t Count(uint32_t id) const {
        size_t n = 0;
        for (const Received& r : got) n += r.id == id;
        return n;
    }
    const Received* Find(uint32_t id) const {
        for (const Received& r : got)
            if (r.id == id) return &r;
        return nullptr;
    }
    std::vector<Received> got;
    std::function<void(const Received&, const char* msg)> onEach;
};

inline void* NewClient(int appId) {
    // The path given here is replaced by Q7X_BUS_PATH, as for a service.
    return Common::Q7X_MSGCreateMessageClient(appId, "/tmp/unix.domain", 0);
}

inline void Subscribe(void* client, Recorder& r, uint32_t id) {
    ASSERT_EQ(Common::Q7X_MSGEventRegister(client, id, Common::Q7X_Bind(&r, &Recorder::OnMessage)),
              0);
}

inline int Send(void* client, uint32_t id, const std::string& payload, int flag = 0) {
    return Common::Q7X_MSGSendMessage(client, 0, id, flag, payload.data(),
                                      static_cast<int>(payload.size()), 0);
}

// Waits on client until done() holds, for at most timeoutMs.
inline bool WaitUntil(void* client, const std::function<bool()>& done, int timeoutMs = 5000) {
    const auto deadline = Clock::now() + milliseconds(timeoutMs);
    while (!done()) {
        if (Clock::now() >= deadline) return false;
        Common::Q7X_MSGWaitForEvent(client, 20);
    }
    return true;
}

// Returns once the broker has handled every frame that receiver sent before
// the call (its subscriptions above all): receiver subscribes to a barrier
// id, and sender sends it until it arrives. The broker reads each connection
// in order, so the earlier frames were handled first.
inline void Sync(void* receiver, void* sender) {
    constexpr uint32_t kBarrier = 0x7ffe;
    Recorder r;
    Subscribe(receiver, r, kBarrier);
    const auto deadline = Clock::now() + milliseconds(5000);
    while (r.got.empty() && Clock::now() < deadline) {
        Send(sender, kBarrier, "");
        Common::Q7X_MSGWaitForEvent(receiver, 20);
    }
    Common::Q7X_MSGEventUnRegister(receiver, kBarrier);
    ASSERT_FALSE(r.got.empty()) << "the broker did not answer within 5 s";
}

// The command line to start: Q7X_SPAWN_PREFIX, when set, goes before it, an
// emulator with its options for programs built for another machine
// (scripts/cross.sh), words separated by spaces.
inline std::vector<std::string> WithSpawnPrefix(const std::vector<std::string>& args) {
    std::vector<std::string> all;
    const char* prefix = getenv("Q7X_SPAWN_PREFIX");
    std::string word;
    for (const char* p = prefix ? prefix : ""; ; ++p) {
        if (*p == ' ' || *p == '\0') {
            if (!word.empty()) all.push_back(word);
            word.clear();
            if (*p == '\0') break;
        } else {
            word += *p;
        }
    }
    all.insert(all.end(), args.begin(), args.end());
    return all;
}

inline std::string ReadText(const std::string& path) {
    std::string out;
    FILE* f = fopen(path.c_str(), "r");
    if (!f) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    fclose(f);
    return out;
}

// Redirects standard error to a file while alive; Text() reads what came.
class StderrCapture {
public:
    explicit StderrCapture(const std::string& file) : m_file(file) {
        fflush(stderr);
        m_saved = dup(STDERR_FILENO);
        const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        dup2(fd, STDERR_FILENO);
        close(fd);
    }
    ~StderrCapture() { Restore(); }
    std::string Text() {
        Restore();
        return ReadText(m_file);
    }

private:
    void Restore() {
        if (m_saved < 0) return;
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
        m_saved = -1;
    }
    std::string m_file;
    int m_saved = -1;
};

// A private bus for one test: its own folder, Q7X_BUS_PATH pointing into
// it, and a broker serving there.
class BusTest : public ::testing::Test {
protected:
    BusTest() : m_path(m_dir.Path("bus")) {
        setenv("Q7X_BUS_PATH", m_path.c_str(), 1);
        m_brokerThread = std::make_unique<BrokerThread>(m_path);
    }
    void SetUp() override { ASSERT_TRUE(m_brokerThread->ok()); }
    q7x::CBusBroker& broker() { return m_brokerThread->broker(); }

    TempDir m_dir;
    std::string m_path;
    std::unique_ptr<BrokerThread> m_brokerThread;
};

}  // namespace q7xtest

#endif  // Q7X_BUS_TEST_UTIL_H
