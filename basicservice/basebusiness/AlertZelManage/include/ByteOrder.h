// Little-endian reads and writes at fixed offsets. Every wire and storage
// record of the service goes through these: no packed-struct casts over
// received bytes. Callers check that pos + width lies inside the buffer.
#ifndef ALERTZEL_BYTEORDER_H
#define ALERTZEL_BYTEORDER_H

#include <stdint.h>
#include <string.h>

namespace zel {

inline uint8_t getU8(const void* p, size_t pos) {
    return static_cast<const uint8_t*>(p)[pos];
}
inline uint16_t getLe16(const void* p, size_t pos) {
    const uint8_t* b = static_cast<const uint8_t*>(p) + pos;
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
}
inline uint32_t getLe32(const void* p, size_t pos) {
    const uint8_t* b = static_cast<const uint8_t*>(p) + pos;
    return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
           (static_cast<uint32_t>(b[2]) << 16) | (static_cast<uint32_t>(b[3]) << 24);
}
inline uint64_t getLe64(const void* p, size_t pos) {
    return static_cast<uint64_t>(getLe32(p, pos)) |
           (static_cast<uint64_t>(getLe32(p, pos + 4)) << 32);
}
inline double getLeDouble(const void* p, size_t pos) {
    uint64_t bits = getLe64(p, pos);
    double d;
    memcpy(&d, &bits, sizeof d);
    return d;
}

inline void putU8(void* p, size_t pos, uint8_t v) { static_cast<uint8_t*>(p)[pos] = v; }
inline void putLe16(void* p, size_t pos, uint16_t v) {
    uint8_t* b = static_cast<uint8_t*>(p) + pos;
    b[0] = static_cast<uint8_t>(v);
    b[1] = static_cast<uint8_t>(v >> 8);
}
inline void putLe32(void* p, size_t pos, uint32_t v) {
    uint8_t* b = static_cast<uint8_t*>(p) + pos;
    b[0] = static_cast<uint8_t>(v);
    b[1] = static_cast<uint8_t>(v >> 8);
    b[2] = static_cast<uint8_t>(v >> 16);
    b[3] = static_cast<uint8_t>(v >> 24);
}
inline void putLe64(void* p, size_t pos, uint64_t v) {
    putLe32(p, pos, static_cast<uint32_t>(v));
    putLe32(p, pos + 4, static_cast<uint32_t>(v >> 32));
}
inline void putLeDouble(void* p, size_t pos, double d) {
    uint64_t bits;
    memcpy(&bits, &d, sizeof bits);
    putLe64(p, pos, bits);
}

}  // namespace zel

#endif  // ALERTZEL_BYTEORDER_H
