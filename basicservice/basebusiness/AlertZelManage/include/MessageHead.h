// The 16-byte head that starts every received bus message. Peers and tools
// read it through these names too.
//
// | Offset | Width | Field                                        |
// |--------|-------|----------------------------------------------|
// | 0      | u32   | source id                                    |
// | 4      | u32   | session                                      |
// | 8      | u32   | bits 0..15 message id, bit 16 send flag; not |
// |        |       | read by the service                          |
// | 12     | u32   | bits 0..22 payload length; 23..31 not read   |
#ifndef ALERTZEL_MESSAGEHEAD_H
#define ALERTZEL_MESSAGEHEAD_H

#include "ByteOrder.h"

namespace zel {

const int kHeadSize = 16;
const size_t kHeadSourceId = 0;
const size_t kHeadSession = 4;
const size_t kHeadMessageWord = 8;
const size_t kHeadLength = 12;
const uint32_t kPayloadLengthMask = 0x7fffff;

// Payload length as the head states it. The caller has checked len >= 16.
inline uint32_t headPayloadLength(const char* msg) {
    return getLe32(msg, kHeadLength) & kPayloadLengthMask;
}

// Payload bytes that were really received: never more than len - 16, whatever
// the head claims. The caller has checked len >= 16.
inline uint32_t receivedPayload(const char* msg, int len) {
    uint32_t claimed = headPayloadLength(msg);
    uint32_t got = static_cast<uint32_t>(len - kHeadSize);
    return claimed < got ? claimed : got;
}

// The payload length a handler judges against its accepted range [lo, hi]:
// the head's, taken as true; only when that lies in the range is it cut to
// the bytes really received, so that nothing is read past len. The caller
// has checked len >= 16.
inline uint32_t judgedPayload(const char* msg, int len, uint32_t lo, uint32_t hi) {
    uint32_t claimed = headPayloadLength(msg);
    return claimed < lo || claimed > hi ? claimed : receivedPayload(msg, len);
}

}  // namespace zel

#endif  // ALERTZEL_MESSAGEHEAD_H
