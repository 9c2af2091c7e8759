// q7x-busd: the message bus broker as a program of its own.
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include "Broker.h"
#include "BusProtocol.h"

namespace {

q7x::CBusBroker* g_broker = nullptr;

void OnSignal(int) { g_broker->Stop(); }  // Stop only writes to an eventfd

void PrintUsage(FILE* out) {
    fprintf(out,
            "usage: q7x-busd [PATH]\n"
            "Routes messages between bus clients on a Unix-domain socket.\n"
            "PATH defaults to %s; Q7X_BUS_PATH, when set, replaces it.\n"
            "Stops cleanly on SIGINT or SIGTERM.\n"
            "example: Q7X_BUS_PATH=/tmp/mybus q7x-busd\n",
            q7x::kDefaultBusPath);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 || (argc == 2 && (!strcmp(argv[1], "-h") || !strcmp(argv[1], "--help")))) {
        PrintUsage(argc > 2 ? stderr : stdout);
        return argc > 2 ? 2 : 0;
    }
    q7x::CBusBroker broker(q7x::ResolveBusPath(argc == 2 ? argv[1] : nullptr));
    if (broker.Open() != 0) return 1;

    // main outlives every signal the handler sees.
    // cppcheck-suppress danglingLifetime
    g_broker = &broker;
    struct sigaction sa = {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    broker.Run();
    return 0;
}
