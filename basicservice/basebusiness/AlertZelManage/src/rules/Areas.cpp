// Area membership: one inside/outside flag per area id, which is also the
// alertID of the rule it guards. An id without an entry counts as inside.
#include "AlertZelManage.h"

bool CAlertZelManage::checkIsInArea(unsigned int alertID) {
    std::map<uint32_t, bool>::const_iterator it = m_IsInGPSAreaMap.find(alertID);
    return it == m_IsInGPSAreaMap.end() || it->second;
}

void CAlertZelManage::getAreaID(Json::Value& root, std::string& key) {}

void CAlertZelManage::OnUpdateFenceInfo(const char* msg, int len) {}

void CAlertZelManage::OnUpdateFenceEvent(const char* msg, int len) {}
