// zel-soak-load: the traffic of a recorder on the move, for the soak and the
// latency figure. Talks to the service over the real bus like any peer.
//
//   zel-soak-load latency N
//     Rule 1 (SPEED > 60, ATLEAST 0) must be in force. Sends a speed above
//     and below 60 mph in turn, each at a random moment of the service's
//     cycle, and times each send to the alert record (3215) it causes: N
//     samples, then one line "latency n N p50_ms X p99_ms Y max_ms Z".
//
//   zel-soak-load run SECONDS [--phase S] [--every PERIOD,OFFSET,COMMAND]...
//     Sends the J1939 table (476), CAN frames (1089) at 8,000 a second over
//     eight groups, and a speed (6777) ten times a second. The speed is high
//     in every other phase of S seconds (default 3), the J1939 value of row 0
//     in every other pair of phases: rule 1 (SPEED > 60) and rule 2
//     (J19390 > 50) rise and end on the phase edges. COMMAND runs with
//     /bin/sh every PERIOD seconds, OFFSET seconds into the period, counted
//     from the first phase: rule pushes, a storage restart, kept away from the
//     edges. At the end both signals go low, and one line reports the records
//     seen: "frames F records R began B ended E running U unmatched M".
//
// Exit status: 0 when every sample came (latency) or every alert that began
// also ended (run); 1 otherwise; 2 usage.
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "AlertList.h"
#include "CommandLine.h"
#include "Common.h"
#include "SignalTable.h"

