// Helpers for tests on a private bus: a temporary folder, an in-process
// broker, a recorder of received messages, bounded waits, and programs run as
// children of the test.
#ifndef Q7X_BUS_TEST_UTIL_H
#define Q7X_BUS_TEST_UTIL_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Broker.h"
#include "BusProtocol.h"
#include "Common.h"
#include "UnixSocket.h"

namespace q7xtest {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A folder under /tmp, removed with its contents at the end of the scope.
struct TempDir {
    TempDir() {
        char tmpl[] = "/tmp/q7xtest.XXXXXX";
        EXPECT_NE(mkdtemp(tmpl), nullptr);
        path = tmpl;
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string Path(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

// A broker serving on its own thread for the life of the object.
struct BrokerThread {
    explicit BrokerThread(const std::string& path) : broker(path), ok(broker.Open() == 0) {
        if (ok) thread = std::thread([this] { broker.Run(); });
    }
    ~BrokerThread() {
        broker.Stop();
        if (thread.joinable()) thread.join();
    }
    q7x::CBusBroker broker;
    bool ok;
    std::thread thread;
};

// One message as a callback saw it, decoded from its head.
struct Received {
    uint32_t id, source, session;
    bool request;
    int len;
    std::string payload;
};

// Collects what the ids it is bound to deliver. onEach, when set, runs inside
// the callback after the message is recorded, with the message as received.
struct Recorder {
    void OnMessage(const char* msg, int len) {
        const unsigned char* h = reinterpret_cast<const unsigned char*>(msg);
        const uint32_t word = q7x::Load32(h + 8);
        got.push_back({word & 0xffff, q7x::Load32(h), q7x::Load32(h + 4), (word & 0x10000) != 0,
                       len, std::string(msg + 16, q7x::Load32(h + 12) & 0x7fffff)});
        if (onEach) onEach(got.back(), msg);
    }
    size_t Count(uint32_t id) const {
        return std::count_if(got.begin(), got.end(), [&](const Received& r) { return r.id == id; });
    }
    const Received* Find(uint32_t id) const {
        for (const Received& r : got)
            if (r.id == id) return &r;
        return nullptr;
    }
    std::vector<Received> got;
    std::function<void(const Received&, const char* msg)> onEach;
};

// The path given here is replaced by Q7X_BUS_PATH, as for a service.
inline void* NewClient(int appId) {
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

// Polls done() until it holds, for at most timeoutMs; with a client, waits on
// the bus in between, so that its callbacks run.
inline bool WaitUntil(void* client, const std::function<bool()>& done, int timeoutMs = 5000) {
    const auto deadline = Clock::now() + milliseconds(timeoutMs);
    while (!done()) {
        if (Clock::now() >= deadline) return false;
        if (client)
            Common::Q7X_MSGWaitForEvent(client, 20);
        else
            std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
}
inline bool Eventually(const std::function<bool()>& done, int timeoutMs = 5000) {
    return WaitUntil(nullptr, done, timeoutMs);
}

// Returns once the broker has handled every frame that receiver sent before
// the call (its subscriptions above all): receiver subscribes to a barrier
// id, and sender sends it until it arrives. The broker reads each connection
// in order, so the earlier frames were handled first.
inline void Sync(void* receiver, void* sender) {
    Recorder r;
    Subscribe(receiver, r, 0x7ffe);
    EXPECT_TRUE(WaitUntil(receiver, [&] {
        if (r.got.empty()) Send(sender, 0x7ffe, "");
        return !r.got.empty();
    })) << "the broker did not answer within 5 s";
    Common::Q7X_MSGEventUnRegister(receiver, 0x7ffe);
}

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// What fn writes to standard error.
inline std::string StderrOf(const std::function<void()>& fn) {
    ::testing::internal::CaptureStderr();
    fn();
    return ::testing::internal::GetCapturedStderr();
}

// Starts a program with its output in outFile, its standard error too unless
// errFile names another; -1 on failure. Q7X_SPAWN_PREFIX goes before it: an
// emulator for programs built for another machine.
inline pid_t Spawn(const std::vector<std::string>& args, const std::string& outFile,
                   const std::string& errFile = "") {
    std::vector<std::string> line;
    // The test's own thread reads the environment; no other thread writes it.
    const char* emulator = getenv("Q7X_SPAWN_PREFIX");  // NOLINT(concurrency-mt-unsafe)
    std::istringstream prefix(emulator ? emulator : "");
    for (std::string word; prefix >> word;) line.push_back(word);
    line.insert(line.end(), args.begin(), args.end());
    std::vector<char*> argv;
    argv.reserve(line.size() + 1);
    for (const std::string& a : line) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (errFile.empty())
        posix_spawn_file_actions_adddup2(&fa, 1, 2);
    else
        posix_spawn_file_actions_addopen(&fa, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    EXPECT_EQ(rc, 0) << args[0];
    return rc == 0 ? pid : -1;
}

// The exit code, 128 + signal, or -1 after a timeout (then killed) or for no pid.
inline int WaitExit(pid_t pid, int timeoutMs = 20000) {
    int status = 0;
    if (pid <= 0) return -1;  // never wait for, or signal, "any process"
    if (!Eventually([&] { return waitpid(pid, &status, WNOHANG) != 0; }, timeoutMs)) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs a program to its end: its exit code and its output.
inline std::pair<int, std::string> RunToEnd(const std::vector<std::string>& args,
                                            const std::string& outFile) {
    const int code = WaitExit(Spawn(args, outFile));
    return {code, ReadText(outFile)};
}

inline bool WaitListening(const std::string& path) {
    return Eventually([&] { return q7x::BrokerListening(path); });
}

// Programs started by a test under a name, each with its output in
// DIR/NAME.out; what still runs at the end of the scope is killed.
class Children {
public:
    explicit Children(const TempDir& dir) : m_dir(dir) {}
    ~Children() {
        for (const auto& p : m_running) kill(p.second, SIGKILL), waitpid(p.second, nullptr, 0);
    }
    void Start(const std::string& name, const std::vector<std::string>& args) {
        const pid_t pid = Spawn(args, m_dir.Path(name + ".out"));
        if (pid > 0) m_running.emplace_back(name, pid);
    }
    // Signals the program and waits for its end, as WaitExit; -1 when not running.
    int Stop(const std::string& name, int signal = SIGTERM) {
        auto it = std::find_if(m_running.begin(), m_running.end(),
                               [&](const auto& p) { return p.first == name; });
        if (it == m_running.end()) return -1;
        const pid_t pid = it->second;
        m_running.erase(it);
        kill(pid, signal);
        return WaitExit(pid);
    }
    const std::vector<std::pair<std::string, pid_t>>& Running() const { return m_running; }
    std::string Out(const std::string& name) const { return ReadText(m_dir.Path(name + ".out")); }

private:
    const TempDir& m_dir;
    std::vector<std::pair<std::string, pid_t>> m_running;
};

// A private bus for one test: its own folder, Q7X_BUS_PATH pointing into
// it, and a broker serving there.
class BusTest : public ::testing::Test {
protected:
    BusTest() : m_path(m_dir.Path("bus")) {
        // Set before the broker thread starts; each test runs on its own.
        setenv("Q7X_BUS_PATH", m_path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        m_broker = std::make_unique<BrokerThread>(m_path);
    }
    void SetUp() override { ASSERT_TRUE(m_broker->ok); }

    TempDir m_dir;
    std::string m_path;
    std::unique_ptr<BrokerThread> m_broker;
};

}  // namespace q7xtest

#endif  // Q7X_BUS_TEST_UTIL_H
