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
    }

    // Storage, then the host with the plug-in, both on the clock env sets.
    void startPrograms(const std::vector<std::string>& env = {}) {
        ASSERT_TRUE(storage.start({ZEL_STORAGE_BIN, logs}, dir.path("storage"), env));
        ASSERT_TRUE(bus->waitFor([&] { return !bus->with(2086).empty(); }, kTimeout));
        ASSERT_TRUE(host.start({Q7X_HOST_BIN, ZEL_PLUGIN}, dir.path("host"), env));
    }

    // Answers the service's request for its rules with the one rule of alert 7.
    void provideRules() {
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
        bus->respond(bus->with(6796).front(), Bytes(kRuleSet, kRuleSet + sizeof kRuleSet - 1));
    }

    void TearDown() override {
        host.stop();
        storage.stop();
        busd.stop();
        EXPECT_EQ(rig::sanitizerReport(host.err()), "");
        EXPECT_EQ(rig::sanitizerReport(storage.err()), "");
        EXPECT_EQ(rig::sanitizerReport(busd.err()), "");
    }

    // The frames of the log of one day (yyyymmdd, or 0 for the only log);
    // fails the test when that file is not whole.
    std::vector<zelstore::FrameInfo> frames(int day = 0) {
        std::vector<zelstore::FrameInfo> none;
        DIR* d = opendir(logs.c_str());
        if (!d) return none;
        std::string name;
        while (struct dirent* e = readdir(d)) {
            std::string n = e->d_name;
            if (n.size() > 4 && n.compare(n.size() - 4, 4, ".log") == 0 &&
                (day == 0 || n.find(std::to_string(day)) != std::string::npos))
                name = n;
        }
        closedir(d);
        Bytes bytes;
        std::string why;
        if (name.empty() || !zelstore::readLogFile(logs + "/" + name, bytes, why)) return none;
        zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
        EXPECT_TRUE(scan.whole()) << scan.problem;
        return scan.frames;
    }

    // Records of alert 7 from every message 3215 so far, in order.
    std::vector<Record> records7() {
        std::vector<Record> out;
        for (const rig::Message& m : bus->with(3215))
            for (const Record& r : records(m.payload))
                if (r.alertID == 7) out.push_back(r);
        return out;
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
    startPrograms();
    provideRules();
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

// Storage and service run on one clock shifted to just before midnight. At
// midnight the service ends the alert, finds the new day's log empty, writes
// the open frame into it again, closes it there and raises the alert anew
// with its old start: the new day's log holds both halves.
TEST_F(AlertLogProcess, MidnightClosesTheAlertInTheNewDaysLogAndStartsItAgain) {
    time_t now = time(NULL);
    struct tm tm;
    localtime_r(&now, &tm);
    long toMidnight = 86400 - (tm.tm_hour * 3600L + tm.tm_min * 60L + tm.tm_sec);
    const long kLead = 10;  // seconds of the old day left at start
    startPrograms({"Q7X_TIME_OFFSET_S=" + std::to_string(toMidnight - kLead)});
    provideRules();
    bus->send(6777, speedMessage(70), false);
    ASSERT_TRUE(bus->waitFor([&] { return records7().size() >= 3; }, kLead + kTimeout))
        << host.err();
    std::vector<Record> r = records7();
    EXPECT_EQ(r[0].ended, 0);
    EXPECT_EQ(r[1].ended, 1);
    EXPECT_EQ(r[2].ended, 0);
    EXPECT_EQ(r[2].time, r[0].time);  // the second half keeps the old start
    EXPECT_EQ(r[1].time[3], 0);       // ended at midnight
    EXPECT_NE(r[1].time[2], r[0].time[2]);

    int newDay = 20000000 + r[1].time[0] * 10000 + r[1].time[1] * 100 + r[1].time[2];
    int oldDay = 20000000 + r[0].time[0] * 10000 + r[0].time[1] * 100 + r[0].time[2];
    ASSERT_TRUE(rig::waitUntil([&] { return frames(newDay).size() == 2; }, kTimeout));
    std::vector<zelstore::FrameInfo> after = frames(newDay);
    EXPECT_EQ(Bytes(after[0].start, after[0].start + 6), r[0].time);
    EXPECT_EQ(Bytes(after[0].end, after[0].end + 6), r[1].time);
    EXPECT_EQ(Bytes(after[1].start, after[1].start + 6), r[0].time);
    std::vector<zelstore::FrameInfo> before = frames(oldDay);
    ASSERT_EQ(before.size(), 1u);
    EXPECT_EQ(before[0].alertID, 7u);
}

}  // namespace
