// The rule parser on any JSON value: the whole-set form, then the add and
// replace forms over the same document.
#include <json/json.h>

#include "FuzzService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Json::Value root;
    Json::Reader reader;
    const char* begin = reinterpret_cast<const char*>(data);
    if (!reader.parse(begin, begin + size, root, true)) return 0;
    CAlertZelManage& svc = zelfuzz::service();
    if (root.isObject() && root.isMember("DUMMY100") && root["DUMMY100"].isArray())
        svc.dealJsonGetPara(root);
    if (root.isObject() && root.isMember("DUMMY") && root["DUMMY"].isArray()) {
        svc.addZelAlertID(root);
        svc.coverZelAlertID(root);
    }
    zelfuzz::trim();
    return 0;
}
