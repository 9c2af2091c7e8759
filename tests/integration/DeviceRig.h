// The whole device on a private bus for end-to-end tests: broker, platform
// peer serving a rule set, watchdog peer, zelctl watch, the host with the
// plug-in, the storage peer, and optionally the signal player; the test is a
// further client that records what passes. Every wait is bounded.
//
// Not thread-safe; one rig per test. Q7X_BUS_PATH of this process points at
// the rig's bus, so children and the test's own client meet there.
#ifndef ALERTZEL_TEST_DEVICERIG_H
#define ALERTZEL_TEST_DEVICERIG_H

#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "AlertList.h"
#include "AlertLogFile.h"
#include "ProcessUtil.h"

namespace zeltest {

const int kWaitMs = 20000;  // bound of every wait; runs take a few seconds

inline void WriteText(const std::string& path, const std::string& text) {
    FILE* f = fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr) << path;
    fputs(text.c_str(), f);
    fclose(f);
}

inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A line that a sanitizer prints about a finding, or "".
inline std::string SanitizerLine(const std::string& text) {
    for (const char* mark : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:"}) {
        size_t at = text.find(mark);
        if (at != std::string::npos) return text.substr(at, text.find('\n', at) - at);
    }
    return "";
}

class DeviceRig : public ::testing::Test {
protected:
    struct Program {
        std::string name;
        pid_t pid;
    };

    // Starts the device serving `rules` (a rule set's JSON). `scenario`, when
    // not empty, is played by zel-player from the service's rule request on.
    // `env` (NAME=VALUE) applies to the host and the storage peer: the
    // device's clock.
    void StartDevice(const std::string& rules, const std::string& scenario = "",
                     const std::vector<std::string>& env = {}) {
        m_bus = m_dir.Path("bus");
        setenv("Q7X_BUS_PATH", m_bus.c_str(), 1);
        WriteText(m_dir.Path("rules.json"), rules);
        Launch("busd", {Q7X_BUSD_BIN});
        ASSERT_TRUE(WaitListening(m_bus));
        m_peer = q7xtest::NewClient(70);
        for (uint32_t id : {1032u, 2086u, 3215u, 6661u, 6668u, 6796u})
            q7xtest::Subscribe(m_peer, m_seen, id);
        q7xtest::Sync(m_peer, q7xtest::NewClient(71));

        Launch("platform", {ZEL_PLATFORM_BIN, "serve", m_dir.Path("rules.json")});
        Launch("watchdog", {ZEL_WATCHDOG_BIN});
        Launch("watch", {ZELCTL_BIN, "watch"});
        if (!scenario.empty()) {
            WriteText(m_dir.Path("play.scn"), scenario);
            Launch("player", {ZEL_PLAYER_BIN, m_dir.Path("play.scn"), "--wait-for", "6796"});
        }
        ASSERT_TRUE(WaitFor([&] {
            return Has(Out("platform"), "serving") && Has(Out("watch"), "watching") &&
                   (scenario.empty() || Has(Out("player"), "waiting for"));
        }));
        WithEnv(env, [&] { Launch("host", {Q7X_HOST_BIN, ALERTZEL_PLUGIN}); });
        // Storage once the service listens: its first announcement counts.
        ASSERT_TRUE(WaitSeen(1032, 1)) << Out("host");
        StartStorage(env);
        ASSERT_TRUE(WaitFor([&] { return RulesApplied() >= 1; })) << Out("host");
    }

    // The storage peer on the device's clock, keeping its logs in logs/.
    void StartStorage(const std::vector<std::string>& env) {
        m_storageEnv = env;
        WithEnv(env, [&] { Launch("storage", {ZEL_STORAGE_BIN, m_dir.Path("logs")}); });
    }
    void RestartStorage() { StartStorage(m_storageEnv); }

    // Area state requests (CMD 11): one follows every applied rule change.
    size_t RulesApplied() const {
        size_t n = 0;
        for (const q7xtest::Received& r : m_seen.got)
            n += r.id == 6796 && Has(r.payload, "\"CMD\":11");
        return n;
    }

    // Every alert record of every message 3215 so far, in order.
    std::vector<zelctl::AlertRecord> Records() const {
        std::vector<zelctl::AlertRecord> all, one;
        for (const q7xtest::Received& r : m_seen.got) {
            if (r.id != 3215) continue;
            std::string why;
            const uint8_t* p = reinterpret_cast<const uint8_t*>(r.payload.data());
            EXPECT_TRUE(zelctl::decodeAlertList(p, r.payload.size(), one, why)) << why;
            all.insert(all.end(), one.begin(), one.end());
        }
        return all;
    }
    // The n-th (from 1) record of alert `id` with this end flag, waiting for it.
    bool WaitRecord(uint32_t id, bool ended, zelctl::AlertRecord* out = nullptr, int n = 1) {
        return WaitFor([&] {
            int seen = 0;
            for (const zelctl::AlertRecord& r : Records())
                if (r.alertID == id && r.ended == ended && ++seen == n) {
                    if (out) *out = r;
                    return true;
                }
            return false;
        });
    }
    bool WaitSeen(uint32_t id, size_t count) {
        return WaitFor([&] { return m_seen.Count(id) >= count; });
    }
    // Dispatches the test's client until done() holds.
    bool WaitFor(const std::function<bool()>& done, int timeoutMs = kWaitMs) {
        return q7xtest::WaitUntil(m_peer, done, timeoutMs);
    }

