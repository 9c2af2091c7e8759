// Rules from the platform over the real bus: broker, host with the plug-in,
// storage and platform peers as their own processes, and this test sending
// speed messages as the vehicle would. The rule set arrives on request, a
// speed above 60 mph held for 5 s raises the alert, its fall closes the frame,
// and pushed commands and fence messages change the running alerts in the
// order they were sent.
#include <dirent.h>
#include <stdio.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "AlertLogFile.h"
#include "ByteOrder.h"
#include "PlatformRules.h"
#include "ProcessRig.h"

namespace {

using rig::Bytes;

const double kTimeout = 20;  // bound of every wait

Bytes speedMessage(uint32_t mph) {
    Bytes p(12, 0);
    p[0] = 1;  // miles per hour
    zel::putLe32(p.data(), 4, mph);
    return p;
}

struct Record {
    uint32_t alertID;
    Bytes time;
    uint8_t ended;
};

class ProvisioningProcess : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(rig::startBroker(dir, busd));
        bus.reset(new rig::BusPeer());
        for (unsigned int id : {2086u, 3215u, 39564u}) bus->listen(id);
        ASSERT_TRUE(storage.start({ZEL_STORAGE_BIN, dir.path("logs")}, dir.path("storage")));
        ASSERT_TRUE(bus->waitFor([&] { return !bus->with(2086).empty(); }, kTimeout));
        ASSERT_TRUE(platform.start({ZEL_PLATFORM_BIN, "serve", ZEL_RULES_EXAMPLE},
                                   dir.path("platform")));
        ASSERT_TRUE(rig::waitUntil([&] { return has(platform.out(), "serving"); }, kTimeout))
            << platform.err();
        ASSERT_TRUE(host.start({Q7X_HOST_BIN, ZEL_PLUGIN}, dir.path("host")));
    }

    void TearDown() override {
        host.stop();
        platform.stop();
        storage.stop();
        busd.stop();
        for (rig::Process* p : {&host, &platform, &storage})
            EXPECT_EQ(rig::sanitizerReport(p->err()), "");
    }

    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    // Runs zel-platform with `args` to its end; its output.
    std::string tool(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {ZEL_PLATFORM_BIN};
        argv.insert(argv.end(), args.begin(), args.end());
        rig::Process p;
        std::string base = dir.path("tool" + std::to_string(++m_tools));
        EXPECT_TRUE(p.start(argv, base));
        EXPECT_TRUE(rig::waitUntil([&] { return !p.running(); }, kTimeout));
        return p.out() + p.err();
    }
    std::string push(const std::string& cmd, const std::string& json) {
        std::string path = dir.path("cmd" + std::to_string(m_tools) + ".json");
        FILE* f = fopen(path.c_str(), "w");
        fputs(json.c_str(), f);
        fclose(f);
        return tool({"push", cmd, path});
    }

    // Every alert record of every message 3215 so far, in order.
    std::vector<Record> records() {
        std::vector<Record> out;
        for (const rig::Message& m : bus->with(3215)) {
            const Bytes& p = m.payload;
            uint32_t count = p.size() >= 8 ? zel::getLe32(p.data(), 0) : 0;
            for (uint32_t i = 0; i < count && 8 + 32 * (i + 1) <= p.size(); ++i) {
                const uint8_t* r = p.data() + 8 + 32 * i;
                out.push_back(Record{zel::getLe32(r, 0), Bytes(r + 16, r + 22), r[24]});
            }
        }
        return out;
    }
    bool waitForRecord(uint32_t id, uint8_t ended) {
        return bus->waitFor(
            [&] {
                for (const Record& r : records())
                    if (r.alertID == id && r.ended == ended) return true;
                return false;
            },
            kTimeout);
    }

    // The frames of the one log the storage keeps.
    std::vector<zelstore::FrameInfo> frames() {
        std::string logs = dir.path("logs"), name;
        if (DIR* d = opendir(logs.c_str())) {
            while (struct dirent* e = readdir(d))
                if (has(e->d_name, ".log")) name = e->d_name;
            closedir(d);
        }
        Bytes bytes;
        std::string why;
        if (name.empty() || !zelstore::readLogFile(logs + "/" + name, bytes, why)) return {};
        return zelstore::scanLog(bytes.data(), bytes.size()).frames;
    }

    rig::TempDir dir;
    rig::Process busd, storage, platform, host;
    std::unique_ptr<rig::BusPeer> bus;
    int m_tools = 0;
};

