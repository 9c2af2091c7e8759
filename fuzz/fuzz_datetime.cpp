// The date-time text of a rule's window.
#include <string>

#include "FuzzService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    Common::_datetime_ out;
    memset(&out, 0xAB, sizeof out);
    zelfuzz::service().stringToDateTime(text.c_str(), out);
    zelfuzz::trim();
    return 0;
}