namespace {

const unsigned kMsgCanFrame = 1089;
const unsigned kMsgTable = 476;
const unsigned kMsgSpeed = 6777;
const unsigned kMsgAlertList = 3215;
const int kGroups = 8;
const uint32_t kGroup0 = 65265;  // CCVS, wheel-based speed in bytes 1..2

volatile sig_atomic_t g_running = 1;
void onSignal(int) { g_running = 0; }

using Clock = std::chrono::steady_clock;
double secondsSince(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

const char kProgram[] = "zel-soak-load";
const char kUsage[] =
            "usage: zel-soak-load latency N\n"
            "       zel-soak-load run SECONDS [--phase S] [--every PERIOD,OFFSET,COMMAND]...\n"
            "  latency: times N speed changes to the alert record they cause (rule 1:\n"
            "           SPEED > 60, ATLEAST 0 must be in force).\n"
            "  run:     CAN frames at 8,000/s and speed changes for SECONDS; rule 1 and\n"
            "           rule 2 (J19390 > 50) rise and end every S seconds (default 3);\n"
            "           COMMAND runs every PERIOD s, OFFSET s into it.\n"
            "  help COMMAND shows this text, --version the version.\n"
            "  Q7X_BUS_PATH selects the bus. Exit status: 0 every sample came (latency)\n"
            "  or every alert that began also ended (run); 1 otherwise; 2 a wrong call.\n"
            "examples: zel-soak-load latency 200\n"
            "          zel-soak-load run 60 --every '6,1,zel-platform push 5 cover.json'\n";

// Counts the alert records of 3215 by alert and kind.
class Records {
public:
    void OnList(const char* msg, int len) {
        if (!msg || len < 16) return;
        std::vector<zelctl::AlertRecord> recs;
        std::string why;
        const uint8_t* p = reinterpret_cast<const uint8_t*>(msg) + 16;
        if (!zelctl::decodeAlertList(p, static_cast<size_t>(len) - 16, recs, why)) {
            ++bad;
            return;
        }
        for (const zelctl::AlertRecord& r : recs) {
            if (r.ended) {
                ++ended;
                if (running[r.alertID] > 0)
                    --running[r.alertID];
                else
                    ++unmatched;
            } else {
                ++began;
                ++running[r.alertID];
            }
            last[r.alertID] = r.ended ? 1 : 0;
            ++seq[r.alertID];
        }
    }
    long Running() const {
        long n = 0;
        for (const auto& kv : running) n += kv.second;
        return n;
    }
    long began = 0, ended = 0, unmatched = 0, bad = 0;
    std::map<uint32_t, long> running, seq;
    std::map<uint32_t, int> last;
};

std::vector<uint8_t> speedPayload(uint32_t mph) {
    std::vector<uint8_t> p(12, 0);
    p[0] = 1;  // miles per hour
    for (int i = 0; i < 4; ++i) p[4 + i] = static_cast<uint8_t>(mph >> (8 * i));
    return p;
}

void send(void* client, unsigned id, const std::vector<uint8_t>& p) {
    Common::Q7X_MSGSendMessage(client, 0, id, 0, p.data(), static_cast<int>(p.size()), 0);
}

// Row 0: wheel-based speed of CCVS in km/h; rows 1..7 other groups, so that
// every frame is looked up and decoded.
std::vector<uint8_t> tablePayload() {
    std::vector<zelj1939::SignalRow> rows;
    for (int g = 0; g < kGroups; ++g) {
        zelj1939::SignalRow r{};
        r.name = "s" + std::to_string(g);
        r.pgn = g == 0 ? kGroup0 : 61440u + static_cast<uint32_t>(g);
        r.startbyte = 1;
        r.length = 16;
        r.resolution = 1.0 / 256;
        rows.push_back(r);
    }
    return zelj1939::buildTablePayload(rows);
}

// Message 1089 for group g with a 16-bit value in data bytes 1..2.
std::vector<uint8_t> canFrame(int g, uint32_t raw) {
    std::vector<uint8_t> p(28, 0);
    const uint32_t pgn = g == 0 ? kGroup0 : 61440u + static_cast<uint32_t>(g);
    const uint32_t id = 0x18000000u | pgn << 8 | 0x17u;
    for (int i = 0; i < 4; ++i) p[12 + i] = static_cast<uint8_t>(id >> (8 * i));
    p[20] = 0xff;
    p[21] = static_cast<uint8_t>(raw);
    p[22] = static_cast<uint8_t>(raw >> 8);
    return p;
}

// Waits on client until the record count of `alert` grows, at most ms.
bool awaitRecord(void* client, const Records& recs, uint32_t alert, int ms) {
    auto it = recs.seq.find(alert);
    const long before = it == recs.seq.end() ? 0 : it->second;
    const auto until = Clock::now() + std::chrono::milliseconds(ms);
    while (g_running && Clock::now() < until) {
        Common::Q7X_MSGWaitForEvent(client, 5);
        it = recs.seq.find(alert);
        if (it != recs.seq.end() && it->second > before) return true;
    }
    return false;
}

int latency(int samples) {
    void* client = Common::Q7X_MSGCreateMessageClient(4301, nullptr, 0);
    Records recs;
    Common::Q7X_MSGEventRegister(client, kMsgAlertList, Common::Q7X_Bind(&recs, &Records::OnList));
    // The service is ready once a high speed raises rule 1; then it ends.
    bool ready = false;
    for (int i = 0; i < 60 && g_running && !ready; ++i) {
        send(client, kMsgSpeed, speedPayload(100));
        ready = awaitRecord(client, recs, 1, 1000);
    }
    send(client, kMsgSpeed, speedPayload(0));
    if (!ready || !awaitRecord(client, recs, 1, 3000)) {
        fprintf(stderr, "zel-soak-load: rule 1 never rose and ended; is it in force?\n");
        return 1;
    }
    // A fixed seed: every run pauses the same, so runs compare.
    std::minstd_rand pauses(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp)
    std::uniform_int_distribution<int> pause(50, 249);
    std::vector<double> ms;
    for (int i = 0; i < samples && g_running; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(pause(pauses)));
        const auto t0 = Clock::now();
        send(client, kMsgSpeed, speedPayload(i % 2 == 0 ? 100 : 0));
        if (!awaitRecord(client, recs, 1, 3000)) {
            fprintf(stderr, "zel-soak-load: no record within 3 s of change %d\n", i);
            return 1;
        }
        ms.push_back(secondsSince(t0) * 1000.0);
    }
    if (ms.empty()) return 1;
    std::sort(ms.begin(), ms.end());
    printf("latency n %zu p50_ms %.2f p99_ms %.2f max_ms %.2f\n", ms.size(),
           ms[ms.size() / 2], ms[(ms.size() - 1) * 99 / 100], ms.back());
    return 0;
}

struct Every {
    double period;
    double offset;
    std::string command;
};

// A number that runs from `text` to `stop` (the text's end when null).
bool readNumber(const char* text, double& value, const char* stop = nullptr) {
    char* end = nullptr;
    errno = 0;
    value = strtod(text, &end);
    return end != text && errno == 0 && (stop ? end == stop : *end == '\0');
}

// A number of samples above 0.
bool readCount(const char* text, int& value) {
    char* end = nullptr;
    errno = 0;
    const long n = strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || n <= 0 || n > INT_MAX) return false;
    value = static_cast<int>(n);
    return true;
}

bool parseEvery(const char* text, Every& e) {
    const char* c1 = strchr(text, ',');
    const char* c2 = c1 ? strchr(c1 + 1, ',') : nullptr;
    if (!c2) return false;
    e.command = c2 + 1;
    return readNumber(text, e.period, c1) && readNumber(c1 + 1, e.offset, c2) && e.period > 0 &&
           e.offset >= 0 && !e.command.empty();
}

