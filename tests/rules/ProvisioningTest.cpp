// The provisioning protocol: the two requests, the refusals that change
// nothing, and the four commands and the whole-set reply as they apply.
#include <algorithm>

#include <gtest/gtest.h>

#include "RulesFixture.h"

namespace {

using rulestest::RulesTest;

const char kSetRequest[] = "{\"CMD\":8,\"SOURCE\":100}\n";
const char kAreaRequest[] = "{\"CMD\":11,\"SOURCE\":100}\n";

TEST_F(RulesTest, RuleSetIsAskedForOnceInTwentySecondsUntilItComes) {
    // The set-up's first pass has asked already.
    h.runFor(19.0);
    EXPECT_TRUE(requests().empty());
    h.runFor(1.5);
    ASSERT_EQ(requests(), std::vector<std::string>{kSetRequest});
    EXPECT_EQ(h.sentWithId(rulestest::kPlatform)[0].flag, 1);
    EXPECT_TRUE(h.hasLine(std::string("send GetZelAlertPara message json result : ") +
                          kSetRequest + " length :23 \n "));
    h.stepTimeOnly(-25);  // a clock set back lets a request through
    h.cycle();
    EXPECT_EQ(requests().size(), 2u);

    reply("{\"DUMMY100\":[]}");
    h.clearSent();
    h.runFor(45.0);
    EXPECT_TRUE(requests().empty());
}

struct Refusal {
    unsigned int id;
    std::string payload;
    const char* line;
};

const std::string kDeep = std::string(3000, '[') + std::string(3000, ']');

const Refusal kRefusals[] = {
    {6796, "{\"SOURCE\":100,\"CMD\":2,\"DUMMY\":[{\"ID\":1}]}",
     "OnPlatformUpdateArea cmd[2] != 1,3,4,5 !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":8}", "OnPlatformUpdateArea cmd[8] != 1,3,4,5 !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":11}", "OnPlatformUpdateArea cmd[11] != 1,3,4,5 !\n"},
    {6796, "{\"CMD\":4}", "OnPlatformUpdateArea no source !\n"},
    {6796, "{\"SOURCE\":\"100\",\"CMD\":4}", "OnPlatformUpdateArea no source !\n"},
    {6796, "{\"SOURCE\":-100,\"CMD\":4}", "OnPlatformUpdateArea no source !\n"},
    {6796, "[{\"SOURCE\":100,\"CMD\":4}]", "OnPlatformUpdateArea no source !\n"},
    {6796, "{\"SOURCE\":99,\"CMD\":4}", "OnPlatformUpdateArea source[99] != 100 !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":\"4\"}", "OnPlatformUpdateArea no cmd !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":-4}", "OnPlatformUpdateArea no cmd !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":1}", "OnUpdateAreaInfo  add error !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":{\"ID\":1}}", "OnUpdateAreaInfo  add error !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":5,\"DUMMY\":\"x\"}", "OnUpdateAreaInfo  add error !\n"},
    {6796, "{\"SOURCE\":100,\"CMD\":3,\"DUMMYIDS\":{\"ID\":9}}", "OnUpdateAreaInfo  del error !\n"},
    {6796, "{\"SOURCE\":100", "OnPlatformUpdateArea parse fail !\n"},
    {6796, kDeep, "OnPlatformUpdateArea parse fail !\n"},
    {6796, "", "OnPlatformUpdateArea failed msg length[0]\n"},
    {39564, "{\"DUMMY\":[{\"ID\":1}]}", "OnUpdateAreaInfo  no DUMMY100 or not Array !\n"},
    {39564, "{\"DUMMY100\":{}}", "OnUpdateAreaInfo  no DUMMY100 or not Array !\n"},
    {39564, "[{\"DUMMY100\":[]}]", "OnUpdateAreaInfo  no DUMMY100 or not Array !\n"},
    {39564, "7", "OnUpdateAreaInfo  no DUMMY100 or not Array !\n"},
    {39564, "{\"DUMMY100\":[", "OnUpdateAreaInfo parse fail !\n"},
    {39564, kDeep, "OnUpdateAreaInfo parse fail !\n"},
    {39564, "", "OnUpdateAreaInfo failed msg length[0]\n"},
};

class RefusedMessage : public RulesTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusedMessage, ChangesNothingAndAsksNothing) {
    const Refusal& r = GetParam();
    rules().push_back(harness::makeRule(9, 0));
    areas()[9] = true;
    h.deliver(r.id, harness::textBytes(r.payload));
    EXPECT_TRUE(h.hasLine(r.line));
    EXPECT_EQ(ruleIds(), std::vector<uint32_t>{9});
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{9, true}}));
    EXPECT_EQ(svc().m_bParaReady, 0);
    EXPECT_TRUE(h.sent().empty());
}

INSTANTIATE_TEST_SUITE_P(Table, RefusedMessage, ::testing::ValuesIn(kRefusals));

