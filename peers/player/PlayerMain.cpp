// zel-player: the device's signal sources, on a PC. Plays a scenario (format:
// formats/Scenario.h) on the bus at its times, or SPEED times faster,
// and answers the service's start requests from the running state of what
// it has played: 1032 with the input word (33800), 1289 with the motion
// state (34057), 475 with the J1939 table (33243) when the scenario has one.
//
// Usage: zel-player SCENARIO [--speed X] [--loop] [--wait-for ID] [--no-replies]
// Exit status: 0 every step sent; 1 a scenario it can't play (unreadable,
// empty, a folder) or a step not sent (no broker); 2 a wrong call.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Common.h"
#include "MessageHead.h"
#include "MessageIds.h"
#include "PeerUtil.h"
#include "Scenario.h"
#include "SignalRecords.h"

namespace {

const char kProgram[] = "zel-player";
const int kAppId = 1089;
const int kMaxWaitMs = 50;

volatile sig_atomic_t g_running = 1;
void onSignal(int) { g_running = 0; }

std::string usageText() {
    char text[4096];
    snprintf(text, sizeof text,
            "usage: zel-player SCENARIO [--speed X] [--loop] [--wait-for ID] [--no-replies]\n"
            "  Sends the steps of a scenario on the bus at their times and answers the\n"
            "  service's start requests (1032, 1289, 475) from what it has sent.\n"
            "  --speed X     play X times faster (X > 0; default 1)\n"
            "  --loop        start again after the last step, until stopped\n"
            "  --wait-for ID start the clock when message ID is first seen on the bus\n"
            "                (6796: the service asked for its rules)\n"
            "  --no-replies  leave the start requests to another player\n"
            "  --version     the version of zel-player\n"
            "  A scenario has one step per line, AT SIGNAL ARGS..., AT in seconds:\n"
            "%s"
            "  Q7X_BUS_PATH selects the bus. Stops on SIGINT or SIGTERM.\n"
            "  Exit status: 0 every step sent; 1 a scenario it can't play (unreadable,\n"
            "  empty, a folder) or a step not sent (no broker); 2 a wrong call.\n"
            "examples:\n"
            "  zel-player examples/scenarios/road.scn\n"
            "  zel-player drive.scn --speed 10 --loop\n"
            "  zel-player road.scn --wait-for 6796\n"
            "  zel-player trace.scn --wait-for 6796 --no-replies   (beside the first)\n",
            zelscenario::signalSyntax());
    return text;
}

struct Options {
    std::string path;
    double speed = 1.0;
    bool loop = false;
    long waitFor = -1;
    bool replies = true;
};

bool parseArgs(int argc, char** argv, Options& o, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if ((a == "--speed" || a == "--wait-for") && i + 1 == argc) {
            error = a + " needs a value";
            return false;
        }
        if (a == "--speed") {
            char* end = nullptr;
            o.speed = strtod(argv[++i], &end);
            if (*end != '\0' || !(o.speed > 0) || o.speed > 1e6) {
                error = std::string("--speed: '") + argv[i] + "' is not a factor above 0";
                return false;
            }
        } else if (a == "--wait-for") {
            char* end = nullptr;
            o.waitFor = strtol(argv[++i], &end, 10);
            if (*end != '\0' || o.waitFor < 0 || o.waitFor > 0xffff) {
                error = std::string("--wait-for: '") + argv[i] + "' is not a message id";
                return false;
            }
        } else if (a == "--loop") {
            o.loop = true;
        } else if (a == "--no-replies") {
            o.replies = false;
        } else if (a.size() > 1 && a[0] == '-') {
            error = "unknown option " + a;
            return false;
        } else if (o.path.empty()) {
            o.path = a;
        } else {
            error = "one scenario only";
            return false;
        }
    }
    if (o.path.empty()) error = "no scenario";
    return error.empty();
}

class Player {
public:
    // Answers come from what has been played; the table is the exception:
    // the scenario's first one stands in until a step sends it.
    Player(void* client, const std::vector<zelscenario::Step>& steps) : m_client(client) {
        for (const zelscenario::Step& s : steps) {
            if (s.id != zel::kMsgJ1939Param) continue;
            m_firstTable = s.payload;
            break;
        }
    }

    void OnInputRequest(const char* msg, int len) {
        std::vector<uint8_t> p = last(zel::kMsgIoState, IoStateMsg_t::kSize);
        answer(msg, len, p, "input word");
    }
    void OnMotionRequest(const char* msg, int len) {
        answer(msg, len, last(zel::kMsgMdState, MdStateMsg_t::kSize), "motion state");
    }
    void OnTableRequest(const char* msg, int len) {
        std::vector<uint8_t> p = last(zel::kMsgJ1939Param, 0);
        if (p.empty()) p = m_firstTable;
        if (p.empty()) {
            peer::say("player", "table request (475): the scenario has no j1939table step");
            return;
        }
        answer(msg, len, p, "J1939 table");
    }
    void OnWaitedFor(const char*, int) { m_seen = true; }

