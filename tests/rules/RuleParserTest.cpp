// The JSON form of a rule: which elements become rules, which members become
// triggers and how; and the date-time text of its window, with every refusal
// code. A refused text leaves the target untouched, a good one writes its
// first six bytes only.
#include <string.h>

#include "RulesFixture.h"

namespace {

using rulestest::RulesTest;

std::string wholeSet(const std::string& rules) { return "{\"DUMMY100\":[" + rules + "]}"; }

struct EventCase {
    const char* member;  // JSON of the "SPEED" member
    int type;            // -1: no trigger
    double value;
    bool complaint;  // "EventName[14] not GT LT EQ \n"
};

const EventCase kEventCases[] = {
    {"{\"GT\":60.5}", GT, 60.5, false},
    {"{\"GT\":5}", GT, 0.0, true},  // an integer is no threshold
    {"{\"GT\":5,\"LT\":2.5}", LT, 2.5, false},
    {"{\"GT\":1.5,\"LT\":2.5}", GT, 1.5, false},
    {"{\"EQ\":1.0,\"GT\":\"9.0\"}", EQ, 1.0, false},
    {"{\"gt\":1.5}", GT, 0.0, true},
    {"null", -1, 0.0, false},
    {"{}", -1, 0.0, false},
    {"60.0", GT, 0.0, true},  // other types read as an object without a comparison
};

class EventMember : public RulesTest, public ::testing::WithParamInterface<EventCase> {};

TEST_P(EventMember, GivesAtMostOneTrigger) {
    const EventCase& c = GetParam();
    reply(wholeSet(std::string("{\"ID\":1,\"ATLEAST\":0,\"SPEED\":") + c.member + "}"));
    ASSERT_EQ(rules().size(), 1u);
    const auto& triggers = rules().front().triggers;
    EXPECT_EQ(h.hasLine("EventName[14] not GT LT EQ \n"), c.complaint);
    ASSERT_EQ(triggers.size(), c.type < 0 ? 0u : 1u);
    if (c.type < 0) return;
    EXPECT_EQ(triggers.front().Event, harness::kSpeedEvent);
    EXPECT_EQ(static_cast<int>(triggers.front().Type), c.type);
    EXPECT_EQ(triggers.front().Value, c.value);
}

INSTANTIATE_TEST_SUITE_P(Table, EventMember, ::testing::ValuesIn(kEventCases));

// A second rule's bad window texts and count leave their fields zero.
TEST_F(RulesTest, RuleTakesEveryFieldAndOrdersTriggersByEvent) {
    reply(wholeSet(
        "{\"SPEED\":{\"GT\":60.0},\"ID\":7,\"ALPR_radarL4\":{\"EQ\":2.0},\"IN1\":{\"LT\":0.5},"
        "\"STARTIME\":\"0/0/0 08:00:00\",\"ENDTIME\":\"2021/6/15 18:30:05\",\"ATLEAST\":5,"
        "\"COLOR\":\"red\"},{\"ID\":1,\"STARTIME\":8,\"ENDTIME\":\"2021/13/01 08:30:00\","
        "\"ATLEAST\":-2}"));
    ASSERT_EQ(rules().size(), 2u);
    const ZelAlertPara_t& r = rules().front();
    EXPECT_EQ(r.alertID, 7u);
    EXPECT_EQ(r.atLeast, 5u);
    EXPECT_EQ(harness::six(r.startTime), (harness::Bytes{0, 0, 0, 8, 0, 0}));
    EXPECT_EQ(harness::six(r.endTime), (harness::Bytes{21, 6, 15, 18, 30, 5}));
    std::vector<uint32_t> events;
    for (const sInputTrigger& t : r.triggers) events.push_back(t.Event);
    EXPECT_EQ(events, (std::vector<uint32_t>{0, 14, 102}));
    const ZelAlertPara_t& bad = rules().back();
    EXPECT_EQ(harness::six(bad.startTime), harness::Bytes(6, 0));
    EXPECT_EQ(harness::six(bad.endTime), harness::Bytes(6, 0));
    EXPECT_EQ(bad.atLeast, 0u);
    for (const ZelAlertPara_t& p : rules()) {  // a new rule has no run state
        EXPECT_EQ(p.bLastState + p.bState + p.bConditionMet + p.conditionTime + p.EventMark, 0u);
        EXPECT_EQ(harness::six(p.alarmStart), harness::Bytes(6, 0));
        EXPECT_EQ(harness::six(p.alarmEnd), harness::Bytes(6, 0));
    }
    EXPECT_TRUE(h.hasLine("STARTIME not a text DUMMY[1]!\n"));
    EXPECT_TRUE(h.hasLine("==stringToDateTime,errcode[5]...\n"));
    EXPECT_EQ(h.countLines("GetJsonAtleast fail !\n"), 1);
}

TEST_F(RulesTest, ElementsWithoutUsableIdAreDroppedOthersKeptInOrder) {
    reply(wholeSet("5,\"x\",[],null,{\"ID\":-1},{\"ID\":\"7\"},{\"ID\":1.5},{\"NOID\":1},"
                   "{\"ID\":3},{\"ID\":0},{\"ID\":4294967295},{\"ID\":3},{\"ID\":4294967296}"));
    EXPECT_EQ(ruleIds(), (std::vector<uint32_t>{3, 0, 4294967295u, 3}));
    for (int i : {0, 1, 2, 3, 4, 5, 6, 7, 12})
        EXPECT_TRUE(h.hasLine(harness::fmt("GetJsonID fail DUMMY[%d]!\n", i))) << i;
    // Each kept rule lacks "ATLEAST", a rule with only "ID" holds no trigger.
    EXPECT_EQ(h.countLines("GetJsonAtleast fail !\n"), 4);
    for (const ZelAlertPara_t& r : rules()) EXPECT_TRUE(r.triggers.empty());
}

struct TextCase {
    const char* text;
    int code;               // 0: accepted
    unsigned char want[6];  // year % 1000, month, day, hour, minute, second
};

const TextCase kCases[] = {
    {"2021/5/6 7:8:9", 0, {21, 5, 6, 7, 8, 9}},
    {"2001/01/01 00:00:00", 0, {1, 1, 1, 0, 0, 0}},
    {"2099/12/31 23:59:59", 0, {99, 12, 31, 23, 59, 59}},
    {"0/0/0 08:30:00", 0, {0, 0, 0, 8, 30, 0}},
    {"2021/1a/05 00:00:5x", 0, {21, 1, 5, 0, 0, 5}},  // fields read as atoi reads them
    {"", 1, {}}, {"2021/06/15 08:30:00 ", 1, {}}, {"x021/01/01 00:00:00", 2, {}},
    {"2000/01/01 00:00:00", 3, {}}, {"2100/01/01 00:00:00", 3, {}},
    {"9999999999/0/0 0:0", 3, {}}, {"2021-01-01 00:00:00", 4, {}},
    {"2021/13/01 00:00:00", 5, {}}, {"2021/-1/01 00:00:00", 5, {}},
    {"2021/01-01 00:00:00", 6, {}}, {"2021/001/1 00:00:00", 7, {}},
    {"2021/1/32 00:00:00", 8, {}}, {"2021/06/15T08:30:00", 9, {}},
    {"2021/01/001 0:00:00", 10, {}}, {"2021/01/01 x0:00:00", 11, {}},
    {"2021/01/01 00-00-00", 12, {}}, {"2021/01/01 24:00:00", 13, {}},
    {"0/0/0 000:00:00", 14, {}}, {"2021/01/01 00:00-00", 15, {}},
    {"2021/01/01 00:60:00", 16, {}}, {"0/0/0 00:000:00", 17, {}},
    {"2021/01/01 00:00:60", 19, {}}, {"0/0/0 0:0:-1", 19, {}},
    {"0/0/0 00:00:000", 20, {}}, {"0/5/1 00:00:00", 21, {}},
    {"2021/00/10 00:00:00", 22, {}}, {"0/0/5 00:00:00", 23, {}},
    {"2021/05/00 00:00:00", 24, {}},
};

class DateTimeText : public rulestest::RulesTest,
                     public ::testing::WithParamInterface<TextCase> {};

TEST_P(DateTimeText, RefusesWithItsCodeOrWritesSixBytes) {
    const TextCase& c = GetParam();
    Common::_datetime_ out;
    memset(&out, 0xAA, sizeof out);
    svc().stringToDateTime(c.text, out);
    const unsigned char* got = reinterpret_cast<const unsigned char*>(&out);
    std::vector<unsigned char> want(8, 0xAA);
    if (c.code == 0) std::copy(c.want, c.want + 6, want.begin());
    EXPECT_EQ(std::vector<unsigned char>(got, got + 8), want);
    EXPECT_EQ(h.texts(), c.code ? std::vector<std::string>{harness::fmt(
                                      "==stringToDateTime,errcode[%d]...\n", c.code)}
                                : std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Table, DateTimeText, ::testing::ValuesIn(kCases));

}  // namespace
