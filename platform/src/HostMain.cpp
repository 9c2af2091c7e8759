// q7x-host: loads a service plug-in, runs it until SIGINT or SIGTERM, then
// destroys it. When no broker listens on the bus yet, the host runs one on a
// thread of its own, so that one program is enough to run a service on a PC.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <memory>
#include <thread>

#include "Broker.h"
#include "BusProtocol.h"
#include "Common.h"
#include "UnixSocket.h"

namespace {

void PrintUsage(FILE* out) {
    fprintf(out,
            "usage: q7x-host PLUGIN.so\n"
            "Loads PLUGIN.so, calls its exported Create() and runs the service until\n"
            "SIGINT or SIGTERM, then destroys it. Starts a bus broker of its own when\n"
            "none listens at %s (or at Q7X_BUS_PATH, when set).\n"
            "--version prints the version. Exit status: 0 stopped, 1 the plug-in could\n"
            "not be loaded or created, 2 a wrong call.\n"
            "example: q7x-host ./libAlertZelManage.so\n",
            q7x::kDefaultBusPath);
}

using CreateFn = CServiceBase* (*)();

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (!strcmp(argv[1], "-h") || !strcmp(argv[1], "--help"))) {
        PrintUsage(stdout);
        return 0;
    }
    if (argc == 2 && !strcmp(argv[1], "--version")) {
        printf("q7x-host %s\n", AZ_VERSION);
        return 0;
    }
    if (argc != 2 || argv[1][0] == '-') {
        fprintf(stderr, "q7x-host: %s\nTry 'q7x-host --help' for more.\n",
                argc != 2 ? "needs one PLUGIN.so" : "unknown option");
        return 2;
    }

    // Blocked before any thread exists, so every thread inherits the mask and
    // the signals reach the sigwait below and nothing else.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    void* lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        fprintf(stderr, "q7x-host: %s\n", dlerror());
        return 1;
    }
    dlerror();
    CreateFn create = reinterpret_cast<CreateFn>(dlsym(lib, "Create"));
    if (!create) {
        const char* err = dlerror();
        fprintf(stderr, "q7x-host: %s\n", err ? err : "Create is null");
        return 1;
    }

    const std::string busPath = q7x::ResolveBusPath(nullptr);
    std::unique_ptr<q7x::CBusBroker> broker;
    std::thread brokerThread;
    if (!q7x::BrokerListening(busPath)) {
        broker = std::make_unique<q7x::CBusBroker>(busPath);
        if (broker->Open() == 0) {
            fprintf(stderr, "q7x-host: no broker at %s; running one of its own\n",
                    busPath.c_str());
            brokerThread = std::thread([&broker] { broker->Run(); });
        }
        else
            broker.reset();  // another broker came up meanwhile; use that one
    }

    CServiceBase* service = create();
    if (!service) {
        fprintf(stderr, "q7x-host: Create() in %s returned null\n", argv[1]);
    } else {
        int sig = 0;
        sigwait(&stopSignals, &sig);
        // Only SIGINT or SIGTERM arrive here, whose texts are constants; the
        // C library's shared buffer serves unknown signals only.
        fprintf(stderr, "q7x-host: %s, stopping the service\n",
                strsignal(sig));  // NOLINT(concurrency-mt-unsafe)
        delete service;
    }

    if (broker) {
        broker->Stop();
        brokerThread.join();
    }
    // The library stays loaded: threads or handlers the plug-in failed to stop
    // would otherwise run into unmapped code.
    return service ? 0 : 1;
}
