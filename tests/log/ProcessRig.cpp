#include "ProcessRig.h"

#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "Common.h"

namespace rig {

TempDir::TempDir() {
    char tmpl[] = "/tmp/zel-log-test.XXXXXX";
    const char* made = mkdtemp(tmpl);
    m_path = made ? made : "/tmp";
}

TempDir::~TempDir() {
    if (m_path == "/tmp") return;
    nftw(m_path.c_str(),
         [](const char* p, const struct stat*, int, struct FTW*) { return remove(p); }, 8,
         FTW_DEPTH | FTW_PHYS);
}

bool Process::start(const std::vector<std::string>& argv, const std::string& outBase,
                    const std::vector<std::string>& env) {
    m_outBase = outBase;
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::string outPath = outBase + ".out";
    std::string errPath = outBase + ".err";
    pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out >= 0) dup2(out, STDOUT_FILENO);
        if (err >= 0) dup2(err, STDERR_FILENO);
        for (const std::string& kv : env) putenv(const_cast<char*>(kv.c_str()));
        execv(args[0], args.data());
        _exit(127);
    }
    m_pid = pid;
    return true;
}

bool Process::reap(double timeoutS) {
    double end = nowSeconds() + timeoutS;
    do {
        int status = 0;
        pid_t done = waitpid(m_pid, &status, WNOHANG);
        if (done == m_pid || (done < 0 && errno == ECHILD)) {
            m_pid = -1;
            return true;
        }
        usleep(10000);
    } while (nowSeconds() < end);
    return false;
}

void Process::stop(double timeoutS) {
    if (m_pid <= 0) return;
    kill(m_pid, SIGTERM);
    if (reap(timeoutS)) return;
    kill9();
}

void Process::kill9() {
    if (m_pid <= 0) return;
    kill(m_pid, SIGKILL);
    reap(10);
}

bool Process::running() {
    if (m_pid <= 0) return false;
    int status = 0;
    if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_pid = -1;
        return false;
    }
    return true;
}

std::string Process::out() const { return readText(m_outBase + ".out"); }
std::string Process::err() const { return readText(m_outBase + ".err"); }

std::string readText(const std::string& path) {
    std::string text;
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return text;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
    fclose(f);
    return text;
}

std::string sanitizerReport(const std::string& text) {
    size_t at = std::string::npos;
    for (const char* mark : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:"})
        at = std::min(at, text.find(mark));
    if (at == std::string::npos) return "";
    size_t begin = text.rfind('\n', at);
    begin = begin == std::string::npos ? 0 : begin + 1;
    return text.substr(begin, text.find('\n', at) - begin);
}

bool fileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

double nowSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

bool waitUntil(const std::function<bool()>& pred, double timeoutS) {
    double end = nowSeconds() + timeoutS;
    while (!pred()) {
        if (nowSeconds() >= end) return false;
        usleep(20000);
    }
    return true;
}

namespace {

uint32_t le32(const char* p) {
    const uint8_t* b = reinterpret_cast<const uint8_t*>(p);
    return b[0] | (b[1] << 8) | (b[2] << 16) | (static_cast<uint32_t>(b[3]) << 24);
}

}  // namespace

BusPeer::BusPeer() : m_client(Common::Q7X_MSGCreateMessageClient(77, "/tmp/unix.domain", 0)) {}

void BusPeer::listen(unsigned int id) {
    Common::Q7X_MSGEventRegister(m_client, id, Common::Q7X_Bind(this, &BusPeer::onMessage));
}

void BusPeer::send(unsigned int id, const Bytes& payload, bool request) {
    Common::Q7X_MSGSendMessage(m_client, 0, id, request ? 1 : 0, payload.data(),
                               static_cast<int>(payload.size()), 0);
}

void BusPeer::respond(const Message& request, const Bytes& payload) {
    Common::Q7X_MSGResponseMessage(m_client, request.head.data(), payload.data(),
                                   static_cast<int>(payload.size()));
}

void BusPeer::onMessage(const char* msg, int len) {
    if (len < 16) return;
    Message m;
    m.id = le32(msg + 8) & 0xffff;
    m.head.assign(msg, msg + 16);
    uint32_t n = le32(msg + 12) & 0x7fffff;
    if (n > static_cast<uint32_t>(len - 16)) n = static_cast<uint32_t>(len - 16);
    m.payload.assign(msg + 16, msg + 16 + n);
    got.push_back(m);
    if (onEach) onEach(got.back());
}

bool BusPeer::waitFor(const std::function<bool()>& pred, double timeoutS) {
    double end = nowSeconds() + timeoutS;
    while (!pred()) {
        double left = end - nowSeconds();
        if (left <= 0) return false;
        Common::Q7X_MSGWaitForEvent(m_client, left < 0.1 ? 1 + static_cast<int>(left * 1000) : 100);
    }
    return true;
}

std::vector<Message> BusPeer::with(unsigned int id) const {
    std::vector<Message> out;
    for (const Message& m : got)
        if (m.id == id) out.push_back(m);
    return out;
}

bool startBroker(TempDir& dir, Process& busd) {
    std::string bus = dir.path("bus.sock");
    setenv("Q7X_BUS_PATH", bus.c_str(), 1);
    if (!busd.start({Q7X_BUSD_BIN}, dir.path("busd"))) return false;
    return waitUntil([&] { return fileExists(bus); }, 10);
}

}  // namespace rig
