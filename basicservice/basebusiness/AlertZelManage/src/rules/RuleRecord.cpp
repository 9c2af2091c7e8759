// The rule record and the JSON accessors that every rule message is read with.
// The accessors are defined on objects only; anything else reads as absent.
#include <string.h>

#include "AlertZelManage.h"

namespace {

const int kJsonRealType = Json::realValue;

bool getUnsigned(const Json::Value& v, const char* key, unsigned int& out) {
    if (!v.isObject() || !v.isMember(key)) return false;
    const Json::Value& member = v[key];
    if (member.isInt()) {
        int value = member.asInt();
        if (value < 0) return false;
        out = static_cast<unsigned int>(value);
        return true;
    }
    if (!member.isUInt()) return false;
    out = member.asUInt();
    return true;
}

// Only a JSON real (written with a fraction or an exponent) is a threshold:
// 5.0 passes, 5 doesn't.
bool getThreshold(const Json::Value& v, const char* key, double& out) {
    if (!v.isObject() || !v.isMember(key)) return false;
    const Json::Value& member = v[key];
    if (member.type() != kJsonRealType) return false;
    out = member.asDouble();
    return true;
}

}  // namespace

void CAlertZelManage::clearZelAlertPara(ZelAlertPara_t& para) {
    para.bLastState = 0;
    para.bState = 0;
    para.bConditionMet = 0;
    para.conditionTime = 0;
    para.alertID = 0;
    para.atLeast = 0;
    para.EventMark = 0;
    memset(&para.alarmStart, 0, sizeof para.alarmStart);
    memset(&para.alarmEnd, 0, sizeof para.alarmEnd);
    memset(&para.startTime, 0, sizeof para.startTime);
    memset(&para.endTime, 0, sizeof para.endTime);
    para.triggers.clear();
}

void CAlertZelManage::clearParaList() {
    for (ZelAlertPara_t& para : m_ParaList) para.triggers.clear();
    m_ParaList.clear();
}

bool CAlertZelManage::GetJsonCmd(const Json::Value& v, unsigned int& out) {
    return getUnsigned(v, "CMD", out);
}

bool CAlertZelManage::GetJsonSource(const Json::Value& v, unsigned int& out) {
    return getUnsigned(v, "SOURCE", out);
}

bool CAlertZelManage::GetJsonID(const Json::Value& v, unsigned int& out) {
    return getUnsigned(v, "ID", out);
}

bool CAlertZelManage::GetJsonAtleast(const Json::Value& v, unsigned int& out) {
    return getUnsigned(v, "ATLEAST", out);
}

bool CAlertZelManage::GetJsonGT(const Json::Value& v, double& out) {
    return getThreshold(v, "GT", out);
}

bool CAlertZelManage::GetJsonLT(const Json::Value& v, double& out) {
    return getThreshold(v, "LT", out);
}

bool CAlertZelManage::GetJsonEQ(const Json::Value& v, double& out) {
    return getThreshold(v, "EQ", out);
}