TEST_F(RulesTest, PayloadIsReadOverWhatArrivedAndWhatTheHeadClaims) {
    // A head that claims more than arrived: only what arrived is read.
    h.injectClaiming(rulestest::kRuleReply, 5000,
                     harness::textBytes("{\"DUMMY100\":[{\"ID\":4}]}"));
    // A head that claims less: the bytes behind its length are not JSON.
    h.injectClaiming(rulestest::kPlatform, 22,
                     harness::textBytes("{\"SOURCE\":100,\"CMD\":4}trailing{{{"));
    h.injectClaiming(rulestest::kFenceState, 3352, harness::Bytes(8, 1));
    h.cycle();
    EXPECT_TRUE(h.hasLine("dealJsonGetPara \n"));
    EXPECT_TRUE(h.hasLine("======delete all alert===== !\n"));
    EXPECT_TRUE(h.hasLine("data length failed msgerror=8\n"));
    EXPECT_TRUE(areas().empty());
}

TEST_F(RulesTest, AddAndCoverKeepArrivalOrderAndTouchOnlyTheFirstRuleOfAnId) {
    push("{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":[{\"ID\":1},{\"ID\":2}],\"CIRCLE\":[{\"ID\":2}]}");
    EXPECT_EQ(svc().m_bParaReady, 1);
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{2, false}}));

    push("{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":[{\"ID\":1,\"ATLEAST\":3}]}");
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{1, 2, 1}));

    h.clearLines();
    push("{\"SOURCE\":100,\"CMD\":5,\"DUMMY\":[{\"ID\":1,\"ATLEAST\":9},{\"ID\":8},{\"X\":2}]}");
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{2, 1, 1, 8}));
    EXPECT_EQ(rules().back().atLeast, 0u);
    EXPECT_EQ(std::next(rules().begin())->atLeast, 3u);  // the second rule of id 1 stays
    EXPECT_EQ(h.countLines("deleteZelAlertID alertID[1] \n"), 1);
    EXPECT_EQ(h.countLines("deleteZelAlertID alertID[8] \n"), 0);
    EXPECT_EQ(h.countLines("GetJsonID fail DUMMY[2]!\n"), 1);
    EXPECT_EQ(h.countLines("======StopOneAlarm[1]==Start=== !\n"), 1);

    // Covering an area-bound id drops its entry unless the message names it.
    areas()[2] = true;
    push("{\"SOURCE\":100,\"CMD\":5,\"DUMMY\":[{\"ID\":2},{\"ID\":1}],\"RECT\":[{\"ID\":1}]}");
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{1, false}}));
    EXPECT_EQ(requests(), std::vector<std::string>(4, kAreaRequest));
}

TEST_F(RulesTest, DeleteRemovesEachNamedIdAndDeleteAllEmptiesEverything) {
    push("{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":[{\"ID\":1},{\"ID\":2},{\"ID\":1},{\"ID\":3}],"
         "\"LINE\":[{\"ID\":2},{\"ID\":3}]}");
    h.clearLines();
    push("{\"SOURCE\":100,\"CMD\":3,\"DUMMYIDS\":[{\"ID\":1},{\"X\":2},7,{\"ID\":3},{\"ID\":42}]}");
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{2, false}}));
    EXPECT_EQ(linesOf("deleteZelAlertID"),
              (std::vector<std::string>{
                  "======deleteZelAlertID==Start== !\n", "deleteZelAlertID alertID[1] \n",
                  "delete one alert id = [1] \n", "deleteZelAlertID alertID[3] \n",
                  "delete one alert id = [3] \n", "delete one alert id = [42] \n",
                  "======deleteZelAlertID==End== !\n"}));

    push("{\"SOURCE\":100,\"CMD\":4}");
    EXPECT_TRUE(rules().empty());
    EXPECT_TRUE(areas().empty());
    push("{\"SOURCE\":100,\"CMD\":4}");  // also on an empty list
    EXPECT_EQ(h.countLines("======delete all alert===== !\n"), 2);
    EXPECT_EQ(requests(), std::vector<std::string>(4, kAreaRequest));
}

TEST_F(RulesTest, AreaLineWinsOverARuleSetBesideIt) {
    reply("{\"AREALINE\":[{\"ID\":5},{\"NOID\":6},[7]],\"DUMMY100\":[{\"ID\":5}]}");
    EXPECT_TRUE(rules().empty());
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{5, true}}));
    EXPECT_EQ(svc().m_bParaReady, 0);
    EXPECT_TRUE(requests().empty());

    // An "AREALINE" that is no array doesn't count: the set is applied.
    reply("{\"AREALINE\":5,\"DUMMY100\":[{\"ID\":5},{\"ID\":6}],\"CIRCLE100\":[{\"ID\":5}],"
          "\"POLY100\":[{\"ID\":9},{\"ID\":5}]}");
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{5, 6}));
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{5, false}, {9, false}}));
    EXPECT_EQ(svc().m_bParaReady, 1);
    EXPECT_EQ(requests(), std::vector<std::string>{kAreaRequest});
    EXPECT_EQ(h.countLines("getAreaID  add error !\n"), 2);

    // The stop of all alerts comes before the old rules go.
    std::vector<std::string> t = h.texts();
    auto stop = std::find(t.begin(), t.end(), "======StopAllAlarm==Start=== !\n");
    auto parse = std::find(t.begin(), t.end(), "dealJsonGetPara \n");
    EXPECT_TRUE(stop < parse && parse != t.end());

    reply("{\"AREALINE\":[{\"ID\":9},{\"ID\":11}]}");
    EXPECT_EQ(areas(), (std::map<uint32_t, bool>{{5, false}, {9, true}, {11, true}}));
    reply("{\"DUMMY100\":[]}");
    EXPECT_TRUE(rules().empty());
    EXPECT_TRUE(areas().empty());
}

}  // namespace
