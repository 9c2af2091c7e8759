// Small helpers shared by the bus peers and tools: output lines with a time
// stamp, a monotonic clock, and where the bus is. Messages are read through the service's
// MessageHead.h and ByteOrder.h.
#ifndef ZELFORMATS_PEERUTIL_H
#define ZELFORMATS_PEERUTIL_H

#include <stdint.h>

#include <string>

namespace peer {

// One line on standard output: "HH:MM:SS.mmm <who>: <text>", flushed.
void say(const char* who, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
double monotonicSeconds();

// The bus a client made with `given` as its path connects to, as the platform
// library resolves it: Q7X_BUS_PATH when set, else `given`.
std::string busPath(const char* given = "/tmp/unix.domain");
// True when a broker accepts connections at `path` right now. A tool asks
// before it sends, so that it can say "no broker at PATH" in a plain
// sentence instead of sending into nothing.
bool brokerListening(const std::string& path);
// For a peer that waits on the bus: says "no broker at PATH yet; waiting for
// one" (as `who`) when none listens, since the platform library retries in
// silence.
void noteMissingBroker(const char* who);

}  // namespace peer

#endif
