// The person's tools as programs: what they refuse and how they say it,
// zelctl handing lint and replay to zel-author, and the made-up CAN drive.
#include <sys/stat.h>

#include <fstream>

#include "Candump.h"
#include "DeviceRig.h"

namespace zeltest {
namespace {

struct Outcome {
    int exit;
    std::string text;
};

class Tools : public ::testing::Test {
protected:
    // No broker listens here: sends must fail and say so.
    Tools() { setenv("Q7X_BUS_PATH", m_dir.Path("no-bus").c_str(), 1); }

    Outcome Run(const std::vector<std::string>& args) {
        const std::string out = m_dir.Path("out" + std::to_string(++m_runs));
        pid_t pid = Spawn(args, out);
        int rc = WaitExit(pid, kWaitMs);
        return Outcome{rc, q7xtest::ReadText(out)};
    }
    std::string File(const std::string& name, const std::string& text) {
        WriteText(m_dir.Path(name), text);
        return m_dir.Path(name);
    }

    q7xtest::TempDir m_dir;
    int m_runs = 0;
};

TEST_F(Tools, RefusalsExitOneAndSayWhatAndWhere) {
    const std::string table = File("bad.csv",
                                   "name,pgn,startbyte,startbit,length,resolution,offset\n"
                                   "oil,65263,3,0,8,4,0\n"
                                   "coolant,0,0,0,8,1,-40\n");
    const std::string scn = File("bad.scn", "0 speed 70 mph\n2 speed 70 kph\n");
    const std::string good = File("good.scn", "0 speed 70 mph\n");
    const std::string notJson = File("bad.json", "{\"DUMMY\": [\n");
    const std::string noRules = File("none.json", "{\"RULES\": []}");
    const std::string damaged = File("zel-19-20260305.log", std::string(100, 'x'));
    const struct {
        std::vector<std::string> args;
        int exit;
        std::string says;
    } cases[] = {
        {{ZELCTL_BIN}, 1, "usage: zelctl SUBCOMMAND"},
        {{ZELCTL_BIN, "frobnicate"}, 1, "zelctl: unknown subcommand 'frobnicate'"},
        {{ZELCTL_BIN, "help", "send"}, 0, "  zelctl send speed 70 mph\n"},
        {{ZELCTL_BIN, "watch", "--help"}, 0, "  zelctl watch --count 2"},
        {{ZELCTL_BIN, "watch", "--count", "0"}, 1, "zelctl watch: --count: '0' is not"},
        {{ZELCTL_BIN, "send", "warp", "9"}, 1, "zelctl send: unknown signal 'warp'"},
        {{ZELCTL_BIN, "send", "speed", "70", "mph"}, 1,
         "zelctl send: could not send message 6777: no broker on the bus?"},
        {{ZELCTL_BIN, "state", "--timeout", "0.2"}, 1, "zelctl state: could not send the query"},
        {{ZELCTL_BIN, "table", table}, 1, "zelctl table: " + table + ":3: pgn 0 is outside"},
        {{ZELCTL_BIN, "rules", "push", "2", notJson}, 1, "'2' is not CMD 1, 3, 4 or 5"},
        {{ZELCTL_BIN, "rules", "push", "1"}, 1, "zelctl rules: push 1 needs a FILE"},
        {{ZELCTL_BIN, "rules", "push", "1", notJson}, 1, notJson + ": not valid JSON"},
        {{ZELCTL_BIN, "rules", "push", "5", noRules}, 1, noRules + ": no \"DUMMY\" array"},
        {{ZELCTL_BIN, "log", m_dir.Path("missing")}, 1, "missing: No such file"},
        {{ZELCTL_BIN, "log", damaged}, 1, damaged + ": damaged: 100 of 100 bytes"},
        {{ZEL_PLAYER_BIN, scn}, 1, "zel-player: " + scn + ":2: speed: 'kph' is not a unit"},
        {{ZEL_PLAYER_BIN, good, "--speed", "0"}, 1, "--speed: '0' is not a factor above 0"},
        {{ZEL_PLAYER_BIN, "--help"}, 0, "zel-player examples/scenarios/road.scn"},
        {{ZEL_CANLOG_BIN, "--seconds", "0", m_dir.Path("x.log")}, 1, "'0' is not 1..3600"},
    };
    for (const auto& c : cases) {
        Outcome o = Run(c.args);
        EXPECT_EQ(o.exit, c.exit) << c.args.back() << "\n" << o.text;
        EXPECT_TRUE(Has(o.text, c.says)) << "wanted: " << c.says << "\ngot: " << o.text;
    }
}

TEST_F(Tools, LintAndReplayAreZelAuthorsBesideZelctl) {
    // A zelctl alone in its folder says what it misses.
    const std::string lone = m_dir.Path("zelctl");
    {
        std::ifstream from(ZELCTL_BIN, std::ios::binary);
        std::ofstream to(lone, std::ios::binary);
        to << from.rdbuf();
    }
    chmod(lone.c_str(), 0755);
    Outcome missing = Run({lone, "lint", ZEL_RULES_EXAMPLE});
    EXPECT_EQ(missing.exit, 1);
    EXPECT_TRUE(Has(missing.text, "zelctl lint: needs zel-author beside zelctl, and " +
                                      m_dir.Path("zel-author") + " is missing"))
        << missing.text;

    const std::string author = std::string(ZELCTL_BIN).substr(0, std::string(ZELCTL_BIN).rfind('/'))
                               + "/zel-author";
    if (access(author.c_str(), X_OK) != 0) GTEST_SKIP() << "zel-author is not built";
    // The same answers, but for the time a replay took.
    auto untimed = [](std::string text) {
        size_t at = text.find("replayed in");
        return at == std::string::npos ? text : text.substr(0, at);
    };
    for (const char* sub : {"lint", "replay"}) {
        Outcome viaZelctl = Run({ZELCTL_BIN, sub, ZEL_RULES_EXAMPLE});
        Outcome direct = Run({author, sub, ZEL_RULES_EXAMPLE});
        EXPECT_EQ(viaZelctl.exit, direct.exit) << sub;
        EXPECT_EQ(untimed(viaZelctl.text), untimed(direct.text)) << sub;
    }
    EXPECT_TRUE(Has(Run({ZELCTL_BIN, "replay", ZEL_RULES_EXAMPLE}).text, "episodes"));
}

TEST_F(Tools, MadeUpDriveIsACandumpLogWithAnOilPressureDip) {
    for (const bool ta : {false, true}) {
        const std::string log = m_dir.Path(ta ? "drive-ta.log" : "drive.log");
        std::vector<std::string> args = {ZEL_CANLOG_BIN, "--seconds", "20", log};
        if (ta) args.insert(args.begin() + 1, "--ta");
        ASSERT_EQ(Run(args).exit, 0);
        std::ifstream in(log);
        std::string line;
        size_t frames = 0;
        double lowFrom = -1, lowTo = -1, first = -1;
        while (std::getline(in, line)) {
            zelj1939::CanFrame f;
            ASSERT_TRUE(zelj1939::parseCandumpLine(line, f)) << line;
            ++frames;
            if (first < 0) first = f.time;
            // EFL/P1 oil pressure, byte 3, 4 kPa per bit.
            if (((f.id >> 8) & 0xffff) == 65263 && f.data[3] * 4 < 240) {
                if (lowFrom < 0) lowFrom = f.time - first;
                lowTo = f.time - first;
            }
        }
        EXPECT_EQ(frames, 20u * (20 + 10 + 2 + 1 + 1));
        EXPECT_NEAR(lowFrom, 7.0, 0.01);  // 35 % to 52 % of the drive
        EXPECT_NEAR(lowTo, 10.0, 0.01);
    }
}

}  // namespace
}  // namespace zeltest

