// zel-storage as a real program on a private bus, and zel-logdump on what it
// wrote.
#include <dirent.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <memory>

#include "AlertLogFile.h"
#include "AlertLogStore.h"
#include "ByteOrder.h"
#include "LogFrame.h"
#include "ProcessRig.h"

namespace {

using rig::Bytes;

const double kTimeout = 20;  // generous bound of every wait

Common::_datetime_ at(int hour, int minute, int second) {
    Common::_datetime_ dt = {26, 3, 5, static_cast<unsigned char>(hour),
                             static_cast<unsigned char>(minute),
                             static_cast<unsigned char>(second), 4, 0};
    return dt;
}

Bytes frameOf(uint32_t alertID, const Common::_datetime_& start) {
    Bytes f(60);
    zel::buildLogFrame(f.data(), alertID, start);
    return f;
}

Bytes writeRequest(const Bytes& frame) {
    Bytes p(76, 0);
    zel::fillWriteRequest(p.data(), frame.data() + zel::kFrameAlarmStart, frame.data());
    return p;
}

Bytes modifyRequest(const Bytes& frame, uint64_t offset) {
    Bytes p(92, 0);
    zel::fillModifyRequest(p.data(), frame.data() + zel::kFrameAlarmEnd, offset, frame.data());
    return p;
}

Bytes sizeRequest() {
    Bytes p(12);
    zel::buildSizeQuery(p.data());
    return p;
}

std::vector<std::string> logFiles(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (!d) return names;
    while (struct dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".log") == 0)
            names.push_back(name);
    }
    closedir(d);
    return names;
}

// Broker, storage peer and the test's client, on a bus in a temporary folder.
class StorageProcess : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(rig::startBroker(dir, busd));
        bus.reset(new rig::BusPeer());  // on the bus just started
        logs = dir.path("logs");
        client().listen(2086);
        client().listen(39429);
        client().listen(39439);
        startStorage();
    }

    void TearDown() override {
        storage.stop();
        busd.stop();
        EXPECT_EQ(rig::sanitizerReport(storage.err()), "");
    }

    // Starts a storage peer and waits for its first announcement: from then
    // on its requests are subscribed.
    void startStorage(const std::vector<std::string>& env = {}) {
        ASSERT_TRUE(storage.start({ZEL_STORAGE_BIN, logs}, dir.path("storage"), env));
        pid_t pid = storage.pid();
        ASSERT_TRUE(client().waitFor(
            [&] {
                for (const rig::Message& m : client().with(2086))
                    if (zel::getLe32(m.payload.data(), 0) == static_cast<uint32_t>(pid))
                        return m.payload.size() >= 4;
                return false;
            },
            kTimeout))
            << "the storage peer never announced itself";
    }

    // Result byte of the reply to one write.
    int write(const Bytes& payload) {
        size_t before = client().with(39429).size();
        client().send(6661, payload);
        EXPECT_TRUE(
            client().waitFor([&] { return client().with(39429).size() > before; }, kTimeout));
        std::vector<rig::Message> replies = client().with(39429);
        if (replies.size() <= before) return 99;
        EXPECT_EQ(replies.back().payload.size(), 8u);
        return static_cast<int8_t>(replies.back().payload.at(1));
    }

    uint64_t size() {
        size_t before = client().with(39439).size();
        client().send(6671, sizeRequest());
        EXPECT_TRUE(
            client().waitFor([&] { return client().with(39439).size() > before; }, kTimeout));
        std::vector<rig::Message> replies = client().with(39439);
        if (replies.size() <= before) return ~0ull;
        EXPECT_EQ(replies.back().payload.size(), 32u);
        EXPECT_EQ(replies.back().payload.at(1), 0);
        return zel::getLe64(replies.back().payload.data(), 24);
    }

    zelstore::LogScan scanTheLog() {
        std::vector<std::string> files = logFiles(logs);
        EXPECT_EQ(files.size(), 1u);
        Bytes bytes;
        std::string why;
        if (files.empty() || !zelstore::readLogFile(logs + "/" + files[0], bytes, why))
            return zelstore::LogScan();
        return zelstore::scanLog(bytes.data(), bytes.size());
    }

    rig::TempDir dir;
    rig::Process busd;
    rig::Process storage;
    std::string logs;
    std::unique_ptr<rig::BusPeer> bus;
    rig::BusPeer& client() { return *bus; }
};

