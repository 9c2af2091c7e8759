// Replay: the example scenario walks each rule of the example fleet set once,
// at the times the rules ask; the windows follow the device clock; a real
// truck trace gives the same episodes in both candump forms, and shows the
// trap lint warns of; the timeline picture is well-formed.
#include <map>
#include <vector>

#include "AuthorTestUtil.h"
#include "Lint.h"
#include "Replay.h"
#include "Timeline.h"

using namespace zelauthor;
using authortest::kData;
using authortest::kExamples;
using authortest::kTraces;

namespace {

// A step lands at its time and the next pass runs within a cycle: 100 ms of
// sleep plus a wait of up to 500 ms.
const double kCycle = 0.7;

ReplayResult replay(const ReplayArgs& args) {
    ReplayResult r;
    std::string error;
    EXPECT_EQ(runReplay(args, r, error), kClean) << error;
    return r;
}

ReplayResult road(const std::string& clock, double until = -1) {
    ReplayArgs a;
    a.rules = kExamples + "/rules/fleet.json";
    a.scenario = kExamples + "/scenarios/road.scn";
    a.clock = clock;
    a.until = until;
    return replay(a);
}

std::map<uint32_t, std::vector<Episode>> byId(const ReplayResult& r) {
    std::map<uint32_t, std::vector<Episode>> out;
    for (const Episode& e : r.episodes) out[e.id].push_back(e);
    return out;
}

// The rules of examples/rules/fleet.json against the steps of road.scn.
struct Walk {
    uint32_t id;
    double holds;    // the step that makes all its conditions true
    double atLeast;
    double ends;     // the step that makes one false
};
const Walk kRoad[] = {
    {7, 6, 5, 14},    // speeding
    {11, 16, 0, 17},  // harsh braking
    {20, 19, 0, 20},  // panic key
    {31, 22, 5, 30},  // coolant
    {60, 32, 3, 38},  // speed limit in the depot yard
    {32, 42, 10, 56}, // low battery
    {70, 44, 2, 48},  // motion while parked
    {40, 50, 2, 54},  // door in the evening
};

void expectWalk(const ReplayResult& r, const Walk& w) {
    SCOPED_TRACE("alert " + std::to_string(w.id));
    auto episodes = byId(r)[w.id];
    ASSERT_EQ(episodes.size(), 1u);
    const Episode& e = episodes[0];
    EXPECT_EQ(e.heldSince, w.holds);
    EXPECT_GE(e.rose, w.holds + w.atLeast);
    EXPECT_LT(e.rose, w.holds + w.atLeast + kCycle);
    EXPECT_GE(e.ended, w.ends);
    EXPECT_LT(e.ended, w.ends + kCycle);
}

TEST(Replay, RoadScenarioWalksEachRuleOfTheFleetSet) {
    ReplayResult r = road("19:00:00");
    EXPECT_EQ(r.clockAtZero, "2026/03/05 19:00:00");
    for (const Walk& w : kRoad) expectWalk(r, w);
    EXPECT_EQ(r.episodes.size(), sizeof kRoad / sizeof kRoad[0]);
    EXPECT_EQ(r.records.size(), 2 * r.episodes.size());
    EXPECT_EQ(r.logFrames, r.episodes.size());
}

TEST(Replay, DoorRulesFollowTheDeviceClock) {
    const struct Case {
        const char* clock;
        uint32_t door;  // the door rule that rises, 0 for none
    } cases[] = {
        {"12:00:00", 0},
        {"19:00:00", 40},
        {"2026/03/06 03:00:00", 41},
        {"05:59:00", 41},  // opens at 05:59:50, rises at 05:59:52, a breath before 06:00
        {"06:00:00", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.clock);
        auto episodes = byId(road(c.clock));
        EXPECT_EQ(episodes.count(40), c.door == 40 ? 1u : 0u);
        EXPECT_EQ(episodes.count(41), c.door == 41 ? 1u : 0u);
        EXPECT_EQ(episodes[7].size(), 1u);
    }
}

TEST(Replay, UntilCutsTheRunAndLeavesAlertsRunning) {
    ReplayResult r = road("", 12);
    ASSERT_EQ(r.episodes.size(), 1u);
    EXPECT_EQ(r.episodes[0].id, 7u);
    EXPECT_LT(r.episodes[0].ended, 0);
    EXPECT_LT(r.duration, 12 + kCycle);
    EXPECT_EQ(r.runningAtEnd, std::vector<uint32_t>{7});
}

// Each rule that never held says why, in the order the service decides:
// no reading, then the threshold, then the area, then the window.
TEST(Replay, RulesThatNeverHeldSayWhy) {
    ReplayArgs a;
    a.rules = authortest::writeTemp(
        "quiet.json",
        "{\"DUMMY100\": [{\"ID\": 1, \"SPEED\": {\"GT\": 10.0}},"
        " {\"ID\": 2, \"SPEED\": {\"GT\": 100.0}},"
        " {\"ID\": 3, \"HDTEMP\": {\"GT\": 50.0}},"
        " {\"ID\": 4, \"SPEED\": {\"GT\": 10.0}, \"STARTIME\": \"0/0/0 01:00:00\","
        "  \"ENDTIME\": \"0/0/0 02:00:00\"},"
        " {\"ID\": 5, \"SPEED\": {\"GT\": 10.0}}],"
        " \"RECT100\": [{\"ID\": 5}]}");
    a.scenario = authortest::writeTemp("s.scn", "0 speed 70 mph\n");
    ReplayResult r = replay(a);
    std::map<uint32_t, std::string> why;
    for (const ReplayResult::Quiet& q : r.neverHeld) why[q.id] = q.why;
    EXPECT_EQ(why.count(1), 0u);
    EXPECT_EQ(why[2], "threshold never crossed: SPEED GT 100.0 never held (it stayed at 70.0)");
    EXPECT_EQ(why[3], "no reading: HDTEMP never had a value");
    EXPECT_EQ(why[4].compare(0, 41, "window: the daily window 01:00:00 to 02:0"), 0) << why[4];
    EXPECT_EQ(why[5], "area: the vehicle was outside area 5 whenever its triggers held");
    std::string svg = timelineSvg(r);
    size_t mark = svg.find("class=\"no-reading-label\"");  // in HDTEMP's lane alone
    EXPECT_NE(mark, std::string::npos);
    EXPECT_EQ(mark, svg.rfind("class=\"no-reading-label\""));
    ASSERT_EQ(r.warnings.size(), 1u);
    EXPECT_EQ(r.warnings[0].find("HDTEMP (rule 3) never had a value: the "), 0u)
        << r.warnings[0];
}

// Events the input never gives a value: a J1939 event without a table, the
// speed from a CAN log alone. A strict replay fails on them.
TEST(Replay, WarnsOfEventsTheInputNeverGives) {
    std::string rules = authortest::writeTemp(
        "r.json", "[{\"ID\": 1, \"J19391\": {\"GT\": 30.0}}, {\"ID\": 2, \"SPEED\": "
                  "{\"GT\": 60.0}}, {\"ID\": 3, \"J19391\": {\"LT\": 10.0}}]");
    ReplayArgs a;
    a.rules = rules;
    a.can = kData + "/traps.log";
    ReplayResult r = replay(a);
    ASSERT_EQ(r.warnings.size(), 2u);
    EXPECT_NE(r.warnings[0].find("SPEED (rule 2) never had a value: the speed comes in its own "
                                 "message (6777), not from CAN"),
              std::string::npos)
        << r.warnings[0];
    EXPECT_NE(r.warnings[1].find("J19391 (rules 1 and 3) never had a value: no J1939 table"),
              std::string::npos)
        << r.warnings[1];

    std::string out;
    EXPECT_EQ(authortest::runAuthor("replay " + rules + " --can " + a.can, out), 0) << out;
    EXPECT_NE(out.find("warning: SPEED (rule 2)"), std::string::npos) << out;
    EXPECT_EQ(authortest::runAuthor("replay " + rules + " --can " + a.can + " --strict", out), 1);
}

// 200 alerts rising at once take the service 200 x 50 ms of log writing:
// the replay says they were reported late, and that all still run at the end.
TEST(Replay, ReportsLateAlertsAndThoseStillRunningAtTheEnd) {
    std::string rules = "[";
    for (int i = 1; i <= 200; ++i)
        rules += std::string(i > 1 ? "," : "") + "{\"ID\": " + std::to_string(i) +
                 ", \"SPEED\": {\"GT\": 10.0}}";
    ReplayArgs a;
    a.rules = authortest::writeTemp("many.json", rules + "]");
    a.scenario = authortest::writeTemp("s.scn", "0 speed 70 mph\n");
    ReplayResult r = replay(a);
    EXPECT_EQ(r.runningAtEnd.size(), 200u);
    EXPECT_TRUE(r.unreportedAtEnd.empty());
    ASSERT_EQ(r.warnings.size(), 1u);
    EXPECT_NE(r.warnings[0].find("alerts 1, 2, 3, 4, 5 and 195 more: reported up to 10.0 s "
                                 "after ATLEAST was reached"),
              std::string::npos)
        << r.warnings[0];
}

TEST(Replay, TimelineHasOneGroupPerRuleAndIsWellFormed) {
    ReplayResult r = road("12:00:00");
    std::string svg = timelineSvg(r);
    ASSERT_EQ(svg.compare(0, 5, "<svg "), 0);
    auto count = [](const std::string& in, const char* piece) {
        size_t n = 0;
        for (size_t at = in.find(piece); at != std::string::npos; at = in.find(piece, at + 1))
            ++n;
        return n;
    };
    // The rule's group: from its opening to the next one, or to the axis.
    auto group = [&](uint32_t id) {
        size_t first = svg.find("data-alert=\"" + std::to_string(id) + "\"");
        size_t next = svg.find("<g class=\"rule\"", first);
        if (next == std::string::npos) next = svg.find("<g class=\"axis\"");
        return first == std::string::npos ? std::string() : svg.substr(first, next - first);
    };
    EXPECT_EQ(count(svg, "<g "), count(svg, "</g>"));
    EXPECT_EQ(count(svg, "<text"), count(svg, "</text>"));
    for (const auto& once : {"<svg", "</svg>", "class=\"title\"", "<g class=\"legend\"",
                             "class=\"axis-title\""})
        EXPECT_EQ(count(svg, once), 1u) << once;
    EXPECT_EQ(count(svg, "<g class=\"rule\""), 9u);

    const struct Expect {
        uint32_t id;
        const char* piece;  // in the rule's group
    } expects[] = {
        {7, "class=\"holding\""},        {7, "class=\"running\""},
        {7, ">SPEED</text>"},              {7, ">GT 60.0 mph</text>"},
        {7, "class=\"unit\""},            {7, "class=\"threshold-label\""},
        {11, "class=\"no-reading\""},     // no accelerometer reading before 16 s
        {40, "class=\"window-closed\""},  {40, ">daily window 19:00:00 to 23:59:59</text>"},
        {60, "class=\"outside-area\""},
    };
    for (const Expect& e : expects)
        EXPECT_NE(group(e.id).find(e.piece), std::string::npos) << e.id << " " << e.piece;
    // Every trigger lane has its value scale.
    size_t lanes = 0;
    for (const RuleTrace& rule : r.rules) lanes += rule.triggers.size();
    EXPECT_EQ(count(svg, "<g class=\"scale\""), lanes);
    EXPECT_EQ(group(7).find("class=\"window-closed\""), std::string::npos);
}

// Engine speed above 1500 rpm, and a wheel speed above 200 km/h that no
// truck drives: the cab controller sends the wheel speed as "not available"
// (0xFFFF, 256 km/h), which the service reads as a value.
const char* const kTruckRules =
    "{\"DUMMY100\": [{\"ID\": 90, \"ATLEAST\": 2, \"J19391\": {\"GT\": 1500.0}},"
    "                {\"ID\": 93, \"ATLEAST\": 0, \"J19390\": {\"GT\": 200.0}}]}";

TEST(Replay, TruckTraceGivesTheSameEpisodesInBothCandumpFormsAndTheTrapLintWarnsOf) {
    std::string compact = kTraces + "/normal.candump.log";
    std::string spaced = kTraces + "/normal.log";
    SKIP_WITHOUT_TRACE(compact);
    SKIP_WITHOUT_TRACE(spaced);
    ReplayArgs a;
    a.rules = authortest::writeTemp("truck.json", kTruckRules);
    a.table = kExamples + "/j1939/signals.csv";
    a.can = compact;
    ReplayResult r = replay(a);
    a.can = spaced;
    ReplayResult again = replay(a);

    auto episodes = byId(r);
    ASSERT_FALSE(episodes[90].empty());
    for (const Episode& e : episodes[90]) EXPECT_GE(e.rose - e.heldSince, 2.0);
    EXPECT_FALSE(episodes[93].empty());
    EXPECT_GT(r.duration, 30.0);
    // J1939 lanes as the table names their rows, with the table's units.
    std::string svg = timelineSvg(r);
    EXPECT_NE(svg.find(">engine_speed</text>"), std::string::npos);
    EXPECT_NE(svg.find(">J19391 GT 1500.0 rpm</text>"), std::string::npos);

    // Lint warns of the trap the wheel speed lays for a GT rule.
    Findings found;
    std::string error;
    runLint(LintArgs{a.rules, a.table, compact}, found, error);
    bool warned = false;
    for (const Finding& f : found)
        warned = warned || (f.where == "CAN pgn 65265" && f.kind == "not-available" &&
                            f.what.find("rule 93") != std::string::npos);
    EXPECT_TRUE(warned) << error;

    ASSERT_EQ(again.records.size(), r.records.size());
    for (size_t i = 0; i < r.records.size(); ++i) {
        EXPECT_EQ(again.records[i].id, r.records[i].id) << i;
        EXPECT_EQ(again.records[i].ended, r.records[i].ended) << i;
        EXPECT_NEAR(again.records[i].at, r.records[i].at, 1e-6) << i;
    }
}

}  // namespace