    // Runs a program to its end; its output. Fails the test on another exit.
    std::string Run(const std::vector<std::string>& args, int wantExit = 0) {
        const std::string out = m_dir.Path("run" + std::to_string(++m_runs) + ".out");
        pid_t pid = Spawn(args, out);
        int rc = -1;
        // Keep taking the bus's messages meanwhile.
        WaitFor([&] {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG) != pid) return false;
            rc = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return true;
        });
        const std::string text = q7xtest::ReadText(out);
        EXPECT_EQ(rc, wantExit) << args[0] << " " << (args.size() > 1 ? args[1] : "") << "\n"
                                << text;
        return text;
    }
    std::string Zelctl(const std::vector<std::string>& args, int wantExit = 0) {
        std::vector<std::string> all = {ZELCTL_BIN};
        all.insert(all.end(), args.begin(), args.end());
        return Run(all, wantExit);
    }

    // Frames of the log of `day` (yyyymmdd); fails the test unless whole.
    std::vector<zelstore::FrameInfo> Frames(const zelstore::Day& day) {
        std::vector<uint8_t> bytes;
        std::string why;
        const std::string path = m_dir.Path("logs/" + zelstore::logFileName(19, day));
        if (!zelstore::readLogFile(path, bytes, why)) return {};
        zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
        EXPECT_TRUE(scan.whole()) << path << ": " << scan.problem;
        return scan.frames;
    }
    static zelstore::Day DayOf(const zelctl::AlertRecord& r) {
        return zelstore::Day{2000 + r.time[0], r.time[1], r.time[2]};
    }
    static std::vector<uint8_t> Stamp(const uint8_t* six) {
        return std::vector<uint8_t>(six, six + 6);
    }

    std::string Out(const std::string& name) const {
        return q7xtest::ReadText(m_dir.Path(name + ".out"));
    }
    pid_t Pid(const std::string& name) const {
        for (const Program& p : m_programs)
            if (p.name == name) return p.pid;
        return -1;
    }
    void Kill9(const std::string& name) {
        pid_t pid = Pid(name);
        ASSERT_GT(pid, 0);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        Forget(name);
    }

    // Stops what still runs, the host first, each with SIGTERM; every one
    // must end cleanly and without a sanitizer finding.
    void TearDown() override {
        for (const char* name : {"host", "player", "storage", "platform", "watchdog", "watch"})
            Stop(name);
        Stop("busd");
        for (int i = 1; i <= m_runs; ++i)
            EXPECT_EQ(SanitizerLine(q7xtest::ReadText(m_dir.Path("run" + std::to_string(i) +
                                                                 ".out"))),
                      "");
    }

    q7xtest::TempDir m_dir;
    q7xtest::Recorder m_seen;

private:
    void Launch(const std::string& name, const std::vector<std::string>& args) {
        pid_t pid = m_procs.Start(args, m_dir.Path(name + ".out"));
        ASSERT_GT(pid, 0) << name;
        Forget(name);
        m_programs.push_back(Program{name, pid});
    }
    void Forget(const std::string& name) {
        m_programs.erase(std::remove_if(m_programs.begin(), m_programs.end(),
                                        [&](const Program& p) { return p.name == name; }),
                         m_programs.end());
    }
    void Stop(const std::string& name) {
        pid_t pid = Pid(name);
        if (pid <= 0) return;
        kill(pid, SIGTERM);
        EXPECT_EQ(WaitExit(pid, kWaitMs), 0) << name << ":\n" << Out(name);
        EXPECT_EQ(SanitizerLine(Out(name)), "") << name;
        Forget(name);
    }
    // Runs fn with the variables of env set in this process, for children
    // that fn starts.
    static void WithEnv(const std::vector<std::string>& env, const std::function<void()>& fn) {
        std::vector<std::string> names;
        for (const std::string& kv : env) {
            size_t eq = kv.find('=');
            names.push_back(kv.substr(0, eq));
            setenv(names.back().c_str(), kv.substr(eq + 1).c_str(), 1);
        }
        fn();
        for (const std::string& n : names) unsetenv(n.c_str());
    }

    ProcessGroup m_procs;
    std::vector<Program> m_programs;
    std::string m_bus;
    void* m_peer = nullptr;
    std::vector<std::string> m_storageEnv;
    int m_runs = 0;
};

}  // namespace zeltest

#endif  // ALERTZEL_TEST_DEVICERIG_H
