// The provisioning protocol: the two requests, and the four commands and the
// whole-set reply as they apply; and area membership from the fence state
// record (6689) and fence event (6795). The refusals, which change nothing,
// are in RuleLinesTest with their lines.
#include <algorithm>

#include "RulesFixture.h"

namespace {

using harness::textBytes;
using rulestest::RulesTest;
typedef std::vector<std::string> Texts;

const char kSetRequest[] = "{\"CMD\":8,\"SOURCE\":100}\n";
const char kAreaRequest[] = "{\"CMD\":11,\"SOURCE\":100}\n";

TEST_F(RulesTest, RuleSetIsAskedForOnceInTwentySecondsUntilItComes) {
    h.runFor(19.0);  // the set-up's first pass has asked already, in second 0
    EXPECT_TRUE(requests().empty());
    h.runFor(1.0);  // into second 20, not 21
    ASSERT_EQ(requests(), Texts{kSetRequest});
    EXPECT_EQ(h.sentWithId(rulestest::kPlatform)[0].flag, 1);
    h.stepTimeOnly(-25);  // a clock set back lets a request through
    h.cycle();
    EXPECT_EQ(requests().size(), 2u);
    reply("{\"DUMMY100\":[]}");
    h.clearSent();
    h.runFor(45.0);
    EXPECT_TRUE(requests().empty());
}

TEST_F(RulesTest, PayloadIsReadOverWhatArrivedAndWhatTheHeadClaims) {
    h.injectClaiming(rulestest::kRuleReply, 5000,  // only what arrived is read
                     harness::textBytes("{\"DUMMY100\":[{\"ID\":4}]}"));
    h.injectClaiming(rulestest::kPlatform, 22,  // the bytes behind its length are not JSON
                     harness::textBytes("{\"SOURCE\":100,\"CMD\":4}trailing{{{"));
    h.cycle();
    EXPECT_TRUE(h.hasLine("dealJsonGetPara \n"));
    EXPECT_TRUE(h.hasLine("======delete all alert===== !\n"));
}

TEST_F(RulesTest, AnAppliedCommandCountsAsRulesReceived) {
    push("{\"SOURCE\":100,\"CMD\":4}");
    EXPECT_EQ(svc().m_bParaReady, 1);
    EXPECT_EQ(requests(), Texts{kAreaRequest});
}

TEST_F(RulesTest, AreaLineWinsOverARuleSetBesideIt) {
    reply("{\"AREALINE\":[{\"ID\":5},{\"NOID\":6},[7]],\"DUMMY100\":[{\"ID\":5}]}");
    EXPECT_TRUE(rules().empty());
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{5, true}}));
    EXPECT_EQ(svc().m_bParaReady, 0);
    // An "AREALINE" that is no array doesn't count: the set is applied.
    reply("{\"AREALINE\":5,\"DUMMY100\":[{\"ID\":5},{\"ID\":6}],\"CIRCLE100\":[{\"ID\":5}],"
          "\"POLY100\":[{\"ID\":9},{\"ID\":5}]}");
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{5, 6}));
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{5, false}, {9, false}}));
    EXPECT_EQ(svc().m_bParaReady, 1);
    EXPECT_EQ(requests(), Texts{kAreaRequest});
    // The stop of all alerts comes before the old rules go.
    Texts t = h.texts();
    auto stop = std::find(t.begin(), t.end(), "======StopAllAlarm==Start=== !\n");
    EXPECT_LT(stop, std::find(t.begin(), t.end(), "dealJsonGetPara \n"));
    reply("{\"AREALINE\":[{\"ID\":9},{\"ID\":11}]}");  // sets flags, keeps the others
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{5, false}, {9, true}, {11, true}}));
    reply("{\"DUMMY100\":[]}");
    EXPECT_TRUE(rules().empty());
    EXPECT_TRUE(areas().empty());
}

const int kAbsent = -1, kOutside = 0, kInside = 1;
// The lines they print, and the refusals, are in RuleLinesTest.
struct FenceCase { unsigned int id; harness::Bytes payload; int outcome; };

const FenceCase kFenceCases[] = {
    {6689, rulestest::fenceState(5, 1, 3352), kInside},
    {6689, rulestest::fenceState(5, 0, 3864), kOutside},
    {6689, rulestest::fenceState(5, 2), kOutside},  // only bit 0
    {6689, rulestest::fenceState(5, 3), kInside},
    {6795, textBytes("{\"SOURCE\":100,\"EVENT\":1,\"ID\":5}"), kInside},
    {6795, textBytes("{\"SOURCE\":100,\"EVENT\":0,\"ID\":5}"), kOutside},
    {6795, textBytes("{\"SOURCE\":100,\"EVENT\":2,\"ID\":5}"), kOutside},
    // Reals without a fraction read as integers (docs/open-choices.md).
    {6795, textBytes("{\"SOURCE\":100,\"EVENT\":1.0,\"ID\":5.0}"), kInside},
    {6795, textBytes("{\"SOURCE\":100,\"EVENT\":\"1\",\"ID\":5}"), kAbsent},
    {6795, textBytes("{\"SOURCE\":100,\"EVENT\":1,\"ID\":-5}"), kAbsent},
};

class Fence : public RulesTest, public ::testing::WithParamInterface<FenceCase> {};

TEST_P(Fence, SetsTheFlagOfItsIdOrIsRefused) {
    h.deliver(GetParam().id, GetParam().payload);
    auto it = areas().find(5);
    EXPECT_EQ(it == areas().end() ? kAbsent : it->second, GetParam().outcome);
    EXPECT_EQ(svc().checkIsInArea(5), GetParam().outcome != kOutside);
}

INSTANTIATE_TEST_SUITE_P(Table, Fence, ::testing::ValuesIn(kFenceCases));

TEST_F(RulesTest, MapWarnsFromThe101stEntryOnButKeepsEveryEntry) {
    const char kWarning[] = "==========m_IsInGPSAreaMap is too large !============\n";
    for (uint32_t id = 1; id <= 100; ++id)
        h.deliver(rulestest::kFenceState, rulestest::fenceState(id, 1));
    EXPECT_FALSE(h.hasLine(kWarning));
    h.deliver(rulestest::kFenceEvent, textBytes("{\"SOURCE\":100,\"EVENT\":1,\"ID\":101}"));
    reply("{\"AREALINE\":[{\"ID\":3},{\"ID\":102}]}");
    push("{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":[],\"CIRCLE\":[{\"ID\":103},{\"ID\":4}]}");
    EXPECT_EQ(areas().size(), 103u);
    EXPECT_TRUE(h.hasLine(kWarning));
    EXPECT_TRUE(h.hasLine("=====m_IsInGPSAreaMap[102] is too large !=======\n"));
    EXPECT_TRUE(h.hasLine("=====m_IsInGPSAreaMap[103] is too large !======\n"));
    EXPECT_TRUE(svc().checkIsInArea(4));  // an array leaves an existing entry alone
    EXPECT_FALSE(svc().checkIsInArea(103));
}

}  // namespace
