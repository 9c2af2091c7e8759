#include "AlertLogStore.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "ByteOrder.h"
#include "LogFrame.h"

namespace zelstore {

namespace {

std::string errnoText(const char* what) { return std::string(what) + ": " + std::generic_category().message(errno); }

bool writeAll(int fd, const uint8_t* data, size_t n, off_t at) {
    while (n > 0) {
        ssize_t done = pwrite(fd, data, n, at);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) {
            if (done == 0) errno = EIO;
            return false;
        }
        data += done;
        n -= static_cast<size_t>(done);
        at += done;
    }
    return true;
}

bool readAll(int fd, uint8_t* data, size_t n, off_t at) {
    while (n > 0) {
        ssize_t done = pread(fd, data, n, at);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        data += done;
        n -= static_cast<size_t>(done);
        at += done;
    }
    return true;
}

int resultOfErrno() { return errno == ENOSPC || errno == EDQUOT ? kNoSpace : kIoError; }

}  // namespace

AlertLogStore::AlertLogStore(std::string dir, Clock clock, Notice notice, std::string writer)
    : m_dir(std::move(dir)),
      m_clock(std::move(clock)),
      m_notice(std::move(notice)),
      m_writer(std::move(writer)) {}

Day AlertLogStore::today() const { return dayOf(m_clock()); }

std::string AlertLogStore::pathOf(uint8_t logType, const Day& day) const {
    return m_dir + "/" + logFileName(logType, day);
}

void AlertLogStore::syncDir() {
    int fd = open(m_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

bool AlertLogStore::createLog(const std::string& path, uint8_t logType, const Day& day,
                              std::string& why) {
    LogHead head;
    head.logType = logType;
    head.day = day;
    Common::_datetime_ now = m_clock();
    memcpy(head.created, &now, sizeof head.created);
    head.writer = m_writer;
    uint8_t bytes[kHeadSize];
    encodeHead(bytes, head);

    std::string tmp = path + ".tmp";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        why = errnoText("create");
        return false;
    }
    bool ok = writeAll(fd, bytes, sizeof bytes, 0) && fdatasync(fd) == 0;
    if (!ok) why = errnoText("write head");
    close(fd);
    if (ok && rename(tmp.c_str(), path.c_str()) != 0) {
        why = errnoText("rename");
        ok = false;
    }
    if (!ok) {
        unlink(tmp.c_str());
        return false;
    }
    syncDir();
    return true;
}

int AlertLogStore::openLog(uint8_t logType, bool create, uint64_t& length, int& result,
                           std::string& why) {
    Day day = today();
    std::string path = pathOf(logType, day);
    for (int attempt = 0; attempt < 2; ++attempt) {
        int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0) {
            if (errno != ENOENT) {
                why = errnoText("open");
                result = kIoError;
                return -1;
            }
            if (!create) {
                why = "no log for " + logFileName(logType, day);
                result = kNoLog;
                return -1;
            }
            if (!createLog(path, logType, day, why)) {
                result = resultOfErrno();
                return -1;
            }
            continue;
        }
        struct stat st;
        if (fstat(fd, &st) != 0) {
            why = errnoText("stat");
            close(fd);
            result = kIoError;
            return -1;
        }
        uint64_t fileSize = static_cast<uint64_t>(st.st_size);
        uint8_t headBytes[kHeadSize];
        LogHead head;
        std::string damage;
        if (fileSize < kHeadSize || !readAll(fd, headBytes, kHeadSize, 0))
            damage = "shorter than its head";
        else if (!decodeHead(headBytes, head, damage))
            ;
        else if (head.logType != logType || !(head.day == day))
            damage = "its head names another log";
        if (!damage.empty()) {
            close(fd);
            // Keep every damaged log a day may have: the first free name.
            std::string aside = path + ".damaged";
            for (int n = 1; n < 1000 && access(aside.c_str(), F_OK) == 0; ++n)
                aside.assign(path).append(".damaged.").append(std::to_string(n));
            if (rename(path.c_str(), aside.c_str()) != 0) {
                why = errnoText("move a damaged log aside");
                result = kIoError;
                return -1;
            }
            m_notice(std::string("moved damaged log ")
                         .append(path)
                         .append(" aside (")
                         .append(damage)
                         .append(")"));
            continue;
        }
        uint64_t torn = (fileSize - kHeadSize) % kFrameSize;
        if (torn != 0) {
            if (ftruncate(fd, static_cast<off_t>(fileSize - torn)) != 0 || fdatasync(fd) != 0) {
                why = errnoText("cut a torn frame");
                close(fd);
                result = kIoError;
                return -1;
            }
            fileSize -= torn;
            m_notice("cut a torn frame of " + std::to_string(torn) + " bytes from the end of " +
                     path);
        }
        length = fileSize;
        result = kStored;
        return fd;
    }
    why = "could not open " + path;
    result = kIoError;
    return -1;
}

int AlertLogStore::append(uint8_t logType, const uint8_t* frame, uint64_t& offset,
                          std::string& why) {
    uint64_t length = 0;
    int result = kStored;
    int fd = openLog(logType, true, length, result, why);
    if (fd < 0) return result;
    off_t at = static_cast<off_t>(length);
    if (!writeAll(fd, frame, kFrameSize, at) || fdatasync(fd) != 0) {
        result = resultOfErrno();
        why = errnoText("append");
        // Leave the log whole: a frame that was not acknowledged must not stay.
        if (ftruncate(fd, at) == 0) fdatasync(fd);
        close(fd);
        return result;
    }
    close(fd);
    offset = length;
    return kStored;
}

int AlertLogStore::replace(uint8_t logType, uint64_t offset, const uint8_t* frame,
                           std::string& why) {
    uint64_t length = 0;
    int result = kStored;
    int fd = openLog(logType, false, length, result, why);
    if (fd < 0) return result;
    char text[160];
    if (offset < kHeadSize || (offset - kHeadSize) % kFrameSize != 0 ||
        offset + kFrameSize > length) {
        snprintf(text, sizeof text, "offset %llu is no frame of %s (%llu bytes)",
                 static_cast<unsigned long long>(offset),
                 logFileName(logType, today()).c_str(), static_cast<unsigned long long>(length));
        why = text;
        close(fd);
        return kBadOffset;
    }
    uint8_t old[kFrameSize];
    if (!readAll(fd, old, kFrameSize, static_cast<off_t>(offset))) {
        why = errnoText("read frame");
        close(fd);
        return kIoError;
    }
    uint32_t oldId = zel::getLe32(old, zel::kFrameAlertId);
    uint32_t newId = zel::getLe32(frame, zel::kFrameAlertId);
    if (zel::isLogFrame(old) && oldId != newId) {
        snprintf(text, sizeof text, "the frame at offset %llu belongs to alert %u, not %u",
                 static_cast<unsigned long long>(offset), oldId, newId);
        why = text;
        close(fd);
        return kBadOffset;
    }
    if (!writeAll(fd, frame, kFrameSize, static_cast<off_t>(offset)) || fdatasync(fd) != 0) {
        result = resultOfErrno();
        why = errnoText("replace");
        close(fd);
        return result;
    }
    close(fd);
    return kStored;
}

int AlertLogStore::size(uint8_t logType, uint64_t& bytes, Day& day, std::string& why) {
    day = today();
    bytes = 0;
    int result = kStored;
    int fd = openLog(logType, false, bytes, result, why);
    if (fd < 0) {
        if (result != kNoLog) return result;
        bytes = 0;
        return kStored;
    }
    close(fd);
    return kStored;
}

}  // namespace zelstore
