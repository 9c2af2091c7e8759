// The bus against the bare relay, in one run: one-way throughput, CPU per
// message at the CAN rate, and round-trip latency. Each benchmark runs both
// and reports bare_X, bus_X and their ratio ratio_X (bus / bare) as
// counters; scripts/bench.sh compares the ratios with their targets.
//
// Everything runs in this process: the relay on a thread, each client on a
// thread, so that getrusage(RUSAGE_SELF) covers every party of a message.
//
// Throughput and CPU are taken with every party on one core. Spread over
// cores, what a message costs depends on who happens to wake where, and on a
// shared machine a single run swings by a factor of two; on one core the
// figures measure the work. Throughput is counted per second of the
// process's CPU time, so that what other programs take from that core does
// not count either; msgs_per_wall_s beside it is the plain rate.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "BusPeers.h"
#include "BusProtocol.h"

namespace {

using bench::Kind;

const uint32_t kId = 0x441;  // the CAN frame message
const size_t kPayload = 64;
const unsigned char kBytes[kPayload] = {1, 2, 3, 4};

double CpuSeconds() {
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
           static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) * 1e-6;
}

double Since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// The CPUs this process may use, lowest first.
std::vector<int> AllowedCpus() {
    cpu_set_t set;
    sched_getaffinity(0, sizeof set, &set);
    std::vector<int> cpus;
    for (int c = 0; c < CPU_SETSIZE; ++c)
        if (CPU_ISSET(c, &set)) cpus.push_back(c);
    return cpus;
}

void PinTo(int cpu) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    sched_setaffinity(0, sizeof one, &one);
}

// Pins the calling thread, and so every thread it starts meanwhile, to the
// last CPU it may use; restores its old set at the end of the scope.
class Pinned {
public:
    Pinned() {
        sched_getaffinity(0, sizeof m_old, &m_old);
        PinTo(AllowedCpus().back());
    }
    ~Pinned() { sched_setaffinity(0, sizeof m_old, &m_old); }

private:
    cpu_set_t m_old;
};

// Waits until the receivers together have `want`, at most `ms`.
void AwaitReceived(const bench::ReceiverThreads& rx, uint64_t want, int ms) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (rx.Received() < want && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
}

struct Setup {
    Setup(Kind kind, const char* tag, int receivers, bool reply)
        : relay(bench::StartRelay(kind, tag)) {
        sender = relay->Connect(1, reply ? (kId | q7x::kResponseBit) : 0);
        std::vector<std::unique_ptr<bench::Endpoint>> eps;
        eps.reserve(receivers);
        for (int i = 0; i < receivers; ++i) eps.push_back(relay->Connect(2 + i, kId));
        ok = sender != nullptr && std::all_of(eps.begin(), eps.end(),
                                               [](const auto& e) { return e != nullptr; });
        if (!ok) return;
        rx.Start(std::move(eps), reply);
        ok = bench::WarmUp(*sender, kId, rx);
    }
    std::unique_ptr<bench::Relay> relay;
    std::unique_ptr<bench::Endpoint> sender;
    bench::ReceiverThreads rx;
    bool ok = false;
};

// Both buses stand side by side and take turns, the order flipping each
// round, so that whatever else the machine does falls on both alike.
struct Pair {
    Pair(const char* tag, int receivers, bool reply)
        : bare(Kind::kBare, tag, receivers, reply), bus(Kind::kBus, tag, receivers, reply) {}
    Setup& operator[](int i) { return i == 0 ? bare : bus; }
    bool ok() const { return bare.ok && bus.ok; }
    Setup bare;
    Setup bus;
};

// The k-th kind to run in round `round`.
int Turn(int64_t round, int k) { return static_cast<int>((round + k) & 1); }

// Per-round figures of both buses: bare_NAME and bus_NAME are medians, and
// ratio_NAME is the median of the rounds' own ratios. A round's two turns
// run close together, so a load that comes and goes cancels out of it.
struct Rounds {
    std::vector<double> v[2];
    void Add(int i, double x) { v[i].push_back(x); }
    static double Median(std::vector<double> xs) {
        if (xs.empty()) return 0;
        std::sort(xs.begin(), xs.end());
        return xs[xs.size() / 2];
    }
    void Set(benchmark::State& state, const std::string& name) const {
        std::vector<double> ratios;
        for (size_t r = 0; r < v[0].size() && r < v[1].size(); ++r)
            if (v[0][r] > 0) ratios.push_back(v[1][r] / v[0][r]);
        state.counters["bare_" + name] = Median(v[0]);
        state.counters["bus_" + name] = Median(v[1]);
        state.counters["ratio_" + name] = Median(ratios);
    }
};

