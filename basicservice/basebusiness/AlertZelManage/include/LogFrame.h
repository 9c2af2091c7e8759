// The alert log frame and the storage dialogue that carries it: the write,
// modify and size requests the service sends and the replies it takes.
// Declared once, here: the service writes these records, the storage peer and
// the tools read them. Every integer is little-endian; every byte not named
// here is 0. The functions write into buffers the caller sized; none of them
// reads past the sizes named below.
//
// Time stamp, 8 bytes, made from a Common::_datetime_:
// | Offset | Width | Content                                              |
// |--------|-------|------------------------------------------------------|
// | 0      | 6     | year, month, day, hour, minute, second               |
// | 6      | 1     | 0                                                    |
// | 7      | 1     | bits 2..4: low three bits of the weekday; others 0   |
//
// Log frame, 60 bytes: a 16-byte head, a time record, an alert record.
// | Offset | Width | Field         | Content                                |
// |--------|-------|---------------|----------------------------------------|
// | 0      | 4     | magic         | "z2db", no terminator                  |
// | 4      | 24b   | bodyLength    | 44; word at 4 = length | count << 24   |
// | 7      | 8b    | recordCount   | 2                                      |
// | 8      | 8     | reserved      | 0                                      |
// | 16     | 8b    | recordTag     | 1: time record; word = tag | len << 8 |
// | 17     | 24b   | recordLength  | 12, its own 4-byte head included       |
// | 20     | 8     | recordTime    | stamp of the alert's start             |
// | 28     | 8b    | recordTag     | 0x10: alert record                     |
// | 29     | 24b   | recordLength  | 32                                     |
// | 32     | u32   | alertID       |                                        |
// | 36     | 8     | reserved      | 0 (no EventMark is stored)             |
// | 44     | 8     | alarmStart    | stamp of the alert's start             |
// | 52     | 8     | alarmEnd      | stamp of the latest patch; 0 if none   |
//
// Write request 6661, 76 bytes:   Modify request 6668, 92 bytes:
// | 0  | u8 | logType 19        |  | 0  | u8  | logType 19                  |
// | 8  | 6  | logDate (start)   |  | 8  | 6   | logDate (this patch)        |
// | 16 | 60 | frame             |  | 16 | u64 | frameOffset in the log      |
//                                  | 24 | 4   | reserved 0                  |
//                                  | 28 | 60  | frame, alarmEnd patched     |
//                                  | 88 | 4   | reserved 0                  |
// Size request 6671, 12 bytes: logType 19 at 0, the rest 0.
//
// Write reply 39429, 8 bytes:     Size reply 39439, 32 bytes:
// | 0  | u8 | logType of the    |  | 0  | u8  | logType of the request      |
// |    |    | request (0: none) |  | 1  | i8  | result: 0 ok                |
// | 1  | i8 | result: 0 stored  |  | 8  | u16 | year  } the day the size    |
// | 2  | 6  | 0                 |  | 10 | u8  | month } is of: the storage's|
//                                  | 11 | u8  | day   } own current day     |
//                                  | 24 | u64 | log size; 0: no log today   |
// The service reads only the result and the log size.
//
// The storage keeps frames back to back after an 84-byte head of its own, so
// a frame just appended begins at the log's size minus 60.
#ifndef ALERTZEL_LOGFRAME_H
#define ALERTZEL_LOGFRAME_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "ByteOrder.h"
#include "Common.h"

