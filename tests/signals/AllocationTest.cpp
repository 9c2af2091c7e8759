// Frames arrive by the thousand per second and a pass evaluates every trigger
// ten times a second: neither may allocate. This executable replaces the
// global operator new and wraps malloc, calloc and realloc at link time,
// counting while a flag is on, and failing allocations of one size on demand. The harness's diagnostic sink (which keeps
// each line in a vector of strings) is told to drop lines unformatted.
#include <stdlib.h>

#include <new>

#include "FakePlatform.h"
#include "SignalMessages.h"

namespace {

bool g_counting = false;
size_t g_allocations = 0;
size_t g_failingSize = 0;  // non-zero: malloc of exactly this size fails

template <typename F>
size_t allocationsOf(F body) {
    g_allocations = 0;
    g_counting = true;
    body();
    g_counting = false;
    return g_allocations;
}

}  // namespace

// The malloc here is the counting one below. GCC, once it has inlined these
// into a delete expression, takes the free below for a mismatch with new.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(size_t n) {
    void* p = malloc(n ? n : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

// The names are the linker's (--wrap=malloc), reserved identifiers by design.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
void* __real_malloc(size_t n);
void* __real_calloc(size_t n, size_t size);
void* __real_realloc(void* p, size_t n);
void* __wrap_malloc(size_t n) {
    g_allocations += g_counting;
    if (n == g_failingSize) return nullptr;
    return __real_malloc(n);
}
void* __wrap_calloc(size_t n, size_t size) {
    g_allocations += g_counting;
    return __real_calloc(n, size);
}
void* __wrap_realloc(void* p, size_t n) {
    g_allocations += g_counting;
    return __real_realloc(p, n);
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

using harness::Bytes;

class Allocation : public harness::ReadyServiceTest {
protected:
    void SetUp() override {
        ReadyServiceTest::SetUp();
        h.setCaptureLevel(0);
    }
};

TEST_F(Allocation, FrameDecodeAllocatesNothing) {
    std::vector<sig::J1939Row> rows;
    for (uint32_t n = 0; n < 64; ++n)  // a full table, groups out of order
        rows.push_back({n, 16, 65000 + (n * 37) % 500, n % 7, 0, 0.125, -40});
    h.deliver(476, sig::j1939Table(rows));
    std::vector<Bytes> frames;
    for (uint32_t n = 0; n < 64; ++n)
        frames.push_back(harness::makeMessage(
            1089, 28, sig::canFrame(0x18000000 | rows[n].pgn << 8, n * 0x0101010101ull)));
    frames.push_back(harness::makeMessage(1089, 28, sig::canFrame(0x18FECA00, 1)));  // no row
    frames.push_back(harness::makeMessage(1089, 27, Bytes(27, 0)));  // 43 bytes in all
    EXPECT_EQ(allocationsOf([&] {
                  for (int round = 0; round < 100; ++round)
                      for (const Bytes& f : frames)
                          svc().onGetZelCanData(reinterpret_cast<const char*>(f.data()),
                                                static_cast<int>(f.size()));
              }),
              0u);
    EXPECT_EQ(svc().m_J1939Value.size(), 64u);
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
    EXPECT_EQ(allocationsOf([&] {
                  for (int pass = 0; pass < 50; ++pass) svc().CheckAlarm();
              }),
              0u);
    EXPECT_EQ(svc().m_ParaList.front().bConditionMet, 1);
    for (const ZelAlertPara_t& r : svc().m_ParaList) EXPECT_EQ(r.bState, 0) << r.alertID;
}

// A list of five records is 168 bytes; when it can't be allocated, the
// builder that sends it reports so under its own name and goes no further,
// and so does the state query.
TEST_F(Allocation, AnAlertListThatCannotBeAllocatedIsReportedByItsBuilder) {
    h.setCaptureLevel(4);
    for (uint32_t id = 1; id <= 5; ++id) addRule(id);
    speed(70);
    g_failingSize = 168;
    svc().CheckAlarm();
    svc().StopAllAlarm();
    g_failingSize = 0;
    EXPECT_FALSE(h.hasLine("======StopAllAlarm==End=== !\n"));
    const std::string fail = "msgZelAlertData malloc fail !\n";
    std::vector<harness::Line> failures;
    for (const harness::Line& l : printed())
        if (l.text == fail) failures.push_back(l);
    EXPECT_EQ(failures, (std::vector<harness::Line>{{3, "CheckAlarm", fail}, {3, "StopAllAlarm", fail}}));
    EXPECT_TRUE(h.sentWithId(3215).empty());
    for (const ZelAlertPara_t& r : svc().m_ParaList) EXPECT_EQ(r.bLastState, 0) << r.alertID;
    // The state query with three open frames needs 104 bytes: no reply then.
    for (uint32_t id = 1; id <= 3; ++id) svc().m_LogFrameMap[id];
    h.clearLines();
    g_failingSize = 104;
    h.deliver(3216, Bytes());
    g_failingSize = 0;
    expectLines({{3, "OnGetZelAlertState", "=======OnGetZelAlertState======!\n"},
                 {3, "OnGetZelAlertState", fail}});
    EXPECT_TRUE(h.sentWithId(3216 | 0x8000).empty());
}

}  // namespace
