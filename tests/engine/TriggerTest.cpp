// Trigger evaluation on the signal cache: validity, comparisons and the panic
// key's codes.
#include <math.h>

#include "ServiceFixture.h"

namespace {

using Trigger = harness::ServiceTest;

TEST_F(Trigger, ComparisonsExcludeTheThresholdAndRefuseNaNAndSignalsWithoutAValue) {
    const struct { double value, threshold; eTriggerType type; bool expected; } rows[] = {
        {61, 60, GT, true},  {60, 60, GT, false}, {59, 60, LT, true},  {60, 60, LT, false},
        {60, 60, EQ, true},  {60.0000001, 60, EQ, false}, {NAN, 60, GT, false},
        {NAN, 60, LT, false}, {NAN, NAN, EQ, false},
    };
    for (const auto& r : rows)
        EXPECT_EQ(svc().checkValue(r.value, r.threshold, r.type), r.expected)
            << r.value << " " << r.type << " " << r.threshold;
    EXPECT_FALSE(svc().checkValue(1, 0, static_cast<eTriggerType>(3)));
    // A signal without a value is false; an event beyond the catalogue changes nothing.
    EXPECT_FALSE(trigger(14, LT, 1.0, true));
    EXPECT_TRUE(trigger(103, GT, 0.0, true));
}

// The first and last slot of each family, so that a shifted index shows; both
// on its own and in a pass, which reads a snapshot of the cache.
TEST_F(Trigger, EachFamilyReadsItsCachedValue) {
    CAlertZelManage& s = svc();
    s.m_IoState[2] = 1;
    s.m_Accel[1] = 3.5;
    s.m_GpsInfo[8] = 2;
    s.m_Ignition = 1.0;
    s.m_Speed = 61;
    s.m_HdTemp = 15;
    s.m_SysTemp = 16;
    s.m_SysVolt = 12.5;
    s.m_MdState[15] = 1;
    s.m_AlprValue[4] = 255;
    s.m_J1939Value.set(63, 88.0);
    const std::pair<uint32_t, double> rows[] = {{2, 1.0},   {3, 0.0},   {10, 3.5},  {12, 2.0},
                                                {13, 1.0},  {14, 61.0}, {15, 15.0}, {16, 16.0},
                                                {17, 12.5}, {33, 1.0},  {32, 0.0},  {102, 255.0},
                                                {97, 88.0}};
    for (auto [event, equals] : rows) {
        s.setEventValid(event);
        EXPECT_TRUE(trigger(event, EQ, equals)) << EVENT_NAME[event];
        addRule(event, 1000000, {{event, EQ, equals}});
    }
    s.m_bStorageReady = s.m_bParaReady = 1;
    s.CheckAlarm();
    for (const ZelAlertPara_t& p : s.m_ParaList)
        EXPECT_EQ(p.bConditionMet, 1) << EVENT_NAME[p.alertID];
}

TEST_F(Trigger, PanicKeyCodesAndAnUnknownCodeLeavesTheLastResult) {
    // gtHalf: GT 0.5 from false; initialKept: LT 0.5 from true; last: m_LastResult[8].
    const struct { uint8_t code; bool gtHalf, initialKept; uint8_t last; } rows[] = {
        {0x31, true, false, 1}, {0x99, false, true, 1}, {0x30, true, false, 1},
        {0x32, false, true, 0}, {0x00, false, true, 0}};
    svc().setEventValid(8);
    for (const auto& r : rows) {
        svc().m_PanicKey[0] = r.code;
        EXPECT_EQ(trigger(8, LT, 0.5, true), r.initialKept) << int(r.code);
        EXPECT_EQ(trigger(8, GT, 0.5), r.gtHalf) << int(r.code);
        EXPECT_EQ(svc().m_LastResult[8], r.last) << int(r.code);
    }
}

}  // namespace
