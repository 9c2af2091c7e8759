// Trigger evaluation on the signal cache: validity, comparisons, the panic
// key's codes and the change-only diagnostics.
#include <math.h>

#include "ServiceFixture.h"

namespace {

using Trigger = harness::ServiceTest;

TEST_F(Trigger, ComparisonsExcludeTheThresholdAndRefuseNaN) {
    struct Row {
        double value, threshold;
        eTriggerType type;
        bool expected;
    } rows[] = {
        {61, 60, GT, true},  {60, 60, GT, false}, {59, 60, LT, true}, {60, 60, LT, false},
        {60, 60, EQ, true},  {60.0000001, 60, EQ, false},
        {NAN, 60, GT, false}, {NAN, 60, LT, false}, {NAN, NAN, EQ, false},
    };
    for (const Row& r : rows)
        EXPECT_EQ(svc().checkValue(r.value, r.threshold, r.type), r.expected)
            << r.value << " " << r.type << " " << r.threshold;
    EXPECT_FALSE(svc().checkValue(1, 0, static_cast<eTriggerType>(3)));
    EXPECT_TRUE(h.hasLine("checkValue invalid type =3\n"));
}

TEST_F(Trigger, SignalWithoutAValueIsFalseAndAnEventBeyondTheCatalogueChangesNothing) {
    EXPECT_FALSE(trigger(14, LT, 1.0, true));
    EXPECT_TRUE(h.hasLine("Event[14][SPEED] the value is Invalid !\n"));
    EXPECT_TRUE(trigger(103, GT, 0.0, true));
    EXPECT_TRUE(h.hasLine("update EventList  invalid Event =103\n"));
}

// The first and last slot of each family, so that a shifted index shows.
TEST_F(Trigger, EachFamilyReadsItsCachedValue) {
    CAlertZelManage& s = svc();
    s.m_IoState[2] = 1;
    s.m_Accel[1] = 3.5;
    s.m_GpsInfo[8] = 2;
    s.m_Ignition = 1.0;
    s.m_SysVolt = 12.5;
    s.m_MdState[15] = 1;
    s.m_AlprValue[4] = 255;
    s.m_J1939Value.set(63, 88.0);
    struct Row {
        uint32_t event;
        double equals;
    } rows[] = {{2, 1.0}, {3, 0.0}, {10, 3.5}, {12, 2.0}, {13, 1.0}, {17, 12.5},
                {33, 1.0}, {32, 0.0}, {102, 255.0}, {97, 88.0}};
    for (const Row& r : rows) {
        s.setEventValid(r.event);
        EXPECT_TRUE(trigger(r.event, EQ, r.equals)) << EVENT_NAME[r.event];
    }
}

TEST_F(Trigger, PanicKeyCodesAndAnUnknownCodeLeavesTheLastResult) {
    struct Row {
        uint8_t code;
        bool gtHalf;       // result of GT 0.5, starting from false
        bool initialKept;  // result starting from true for a LT 0.5 trigger
        uint8_t last;      // m_LastResult[8] after both
    } rows[] = {{0x31, true, false, 1}, {0x99, false, true, 1}, {0x30, true, false, 1},
                {0x32, false, true, 0}, {0x00, false, true, 0}};
    svc().setEventValid(8);
    for (const Row& r : rows) {
        svc().m_PanicKey[0] = r.code;
        EXPECT_EQ(trigger(8, LT, 0.5, true), r.initialKept) << int(r.code);
        EXPECT_EQ(trigger(8, GT, 0.5), r.gtHalf) << int(r.code);
        EXPECT_EQ(svc().m_LastResult[8], r.last) << int(r.code);
    }
    EXPECT_TRUE(h.hasLine("value[0] is error !"));
}

TEST_F(Trigger, ChangeLinePrintsOnlyWhenTheEventsResultChanges) {
    svc().setEventValid(14);
    svc().m_Speed = 50;
    trigger(14, GT, 60.0);  // first false: m_LastResult starts at 0
    EXPECT_TRUE(h.lines().empty());
    svc().m_Speed = 70;
    trigger(14, GT, 60.0);
    trigger(14, GT, 60.0);
    ASSERT_EQ(h.lines().size(), 1u);
    EXPECT_EQ(h.lines()[0].text,
              "checkAlert Event[SPEED]==value[70.000000]==opt[0]==param[60.000000]==result[1] \n");
    // Two rules on one event share its byte: each disagreement prints.
    trigger(14, GT, 80.0);
    trigger(14, GT, 60.0);
    EXPECT_EQ(h.lines().size(), 3u);
}

}  // namespace
