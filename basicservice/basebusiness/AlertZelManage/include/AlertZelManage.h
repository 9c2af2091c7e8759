// The alert service: one instance of CAlertZelManage, made by the exported
// Create and destroyed by the host through its CServiceBase pointer.
//
// Threads: the host's thread runs the constructor, Initialize and, later, the
// destructor. Everything else runs on the worker thread of Common::CThread:
// bus handlers run only inside Common::Q7X_MSGWaitForEvent, which the worker
// calls once per cycle and inside the storage waits. Handlers and evaluation
// therefore exclude each other without a lock.
//
// Storage waits dispatch every message, rule changes included. Rule and area
// messages that arrive while an alert walk, a stop or another rule change is
// on the stack are held in arrival order and applied when the outermost of
// them has ended (see BusyScope), so no walk loses the rule it stands on.
#ifndef ALERTZEL_MANAGE_H
#define ALERTZEL_MANAGE_H

#include <stdint.h>

#include <deque>
#include <list>
#include <map>
#include <string>
#include <vector>

#include <json/json.h>

#include "AlertZelTypes.h"
#include "Common.h"
#include "J1939Index.h"

#define ZEL_EXPORT __attribute__((visibility("default")))

// The entry and the three tables keep plain, undecorated symbol names.
extern "C" {
ZEL_EXPORT CServiceBase* Create();
extern ZEL_EXPORT std::string AddMark[4];
extern ZEL_EXPORT std::string Mark[4];
extern ZEL_EXPORT std::string EVENT_NAME[103];
}

const int kEventCount = 103;

// Diagnostics carry this file name, whichever source prints them.
#define ZEL_SRC "basicservice/basebusiness/AlertZelManage/src/AlertZelManage"
#define ZEL_LOG(level, ...) \
    Common::gclDebugPrintf((level), ZEL_SRC, __FUNCTION__, __LINE__, __VA_ARGS__)
// A line on behalf of the operation `func`: a helper prints with the name of
// the operation that called it, as if the line stood there.
#define ZEL_LOG_AS(func, level, ...) \
    Common::gclDebugPrintf((level), ZEL_SRC, (func), __LINE__, __VA_ARGS__)

class CAlertZelManage : public Common::CThread, public CServiceBase {
public:
    static CAlertZelManage* get_instance();
    ~CAlertZelManage() override;
    // One instance, made by get_instance.
    CAlertZelManage(const CAlertZelManage&) = delete;
    CAlertZelManage& operator=(const CAlertZelManage&) = delete;

    int ThreadFuncImpl() override;
    void Initialize();
    void StartComplete();
    void StopComplete();
    void messageRegister();
    void messageUnRegister();
    void GetAlarmParamAndStatus();
    void GetAlarmStatus(Json::Value& status);

    // ---- alert engine ----
    void CheckAlarm();
    bool checkTime(const Common::_datetime_& start, const Common::_datetime_& end);
    void upDateTrigger(sInputTrigger& trigger, unsigned int& atLeast,
                       unsigned long long& EventMark, bool& result);
    void checkAlertIO(sInputTrigger& trigger, unsigned int& atLeast,
                      unsigned long long& EventMark, bool& result);
    void checkAlertPanicKey(sInputTrigger& trigger, unsigned int& atLeast,
                            unsigned long long& EventMark, bool& result);
    void checkAlertACC(sInputTrigger& trigger, unsigned int& atLeast,
                       unsigned long long& EventMark, bool& result);
    void checkAlertGPS(sInputTrigger& trigger, unsigned int& atLeast,
                       unsigned long long& EventMark, bool& result);
    void checkAlertIgnition(sInputTrigger& trigger, unsigned int& atLeast,
                            unsigned long long& EventMark, bool& result);
    void checkAlertVehicleInfo(sInputTrigger& trigger, unsigned int& atLeast,
                               unsigned long long& EventMark, bool& result);
    void checkAlertMDVideo(sInputTrigger& trigger, unsigned int& atLeast,
                           unsigned long long& EventMark, bool& result);
    void checkAlprValue(sInputTrigger& trigger, unsigned int& atLeast,
                        unsigned long long& EventMark, bool& result);
    void checkJ1939Value(sInputTrigger& trigger, unsigned int& atLeast,
                         unsigned long long& EventMark, bool& result);
    void upDateEvent(sInputTrigger& trigger, unsigned int& atLeast,
                     unsigned long long& EventMark, double value, bool& result);
    bool checkValue(double value, double threshold, eTriggerType type);
    // The first walk's evaluation: snapshotEvents reads every usable event
    // value once per pass; triggersHold evaluates a rule's triggers in order
    // up to the first false one, as upDateTrigger would.
    void snapshotEvents();
    bool triggersHold(ZelAlertPara_t& para);
    double familyValue(uint32_t event) const;
    // Out of line, so that the comparison itself stays small and inlined.
    __attribute__((noinline, cold)) void noteResultChange(const sInputTrigger& trigger,
                                                          double value, bool result);
    __attribute__((noinline, cold)) bool refuseTriggerType(eTriggerType type);
    bool panicValue(double& value) const;

