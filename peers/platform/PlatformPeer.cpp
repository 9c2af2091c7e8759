// zel-platform: the fleet platform, on a PC. Serves a rule set from a JSON
// file to the alert service (its request CMD 8 on 6796 is answered on 39564),
// reports the areas the vehicle is inside (CMD 11, answered with "AREALINE"),
// and lets a person push rule commands and fence messages from the command
// line. The serving platform hears the pushed commands and fence messages
// too, so what it serves and reports stays what the service was told.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "CommandLine.h"
#include "Common.h"
#include "MessageHead.h"
#include "PeerUtil.h"
#include "PlatformRules.h"

namespace {

const unsigned int kRuleMsg = 6796;
const unsigned int kFenceEvent = 6795;
const unsigned int kFenceState = 6689;
const int kAppId = 6796;
const int kWaitMs = 200;
const int kHeadSize = 16;

volatile sig_atomic_t g_running = 1;
void onSignal(int) { g_running = 0; }

const char kProgram[] = "zel-platform";
const char kUsage[] =
            "usage: zel-platform serve RULES.json     serve a rule set and the area state\n"
            "       zel-platform check RULES.json     check a rule set file\n"
            "       zel-platform push CMD [FILE]      push command 1 add, 3 delete, 4 delete\n"
            "                                         all or 5 cover; FILE holds its JSON:\n"
            "                                         \"DUMMY\" and area arrays, or \"DUMMYIDS\"\n"
            "       zel-platform fence-event ID 0|1   send a fence event (6795): 1 inside\n"
            "       zel-platform fence-state ID 0|1   send a fence state record (6689)\n"
            "       zel-platform help COMMAND         this text; --version the version\n"
            "  A rule set is {\"DUMMY100\":[rules], \"CIRCLE100\":[{\"ID\":n}],\n"
            "  \"LINE100\":[...], \"POLY100\":[...], \"RECT100\":[...]}; an area element with\n"
            "  \"INSIDE\":true starts inside. Q7X_BUS_PATH selects the bus. serve stops on\n"
            "  SIGINT or SIGTERM.\n"
            "examples: zel-platform serve examples/rules/speeding.json\n"
            "          zel-platform push 3 ids.json     (ids.json: {\"DUMMYIDS\":[{\"ID\":7}]})\n"
            "          zel-platform fence-event 7 1\n"
            "Exit status: 0 done, 1 refused or not sent, 2 a wrong call.\n";

int fail(const std::string& error) { return cli::fail(kProgram, error); }

bool parseNumber(const char* text, unsigned long max, unsigned long& out) {
    if (text == nullptr || *text < '0' || *text > '9') return false;
    char* end = nullptr;
    errno = 0;
    out = strtoul(text, &end, 10);
    return errno == 0 && *end == '\0' && out <= max;
}

// The payload of a received message: never more than arrived.
std::string payloadOf(const char* msg, int len) {
    if (msg == nullptr || len < kHeadSize) return std::string();
    uint32_t claimed = zel::headPayloadLength(msg);
    size_t got = static_cast<size_t>(len - kHeadSize);
    return std::string(msg + kHeadSize, claimed < got ? claimed : got);
}

class Platform {
public:
    Platform(void* client, const Json::Value& ruleSet) : m_client(client), m_state(ruleSet) {}

    void OnRuleMessage(const char* msg, int len) {
        Json::Value parsed;
        const Json::Value& v = parsed;
        std::string error;
        if (!platformpeer::parseJson("message 6796", payloadOf(msg, len), parsed, error) ||
            !v.isObject() || !v["CMD"].isUInt()) {
            peer::say("platform", "ignored a message 6796 without a CMD");
            return;
        }
        unsigned int cmd = v["CMD"].asUInt();
        if (cmd == platformpeer::kCmdRuleSet) {
            respond(msg, m_state.ruleSetText(), "rule set");
        } else if (cmd == platformpeer::kCmdAreaState) {
            respond(msg, m_state.areaLineText(), "area state");
        } else {
            std::string what;
            m_state.apply(v, what);
            peer::say("platform", "heard %s", what.c_str());
        }
    }

    void OnFenceEvent(const char* msg, int len) {
        Json::Value parsed;
        const Json::Value& v = parsed;
        std::string error;
        if (!platformpeer::parseJson("message 6795", payloadOf(msg, len), parsed, error) ||
            !v.isObject() || !v["EVENT"].isInt() || !v["ID"].isUInt()) {
            peer::say("platform", "ignored a fence event without EVENT and ID");
            return;
        }
        setInside(v["ID"].asUInt(), v["EVENT"].asInt() == 1);
    }

    void OnFenceState(const char* msg, int len) {
        std::string p = payloadOf(msg, len);
        if (p.size() < 8) {
            peer::say("platform", "ignored a fence state of %zu bytes", p.size());
            return;
        }
        setInside(zel::getLe32(p.data(), 4), (p[0] & 1) != 0);
    }

private:
    void respond(const char* request, const std::string& text, const char* what) {
        int rc = Common::Q7X_MSGResponseMessage(m_client, request, text.data(),
                                                static_cast<int>(text.size()));
        peer::say("platform", "answered the %s request (%zu bytes)%s", what, text.size(),
                  rc == 0 ? "" : ", not sent");
    }
    void setInside(uint32_t id, bool inside) {
        m_state.setInside(id, inside);
        peer::say("platform", "area %u: %s", id, inside ? "inside" : "outside");
    }

