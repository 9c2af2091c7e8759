// The 60-byte alert log frame and the write, modify and size requests.
#include "LogFrame.h"

#include <string.h>

#include "ByteOrder.h"

namespace zel {

void putStamp(uint8_t* out, const Common::_datetime_& dt) {
    out[0] = dt.year;
    out[1] = dt.month;
    out[2] = dt.day;
    out[3] = dt.hour;
    out[4] = dt.minute;
    out[5] = dt.second;
    out[6] = 0;
    out[7] = static_cast<uint8_t>((dt.weekday & 7) << 2);
}

void buildLogFrame(uint8_t* frame, uint32_t alertID, const Common::_datetime_& start) {
    memset(frame, 0, kFrameSize);
    memcpy(frame + kFrameMagic, kFrameMagicText, sizeof kFrameMagicText);
    putLe32(frame, kFrameHead, kFrameHeadWord);
    putLe32(frame, kFrameTimeHead, kTimeHeadWord);
    putLe32(frame, kFrameAlertHead, kAlertHeadWord);
    putLe32(frame, kFrameAlertId, alertID);
    putStamp(frame + kFrameRecordTime, start);
    putStamp(frame + kFrameAlarmStart, start);
}

void patchLogFrameEnd(uint8_t* frame, const Common::_datetime_& end) {
    uint8_t stamp[kStampSize];
    putStamp(stamp, end);
    memcpy(frame + kFrameAlarmEnd, stamp, 6);
    uint8_t& last = frame[kFrameAlarmEnd + 7];
    last = static_cast<uint8_t>((last & ~0x1Cu) | stamp[7]);
}

bool isLogFrame(const uint8_t* frame) {
    return memcmp(frame + kFrameMagic, kFrameMagicText, sizeof kFrameMagicText) == 0 &&
           getLe32(frame, kFrameHead) == kFrameHeadWord &&
           getLe32(frame, kFrameTimeHead) == kTimeHeadWord &&
           getLe32(frame, kFrameAlertHead) == kAlertHeadWord;
}

void fillWriteRequest(uint8_t* buf, const uint8_t* logDate, const uint8_t* frame) {
    buf[kReqLogType] = kAlertLogType;
    memcpy(buf + kReqLogDate, logDate, kLogDateSize);
    memcpy(buf + kWriteFrame, frame, kFrameSize);
}

void fillModifyRequest(uint8_t* buf, const uint8_t* logDate, uint64_t frameOffset,
                       const uint8_t* frame) {
    buf[kReqLogType] = kAlertLogType;
    memcpy(buf + kReqLogDate, logDate, kLogDateSize);
    putLe64(buf, kModifyOffset, frameOffset);
    putLe32(buf, kModifyReserved, 0);
    memcpy(buf + kModifyFrame, frame, kFrameSize);
}

void buildSizeQuery(uint8_t* buf) {
    memset(buf, 0, kSizeQuerySize);
    buf[kReqLogType] = kAlertLogType;
}

}  // namespace zel
