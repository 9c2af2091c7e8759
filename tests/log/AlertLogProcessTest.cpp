// The whole road of one alert with real processes: broker, host with the
// plug-in, storage peer, and this test in the platform's place. The alert's
// frame is written, patched on a tick and closed on its fall, and the log
// file decodes to what message 3215 reported.
#include <dirent.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "AlertLogFile.h"
#include "ByteOrder.h"
#include "ProcessRig.h"

namespace {

using rig::Bytes;

const double kTimeout = 20;  // generous bound of every wait

const char kRuleSet[] =
    "{\"DUMMY100\":[{\"ID\":7,\"ATLEAST\":0,\"SPEED\":{\"GT\":60.0}}],"
    "\"CIRCLE100\":[],\"LINE100\":[],\"POLY100\":[],\"RECT100\":[]}";

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

std::vector<Record> records(const Bytes& payload) {
    std::vector<Record> out;
    if (payload.size() < 8) return out;
    uint32_t count = zel::getLe32(payload.data(), 0);
    for (uint32_t i = 0; i < count && 8 + 32 * (i + 1) <= payload.size(); ++i) {
        const uint8_t* r = payload.data() + 8 + 32 * i;
        out.push_back(Record{zel::getLe32(r, 0), Bytes(r + 16, r + 22), r[24]});
    }
    return out;
}

class AlertLogProcess : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(rig::startBroker(dir, busd));
        bus.reset(new rig::BusPeer());
        for (unsigned int id : {2086u, 3215u, 6796u, 3216u | 0x8000u}) bus->listen(id);
        logs = dir.path("logs");
        ASSERT_TRUE(storage.start({ZEL_STORAGE_BIN, logs}, dir.path("storage")));
        ASSERT_TRUE(bus->waitFor([&] { return !bus->with(2086).empty(); }, kTimeout));
        ASSERT_TRUE(host.start({Q7X_HOST_BIN, ZEL_PLUGIN}, dir.path("host")));
    }

    void TearDown() override {
        host.stop();
        storage.stop();
        busd.stop();
    }

    // The one log file's frames; fails the test when it is not whole.
    std::vector<zelstore::FrameInfo> frames() {
        std::vector<zelstore::FrameInfo> none;
        DIR* d = opendir(logs.c_str());
        if (!d) return none;
        std::string name;
        while (struct dirent* e = readdir(d))
            if (std::string(e->d_name).find(".log") != std::string::npos) name = e->d_name;
        closedir(d);
        Bytes bytes;
        std::string why;
        if (name.empty() || !zelstore::readLogFile(logs + "/" + name, bytes, why)) return none;
        zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
        EXPECT_TRUE(scan.whole()) << scan.problem;
        return scan.frames;
    }

    // The first record of alert 7 with this bEnded, waiting for it.
    bool waitForRecord(uint8_t ended, Record& out) {
        return bus->waitFor(
            [&] {
                for (const rig::Message& m : bus->with(3215))
                    for (const Record& r : records(m.payload))
                        if (r.alertID == 7 && r.ended == ended) {
                            out = r;
                            return true;
                        }
                return false;
            },
            kTimeout);
    }

    rig::TempDir dir;
    rig::Process busd, storage, host;
    std::unique_ptr<rig::BusPeer> bus;
    std::string logs;
};

TEST_F(AlertLogProcess, AlertFrameIsWrittenPatchedOnTicksAndClosedOnItsFall) {
    // The service asks for its rules once storage has announced itself.
    bool asked = bus->waitFor(
        [&] {
            for (const rig::Message& m : bus->with(6796))
                if (std::string(m.payload.begin(), m.payload.end()).find("\"CMD\":8") !=
                    std::string::npos)
                    return true;
            return false;
        },
        kTimeout);
    ASSERT_TRUE(asked) << "the service never asked for its rules\n" << host.err();
    rig::Message request = bus->with(6796).front();
    bus->respond(request, Bytes(kRuleSet, kRuleSet + sizeof kRuleSet - 1));

    double t0 = rig::nowSeconds();
    bus->send(6777, speedMessage(70), false);
    Record began;
    ASSERT_TRUE(waitForRecord(0, began)) << host.err();
    RecordProperty("rise_to_report_ms", static_cast<int>((rig::nowSeconds() - t0) * 1000));
    std::vector<zelstore::FrameInfo> f = frames();
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].alertID, 7u);
    EXPECT_EQ(Bytes(f[0].start, f[0].start + 6), began.time);

    // The state query lists the running alert with its start.
    bus->send(3216, Bytes());
    ASSERT_TRUE(bus->waitFor([&] { return !bus->with(3216 | 0x8000).empty(); }, kTimeout));
    std::vector<Record> running = records(bus->with(3216 | 0x8000).back().payload);
    ASSERT_EQ(running.size(), 1u);
    EXPECT_EQ(running[0].time, began.time);

    // A tick patches the frame within about five seconds.
    ASSERT_TRUE(rig::waitUntil(
        [&] {
            std::vector<zelstore::FrameInfo> now = frames();
            return now.size() == 1 && now[0].patched();
        },
        kTimeout));

    bus->send(6777, speedMessage(50), false);
    Record ended;
    ASSERT_TRUE(waitForRecord(1, ended)) << host.err();
    // The patch is sent before the record; a size query orders them.
    ASSERT_TRUE(rig::waitUntil(
        [&] {
            std::vector<zelstore::FrameInfo> now = frames();
            return now.size() == 1 && Bytes(now[0].end, now[0].end + 6) == ended.time;
        },
        kTimeout))
        << zelstore::stampText(frames().at(0).end);
    EXPECT_TRUE(host.running());
}

}  // namespace
