// zel-author backtest: over the four truck traces the JSON is the same with
// one job and with two, and the per-rule totals add up to the per-drive
// lists; --diff names the alerts that appear, vanish or move.
#include <map>

#include <json/json.h>

#include "AuthorTestUtil.h"

using authortest::kExamples;
using authortest::kTraces;

namespace {

// zel-author backtest ARGS: its exit status.
int backtest(const std::string& args) {
    std::string output;
    return authortest::runAuthor("backtest " + args, output);
}

const char* const kRules =
    "{\"DUMMY100\": [{\"ID\": 1, \"ATLEAST\": 2, \"J19391\": {\"GT\": 1200.0}},"
    " {\"ID\": 2, \"ATLEAST\": 0, \"J19390\": {\"GT\": 5.0}},"
    " {\"ID\": 3, \"ATLEAST\": 5, \"J19392\": {\"GT\": 80.0}},"
    " {\"ID\": 4, \"ATLEAST\": 1, \"SPEED\": {\"GT\": 10.0}}]}";

}  // namespace

TEST(Backtest, TruckTracesSameWithAnyJobsAndTotalsAddUp) {
    SKIP_WITHOUT_TRACE(kTraces + "/normal.log");
    std::string rules = authortest::writeTemp("rules.json", kRules);
    const std::string one = rules + ".1.json";
    const std::string two = rules + ".2.json";
    std::string common = rules + " " + kTraces + " --j1939 " + kExamples + "/j1939/signals.csv";
    ASSERT_EQ(backtest(common + " --jobs 1 --json " + one), 0);
    ASSERT_EQ(backtest(common + " --jobs 2 --json " + two), 0);
    std::string json = authortest::readText(one);
    EXPECT_EQ(json, authortest::readText(two));

    Json::Value root;
    ASSERT_TRUE(Json::Reader().parse(json, root)) << json;
    ASSERT_EQ(root["drives"].size(), 4u);
    std::map<uint32_t, Json::UInt64> count;
    std::map<uint32_t, Json::UInt64> drives;
    Json::UInt64 alerts = 0;
    for (const Json::Value& d : root["drives"]) {
        std::map<uint32_t, bool> raised;
        for (const Json::Value& a : d["alerts"]) {
            count[a["alert"].asUInt()]++;
            raised[a["alert"].asUInt()] = true;
            ++alerts;
        }
        for (const auto& r : raised) drives[r.first]++;
    }
    EXPECT_GT(alerts, 0u);
    for (const Json::Value& r : root["rules"]) {
        uint32_t id = r["alert"].asUInt();
        EXPECT_EQ(r["count"].asUInt64(), count[id]) << id;
        EXPECT_EQ(r["drives"].asUInt64(), drives[id]) << id;
        EXPECT_LE(r["longest"].asDouble(), r["seconds"].asDouble()) << id;
    }
    // Nothing feeds the vehicle speed message on a bare CAN trace.
    ASSERT_EQ(root["unread"].size(), 1u);
    EXPECT_EQ(root["unread"][0].asUInt(), 4u);
}

TEST(Backtest, DiffNamesWhatChanges) {
    std::string now = authortest::writeTemp(
        "new.json", "[{\"ID\": 7, \"ATLEAST\": 2, \"SPEED\": {\"GT\": 60.0}},"
                    " {\"ID\": 9, \"ATLEAST\": 0, \"SPEED\": {\"GT\": 66.0}}]");
    std::string old = authortest::writeTemp(
        "old.json", "[{\"ID\": 7, \"ATLEAST\": 5, \"SPEED\": {\"GT\": 60.0}},"
                    " {\"ID\": 8, \"ATLEAST\": 0, \"SPEED\": {\"GT\": 50.0}}]");
    std::string json = now + ".out.json";
    std::string drive = kExamples + "/scenarios/speeding.scn";
    ASSERT_EQ(backtest(now + " " + drive + " --diff " + old + " --json " + json), 0);
    Json::Value root;
    ASSERT_TRUE(Json::Reader().parse(authortest::readText(json), root));
    std::vector<std::string> changes;
    for (const Json::Value& c : root["changes"])
        changes.push_back(std::to_string(c["alert"].asUInt()) + " " + c["change"].asString());
    EXPECT_EQ(changes, (std::vector<std::string>{"7 earlier", "8 vanishes", "9 appears"}));
}

TEST(Backtest, UnusableInputsExitTwo) {
    std::string rules = authortest::writeTemp("rules.json", kRules);
    std::string bad = authortest::writeTemp("bad.log", "not a frame\n");
    EXPECT_EQ(backtest(rules), 2);
    EXPECT_EQ(backtest(rules + " /nonexistent.log"), 2);
    EXPECT_EQ(backtest(rules + " " + bad), 2);
    EXPECT_EQ(backtest(rules + " " + bad + " --jobs 0"), 2);
}
