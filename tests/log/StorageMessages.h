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
    Bytes f(60);
    zel::buildLogFrame(f.data(), alertID, start);
    return f;
}

// A write (6661) of frame; logDate is the frame's start unless given.
inline Bytes writeRequest(const Bytes& frame, const Common::_datetime_* logDate = nullptr) {
    Bytes p(76, 0);
    const uint8_t* date = logDate ? reinterpret_cast<const uint8_t*>(logDate)
                                  : frame.data() + zel::kFrameAlarmStart;
    zel::fillWriteRequest(p.data(), date, frame.data());
    return p;
}

inline Bytes modifyRequest(const Bytes& frame, uint64_t offset) {
    Bytes p(92, 0);
    zel::fillModifyRequest(p.data(), frame.data() + zel::kFrameAlarmEnd, offset, frame.data());
    return p;
}

inline Bytes sizeRequest() {
    Bytes p(12, 0);
    zel::buildSizeQuery(p.data());
    return p;
}

}  // namespace storagetest

#endif  // ALERTZEL_TEST_STORAGEMESSAGES_H
