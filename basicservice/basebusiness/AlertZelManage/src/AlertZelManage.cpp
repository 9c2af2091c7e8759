// Service shell: the exported entry and tables, construction, start sequence,
// subscriptions, the worker cycle and destruction.
#include "AlertZelManage.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "ByteOrder.h"
#include "MessageIds.h"

// Filled in this order when the shared object is loaded.
std::string AddMark[4] = {"CIRCLE", "LINE", "POLY", "RECT"};
std::string Mark[4] = {"CIRCLE100", "LINE100", "POLY100", "RECT100"};
std::string EVENT_NAME[103] = {
    "IN1", "IN2", "IN3", "IN4", "IN5", "IN6", "IN7", "IN8",
    "PANIC", "AccelX", "AccelY", "AccelZ", "GPS", "IGTN",
    "SPEED", "HDTEMP", "SYSTEMP", "SYSVOLT",
    "MOTION1", "MOTION2", "MOTION3", "MOTION4", "MOTION5", "MOTION6", "MOTION7", "MOTION8",
    "MOTION9", "MOTION10", "MOTION11", "MOTION12", "MOTION13", "MOTION14", "MOTION15",
    "MOTION16",
    "J19390", "J19391", "J19392", "J19393", "J19394", "J19395", "J19396", "J19397",
    "J19398", "J19399", "J193910", "J193911", "J193912", "J193913", "J193914", "J193915",
    "J193916", "J193917", "J193918", "J193919", "J193920", "J193921", "J193922", "J193923",
    "J193924", "J193925", "J193926", "J193927", "J193928", "J193929", "J193930", "J193931",
    "J193932", "J193933", "J193934", "J193935", "J193936", "J193937", "J193938", "J193939",
    "J193940", "J193941", "J193942", "J193943", "J193944", "J193945", "J193946", "J193947",
    "J193948", "J193949", "J193950", "J193951", "J193952", "J193953", "J193954", "J193955",
    "J193956", "J193957", "J193958", "J193959", "J193960", "J193961", "J193962", "J193963",
    "ALPR_status", "ALPR_radarL1", "ALPR_radarL2", "ALPR_radarL3", "ALPR_radarL4",
};

namespace {

const char kWatchName[] = "BasicService.11";
const uint32_t kWatchTimeoutMs = 300000;
const size_t kWatchNameOffset = 0;
const size_t kWatchTimeoutOffset = 32;
const int kWatchRecordSize = 36;

const int kWriteFrameAlloc = 77;
const int kModifyFrameAlloc = 93;

const int kCycleWaitMs = 500;
const unsigned int kCycleSleepUs = 100000;
const long kFeedInterval = 9;  // a feed once the gap exceeds this

// One row per subscription, in the order in which they are made.
struct Subscription {
    unsigned int id;
    CAlertZelManage::Handler handler;
};

const Subscription kSubscriptions[] = {
    {zel::kMsgMdStateReply, &CAlertZelManage::OnUpdateMDVideo},
    {zel::kMsgMdState, &CAlertZelManage::OnUpdateMDVideo},
    {zel::kMsgVehicleInfo, &CAlertZelManage::OnUpdataVehicleInfo},
    {zel::kMsgSpeedInfo, &CAlertZelManage::OnUpdateSpeedInfo},
    {zel::kMsgGpsInfo, &CAlertZelManage::OnUpdateGPSInfo},
    {zel::kMsgAccData, &CAlertZelManage::OnUpdateAccData},
    {zel::kMsgPanicKey, &CAlertZelManage::OnUpdatePanicKeyState},
    {zel::kMsgIoStateReply, &CAlertZelManage::OnUpdateIOState},
    {zel::kMsgIoState, &CAlertZelManage::OnUpdateIOState},
    {zel::kMsgPlatformRuleReply, &CAlertZelManage::OnUpdateAreaInfo},
    {zel::kMsgPlatformRule, &CAlertZelManage::OnPlatformUpdateArea},
    {zel::kMsgFenceInfo, &CAlertZelManage::OnUpdateFenceInfo},
    {zel::kMsgFenceEvent, &CAlertZelManage::OnUpdateFenceEvent},
    {zel::kMsgIpcSettingReply, &CAlertZelManage::OnUpdataIPCSetting},
    {zel::kMsgIpcSetting, &CAlertZelManage::OnUpdataIPCSetting},
    {zel::kMsgLogWriteReply, &CAlertZelManage::OnReturnWriteResult},
    {zel::kMsgLogSizeReply, &CAlertZelManage::OnReturnAlarmLogSize},
    {zel::kMsgStorageAnnounce, &CAlertZelManage::OnCheckStoragePlugin},
    {zel::kMsgAlertStateQuery, &CAlertZelManage::OnGetZelAlertState},
    {zel::kMsgAlprEvent, &CAlertZelManage::onGetAlprEvent},
    {zel::kMsgJ1939Param, &CAlertZelManage::onGetJ1939param},
    {zel::kMsgJ1939ParamReply, &CAlertZelManage::onGetJ1939param},
    {zel::kMsgCanFrame, &CAlertZelManage::onGetZelCanData},
};

const unsigned int kStartRequests[] = {
    zel::kMsgMdStateRequest,
    zel::kMsgAccData,
    zel::kMsgIoStateRequest,
    zel::kMsgJ1939ParamRequest,
};

void printBanner() {
    static const char kRule[] = "========================================================";
    printf("\n%s\n", kRule);
    printf("  AlertZelManage Built time:%s %s\n", __DATE__, __TIME__);
    printf("%s\n", kRule);
    fflush(stdout);
}

}  // namespace

