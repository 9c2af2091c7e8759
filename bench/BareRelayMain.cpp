// az-bare-relay: the baseline relay (BareRelay.h) as a program of its own,
// for figures taken on a whole process, such as strace's syscall count.
//
//   az-bare-relay PATH
//
// Relays until SIGINT or SIGTERM, then prints what it relayed and dropped.
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include "BareRelay.h"

namespace {

bench::CBareRelay* g_relay = nullptr;

void OnSignal(int) { g_relay->Stop(); }  // Stop only writes to an eventfd

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !strcmp(argv[1], "-h") || !strcmp(argv[1], "--help")) {
        fprintf(argc == 2 ? stdout : stderr,
                "usage: az-bare-relay PATH\n"
                "Relays every record a client sends to every other client.\n"
                "example: az-bare-relay /tmp/bare.sock\n");
        return argc == 2 ? 0 : 2;
    }
    bench::CBareRelay relay(argv[1]);
    if (relay.Open() != 0) return 1;
    // main outlives every signal the handler sees.
    // cppcheck-suppress danglingLifetime
    g_relay = &relay;
    struct sigaction sa = {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
    relay.Run();
    fprintf(stderr, "az-bare-relay: relayed %llu, dropped %llu\n",
            static_cast<unsigned long long>(relay.Relayed()),
            static_cast<unsigned long long>(relay.Dropped()));
    return 0;
}
