// Rule provisioning: requests for the rule set and the area state, and the
// platform's add, delete, delete-all and replace commands.
#include "AlertZelManage.h"

void CAlertZelManage::GetZelAlertPara() {}

void CAlertZelManage::GetZelAlertEfenceInfo() {}

void CAlertZelManage::OnUpdateAreaInfo(const char* msg, int len) {}

void CAlertZelManage::OnPlatformUpdateArea(const char* msg, int len) {}

void CAlertZelManage::deleteZelAlertID(Json::Value& root) {}
