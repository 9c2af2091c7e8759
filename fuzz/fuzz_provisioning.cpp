// Rule messages: the JSON of a reply (39564) or of a platform command (6796).
// Every few inputs a worker cycle evaluates what stands.
#include "FuzzService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    CAlertZelManage::Handler handler = (data[0] & 0x80) ? &CAlertZelManage::OnPlatformUpdateArea
                                                        : &CAlertZelManage::OnUpdateAreaInfo;
    zelfuzz::deliver(handler, data + 1, size - 1);
    if ((data[0] & 0x40) != 0) zelfuzz::harnessOnce().cycle();
    zelfuzz::trim();
    return 0;
}
