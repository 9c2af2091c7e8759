// Wire protocol between a bus client (libq7xcommon) and the broker (q7x-busd).
//
// Transport: one SOCK_SEQPACKET Unix-domain connection per client. The kernel
// keeps record boundaries, so one frame is one record and carries no length
// prefix of its own. Every field is a little-endian u32 at a fixed offset;
// read and write them through Load32/Store32, never through a struct cast.
//
// Every frame starts with its op word (offset 0). Sizes in bytes:
//
//   op  name        from    size     then, at offset
//   --  ----------  ------  -------  ------------------------------------------
//   1   HELLO       client  8        4: app id (names the client in the
//                                       broker's log lines)
//   2   REGISTER    client  4 + 4n   4, 8, ...: n message ids (0..0xffff) to
//                                       subscribe; ids already held are ignored
//   3   UNREGISTER  client  4 + 4n   4, 8, ...: n message ids to drop
//   4   SEND        client  20 + len 4: 0 (the broker fills in the sender)
//                                    8: session number chosen by the sender
//                                    12: id word: bits 0..15 message id,
//                                        bit 16 send flag (1 on requests)
//                                    16: payload length len (bits 0..22)
//                                    20: payload, len bytes
//   5   RESPONSE    client  20 + len as SEND, but 4: client id of the requester
//                                    (the source id in the request's head),
//                                    8: the request's session, 12: the
//                                    request's id | 0x8000, send flag clear
//   6   DELIVER     broker  20 + len as SEND, but 4: client id of the sender.
//                                    Bytes 4.. are exactly the SMessageHead and
//                                    payload that callbacks receive.
//
// Routing: the broker turns SEND into DELIVER for every other client
// subscribed to its id (never back to the sender), and RESPONSE into DELIVER
// for the named requester alone, subscribed or not. Client ids are assigned
// by the broker on accept, starting at 1, and never reused while it runs.
// Sessions count up from 1 per client. A record of zero bytes never occurs:
// on SEQPACKET it reads as end of stream.
//
// A frame that breaks these rules (too short, unknown op, length word not
// matching the record, id above 0xffff) is dropped and counted by the side
// that receives it; the connection stays up.
#ifndef Q7X_BUS_PROTOCOL_H
#define Q7X_BUS_PROTOCOL_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

namespace q7x {

enum BusOp : uint32_t {
    kOpHello = 1,
    kOpRegister = 2,
    kOpUnregister = 3,
    kOpSend = 4,
    kOpResponse = 5,
    kOpDeliver = 6,
};

// Frame offsets.
constexpr size_t kOffOp = 0;
constexpr size_t kOffPeer = 4;     // SEND: 0; RESPONSE: requester; DELIVER: sender
constexpr size_t kOffSession = 8;
constexpr size_t kOffIdWord = 12;
constexpr size_t kOffLength = 16;
constexpr size_t kOffPayload = 20;
constexpr size_t kOffHead = 4;     // where the SMessageHead starts inside a frame
constexpr size_t kHeadSize = 16;

constexpr uint32_t kIdMask = 0xffffu;
constexpr uint32_t kSendFlag = 0x10000u;
constexpr uint32_t kResponseBit = 0x8000u;
constexpr uint32_t kLengthMask = 0x7fffffu;

// Largest payload a client may send. Rule sets in JSON run to tens of KiB;
// a frame must also fit a socket's default send buffer (about 208 KiB on
// Linux), which bounds a SEQPACKET record.
constexpr size_t kMaxPayload = size_t{128} * 1024;
constexpr size_t kMaxFrame = kOffPayload + kMaxPayload;
// Ids per REGISTER / UNREGISTER frame when a client re-registers everything.
constexpr size_t kMaxIdsPerFrame = 1024;

// The bus every program meets on unless told otherwise.
constexpr const char* kDefaultBusPath = "/tmp/unix.domain";

inline uint32_t Load32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline void Store32(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

// A message frame (SEND, RESPONSE, DELIVER) of n bytes is well formed when it
// holds the full head and its length word names exactly the bytes after it.
inline bool MessageFrameOk(const unsigned char* f, size_t n) {
    return n >= kOffPayload && n <= kMaxFrame &&
           (Load32(f + kOffLength) & kLengthMask) == n - kOffPayload &&
           Load32(f + kOffIdWord) <= (kIdMask | kSendFlag);
}

// Q7X_BUS_PATH, when set and not empty, replaces the path a program was
// given, so that tests and side-by-side runs get private buses.
inline std::string ResolveBusPath(const char* given) {
    // Read once at start-up, before the program starts threads.
    const char* env = getenv("Q7X_BUS_PATH");  // NOLINT(concurrency-mt-unsafe)
    if (env && *env) return env;
    return given && *given ? given : kDefaultBusPath;
}

}  // namespace q7x

#endif  // Q7X_BUS_PROTOCOL_H
