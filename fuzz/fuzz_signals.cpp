// Signal handlers: the first input byte picks the handler, the rest is the
// message. A pass follows now and then, so that triggers read what came.
#include "FuzzService.h"

namespace {

const CAlertZelManage::Handler kHandlers[] = {
    &CAlertZelManage::OnUpdateIOState,     &CAlertZelManage::OnUpdatePanicKeyState,
    &CAlertZelManage::OnUpdateAccData,     &CAlertZelManage::OnUpdateGPSInfo,
    &CAlertZelManage::OnUpdateSpeedInfo,   &CAlertZelManage::OnUpdataVehicleInfo,
    &CAlertZelManage::onGetAlprEvent,      &CAlertZelManage::OnUpdateMDVideo,
    &CAlertZelManage::OnUpdataIPCSetting,  &CAlertZelManage::onGetJ1939param,
    &CAlertZelManage::onGetZelCanData,
};
const size_t kCount = sizeof kHandlers / sizeof kHandlers[0];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    zelfuzz::deliver(kHandlers[data[0] % kCount], data + 1, size - 1);
    if (data[0] >= 0xF0) zelfuzz::service().CheckAlarm();
    zelfuzz::trim();
    return 0;
}
