// Small helpers shared by the peers and tools: output lines with a time
// stamp, little-endian reads, a monotonic clock.
#ifndef ALERTZEL_PEERUTIL_H
#define ALERTZEL_PEERUTIL_H

#include <stdint.h>

namespace peer {

// One line on standard output: "HH:MM:SS.mmm <who>: <text>", flushed.
void say(const char* who, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
double monotonicSeconds();
inline uint32_t le32(const void* p) {
    const uint8_t* b = static_cast<const uint8_t*>(p);
    return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
           (static_cast<uint32_t>(b[2]) << 16) | (static_cast<uint32_t>(b[3]) << 24);
}

}  // namespace peer

#endif
