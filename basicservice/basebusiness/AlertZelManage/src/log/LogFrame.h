// The alert log frame and the three storage requests that carry it, declared
// once. Every integer is little-endian; every byte not named here is 0.
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
// Write reply 39429, 8 bytes: i8 result at 1 (0 = stored).
// Size reply 39439, 32 bytes: i8 result at 1 (0 = ok), u64 log size at 24.
//
// The storage keeps frames back to back after an 84-byte head of its own, so
// a frame just appended begins at the log's size minus 60.
#ifndef ALERTZEL_LOGFRAME_H
#define ALERTZEL_LOGFRAME_H

#include <stddef.h>
#include <stdint.h>

#include "Common.h"

namespace zel {

const size_t kStampSize = 8;

const size_t kFrameSize = 60;
const size_t kFrameMagic = 0;
const size_t kFrameHead = 4;
const size_t kFrameTimeHead = 16;
const size_t kFrameRecordTime = 20;
const size_t kFrameAlertHead = 28;
const size_t kFrameAlertId = 32;
const size_t kFrameAlarmStart = 44;
const size_t kFrameAlarmEnd = 52;
const char kFrameMagicText[4] = {'z', '2', 'd', 'b'};
const uint32_t kFrameHeadWord = 44u | (2u << 24);
const uint32_t kTimeHeadWord = 0x01u | (12u << 8);
const uint32_t kAlertHeadWord = 0x10u | (32u << 8);

const uint8_t kAlertLogType = 19;
const size_t kReqLogType = 0;
const size_t kReqLogDate = 8;
const size_t kLogDateSize = 6;

const size_t kWriteSize = 76;
const size_t kWriteFrame = 16;

const size_t kModifySize = 92;
const size_t kModifyOffset = 16;
const size_t kModifyReserved = 24;
const size_t kModifyFrame = 28;

const size_t kSizeQuerySize = 12;

const size_t kWriteReplySize = 8;
const size_t kReplyResult = 1;
const size_t kSizeReplySize = 32;
const size_t kSizeReplyLogSize = 24;

// Where the first frame of a log lies: after the storage's own head.
const uint64_t kLogFirstFrame = 84;

// out[0..7] = the stamp of dt.
void putStamp(uint8_t* out, const Common::_datetime_& dt);
// A frame of alertID that starts at start and has never been patched.
void buildLogFrame(uint8_t* frame, uint32_t alertID, const Common::_datetime_& start);
// Sets alarmEnd; bits of byte 59 outside 2..4 and byte 58 stay as they are.
void patchLogFrameEnd(uint8_t* frame, const Common::_datetime_& end);
// True when the frame carries the magic and the three constant heads.
bool isLogFrame(const uint8_t* frame);

// Fill only the named fields of a request buffer; the caller keeps the
// reserved bytes zero. The buffers hold at least kWriteSize / kModifySize.
void fillWriteRequest(uint8_t* buf, const uint8_t* logDate, const uint8_t* frame);
void fillModifyRequest(uint8_t* buf, const uint8_t* logDate, uint64_t frameOffset,
                       const uint8_t* frame);
void buildSizeQuery(uint8_t* buf);

}  // namespace zel

#endif  // ALERTZEL_LOGFRAME_H
