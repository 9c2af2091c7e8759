// One alert pass over 1,000 rules of 4 triggers each, all holding, no edges,
// against a flat loop over a plain array doing the same bit test and
// comparison per trigger.
#include <benchmark/benchmark.h>

#include "Harness.h"

namespace {

const int kRules = 1000;
const int kTriggersPerRule = 4;
const uint32_t kEvents[kTriggersPerRule] = {14, 9, 13, 17};  // SPEED, AccelX, IGTN, SYSVOLT

void BM_CheckAlarmPass(benchmark::State& state) {
    harness::Harness h;
    h.start();
    h.announceStorage();
    h.cycle();
    CAlertZelManage& s = h.service();
    s.m_bParaReady = 1;
    for (int r = 0; r < kRules; ++r) {
        std::vector<sInputTrigger> triggers;
        for (uint32_t e : kEvents) triggers.push_back(sInputTrigger{e, GT, 0.5});
        s.m_ParaList.push_back(harness::makeRule(static_cast<uint32_t>(r), 0, triggers));
    }
    s.m_Speed = s.m_Accel[0] = s.m_Ignition = s.m_SysVolt = 1.0;
    for (uint32_t e : kEvents) s.setEventValid(e);
    s.CheckAlarm();  // all rules rise once; later passes have no edges
    // The virtual clock stands still from here, so no tick falls either.
    s.m_LastTickTime = static_cast<int32_t>(h.nowUs() / 1000000);
    h.clearSent();
    h.clearLines();
    for (auto _ : state) s.CheckAlarm();
    if (!h.sent().empty() || !h.lines().empty()) {
        std::string why = h.lines().empty() ? "a pass sent a message" : h.lines()[0].text;
        state.SkipWithError(why.c_str());
    }
    state.SetItemsProcessed(state.iterations() * kRules * kTriggersPerRule);
}
BENCHMARK(BM_CheckAlarmPass)->Unit(benchmark::kMicrosecond);

struct FlatTrigger {
    uint32_t event;
    int type;
    double threshold;
};

void BM_FlatTriggerLoop(benchmark::State& state) {
    std::vector<FlatTrigger> triggers;
    for (int r = 0; r < kRules; ++r)
        for (uint32_t e : kEvents) triggers.push_back(FlatTrigger{e, 0, 0.5});
    uint32_t valid[4] = {};
    double values[103] = {};
    for (uint32_t e : kEvents) {
        valid[e >> 5] |= 1u << (e & 31);
        values[e] = 1.0;
    }
    benchmark::DoNotOptimize(valid);
    benchmark::DoNotOptimize(values);
    for (auto _ : state) {
        int holding = 0;
        for (const FlatTrigger& t : triggers) {
            if (!((valid[t.event >> 5] >> (t.event & 31)) & 1u)) continue;
            double v = values[t.event];
            bool result = t.type == 0 ? v > t.threshold : t.type == 1 ? v < t.threshold
                                                                     : v == t.threshold;
            holding += result;
        }
        benchmark::DoNotOptimize(holding);
    }
    state.SetItemsProcessed(state.iterations() * kRules * kTriggersPerRule);
}
BENCHMARK(BM_FlatTriggerLoop)->Unit(benchmark::kMicrosecond);

}  // namespace
