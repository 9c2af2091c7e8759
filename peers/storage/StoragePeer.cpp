// zel-storage: the device's storage plug-in, on a PC. Keeps the alert logs
// as files in DIR (format: AlertLogFile.h), one per log type and day of its
// own clock (Q7X_TIME_OFFSET_S shifts it), and serves the service's write
// (6661, answered on 39429), modify (6668) and size (6671, answered on 39439)
// requests. Announces itself with 2086 at start and every few seconds, so a
// service that starts later still finds it.
//
// A write is answered only once its frame is flushed to disk: a frame that
// was acknowledged survives a kill of this process.
//
// Usage: zel-storage DIR   (stops on SIGINT or SIGTERM)
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "AlertLogStore.h"
#include "ByteOrder.h"
#include "CommandLine.h"
#include "Common.h"
#include "MessageIds.h"
#include "PeerUtil.h"
#include "StorageRequests.h"

namespace {

const double kAnnounceEveryS = 3.0;
const int kWaitMs = 200;
const int kAppId = 2086;

volatile sig_atomic_t g_running = 1;
void onSignal(int) { g_running = 0; }

Common::_datetime_ deviceNow() {
    Common::_datetime_ now;
    Common::Q7X_TMGetShareTime(&now);
    return now;
}

const char kProgram[] = "zel-storage";
const char kUsage[] =
    "usage: zel-storage DIR\n"
    "  Keeps the alert logs in DIR (made if missing), one file per log type and\n"
    "  day of this program's clock, and serves the log requests on the bus.\n"
    "  Q7X_BUS_PATH selects the bus, Q7X_TIME_OFFSET_S shifts the clock.\n"
    "  Stops on SIGINT or SIGTERM. Decode a log with zel-logdump FILE.\n"
    "  --version   the version of zel-storage\n"
    "example: zel-storage /tmp/zel-logs\n";

class StoragePeer {
public:
    StoragePeer(void* client, const std::string& dir)
        : m_client(client),
          m_store(dir, deviceNow,
                  [](const std::string& text) { peer::say("storage", "%s", text.c_str()); }),
          m_requests(
              m_store,
              [](const std::string& text) {
                  fprintf(stderr, "zel-storage: %s\n", text.c_str());
                  fflush(stderr);
              },
              [](const std::string& text) { peer::say("storage", "%s", text.c_str()); }) {}

    void OnWrite(const char* msg, int len) {
        std::vector<uint8_t> reply;
        if (m_requests.onWrite(msg, len, reply)) respond(msg, reply);
    }
    void OnModify(const char* msg, int len) { m_requests.onModify(msg, len); }
    void OnSize(const char* msg, int len) {
        std::vector<uint8_t> reply;
        if (m_requests.onSize(msg, len, reply)) respond(msg, reply);
    }

    void announce() {
        // u32 process id, u32 0: for a person watching the bus; the service
        // reads no byte of it.
        uint8_t payload[8] = {};
        zel::putLe32(payload, 0, static_cast<uint32_t>(getpid()));
        Common::Q7X_MSGSendMessage(m_client, 0, zel::kMsgStorageAnnounce, 0, payload,
                                   sizeof payload, 0);
    }

private:
    void respond(const char* request, const std::vector<uint8_t>& reply) {
        Common::Q7X_MSGResponseMessage(m_client, request, reply.data(),
                                       static_cast<int>(reply.size()));
    }

    void* m_client;
    zelstore::AlertLogStore m_store;
    zelstore::StorageRequests m_requests;
};

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    if (argc != 2) return cli::usageError(kProgram, argc < 2 ? "no DIR" : "one DIR only");
    if (argv[1][0] == '-') return cli::usageError(kProgram, std::string("unknown option ") + argv[1]);
    const std::string dir = argv[1];
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST)
        return cli::fail(kProgram, "cannot make " + dir + ": " + cli::errorText(errno));
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return cli::fail(kProgram, dir + " is not a directory");
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGPIPE, SIG_IGN);

    void* client = Common::Q7X_MSGCreateMessageClient(kAppId, "/tmp/unix.domain", 0);
    peer::noteMissingBroker("storage");
    StoragePeer storage(client, dir);
    Common::Q7X_MSGEventRegister(client, zel::kMsgLogWrite,
                                 Common::Q7X_Bind(&storage, &StoragePeer::OnWrite));
    Common::Q7X_MSGEventRegister(client, zel::kMsgLogModify,
                                 Common::Q7X_Bind(&storage, &StoragePeer::OnModify));
    Common::Q7X_MSGEventRegister(client, zel::kMsgLogSize,
                                 Common::Q7X_Bind(&storage, &StoragePeer::OnSize));
    peer::say("storage", "keeping alert logs in %s", dir.c_str());

    double nextAnnounce = 0;
    while (g_running) {
        double now = peer::monotonicSeconds();
        if (now >= nextAnnounce) {
            storage.announce();
            nextAnnounce = now + kAnnounceEveryS;
        }
        Common::Q7X_MSGWaitForEvent(client, kWaitMs);
    }
    for (unsigned int id : {zel::kMsgLogWrite, zel::kMsgLogModify, zel::kMsgLogSize})
        Common::Q7X_MSGEventUnRegister(client, id);
    peer::say("storage", "stopped");
    return 0;
}
