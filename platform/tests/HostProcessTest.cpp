// q7x-host and q7x-busd as real processes: the host with a test plug-in and a
// broker of its own, and this test as the peer the plug-in talks to. (The
// device tests run the host beside a q7x-busd.)
#include "BusTestUtil.h"

namespace q7xtest {
namespace {

TEST(HostProcess, RunsThePluginWithABrokerOfItsOwnUntilSigtermThenDestroysItAndExitsZero) {
    TempDir dir;
    setenv("Q7X_BUS_PATH", dir.Path("bus").c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    Children kids(dir);
    kids.Start("host", {Q7X_HOST_BIN, Q7X_TEST_PLUGIN});
    ASSERT_TRUE(WaitListening(dir.Path("bus")));
    void* peer = NewClient(40);
    Recorder rp;
    for (uint32_t id : {0x0502u, 0x8503u}) Subscribe(peer, rp, id);  // goodbye, pong
    // The plug-in may still be connecting: ask until it answers.
    ASSERT_TRUE(WaitUntil(
        peer,
        [&] {
            if (rp.Count(0x8503) == 0) Send(peer, 0x0503, "ping", 1);
            return rp.Count(0x8503) > 0;
        },
        10000))
        << kids.Out("host");
    EXPECT_EQ(rp.Find(0x8503)->payload, "pong:ping");
    EXPECT_EQ(kids.Stop("host"), 0) << kids.Out("host");
    EXPECT_TRUE(WaitUntil(peer, [&] { return rp.Count(0x0502) == 1; }));
}

TEST(HostCommandLine, RefusesWhatItCannotRun) {
    TempDir dir;
    setenv("Q7X_BUS_PATH", dir.Path("bus").c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    const struct {
        std::vector<std::string> args;
        int code;
        const char* says;
    } cases[] = {
        {{Q7X_HOST_BIN}, 2, "q7x-host: needs one PLUGIN.so\nTry 'q7x-host --help'"},
        {{Q7X_HOST_BIN, dir.Path("absent.so")}, 1, "absent.so"},
        {{Q7X_HOST_BIN, Q7X_COMMON_LIB}, 1, "Create"},
        {{Q7X_BUSD_BIN, "a", "b"}, 2, "q7x-busd: one PATH at most\nTry 'q7x-busd --help'"},
    };
    for (const auto& c : cases) {
        const auto [code, text] = RunToEnd(c.args, dir.Path("out"));
        EXPECT_EQ(code, c.code) << c.says;
        EXPECT_NE(text.find(c.says), std::string::npos) << c.says << ": " << text;
    }
}

}  // namespace
}  // namespace q7xtest
