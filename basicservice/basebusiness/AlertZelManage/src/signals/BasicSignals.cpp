// Inputs, panic key, accelerometer, GPS and speed into the signal cache.
#include "AlertZelManage.h"

void CAlertZelManage::OnUpdateIOState(const char* msg, int len) {}

void CAlertZelManage::OnUpdatePanicKeyState(const char* msg, int len) {}

void CAlertZelManage::OnUpdateAccData(const char* msg, int len) {}

void CAlertZelManage::OnUpdateGPSInfo(const char* msg, int len) {}

void CAlertZelManage::OnUpdateSpeedInfo(const char* msg, int len) {}
