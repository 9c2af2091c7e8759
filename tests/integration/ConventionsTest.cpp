// What every program says when asked, when called wrongly and when it could
// not do its job: --help and --version on standard output with exit 0, a
// wrong call on standard error with exit 2, a job not done with exit 1. And
// what the log readers show of a cut or damaged log.
#include "DeviceRig.h"

namespace zeltest {
namespace {

struct Ran {
    int code;
    std::string out, err;
};

class Conventions : public Offline {
protected:
    // Runs a program to its end with standard output and standard error apart.
    Ran RunApart(const std::vector<std::string>& args) {
        const std::string out = m_dir.Path("out");
        const std::string err = m_dir.Path("err");
        const int code = WaitExit(Spawn(args, out, err));
        Ran r{code, ReadText(out), ReadText(err)};
        EXPECT_TRUE(SanitizerFree(r.err)) << r.err;
        return r;
    }
};

const struct Program {
    const char* bin;
    const char* name;
} kPrograms[] = {
    {ZELCTL_BIN, "zelctl"},
    {ZEL_PLAYER_BIN, "zel-player"},
    {ZEL_BUSMON_BIN, "zel-busmon"},
    {ZEL_LOGDUMP_BIN, "zel-logdump"},
    {ZEL_STORAGE_BIN, "zel-storage"},
    {ZEL_PLATFORM_BIN, "zel-platform"},
    {ZEL_WATCHDOG_BIN, "zel-watchdog"},
    {ZEL_CANLOG_BIN, "zel-canlog"},
    {ZEL_J1939_TABLE_BIN, "zel-j1939-table"},
    {ZEL_SOAK_LOAD_BIN, "zel-soak-load"},
    {Q7X_BUSD_BIN, "q7x-busd"},
    {Q7X_HOST_BIN, "q7x-host"},
};

TEST_F(Conventions, HelpVersionAndWrongCallsAreAnsweredAlike) {
    for (const Program& p : kPrograms) {
        SCOPED_TRACE(p.name);
        const Ran help = RunApart({p.bin, "--help"});
        EXPECT_EQ(help.code, 0);
        EXPECT_TRUE(Has(help.out, std::string("usage: ") + p.name)) << help.out;
        EXPECT_EQ(help.err, "");
        const Ran version = RunApart({p.bin, "--version"});
        EXPECT_EQ(version.code, 0);
        EXPECT_EQ(version.out, std::string(p.name) + " " + AZ_VERSION + "\n");
        const Ran wrong = RunApart({p.bin, "--frobnicate"});
        EXPECT_EQ(wrong.code, 2);
        EXPECT_EQ(wrong.out, "");
        EXPECT_EQ(wrong.err.compare(0, strlen(p.name) + 2, std::string(p.name) + ": "), 0)
            << wrong.err;
        EXPECT_TRUE(Has(wrong.err, "Try '" + std::string(p.name) + " --help' for more.\n"))
            << wrong.err;
    }
}

// Help on standard output with exit 0; a wrong call (2) or a job not done (1)
// says what and where on standard error, without a platform line.
TEST_F(Conventions, EachCallIsAnsweredWithItsStatusAndWhere) {
    const std::string table = File("bad.csv",
                                   "name,pgn,startbyte,startbit,length,resolution,offset\n"
                                   "oil,65263,3,0,8,4,0\n"
                                   "coolant,0,0,0,8,1,-40\n");
    const std::string scn = File("bad.scn", "0 speed 70 mph\n2 speed 70 kph\n");
    const std::string good = File("good.scn", "0 speed 70 mph\n");
    const std::string notJson = File("bad.json", "{\"DUMMY\": [\n");
    const std::string noRules = File("none.json", "{\"RULES\": []}");
    const std::string damaged = File("zel-19-20260305.log", std::string(100, 'x'));
    const std::string bus = m_dir.Path("no-bus");
    const struct {
        std::vector<std::string> args;
        int code;
        std::string says;
    } cases[] = {
        {{ZELCTL_BIN, "help", "rules"}, 0, "usage: zelctl rules push CMD [FILE]"},
        {{ZELCTL_BIN, "help", "send"}, 0, "  zelctl send speed 70 mph\n"},
        {{ZELCTL_BIN, "log", "--help"}, 0, "usage: zelctl log FILE|DIR"},
        {{ZEL_PLATFORM_BIN, "help", "push"}, 0, "zel-platform push CMD [FILE]"},
        {{ZEL_SOAK_LOAD_BIN, "help", "run"}, 0, "zel-soak-load run SECONDS"},
        {{ZELCTL_BIN}, 2, "zelctl: no subcommand"},
        {{ZELCTL_BIN, "frobnicate"}, 2, "zelctl: unknown subcommand 'frobnicate'"},
        {{ZELCTL_BIN, "help", "frobnicate"}, 2, "zelctl help: no subcommand 'frobnicate'"},
        {{ZELCTL_BIN, "watch", "--count", "x"}, 2, "Try 'zelctl help watch' for more."},
        {{ZELCTL_BIN, "watch", "--count", "0"}, 2, "zelctl watch: --count: '0' is not"},
        {{ZELCTL_BIN, "send", "warp", "9"}, 2, "zelctl send: unknown signal 'warp'"},
        {{ZELCTL_BIN, "rules", "push"}, 2, "zelctl rules: push needs CMD"},
        {{ZELCTL_BIN, "rules", "push", "1"}, 2, "zelctl rules: push 1 needs a FILE"},
        {{ZELCTL_BIN, "rules", "push", "2", notJson}, 2, "'2' is not CMD 1, 3, 4 or 5"},
        {{ZEL_PLATFORM_BIN, "fence-event", "7", "2"}, 2, "fence-event: '2' is not 0 or 1"},
        {{ZEL_BUSMON_BIN, "70000"}, 2, "'70000' is not a message id"},
        {{ZEL_PLAYER_BIN, good, "--speed", "0"}, 2, "--speed: '0' is not a factor above 0"},
        {{ZEL_CANLOG_BIN, "--seconds", "0", m_dir.Path("x.log")}, 2, "'0' is not 1..3600"},
        {{ZEL_PLAYER_BIN, good}, 1, "zel-player: no broker at " + bus + "\n"},
        {{ZEL_PLAYER_BIN, scn}, 1, "zel-player: " + scn + ":2: speed: 'kph' is not a unit"},
        {{ZEL_PLAYER_BIN, File("empty.scn", "# nothing yet\n")}, 1,
         "has no steps: nothing to play"},
        {{ZEL_PLAYER_BIN, m_dir.path}, 1, m_dir.path + " is a folder, not a scenario"},
        {{ZELCTL_BIN, "send", "speed", "70", "mph"}, 1, "zelctl send: no broker at " + bus + "\n"},
        {{ZELCTL_BIN, "state", "--timeout", "0.2"}, 1, "zelctl state: no broker at "},
        {{ZELCTL_BIN, "rules", "push", "4"}, 1, "zelctl rules: no broker at " + bus + "\n"},
        {{ZELCTL_BIN, "rules", "push", "1", notJson}, 1, notJson + ": not valid JSON"},
        {{ZELCTL_BIN, "rules", "push", "5", noRules}, 1, noRules + ": no \"DUMMY\" array"},
        {{ZELCTL_BIN, "table", table}, 1, "zelctl table: " + table + ":3: pgn 0 is outside"},
        {{ZELCTL_BIN, "log", m_dir.Path("missing")}, 1, "missing: No such file"},
        {{ZELCTL_BIN, "table", m_dir.path}, 1, m_dir.path + ": Is a directory"},
        {{ZEL_J1939_TABLE_BIN, "--dbc", m_dir.path, "-o", table}, 2, ": Is a directory"},
        {{ZELCTL_BIN, "log", damaged}, 1, damaged + " is damaged: 100 of 100 bytes"},
        {{ZEL_PLATFORM_BIN, "fence-event", "7", "1"}, 1, "no broker at " + bus + "\n"},
    };
    for (const auto& c : cases) {
        const Ran r = RunApart(c.args);
        SCOPED_TRACE(c.args.size() > 1 ? c.args[0] + " " + c.args[1] : c.args[0]);
        EXPECT_EQ(r.code, c.code) << r.out << r.err;
        EXPECT_TRUE(Has(c.code == 0 ? r.out : r.err, c.says)) << r.out << r.err;
        EXPECT_FALSE(Has(r.err, ".cpp")) << "a platform line reached the user:\n" << r.err;
    }
}

// Three frames, alerts 11, 22 and 33; then the last one torn by a power cut,
// or the middle one damaged.
TEST_F(Conventions, DamagedLogsShowEveryWholeFrameThenWarn) {
    const zelstore::LogHead head = {19, {2026, 3, 5}, {26, 3, 5, 8, 0, 0}, "test"};
    std::vector<uint8_t> file(zelstore::kHeadSize + 3 * zelstore::kFrameSize);
    zelstore::encodeHead(file.data(), head);
    const Common::_datetime_ at = {26, 3, 5, 8, 30, 0, 4, 0};
    for (int i = 0; i < 3; ++i)
        zel::buildLogFrame(&file[zelstore::kHeadSize + i * zelstore::kFrameSize], 11 * (i + 1), at);
    const std::vector<uint8_t> cut(file.begin(), file.end() - 17);
    std::vector<uint8_t> damaged = file;
    damaged[zelstore::kHeadSize + zelstore::kFrameSize] ^= 1;
    const struct {
        std::vector<uint8_t> bytes;
        std::vector<std::string> shown, missing;
        std::string warning;
    } rows[] = {
        {cut, {"alert 11", "alert 22"}, {"alert 33"},
         "43 of 247 bytes could not be read (it ends in a torn frame of 43 bytes at offset 204)"
         "; 2 whole frames shown"},
        {damaged, {"alert 11", "alert 33"}, {"alert 22"},
         "60 of 264 bytes could not be read (the frame at offset 144 is damaged); 2 whole "
         "frames shown"},
    };
    for (const auto& row : rows) {
        const std::string path = m_dir.Path("zel-19-20260305.log");
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(row.bytes.data()), row.bytes.size());
        for (const char* bin : {ZELCTL_BIN, ZEL_LOGDUMP_BIN}) {
            const Ran r = RunApart(bin == std::string(ZELCTL_BIN)
                                       ? std::vector<std::string>{bin, "log", path}
                                       : std::vector<std::string>{bin, path});
            SCOPED_TRACE(bin);
            EXPECT_EQ(r.code, 1);
            for (const std::string& s : row.shown) EXPECT_TRUE(Has(r.out, s)) << r.out;
            for (const std::string& s : row.missing) EXPECT_FALSE(Has(r.out, s)) << r.out;
            EXPECT_TRUE(Has(r.err, "warning: " + path + " is damaged: " + row.warning)) << r.err;
        }
    }
}

}  // namespace
}  // namespace zeltest
