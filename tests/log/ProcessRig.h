// Real processes on a private bus for the log's process tests: a temporary
// folder, child programs with their output in files, and a bus client of the
// test's own. Every wait is bounded.
//
// Not thread-safe; one rig per test. The bus path is put into Q7X_BUS_PATH
// of this process, so a test's own client and its children meet there.
#ifndef ALERTZEL_TEST_PROCESSRIG_H
#define ALERTZEL_TEST_PROCESSRIG_H

#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace rig {

typedef std::vector<uint8_t> Bytes;

class TempDir {
public:
    TempDir();
    ~TempDir();
    std::string path(const std::string& name) const { return m_path + "/" + name; }
    const std::string& root() const { return m_path; }

private:
    std::string m_path;
};

// A child program. Its standard output and error go to OUTBASE.out/.err.
class Process {
public:
    Process() : m_pid(-1) {}
    ~Process() { stop(); }
    bool start(const std::vector<std::string>& argv, const std::string& outBase,
               const std::vector<std::string>& env = {});
    // SIGTERM, and SIGKILL if it has not ended within timeoutS.
    void stop(double timeoutS = 10);
    void kill9();
    bool running();
    pid_t pid() const { return m_pid; }
    std::string out() const;
    std::string err() const;

private:
    Process(const Process&);
    Process& operator=(const Process&);
    bool reap(double timeoutS);
    pid_t m_pid;
    std::string m_outBase;
};

std::string readText(const std::string& path);
// The first line of text that reports a sanitizer finding, or "".
std::string sanitizerReport(const std::string& text);
bool fileExists(const std::string& path);
// Polls pred every 20 ms until it holds or timeoutS has passed.
bool waitUntil(const std::function<bool()>& pred, double timeoutS);
double nowSeconds();

// One received message: its id, head and payload.
struct Message {
    uint32_t id;
    Bytes head;  // the 16 bytes, for answering it
    Bytes payload;
};

// The test's own client on the bus at Q7X_BUS_PATH.
class BusPeer {
public:
    BusPeer();
    void listen(unsigned int id);
    void send(unsigned int id, const Bytes& payload, bool request = true);
    void respond(const Message& request, const Bytes& payload);
    // Dispatches messages until pred holds or timeoutS has passed.
    bool waitFor(const std::function<bool()>& pred, double timeoutS);
    std::vector<Message> with(unsigned int id) const;
    void onMessage(const char* msg, int len);

    std::vector<Message> got;
    // Runs inside the callback of each message, after it is recorded.
    std::function<void(const Message&)> onEach;

private:
    void* m_client;
};

// Starts the broker at dir/bus.sock and points Q7X_BUS_PATH there.
bool startBroker(TempDir& dir, Process& busd);

}  // namespace rig

#endif