namespace zeltest {
namespace {

// Watch record: 32-byte name, u32 timeout in ms.
std::string WatchRecord(const std::string& name, uint32_t timeoutMs) {
    std::string r(36, '\0');
    r.replace(0, name.size(), name);
    for (int i = 0; i < 4; ++i) r[32 + i] = static_cast<char>(timeoutMs >> (8 * i));
    return r;
}

TEST(WatchdogPeer, ReportsAMissedFeedOnceAndForgetsAStoppedService) {
    q7xtest::TempDir dir;
    const std::string bus = dir.Path("bus");
    setenv("Q7X_BUS_PATH", bus.c_str(), 1);
    ProcessGroup procs;
    pid_t busd = procs.Start({Q7X_BUSD_BIN}, dir.Path("busd.out"));
    ASSERT_TRUE(WaitListening(bus));
    pid_t dog = procs.Start({ZEL_WATCHDOG_BIN}, dir.Path("dog.out"));
    void* client = q7xtest::NewClient(80);
    const std::string out = dir.Path("dog.out");
    auto says = [&](const std::string& part, int ms) {
        return q7xtest::WaitUntil(client, [&] { return Has(q7xtest::ReadText(out), part); }, ms);
    };
    // The watchdog may not listen yet: announce until it has heard.
    ASSERT_TRUE(q7xtest::WaitUntil(client, [&] {
        q7xtest::Send(client, 6, WatchRecord("Test.1", 400));
        return Has(q7xtest::ReadText(out), "start Test.1 (timeout 400 ms)");
    }, kWaitMs));
    ASSERT_TRUE(says("MISSED Test.1: no feed for", kWaitMs));
    // A feed, and the stop before its timeout could pass.
    q7xtest::Send(client, 3, WatchRecord("Test.1", 400));
    q7xtest::Send(client, 7, WatchRecord("Test.1", 400));
    ASSERT_TRUE(says("stop  Test.1", kWaitMs));
    EXPECT_TRUE(Has(q7xtest::ReadText(out), "feed  Test.1 (timeout 400 ms)"));
    // Once reported and once stopped: no further report.
    says("never", 800);
    const std::string text = q7xtest::ReadText(out);
    EXPECT_EQ(text.find("MISSED"), text.rfind("MISSED")) << text;
    kill(dog, SIGTERM);
    EXPECT_EQ(WaitExit(dog), 0);
    kill(busd, SIGTERM);
    EXPECT_EQ(WaitExit(busd), 0);
}

}  // namespace
}  // namespace zeltest
