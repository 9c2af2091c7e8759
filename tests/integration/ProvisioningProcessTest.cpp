// Rules from the platform over the real bus: broker, host with the plug-in,
// storage and platform peers as their own processes, and this test sending
// speed messages as the vehicle would. The rule set arrives on request, a
// speed above 60 mph held for 5 s raises the alert, its fall closes the frame,
// and pushed commands and fence messages change the running alerts in the
// order they were sent.
#include <stdio.h>

#include "PlatformRules.h"
#include "ServiceRig.h"

namespace {

using rig::Bytes;
using rig::Record;

class ProvisioningProcess : public rig::ProcessTest {
protected:
    void SetUp() override {
        rig::ProcessTest::SetUp();
        listen({3215, 39564});
        startStorage();
        launch("platform", {ZEL_PLATFORM_BIN, "serve", ZEL_RULES_EXAMPLE});
        ASSERT_TRUE(waitFor([&] { return rig::has(out("platform"), "serving"); }))
            << out("platform");
        startHost();
    }
    // Runs zel-platform with `args` to its end; its output.
    std::string tool(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {ZEL_PLATFORM_BIN};
        argv.insert(argv.end(), args.begin(), args.end());
        std::string file = dir.Path("tool" + std::to_string(++m_tools));
        EXPECT_EQ(rig::run(argv, file), 0);
        return q7xtest::ReadText(file);
    }
    std::string push(const std::string& cmd, const std::string& json) {
        std::string path = dir.Path("cmd" + std::to_string(m_tools) + ".json");
        FILE* f = fopen(path.c_str(), "w");
        fputs(json.c_str(), f);
        fclose(f);
        return tool({"push", cmd, path});
    }
    int m_tools = 0;
};

TEST_F(ProvisioningProcess, RulesFromThePlatformRaiseAlertsAndPushedChangesEndThemInOrder) {
    ASSERT_TRUE(waitFor([&] { return rig::has(out("platform"), "answered the area state"); }))
        << "the service never took its rule set\n" << out("host");

    // Rule 7 of the example: speed above 60 mph for at least 5 s.
    auto sent = zeltest::Clock::now();
    send(6777, rig::speedMessage(70), 0);
    ASSERT_TRUE(waitRecord(7, 0)) << out("host");
    EXPECT_GE(std::chrono::duration<double>(zeltest::Clock::now() - sent).count(), 4.0);
    send(6777, rig::speedMessage(50), 0);
    ASSERT_TRUE(waitRecord(7, 1));

    // Rule 8 holds at 50 mph until a cover raises its threshold.
    EXPECT_TRUE(rig::has(
        push("1", "{\"DUMMY\":[{\"ID\":8,\"ATLEAST\":0,\"SPEED\":{\"GT\":40.0}}]}"), "sent CMD 1"));
    ASSERT_TRUE(waitRecord(8, 0));
    push("5", "{\"DUMMY\":[{\"ID\":8,\"ATLEAST\":0,\"SPEED\":{\"GT\":80.0}}]}");
    ASSERT_TRUE(waitRecord(8, 1));

    // Rule 9 is tied to an area: it runs only while the vehicle is inside.
    push("1", "{\"DUMMY\":[{\"ID\":9,\"SPEED\":{\"GT\":40.0}}],\"CIRCLE\":[{\"ID\":9}]}");
    EXPECT_TRUE(rig::has(tool({"fence-event", "9", "1"}), "sent fence event of area 9: inside"));
    ASSERT_TRUE(waitRecord(9, 0));
    tool({"fence-state", "9", "0"});
    ASSERT_TRUE(waitRecord(9, 1));

    // The platform serves what it was told since: the three rules.
    const std::string request = "{\"CMD\":8,\"SOURCE\":100}";
    send(6796, Bytes(request.begin(), request.end()));
    ASSERT_TRUE(waitFor([&] { return !with(39564).empty(); }));
    std::string served = with(39564).back().payload;
    Json::Value set;
    std::string error;
    ASSERT_TRUE(platformpeer::parseJson("reply", served, set, error)) << error << "\n" << served;
    std::vector<uint32_t> ids;
    for (const Json::Value& rule : set["DUMMY100"]) ids.push_back(rule["ID"].asUInt());
    EXPECT_EQ(ids, (std::vector<uint32_t>{7, 8, 9}));

    // Every rise and fall, in the order the messages were sent, and a closed
    // frame for each alert ending at its reported end.
    std::vector<Record> r = records();
    std::vector<std::pair<uint32_t, int>> seq;
    for (const Record& x : r) seq.push_back({x.alertID, x.ended});
    ASSERT_EQ(seq, (std::vector<std::pair<uint32_t, int>>{
                       {7, 0}, {7, 1}, {8, 0}, {8, 1}, {9, 0}, {9, 1}}));
    // The closing patches are one-way: wait for the file to hold them.
    auto closed = [&] {
        std::vector<zelstore::FrameInfo> f = frames();
        bool all = f.size() == 3;
        for (size_t i = 0; all && i < 3; ++i)
            all = f[i].alertID == r[2 * i].alertID && rig::six(f[i].start) == r[2 * i].time &&
                  rig::six(f[i].end) == r[2 * i + 1].time;
        return all;
    };
    EXPECT_TRUE(waitFor(closed));
}

}  // namespace
