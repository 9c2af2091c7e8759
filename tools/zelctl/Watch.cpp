// zelctl watch: the alert list (3215) as it arrives, one line per record.
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
    "usage: zelctl watch [--count N]\n"
    "  Prints each record of the service's alert list (3215) as it arrives: the\n"
    "  time it arrived, the alert id, began or ended with the alert's own time,\n"
    "  and for an ended alert how long it ran (when its start was seen).\n"
    "  --count N   stop after N records (default: until SIGINT or SIGTERM)\n"
    "examples:\n"
    "  zelctl watch\n"
    "  zelctl watch --count 2      (the rise and fall of one alert)\n";

class Watcher {
public:
    explicit Watcher(long count) : m_left(count) {}

    void OnList(const char* msg, int len) {
        if (msg == nullptr || len < 16) return;
        const uint32_t n = zel::headPayloadLength(msg);
        std::vector<AlertRecord> records;
        std::string why;
        if (static_cast<size_t>(len) < 16 + static_cast<size_t>(n) ||
            !decodeAlertList(reinterpret_cast<const uint8_t*>(msg) + 16, n, records, why)) {
            peer::say("watch", "refused an alert list of %u bytes: %s", n,
                      why.empty() ? "shorter than its head says" : why.c_str());
            return;
        }
        for (const AlertRecord& r : records) {
            peer::say("watch", "%s", m_timeline.describe(r).c_str());
            if (m_left > 0) --m_left;
        }
    }
    bool done() const { return m_left == 0; }

private:
    AlertTimeline m_timeline;
    long m_left;  // records still to print; negative: no limit
};

}  // namespace

int runWatch(int argc, char** argv) {
    if (asksHelp(argc, argv)) return usage(kUsage);
    long count = -1;
    if (argc == 3 && !strcmp(argv[1], "--count")) {
        char* end = nullptr;
        count = strtol(argv[2], &end, 10);
        if (*end != '\0' || count < 1)
            return wrongCall("watch",
                             std::string("--count: '") + argv[2] + "' is not a number above 0");
    } else if (argc != 1) {
        return wrongCall("watch", std::string("unexpected '") + argv[1] + "'");
    }
    catchStop();
    void* bus = openBus();
    peer::noteMissingBroker("watch");
    Watcher watcher(count);
    Common::Q7X_MSGEventRegister(bus, zel::kMsgAlertList,
                                 Common::Q7X_Bind(&watcher, &Watcher::OnList));
    peer::say("watch", "watching the alert list (3215)");
    while (g_running && !watcher.done()) Common::Q7X_MSGWaitForEvent(bus, 200);
    Common::Q7X_MSGEventUnRegister(bus, zel::kMsgAlertList);
    return 0;
}

}  // namespace zelctl
