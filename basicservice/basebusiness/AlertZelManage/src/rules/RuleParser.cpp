// The JSON form of rules, parsed into m_ParaList.
//
// A rule is an object: "ID" (required), "STARTIME" and "ENDTIME" (date-time
// texts), "ATLEAST" (seconds), and one member per event name holding one
// comparison, "GT", "LT" or "EQ", as a JSON real. A bad item is logged and
// skipped; the rest of the rule, and of the message, still counts. Elements
// of an unexpected JSON type read as absent: the accessors answer false on
// anything but an object, so nothing here can throw on such input.
#include <stdio.h>
#include <string.h>

#include "AlertZelManage.h"
#include "RulesInternal.h"

namespace {

enum ParseKind { kWholeSet, kAdd, kCover };

const size_t kTextBufferSize = 32;
const size_t kTextMaxChars = kTextBufferSize - 1;

// Reads the window bound `key` of `rule` into `out`. The text is cut to 31
// characters in `buffer`, whose last byte stays zero.
void readWindowBound(CAlertZelManage& service, const Json::Value& rule, const char* key,
                     Json::ArrayIndex index, char* buffer, Common::_datetime_& out,
                     const char* func) {
    if (!rule.isMember(key)) return;
    const Json::Value& value = rule[key];
    if (value.empty()) return;
    if (!value.isString()) {
        ZEL_LOG_AS(func, 3, "%s not a text DUMMY[%d]!\n", key, static_cast<int>(index));
        return;
    }
    const char* text = value.asCString();
    size_t n = strnlen(text, kTextMaxChars);
    memset(buffer, 0, kTextMaxChars);
    memcpy(buffer, text, n);
    service.stringToDateTime(buffer, out);
}

// Appends to `para` one trigger per event member, in event order. The first
// usable comparison in the order GT, LT, EQ decides; without one the trigger
// stands as GT 0.0.
void readTriggers(CAlertZelManage& service, const Json::Value& rule, ZelAlertPara_t& para,
                  const char* func) {
    for (int k = 0; k < kEventCount; ++k) {
        if (!rule.isMember(EVENT_NAME[k])) continue;
        const Json::Value& event = rule[EVENT_NAME[k]];
        if (event.empty()) continue;
        sInputTrigger trigger;
        trigger.Event = static_cast<uint32_t>(k);
        trigger.Type = GT;
        trigger.Value = 0.0;
        if (service.GetJsonGT(event, trigger.Value)) {
            trigger.Type = GT;
        } else if (service.GetJsonLT(event, trigger.Value)) {
            trigger.Type = LT;
        } else if (service.GetJsonEQ(event, trigger.Value)) {
            trigger.Type = EQ;
        } else {
            ZEL_LOG_AS(func, 3, "EventName[%d] not GT LT EQ \n", k);
        }
        para.triggers.push_back(trigger);
    }
}

// The steps that the whole set, the add and the cover command share. The
// caller has made sure that the rule array exists and is an array.
void parseRules(CAlertZelManage& service, Json::Value& root, ParseKind kind, const char* func) {
    const char* arrayKey = kind == kWholeSet ? "DUMMY100" : "DUMMY";
    std::string* areaKeys = kind == kWholeSet ? Mark : AddMark;

    ZelAlertPara_t scratch;
    char text[kTextBufferSize];
    memset(text, 0, sizeof text);

    const Json::Value& rules = static_cast<const Json::Value&>(root)[arrayKey];
    for (Json::ArrayIndex i = 0; rules.isArray() && i < rules.size(); ++i) {
        const Json::Value& rule = rules[i];
        service.clearZelAlertPara(scratch);
        if (!service.GetJsonID(rule, scratch.alertID)) {
            ZEL_LOG_AS(func, 3, "GetJsonID fail DUMMY[%d]!\n", static_cast<int>(i));
            continue;
        }
        if (kind == kCover) zel::removeOneRule(service, scratch.alertID, func);
        readWindowBound(service, rule, "STARTIME", i, text, scratch.startTime, func);
        readWindowBound(service, rule, "ENDTIME", i, text, scratch.endTime, func);
        if (!service.GetJsonAtleast(rule, scratch.atLeast))
            ZEL_LOG_AS(func, 3, "GetJsonAtleast fail !\n");
        readTriggers(service, rule, scratch, func);

        service.m_ParaList.push_back(scratch);
        if (kind == kAdd) {
            ZEL_LOG_AS(func, 3, "add one alert id = [%d] \n", static_cast<int>(scratch.alertID));
            service.printfOneZelAlertPara(service.m_ParaList.back());
        } else if (kind == kCover) {
            ZEL_LOG_AS(func, 3, "cover one alert id = [%d] \n",
                       static_cast<int>(scratch.alertID));
            service.printfOneZelAlertPara(service.m_ParaList.back());
        }
    }
    service.clearZelAlertPara(scratch);
    for (int k = 0; k < 4; ++k) service.getAreaID(root, areaKeys[k]);
}

const char* eventName(uint32_t event) {
    return event < static_cast<uint32_t>(kEventCount) ? EVENT_NAME[event].c_str() : "?";
}

}  // namespace

