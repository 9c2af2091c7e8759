// az-bus-load: traffic for a relay that runs as a process of its own, so that
// a tool such as strace can watch the relay alone.
//
//   az-bus-load bus|bare PATH COUNT [RATE] [FANOUT]
//
// Connects one sender and FANOUT receivers (default 1) to the bus broker or
// the bare relay at PATH, sends COUNT 64-byte messages at RATE a second
// (default 8000; 0 for as fast as the receivers take them), waits for them
// and prints one line: "sent S received R seconds T". Exit status 1 when
// something was lost.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <chrono>
#include <thread>

#include "BusPeers.h"

namespace {

const uint32_t kId = 0x441;

void PrintUsage(FILE* out) {
    fprintf(out,
            "usage: az-bus-load bus|bare PATH COUNT [RATE] [FANOUT]\n"
            "Sends COUNT 64-byte messages at RATE a second (default 8000, 0: no pacing)\n"
            "to FANOUT receivers (default 1) through the relay at PATH.\n"
            "example: az-bus-load bus /tmp/bus.sock 20000 8000 3\n");
}

// A whole decimal number that fits a long.
bool Number(const char* text, long& value) {
    char* end = nullptr;
    errno = 0;
    value = strtol(text, &end, 10);
    return end != text && *end == '\0' && errno == 0;
}

void Pace(struct timespec* next, long rate) {
    next->tv_nsec += 1000000000L / rate;
    if (next->tv_nsec >= 1000000000L) {
        next->tv_nsec -= 1000000000L;
        ++next->tv_sec;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, next, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4 || argc > 6 || (strcmp(argv[1], "bus") != 0 && strcmp(argv[1], "bare") != 0)) {
        PrintUsage(stderr);
        return 2;
    }
    const bench::Kind kind = strcmp(argv[1], "bus") == 0 ? bench::Kind::kBus : bench::Kind::kBare;
    const std::string path = argv[2];
    long count = 0;
    long rate = 8000;
    long fanOut = 1;
    if (!Number(argv[3], count) || (argc > 4 && !Number(argv[4], rate)) ||
        (argc > 5 && !Number(argv[5], fanOut)) || count <= 0 || rate < 0 || fanOut < 1) {
        PrintUsage(stderr);
        return 2;
    }

    auto sender = bench::ConnectTo(kind, path, 1, 0);
    std::vector<std::unique_ptr<bench::Endpoint>> eps;
    eps.reserve(static_cast<size_t>(fanOut));
    for (int i = 0; i < fanOut; ++i) eps.push_back(bench::ConnectTo(kind, path, 2 + i, kId));
    for (const auto& ep : eps)
        if (!ep || !sender) {
            fprintf(stderr, "az-bus-load: cannot connect to %s\n", path.c_str());
            return 1;
        }
    bench::ReceiverThreads rx;
    rx.Start(std::move(eps), false);
    if (!bench::WarmUp(*sender, kId, rx)) {
        fprintf(stderr, "az-bus-load: the receivers were never reached\n");
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // late warm-up probes
    const uint64_t base = rx.Received();

    const unsigned char payload[64] = {1};
    const uint64_t kWindow = 256;
    const auto t0 = std::chrono::steady_clock::now();
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (long n = 0; n < count; ++n) {
        if (rate > 0)
            Pace(&next, rate);
        else
            while (static_cast<uint64_t>(n) * fanOut - (rx.Received() - base) >= kWindow * fanOut)
                std::this_thread::yield();
        sender->Send(kId, payload, sizeof payload);
    }
    const uint64_t want = static_cast<uint64_t>(count) * static_cast<uint64_t>(fanOut);
    for (int i = 0; i < 500 && rx.Received() - base < want; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    // Received() counts on while the load runs; base is its count before.
    // cppcheck-suppress duplicateExpression
    const uint64_t got = rx.Received() - base;
    rx.Stop();
    printf("sent %ld received %llu seconds %.3f\n", count, static_cast<unsigned long long>(got),
           seconds);
    return got == want ? 0 : 1;
}
