// The plug-in in a real host on a real broker, seen by a peer on the bus:
// start announcement, start requests, watchdog feed, stop, clean exit.
#include "ProcessUtil.h"

namespace zeltest {
namespace {

using q7xtest::Recorder;

TEST(ServiceProcess, AnnouncesRequestsFeedsAndStopsCleanly) {
    q7xtest::TempDir dir;
    const std::string bus = dir.Path("bus");
    setenv("Q7X_BUS_PATH", bus.c_str(), 1);
    ProcessGroup procs;
    pid_t busd = procs.Start({Q7X_BUSD_BIN}, dir.Path("busd.out"));
    ASSERT_TRUE(WaitListening(bus));

    void* peer = q7xtest::NewClient(50);
    void* helper = q7xtest::NewClient(51);
    Recorder seen;
    for (uint32_t id : {6u, 3u, 7u, 1289u, 1071u, 1032u, 475u}) q7xtest::Subscribe(peer, seen, id);
    q7xtest::Sync(peer, helper);

    pid_t host = procs.Start({Q7X_HOST_BIN, ALERTZEL_PLUGIN}, dir.Path("host.out"));
    ASSERT_TRUE(q7xtest::WaitUntil(peer, [&] { return seen.Count(475) == 1; }, 10000))
        << q7xtest::ReadText(dir.Path("host.out"));
    const std::string record("BasicService.11\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\xE0\x93\x04\x00", 36);
    ASSERT_EQ(seen.got.size(), 5u);
    EXPECT_EQ(seen.got[0].id, 6u);
    EXPECT_FALSE(seen.got[0].request);
    EXPECT_EQ(seen.got[0].payload, record);
    const uint32_t requests[] = {1289, 1071, 1032, 475};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(seen.got[i + 1].id, requests[i]);
        EXPECT_TRUE(seen.got[i + 1].request);
        EXPECT_TRUE(seen.got[i + 1].payload.empty());
    }

    // The feed runs on the real clock: the first comes 10 s after the start.
    ASSERT_TRUE(q7xtest::WaitUntil(peer, [&] { return seen.Count(3) == 1; }, 15000));
    EXPECT_EQ(seen.Find(3)->payload, record);

    ASSERT_EQ(kill(host, SIGTERM), 0);
    EXPECT_TRUE(q7xtest::WaitUntil(peer, [&] { return seen.Count(7) == 1; }, 10000));
    EXPECT_EQ(seen.Find(7)->payload, record);
    EXPECT_EQ(WaitExit(host), 0) << q7xtest::ReadText(dir.Path("host.out"));
    kill(busd, SIGTERM);
    EXPECT_EQ(WaitExit(busd), 0);
}

}  // namespace
}  // namespace zeltest
