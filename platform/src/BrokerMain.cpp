// q7x-busd: the message bus broker as a program of its own.
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <string>

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
            "Stops cleanly on SIGINT or SIGTERM. --version prints the version.\n"
            "Exit status: 0 stopped, 1 could not listen, 2 a wrong call.\n"
            "example: Q7X_BUS_PATH=/tmp/mybus q7x-busd\n",
            q7x::kDefaultBusPath);
}

int WrongCall(const std::string& what) {
    fprintf(stderr, "q7x-busd: %s\nTry 'q7x-busd --help' for more.\n", what.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (!strcmp(argv[1], "-h") || !strcmp(argv[1], "--help"))) {
        PrintUsage(stdout);
        return 0;
    }
    if (argc == 2 && !strcmp(argv[1], "--version")) {
        printf("q7x-busd %s\n", AZ_VERSION);
        return 0;
    }
    if (argc > 2) return WrongCall("one PATH at most");
    if (argc == 2 && argv[1][0] == '-') return WrongCall(std::string("unknown option ") + argv[1]);
    const std::string path = q7x::ResolveBusPath(argc == 2 ? argv[1] : nullptr);
    q7x::CBusBroker broker(path);
    if (broker.Open() != 0) {
        fprintf(stderr, "q7x-busd: cannot listen at %s\n", path.c_str());
        return 1;
    }
    printf("q7x-busd: listening at %s\n", path.c_str());
    fflush(stdout);

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
