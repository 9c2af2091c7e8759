// Area messages: the fixed fence record (6689) and the JSON fence event (6795).
#include "FuzzService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    CAlertZelManage::Handler handler = (data[0] & 1) ? &CAlertZelManage::OnUpdateFenceEvent
                                                     : &CAlertZelManage::OnUpdateFenceInfo;
    zelfuzz::deliver(handler, data + 1, size - 1);
    zelfuzz::trim();
    return 0;
}