TEST_F(StorageProcess, AppendsPatchesAndTellsTheSizeOfTheDaysLog) {
    EXPECT_EQ(size(), 0u);
    Bytes frame = frameOf(7, at(12, 34, 56));
    double t0 = rig::nowSeconds();
    ASSERT_EQ(write(writeRequest(frame)), 0);
    EXPECT_EQ(size(), 144u);
    double roundTrip = rig::nowSeconds() - t0;
    RecordProperty("write_and_size_round_trip_ms", static_cast<int>(roundTrip * 1000));

    zel::patchLogFrameEnd(frame.data(), at(12, 40, 0));
    client().send(6668, modifyRequest(frame, 84));
    EXPECT_EQ(size(), 144u);  // answered after the patch: one client, one order
    zelstore::LogScan scan = scanTheLog();
    ASSERT_TRUE(scan.whole()) << scan.problem;
    ASSERT_EQ(scan.frames.size(), 1u);
    EXPECT_EQ(scan.frames[0].alertID, 7u);
    EXPECT_EQ(zelstore::stampText(scan.frames[0].end), "2026-03-05 12:40:00");
}

TEST_F(StorageProcess, RefusesAMalformedRequestWithOneLineAndServesOn) {
    EXPECT_EQ(write(Bytes(10, 0)), -1);
    client().send(6668, Bytes(3, 0));
    EXPECT_EQ(write(writeRequest(frameOf(3, at(9, 0, 0)))), 0);
    EXPECT_EQ(size(), 144u);
    std::string err = storage.err();
    EXPECT_NE(err.find("zel-storage: refused write (6661) from client"), std::string::npos) << err;
    EXPECT_NE(err.find("zel-storage: refused modify (6668) from client"), std::string::npos)
        << err;
    EXPECT_TRUE(storage.running());
}

TEST_F(StorageProcess, AcknowledgedFramesSurviveAKillRightAfterTheAck) {
    const int kFrames = 5;
    int acked = 0;
    // The kill goes out from inside the callback of the last ack.
    client().onEach = [&](const rig::Message& m) {
        if (m.id != 39429 || m.payload.size() != 8 || m.payload[1] != 0) return;
        if (++acked == kFrames) kill(storage.pid(), SIGKILL);
    };
    for (int i = 0; i < kFrames; ++i)
        client().send(6661, writeRequest(frameOf(100 + i, at(9, 0, i))));
    ASSERT_TRUE(client().waitFor([&] { return acked == kFrames; }, kTimeout));
    storage.kill9();
    zelstore::LogScan scan = scanTheLog();
    ASSERT_TRUE(scan.whole()) << scan.problem;
    ASSERT_EQ(scan.frames.size(), static_cast<size_t>(kFrames));
    for (int i = 0; i < kFrames; ++i) EXPECT_EQ(scan.frames[i].alertID, 100u + i);

    // A new storage peer on the same folder goes on with the same log.
    startStorage();
    EXPECT_EQ(size(), 84u + 60u * kFrames);
}

// zel-logdump as a person runs it.
int runDump(const std::string& path, std::string& out, std::string& err, rig::TempDir& dir) {
    rig::Process dump;
    dump.start({ZEL_LOGDUMP_BIN, path}, dir.path("dump"));
    int status = 0;
    for (int i = 0; i < 1000 && waitpid(dump.pid(), &status, WNOHANG) == 0; ++i) usleep(10000);
    out = dump.out();
    err = dump.err();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(LogDump, PrintsOneLinePerFrameAndRefusesADamagedFile) {
    rig::TempDir dir;
    Common::_datetime_ clock = at(9, 0, 0);
    zelstore::AlertLogStore store(dir.root(), [&] { return clock; }, [](const std::string&) {});
    Bytes open7 = frameOf(7, at(9, 0, 0));
    Bytes closed8 = frameOf(8, at(9, 0, 5));
    zel::patchLogFrameEnd(closed8.data(), at(9, 1, 45));
    uint64_t offset = 0;
    std::string why;
    ASSERT_EQ(store.append(19, open7.data(), offset, why), 0) << why;
    ASSERT_EQ(store.append(19, closed8.data(), offset, why), 0) << why;
    std::string path = store.pathOf(19, zelstore::Day{2026, 3, 5});

    std::string out, err;
    EXPECT_EQ(runDump(path, out, err, dir), 0) << err;
    EXPECT_EQ(out,
              "offset 84     alert 7      start 2026-03-05 09:00:00  end -                    "
              "duration -\n"
              "offset 144    alert 8      start 2026-03-05 09:00:05  end 2026-03-05 09:01:45  "
              "duration 100 s\n");

    FILE* f = fopen(path.c_str(), "ab");
    ASSERT_NE(f, nullptr);
    fwrite("torn", 1, 4, f);
    fclose(f);
    EXPECT_EQ(runDump(path, out, err, dir), 1);
    EXPECT_EQ(out, "");
    EXPECT_NE(err.find("is damaged: 4 of 208 bytes could not be read"), std::string::npos) << err;
}

}  // namespace
