// Frames and the storage requests that carry them, built as the service
// builds them, for the tests of the storage peer.
#ifndef ALERTZEL_TEST_STORAGEMESSAGES_H
#define ALERTZEL_TEST_STORAGEMESSAGES_H

#include <vector>

#include "LogFrame.h"

namespace storagetest {

typedef std::vector<uint8_t> Bytes;

// A moment of March 2026.
inline Common::_datetime_ at(int day, int hour, int minute, int second) {
    return Common::_datetime_{26, 3, static_cast<unsigned char>(day),
                              static_cast<unsigned char>(hour), static_cast<unsigned char>(minute),
                              static_cast<unsigned char>(second), 4, 0};
}

inline Bytes frameOf(uint32_t alertID, const Common::_datetime_& start) {
    Bytes f(zel::kFrameSize);
    zel::buildLogFrame(f.data(), alertID, start);
    return f;
}

// A write (6661) of frame, dated as its start; a patch (6668); a size query (6671).
inline Bytes writeRequest(const Bytes& frame) {
    Bytes p(zel::kWriteSize, 0);
    zel::fillWriteRequest(p.data(), frame.data() + zel::kFrameAlarmStart, frame.data());
    return p;
}
inline Bytes modifyRequest(const Bytes& frame, uint64_t offset) {
    Bytes p(zel::kModifySize, 0);
    zel::fillModifyRequest(p.data(), frame.data() + zel::kFrameAlarmEnd, offset, frame.data());
    return p;
}
inline Bytes sizeRequest() {
    Bytes p(zel::kSizeQuerySize, 0);
    zel::buildSizeQuery(p.data());
    return p;
}

}  // namespace storagetest

#endif  // ALERTZEL_TEST_STORAGEMESSAGES_H