int run(double seconds, double phase, const std::vector<Every>& everies) {
    void* client = Common::Q7X_MSGCreateMessageClient(4302, nullptr, 0);
    void* can = Common::Q7X_MSGCreateMessageClient(4303, nullptr, 0);
    Records recs;
    Common::Q7X_MSGEventRegister(client, kMsgAlertList, Common::Q7X_Bind(&recs, &Records::OnList));
    send(client, kMsgTable, tablePayload());

    const auto start = Clock::now();
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> j1939Raw{20 * 256};
    std::atomic<long> frames{0};
    std::thread canThread([&] {
        // Eight frames a millisecond, one of each group.
        auto next = Clock::now();
        while (!stop) {
            next += std::chrono::milliseconds(1);
            std::this_thread::sleep_until(next);
            for (int g = 0; g < kGroups; ++g)
                send(can, kMsgCanFrame, canFrame(g, g == 0 ? j1939Raw.load() : 1000u));
            frames += kGroups;
        }
    });
    std::vector<std::thread> commands;
    commands.reserve(everies.size());
    for (const Every& e : everies)
        commands.emplace_back([&stop, &start, e] {
            for (long k = 0; !stop; ++k) {
                const auto at = start + std::chrono::duration_cast<Clock::duration>(
                                            std::chrono::duration<double>(k * e.period + e.offset));
                while (!stop && Clock::now() < at)
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                // The wait above ends on a stop from another thread.
                // cppcheck-suppress oppositeInnerCondition
                if (stop) return;
                // The operator's own command, given with --every.
                if (system(e.command.c_str()) != 0)  // NOLINT(cert-env33-c)
                    fprintf(stderr, "zel-soak-load: \"%s\" failed\n", e.command.c_str());
            }
        });

    while (g_running && secondsSince(start) < seconds) {
        const long k = static_cast<long>(secondsSince(start) / phase);
        send(client, kMsgSpeed, speedPayload(k % 2 == 1 ? 100 : 0));
        j1939Raw = (k / 2) % 2 == 1 ? 80u * 256 : 20u * 256;
        const auto tick = Clock::now() + std::chrono::milliseconds(100);
        while (Clock::now() < tick) Common::Q7X_MSGWaitForEvent(client, 20);
    }
    // Both low; every running alert ends within a few cycles.
    j1939Raw = 20u * 256;
    const auto end = Clock::now();
    while (secondsSince(end) < 3.0) {
        send(client, kMsgSpeed, speedPayload(0));
        const auto tick = Clock::now() + std::chrono::milliseconds(100);
        while (Clock::now() < tick) Common::Q7X_MSGWaitForEvent(client, 20);
    }
    stop = true;
    canThread.join();
    for (std::thread& t : commands) t.join();
    printf("frames %ld records %ld began %ld ended %ld running %ld unmatched %ld bad %ld\n",
           frames.load(), recs.began + recs.ended, recs.began, recs.ended, recs.Running(),
           recs.unmatched, recs.bad);
    return recs.Running() == 0 && recs.unmatched == 0 && recs.bad == 0 && recs.began > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    const std::string command = argc > 1 ? argv[1] : "";
    if ((command == "help" && argc == 3 &&
         (!strcmp(argv[2], "latency") || !strcmp(argv[2], "run"))) ||
        ((command == "latency" || command == "run") && argc == 3 && cli::isHelp(argv[2]))) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (command != "latency" && command != "run")
        return cli::usageError(kProgram, argc < 2 ? std::string("no command (latency or run)")
                                                  : "unknown command '" + command + "'");
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    if (command == "latency") {
        int n = 0;
        if (argc != 3 || !readCount(argv[2], n))
            return cli::usageError(kProgram, "latency needs a number of samples above 0");
        return latency(n);
    }
    double seconds = 0;
    if (argc < 3 || !readNumber(argv[2], seconds) || !(seconds > 0))
        return cli::usageError(kProgram, "run needs a number of seconds above 0");
    double phase = 3.0;
    std::vector<Every> everies;
    for (int i = 3; i < argc; ++i) {
        Every e;
        double given = 0;
        if (!strcmp(argv[i], "--phase") && i + 1 < argc && readNumber(argv[i + 1], given) &&
            given > 0) {
            phase = given;
            ++i;
        } else if (!strcmp(argv[i], "--every") && i + 1 < argc && parseEvery(argv[i + 1], e)) {
            everies.push_back(e);
            ++i;
        } else {
            return cli::usageError(kProgram, std::string("'") + argv[i] +
                                                 "' is not --phase S or --every PERIOD,OFFSET,COMMAND");
        }
    }
    return run(seconds, phase, everies);
}
