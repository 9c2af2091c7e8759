// Bus throughput and latency through a real broker on a private path.
// Build with -DAZ_BUILD_BENCH=ON; run platform_bus_bench.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "Broker.h"
#include "BusProtocol.h"
#include "Common.h"

namespace {

struct Counter {
    void On(const char*, int) { ++n; }
    long n = 0;
};

struct Bus {
    Bus() : path(MakePath()), broker(path) {
        // Set before this bus's clients start; no other thread reads it then.
        setenv("Q7X_BUS_PATH", path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        broker.Open();
        thread = std::thread([this] { broker.Run(); });
    }
    ~Bus() {
        broker.Stop();
        thread.join();
    }
    static std::string MakePath() { return "/tmp/q7xbench." + std::to_string(getpid()); }
    std::string path;
    q7x::CBusBroker broker;
    std::thread thread;
};

// Waits until count reaches n, at most ~5 s.
void Drain(void* client, const long& count, long n) {
    for (int i = 0; i < 250 && count < n; ++i) Common::Q7X_MSGWaitForEvent(client, 20);
}

// CAN-sized notifications, sent in bursts of 100 and then received.
void BM_Notify48(benchmark::State& state) {
    Bus bus;
    void* tx = Common::Q7X_MSGCreateMessageClient(1, nullptr, 0);
    void* rx = Common::Q7X_MSGCreateMessageClient(2, nullptr, 0);
    Counter got;
    Common::Q7X_MSGEventRegister(rx, 0x100, Common::Q7X_Bind(&got, &Counter::On));
    const char payload[48] = {};
    for (int i = 0; i < 50 && got.n == 0; ++i) {  // until the subscription holds
        Common::Q7X_MSGSendMessage(tx, 0, 0x100, 0, payload, sizeof payload, 0);
        Common::Q7X_MSGWaitForEvent(rx, 20);
    }
    long expected = got.n;
    for (auto _ : state) {
        for (int i = 0; i < 100; ++i)
            Common::Q7X_MSGSendMessage(tx, 0, 0x100, 0, payload, sizeof payload, 0);
        expected += 100;
        Drain(rx, got.n, expected);
    }
    state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(BM_Notify48)->UseRealTime();

// A request and its response, one at a time.
struct Echo {
    void On(const char* msg, int len) {
        Common::Q7X_MSGResponseMessage(client, msg, msg + 16, len - 16);
    }
    void* client = nullptr;
};

void BM_RoundTrip(benchmark::State& state) {
    Bus bus;
    void* requester = Common::Q7X_MSGCreateMessageClient(1, nullptr, 0);
    Echo echo;
    echo.client = Common::Q7X_MSGCreateMessageClient(2, nullptr, 0);
    Counter replies;
    Common::Q7X_MSGEventRegister(echo.client, 0x200, Common::Q7X_Bind(&echo, &Echo::On));
    Common::Q7X_MSGEventRegister(requester, 0x8200, Common::Q7X_Bind(&replies, &Counter::On));
    std::atomic<bool> stop{false};
    std::thread server([&] {
        while (!stop) Common::Q7X_MSGWaitForEvent(echo.client, 50);
    });
    const std::string payload(static_cast<size_t>(state.range(0)), 'r');
    for (int i = 0; i < 50 && replies.n == 0; ++i) {
        Common::Q7X_MSGSendMessage(requester, 0, 0x200, 1, payload.data(),
                                   static_cast<int>(payload.size()), 0);
        Common::Q7X_MSGWaitForEvent(requester, 20);
    }
    for (auto _ : state) {
        const long before = replies.n;
        Common::Q7X_MSGSendMessage(requester, 0, 0x200, 1, payload.data(),
                                   static_cast<int>(payload.size()), 0);
        Drain(requester, replies.n, before + 1);
    }
    stop = true;
    server.join();
}
BENCHMARK(BM_RoundTrip)->Arg(48)->Arg(int64_t{16} * 1024)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
