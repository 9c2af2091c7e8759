// Helpers for tests with real processes on a private bus: start a program
// with its output in a file, wait for its exit or for a broker to listen.
#ifndef ALERTZEL_TEST_PROCESSUTIL_H
#define ALERTZEL_TEST_PROCESSUTIL_H

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "BusTestUtil.h"
#include "UnixSocket.h"

extern char** environ;

namespace zeltest {

using q7xtest::Clock;
using q7xtest::milliseconds;

// Starts a program with stdout and stderr going to outFile; -1 on failure.
inline pid_t Spawn(const std::vector<std::string>& args, const std::string& outFile) {
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
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
inline int WaitExit(pid_t pid, int timeoutMs = 10000) {
    // A failed start gives -1: never wait for, or signal, "any process".
    if (pid <= 0) return -1;
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

inline bool WaitListening(const std::string& path, int timeoutMs = 5000) {
    const auto deadline = Clock::now() + milliseconds(timeoutMs);
    while (!q7x::BrokerListening(path)) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

// Processes started by a test, killed at the end of the scope if still alive.
class ProcessGroup {
public:
    ~ProcessGroup() {
        for (pid_t pid : m_pids) {
            if (kill(pid, 0) == 0) {
                kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
        }
    }
    pid_t Start(const std::vector<std::string>& args, const std::string& outFile) {
        pid_t pid = Spawn(args, outFile);
        if (pid > 0) m_pids.push_back(pid);
        return pid;
    }

private:
    std::vector<pid_t> m_pids;
};

}  // namespace zeltest

#endif
