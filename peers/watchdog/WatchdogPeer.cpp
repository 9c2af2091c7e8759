// zel-watchdog: the device's watchdog, on a PC. Logs each start (6), feed (3)
// and stop (7) with the service's name and timeout, and reports a service
// whose feed did not come within its timeout, once per missed feed.
//
// Usage: zel-watchdog   (stops on SIGINT or SIGTERM)
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <map>
#include <string>

#include "ByteOrder.h"
#include "CommandLine.h"
#include "Common.h"
#include "PeerUtil.h"

namespace {

volatile sig_atomic_t g_running = 1;
void onSignal(int) { g_running = 0; }

struct Watched {
    uint32_t timeoutMs;
    double lastFeed;
    bool reported;
};

class Watchdog {
public:
    void OnStart(const char* msg, int len) { record(msg, len, "start"); }
    void OnFeed(const char* msg, int len) { record(msg, len, "feed"); }
    void OnStop(const char* msg, int len) {
        std::string name;
        uint32_t timeout = 0;
        if (!parse(msg, len, name, timeout)) return;
        m_watched.erase(name);
        peer::say("watchdog", "stop  %s", name.c_str());
    }

    void checkMissed() {
        double now = peer::monotonicSeconds();
        for (auto& entry : m_watched) {
            Watched& w = entry.second;
            if (!w.reported && now - w.lastFeed > w.timeoutMs / 1000.0) {
                peer::say("watchdog", "MISSED %s: no feed for %.1f s (timeout %u ms)",
                          entry.first.c_str(), now - w.lastFeed, w.timeoutMs);
                w.reported = true;
            }
        }
    }

private:
    // Watch record: 32-byte NUL-terminated name, then u32 timeout in ms.
    bool parse(const char* msg, int len, std::string& name, uint32_t& timeout) {
        if (msg == nullptr || len < 16 + 36) {
            peer::say("watchdog", "refused a watch message of %d bytes (needs 52)", len);
            return false;
        }
        const char* rec = msg + 16;
        name.assign(rec, strnlen(rec, 32));
        timeout = zel::getLe32(rec, 32);
        return true;
    }

    void record(const char* msg, int len, const char* what) {
        std::string name;
        uint32_t timeout = 0;
        if (!parse(msg, len, name, timeout)) return;
        Watched& w = m_watched[name];
        w.timeoutMs = timeout;
        w.lastFeed = peer::monotonicSeconds();
        w.reported = false;
        peer::say("watchdog", "%-5s %s (timeout %u ms)", what, name.c_str(), timeout);
    }

    std::map<std::string, Watched> m_watched;
};

}  // namespace

int main(int argc, char** argv) {
    static const char kUsage[] =
        "usage: zel-watchdog\n"
        "  Logs watchdog starts (6), feeds (3) and stops (7) on the bus and reports\n"
        "  a missed feed. Q7X_BUS_PATH selects the bus. Stops on SIGINT/SIGTERM.\n"
        "  --version   the version of zel-watchdog\n"
        "example:\n"
        "  Q7X_BUS_PATH=/tmp/zel-device.abc/bus.sock zel-watchdog\n";
    int status = 0;
    if (cli::answersAsk(argc, argv, "zel-watchdog", kUsage, status)) return status;
    if (argc > 1) return cli::usageError("zel-watchdog", std::string("unexpected '") + argv[1] + "'");
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    void* client = Common::Q7X_MSGCreateMessageClient(1, "/tmp/unix.domain", 0);
    peer::noteMissingBroker("watchdog");
    Watchdog dog;
    Common::Q7X_MSGEventRegister(client, 6, Common::Q7X_Bind(&dog, &Watchdog::OnStart));
    Common::Q7X_MSGEventRegister(client, 3, Common::Q7X_Bind(&dog, &Watchdog::OnFeed));
    Common::Q7X_MSGEventRegister(client, 7, Common::Q7X_Bind(&dog, &Watchdog::OnStop));
    while (g_running) {
        Common::Q7X_MSGWaitForEvent(client, 200);
        dog.checkMissed();
    }
    return 0;
}