    void StopAllAlarm();
    void StopOneAlarm(unsigned int alertID);
    int LocalCancelAlarm(Common::_datetime_ time);
    int HandleAlarmCrossDay();
    bool CheckDateTime(Common::_datetime_ a, Common::_datetime_ b);

    // ---- alert log and reports ----
    void writeAlertZelLog(unsigned int alertID, unsigned long long EventMark,
                          Common::_datetime_ start);
    void modifyAlertZelLog(unsigned int alertID, Common::_datetime_ time, bool erase);
    unsigned long long GetZelAlertLogSize();
    void ModifyZelAlertFrameOffset();
    void OnReturnWriteResult(const char* msg, int len);
    void OnReturnAlarmLogSize(const char* msg, int len);
    void OnCheckStoragePlugin(const char* msg, int len);
    void OnGetZelAlertState(const char* msg, int len);
    // Appends one record to m_AlertList.
    void appendAlertRecord(const ZelAlertPara_t& para, const Common::_datetime_& time,
                           uint8_t ended);
    // Publishes m_AlertList as message 3215; false when the payload could not
    // be allocated, which is reported on behalf of `caller`, the builder.
    bool sendAlertList(const char* caller);

    // ---- rule provisioning ----
    void clearZelAlertPara(ZelAlertPara_t& para);
    void clearParaList();
    bool GetJsonCmd(const Json::Value& v, unsigned int& out);
    bool GetJsonSource(const Json::Value& v, unsigned int& out);
    bool GetJsonID(const Json::Value& v, unsigned int& out);
    bool GetJsonAtleast(const Json::Value& v, unsigned int& out);
    bool GetJsonGT(const Json::Value& v, double& out);
    bool GetJsonLT(const Json::Value& v, double& out);
    bool GetJsonEQ(const Json::Value& v, double& out);
    void stringToDateTime(const char* text, Common::_datetime_& out);
    void GetZelAlertPara();
    void GetZelAlertEfenceInfo();
    void OnUpdateAreaInfo(const char* msg, int len);
    void OnPlatformUpdateArea(const char* msg, int len);
    void dealJsonGetPara(Json::Value& root);
    void addZelAlertID(Json::Value& root);
    void coverZelAlertID(Json::Value& root);
    void deleteZelAlertID(Json::Value& root);
    void printfOneZelAlertPara(ZelAlertPara_t& para);
    void printfZelAlertPara();
    bool checkIsInArea(unsigned int alertID);
    void getAreaID(Json::Value& root, std::string& key);
    void OnUpdateFenceInfo(const char* msg, int len);
    void OnUpdateFenceEvent(const char* msg, int len);

    // ---- signal inputs ----
    void OnUpdateIOState(const char* msg, int len);
    void OnUpdatePanicKeyState(const char* msg, int len);
    void OnUpdateAccData(const char* msg, int len);
    void OnUpdateGPSInfo(const char* msg, int len);
    void OnUpdateSpeedInfo(const char* msg, int len);
    void OnUpdataVehicleInfo(const char* msg, int len);
    void onGetAlprEvent(const char* msg, int len);
    void OnUpdateMDVideo(const char* msg, int len);
    void OnUpdataIPCSetting(const char* msg, int len);
    void onGetJ1939param(const char* msg, int len);
    void onGetZelCanData(const char* msg, int len);
    unsigned long long get_bit_mask_set_ull(uint32_t first, uint32_t end);

