// Frames arrive by the thousand per second and a pass evaluates every trigger
// ten times a second: neither may allocate. This executable replaces the
// global operator new and wraps malloc, counting while a flag is on.
//
// The diagnostic sink is the platform's, not the service's: the harness's
// stand-in records each line in a vector of strings, so the counter pauses
// inside it (the link wraps Common::gclDebugPrintf). The lines are still
// formatted and recorded as usual.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <new>

#include <gtest/gtest.h>

#include "FakePlatform.h"
#include "SignalMessages.h"

namespace {

bool g_counting = false;
size_t g_allocations = 0;
size_t g_lines = 0;

void* counted(size_t n) {
    if (g_counting) ++g_allocations;
    void* p = malloc(n ? n : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

// Counts what `body` allocates.
template <typename F>
size_t allocationsOf(F body) {
    g_allocations = 0;
    g_lines = 0;
    g_counting = true;
    body();
    g_counting = false;
    return g_allocations;
}

}  // namespace

void* operator new(size_t n) { return counted(n); }
void* operator new[](size_t n) { return counted(n); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

extern "C" {
void* __real_malloc(size_t n);
void* __real_calloc(size_t n, size_t size);
void* __real_realloc(void* p, size_t n);
void* __wrap_malloc(size_t n) {
    if (g_counting) ++g_allocations;
    return __real_malloc(n);
}
void* __wrap_calloc(size_t n, size_t size) {
    if (g_counting) ++g_allocations;
    return __real_calloc(n, size);
}
void* __wrap_realloc(void* p, size_t n) {
    if (g_counting) ++g_allocations;
    return __real_realloc(p, n);
}

// Common::gclDebugPrintf(int, const char*, const char*, int, const char*, ...)
void __real__ZN6Common14gclDebugPrintfEiPKcS1_iS1_z(int level, const char* file,
                                                     const char* func, int line,
                                                     const char* format, ...);
void __wrap__ZN6Common14gclDebugPrintfEiPKcS1_iS1_z(int level, const char* file,
                                                     const char* func, int line,
                                                     const char* format, ...) {
    bool was = g_counting;
    g_counting = false;
    char text[8192];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    __real__ZN6Common14gclDebugPrintfEiPKcS1_iS1_z(level, file, func, line, "%s", text);
    ++g_lines;
    g_counting = was;
}
}

namespace {

using harness::Bytes;
using harness::makeMessage;
using Allocation = harness::ReadyServiceTest;

TEST_F(Allocation, FrameDecodeAllocatesNothing) {
    std::vector<sig::J1939Row> rows;
    for (uint32_t n = 0; n < 64; ++n)  // a full table, groups out of order
        rows.push_back({n, 16, 65000 + (n * 37) % 500, n % 7, 0, 0.125, -40});
    h.deliver(476, sig::j1939Table(rows));

    std::vector<Bytes> frames;
    for (uint32_t n = 0; n < 64; ++n)
        frames.push_back(makeMessage(
            1089, 28, sig::canFrame(0x18000000 | rows[n].pgn << 8, n * 0x0101010101ull)));
    frames.push_back(makeMessage(1089, 28, sig::canFrame(0x18FECA00, 1)));  // matches no row
    frames.push_back(makeMessage(1089, 27, Bytes(27, 0)));                  // 43 bytes in all

    size_t n = allocationsOf([&] {
        for (int round = 0; round < 100; ++round)
            for (const Bytes& f : frames) {
                svc().onGetZelCanData(reinterpret_cast<const char*>(f.data()),
                                    static_cast<int>(f.size()));
                h.clearLines();
            }
    });
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(g_lines, 100u * 65);  // one line per matched frame and one for the short one
    EXPECT_EQ(svc().m_J1939Value.size(), 64u);

    // The counter does see allocations: the harness's own delivery makes some.
    EXPECT_GT(allocationsOf([&] { h.deliver(1089, sig::canFrame(0x18FEF100, 0)); }), 0u);
}

TEST_F(Allocation, TriggerEvaluationOfAPassAllocatesNothing) {
    sig::primeEverySignal(h);

    // One rule per event, holding or failing for good, none ever rising; and
    // the triggers that can't be judged.
    const uint32_t never = 1000000;
    for (uint32_t e = 0; e < 103; ++e) {
        svc().m_ParaList.push_back(harness::makeRule(e, never, {{e, GT, -1e9}}));
        svc().m_ParaList.push_back(harness::makeRule(200 + e, never, {{e, LT, -1e9}}));
    }
    svc().m_ParaList.push_back(harness::makeRule(400, never, {{103, GT, 0}}));
    sInputTrigger badType{14, static_cast<eTriggerType>(7), 0};
    svc().m_ParaList.push_back(harness::makeRule(401, never, {badType}));
    svc().m_PanicKey[0] = 0x20;  // a key code that is neither pressed nor released
    svc().CheckAlarm();          // conditions begin to hold: the state settles

    size_t n = allocationsOf([&] {
        for (int pass = 0; pass < 50; ++pass) {
            svc().CheckAlarm();
            h.clearLines();
        }
    });
    EXPECT_EQ(n, 0u);
    EXPECT_GT(g_lines, 50u * 100);
    for (const ZelAlertPara_t& r : svc().m_ParaList) EXPECT_EQ(r.bState, 0) << r.alertID;
}

}  // namespace
