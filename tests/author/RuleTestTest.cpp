// zel-author test: each example rule set has a test file and it passes; a
// wrong expectation fails with the expected against the seen, and exit
// status 1, and the JUnit report counts it; an unusable file is refused with
// its reason and status 2.
#include <filesystem>

#include "AuthorTestUtil.h"
#include "RuleTest.h"

using namespace zelauthor;
using authortest::kExamples;
using authortest::runAuthor;

namespace {

// A test file beside the example rules, with one case around `caseBody`.
std::string speedingTest(const std::string& caseBody) {
    return authortest::writeTemp(
        "t.test.json", "{\"rules\": \"" + kExamples + "/rules/speeding.json\", \"cases\": [{" +
                           caseBody + "}]}");
}

const char* const kOverspeed =
    "\"name\": \"n\", \"steps\": [\"0 speed 40 mph\", \"3 speed 70 mph\", \"12 speed 50 mph\"]";

}  // namespace

TEST(RuleTests, EveryExampleRuleSetHasPassingTests) {
    size_t sets = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kExamples + "/rules")) {
        if (entry.path().extension() != ".json") continue;
        ++sets;
        std::vector<CaseResult> results;
        std::string error;
        const std::string path = kExamples + "/tests/" + entry.path().stem().string() + ".test.json";
        ASSERT_EQ(runTestFile(path, results, error), kClean) << error;
        EXPECT_FALSE(results.empty()) << path;
        for (const CaseResult& c : results)
            EXPECT_TRUE(c.passed) << path << ": " << c.name << ": " << c.failures.front();
    }
    EXPECT_GT(sets, 0u);
}

TEST(RuleTests, WrongExpectationsFailWithWhatWasSeen) {
    const struct Row {
        const char* expect;
        const char* says;  // empty: the case passes
    } rows[] = {
        {"\"expect\": [{\"alert\": 7, \"began\": 8, \"ended\": 12, \"since\": 3}]", ""},
        {"\"expect\": [{\"alert\": 7, \"began\": 8, \"within\": 0.5}]", ""},
        {"\"expect\": [{\"alert\": 7, \"began\": 10}]", "expected to begin at 10.0 s (within 1.0 s); it began at 8."},
        {"\"expect\": [{\"alert\": 7, \"began\": 8, \"ended\": 15}]", "expected to end at 15.0 s; ended at 12."},
        {"\"expect\": [{\"alert\": 7, \"began\": 8, \"ended\": null}]", "expected to end still running; ended at 12."},
        {"\"expect\": [{\"alert\": 7, \"began\": 8, \"since\": 5}]", "since 5.0 s; it says 3.0 s"},
        {"\"expect\": [{\"alert\": 7, \"began\": 8}, {\"alert\": 7, \"began\": 15}]", "expected to begin at 15.0 s"},
        {"\"expect\": [{\"alert\": 8, \"began\": 8}]", "alert 8: expected to begin at 8.0 s (within 1.0 s); it never began"},
        {"\"never\": [7]", "alert 7: must never begin; it began at 8."},
        {"\"never\": [8]", ""},
    };
    for (const Row& row : rows) {
        std::vector<CaseResult> results;
        std::string error;
        std::string path = speedingTest(std::string(kOverspeed) + ", " + row.expect);
        ASSERT_EQ(runTestFile(path, results, error), kClean) << error;
        ASSERT_EQ(results.size(), 1u);
        std::string says = row.says;
        EXPECT_EQ(results[0].passed, says.empty()) << row.expect;
        if (!says.empty()) {
            ASSERT_FALSE(results[0].failures.empty());
            EXPECT_NE(results[0].failures[0].find(says), std::string::npos)
                << row.expect << "\n" << results[0].failures[0];
        }
    }
}

TEST(RuleTests, ExitStatusAndJunitReport) {
    std::string good = speedingTest(std::string(kOverspeed) +
                                    ", \"expect\": [{\"alert\": 7, \"began\": 8, \"ended\": 12}]");
    std::string bad = speedingTest(std::string(kOverspeed) + ", \"never\": [7]");
    std::string report = authortest::scratchDir() + "/rule-tests.xml";
    std::string out;
    EXPECT_EQ(runAuthor("test " + good, out), 0) << out;
    EXPECT_EQ(runAuthor("test " + good + " " + bad + " --junit " + report, out), 1) << out;
    EXPECT_NE(out.find("FAIL  " + bad + ": n\n      alert 7: must never begin"), std::string::npos)
        << out;
    EXPECT_NE(out.find("2 cases, 1 failed"), std::string::npos) << out;
    const std::string xml = authortest::readText(report);
    EXPECT_NE(xml.find("<testsuites name=\"zel-author test\" tests=\"2\" failures=\"1\">"),
              std::string::npos)
        << xml;
    EXPECT_NE(xml.find("<failure message=\"alert 7: must never begin"), std::string::npos);
    EXPECT_EQ(runAuthor("test", out), 2);
    EXPECT_EQ(runAuthor("test " + good + " --junit", out), 2);
}

TEST(RuleTests, UnusableFilesAreRefusedWithTheirReason) {
    const std::string rules = "\"rules\": \"" + kExamples + "/rules/speeding.json\", ";
    const struct Row {
        std::string text;
        const char* says;
    } rows[] = {
        {"{\"cases\": [", "t.test.json"},
        {"{" + rules + "\"cases\": []}", "non-empty \"cases\" array"},
        {"{" + rules + "\"cases\": [{\"name\": \"n\"}]}", "one of \"steps\", \"scenario\" and \"can\""},
        {"{" + rules + "\"cases\": [{\"name\": \"n\", \"steps\": [], \"expects\": []}]}",
         "unknown key \"expects\""},
        {"{" + rules + "\"cases\": [{\"name\": \"n\", \"steps\": [\"0 speed fast\"]}]}",
         "case \"n\": steps:1:"},
        {"{" + rules + "\"cases\": [{\"name\": \"n\", \"steps\": [], \"expect\": [{\"alert\": 7}]}]}",
         "\"alert\" (an id) and \"began\" (seconds) are needed"},
        {"{\"rules\": \"missing.json\", \"cases\": [{\"name\": \"n\", \"steps\": []}]}",
         "missing.json: No such file"},
        {"{" + rules + "\"clock\": \"25:00\", \"cases\": [{\"name\": \"n\", \"steps\": []}]}",
         "clock 25:00: expected"},
    };
    for (const Row& row : rows) {
        std::vector<CaseResult> results;
        std::string error;
        std::string path = authortest::writeTemp("t.test.json", row.text);
        EXPECT_EQ(runTestFile(path, results, error), kUnreadable) << row.text;
        EXPECT_NE(error.find(row.says), std::string::npos) << row.text << "\n" << error;
    }
}
