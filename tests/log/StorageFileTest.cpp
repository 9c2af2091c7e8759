// The storage peer's logic without the bus: requests in, files and replies
// out, on a clock the test sets; and the reader behind zel-logdump.
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
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
    std::copy(payload.begin(), payload.end(), m.begin() + 16);
    return m;
}

class StorageFiles : public ::testing::Test {
protected:
    ~StorageFiles() override {
        nftw(m_dir.c_str(), [](const char* p, const struct stat*, int, FTW*) { return remove(p); },
             8, FTW_DEPTH | FTW_PHYS);
    }
    // Whether a reply went out to a request of `kind`, and its result.
    bool ask(char kind, const Bytes& msg, int* result = nullptr) {
        const char* p = reinterpret_cast<const char*>(msg.data());
        int len = static_cast<int>(msg.size());
        reply.clear();
        bool answered = kind == 'w' ? requests.onWrite(p, len, reply)
                        : kind == 's' ? requests.onSize(p, len, reply) : false;
        if (kind == 'm') requests.onModify(p, len);
        if (result) *result = answered ? static_cast<int8_t>(reply.at(1)) : 99;
        return answered;
    }
    int write(uint32_t id) {
        int result = 99;
        ask('w', message(writeRequest(frameOf(id, at(5, 9, 0, 0))), 76), &result);
        EXPECT_EQ(reply.size(), 8u);
        return result;
    }
    uint64_t size() {
        ask('s', message(sizeRequest(), 12));
        EXPECT_EQ(reply.size(), 32u);
        return zel::getLe64(reply.data(), 24);
    }
    std::string path(int day) { return store.pathOf(19, zelstore::Day{2026, 3, day}); }
    Bytes fileBytes(int day) {
        Bytes b;
        std::string why;
        zelstore::readLogFile(path(day), b, why);
        return b;
    }
    char m_tmpl[32] = "/tmp/zel-storage-test.XXXXXX";
    std::string m_dir = mkdtemp(m_tmpl);
    Common::_datetime_ clock = at(5, 12, 0, 0);
    std::vector<std::string> notices, refusals;
    Bytes reply;
    zelstore::AlertLogStore store{m_dir, [this] { return clock; },
                                  [this](const std::string& t) { notices.push_back(t); }};
    zelstore::StorageRequests requests{
        store, [this](const std::string& t) { refusals.push_back(t); }, [](const std::string&) {}};
};

TEST_F(StorageFiles, AppendsFramesBehindAHeadReplacesOneAtItsOffsetAndKeepsADayPerLog) {
    EXPECT_EQ(size(), 0u);
    EXPECT_NE(access(path(5).c_str(), F_OK), 0);  // a size query makes no file
    for (uint32_t id : {2, 5, 9}) ASSERT_EQ(write(id), 0);
    EXPECT_EQ(size(), 264u);
    EXPECT_EQ(reply.at(11), 5);  // the day of the reply
    Bytes file = fileBytes(5);
    ASSERT_EQ(file.size(), 264u);
    zelstore::LogHead head;
    std::string why;
    ASSERT_TRUE(zelstore::decodeHead(file.data(), head, why)) << why;
    EXPECT_EQ(head.logType, 19);
    EXPECT_TRUE((head.day == zelstore::Day{2026, 3, 5}));
    EXPECT_EQ(head.writer, "zel-storage");
    Bytes patched = frameOf(5, at(5, 9, 0, 0));
    zel::patchLogFrameEnd(patched.data(), at(5, 10, 0, 0));
    ask('m', message(modifyRequest(patched, 144), 92));
    EXPECT_TRUE(refusals.empty());
    std::copy(patched.begin(), patched.end(), file.begin() + 144);
    EXPECT_EQ(fileBytes(5), file);
    // The day of its own clock chooses the log, never the request's date.
    clock = at(6, 0, 0, 0);
    EXPECT_EQ(size(), 0u);
    EXPECT_EQ(reply.at(11), 6);
    ASSERT_EQ(write(3), 0);  // dated the day before
    EXPECT_EQ(fileBytes(6).size(), 144u);
    EXPECT_EQ(fileBytes(5), file);
}