void CAlertZelManage::dealJsonGetPara(Json::Value& root) {
    ZEL_LOG(3, "dealJsonGetPara \n");
    parseRules(*this, root, kWholeSet, __FUNCTION__);
}

void CAlertZelManage::addZelAlertID(Json::Value& root) {
    ZEL_LOG(3, "======addZelAlertID==Start=== !\n");
    parseRules(*this, root, kAdd, __FUNCTION__);
    ZEL_LOG(3, "======addZelAlertID==End== !\n");
}

void CAlertZelManage::coverZelAlertID(Json::Value& root) {
    ZEL_LOG(3, "======coverZelAlertID==Start=== !\n");
    parseRules(*this, root, kCover, __FUNCTION__);
    ZEL_LOG(3, "======coverZelAlertID==End== !\n");
}

void CAlertZelManage::printfOneZelAlertPara(ZelAlertPara_t& para) {
    const Common::_datetime_& s = para.startTime;
    const Common::_datetime_& e = para.endTime;
    ZEL_LOG(3, "===========================================\n");
    ZEL_LOG(3, "alertID\t \t[%d]\n", static_cast<int>(para.alertID));
    ZEL_LOG(3, "startTime\t[20%02d%02d%02d][%02d:%02d:%02d]\n", s.year, s.month, s.day, s.hour,
            s.minute, s.second);
    ZEL_LOG(3, "endTime\t\t[20%02d%02d%02d][%02d:%02d:%02d]\n", e.year, e.month, e.day, e.hour,
            e.minute, e.second);
    ZEL_LOG(3, "atLeast\t\t[%d]\n", static_cast<int>(para.atLeast));
    for (const sInputTrigger& t : para.triggers)
        ZEL_LOG(3, "Trigger \t[%d][%s][%d][%.8lf]->Event,Type,Value \n",
                static_cast<int>(t.Event), eventName(t.Event), static_cast<int>(t.Type), t.Value);
    ZEL_LOG(3, "===========================================\n");
}

void CAlertZelManage::printfZelAlertPara() {
    static const char kStars[] = "***********************ZelAlertPara**********************";
    static const char kEquals[] = "===========================================";
    printf("%s\n", kStars);
    if (m_ParaList.empty()) printf("***************************no  Para**********************\n");
    for (const ZelAlertPara_t& para : m_ParaList) {
        const Common::_datetime_& s = para.startTime;
        const Common::_datetime_& e = para.endTime;
        printf("%s\n", kEquals);
        printf("alertID\t \t[%d]\n", static_cast<int>(para.alertID));
        printf("startTime\t[20%02d%02d%02d][%02d:%02d:%02d]\n", s.year, s.month, s.day, s.hour,
               s.minute, s.second);
        printf("endTime\t\t[20%02d%02d%02d][%02d:%02d:%02d]\n", e.year, e.month, e.day, e.hour,
               e.minute, e.second);
        printf("atLeast\t\t[%d]\n", static_cast<int>(para.atLeast));
        for (const sInputTrigger& t : para.triggers)
            printf("Trigger \t[%d][%s][%d][%.8lf]->Event,Type,Value \n",
                   static_cast<int>(t.Event), eventName(t.Event), static_cast<int>(t.Type),
                   t.Value);
        printf("%s\n", kEquals);
    }
    for (const auto& area : m_IsInGPSAreaMap)
        printf("AreaID = [%d],state = [%d]\n", static_cast<int>(area.first),
               static_cast<int>(area.second));
    printf("%s\n", kStars);
    fflush(stdout);
}
