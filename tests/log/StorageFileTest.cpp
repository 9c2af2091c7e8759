// The storage peer's logic without the bus: requests in, files and replies
// out, on a clock the test sets.
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "AlertLogFile.h"
#include "AlertLogStore.h"
#include "ByteOrder.h"
#include "StorageMessages.h"
#include "StorageRequests.h"

namespace {

using namespace storagetest;

// A whole request message: the head as the bus delivers it, then payload.
Bytes message(const Bytes& payload, uint32_t claimed) {
    Bytes m(16 + payload.size(), 0);
    zel::putLe32(m.data(), 0, 3);   // source client
    zel::putLe32(m.data(), 4, 41);  // session
    zel::putLe32(m.data(), 12, claimed);
    for (size_t i = 0; i < payload.size(); ++i) m[16 + i] = payload[i];
    return m;
}

class StorageFiles : public ::testing::Test {
protected:
    StorageFiles()
        : m_dir(makeDir()),
          clock(at(5, 12, 0, 0)),
          store(m_dir, [this] { return clock; },
                [this](const std::string& t) { notices.push_back(t); }),
          requests(store, [this](const std::string& t) { refusals.push_back(t); },
                   [](const std::string&) {}) {}

    ~StorageFiles() override {
        nftw(m_dir.c_str(),
             [](const char* p, const struct stat*, int, struct FTW*) { return remove(p); }, 8,
             FTW_DEPTH | FTW_PHYS);
    }

    static std::string makeDir() {
        char tmpl[] = "/tmp/zel-storage-test.XXXXXX";
        const char* made = mkdtemp(tmpl);
        return made ? made : "/tmp";
    }

    // Reply result of a write, dated as the frame's start; the reply's
    // length is checked on the way.
    int write(const Bytes& frame) {
        Bytes reply;
        Bytes msg = message(writeRequest(frame), 76);
        EXPECT_TRUE(requests.onWrite(reinterpret_cast<const char*>(msg.data()),
                                     static_cast<int>(msg.size()), reply));
        EXPECT_EQ(reply.size(), 8u);
        return static_cast<int8_t>(reply.at(1));
    }
    void modify(const Bytes& frame, uint64_t offset) {
        Bytes msg = message(modifyRequest(frame, offset), 92);
        requests.onModify(reinterpret_cast<const char*>(msg.data()), static_cast<int>(msg.size()));
    }
    // The log size that a size query answers, with the day of its reply.
    uint64_t size(int* day = nullptr) {
        Bytes reply;
        Bytes msg = message(sizeRequest(), 12);
        EXPECT_TRUE(requests.onSize(reinterpret_cast<const char*>(msg.data()),
                                    static_cast<int>(msg.size()), reply));
        EXPECT_EQ(reply.size(), 32u);
        EXPECT_EQ(reply.at(1), 0);
        if (day) *day = reply.at(11);
        return zel::getLe64(reply.data(), 24);
    }

    std::string path(int day) { return store.pathOf(19, zelstore::Day{2026, 3, day}); }
    Bytes fileBytes(int day) {
        Bytes b;
        std::string why;
        zelstore::readLogFile(path(day), b, why);
        return b;
    }
    Bytes frameAt(int day, size_t offset) {
        Bytes b = fileBytes(day);
        if (b.size() < offset + 60) return Bytes();
        return Bytes(b.begin() + offset, b.begin() + offset + 60);
    }
    void appendRaw(int day, const Bytes& bytes) {
        int fd = open(path(day).c_str(), O_WRONLY | O_APPEND);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        close(fd);
    }

