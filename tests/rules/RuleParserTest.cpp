// The JSON form of a rule: which elements become rules, which members become
// triggers and how, and the window texts.
#include <gtest/gtest.h>

#include "RulesFixture.h"

namespace {

using rulestest::RulesTest;

std::string wholeSet(const std::string& rules) { return "{\"DUMMY100\":[" + rules + "]}"; }

struct EventCase {
    const char* member;  // JSON of the "SPEED" member
    bool trigger;        // a trigger results
    eTriggerType type;
    double value;
    bool complaint;  // "EventName[14] not GT LT EQ \n"
};

const EventCase kEventCases[] = {
    {"{\"GT\":60.5}", true, GT, 60.5, false},
    {"{\"GT\":5}", true, GT, 0.0, true},  // an integer is no threshold
    {"{\"GT\":5,\"LT\":2.5}", true, LT, 2.5, false},
    {"{\"GT\":1.5,\"LT\":2.5}", true, GT, 1.5, false},
    {"{\"EQ\":1.0,\"GT\":\"9.0\"}", true, EQ, 1.0, false},
    {"{\"LT\":-3e2}", true, LT, -300.0, false},
    {"{\"gt\":1.5}", true, GT, 0.0, true},
    {"null", false, GT, 0.0, false},
    {"{}", false, GT, 0.0, false},
    {"[]", false, GT, 0.0, false},
    // Other types read as an object without a comparison.
    {"60.0", true, GT, 0.0, true},
    {"\"GT\"", true, GT, 0.0, true},
    {"[{\"GT\":1.5}]", true, GT, 0.0, true},
};

class EventMember : public RulesTest, public ::testing::WithParamInterface<EventCase> {};

TEST_P(EventMember, GivesAtMostOneTrigger) {
    const EventCase& c = GetParam();
    reply(wholeSet(std::string("{\"ID\":1,\"ATLEAST\":0,\"SPEED\":") + c.member + "}"));
    ASSERT_EQ(rules().size(), 1u);
    const auto& triggers = rules().front().triggers;
    EXPECT_EQ(h.hasLine("EventName[14] not GT LT EQ \n"), c.complaint);
    ASSERT_EQ(triggers.size(), c.trigger ? 1u : 0u);
    if (!c.trigger) return;
    EXPECT_EQ(triggers.front().Event, harness::kSpeedEvent);
    EXPECT_EQ(triggers.front().Type, c.type);
    EXPECT_EQ(triggers.front().Value, c.value);
}

INSTANTIATE_TEST_SUITE_P(Table, EventMember, ::testing::ValuesIn(kEventCases));

TEST_F(RulesTest, RuleTakesEveryFieldAndOrdersTriggersByEvent) {
    reply(wholeSet(
        "{\"SPEED\":{\"GT\":60.0},\"ID\":7,\"ALPR_radarL4\":{\"EQ\":2.0},\"IN1\":{\"LT\":0.5},"
        "\"STARTIME\":\"0/0/0 08:00:00\",\"ENDTIME\":\"2021/6/15 18:30:05\",\"ATLEAST\":5,"
        "\"COLOR\":\"red\"}"));
    ASSERT_EQ(rules().size(), 1u);
    const ZelAlertPara_t& r = rules().front();
    EXPECT_EQ(r.alertID, 7u);
    EXPECT_EQ(r.atLeast, 5u);
    EXPECT_EQ(r.startTime.hour, 8);
    EXPECT_EQ(r.endTime.year, 21);
    EXPECT_EQ(r.endTime.second, 5);
    std::vector<uint32_t> events;
    for (const sInputTrigger& t : r.triggers) events.push_back(t.Event);
    EXPECT_EQ(events, (std::vector<uint32_t>{0, 14, 102}));
    EXPECT_EQ(r.bState + r.bLastState + r.bConditionMet, 0);
    EXPECT_EQ(r.conditionTime, 0);
    EXPECT_FALSE(h.hasLine("GetJsonAtleast fail !\n"));
}

TEST_F(RulesTest, ElementsWithoutUsableIdAreDroppedOthersKeptInOrder) {
    reply(wholeSet("5,\"x\",[],null,{\"ID\":-1},{\"ID\":\"7\"},{\"ID\":1.5},{\"NOID\":1},"
                   "{\"ID\":3},{\"ID\":0},{\"ID\":4294967295},{\"ID\":3},{\"ID\":4294967296}"));
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{3, 0, 4294967295u, 3}));
    std::vector<std::string> fails;
    for (const std::string& t : linesOf("dealJsonGetPara"))
        if (t.compare(0, 9, "GetJsonID") == 0) fails.push_back(t);
    ASSERT_EQ(fails.size(), 9u);
    EXPECT_EQ(fails[0], "GetJsonID fail DUMMY[0]!\n");
    EXPECT_EQ(fails[7], "GetJsonID fail DUMMY[7]!\n");
    EXPECT_EQ(fails[8], "GetJsonID fail DUMMY[12]!\n");
    // Each kept rule lacks "ATLEAST", a rule with only "ID" holds no trigger.
    EXPECT_EQ(h.countLines("GetJsonAtleast fail !\n"), 4);
    for (const ZelAlertPara_t& r : rules()) EXPECT_TRUE(r.triggers.empty());
}

TEST_F(RulesTest, BadWindowTextsLeaveTheirFieldZero) {
    std::string longText = "2021/06/15 08:30:00" + std::string(40, ' ');
    reply(wholeSet("{\"ID\":1,\"STARTIME\":\"\",\"ENDTIME\":\"" + longText +
                   "\"},{\"ID\":2,\"STARTIME\":8,\"ENDTIME\":{\"a\":1}},"
                   "{\"ID\":3,\"STARTIME\":null,\"ENDTIME\":\"2021/13/01 00:00:00\","
                   "\"ATLEAST\":-2}"));
    ASSERT_EQ(rules().size(), 3u);
    for (const ZelAlertPara_t& r : rules()) {
        EXPECT_EQ(r.startTime.year + r.startTime.hour + r.startTime.second, 0);
        EXPECT_EQ(r.endTime.year + r.endTime.hour + r.endTime.second, 0);
        EXPECT_EQ(r.atLeast, 0u);
    }
    EXPECT_EQ(h.countLines("==stringToDateTime,errcode[1]...\n"), 2);  // "" and the cut text
    EXPECT_EQ(h.countLines("==stringToDateTime,errcode[5]...\n"), 1);
    EXPECT_TRUE(h.hasLine("STARTIME not a text DUMMY[1]!\n"));
    EXPECT_TRUE(h.hasLine("ENDTIME not a text DUMMY[1]!\n"));
    EXPECT_EQ(h.countLines("GetJsonAtleast fail !\n"), 3);
}

}  // namespace