// As fast as the receiver takes them, with at most kWindow in flight so that
// neither relay has to drop.
void BM_Throughput(benchmark::State& state) {
    const uint64_t kBurst = 10000;
    const uint64_t kWindow = 256;
    Pinned pin;
    Pair p("tp", 1, false);
    if (!p.ok()) return state.SkipWithError("a receiver was never reached");
    Rounds perCpu;
    Rounds perWall;
    double lost[2] = {};
    for (auto _ : state) {
        for (int k = 0; k < 2; ++k) {
            const int i = Turn(state.iterations(), k);
            Setup& s = p[i];
            const uint64_t base = s.rx.Received();
            const auto t0 = std::chrono::steady_clock::now();
            const double cpu0 = CpuSeconds();
            for (uint64_t n = 0; n < kBurst; ++n) {
                while (n - (s.rx.Received() - base) >= kWindow) sched_yield();
                s.sender->Send(kId, kBytes, kPayload);
            }
            AwaitReceived(s.rx, base + kBurst, 2000);
            perCpu.Add(i, kBurst / (CpuSeconds() - cpu0));
            perWall.Add(i, kBurst / Since(t0));
            lost[i] += static_cast<double>(base + kBurst -
                                           std::min(base + kBurst, s.rx.Received()));
        }
    }
    perCpu.Set(state, "msgs_per_cpu_s");
    perWall.Set(state, "msgs_per_wall_s");
    state.counters["bare_lost"] = lost[0];
    state.counters["bus_lost"] = lost[1];
}
BENCHMARK(BM_Throughput)->Iterations(20)->UseRealTime()->Unit(benchmark::kMillisecond);

// Messages paced at the CAN rate; CPU of every thread of the process per
// message sent, over each bus's own turns. The other bus's threads meanwhile
// sleep in their waits.
void BM_PacedCpu(benchmark::State& state) {
    const int fanOut = static_cast<int>(state.range(0));
    const long kRate = 8000;
    const long kSlice = 1000;  // 0.125 s per turn
    Pinned pin;
    Pair p("cpu", fanOut, false);
    if (!p.ok()) return state.SkipWithError("a receiver was never reached");
    Rounds perMsg;
    double lost[2] = {};
    for (auto _ : state) {
        for (int k = 0; k < 2; ++k) {
            const int i = Turn(state.iterations(), k);
            Setup& s = p[i];
            const uint64_t base = s.rx.Received();
            const double cpu0 = CpuSeconds();
            struct timespec next;
            clock_gettime(CLOCK_MONOTONIC, &next);
            for (long n = 0; n < kSlice; ++n) {
                next.tv_nsec += 1000000000L / kRate;
                if (next.tv_nsec >= 1000000000L) {
                    next.tv_nsec -= 1000000000L;
                    ++next.tv_sec;
                }
                clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
                s.sender->Send(kId, kBytes, kPayload);
            }
            const uint64_t want = base + static_cast<uint64_t>(kSlice * fanOut);
            AwaitReceived(s.rx, want, 2000);
            perMsg.Add(i, (CpuSeconds() - cpu0) / kSlice * 1e6);
            lost[i] += static_cast<double>(want - std::min(want, s.rx.Received()));
        }
    }
    perMsg.Set(state, "cpu_us_per_msg");
    state.counters["bare_lost"] = lost[0];
    state.counters["bus_lost"] = lost[1];
    state.counters["bus_relay_dropped"] = static_cast<double>(p.bus.relay->Dropped());
}
BENCHMARK(BM_PacedCpu)->Arg(1)->Arg(3)->Iterations(24)->UseRealTime()->Unit(
    benchmark::kMillisecond);

// A request and its answer (id | 0x8000), one at a time. The requester runs
// on the first CPU, the relays and responders on the last, so that every
// message crosses cores as on a device, and both buses get the same places:
// left to the scheduler, one bus may sit beside a busy neighbour for a
// whole run and the other not.
void BM_RoundTrip(benchmark::State& state) {
    Pinned pin;  // the last CPU, for the threads the pair starts
    Pair p("rt", 1, true);
    PinTo(AllowedCpus().front());
    if (!p.ok()) return state.SkipWithError("a responder was never reached");
    bench::CountingHandler replies[2];
    for (int i = 0; i < 2; ++i)
        while (p[i].sender->Receive(50, replies[i]) > 0) {
        }  // answers to the warm-up
    Rounds us;
    for (auto _ : state) {
        for (int k = 0; k < 2; ++k) {
            const int i = Turn(state.iterations(), k);
            const uint64_t before = replies[i].received.load();
            const auto t0 = std::chrono::steady_clock::now();
            p[i].sender->Send(kId, kBytes, kPayload);
            for (int n = 0; n < 100 && replies[i].received.load() == before; ++n)
                p[i].sender->Receive(20, replies[i]);
            us.Add(i, Since(t0) * 1e6);
        }
    }
    // Percentiles per block of kBlock round trips, and the medians of those
    // over the blocks, so that a burst of load elsewhere spoils one block
    // rather than the figure.
    const size_t kBlock = 1000;
    Rounds p50;
    Rounds p99;
    for (int i = 0; i < 2; ++i)
        for (size_t b = 0; b + kBlock <= us.v[i].size(); b += kBlock) {
            std::vector<double> xs(us.v[i].begin() + static_cast<long>(b),
                                   us.v[i].begin() + static_cast<long>(b + kBlock));
            std::sort(xs.begin(), xs.end());
            p50.Add(i, xs[kBlock / 2]);
            p99.Add(i, xs[kBlock * 99 / 100]);
        }
    p50.Set(state, "p50_us");
    p99.Set(state, "p99_us");
}
BENCHMARK(BM_RoundTrip)->Iterations(8000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