    bool seen() const { return m_seen; }
    bool send(const zelscenario::Step& s) {
        m_last[s.id] = s.payload;
        return Common::Q7X_MSGSendMessage(m_client, 0, s.id, 0, s.payload.data(),
                                          static_cast<int>(s.payload.size()), 0) == 0;
    }

private:
    std::vector<uint8_t> last(unsigned id, size_t zeroSize) const {
        auto it = m_last.find(id);
        return it != m_last.end() ? it->second : std::vector<uint8_t>(zeroSize, 0);
    }
    void answer(const char* msg, int len, const std::vector<uint8_t>& p, const char* what) {
        if (msg == nullptr || len < 16) return;
        int rc = Common::Q7X_MSGResponseMessage(m_client, msg, p.data(), static_cast<int>(p.size()));
        peer::say("player", "answered request %u with the %s (%zu bytes)%s",
                  zel::getLe32(msg, zel::kHeadMessageWord) & 0xffff, what, p.size(), rc == 0 ? "" : ", not sent");
    }

    void* m_client;
    std::map<unsigned, std::vector<uint8_t>> m_last;
    std::vector<uint8_t> m_firstTable;
    bool m_seen = false;
};

// The scenario's lines, to show what each step came from.
std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path.c_str());
    std::string text;
    while (std::getline(in, text)) lines.push_back(text);
    return lines;
}

std::string lineText(const std::vector<std::string>& lines, int line) {
    if (line < 1 || static_cast<size_t>(line) > lines.size()) return std::string();
    std::string text = lines[line - 1].substr(0, lines[line - 1].find(" #"));
    size_t b = text.find_first_not_of(" \t");
    size_t e = text.find_last_not_of(" \t\r");
    return b == std::string::npos ? std::string() : text.substr(b, e - b + 1);
}

// Dispatches the bus until monotonic time `until` or a stop.
void waitUntil(void* client, double until) {
    for (;;) {
        double left = until - peer::monotonicSeconds();
        if (left <= 0 || !g_running) return;
        int ms = left * 1000 < kMaxWaitMs ? static_cast<int>(left * 1000) + 1 : kMaxWaitMs;
        Common::Q7X_MSGWaitForEvent(client, ms);
    }
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, usageText().c_str(), status)) return status;
    Options o;
    std::string error;
    if (!parseArgs(argc, argv, o, error)) return cli::usageError(kProgram, error);
    struct stat st;
    if (stat(o.path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return cli::fail(kProgram, o.path + " is a folder, not a scenario");
    std::vector<zelscenario::Step> steps;
    if (!zelscenario::loadScenario(o.path, steps, error)) return cli::fail(kProgram, error);
    if (steps.empty()) return cli::fail(kProgram, o.path + " has no steps: nothing to play");
    const std::string bus = peer::busPath();
    if (!peer::brokerListening(bus)) return cli::fail(kProgram, "no broker at " + bus);
    const std::vector<std::string> lines = readLines(o.path);
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGPIPE, SIG_IGN);

    void* client = Common::Q7X_MSGCreateMessageClient(kAppId, "/tmp/unix.domain", 0);
    Player player(client, steps);
    if (o.replies) {
        Common::Q7X_MSGEventRegister(client, zel::kMsgIoStateRequest,
                                     Common::Q7X_Bind(&player, &Player::OnInputRequest));
        Common::Q7X_MSGEventRegister(client, zel::kMsgMdStateRequest,
                                     Common::Q7X_Bind(&player, &Player::OnMotionRequest));
        Common::Q7X_MSGEventRegister(client, zel::kMsgJ1939ParamRequest,
                                     Common::Q7X_Bind(&player, &Player::OnTableRequest));
    }
    peer::say("player", "%s: %zu messages over %.1f s%s", o.path.c_str(), steps.size(),
              steps.empty() ? 0.0 : steps.back().at / o.speed,
              o.speed != 1.0 ? " (sped up)" : "");
    if (o.waitFor >= 0) {
        Common::Q7X_MSGEventRegister(client, static_cast<unsigned>(o.waitFor),
                                     Common::Q7X_Bind(&player, &Player::OnWaitedFor));
        peer::say("player", "waiting for message %ld", o.waitFor);
        while (g_running && !player.seen()) Common::Q7X_MSGWaitForEvent(client, 200);
    }

    unsigned long sent = 0;
    unsigned long unsent = 0;
    unsigned long frames = 0;
    do {
        const double start = peer::monotonicSeconds();
        std::set<int> shownTraces;
        for (size_t i = 0; i < steps.size() && g_running; ++i) {
            const zelscenario::Step& s = steps[i];
            waitUntil(client, start + s.at / o.speed);
            if (!g_running) break;
            if (player.send(s)) ++sent;
            else ++unsent;
            if (s.id == zel::kMsgCanFrame) ++frames;
            // A trace is one line of many frames: show it once.
            if (s.id != zel::kMsgCanFrame || shownTraces.insert(s.line).second)
                peer::say("player", "t=%7.2f  %s", s.at, lineText(lines, s.line).c_str());
        }
        // A last short wait lets the broker take what was queued.
        if (g_running) waitUntil(client, peer::monotonicSeconds() + 0.1);
    } while (o.loop && g_running);

    peer::say("player", "sent %lu messages (%lu CAN frames)", sent, frames);
    if (unsent)
        return cli::fail(kProgram, std::to_string(unsent) + " of " +
                                       std::to_string(sent + unsent) +
                                       " messages could not be sent: the broker at " + bus +
                                       " went away");
    if (sent == 0) return cli::fail(kProgram, "stopped before the first step: nothing sent");
    return 0;
}
