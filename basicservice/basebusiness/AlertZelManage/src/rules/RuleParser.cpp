// The JSON form of rules, parsed into m_ParaList.
#include "AlertZelManage.h"

void CAlertZelManage::dealJsonGetPara(Json::Value& root) {}

void CAlertZelManage::addZelAlertID(Json::Value& root) {}

void CAlertZelManage::coverZelAlertID(Json::Value& root) {}

void CAlertZelManage::printfOneZelAlertPara(ZelAlertPara_t& para) {}

void CAlertZelManage::printfZelAlertPara() {}
