// A fixture for tests with real processes on a private bus: the broker, the
// storage peer, the host with the plug-in and other programs as children of
// the test, and the test itself a client that records what passes. Programs
// end with SIGTERM, cleanly and without a sanitizer finding. Every wait is
// bounded.
#ifndef ALERTZEL_TEST_SERVICERIG_H
#define ALERTZEL_TEST_SERVICERIG_H

#include <dirent.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "AlertLogFile.h"
#include "ByteOrder.h"
#include "ProcessUtil.h"

namespace rig {

typedef std::vector<uint8_t> Bytes;

const int kWaitMs = 20000;

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A speed message (6777) in miles per hour.
inline Bytes speedMessage(uint32_t mph) {
    Bytes p(12, 0);
    p[0] = 1;
    zel::putLe32(p.data(), 4, mph);
    return p;
}

// One record of an alert list (3215, or the reply to 3216).
struct Record {
    uint32_t alertID;
    Bytes time;
    uint8_t ended;
};

inline std::vector<Record> decodeRecords(const std::string& payload) {
    std::vector<Record> out;
    const uint8_t* p = reinterpret_cast<const uint8_t*>(payload.data());
    uint32_t count = payload.size() >= 8 ? zel::getLe32(p, 0) : 0;
    for (uint32_t i = 0; i < count && 8 + 32 * (i + 1) <= payload.size(); ++i) {
        const uint8_t* r = p + 8 + 32 * i;
        out.push_back(Record{zel::getLe32(r, 0), Bytes(r + 16, r + 22), r[24]});
    }
    return out;
}

inline Bytes six(const uint8_t* stamp) { return Bytes(stamp, stamp + 6); }

// Runs a program to its end: its exit status, -1 when it could not start.
inline int run(const std::vector<std::string>& args, const std::string& outFile) {
    pid_t p = zeltest::Spawn(args, outFile);
    return p > 0 ? zeltest::WaitExit(p, kWaitMs) : -1;
}

class ProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("Q7X_BUS_PATH", dir.Path("bus").c_str(), 1);
        launch("busd", {Q7X_BUSD_BIN});
        ASSERT_TRUE(zeltest::WaitListening(dir.Path("bus")));
        m_peer = q7xtest::NewClient(77);
        m_helper = q7xtest::NewClient(78);
        listen({2086});
    }
    // Stops every program still running, the last started first.
    void TearDown() override {
        while (!m_programs.empty()) stop(m_programs.back().first);
    }

    // Records what the ids bring, from the moment this returns.
    void listen(std::initializer_list<uint32_t> ids) {
        for (uint32_t id : ids) q7xtest::Subscribe(m_peer, seen, id);
        q7xtest::Sync(m_peer, m_helper);
    }
    void send(uint32_t id, const Bytes& payload, int flag = 1) {
        Common::Q7X_MSGSendMessage(m_peer, 0, id, flag, payload.data(),
                                   static_cast<int>(payload.size()), 0);
    }
    void* client() { return m_peer; }
    // Dispatches the test's client until done() holds.
    bool waitFor(const std::function<bool()>& done, int timeoutMs = kWaitMs) {
        return q7xtest::WaitUntil(m_peer, done, timeoutMs);
    }
    std::vector<q7xtest::Received> with(uint32_t id) const {
        std::vector<q7xtest::Received> out;
        for (const q7xtest::Received& r : seen.got)
            if (r.id == id) out.push_back(r);
        return out;
    }

    // Starts a program with the variables of env (NAME=VALUE) set for it;
    // its output, standard and error, goes to NAME.out.
    pid_t launch(const std::string& name, const std::vector<std::string>& args,
                 const std::vector<std::string>& env = {}) {
        for (const std::string& kv : env)
            setenv(kv.substr(0, kv.find('=')).c_str(), kv.substr(kv.find('=') + 1).c_str(), 1);
        pid_t pid = m_procs.Start(args, dir.Path(name + ".out"));
        for (const std::string& kv : env) unsetenv(kv.substr(0, kv.find('=')).c_str());
        EXPECT_GT(pid, 0) << name;
        if (pid > 0) m_programs.push_back({name, pid});
        return pid;
    }
    pid_t pid(const std::string& name) const {
        for (const auto& p : m_programs)
            if (p.first == name) return p.second;
        return -1;
    }
    // Signals the program `name` started by this test, and no other process.
    bool signalChild(const std::string& name, int signal) {
        pid_t p = pid(name);
        EXPECT_GT(p, 0) << name << " is not running";
        return p > 0 && kill(p, signal) == 0;
    }
    // SIGTERM, and the program must end cleanly; SIGKILL, as after a power cut.
    void stop(const std::string& name, int signal = SIGTERM) {
        pid_t p = pid(name);
        if (signalChild(name, signal)) {
            int status = zeltest::WaitExit(p, kWaitMs);
            EXPECT_TRUE(signal != SIGTERM || status == 0) << name << " exited " << status << ":\n"
                                                          << out(name);
        }
        m_programs.erase(std::remove(m_programs.begin(), m_programs.end(), std::make_pair(name, p)),
                         m_programs.end());
        for (const char* mark : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:"})
            EXPECT_FALSE(has(out(name), mark)) << name << ":\n" << out(name);
    }
    std::string out(const std::string& name) const {
        return q7xtest::ReadText(dir.Path(name + ".out"));
    }

    // The storage peer keeping its logs in logs/, once its announcement came.
    void startStorage(const std::vector<std::string>& env = {}) {
        size_t before = with(2086).size();
        launch("storage", {ZEL_STORAGE_BIN, dir.Path("logs")}, env);
        ASSERT_TRUE(waitFor([&] { return with(2086).size() > before; }))
            << "the storage peer never announced itself\n" << out("storage");
    }
    void startHost(const std::vector<std::string>& env = {}) {
        launch("host", {Q7X_HOST_BIN, ZEL_PLUGIN}, env);
    }

    // Every record of every message 3215 so far, in order.
    std::vector<Record> records() const {
        std::vector<Record> all;
        for (const q7xtest::Received& r : with(3215))
            for (const Record& one : decodeRecords(r.payload)) all.push_back(one);
        return all;
    }
    // The first record of alert `id` with this end flag, waiting for it.
    bool waitRecord(uint32_t id, uint8_t ended, Record* found = nullptr) {
        return waitFor([&] {
            for (const Record& r : records())
                if (r.alertID == id && r.ended == ended) {
                    if (found) *found = r;
                    return true;
                }
            return false;
        });
    }

    // The frames of the one log in logs/; fails the test unless it is whole.
    std::vector<zelstore::FrameInfo> frames() {
        std::vector<std::string> files;
        if (DIR* d = opendir(dir.Path("logs").c_str())) {
            while (struct dirent* e = readdir(d))
                if (has(e->d_name, ".log")) files.push_back(e->d_name);
            closedir(d);
        }
        EXPECT_LE(files.size(), 1u);
        std::string name = files.empty() ? "" : files[0];
        Bytes bytes;
        std::string why;
        if (name.empty() || !zelstore::readLogFile(dir.Path("logs/" + name), bytes, why)) return {};
        zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
        EXPECT_TRUE(scan.whole()) << name << ": " << scan.problem;
        return scan.frames;
    }

    q7xtest::TempDir dir;
    q7xtest::Recorder seen;

private:
    zeltest::ProcessGroup m_procs;
    std::vector<std::pair<std::string, pid_t>> m_programs;
    void* m_peer = nullptr;
    void* m_helper = nullptr;
};

}  // namespace rig

#endif  // ALERTZEL_TEST_SERVICERIG_H
