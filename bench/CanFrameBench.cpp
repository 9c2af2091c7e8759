// onGetZelCanData with a full 64-row J1939 table and frames for the last
// row, against the least a decoder can do: the shift, mask and fused
// multiply-add of a row whose plan is already in hand.
//
// A counting operator new stands in for the whole binary; each benchmark
// reports allocs_per_call over its timed loop. The harness drops the
// service's level-3 line per frame unformatted, as the platform library does
// below Q7X_DEBUG_LEVEL 3; at level 3 the line's formatting and write cost
// far more than the decode and are the platform's, not the handler's.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <cmath>
#include <new>
#include <vector>

#include "Harness.h"
#include "SignalRecords.h"

namespace {
std::atomic<uint64_t> g_allocs{0};
}  // namespace

__attribute__((noinline)) void* operator new(size_t n) {
    g_allocs.fetch_add(1, std::memory_order_relaxed);
    if (void* p = malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept {
    g_allocs.fetch_add(1, std::memory_order_relaxed);
    return malloc(n ? n : 1);
}
void* operator new[](size_t n, const std::nothrow_t& t) noexcept { return operator new(n, t); }
// Out of line, so that the compiler never sees a new and its free together.
__attribute__((noinline)) void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, size_t) noexcept { operator delete(p); }
void operator delete[](void* p, size_t) noexcept { operator delete(p); }

namespace {

const int kRows = J1939Param_t::kRowCount;
const int kLastRow = kRows - 1;

void Put32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

void PutDouble(uint8_t* p, double d) {
    uint64_t v;
    memcpy(&v, &d, sizeof v);
    for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Row r follows group PgnOf(r): all different, and in no order, so that the
// last row's group sits inside the sorted index rather than at an end.
uint32_t PgnOf(int r) { return 0xF000u + static_cast<uint32_t>((r * 37) % kRows) * 3u; }

// A bus message: the 16-byte head (source, session, id, length) and payload.
std::vector<uint8_t> Message(uint32_t id, const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> m(16 + payload.size());
    Put32(m.data(), 77);
    Put32(&m[4], 1);
    Put32(&m[8], id);
    Put32(&m[12], static_cast<uint32_t>(payload.size()));
    memcpy(m.data() + 16, payload.data(), payload.size());
    return m;
}

std::vector<uint8_t> FullTable() {
    std::vector<uint8_t> t(J1939Param_t::kTableSize);
    for (int r = 0; r < kRows; ++r) {
        uint8_t* row = &t[static_cast<size_t>(J1939Param_t::kRowSize) * r];
        Put32(row + J1939Param_t::kId, static_cast<uint32_t>(r));
        Put32(row + J1939Param_t::kLength, 16);
        Put32(row + J1939Param_t::kPgn, PgnOf(r));
        Put32(row + J1939Param_t::kStartBit, 4);
        Put32(row + J1939Param_t::kStartByte, 1);
        PutDouble(row + J1939Param_t::kOffset, -40.0);
        PutDouble(row + J1939Param_t::kResolution, 0.125);
    }
    return t;
}

// Message 1089 for the last row's group, priority 6, source 0x17.
std::vector<uint8_t> LastRowFrame() {
    std::vector<uint8_t> p(CanFrameMsg_t::kSize);
    Put32(&p[CanFrameMsg_t::kCanId], 0x18000000u | PgnOf(kLastRow) << 8 | 0x17u);
    const uint8_t data[8] = {0xFF, 0x34, 0x17, 0xFC, 0xFF, 0x68, 0x00, 0xCF};
    memcpy(&p[CanFrameMsg_t::kCanData], data, sizeof data);
    return Message(1089, p);
}

void BM_OnGetZelCanData(benchmark::State& state) {
    harness::Harness h;
    h.start();
    CAlertZelManage& s = h.service();
    const std::vector<uint8_t> table = Message(476, FullTable());
    s.onGetJ1939param(reinterpret_cast<const char*>(table.data()), static_cast<int>(table.size()));
    const std::vector<uint8_t> frame = LastRowFrame();
    const char* msg = reinterpret_cast<const char*>(frame.data());
    const int len = static_cast<int>(frame.size());
    h.setCaptureLevel(2);
    s.onGetZelCanData(msg, len);
    double value = 0;
    if (!s.m_J1939Value.find(kLastRow, value))
        return state.SkipWithError("the last row got no value");

    const uint64_t allocs0 = g_allocs.load();
    for (auto _ : state) {
        s.onGetZelCanData(msg, len);
        benchmark::ClobberMemory();
    }
    const uint64_t allocs = g_allocs.load() - allocs0;
    state.counters["allocs_per_call"] =
        static_cast<double>(allocs) / static_cast<double>(state.iterations());
    s.m_J1939Value.find(kLastRow, value);
    state.counters["value"] = value;
}
BENCHMARK(BM_OnGetZelCanData);

// The same frame and row: data word in, value out, nothing looked up.
void BM_MinimalDecode(benchmark::State& state) {
    struct Plan {
        uint32_t shift;
        uint64_t mask;
        double resolution;
        double offset;
    } plan = {4 + 8 * 1, 0xffff, 0.125, -40.0};
    const std::vector<uint8_t> frame = LastRowFrame();
    const uint8_t* data = frame.data() + 16 + CanFrameMsg_t::kCanData;
    double value = 0;
    benchmark::DoNotOptimize(plan);
    const uint64_t allocs0 = g_allocs.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(data);
        uint64_t word;
        memcpy(&word, data, sizeof word);  // little-endian host
        const uint64_t raw = (word >> plan.shift) & plan.mask;
        value = std::fma(static_cast<double>(raw), plan.resolution, plan.offset);
        benchmark::DoNotOptimize(value);
    }
    state.counters["allocs_per_call"] = static_cast<double>(g_allocs.load() - allocs0) /
                                        static_cast<double>(state.iterations());
    state.counters["value"] = value;
}
BENCHMARK(BM_MinimalDecode);

}  // namespace
