// Small helpers shared by the bus peers and tools: output lines with a time
// stamp and a monotonic clock. Messages are read through the service's
// MessageHead.h and ByteOrder.h.
#ifndef ZELFORMATS_PEERUTIL_H
#define ZELFORMATS_PEERUTIL_H

#include <stdint.h>

namespace peer {

// One line on standard output: "HH:MM:SS.mmm <who>: <text>", flushed.
void say(const char* who, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
double monotonicSeconds();

}  // namespace peer

#endif
