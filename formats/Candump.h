// CAN logs as candump writes them, and the frame message the service takes.
// The one reader of such logs: scenarios' cantrace, zel-author lint and
// replay all read a log through readCandumpLog.
//
// Two line forms are read:
//   -l:   (1690000000.123456) can0 18FEF100#FF3417FCFF6800CF
//   -ta:   (000.011063)  can0  18FEF100   [8]  FF 34 17 FC FF 68 00 CF
// Classic frames only, up to 8 data bytes. An identifier of 8 hex digits is
// extended (29 bits), of 3 digits standard. Remote frames, CAN FD frames and
// anything else are refused.
#ifndef ZELFORMATS_CANDUMP_H
#define ZELFORMATS_CANDUMP_H

#include <stdint.h>

#include <istream>
#include <string>
#include <vector>

namespace zelj1939 {

struct CanFrame {
    double time;         // seconds, as logged (absolute or relative)
    std::string iface;   // e.g. "can0"
    uint32_t id;         // without flag bits
    bool extended;
    uint8_t dlc;         // 0..8
    uint8_t data[8];     // bytes behind dlc are zero

    // The data field as one little-endian number: data byte 0 in bits 0..7.
    uint64_t dataLe() const;
};

// False for a line that holds no classic frame in either form.
bool parseCandumpLine(const std::string& line, CanFrame& frame);

// A whole log: every line that is not blank must hold a frame, and one must.
// On failure returns false with `error` "NAME:N: not a classic CAN frame of
// candump -l or -ta" or "NAME holds no frame"; `frames` is then unspecified.
bool readCandumpLog(std::istream& in, const std::string& name, std::vector<CanFrame>& frames,
                    std::string& error);

// The payload of the service's frame message (1089) carrying `frame`: the
// identifier and the data field at their offsets, the rest zero.
std::vector<uint8_t> canFramePayload(const CanFrame& frame);

}  // namespace zelj1939

#endif  // ZELFORMATS_CANDUMP_H
