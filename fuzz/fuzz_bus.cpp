// The bus's own receive paths: the broker's handling of what a client sends,
// and the client's handling of what the broker delivers.
//
// One broker serves two clients on socket pairs for the life of the fuzzer,
// without its loop: frames go in through Feed, and what it routes comes out
// on the pairs' far ends. Subscriptions therefore carry over from input to
// input. One bus client takes records through Inject and hands them to
// callbacks that read every byte they are given, so that a length that
// overstates its buffer is caught.
//
// Input: byte 0 picks the path (bit 0: 0 the broker, 1 the client). Then
// records, each a byte (bit 0: which client sends, on the broker path), a
// little-endian u16 length and that many bytes; a short tail is one record.
//
// Everything the broker hands on must be a well-formed delivery; anything
// else aborts, as a finding.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "Broker.h"
#include "BusClient.h"
#include "BusProtocol.h"

namespace {

// Ids the fuzzed client listens to; records for others are dropped unread.
const uint32_t kIds[] = {0, 1, 2, 0x441, 0xc8f, 0x7fff, 0x8000, 0x8441, 0xffff};

class Reader : public Common::CMsgCallback {
public:
    void Invoke(const char* msg, int len) override {
        // The head's length word must name exactly the bytes that follow.
        if (len < 16) abort();
        const uint32_t n = q7x::Load32(reinterpret_cast<const unsigned char*>(msg) + 12) &
                           q7x::kLengthMask;
        if (n != static_cast<uint32_t>(len) - 16) abort();
        unsigned sum = 0;
        for (int i = 0; i < len; ++i) sum += static_cast<unsigned char>(msg[i]);
        sink += sum;
    }
    static unsigned sink;
};
unsigned Reader::sink = 0;

struct World {
    World() : broker("/nonexistent/fuzz-bus"), client(1, "/nonexistent/fuzz-bus") {
        for (int i = 0; i < 2; ++i) {
            int sv[2];
            if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sv) != 0)
                abort();
            ids[i] = broker.Adopt(sv[0]);
            far[i] = sv[1];
        }
        for (uint32_t id : kIds) client.Register(id, new Reader);
    }

    // What the broker handed to client i since the last call.
    void Drain(int i) {
        unsigned char buf[q7x::kMaxFrame + 1];
        for (;;) {
            const ssize_t n = recv(far[i], buf, sizeof buf, MSG_DONTWAIT);
            if (n <= 0) return;
            const size_t len = static_cast<size_t>(n);
            if (q7x::Load32(buf) != q7x::kOpDeliver || !q7x::MessageFrameOk(buf, len)) abort();
            client.Inject(buf, len);
        }
    }

    q7x::CBusBroker broker;
    q7x::CBusClient client;
    uint32_t ids[2];
    int far[2];
};

World& world() {
    static World* w = new World;
    return *w;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    World& w = world();
    const bool toClient = data[0] & 1;
    size_t pos = 1;
    while (pos < size) {
        const uint8_t who = data[pos] & 1;
        size_t n = size - pos - 1;
        size_t at = pos + 1;
        if (size - pos >= 3) {
            n = std::min<size_t>(data[pos + 1] | data[pos + 2] << 8, size - pos - 3);
            at = pos + 3;
        }
        // A copy of exactly n bytes, so that a read past the record is caught.
        std::vector<unsigned char> record(data + at, data + at + n);
        if (toClient)
            w.client.Inject(record.data(), n);
        else
            w.broker.Feed(w.ids[who], record.data(), n);
        pos = at + n;
    }
    if (!toClient) {
        w.Drain(0);
        w.Drain(1);
    }
    return 0;
}
