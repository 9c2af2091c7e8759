// Real processes on a private bus: the broker, the peers, the host with the
// plug-in and the tools as children of the test, which is itself a client
// that records what passes. Every wait is bounded; every program still running
// at the end must stop cleanly on SIGTERM without a sanitizer finding.
// Q7X_BUS_PATH of this process points at the rig's bus.
#ifndef ALERTZEL_TEST_DEVICERIG_H
#define ALERTZEL_TEST_DEVICERIG_H

#include "AlertList.h"
#include "AlertLogFile.h"
#include "BusTestUtil.h"

namespace zeltest {

using namespace q7xtest;
using zelctl::AlertRecord;
using zelstore::FrameInfo;

const int kWaitMs = 20000;  // bound of every wait; runs take a few seconds

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}
inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
inline bool SanitizerFree(const std::string& text) {
    return !Has(text, "ERROR: AddressSanitizer") && !Has(text, "ERROR: LeakSanitizer") &&
           !Has(text, "runtime error:");
}
inline std::vector<uint8_t> Stamp(const uint8_t* six) { return std::vector<uint8_t>(six, six + 6); }

class Rig : public ::testing::Test {
protected:
    // The broker, and this test's client recording `ids`.
    void StartBus(std::initializer_list<uint32_t> ids) {
        // The test's one thread reads and writes the environment; what it
        // starts are processes.
        setenv("Q7X_BUS_PATH", m_dir.Path("bus").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        m_kids.Start("busd", {Q7X_BUSD_BIN});
        ASSERT_TRUE(WaitListening(m_dir.Path("bus")));
        m_peer = NewClient(70);
        for (uint32_t id : ids) Subscribe(m_peer, m_seen, id);
        Sync(m_peer, NewClient(71));
    }

    // The whole device serving `rules` (a rule set's JSON). `scenario`, when
    // not empty, is played by zel-player from the service's rule request on.
    void StartDevice(const std::string& rules, const std::string& scenario = "") {
        StartBus({1032u, 2086u, 3215u, 6796u, 39564u});
        WriteText(m_dir.Path("rules.json"), rules);
        m_kids.Start("platform", {ZEL_PLATFORM_BIN, "serve", m_dir.Path("rules.json")});
        m_kids.Start("watchdog", {ZEL_WATCHDOG_BIN});
        m_kids.Start("watch", {ZELCTL_BIN, "watch"});
        if (!scenario.empty()) {
            WriteText(m_dir.Path("play.scn"), scenario);
            m_kids.Start("player", {ZEL_PLAYER_BIN, m_dir.Path("play.scn"), "--wait-for", "6796"});
        }
        ASSERT_TRUE(WaitFor([&] {
            return Has(Out("platform"), "serving") && Has(Out("watch"), "watching") &&
                   (scenario.empty() || Has(Out("player"), "waiting for"));
        }));
        m_kids.Start("host", {Q7X_HOST_BIN, ALERTZEL_PLUGIN});
        // Storage once the service listens: its first announcement counts.
        ASSERT_TRUE(WaitFor([&] { return m_seen.Count(1032) > 0; })) << Out("host");
        StartStorage();
        ASSERT_TRUE(WaitFor([&] { return RulesApplied() >= 1; })) << Out("host");
    }
    // The storage peer keeping its logs in logs/, once it announced itself.
    void StartStorage() {
        const size_t before = m_seen.Count(2086);
        m_kids.Start("storage", {ZEL_STORAGE_BIN, m_dir.Path("logs")});
        ASSERT_TRUE(WaitFor([&] { return m_seen.Count(2086) > before; })) << Out("storage");
    }

    // Ends a program: SIGTERM must end it cleanly (a sanitizer finding would
    // change its exit code); SIGKILL, as a power cut.
    void Stop(const std::string& name, int signal = SIGTERM) {
        const int code = m_kids.Stop(name, signal);
        EXPECT_TRUE(signal != SIGTERM || code == 0) << name << " exited " << code << "\n"
                                                    << Out(name);
    }
    // The host first, the broker last, the rest the last started first.
    void TearDown() override {
        unsetenv("Q7X_TIME_OFFSET_S");  // NOLINT(concurrency-mt-unsafe): as in StartBus
        std::vector<std::string> names;
        for (const auto& p : m_kids.Running()) names.insert(names.begin(), p.first);
        auto host = [](const std::string& n) { return n == "host"; };
        auto notBusd = [](const std::string& n) { return n != "busd"; };
        std::stable_partition(names.begin(), names.end(), host);
        std::stable_partition(names.begin(), names.end(), notBusd);
        for (const std::string& name : names) Stop(name);
    }
    std::string Out(const std::string& name) const { return m_kids.Out(name); }

    // Runs a program to its end; its output. Fails the test on another exit.
    std::string Run(const std::vector<std::string>& args, int wantExit = 0) {
        const auto [code, text] = RunToEnd(args, m_dir.Path("run" + std::to_string(++m_runs)));
        EXPECT_EQ(code, wantExit) << args[0] << " " << (args.size() > 1 ? args[1] : "") << "\n"
                                  << text;
        EXPECT_TRUE(SanitizerFree(text)) << text;
        return text;
    }
    std::string Zelctl(std::vector<std::string> args, int wantExit = 0) {
        args.insert(args.begin(), ZELCTL_BIN);
        return Run(args, wantExit);
    }

    // Dispatches the test's client until done() holds.
    bool WaitFor(const std::function<bool()>& done) { return WaitUntil(m_peer, done, kWaitMs); }
    void Send(uint32_t id, const std::vector<uint8_t>& payload, int flag = 1) {
        Common::Q7X_MSGSendMessage(m_peer, 0, id, flag, payload.data(), int(payload.size()), 0);
    }
    // Area state requests (CMD 11): one follows every applied rule change.
    size_t RulesApplied() const {
        return std::count_if(m_seen.got.begin(), m_seen.got.end(), [](const Received& r) {
            return r.id == 6796 && Has(r.payload, "\"CMD\":11");
        });
    }

    // Every alert record of every message 3215 so far, in order.
    std::vector<AlertRecord> Records() const {
        std::vector<AlertRecord> all;
        std::vector<AlertRecord> one;
        std::string why;
        for (const Received& r : m_seen.got) {
            if (r.id != 3215) continue;
            EXPECT_TRUE(zelctl::decodeAlertList(reinterpret_cast<const uint8_t*>(r.payload.data()),
                                                r.payload.size(), one, why))
                << why;
            all.insert(all.end(), one.begin(), one.end());
        }
        return all;
    }
    // The n-th (from 1) record of alert `id` with this end flag, waiting for it
    // for at most timeoutMs.
    bool WaitRecord(uint32_t id, bool ended, AlertRecord* out = nullptr, int n = 1,
                    int timeoutMs = kWaitMs) {
        return WaitUntil(
            m_peer,
            [&] {
                int seen = 0;
                for (const AlertRecord& r : Records())
                    if (r.alertID == id && r.ended == ended && ++seen == n) {
                        if (out) *out = r;
                        return true;
                    }
                return false;
            },
            timeoutMs);
    }

    // The log of the day of a record, and the only log in logs/.
    std::string DayLog(const AlertRecord& r) const {
        return m_dir.Path("logs/" +
                          zelstore::logFileName(19, {2000 + r.time[0], r.time[1], r.time[2]}));
    }
    std::string OnlyLog() const {
        std::vector<std::string> logs;
        for (const auto& e : std::filesystem::directory_iterator(m_dir.Path("logs")))
            if (e.path().extension() == ".log") logs.push_back(e.path());
        EXPECT_EQ(logs.size(), 1u);
        return logs.empty() ? "" : logs[0];
    }
    // The frames of a log file; fails the test unless the file is whole.
    std::vector<FrameInfo> Frames(const std::string& path) {
        std::vector<uint8_t> bytes;
        std::string why;
        if (!zelstore::readLogFile(path, bytes, why)) return {};
        zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
        EXPECT_TRUE(scan.whole()) << path << ": " << scan.problem;
        return scan.frames;
    }

    TempDir m_dir;
    Recorder m_seen;
    Children m_kids{m_dir};
    void* m_peer = nullptr;
    int m_runs = 0;
};

// Programs run with no broker listening: Q7X_BUS_PATH points where none is.
class Offline : public Rig {
protected:
    Offline() {
        // The test's one thread, as in StartBus.
        setenv("Q7X_BUS_PATH", m_dir.Path("no-bus").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    }
    std::string File(const std::string& name, const std::string& text) {
        WriteText(m_dir.Path(name), text);
        return m_dir.Path(name);
    }
};

}  // namespace zeltest

#endif  // ALERTZEL_TEST_DEVICERIG_H
