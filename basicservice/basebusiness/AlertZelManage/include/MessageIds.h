// Bus message ids the service listens to or sends. The answer to request N
// arrives with the id N | 0x8000.
#ifndef ALERTZEL_MESSAGEIDS_H
#define ALERTZEL_MESSAGEIDS_H

namespace zel {

enum MessageId : unsigned int {
    // watchdog
    kMsgWatchFeed = 3,
    kMsgWatchStart = 6,
    kMsgWatchStop = 7,
    // start requests and signals
    kMsgJ1939ParamRequest = 475,
    kMsgJ1939Param = 476,
    kMsgJ1939ParamReply = 33243,
    kMsgIpcSetting = 320,
    kMsgIpcSettingReply = 33087,
    kMsgIoState = 1031,
    kMsgIoStateRequest = 1032,
    kMsgIoStateReply = 33800,
    kMsgAccData = 1071,
    kMsgGpsInfo = 1073,
    kMsgVehicleInfo = 1081,
    kMsgCanFrame = 1089,
    kMsgPanicKey = 1176,
    kMsgMdState = 1288,
    kMsgMdStateRequest = 1289,
    kMsgMdStateReply = 34057,
    kMsgSpeedInfo = 6777,
    kMsgAlprEvent = 8963,
    // alert reports
    kMsgAlertList = 3215,
    kMsgAlertStateQuery = 3216,
    // storage
    kMsgStorageAnnounce = 2086,
    kMsgLogWrite = 6661,
    kMsgLogWriteReply = 39429,
    kMsgLogModify = 6668,
    kMsgLogSize = 6671,
    kMsgLogSizeReply = 39439,
    // rules and areas
    kMsgFenceInfo = 6689,
    kMsgFenceEvent = 6795,
    kMsgPlatformRule = 6796,
    kMsgPlatformRuleReply = 39564,
};

const unsigned int kReplyBit = 0x8000;

}  // namespace zel

#endif  // ALERTZEL_MESSAGEIDS_H
