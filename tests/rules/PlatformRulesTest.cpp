// The platform stand-in's files and state: what it refuses, and that the
// rule set it keeps after pushed commands is the one the service ends with.
#include <stdio.h>

#include "PlatformRules.h"
#include "RulesFixture.h"

namespace {

using platformpeer::PlatformState;
using rulestest::RulesTest;

TEST(PlatformRules, MalformedRuleFilesAreRefusedNamingTheFileAndTheError) {
    const char* const kBadFiles[][2] = {  // text, the error behind "NAME: "
        {"{\"DUMMY100\":[{\"ID\":7,}]}", "not valid JSON:\n* Line 1, Column 22"},
        {"[]", "a rule set is a JSON object with a \"DUMMY100\" array"},
        {"{\"CIRCLE100\":[]}", "no \"DUMMY100\" array"},
        {"{\"DUMMY100\":[],\"RECT100\":5}", "\"RECT100\" is not an array"},
    };
    const std::string path = testing::TempDir() + "rules.json";
    std::string error;
    Json::Value set;
    Json::Value msg;
    for (const auto& bad : kBadFiles) {
        FILE* f = fopen(path.c_str(), "w");
        ASSERT_NE(f, nullptr);
        fputs(bad[0], f);
        fclose(f);
        EXPECT_FALSE(platformpeer::loadRuleSet(path, set, error));
        EXPECT_EQ(error.rfind(path + ": " + bad[1], 0), 0u) << error;
    }
    EXPECT_FALSE(platformpeer::loadRuleSet(path + ".missing", set, error));
    EXPECT_EQ(error, path + ".missing: No such file or directory");
    EXPECT_FALSE(platformpeer::makeCommand(3, "del.json", "{\"DUMMY\":[]}", msg, error));
    EXPECT_EQ(error, "del.json: no \"DUMMYIDS\" array");
}

PlatformState stateOf(const char* text) {
    Json::Value set;
    std::string error;
    EXPECT_TRUE(platformpeer::parseJson("set", text, set, error) &&
                platformpeer::checkRuleSet("set", set, error)) << error;
    return PlatformState(set);
}

TEST(PlatformRules, AreaStateStartsFromTheFileAndFollowsTheFences) {
    PlatformState state = stateOf(
        "{\"DUMMY100\":[],\"CIRCLE100\":[{\"ID\":4,\"INSIDE\":true},{\"ID\":2},"
        "{\"ID\":3,\"INSIDE\":false}]}");
    EXPECT_EQ(state.areaLineText(), "{\"AREALINE\":[{\"ID\":4}]}\n");
    state.setInside(2, true);
    state.setInside(4, false);
    EXPECT_EQ(state.areaLineText(), "{\"AREALINE\":[{\"ID\":2}]}\n");
}

// Each command goes to the platform's state and, as the same text, to the
// service; the service's rules and area entries must be what the platform
// would serve if asked again.
TEST_F(RulesTest, PlatformKeepsTheRuleSetThatTheServiceEndsWith) {
    const char* const kCommands[][2] = {
        {"1", "{\"DUMMY\":[{\"ID\":1},{\"ID\":2},{\"ID\":1}],\"CIRCLE\":[{\"ID\":2}]}"},
        {"5", "{\"DUMMY\":[{\"ID\":1,\"ATLEAST\":4},{\"ID\":3},{\"X\":1}],\"RECT\":[{\"ID\":3}]}"},
        {"3", "{\"DUMMYIDS\":[{\"ID\":2},{\"ID\":9},5]}"},
        {"1", "{\"DUMMY\":[{\"ID\":6}],\"LINE\":[{\"ID\":6},{\"ID\":1}]}"},
        {"5", "{\"DUMMY\":[{\"ID\":6}]}"},
        {"3", "{\"DUMMYIDS\":[{\"ID\":1},{\"X\":6}]}"},
        {"4", ""},
    };
    PlatformState state = stateOf("{\"DUMMY100\":[{\"ID\":1},{\"ID\":4}]}");
    reply(state.ruleSetText());
    Json::Value msg;
    std::string error;
    std::string what;
    for (const auto& c : kCommands) {
        ASSERT_TRUE(platformpeer::makeCommand(std::stoul(c[0]), "cmd", c[1], msg, error));
        ASSERT_TRUE(state.apply(msg, what)) << what;
        push(platformpeer::toText(msg));
        std::vector<uint32_t> ids;
        for (const Json::Value& rule : state.ruleSet()["DUMMY100"])
            ids.push_back(rule["ID"].asUInt());
        EXPECT_EQ(ids, ruleIds()) << c[1];
        std::map<uint32_t, bool> areaIds;
        for (const char* key : {"CIRCLE100", "LINE100", "POLY100", "RECT100"})
            for (const Json::Value& area : state.ruleSet()[key])
                areaIds[area["ID"].asUInt()] = false;
        EXPECT_EQ(areaIds, areas()) << c[1];
    }
    EXPECT_EQ(h.sentWithId(rulestest::kPlatform).size(), 8u);  // an area request after each
    ASSERT_TRUE(platformpeer::makeCommand(2, "cmd", "{}", msg, error));
    EXPECT_FALSE(state.apply(msg, what));
    EXPECT_EQ(what, "CMD 2 is not one of 1, 3, 4, 5");
}

}  // namespace
