// Real processes on a private bus: q7x-busd, q7x-host with a test plug-in,
// and this test as the peer the plug-in talks to.
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "BusTestUtil.h"
#include "UnixSocket.h"

extern char** environ;

namespace q7xtest {
namespace {

constexpr uint32_t kStarted = 0x0501;
constexpr uint32_t kStopped = 0x0502;
constexpr uint32_t kPing = 0x0503;
constexpr uint32_t kPong = 0x8503;

// Starts a program with stdout and stderr going to outFile.
pid_t Spawn(const std::vector<std::string>& args, const std::string& outFile) {
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&fa, 1, 2);
    const std::vector<std::string> line = q7xtest::WithSpawnPrefix(args);
    std::vector<char*> argv;
    for (const std::string& a : line) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    EXPECT_EQ(rc, 0) << args[0];
    return rc == 0 ? pid : -1;
}

// The exit code, 128 + signal for a signal, or -1 after a timeout (the
// process is then killed).
int WaitExit(pid_t pid, int timeoutMs = 10000) {
    const auto deadline = Clock::now() + milliseconds(timeoutMs);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool WaitListening(const std::string& path) {
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (!q7x::BrokerListening(path)) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

class HostProcess : public ::testing::TestWithParam<bool> {
protected:
    HostProcess() : m_path(m_dir.Path("bus")) { setenv("Q7X_BUS_PATH", m_path.c_str(), 1); }
    TempDir m_dir;
    std::string m_path;
};

// Param: whether a q7x-busd runs first, or the host brings its own broker.
TEST_P(HostProcess, RunsThePluginUntilSigtermThenDestroysIt) {
    const bool ownBroker = GetParam();
    pid_t busd = -1;
    pid_t host = -1;
    if (!ownBroker) {
        busd = Spawn({Q7X_BUSD_BIN}, m_dir.Path("busd.out"));
        ASSERT_TRUE(WaitListening(m_path));
    } else {
        host = Spawn({Q7X_HOST_BIN, Q7X_TEST_PLUGIN}, m_dir.Path("host.out"));
        ASSERT_TRUE(WaitListening(m_path));
    }
    void* peer = NewClient(40);
    void* helper = NewClient(41);
    Recorder rp;
    for (uint32_t id : {kStarted, kStopped, kPong}) Subscribe(peer, rp, id);
    Sync(peer, helper);
    if (!ownBroker) {
        host = Spawn({Q7X_HOST_BIN, Q7X_TEST_PLUGIN}, m_dir.Path("host.out"));
        ASSERT_TRUE(WaitUntil(peer, [&] { return rp.Count(kStarted) == 1; }, 10000));
    }

    // The plug-in subscribes before it is created, but it may still be
    // connecting: ask until it answers.
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (rp.Count(kPong) == 0 && Clock::now() < deadline) {
        Send(peer, kPing, "ping", 1);
        Common::Q7X_MSGWaitForEvent(peer, 50);
    }
    ASSERT_GE(rp.Count(kPong), 1u) << ReadText(m_dir.Path("host.out"));
    EXPECT_EQ(rp.Find(kPong)->payload, "pong:ping");
    if (!ownBroker) {
        EXPECT_EQ(rp.Find(kPong)->source, rp.Find(kStarted)->source);
    }

    ASSERT_EQ(kill(host, SIGTERM), 0);
    EXPECT_TRUE(WaitUntil(peer, [&] { return rp.Count(kStopped) == 1; }, 10000));
    EXPECT_EQ(WaitExit(host), 0) << ReadText(m_dir.Path("host.out"));
    if (busd > 0) {
        ASSERT_EQ(kill(busd, SIGTERM), 0);
        EXPECT_EQ(WaitExit(busd), 0) << ReadText(m_dir.Path("busd.out"));
    }
    struct stat st;
    EXPECT_NE(lstat(m_path.c_str(), &st), 0) << "the broker removes its socket file";
}

INSTANTIATE_TEST_SUITE_P(Broker, HostProcess, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& p) {
                             return p.param ? "HostsItsOwn" : "SeparateProcess";
                         });

TEST(HostCommandLine, RefusesWhatItCannotRun) {
    struct Case {
        const char* name;
        std::vector<std::string> args;
        int code;
        const char* says;
    };
    TempDir dir;
    setenv("Q7X_BUS_PATH", dir.Path("bus").c_str(), 1);
    const Case cases[] = {
        {"host without a plug-in", {Q7X_HOST_BIN}, 2, "usage: q7x-host"},
        {"plug-in that does not exist", {Q7X_HOST_BIN, dir.Path("absent.so")}, 1, "absent.so"},
        {"library without Create", {Q7X_HOST_BIN, Q7X_COMMON_LIB}, 1, "Create"},
        {"broker with two paths", {Q7X_BUSD_BIN, "a", "b"}, 2, "usage: q7x-busd"},
    };
    for (const Case& c : cases) {
        const std::string out = dir.Path("out");
        const pid_t pid = Spawn(c.args, out);
        ASSERT_GT(pid, 0) << c.name;
        EXPECT_EQ(WaitExit(pid), c.code) << c.name;
        const std::string text = ReadText(out);
        EXPECT_NE(text.find(c.says), std::string::npos) << c.name << ": " << text;
    }
    struct stat st;
    EXPECT_NE(lstat(dir.Path("bus").c_str(), &st), 0) << "nothing started a broker";
}

}  // namespace
}  // namespace q7xtest