TEST_F(ProvisioningProcess, RulesFromThePlatformRaiseAlertsAndPushedChangesEndThemInOrder) {
    ASSERT_TRUE(rig::waitUntil([&] { return has(platform.out(), "answered the area state"); },
                               kTimeout))
        << "the service never took its rule set\n" << host.err();

    // Rule 7 of the example: speed above 60 mph for at least 5 s.
    double sent = rig::nowSeconds();
    bus->send(6777, speedMessage(70), false);
    ASSERT_TRUE(waitForRecord(7, 0)) << host.err();
    EXPECT_GE(rig::nowSeconds() - sent, 4.0);  // whole seconds of time()
    bus->send(6777, speedMessage(50), false);
    ASSERT_TRUE(waitForRecord(7, 1));

    // Rule 8 holds at 50 mph until a cover raises its threshold.
    EXPECT_TRUE(has(push("1", "{\"DUMMY\":[{\"ID\":8,\"ATLEAST\":0,\"SPEED\":{\"GT\":40.0}}]}"),
                    "sent CMD 1"));
    ASSERT_TRUE(waitForRecord(8, 0));
    push("5", "{\"DUMMY\":[{\"ID\":8,\"ATLEAST\":0,\"SPEED\":{\"GT\":80.0}}]}");
    ASSERT_TRUE(waitForRecord(8, 1));

    // Rule 9 is tied to an area: it runs only while the vehicle is inside.
    push("1", "{\"DUMMY\":[{\"ID\":9,\"SPEED\":{\"GT\":40.0}}],\"CIRCLE\":[{\"ID\":9}]}");
    EXPECT_TRUE(has(tool({"fence-event", "9", "1"}), "sent fence event of area 9: inside"));
    ASSERT_TRUE(waitForRecord(9, 0));
    tool({"fence-state", "9", "0"});
    ASSERT_TRUE(waitForRecord(9, 1));

    // The platform serves what it was told since: the three rules.
    const std::string request = "{\"CMD\":8,\"SOURCE\":100}";
    bus->send(6796, Bytes(request.begin(), request.end()));
    ASSERT_TRUE(bus->waitFor([&] { return !bus->with(39564).empty(); }, kTimeout));
    Bytes served = bus->with(39564).back().payload;
    Json::Value set;
    std::string error;
    ASSERT_TRUE(platformpeer::parseJson("reply", std::string(served.begin(), served.end()), set,
                                        error))
        << error << "\n" << std::string(served.begin(), served.end());
    std::vector<uint32_t> ids;
    for (const Json::Value& rule : set["DUMMY100"]) ids.push_back(rule["ID"].asUInt());
    EXPECT_EQ(ids, (std::vector<uint32_t>{7, 8, 9}));

    // Every rise and fall, in the order the messages were sent, and a closed
    // frame for each alert ending at its reported end.
    std::vector<Record> r = records();
    std::vector<std::pair<uint32_t, int>> seq;
    for (const Record& x : r) seq.push_back({x.alertID, x.ended});
    EXPECT_EQ(seq, (std::vector<std::pair<uint32_t, int>>{
                       {7, 0}, {7, 1}, {8, 0}, {8, 1}, {9, 0}, {9, 1}}));
    ASSERT_TRUE(rig::waitUntil([&] { return frames().size() == 3; }, kTimeout));
    std::vector<zelstore::FrameInfo> f = frames();
    for (size_t i = 0; i < f.size() && 2 * i + 1 < r.size(); ++i) {
        EXPECT_EQ(f[i].alertID, r[2 * i].alertID);
        EXPECT_EQ(Bytes(f[i].start, f[i].start + 6), r[2 * i].time);
        EXPECT_EQ(Bytes(f[i].end, f[i].end + 6), r[2 * i + 1].time);
    }
    EXPECT_TRUE(host.running());
}

}  // namespace
