// The storage dialogue: write, patch and size of the alert log.
#include "AlertZelManage.h"

void CAlertZelManage::writeAlertZelLog(unsigned int alertID, unsigned long long EventMark,
                                       Common::_datetime_ start) {}

void CAlertZelManage::modifyAlertZelLog(unsigned int alertID, Common::_datetime_ time,
                                        bool erase) {}

unsigned long long CAlertZelManage::GetZelAlertLogSize() { return 0; }

void CAlertZelManage::ModifyZelAlertFrameOffset() {}

void CAlertZelManage::OnReturnWriteResult(const char* msg, int len) {}

void CAlertZelManage::OnReturnAlarmLogSize(const char* msg, int len) {}

void CAlertZelManage::OnCheckStoragePlugin(const char* msg, int len) {
    if (msg == NULL || len < 16) {
        ZEL_LOG(3, "update StorageState length error \n");
        return;
    }
    m_bStorageReady = 1;
}