namespace zel {

const size_t kStampSize = 8, kFrameSize = 60;
const size_t kFrameMagic = 0, kFrameHead = 4, kFrameTimeHead = 16, kFrameRecordTime = 20;
const size_t kFrameAlertHead = 28, kFrameAlertId = 32, kFrameAlarmStart = 44,
             kFrameAlarmEnd = 52;
const char kFrameMagicText[4] = {'z', '2', 'd', 'b'};
const uint32_t kFrameHeadWord = 44u | (2u << 24), kTimeHeadWord = 0x01u | (12u << 8),
               kAlertHeadWord = 0x10u | (32u << 8);

const uint8_t kAlertLogType = 19;
const size_t kReqLogType = 0, kReqLogDate = 8, kLogDateSize = 6;
const size_t kWriteSize = 76, kWriteFrame = 16;
const size_t kModifySize = 92, kModifyOffset = 16, kModifyReserved = 24, kModifyFrame = 28;
const size_t kSizeQuerySize = 12;

const size_t kWriteReplySize = 8, kSizeReplySize = 32;
const size_t kReplyLogType = 0, kReplyResult = 1, kReplyYear = 8, kReplyMonth = 10,
             kReplyDay = 11, kSizeReplyLogSize = 24;

// Where the first frame of a log lies: after the storage's own head.
const uint64_t kLogFirstFrame = 84;

// out[0..7] = the stamp of dt.
inline void putStamp(uint8_t* out, const Common::_datetime_& dt) {
    out[0] = dt.year;
    out[1] = dt.month;
    out[2] = dt.day;
    out[3] = dt.hour;
    out[4] = dt.minute;
    out[5] = dt.second;
    out[6] = 0;
    out[7] = static_cast<uint8_t>((dt.weekday & 7) << 2);
}

// A frame of alertID that starts at start and has never been patched.
inline void buildLogFrame(uint8_t* frame, uint32_t alertID, const Common::_datetime_& start) {
    memset(frame, 0, kFrameSize);
    memcpy(frame + kFrameMagic, kFrameMagicText, sizeof kFrameMagicText);
    putLe32(frame, kFrameHead, kFrameHeadWord);
    putLe32(frame, kFrameTimeHead, kTimeHeadWord);
    putLe32(frame, kFrameAlertHead, kAlertHeadWord);
    putLe32(frame, kFrameAlertId, alertID);
    putStamp(frame + kFrameRecordTime, start);
    putStamp(frame + kFrameAlarmStart, start);
}

// Sets alarmEnd; bits of byte 59 outside 2..4 and byte 58 stay as they are.
inline void patchLogFrameEnd(uint8_t* frame, const Common::_datetime_& end) {
    uint8_t stamp[kStampSize];
    putStamp(stamp, end);
    memcpy(frame + kFrameAlarmEnd, stamp, 6);
    uint8_t& last = frame[kFrameAlarmEnd + 7];
    last = static_cast<uint8_t>((last & ~0x1Cu) | stamp[7]);
}

// True when the 60 bytes carry the magic and the three constant heads.
inline bool isLogFrame(const uint8_t* frame) {
    return memcmp(frame + kFrameMagic, kFrameMagicText, sizeof kFrameMagicText) == 0 &&
           getLe32(frame, kFrameHead) == kFrameHeadWord &&
           getLe32(frame, kFrameTimeHead) == kTimeHeadWord &&
           getLe32(frame, kFrameAlertHead) == kAlertHeadWord;
}

// Fill only the named fields of a request buffer; the caller keeps the
// reserved bytes zero. The buffers hold at least kWriteSize / kModifySize.
inline void fillWriteRequest(uint8_t* buf, const uint8_t* logDate, const uint8_t* frame) {
    buf[kReqLogType] = kAlertLogType;
    memcpy(buf + kReqLogDate, logDate, kLogDateSize);
    memcpy(buf + kWriteFrame, frame, kFrameSize);
}

inline void fillModifyRequest(uint8_t* buf, const uint8_t* logDate, uint64_t frameOffset,
                              const uint8_t* frame) {
    buf[kReqLogType] = kAlertLogType;
    memcpy(buf + kReqLogDate, logDate, kLogDateSize);
    putLe64(buf, kModifyOffset, frameOffset);
    putLe32(buf, kModifyReserved, 0);
    memcpy(buf + kModifyFrame, frame, kFrameSize);
}

inline void buildSizeQuery(uint8_t* buf) {
    memset(buf, 0, kSizeQuerySize);
    buf[kReqLogType] = kAlertLogType;
}

}  // namespace zel

#endif  // ALERTZEL_LOGFRAME_H
