// The opening checks of a signal handler, before it reads a payload byte.
//
// The handler prints its own lines (a diagnostic names the printing
// operation), so this only says what was found. A payload counts as carried
// only when the head's length passes the handler's test and every byte it
// claims was really received: a cut-off message is refused with the handler's
// payload line, whatever its length field says, and nothing past `len` is
// ever read.
#ifndef ALERTZEL_SIGNALINPUT_H
#define ALERTZEL_SIGNALINPUT_H

#include <stdint.h>

#include "MessageHead.h"

namespace zel {

struct SignalInput {
    bool headOk;             // msg not null and len >= 16
    uint32_t claimed;        // payload length from the head (0 unless headOk)
    uint32_t received;       // payload bytes behind the head, at most claimed
    const uint8_t* payload;  // first payload byte (null unless headOk)

    bool whole() const { return received == claimed; }
    // The head claims exactly `size` bytes and they all arrived.
    bool carriesExactly(uint32_t size) const { return claimed == size && whole(); }
    // The head claims `size` bytes or more and they all arrived.
    bool carriesAtLeast(uint32_t size) const { return claimed >= size && whole(); }
};

inline SignalInput openSignal(const char* msg, int len) {
    SignalInput in = {false, 0, 0, nullptr};
    if (msg == nullptr || len < kHeadSize) return in;
    in.headOk = true;
    in.claimed = headPayloadLength(msg);
    in.received = receivedPayload(msg, len);
    in.payload = reinterpret_cast<const uint8_t*>(msg) + kHeadSize;
    return in;
}

}  // namespace zel

#endif  // ALERTZEL_SIGNALINPUT_H