    // m_EventValid, one bit per event number.
    bool isEventValid(uint32_t event) const {
        return event < kEventCount && (m_EventValid[event >> 5] >> (event & 31)) & 1u;
    }
    void setEventValid(uint32_t event) { m_EventValid[event >> 5] |= 1u << (event & 31); }
    void clearEventValid(uint32_t event) { m_EventValid[event >> 5] &= ~(1u << (event & 31)); }

    // ---- holding rule changes while a walk or a stop is on the stack ----
    typedef void (CAlertZelManage::*Handler)(const char*, int);
    struct HeldMessage {
        Handler handler;
        std::vector<char> bytes;
    };
    // Marks a walk, a stop or a rule change as under way for its lifetime.
    // When the outermost scope ends, the held messages are applied in order.
    class BusyScope {
    public:
        explicit BusyScope(CAlertZelManage& owner);
        ~BusyScope();
        BusyScope(const BusyScope&) = delete;
        BusyScope& operator=(const BusyScope&) = delete;

    private:
        CAlertZelManage& m_owner;
    };
    // True when the message was held for later; the handler then returns.
    bool holdIfBusy(Handler handler, const char* msg, int len);
    void applyHeldMessages();

    // ---- members, in order of declaration ----
    static CAlertZelManage* m_instance;
    // Time of the last watchdog feed; set by the first worker cycle.
    static long lastFeedTime;

    void* m_pMsgManage = nullptr;
    uint8_t m_WatchRecord[36];
    std::list<ZelAlertPara_t> m_ParaList;
    std::vector<tag_ZELAlert> m_AlertList;

    // signal cache
    uint8_t m_PanicKey[4]{};
    uint8_t m_AccData[40]{};
    uint8_t m_GpsInfo[52]{};
    double m_Speed = 0;
    double m_HdTemp = 0;
    double m_SysTemp = 0;
    double m_SysVolt = 0;
    double m_Ignition = 0;
    double m_Accel[3]{};
    double m_AlprValue[5]{};
    uint8_t m_VehicleInfo[64]{};
    uint8_t m_MdRecord[48]{};
    uint8_t m_IpcSetting[3208]{};
    uint8_t m_MdState[16]{};
    uint8_t m_IoState[16]{};
    uint32_t m_IOlState = 0;

    std::map<uint32_t, bool> m_IsInGPSAreaMap;
    uint8_t m_J1939Param[6048]{};
    J1939ValueMap m_J1939Value;
    uint32_t m_EventValid[4]{};

    uint8_t m_bWritePending = 0;
    int32_t m_WriteResult = 0;
    uint8_t m_bSizePending = 0;
    unsigned long long m_LogSize = 0;
    std::map<uint32_t, _AlertZelLogFrame_t_> m_LogFrameMap;
    unsigned char* write_frame = nullptr;
    unsigned char* modify_frame = nullptr;
    uint8_t m_bStorageReady = 0;
    uint8_t m_bParaReady = 0;
    int32_t m_LastParaRequest = 0;
    int32_t m_LastTickTime = 0;
    uint8_t m_bTickDue = 0;
    uint8_t m_LastResult[kEventCount]{};
    uint8_t m_PassUsable[kEventCount]{};  // per pass: event has a plain value
    double m_PassValue[kEventCount]{};    // per pass: that value
    uint8_t m_bDiskTempOk = 0;
    unsigned char m_TimeFlag = 0;
    Common::_datetime_ m_LastDate{};

    // set on the first worker cycle
    uint8_t m_bFirstCycle = 1;
    // depth of walks, stops and rule changes on the stack
    int m_BusyDepth = 0;
    uint8_t m_bApplyingHeld = 0;
    std::deque<HeldMessage> m_HeldMessages;

private:
    // m_J1939Param worked out for the frame decoder; rebuilt with each table.
    zel::J1939Index m_J1939Index;

    CAlertZelManage();
};

#endif  // ALERTZEL_MANAGE_H
