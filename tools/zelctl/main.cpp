// zelctl: one tool for a person beside the alert service. Subcommands in the
// style of git or ip; `zelctl help SUB` or `zelctl SUB --help` tells more.
#include <string.h>

#include <string>

#include "CommandLine.h"
#include "Common.h"
#include "PeerUtil.h"
#include "Zelctl.h"

namespace zelctl {

volatile sig_atomic_t g_running = 1;

namespace {
void onSignal(int) { g_running = 0; }
}  // namespace

void catchStop() {
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGPIPE, SIG_IGN);
}

void* openBus() { return Common::Q7X_MSGCreateMessageClient(3216, "/tmp/unix.domain", 0); }

bool brokerThere(const char* sub) {
    const std::string path = peer::busPath();
    if (peer::brokerListening(path)) return true;
    refuse(sub, "no broker at " + path);
    return false;
}

int refuse(const char* sub, const std::string& what) {
    fprintf(stderr, "zelctl %s: %s\n", sub, what.c_str());
    return 1;
}

bool asksHelp(int argc, char** argv) {
    return argc == 2 && (!strcmp(argv[1], "-h") || !strcmp(argv[1], "--help"));
}

int usage(const char* text) {
    fputs(text, stdout);
    return 0;
}

int wrongCall(const char* sub, const std::string& what) {
    return cli::usageError(std::string("zelctl ") + sub, what);
}

}  // namespace zelctl

namespace {

const char kUsage[] =
    "usage: zelctl SUBCOMMAND [ARGS...]\n"
    "  watch [--count N]          print each alert as it begins and ends (3215)\n"
    "  state [--timeout S]        list the running alerts (asks 3216)\n"
    "  send SIGNAL ARGS...        send one signal, as a scenario step without a time\n"
    "  table FILE.csv             send a J1939 signal table (476)\n"
    "  rules push CMD [FILE]      push a rule file as CMD 1 add, 3 delete, 4 delete all,\n"
    "                             5 cover\n"
    "  log FILE|DIR               decode an alert log file, or every log in a folder\n"
    "  lint ...                   check a rule set for traps (runs zel-author lint)\n"
    "  replay ...                 replay signals over a rule set on a virtual clock\n"
    "                             (runs zel-author replay)\n"
    "  help SUBCOMMAND            the usage of one subcommand\n"
    "  --version                  the version of zelctl\n"
    "  Q7X_BUS_PATH selects the bus. Exit status 0 done, 1 refused or failed,\n"
    "  2 a wrong call.\n"
    "examples:\n"
    "  zelctl watch\n"
    "  zelctl send speed 70 mph\n"
    "  zelctl rules push 1 examples/rules/speeding.json\n"
    "  zelctl log /tmp/zel-logs\n";

typedef int (*Runner)(int, char**);

struct Subcommand {
    const char* name;
    Runner run;
};

const Subcommand kSubcommands[] = {
    {"watch", zelctl::runWatch}, {"state", zelctl::runState},   {"send", zelctl::runSend},
    {"table", zelctl::runTable}, {"rules", zelctl::runRules},   {"log", zelctl::runLog},
    {"lint", zelctl::runAuthor}, {"replay", zelctl::runAuthor},
};

Runner find(const char* name) {
    for (const Subcommand& s : kSubcommands)
        if (!strcmp(s.name, name)) return s.run;
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, "zelctl", kUsage, status)) return status;
    if (argc < 2) return cli::usageError("zelctl", "no subcommand");
    const char* sub = argv[1];
    if (!strcmp(sub, "help")) {
        if (argc == 2) return zelctl::usage(kUsage);
        if (argc > 3) return zelctl::wrongCall("help", "one subcommand at a time");
        Runner run = find(argv[2]);
        if (run == nullptr)
            return zelctl::wrongCall("help", std::string("no subcommand '") + argv[2] + "'");
        char help[] = "--help";
        char* args[] = {argv[2], help, nullptr};
        return run(2, args);
    }
    Runner run = find(sub);
    if (run == nullptr)
        return cli::usageError("zelctl", std::string("unknown subcommand '") + sub + "'");
    return run(argc - 1, argv + 1);
}
