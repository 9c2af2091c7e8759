// The whole road of one alert with real processes: broker, host with the
// plug-in, storage peer, and this test in the platform's place. The alert's
// frame is written, patched on a tick and closed on its fall, and the log
// file decodes to what message 3215 reported.
#include "ServiceRig.h"

namespace {

using rig::Bytes;
using rig::Record;
using rig::six;

const char kRuleSet[] =
    "{\"DUMMY100\":[{\"ID\":7,\"ATLEAST\":0,\"SPEED\":{\"GT\":60.0}}],"
    "\"CIRCLE100\":[],\"LINE100\":[],\"POLY100\":[],\"RECT100\":[]}";

class AlertLogProcess : public rig::ProcessTest {
protected:
    // Storage, then the host; the rule request is answered with the one
    // rule of alert 7.
    void startWithRule() {
        seen.onEach = [&](const q7xtest::Received& r, const char* msg) {
            if (r.id == 6796 && rig::has(r.payload, "\"CMD\":8"))
                Common::Q7X_MSGResponseMessage(client(), msg, kRuleSet, sizeof kRuleSet - 1);
        };
        listen({3215, 6796, 3216 | 0x8000});
        startStorage();
        startHost();
        ASSERT_TRUE(waitFor([&] { return !with(6796).empty(); }))
            << "the service never asked for its rules\n" << out("host");
    }
};

TEST_F(AlertLogProcess, AlertFrameIsWrittenPatchedOnTicksAndClosedOnItsFall) {
    startWithRule();
    send(6777, rig::speedMessage(70), 0);
    Record began, ended;
    ASSERT_TRUE(waitRecord(7, 0, &began)) << out("host");
    std::vector<zelstore::FrameInfo> f = frames();
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].alertID, 7u);
    EXPECT_EQ(six(f[0].start), began.time);

    // The state query lists the running alert with its start.
    send(3216, Bytes());
    ASSERT_TRUE(waitFor([&] { return !with(3216 | 0x8000).empty(); }));
    std::vector<Record> running = rig::decodeRecords(with(3216 | 0x8000).back().payload);
    ASSERT_EQ(running.size(), 1u);
    EXPECT_EQ(running[0].time, began.time);

    // A tick patches the frame within about five seconds.
    ASSERT_TRUE(waitFor([&] {
        f = frames();
        return f.size() == 1 && f[0].patched();
    }));

    send(6777, rig::speedMessage(50), 0);
    ASSERT_TRUE(waitRecord(7, 1, &ended)) << out("host");
    // The patch is sent before the record; a size query orders them.
    ASSERT_TRUE(waitFor([&] {
        f = frames();
        return f.size() == 1 && six(f[0].end) == ended.time;
    })) << zelstore::stampText(frames().at(0).end);
}

}  // namespace
