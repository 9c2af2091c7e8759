// Motion detection per camera channel, judged against the camera settings.
#include "AlertZelManage.h"

void CAlertZelManage::OnUpdateMDVideo(const char* msg, int len) {}

void CAlertZelManage::OnUpdataIPCSetting(const char* msg, int len) {}