    std::string m_dir;
    Common::_datetime_ clock;
    std::vector<std::string> notices;
    std::vector<std::string> refusals;
    zelstore::AlertLogStore store;
    zelstore::StorageRequests requests;
};

TEST_F(StorageFiles, AppendsFramesBehindADocumentedHeadAndReplacesOneAtItsOffset) {
    EXPECT_EQ(size(), 0u);
    EXPECT_FALSE(access(path(5).c_str(), F_OK) == 0);  // a size query makes no file
    Bytes frames[3] = {frameOf(2, at(5, 9, 0, 0)), frameOf(5, at(5, 9, 5, 0)),
                       frameOf(9, at(5, 9, 9, 0))};
    for (const Bytes& f : frames) ASSERT_EQ(write(f), 0);
    int day = 0;
    EXPECT_EQ(size(&day), 264u);
    EXPECT_EQ(day, 5);
    Bytes file = fileBytes(5);
    ASSERT_EQ(file.size(), 264u);
    zelstore::LogHead head;
    std::string why;
    ASSERT_TRUE(zelstore::decodeHead(file.data(), head, why)) << why;
    EXPECT_EQ(head.logType, 19);
    EXPECT_TRUE((head.day == zelstore::Day{2026, 3, 5}));
    EXPECT_EQ(head.writer, "zel-storage");
    Bytes patched = frames[1];
    zel::patchLogFrameEnd(patched.data(), at(5, 10, 0, 0));
    modify(patched, 144);
    EXPECT_TRUE(refusals.empty());
    EXPECT_EQ(frameAt(5, 84), frames[0]);
    EXPECT_EQ(frameAt(5, 144), patched);
    EXPECT_EQ(frameAt(5, 204), frames[2]);
    EXPECT_EQ(size(), 264u);
}

TEST_F(StorageFiles, TheDayOfItsOwnClockChoosesTheLogNeverTheRequestDate) {
    clock = at(5, 23, 59, 59);
    ASSERT_EQ(write(frameOf(3, at(5, 23, 50, 0))), 0);
    EXPECT_EQ(size(), 144u);
    clock = at(6, 0, 0, 0);
    int day = 0;
    EXPECT_EQ(size(&day), 0u);
    EXPECT_EQ(day, 6);
    // After midnight the service writes its open frames again, with their
    // old dates in logDate: they go into the new day's log.
    ASSERT_EQ(write(frameOf(3, at(5, 23, 50, 0))), 0);
    EXPECT_EQ(size(), 144u);
    EXPECT_EQ(fileBytes(5).size(), 144u);
    EXPECT_EQ(fileBytes(6).size(), 144u);
    // A patch of yesterday's frame at an offset today's log lacks is refused.
    modify(frameOf(3, at(5, 23, 50, 0)), 204);
    EXPECT_EQ(refusals.size(), 1u);
}

TEST_F(StorageFiles, MalformedRequestsAreRefusedWithOneLineAndAnsweredWhenTheyCan) {
    ASSERT_EQ(write(frameOf(4, at(5, 9, 0, 0))), 0);
    ASSERT_EQ(write(frameOf(5, at(5, 9, 0, 0))), 0);
    const Bytes before = fileBytes(5);
    auto patch = [](uint32_t alertID, uint64_t offset) {
        return message(modifyRequest(frameOf(alertID, at(5, 9, 0, 0)), offset), 92);
    };
    Bytes badFrame = frameOf(7, at(5, 9, 0, 0));
    badFrame[0] = 'Z';
    Bytes goodWrite = writeRequest(frameOf(7, at(5, 9, 0, 0)));
    struct Row {
        const char* name;
        char kind;  // 'w'rite, 'm'odify, 's'ize
        Bytes msg;
        bool answered;
        const char* reason;
    } rows[] = {
        {"short write", 'w', message(Bytes(10, 0), 10), true, "a payload of 10 bytes"},
        {"head claims more than came", 'w', message(Bytes(20, 0), 76), true,
         "claims 76 payload bytes but 20 arrived"},
        {"frame without magic", 'w', message(writeRequest(badFrame), 76), true,
         "lacks the z2db magic"},
        {"no head", 'w', Bytes(8, 0), false, "a message of 8 bytes is shorter"},
        {"long size query", 's', message(Bytes(13, 0), 13), true, "a payload of 13 bytes"},
        {"short modify", 'm', message(Bytes(91, 0), 91), false, "a payload of 91 bytes"},
        {"length word with only high bits", 'w', message(goodWrite, 0xFF800000u), true,
         "a payload of 0 bytes"},
        {"patch at 0", 'm', patch(4, 0), false, "offset 0 is no frame"},
        {"patch inside the head", 'm', patch(4, 83), false, "offset 83 is no frame"},
        {"patch across frames", 'm', patch(4, 90), false, "offset 90 is no frame"},
        {"patch past the end", 'm', patch(4, 204), false, "offset 204 is no frame"},
        {"patch of another alert", 'm', patch(6, 84), false, "belongs to alert 4, not 6"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        refusals.clear();
        Bytes reply;
        const char* msg = reinterpret_cast<const char*>(row.msg.data());
        int len = static_cast<int>(row.msg.size());
        bool answered = false;
        if (row.kind == 'w') answered = requests.onWrite(msg, len, reply);
        if (row.kind == 's') answered = requests.onSize(msg, len, reply);
        if (row.kind == 'm') requests.onModify(msg, len);
        EXPECT_EQ(answered, row.answered);
        if (answered) {
            EXPECT_EQ(static_cast<int8_t>(reply.at(1)), -1);
        }
        ASSERT_EQ(refusals.size(), 1u);
        EXPECT_NE(refusals[0].find(row.reason), std::string::npos) << refusals[0];
        if (row.kind == 'm') {
            EXPECT_NE(refusals[0].find("refused modify (6668) from client 3 session 41"),
                      std::string::npos);
        }
    }
    EXPECT_EQ(fileBytes(5), before);  // nothing was stored
    EXPECT_EQ(write(frameOf(7, at(5, 9, 0, 0))), 0);  // and it serves on
}

TEST_F(StorageFiles, TornTailIsCutAndADamagedHeadIsMovedAside) {
    ASSERT_EQ(write(frameOf(1, at(5, 9, 0, 0))), 0);
    ASSERT_EQ(write(frameOf(2, at(5, 9, 0, 0))), 0);
    appendRaw(5, Bytes(25, 0xEE));
    EXPECT_EQ(size(), 204u);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("cut a torn frame of 25 bytes"), std::string::npos);

    int fd = open(path(5).c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(pwrite(fd, "X", 1, 3), 1);
    close(fd);
    EXPECT_EQ(size(), 0u);
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_NE(notices[1].find("moved damaged log"), std::string::npos);
    EXPECT_EQ(access((path(5) + ".damaged").c_str(), F_OK), 0);
    ASSERT_EQ(write(frameOf(3, at(5, 9, 0, 0))), 0);
    EXPECT_EQ(size(), 144u);
}

// The reader behind zel-logdump (its decoding: StorageProcessTest's LogDump).
TEST(AlertLogScan, DamageIsCountedInBytes) {
    zelstore::LogHead head = {19, {2026, 3, 5}, {26, 3, 5, 9, 0, 0}, "zel-storage"};
    Bytes file(84);
    zelstore::encodeHead(file.data(), head);
    for (uint32_t id : {7u, 8u}) {
        Bytes f = frameOf(id, at(5, 9, 0, 0));
        file.insert(file.end(), f.begin(), f.end());
    }
    ASSERT_TRUE(zelstore::scanLog(file.data(), file.size()).whole());
    struct Row {
        const char* name;
        std::function<void(Bytes&)> damage;
        uint64_t unreadable;
        const char* problem;
    } rows[] = {
        {"torn tail", [](Bytes& b) { b.resize(b.size() + 17, 0); }, 17, "torn frame of 17 bytes"},
        {"bad frame", [](Bytes& b) { b[84 + 30] ^= 1; }, 60, "frame at offset 84 is damaged"},
        {"bad head", [](Bytes& b) { b[20] ^= 1; }, 204, "head checksum mismatch"},
        {"shorter than a head", [](Bytes& b) { b.resize(50); }, 50, "shorter than the 84-byte"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes damaged = file;
        row.damage(damaged);
        zelstore::LogScan bad = zelstore::scanLog(damaged.data(), damaged.size());
        EXPECT_FALSE(bad.whole());
        EXPECT_EQ(bad.unreadable, row.unreadable);
        EXPECT_NE(bad.problem.find(row.problem), std::string::npos) << bad.problem;
    }
}

}  // namespace
