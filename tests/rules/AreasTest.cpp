// Area membership: the fence state record and the fence event, and the soft
// limit of the area map.
#include <gtest/gtest.h>

#include "RulesFixture.h"

namespace {

using rulestest::RulesTest;

enum Outcome { kAbsent, kOutside, kInside };

Outcome outcomeOf(const std::map<uint32_t, bool>& areas, uint32_t id) {
    auto it = areas.find(id);
    if (it == areas.end()) return kAbsent;
    return it->second ? kInside : kOutside;
}

struct FenceStateCase {
    size_t length;
    uint8_t flagByte;
    Outcome outcome;
    const char* line;
};

const char kInsideLine[] = "=======OnUpdateFenceInfo ID[5][1]======!\n";
const char kOutsideLine[] = "=======OnUpdateFenceInfo ID[5][0]======!\n";

const FenceStateCase kFenceStates[] = {
    {3351, 1, kAbsent, "data length failed msgerror=3351\n"},
    {3352, 1, kInside, kInsideLine},
    {3864, 0, kOutside, kOutsideLine},
    {3865, 1, kAbsent, "data length over mem = 3865\n"},
    {3352, 2, kOutside, kOutsideLine},  // only bit 0
    {3352, 3, kInside, kInsideLine},
};

class FenceState : public RulesTest, public ::testing::WithParamInterface<FenceStateCase> {};

TEST_P(FenceState, SetsTheFlagOfItsIdWhenItsLengthFits) {
    const FenceStateCase& c = GetParam();
    h.deliver(rulestest::kFenceState, rulestest::fenceState(5, c.flagByte, c.length));
    EXPECT_TRUE(h.hasLine(c.line));
    EXPECT_EQ(outcomeOf(areas(), 5), c.outcome);
    EXPECT_EQ(svc().checkIsInArea(5), c.outcome != kOutside);
}

INSTANTIATE_TEST_SUITE_P(Table, FenceState, ::testing::ValuesIn(kFenceStates));

struct FenceEventCase {
    const char* json;
    Outcome outcome;
    const char* line;
};

const FenceEventCase kFenceEvents[] = {
    {"{\"SOURCE\":100,\"EVENT\":1,\"ID\":5}", kInside, kInsideLine},
    {"{\"SOURCE\":100,\"EVENT\":0,\"ID\":5}", kOutside, kOutsideLine},
    {"{\"SOURCE\":100,\"EVENT\":2,\"ID\":5}", kOutside, kOutsideLine},
    {"{\"SOURCE\":100,\"EVENT\":-1,\"ID\":5}", kOutside, kOutsideLine},
    {"{\"SOURCE\":100,\"EVENT\":\"1\",\"ID\":5}", kAbsent, "OnPlatformUpdateArea no event !\n"},
    {"{\"SOURCE\":100,\"EVENT\":1.5,\"ID\":5}", kAbsent, "OnPlatformUpdateArea no event !\n"},
    {"{\"SOURCE\":100,\"ID\":5}", kAbsent, "OnPlatformUpdateArea no event !\n"},
    {"{\"SOURCE\":100,\"EVENT\":1}", kAbsent, "OnPlatformUpdateArea no ID !\n"},
    {"{\"SOURCE\":100,\"EVENT\":1,\"ID\":-5}", kAbsent, "OnPlatformUpdateArea no ID !\n"},
    {"{\"SOURCE\":99,\"EVENT\":1,\"ID\":5}", kAbsent, "OnPlatformUpdateArea source[99] != 100 !\n"},
    {"{\"EVENT\":1,\"ID\":5}", kAbsent, "OnPlatformUpdateArea no source !\n"},
    {"[{\"SOURCE\":100,\"EVENT\":1,\"ID\":5}]", kAbsent, "OnPlatformUpdateArea no source !\n"},
    {"{\"SOURCE\":100,", kAbsent, "OnUpdateAreaInfo parse fail !\n"},
    {"", kAbsent, "OnUpdateFenceEvent failed msgerror=0\n"},
};

class FenceEvent : public RulesTest, public ::testing::WithParamInterface<FenceEventCase> {};

TEST_P(FenceEvent, SetsTheFlagOfItsIdOrIsRefused) {
    const FenceEventCase& c = GetParam();
    fenceEvent(c.json);
    EXPECT_TRUE(h.hasLine(c.line));
    EXPECT_EQ(outcomeOf(areas(), 5), c.outcome);
    for (const harness::DebugLine& l : h.lines()) EXPECT_EQ(l.func, "OnUpdateFenceEvent");
}

INSTANTIATE_TEST_SUITE_P(Table, FenceEvent, ::testing::ValuesIn(kFenceEvents));

TEST_F(RulesTest, MapWarnsFromThe101stEntryOnButKeepsEveryEntry) {
    for (uint32_t id = 1; id <= 100; ++id)
        h.deliver(rulestest::kFenceState, rulestest::fenceState(id, 1));
    EXPECT_EQ(areas().size(), 100u);
    EXPECT_EQ(h.countLines("==========m_IsInGPSAreaMap is too large !============\n"), 0);

    fenceEvent("{\"SOURCE\":100,\"EVENT\":0,\"ID\":101}");
    reply("{\"AREALINE\":[{\"ID\":3},{\"ID\":102}]}");
    push("{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":[],\"CIRCLE\":[{\"ID\":103},{\"ID\":4}]}");
    h.deliver(rulestest::kFenceState, rulestest::fenceState(7, 0));  // an existing id

    EXPECT_EQ(areas().size(), 103u);
    EXPECT_EQ(h.countLines("==========m_IsInGPSAreaMap is too large !============\n"), 1);
    EXPECT_EQ(h.countLines("=====m_IsInGPSAreaMap[102] is too large !=======\n"), 1);
    EXPECT_EQ(h.countLines("=====m_IsInGPSAreaMap[103] is too large !======\n"), 1);
    EXPECT_FALSE(svc().checkIsInArea(101));
    EXPECT_TRUE(svc().checkIsInArea(102));
    EXPECT_FALSE(svc().checkIsInArea(103));
    EXPECT_TRUE(svc().checkIsInArea(4));  // an array leaves an existing entry alone
    EXPECT_FALSE(svc().checkIsInArea(7));
    EXPECT_TRUE(svc().checkIsInArea(104));  // no entry: no area condition
}

}  // namespace
