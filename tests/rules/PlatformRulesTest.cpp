// The platform stand-in's files and state: what it refuses, and that the
// rule set it keeps after pushed commands is the one the service ends with.
#include <stdio.h>

#include <gtest/gtest.h>

#include "PlatformRules.h"
#include "RulesFixture.h"

namespace {

using platformpeer::PlatformState;
using rulestest::RulesTest;

struct BadFile {
    const char* text;
    const char* error;  // expected text of the message behind "NAME: "
};

const BadFile kBadFiles[] = {
    {"{\"DUMMY100\":[{\"ID\":7,}]}", "not valid JSON:\n* Line 1, Column 22"},
    {"[]", "a rule set is a JSON object with a \"DUMMY100\" array"},
    {"{\"CIRCLE100\":[]}", "no \"DUMMY100\" array"},
    {"{\"DUMMY100\":{}}", "\"DUMMY100\" is not an array"},
    {"{\"DUMMY100\":[],\"RECT100\":5}", "\"RECT100\" is not an array"},
};

TEST(PlatformRules, MalformedRuleFilesAreRefusedNamingTheFileAndTheError) {
    std::string path = testing::TempDir() + "rules.json";
    for (const BadFile& bad : kBadFiles) {
        FILE* f = fopen(path.c_str(), "w");
        ASSERT_NE(f, nullptr);
        fputs(bad.text, f);
        fclose(f);
        Json::Value set;
        std::string error;
        EXPECT_FALSE(platformpeer::loadRuleSet(path, set, error));
        EXPECT_EQ(error.compare(0, path.size() + 2, path + ": "), 0) << error;
        EXPECT_NE(error.find(bad.error), std::string::npos) << error;
    }
    std::string error;
    Json::Value set;
    EXPECT_FALSE(platformpeer::loadRuleSet(path + ".missing", set, error));
    EXPECT_EQ(error, path + ".missing: No such file or directory");

    Json::Value msg;
    EXPECT_FALSE(platformpeer::makeCommand(3, "del.json", "{\"DUMMY\":[]}", msg, error));
    EXPECT_EQ(error, "del.json: no \"DUMMYIDS\" array");
    ASSERT_TRUE(platformpeer::makeCommand(4, "", "", msg, error));
    EXPECT_EQ(platformpeer::toText(msg), "{\"CMD\":4,\"SOURCE\":100}\n");
}

// The texts of fence messages: ProvisioningProcessTest's fence tools.
TEST(PlatformRules, AreaStateStartsFromTheFileAndFollowsTheFences) {
    Json::Value set;
    std::string error;
    ASSERT_TRUE(platformpeer::parseJson(
        "set", "{\"DUMMY100\":[],\"CIRCLE100\":[{\"ID\":4,\"INSIDE\":true},{\"ID\":2}]}", set,
        error));
    ASSERT_TRUE(platformpeer::checkRuleSet("set", set, error));
    EXPECT_TRUE(set["POLY100"].isArray());
    PlatformState state(set);
    EXPECT_EQ(state.areaLineText(), "{\"AREALINE\":[{\"ID\":4}]}\n");
    state.setInside(2, true);
    state.setInside(4, false);
    EXPECT_EQ(state.areaLineText(), "{\"AREALINE\":[{\"ID\":2}]}\n");
}

// Each command goes to the platform's state and, as the same text, to the
// service; the service's rules and area entries must be what the platform
// would serve if asked again.
TEST_F(RulesTest, PlatformKeepsTheRuleSetThatTheServiceEndsWith) {
    const char* kCommands[][2] = {
        {"1", "{\"DUMMY\":[{\"ID\":1},{\"ID\":2},{\"ID\":1}],\"CIRCLE\":[{\"ID\":2}]}"},
        {"5", "{\"DUMMY\":[{\"ID\":1,\"ATLEAST\":4},{\"ID\":3},{\"X\":1}],\"RECT\":[{\"ID\":3}]}"},
        {"3", "{\"DUMMYIDS\":[{\"ID\":2},{\"ID\":9},5]}"},
        {"1", "{\"DUMMY\":[{\"ID\":6}],\"LINE\":[{\"ID\":6},{\"ID\":1}]}"},
        {"5", "{\"DUMMY\":[{\"ID\":6}]}"},
    };
    Json::Value set;
    std::string error;
    ASSERT_TRUE(
        platformpeer::parseJson("set", "{\"DUMMY100\":[{\"ID\":1},{\"ID\":4}]}", set, error));
    ASSERT_TRUE(platformpeer::checkRuleSet("set", set, error));
    PlatformState state(set);
    reply(state.ruleSetText());
    for (const auto& c : kCommands) {
        Json::Value msg;
        ASSERT_TRUE(platformpeer::makeCommand(std::stoul(c[0]), "cmd", c[1], msg, error));
        std::string what;
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
    Json::Value msg;
    std::string what;
    ASSERT_TRUE(platformpeer::makeCommand(2, "cmd", "{}", msg, error));
    EXPECT_FALSE(state.apply(msg, what));
    EXPECT_EQ(what, "CMD 2 is not one of 1, 3, 4, 5");
}

}  // namespace
