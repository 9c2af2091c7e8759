// Vehicle information and plate-reader values into the signal cache.
#include "AlertZelManage.h"

void CAlertZelManage::OnUpdataVehicleInfo(const char* msg, int len) {}

void CAlertZelManage::onGetAlprEvent(const char* msg, int len) {}
