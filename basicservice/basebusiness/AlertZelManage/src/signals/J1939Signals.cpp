// J1939 values decoded from raw CAN frames with the parameter table.
#include "AlertZelManage.h"

void CAlertZelManage::onGetJ1939param(const char* msg, int len) {}

void CAlertZelManage::onGetZelCanData(const char* msg, int len) {}

unsigned long long CAlertZelManage::get_bit_mask_set_ull(uint32_t first, uint32_t end) {
    return 0;
}
