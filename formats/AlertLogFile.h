// The alert log file as the storage peer keeps it on disk, and its one
// reader. Shared by zel-storage, zel-logdump, zelctl log and the tests. The
// frames are the service's own records (LogFrame.h); the head is the storage's.
//
// One file per log type and day of the storage's own clock:
//   DIR/zel-<logType>-<yyyymmdd>.log          e.g. DIR/zel-19-20260305.log
// An 84-byte head, then 60-byte log frames back to back in the order they
// were written. The file's length is the log size that a size query reports,
// so the frame at offset o is frame number (o - 84) / 60. A day without a
// file has no log, and its size is 0.
//
// Head, 84 bytes, little-endian:
// | Offset | Width | Field     | Content                                     |
// |--------|-------|-----------|---------------------------------------------|
// | 0      | 8     | magic     | "ZELALOG" and a 0 byte                      |
// | 8      | u16   | version   | 1                                           |
// | 10     | u16   | headSize  | 84                                          |
// | 12     | u16   | frameSize | 60                                          |
// | 14     | u8    | logType   | log type of the requests (19: alert log)    |
// | 15     | u8    | reserved  | 0                                           |
// | 16     | u16   | year      | the day this log holds, e.g. 2026           |
// | 18     | u8    | month     | 1..12                                       |
// | 19     | u8    | day       | 1..31                                       |
// | 20     | 6     | created   | year-2000, month, day, hour, minute, second |
// |        |       |           | of the storage's clock when the file began  |
// | 26     | 2     | reserved  | 0                                           |
// | 28     | 32    | writer    | name of the writing program, 0-padded       |
// | 60     | 20    | reserved  | 0                                           |
// | 80     | u32   | headCrc   | CRC-32 (IEEE 802.3) of bytes 0..79          |
//
// A file is whole when its head checks and its length is 84 + 60 n. A frame
// is readable when it carries the magic "z2db" and its three constant heads.
#ifndef ZELFORMATS_ALERTLOGFILE_H
#define ZELFORMATS_ALERTLOGFILE_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "Common.h"
#include "LogFrame.h"

namespace zelstore {

// The head fills what the service leaves before the first frame.
const size_t kHeadSize = zel::kLogFirstFrame;
using zel::kFrameSize;
const uint16_t kFormatVersion = 1;
const size_t kHeadMagic = 0, kHeadVersion = 8, kHeadHeadSize = 10, kHeadFrameSize = 12;
const size_t kHeadLogType = 14, kHeadYear = 16, kHeadMonth = 18, kHeadDay = 19;
const size_t kHeadCreated = 20, kHeadWriter = 28, kHeadWriterSize = 32, kHeadCrc = 80;
const char kMagic[8] = {'Z', 'E', 'L', 'A', 'L', 'O', 'G', 0};

// A calendar day, as the file name and head hold it.
struct Day {
    int year;  // e.g. 2026
    int month;
    int day;
    bool operator==(const Day& o) const {
        return year == o.year && month == o.month && day == o.day;
    }
};
Day dayOf(const Common::_datetime_& dt);

struct LogHead {
    uint8_t logType = 0;
    Day day{};
    uint8_t created[6] = {};
    std::string writer;
};

uint32_t crc32(const uint8_t* data, size_t n);
void encodeHead(uint8_t* out, const LogHead& head);
// False with a reason when the 84 bytes are not a head of this format.
bool decodeHead(const uint8_t* in, LogHead& head, std::string& why);

// "zel-19-20260305.log"
std::string logFileName(uint8_t logType, const Day& day);

// One readable frame of a file.
struct FrameInfo {
    uint64_t offset;
    uint32_t alertID;
    uint8_t start[8];  // stamps as the frame holds them
    uint8_t end[8];
    bool patched() const;
};

// What a reader made of a file's bytes.
struct LogScan {
    bool headOk = false;
    LogHead head;
    std::vector<FrameInfo> frames;  // readable frames, in file order
    uint64_t unreadable = 0;        // bytes that are in no readable head or frame
    std::string problem;            // what could not be read, or empty
    bool whole() const { return headOk && unreadable == 0; }
};

LogScan scanLog(const uint8_t* data, size_t size);
// What a reader tells of a file that is not whole, e.g. "PATH is damaged: 17
// of 221 bytes could not be read (it ends in a torn frame of 17 bytes at
// offset 204); 2 whole frames shown".
std::string damageText(const std::string& path, const LogScan& scan, size_t size);
// False with a reason when the file can't be read at all.
bool readLogFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& why);

// "2026-03-05 12:34:56" from a stamp; "-" when all six bytes are 0.
std::string stampText(const uint8_t* stamp);
// Seconds from start to end, false when either stamp is no date.
bool stampSeconds(const uint8_t* start, const uint8_t* end, long long& seconds);

}  // namespace zelstore

#endif