CAlertZelManage* CAlertZelManage::m_instance = nullptr;
long CAlertZelManage::lastFeedTime = 0;

extern "C" CServiceBase* Create() {
    printBanner();
    CAlertZelManage* service = CAlertZelManage::get_instance();
    service->Initialize();
    return service;
}

CAlertZelManage* CAlertZelManage::get_instance() {
    if (m_instance == nullptr) m_instance = new CAlertZelManage();
    return m_instance;
}

CAlertZelManage::CAlertZelManage() {
    m_pMsgManage = Common::Q7X_MSGCreateMessageClient(30, "/tmp/unix.domain", 0);
    ZEL_LOG(3, "m_pMsgManage = %p\n", m_pMsgManage);

    memset(m_WatchRecord, 0, sizeof m_WatchRecord);
    memset(&m_LastDate, 0, sizeof m_LastDate);

    // Only the flag byte is kept; the first cycle finds m_LastDate zero.
    Common::_datetime_ ignored;
    Common::Q7X_TMGetShareTime(&ignored, m_TimeFlag);

    lastFeedTime = 0;

    write_frame = static_cast<unsigned char*>(malloc(kWriteFrameAlloc));
    modify_frame = static_cast<unsigned char*>(malloc(kModifyFrameAlloc));
    if (write_frame == nullptr || modify_frame == nullptr) {
        ZEL_LOG(3, "write_frame or modify_frame is NULL !\n");
        exit(1);  // NOLINT(concurrency-mt-unsafe): only the host's thread runs yet, inside Create
    }
    memset(write_frame, 0, kWriteFrameAlloc);
    memset(modify_frame, 0, kModifyFrameAlloc);
}

CAlertZelManage::~CAlertZelManage() {
    try {
        StopComplete();
        messageUnRegister();
        Stop();
    } catch (...) {
        // The remaining steps run whatever the bus did.
    }
    free(write_frame);
    write_frame = nullptr;
    free(modify_frame);
    modify_frame = nullptr;
    if (m_instance == this) m_instance = nullptr;
}

void CAlertZelManage::Initialize() {
    StartComplete();
    messageRegister();
    GetAlarmParamAndStatus();
    Start(0);
}

void CAlertZelManage::StartComplete() {
    memset(m_WatchRecord, 0, sizeof m_WatchRecord);
    memcpy(m_WatchRecord + kWatchNameOffset, kWatchName, sizeof kWatchName);
    zel::putLe32(m_WatchRecord, kWatchTimeoutOffset, kWatchTimeoutMs);
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgWatchStart, 0, m_WatchRecord,
                               kWatchRecordSize, 0);
}

void CAlertZelManage::StopComplete() {
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgWatchStop, 0, m_WatchRecord,
                               kWatchRecordSize, 0);
}

void CAlertZelManage::messageRegister() {
    for (const Subscription& s : kSubscriptions) {
        void* callback = Common::Q7X_Bind(this, s.handler);
        Common::Q7X_MSGEventRegister(m_pMsgManage, s.id, callback);
    }
}

void CAlertZelManage::messageUnRegister() {
    for (const Subscription& s : kSubscriptions)
        Common::Q7X_MSGEventUnRegister(m_pMsgManage, s.id);
}

void CAlertZelManage::GetAlarmParamAndStatus() {
    for (unsigned int id : kStartRequests)
        Common::Q7X_MSGSendMessage(m_pMsgManage, 0, id, 1, nullptr, 0, 0);
}

void CAlertZelManage::GetAlarmStatus(Json::Value& status) {}

int CAlertZelManage::ThreadFuncImpl() {
    Common::Q7X_MSGWaitForEvent(m_pMsgManage, kCycleWaitMs);

    if (m_bFirstCycle) {
        m_bFirstCycle = 0;
        lastFeedTime = time(nullptr);
    }
    long now = time(nullptr);
    if (labs(now - lastFeedTime) > kFeedInterval) {
        lastFeedTime = now;
        Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgWatchFeed, 0, m_WatchRecord,
                                   kWatchRecordSize, 0);
        ZEL_LOG(3, "alertZelManage watch dog !\n");
    }

    HandleAlarmCrossDay();
    CheckAlarm();
    usleep(kCycleSleepUs);  // cppcheck-suppress usleepCalled ; the device's pause between cycles
    return 0;
}
