#include "AlertLogFile.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "ByteOrder.h"
#include "CommandLine.h"

namespace zelstore {

Day dayOf(const Common::_datetime_& dt) {
    Day d = {2000 + dt.year, dt.month, dt.day};
    return d;
}

uint32_t crc32(const uint8_t* data, size_t n) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void encodeHead(uint8_t* out, const LogHead& head) {
    memset(out, 0, kHeadSize);
    memcpy(out + kHeadMagic, kMagic, sizeof kMagic);
    zel::putLe16(out, kHeadVersion, kFormatVersion);
    zel::putLe16(out, kHeadHeadSize, static_cast<uint16_t>(kHeadSize));
    zel::putLe16(out, kHeadFrameSize, static_cast<uint16_t>(kFrameSize));
    out[kHeadLogType] = head.logType;
    zel::putLe16(out, kHeadYear, static_cast<uint16_t>(head.day.year));
    out[kHeadMonth] = static_cast<uint8_t>(head.day.month);
    out[kHeadDay] = static_cast<uint8_t>(head.day.day);
    memcpy(out + kHeadCreated, head.created, sizeof head.created);
    // The head was cleared above and at most 31 bytes are copied: the name
    // stays 0-terminated.
    memcpy(out + kHeadWriter, head.writer.data(),  // NOLINT(bugprone-not-null-terminated-result)
           head.writer.size() < kHeadWriterSize ? head.writer.size() : kHeadWriterSize - 1);
    zel::putLe32(out, kHeadCrc, crc32(out, kHeadCrc));
}

bool decodeHead(const uint8_t* in, LogHead& head, std::string& why) {
    if (memcmp(in + kHeadMagic, kMagic, sizeof kMagic) != 0) {
        why = "no alert log magic";
        return false;
    }
    if (zel::getLe32(in, kHeadCrc) != crc32(in, kHeadCrc)) {
        why = "head checksum mismatch";
        return false;
    }
    if (zel::getLe16(in, kHeadVersion) != kFormatVersion ||
        zel::getLe16(in, kHeadHeadSize) != kHeadSize ||
        zel::getLe16(in, kHeadFrameSize) != kFrameSize) {
        why = "unknown format version or sizes";
        return false;
    }
    head.logType = in[kHeadLogType];
    head.day.year = zel::getLe16(in, kHeadYear);
    head.day.month = in[kHeadMonth];
    head.day.day = in[kHeadDay];
    memcpy(head.created, in + kHeadCreated, sizeof head.created);
    const char* w = reinterpret_cast<const char*>(in + kHeadWriter);
    head.writer.assign(w, strnlen(w, kHeadWriterSize));
    return true;
}

std::string logFileName(uint8_t logType, const Day& day) {
    char name[64];
    snprintf(name, sizeof name, "zel-%u-%04d%02d%02d.log", logType, day.year, day.month,
             day.day);
    return name;
}

bool FrameInfo::patched() const {
    for (int i = 0; i < 6; ++i)
        if (end[i]) return true;
    return false;
}

LogScan scanLog(const uint8_t* data, size_t size) {
    LogScan scan;
    char text[160];
    if (size < kHeadSize) {
        snprintf(text, sizeof text, "shorter than the %zu-byte head", kHeadSize);
        scan.problem = text;
        scan.unreadable = size;
        return scan;
    }
    std::string why;
    if (!decodeHead(data, scan.head, why)) {
        scan.problem = "its " + std::to_string(kHeadSize) + "-byte head is damaged (" + why + ")";
        scan.unreadable = size;
        return scan;
    }
    scan.headOk = true;
    // Every damaged frame is named, so a reader can tell which records are
    // missing from what it shows; a long run of them is cut short.
    const size_t kNamedAtMost = 8;
    std::vector<size_t> damaged;
    size_t pos = kHeadSize;
    for (; pos + kFrameSize <= size; pos += kFrameSize) {
        const uint8_t* f = data + pos;
        if (!zel::isLogFrame(f)) {
            damaged.push_back(pos);
            scan.unreadable += kFrameSize;
            continue;
        }
        FrameInfo info;
        info.offset = pos;
        info.alertID = zel::getLe32(f, zel::kFrameAlertId);
        memcpy(info.start, f + zel::kFrameAlarmStart, sizeof info.start);
        memcpy(info.end, f + zel::kFrameAlarmEnd, sizeof info.end);
        scan.frames.push_back(info);
    }
    if (!damaged.empty()) {
        scan.problem = damaged.size() == 1 ? "the frame at offset " : "the frames at offsets ";
        for (size_t i = 0; i < damaged.size() && i < kNamedAtMost; ++i)
            scan.problem += (i ? ", " : "") + std::to_string(damaged[i]);
        if (damaged.size() > kNamedAtMost)
            scan.problem += " and " + std::to_string(damaged.size() - kNamedAtMost) + " more";
        scan.problem += damaged.size() == 1 ? " is damaged" : " are damaged";
    }
    if (pos < size) {
        snprintf(text, sizeof text, "it ends in a torn frame of %zu bytes at offset %zu",
                 size - pos, pos);
        scan.problem += (scan.problem.empty() ? "" : "; ") + std::string(text);
        scan.unreadable += size - pos;
    }
    return scan;
}

std::string damageText(const std::string& path, const LogScan& scan, size_t size) {
    const size_t n = scan.frames.size();
    return path + " is damaged: " + std::to_string(scan.unreadable) + " of " +
           std::to_string(size) + " bytes could not be read (" + scan.problem + "); " +
           std::to_string(n) + (n == 1 ? " whole frame" : " whole frames") + " shown";
}

bool readLogFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& why) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        why = cli::errorText(errno);
        return false;
    }
    bytes.clear();
    uint8_t buf[4096];
    size_t n;
    errno = 0;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
    bool failed = ferror(f) != 0;
    if (failed) why = cli::errorText(errno != 0 ? errno : EIO);
    fclose(f);
    return !failed;
}

std::string stampText(const uint8_t* s) {
    bool zero = true;
    for (int i = 0; i < 6; ++i) zero = zero && s[i] == 0;
    if (zero) return "-";
    char text[32];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", 2000 + s[0], s[1], s[2], s[3],
             s[4], s[5]);
    return text;
}

bool stampSeconds(const uint8_t* start, const uint8_t* end, long long& seconds) {
    time_t t[2];
    const uint8_t* s[2] = {start, end};
    for (int i = 0; i < 2; ++i) {
        if (s[i][1] < 1 || s[i][1] > 12 || s[i][2] < 1 || s[i][2] > 31) return false;
        struct tm tm;
        memset(&tm, 0, sizeof tm);
        tm.tm_year = 100 + s[i][0];
        tm.tm_mon = s[i][1] - 1;
        tm.tm_mday = s[i][2];
        tm.tm_hour = s[i][3];
        tm.tm_min = s[i][4];
        tm.tm_sec = s[i][5];
        t[i] = timegm(&tm);
    }
    seconds = static_cast<long long>(t[1] - t[0]);
    return true;
}

}  // namespace zelstore