TEST_F(StorageFiles, MalformedRequestsAreRefusedWithOneLineAndAnsweredWhenTheyCan) {
    ASSERT_EQ(write(4), 0);
    ASSERT_EQ(write(5), 0);
    const Bytes before = fileBytes(5);
    auto patch = [](uint32_t id, uint64_t offset) {
        return message(modifyRequest(frameOf(id, at(5, 9, 0, 0)), offset), 92);
    };
    Bytes badFrame = frameOf(7, at(5, 9, 0, 0));
    badFrame[0] = 'Z';
    struct Row { char kind; Bytes msg; bool answered; const char* reason; } rows[] = {
        {'w', message(Bytes(10, 0), 10), true, "a payload of 10 bytes"},
        {'w', message(Bytes(20, 0), 76), true, "claims 76 payload bytes but 20 arrived"},
        {'w', message(writeRequest(badFrame), 76), true, "lacks the z2db magic"},
        {'w', Bytes(8, 0), false, "a message of 8 bytes is shorter"},
        {'w', message(writeRequest(frameOf(7, at(5, 9, 0, 0))), 0xFF800000u), true,
         "a payload of 0 bytes"},
        {'s', message(Bytes(13, 0), 13), true, "a payload of 13 bytes"},
        {'m', message(Bytes(91, 0), 91), false, "a payload of 91 bytes"},
        {'m', patch(4, 83), false, "offset 83 is no frame"},
        {'m', patch(4, 90), false, "offset 90 is no frame"},
        {'m', patch(4, 204), false, "offset 204 is no frame"},
        {'m', patch(6, 84), false, "belongs to alert 4, not 6"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reason);
        refusals.clear();
        int result = 99;
        EXPECT_EQ(ask(row.kind, row.msg, &result), row.answered);
        EXPECT_EQ(result, row.answered ? -1 : 99);
        ASSERT_EQ(refusals.size(), 1u);
        EXPECT_NE(refusals[0].find(row.reason), std::string::npos) << refusals[0];
    }
    EXPECT_EQ(refusals[0].rfind("refused modify (6668) from client 3 session 41", 0), 0u);
    EXPECT_EQ(fileBytes(5), before);  // nothing was stored
    EXPECT_EQ(write(7), 0);           // and it serves on
}

TEST_F(StorageFiles, TornTailIsCutAndADamagedHeadIsMovedAside) {
    ASSERT_EQ(write(1), 0);
    ASSERT_EQ(write(2), 0);
    // Bytes `text` at `offset` of the log file, as a crash or a bad disk leaves them.
    auto damage = [&](const std::string& text, off_t offset) {
        int fd = open(path(5).c_str(), O_WRONLY);
        EXPECT_EQ(pwrite(fd, text.data(), text.size(), offset), ssize_t(text.size()));
        close(fd);
    };
    damage(std::string(25, 'E'), 204);
    EXPECT_EQ(size(), 204u);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("cut a torn frame of 25 bytes"), std::string::npos);
    damage("X", 3);  // into the head
    EXPECT_EQ(size(), 0u);
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_NE(notices[1].find("moved damaged log"), std::string::npos);
    EXPECT_EQ(access((path(5) + ".damaged").c_str(), F_OK), 0);
    ASSERT_EQ(write(3), 0);
    EXPECT_EQ(size(), 144u);
}

// The reader behind zel-logdump.
TEST_F(StorageFiles, ScanCountsDamageInBytes) {
    ASSERT_EQ(write(7), 0);
    ASSERT_EQ(write(8), 0);
    const Bytes file = fileBytes(5);
    ASSERT_TRUE(zelstore::scanLog(file.data(), file.size()).whole());
    // Flip a bit of byte `at` (0: none), then resize (0: keep).
    struct Row { size_t at, resize; uint64_t unreadable; const char* problem; } rows[] = {
        {0, 204 + 17, 17, "torn frame of 17 bytes"},
        {84 + 30, 0, 60, "frame at offset 84 is damaged"},
        {20, 0, 204, "head checksum mismatch"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.problem);
        Bytes damaged = file;
        damaged[row.at] ^= row.at ? 1 : 0;
        if (row.resize) damaged.resize(row.resize, 0);
        zelstore::LogScan bad = zelstore::scanLog(damaged.data(), damaged.size());
        EXPECT_FALSE(bad.whole());
        EXPECT_EQ(bad.unreadable, row.unreadable);
        EXPECT_NE(bad.problem.find(row.problem), std::string::npos) << bad.problem;
    }
}

}  // namespace
