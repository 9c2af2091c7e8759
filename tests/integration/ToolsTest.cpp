// The person's tools as programs: zelctl handing lint and replay to
// zel-author, the made-up CAN drive, and the watchdog peer's reports. (What
// they refuse and how they say it: ConventionsTest.)
#include <sys/stat.h>

#include <fstream>

#include "Candump.h"
#include "DeviceRig.h"

namespace zeltest {
namespace {

class Tools : public Offline {};

TEST_F(Tools, LintAndReplayAreZelAuthorsBesideZelctl) {
    // A zelctl alone in its folder says what it misses.
    const std::string lone = m_dir.Path("zelctl");
    std::ofstream(lone, std::ios::binary) << std::ifstream(ZELCTL_BIN, std::ios::binary).rdbuf();
    chmod(lone.c_str(), 0755);
    EXPECT_TRUE(Has(Run({lone, "lint", ZEL_RULES_EXAMPLE}, 1),
                    "zelctl lint: needs zel-author beside "
                    "zelctl, and " +
                        m_dir.Path("zel-author") + " is missing"));
    // Beside it, the same answers as zel-author's own, but for the time a replay took.
    const std::string bin = ZELCTL_BIN;
    const std::string author = bin.substr(0, bin.rfind('/')) + "/zel-author";
    if (access(author.c_str(), X_OK) != 0) GTEST_SKIP() << "zel-author is not built";
    // Their usage, through zelctl's help, on stdout with exit 0.
    EXPECT_TRUE(Has(Run({ZELCTL_BIN, "help", "lint"}, 0), "--fail-on warning|error"));
    EXPECT_TRUE(Has(Run({ZELCTL_BIN, "help", "replay"}, 0), "--strict"));
    for (const char* sub : {"lint", "replay"}) {
        auto [code, text] = RunToEnd({ZELCTL_BIN, sub, ZEL_RULES_EXAMPLE}, m_dir.Path("a"));
        auto [directCode, direct] = RunToEnd({author, sub, ZEL_RULES_EXAMPLE}, m_dir.Path("b"));
        EXPECT_EQ(code, directCode) << sub;
        EXPECT_EQ(text.substr(0, text.find("replayed in")),
                  direct.substr(0, direct.find("replayed in")));
    }
}

// Both candump forms parse line by line; the oil pressure (EFL/P1, byte 3,
// 4 kPa per bit) is below 240 kPa from 35 % to 52 % of the drive.
TEST_F(Tools, MadeUpDriveIsACandumpLogWithAnOilPressureDip) {
    for (const bool ta : {false, true}) {
        const std::string log = m_dir.Path(ta ? "ta.log" : "l.log");
        std::vector<std::string> args = {ZEL_CANLOG_BIN, "--seconds", "20", log};
        if (ta) args.insert(args.begin() + 1, "--ta");
        Run(args);
        std::ifstream in(log);
        std::vector<double> low;  // seconds into the drive of each low reading
        double first = -1;
        for (std::string line; std::getline(in, line);) {
            zelj1939::CanFrame f;
            ASSERT_TRUE(zelj1939::parseCandumpLine(line, f)) << line;
            if (first < 0) first = f.time;
            if (((f.id >> 8) & 0xffff) == 65263 && f.data[3] * 4 < 240)
                low.push_back(f.time - first);
        }
        ASSERT_FALSE(low.empty()) << ta;
        EXPECT_NEAR(low.front(), 7.0, 0.01);
        EXPECT_NEAR(low.back(), 10.0, 0.01);
    }
}

// Watch records on 6 (start), 3 (feed) and 7 (stop): 32-byte name, u32
// timeout in ms, here 400.
class WatchdogPeer : public Rig {
protected:
    void Watch(uint32_t id, const std::string& name) {
        std::vector<uint8_t> r(36, 0);
        std::copy(name.begin(), name.end(), r.begin());
        r[32] = 400 % 256;
        r[33] = 400 / 256;
        Send(id, r, 0);
    }
    size_t Says(const std::string& part) {
        const std::string text = Out("dog");
        size_t n = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++n;
        return n;
    }
    // Starts Test.2, which then misses its feed: waits for the report.
    bool StartTest2AndMiss() {
        const size_t before = Says("MISSED Test.2:");
        Watch(6, "Test.2");
        return WaitFor([&] { return Says("MISSED Test.2:") > before; });
    }
};

TEST_F(WatchdogPeer, ReportsAMissedFeedOnceAndForgetsAStoppedService) {
    StartBus({});
    m_kids.Start("dog", {ZEL_WATCHDOG_BIN});
    // The watchdog may not listen yet: announce until it has heard.
    ASSERT_TRUE(WaitFor([&] {
        if (!Says("start Test.1 (timeout 400 ms)")) Watch(6, "Test.1");
        return Says("start Test.1 (timeout 400 ms)") > 0;
    }));
    ASSERT_TRUE(WaitFor([&] { return Says("MISSED Test.1: no feed for") == 1; }));
    // Test.2 starts after Test.1 was last fed, with the same timeout: by its
    // report, Test.1 would have been reported again if it were.
    ASSERT_TRUE(StartTest2AndMiss());
    EXPECT_EQ(Says("MISSED Test.1:"), 1u);
    // Fed and stopped before its timeout could pass, Test.1 is forgotten.
    Watch(3, "Test.1");
    Watch(7, "Test.1");
    ASSERT_TRUE(WaitFor([&] { return Says("stop  Test.1") == 1; }));
    EXPECT_EQ(Says("feed  Test.1 (timeout 400 ms)"), 1u);
    ASSERT_TRUE(StartTest2AndMiss());
    EXPECT_EQ(Says("MISSED Test.1:"), 1u) << Out("dog");
}

}  // namespace
}  // namespace zeltest
