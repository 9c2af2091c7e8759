// One service instance in the in-process harness for the life of a fuzzer,
// and a way to hand it a message exactly as received: a 16-byte head whose
// length field the input chooses, then the payload, in a buffer of exactly
// the received size so that any read past it is caught.
#ifndef ALERTZEL_FUZZ_SERVICE_H
#define ALERTZEL_FUZZ_SERVICE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "Harness.h"

namespace zelfuzz {

inline harness::Harness& harnessOnce() {
    static harness::Harness* h = [] {
        harness::Harness* made = new harness::Harness();
        made->start();
        made->announceStorage();
        made->cycle();
        return made;
    }();
    return *h;
}

inline CAlertZelManage& service() { return harnessOnce().service(); }

// Calls handler with a message made from data: byte 0 chooses the length the
// head claims (0: the real one, 1: the real one + byte 1 * 97, 2: below 16
// bytes in all, 3: a null message), the rest is the payload.
inline void deliver(CAlertZelManage::Handler handler, const uint8_t* data, size_t size) {
    if (size < 2) return;
    uint8_t mode = data[0] & 3;
    uint32_t extra = data[1] * 97u;
    const uint8_t* payload = data + 2;
    size_t n = size - 2;
    CAlertZelManage& svc = service();
    if (mode == 3) {
        (svc.*handler)(nullptr, static_cast<int>(n));
        return;
    }
    size_t total = mode == 2 ? (n < 16 ? n : 15) : 16 + n;
    std::vector<char> msg(total);
    if (mode != 2) {
        uint32_t claimed = static_cast<uint32_t>(n) + (mode == 1 ? extra : 0);
        uint8_t head[16] = {77, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
        head[12] = static_cast<uint8_t>(claimed);
        head[13] = static_cast<uint8_t>(claimed >> 8);
        head[14] = static_cast<uint8_t>(claimed >> 16);
        head[15] = static_cast<uint8_t>(claimed >> 24);
        memcpy(msg.data(), head, 16);
        if (n) memcpy(msg.data() + 16, payload, n);
    } else if (total) {
        memcpy(msg.data(), payload, total);
    }
    (svc.*handler)(msg.data(), static_cast<int>(total));
}

// Keeps the rule list and the harness's records from growing without bound
// over millions of inputs.
inline void trim() {
    harness::Harness& h = harnessOnce();
    if (h.sent().size() > 1000) h.clearSent();
    if (h.lines().size() > 1000) h.clearLines();
    if (service().m_ParaList.size() > 500) service().clearParaList();
    if (service().m_IsInGPSAreaMap.size() > 500) service().m_IsInGPSAreaMap.clear();
}

}  // namespace zelfuzz

#endif
