// zel-busmon: prints every message of the given ids as it passes on the bus:
// id, send flag, payload length and the first bytes in hex.
//
// Usage: zel-busmon ID...   (stops on SIGINT or SIGTERM)
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "CommandLine.h"
#include "Common.h"
#include "MessageHead.h"
#include "PeerUtil.h"

namespace {

const char kProgram[] = "zel-busmon";
const char kUsage[] =
    "usage: zel-busmon ID...\n"
    "  Prints every message of the given ids (0 to 65535, decimal or 0x hex) as it\n"
    "  passes on the bus: id, send flag, payload length and the first bytes in hex.\n"
    "  Q7X_BUS_PATH selects the bus. Stops on SIGINT or SIGTERM.\n"
    "  --version   the version of zel-busmon\n"
    "example: zel-busmon 1289 1071 1032 475\n";

volatile sig_atomic_t g_running = 1;
void onSignal(int) { g_running = 0; }

struct Printer {
    void OnMessage(const char* msg, int len) {
        if (msg == nullptr || len < 16) return;
        uint32_t word = zel::getLe32(msg, zel::kHeadMessageWord);
        uint32_t length = zel::headPayloadLength(msg);
        std::string bytes;
        char buf[4];
        for (int i = 16; i < len && i < 16 + 24; ++i) {
            snprintf(buf, sizeof buf, " %02X", static_cast<uint8_t>(msg[i]));
            bytes += buf;
        }
        if (len > 16 + 24) bytes += " ...";
        peer::say("busmon", "id %u flag %u, %u bytes:%s", word & 0xffff, (word >> 16) & 1,
                  length, bytes.c_str());
    }
};

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    if (argc < 2) return cli::usageError(kProgram, "no message id");
    std::vector<unsigned int> ids;
    for (int i = 1; i < argc; ++i) {
        char* end = nullptr;
        unsigned long id = strtoul(argv[i], &end, 0);
        if (argv[i][0] == '-')
            return cli::usageError(kProgram, std::string("unknown option ") + argv[i]);
        if (end == argv[i] || *end != '\0' || id > 0xffff)
            return cli::usageError(kProgram,
                                   std::string("'") + argv[i] + "' is not a message id (0 to 65535)");
        ids.push_back(static_cast<unsigned int>(id));
    }
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    void* client = Common::Q7X_MSGCreateMessageClient(2, "/tmp/unix.domain", 0);
    peer::noteMissingBroker("busmon");
    Printer printer;
    for (unsigned int id : ids)
        Common::Q7X_MSGEventRegister(client, id, Common::Q7X_Bind(&printer, &Printer::OnMessage));
    while (g_running) Common::Q7X_MSGWaitForEvent(client, 200);
    return 0;
}
