// Lint: every trap of a file built to hold them is reported, with nothing
// else; the examples pass clean; tables as the service receives them; the
// J1939 codes for missing values; and the program's exit statuses.
#include "AuthorTestUtil.h"
#include "ByteOrder.h"
#include "Lint.h"
#include "SignalRecords.h"
#include "SignalTable.h"

using namespace zelauthor;
using authortest::kData;
using authortest::kExamples;

namespace {

struct Expected {
    const char* where;
    const char* kind;
    const char* detail;  // a piece of the text that says which trap it is
};

// tests/author/data/traps.json, traps.csv and traps.log, trap by trap.
const Expected kTraps[] = {
    {"RULE 1", "integer-threshold", "reads as GT 0.0 (the service logs \"EventName[14]"},
    {"RULE 2", "unknown-key", "write \"SPEED\""},
    {"RULE 2", "no-triggers", "no triggers"},
    {"RULE 3", "window-never", "22:00:00 to 06:00:00"},
    {"RULE 4", "datetime-refused", "code 13"},
    {"RULE 4", "window-ignored", "no usable STARTIME"},
    {"RULE 5", "duplicate-id", "first is at line 8"},
    {"RULE 6", "no-triggers", "no triggers"},
    {"RULE 8", "j1939-row-unfed", "goes to row 0"},
    {"RULE 10", "unknown-key", "\"STARTIME\" (one T)"},
    {"RULE 12", "never-true", "IN6 GT 1.0"},
    {"RULE 13", "several-comparisons", "only GT 30.0 counts"},
    {"RULE 14", "no-comparison", "(it has \"gt\")"},
    {"RULE 15", "not-a-comparison", "\"SPEED\": 60.0"},
    {"RULE 16", "bad-atleast", "2.5"},
    {"RULE 17", "window-date", "write \"0/0/0 08:00:00\""},
    {"RULE 18", "window-ignored", "all zero"},
    {"RULE DUMMY100[17]", "no-id", "\"19\""},
    {"RULE 21", "unknown-key", "\"J19392\""},
    {"RULE 21", "no-triggers", "no triggers"},
    {"RULE 22", "exact-equal", "EQ 55.5"},
    {"RULE 23", "not-a-number", "\"60.0\""},
    {"RULE 24", "empty-event", "{}"},
    {"RULE 24", "no-triggers", "no triggers"},
    {"RULE 25", "j1939-row-unfed", "doesn't fill"},
    {"RULE 99", "area-without-rule", "no rule has id 99"},
    {"SET", "area-key-form", "rename it \"RECT100\""},
    {"SET", "duplicate-key", "'SPEED'"},
    {"TABLE row 1", "shared-group", "shares group 65265 with row 0"},
    {"TABLE row 3", "row-not-counting", "group number is 0"},
    {"TABLE row 3", "table-refused", "traps.csv:5: pgn 0 is outside 1..65535"},
    {"TABLE row 4", "row-not-counting", "length is 0"},
    {"TABLE row 5", "destination-specific", "only frames sent to 0x00"},
    {"CAN pgn 65265", "several-sources", "0x31: 20 frames, J1939 codes only"},
    {"CAN pgn 65265", "not-available", "passes GT 100.0 of rule 9"},
};

bool matches(const Finding& f, const Expected& e) {
    return f.where == e.where && f.kind == e.kind &&
           (f.what + " " + f.advice).find(e.detail) != std::string::npos;
}

Findings lint(const std::string& rules, const std::string& table = "",
              const std::string& can = "") {
    Findings out;
    std::string error;
    EXPECT_NE(runLint(LintArgs{rules, table, can}, out, error), kUnreadable) << error;
    EXPECT_EQ(error, "");
    return out;
}

std::string all(const Findings& findings) {
    std::string text;
    for (const Finding& f : findings) text += f.where + ": [" + f.kind + "] " + f.what + "\n";
    return text;
}

TEST(Lint, ReportsEveryTrapOfTheTrapFileAndNothingElse) {
    Findings found = lint(kData + "/traps.json", kData + "/traps.csv", kData + "/traps.log");
    for (const Expected& e : kTraps) {
        bool seen = false;
        for (const Finding& f : found) seen = seen || matches(f, e);
        EXPECT_TRUE(seen) << e.where << " " << e.kind << " \"" << e.detail << "\" in\n"
                          << all(found);
    }
    for (const Finding& f : found) {
        bool expected = false;
        for (const Expected& e : kTraps) expected = expected || matches(f, e);
        EXPECT_TRUE(expected) << "unexpected: " << f.where << " [" << f.kind << "] " << f.what;
    }
}

TEST(Lint, FindsNothingInTheExamples) {
    const struct Case {
        std::string rules, table;
    } cases[] = {
        {kExamples + "/rules/fleet.json", kExamples + "/j1939/signals.csv"},
        {kExamples + "/rules/speeding.json", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(all(lint(c.rules, c.table)), "") << c.rules;
}

// J1939 keeps the top of each field's range for "not available", "error"
// and senders' own indicators.
TEST(Lint, SpecialValuesByFieldWidth) {
    const struct Case {
        uint64_t raw;
        int32_t length;
        const char* kind;  // nullptr: a reading
    } cases[] = {
        {0xFA, 8, nullptr},           {0xFB, 8, "reserved"},      {0xFE, 8, "error"},
        {0xFF, 8, "not available"}, {0xFAFF, 16, nullptr},        {0xFB00, 16, "reserved"},
        {0xFE12, 16, "error"},     {0xFFFF, 16, "not available"},
        {0xFAFFFFFF, 32, nullptr},    {0xFB000000, 32, "reserved"},
        {0xFFFFFFFF, 32, "not available"},
        {1, 2, nullptr},              {2, 2, "error"},            {3, 2, "not available"},
        {1, 1, nullptr},              {0xE, 4, "error"},          {0xF, 4, "not available"},
    };
    for (const Case& c : cases) {
        const char* kind = specialValue(c.raw, c.length);
        EXPECT_STREQ(kind, c.kind) << std::hex << c.raw << " in " << std::dec << c.length
                                   << " bits";
    }
}

TEST(Lint, RuleFileFormsAllComeOutAsTheWholeSet) {
    const struct Case {
        const char* text;
        size_t rules;
        size_t rectAreas;
        const char* error;  // "" when the file loads
    } cases[] = {
        {"{\"DUMMY100\": [{\"ID\": 1}], \"RECT100\": [{\"ID\": 1}]}", 1, 1, ""},
        {"{\"DUMMY100\": [{\"ID\": 1}]}", 1, 0, ""},
        {"{\"DUMMY\": [{\"ID\": 1}, {\"ID\": 2}], \"RECT\": [{\"ID\": 2}]}", 2, 1, ""},
        {"[{\"ID\": 1}]", 1, 0, ""},
        {"{\"RULES\": []}", 0, 0, ":1: a rule set is an object"},
        {"{\n\"DUMMY100\": [\n{\"ID\": 1,}\n]}", 0, 0, ":3: "},
    };
    for (const Case& c : cases) {
        RuleFile file;
        std::string error;
        std::string path = authortest::writeTemp("r.json", c.text);
        Status s = loadRuleFile(path, file, error);
        if (*c.error) {
            EXPECT_EQ(s, kUnreadable) << c.text;
            EXPECT_NE(error.find(path + c.error), std::string::npos) << error;
            continue;
        }
        ASSERT_EQ(s, kClean) << error;
        EXPECT_EQ(file.wholeSet["DUMMY100"].size(), c.rules) << c.text;
        EXPECT_EQ(file.wholeSet["RECT100"].size(), c.rectAreas) << c.text;
        EXPECT_TRUE(file.wholeSet["CIRCLE100"].isArray()) << c.text;
    }
}

// Where each finding lands and what it costs: the CAN findings of a row no
// rule reads are notes; a set too big for one bus message is a warning. A
// table as the service receives it can hold what the CSV can't, an id of 64
// or more: rules on such a row never hold. CSV rows past the 64th are left out.
TEST(Lint, FindingsLandWhereTheyBelongAndSeverityFollowsWhatTheyCost) {
    std::string big = "{\"DUMMY100\": [";
    for (int i = 1; i <= 1600; ++i)
        big += std::string(i > 1 ? "," : "") + "{\"ID\": " + std::to_string(i) +
               ", \"SPEED\": {\"GT\": 60.5}, \"STARTIME\": \"0/0/0 08:00:00\", "
               "\"ENDTIME\": \"0/0/0 18:00:00\"}";
    big += "]}";
    std::vector<zelj1939::SignalRow> rows(3);
    for (size_t i = 0; i < rows.size(); ++i)
        rows[i] = {"s", 65262 + i, 0, 0, 8, 1, 0, "", 0};
    std::vector<uint8_t> binary = zelj1939::buildTablePayload(rows);
    const size_t thirdRow = static_cast<size_t>(J1939Param_t::kRowSize) * 2;
    zel::putLe32(binary.data() + thirdRow, J1939Param_t::kId, 64);
    std::string csv = "name,pgn,startbyte,startbit,length,resolution,offset\n";
    for (int i = 0; i < 65; ++i)
        csv += "s" + std::to_string(i) + ",65" + std::to_string(100 + i) + ",0,0,8,1,0\n";
    const std::string speeding = kExamples + "/rules/speeding.json";
    const std::string row2 = authortest::writeTemp(
        "rules.json", "{\"DUMMY100\": [{\"ID\": 1, \"J19392\": {\"GT\": 90.0}}]}");
    const std::string table =
        authortest::writeTemp("table.bin", std::string(binary.begin(), binary.end()));
    const std::string rows65 = authortest::writeTemp("t.csv", csv);
    const struct Case {
        std::string rules, table, can;
        const char* where;
        const char* kind;
        Severity severity;
        const char* detail;
    } cases[] = {
        {kData + "/traps.json", kData + "/traps.csv", kData + "/traps.log", "CAN pgn 65265",
         "several-sources", kWarning, ""},
        {speeding, kData + "/traps.csv", kData + "/traps.log", "CAN pgn 65265",
         "several-sources", kNote, ""},
        {authortest::writeTemp("big.json", big), "", "", "SET", "too-big", kWarning, ""},
        {kData + "/traps.json", "", "", "RULE 1", "integer-threshold", kError, ""},
        {kData + "/traps.json", "", "", "RULE 2", "unknown-key", kWarning, ""},
        {row2, table, "", "RULE 1", "j1939-row-unfed", kError, ""},
        {row2, table, "", "TABLE row 2", "row-not-counting", kError, "id 64"},
        {speeding, rows65, "", "TABLE row 64", "beyond-64", kError, ""},
    };
    for (const Case& c : cases) {
        const Finding* hit = nullptr;
        Findings found = lint(c.rules, c.table, c.can);
        for (const Finding& f : found)
            if (f.where == c.where && f.kind == c.kind) hit = &f;
        ASSERT_NE(hit, nullptr) << c.where << " " << c.kind << " in\n" << all(found);
        EXPECT_EQ(hit->severity, c.severity) << c.where << " " << c.kind;
        EXPECT_NE(hit->what.find(c.detail), std::string::npos) << hit->what;
    }
}

// The program as zelctl runs it: its exit status and where its message goes.
TEST(AuthorProgram, ExitStatusAndMessage) {
    std::string bad = authortest::writeTemp("bad.json", "{\n  \"DUMMY100\": [\n    {\"ID\": 1,,}\n]}");
    std::string fleet = kExamples + "/rules/fleet.json";
    std::string table = " --j1939 " + kExamples + "/j1939/signals.csv";
    // Only warnings: an unknown key and a rule without triggers.
    std::string warnings = authortest::writeTemp(
        "w.json", "{\"DUMMY100\": [{\"ID\": 1, \"SPEDD\": {\"GT\": 60.0}}]}");
    std::string garbage = authortest::writeTemp(
        "g.log", "(1700000000.000000) can0 18FEF100#FF001EFFFFFFFFFF\nhello there\n");
    std::string startbit9 = authortest::writeTemp(
        "t.csv", "name,pgn,startbyte,startbit,length,resolution,offset\ns,65265,1,9,16,1,0\n");
    const struct Case {
        std::string args;
        int status;
        std::string says;
    } cases[] = {
        {"--help", 0, "help SUBCOMMAND"},
        {"help lint", 0, "--fail-on warning|error"},
        {"lint --help", 0, "--fail-on warning|error"},
        {"replay " + fleet + " -h", 0, "--strict"},
        {"--version", 0, "zel-author 1."},
        {"lint " + fleet + table, 0, ""},
        {"lint " + kData + "/traps.json", 1, "RULE 1: error: SPEED \"GT\": 60"},
        {"lint " + warnings, 1, "RULE 1: warning: unknown key \"SPEDD\""},
        {"lint " + warnings + " --fail-on error", 0, "0 errors, 2 warnings, 0 notes"},
        {"lint " + warnings + " --json --fail-on error", 0, "\"severity\" : \"warning\""},
        {"lint " + bad, 2, bad + ":3: "},
        {"lint /nonexistent/rules.json", 2, "/nonexistent/rules.json: No such file"},
        // A folder where a file belongs: the reason, not an abort.
        {"lint /tmp", 2, "/tmp: Is a directory"},
        {"lint " + fleet + " --j1939 /tmp", 2, "/tmp: Is a directory"},
        {"replay " + fleet + " --j1939 /tmp", 2, "/tmp: Is a directory"},
        {"lint " + fleet + " --can " + kData + "/traps.log", 2, "add --j1939"},
        {"lint " + fleet + " --fail-on never", 2, "expected warning or error"},
        {"lint " + fleet + " --bogus", 2, "unknown option --bogus (see zel-author lint --help)"},
        {"lint", 2, "no rule set given"},
        {"", 2, "no subcommand given"},
        {"frobnicate", 2, "unknown subcommand 'frobnicate'"},
        {"help frobnicate", 2, "no subcommand 'frobnicate'"},
        {"replay " + fleet + " --clock 25:00:00", 2, "--clock 25:00:00"},
        // One reader per format: lint and replay refuse the same line alike.
        {"lint " + fleet + table + " --can " + garbage, 2, garbage + ":2: not a classic CAN frame"},
        {"replay " + fleet + " --can " + garbage, 2, garbage + ":2: not a classic CAN frame"},
        {"replay " + fleet + " --j1939 " + startbit9, 2, startbit9 + ":2: startbit 9 is outside 0..7"},
        {"lint " + fleet + " --j1939 " + startbit9, 1,
         "TABLE row 0: error: zel-j1939-table, zelctl table, replay and the player refuse this "
         "table: " + startbit9 + ":2: startbit 9 is outside 0..7"},
        {"replay " + fleet + " --until 99999999", 2, "at most 2678400 s"},
        {"replay " + fleet + " --scenario " + kExamples + "/scenarios/road.scn --until 15", 0,
         "       7      6.0     11."},
    };
    for (const Case& c : cases) {
        std::string out;
        EXPECT_EQ(authortest::runAuthor(c.args, out), c.status) << c.args << "\n" << out;
        if (c.says.empty())
            EXPECT_EQ(out, "") << c.args;
        else
            EXPECT_NE(out.find(c.says), std::string::npos) << c.args << "\n" << out;
    }
}

}  // namespace