    void* m_client;
    platformpeer::PlatformState m_state;
};

int serve(const char* path) {
    Json::Value ruleSet;
    std::string error;
    if (!platformpeer::loadRuleSet(path, ruleSet, error)) return fail(error);
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    void* client = Common::Q7X_MSGCreateMessageClient(kAppId, "/tmp/unix.domain", 0);
    Platform platform(client, ruleSet);
    Common::Q7X_MSGEventRegister(client, kRuleMsg,
                                 Common::Q7X_Bind(&platform, &Platform::OnRuleMessage));
    Common::Q7X_MSGEventRegister(client, kFenceEvent,
                                 Common::Q7X_Bind(&platform, &Platform::OnFenceEvent));
    Common::Q7X_MSGEventRegister(client, kFenceState,
                                 Common::Q7X_Bind(&platform, &Platform::OnFenceState));
    peer::noteMissingBroker("platform");
    peer::say("platform", "serving %s: %u rules", path, ruleSet["DUMMY100"].size());
    while (g_running) Common::Q7X_MSGWaitForEvent(client, kWaitMs);
    Common::Q7X_MSGEventUnRegister(client, kRuleMsg);
    Common::Q7X_MSGEventUnRegister(client, kFenceEvent);
    Common::Q7X_MSGEventUnRegister(client, kFenceState);
    return 0;
}

// One message on the bus, from a client of its own.
int sendOnce(unsigned int id, const void* payload, size_t size, const std::string& what) {
    const std::string bus = peer::busPath();
    if (!peer::brokerListening(bus)) return fail("could not send " + what + ": no broker at " + bus);
    void* client = Common::Q7X_MSGCreateMessageClient(kAppId, "/tmp/unix.domain", 0);
    if (Common::Q7X_MSGSendMessage(client, 0, id, 0, payload, static_cast<int>(size), 0) != 0)
        return fail("could not send " + what + " to the broker at " + bus);
    printf("sent %s (message %u, %zu bytes)\n", what.c_str(), id, size);
    return 0;
}

int push(int argc, char** argv) {
    unsigned long cmd = 0;
    if (argc < 3) return cli::usageError(kProgram, "push needs CMD");
    if (argc > 4) return cli::usageError(kProgram, "push takes CMD and one FILE");
    if (!parseNumber(argv[2], 0xffffffffUL, cmd))
        return cli::usageError(kProgram, std::string("push: '") + argv[2] + "' is not a CMD number");
    std::string name = argc == 4 ? argv[3] : "";
    std::string text;
    std::string error;
    if (argc == 4 && !platformpeer::readFile(name, text, error)) return fail(error);
    if (argc == 3 && cmd != platformpeer::kCmdDeleteAll)
        return cli::usageError(kProgram, "CMD " + std::to_string(cmd) + " needs a FILE with its JSON");
    Json::Value msg;
    if (!platformpeer::makeCommand(static_cast<unsigned int>(cmd), name, text, msg, error))
        return fail(error);
    std::string out = platformpeer::toText(msg);
    return sendOnce(kRuleMsg, out.data(), out.size(), "CMD " + std::to_string(cmd));
}

int fence(int argc, char** argv, bool event) {
    unsigned long id = 0;
    unsigned long inside = 0;
    if (argc != 4)
        return cli::usageError(kProgram, std::string(argv[1]) + " needs ID and 0 or 1");
    if (!parseNumber(argv[2], 0xffffffffUL, id))
        return cli::usageError(kProgram, std::string(argv[1]) + ": '" + argv[2] + "' is not an area id");
    if (!parseNumber(argv[3], 1, inside))
        return cli::usageError(kProgram, std::string(argv[1]) + ": '" + argv[3] + "' is not 0 or 1");
    std::string what = std::string(event ? "fence event" : "fence state") + " of area " +
                       std::to_string(id) + (inside ? ": inside" : ": outside");
    if (event) {
        std::string text = platformpeer::fenceEventText(static_cast<uint32_t>(id),
                                                        static_cast<int>(inside));
        return sendOnce(kFenceEvent, text.data(), text.size(), what);
    }
    std::vector<uint8_t> record =
        platformpeer::fenceStateRecord(static_cast<uint32_t>(id), inside != 0);
    return sendOnce(kFenceState, record.data(), record.size(), what);
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    const std::string command = argc > 1 ? argv[1] : "";
    const auto isCommand = [](const std::string& name) {
        static const char* const kCommands[] = {"serve", "check", "push", "fence-event",
                                                "fence-state"};
        return std::any_of(std::begin(kCommands), std::end(kCommands),
                           [&name](const char* c) { return name == c; });
    };
    const bool known = isCommand(command);
    // One text tells every command: `help COMMAND` and `COMMAND --help` show it.
    if (command == "help") {
        if (argc > 3) return cli::usageError(kProgram, "help: one command at a time");
        if (argc == 3 && !isCommand(argv[2]))
            return cli::usageError(kProgram, std::string("no command '") + argv[2] + "'");
        fputs(kUsage, stdout);
        return 0;
    }
    if (known && argc == 3 && cli::isHelp(argv[2])) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc < 2) return cli::usageError(kProgram, "no command");
    if (!known) return cli::usageError(kProgram, "unknown command '" + command + "'");
    if ((command == "serve" || command == "check") && argc != 3)
        return cli::usageError(kProgram, command + " needs one RULES.json");
    if (command == "serve") return serve(argv[2]);
    if (command == "check") {
        Json::Value ruleSet;
        std::string error;
        if (!platformpeer::loadRuleSet(argv[2], ruleSet, error)) return fail(error);
        printf("%s: %u rules\n", argv[2], ruleSet["DUMMY100"].size());
        return 0;
    }
    if (command == "push") return push(argc, argv);
    return fence(argc, argv, command == "fence-event");
}
