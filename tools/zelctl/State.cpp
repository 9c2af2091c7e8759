// zelctl state: asks the service for its running alerts (3216) and prints
// the answer (35984).
#include <stdlib.h>
#include <string.h>

#include "AlertList.h"
#include "Common.h"
#include "MessageHead.h"
#include "MessageIds.h"
#include "PeerUtil.h"
#include "Zelctl.h"

namespace zelctl {

namespace {

const char kUsage[] =
    "usage: zelctl state [--timeout S]\n"
    "  Asks the service which alerts are running (3216) and prints each with the\n"
    "  time it began. Fails when no answer comes within S seconds (default 3).\n"
    "examples:\n"
    "  zelctl state\n"
    "  Q7X_BUS_PATH=/tmp/zel-device.abc/bus.sock zelctl state --timeout 10\n";

struct Answer {
    bool got = false;
    std::string payload;
    void OnReply(const char* msg, int len) {
        if (got || msg == nullptr || len < 16) return;
        payload.assign(msg + zel::kHeadSize, zel::receivedPayload(msg, len));
        got = true;
    }
};

}  // namespace

int runState(int argc, char** argv) {
    if (asksHelp(argc, argv)) return usage(kUsage);
    double timeout = 3;
    if (argc == 3 && !strcmp(argv[1], "--timeout")) {
        char* end = nullptr;
        timeout = strtod(argv[2], &end);
        if (*end != '\0' || !(timeout > 0) || timeout > 3600)
            return wrongCall("state", std::string("--timeout: '") + argv[2] +
                                          "' is not a number of seconds above 0");
    } else if (argc != 1) {
        return wrongCall("state", std::string("unexpected '") + argv[1] + "'");
    }
    if (!brokerThere("state")) return 1;
    catchStop();
    void* bus = openBus();
    Answer answer;
    const unsigned reply = zel::kMsgAlertStateQuery | zel::kReplyBit;
    Common::Q7X_MSGEventRegister(bus, reply, Common::Q7X_Bind(&answer, &Answer::OnReply));
    if (Common::Q7X_MSGSendMessage(bus, 0, zel::kMsgAlertStateQuery, 1, nullptr, 0, 0) != 0)
        return refuse("state", "could not send the query (3216) to the broker");
    const double deadline = peer::monotonicSeconds() + timeout;
    while (!answer.got && g_running && peer::monotonicSeconds() < deadline)
        Common::Q7X_MSGWaitForEvent(bus, 100);
    Common::Q7X_MSGEventUnRegister(bus, reply);
    if (!answer.got) {
        char what[128];
        snprintf(what, sizeof what,
                 "no answer to the query (3216) within %g s: is the service on this bus?",
                 timeout);
        return refuse("state", what);
    }
    std::vector<AlertRecord> records;
    std::string why;
    const uint8_t* p = reinterpret_cast<const uint8_t*>(answer.payload.data());
    if (!decodeAlertList(p, answer.payload.size(), records, why))
        return refuse("state", "the answer is not an alert list: " + why);
    if (records.empty()) printf("no running alerts\n");
    else printf("%zu running alert%s\n", records.size(), records.size() == 1 ? "" : "s");
    for (const AlertRecord& r : records)
        printf("  alert %-10u since %s\n", r.alertID, alertTimeText(r.time).c_str());
    return 0;
}

}  // namespace zelctl
