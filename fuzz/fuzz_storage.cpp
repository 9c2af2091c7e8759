// Storage replies, the storage announcement and the state query.
#include "FuzzService.h"

namespace {

const CAlertZelManage::Handler kHandlers[] = {
    &CAlertZelManage::OnReturnWriteResult,
    &CAlertZelManage::OnReturnAlarmLogSize,
    &CAlertZelManage::OnCheckStoragePlugin,
    &CAlertZelManage::OnGetZelAlertState,
};
const size_t kCount = sizeof kHandlers / sizeof kHandlers[0];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    zelfuzz::deliver(kHandlers[data[0] % kCount], data + 1, size - 1);
    zelfuzz::trim();
    return 0;
}
