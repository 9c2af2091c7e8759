// zelctl send and zelctl table: one signal, or a J1939 table, on the bus.
#include <stdlib.h>
#include <string.h>

#include <fstream>

#include "CommandLine.h"
#include "Common.h"
#include "MessageIds.h"
#include "PeerUtil.h"
#include "Scenario.h"
#include "SignalTable.h"
#include "Zelctl.h"

namespace zelctl {

namespace {

const char kSendUsage[] =
    "usage: zelctl send SIGNAL ARGS...\n"
    "  Sends one signal, written as a scenario step without its time. The running\n"
    "  state of input and motion starts from zero: `send input 3 on` sends the word\n"
    "  with input 3 alone. A cantrace is sent at its recorded timing.\n"
    "%s"
    "examples:\n"
    "  zelctl send speed 70 mph\n"
    "  zelctl send vehicle systemp=45.5 volt=12.4 ignition=on\n"
    "  zelctl send can 18FEEE00#7DFFFFFFFFFFFFFF\n"
    "  zelctl send fence 7 in\n";

const char kTableUsage[] =
    "usage: zelctl table FILE.csv\n"
    "  Sends the J1939 signal table built from a CSV file (476). Header:\n"
    "  name,pgn,startbyte,startbit,length,resolution,offset[,unit,...]; data row n\n"
    "  feeds the event J1939n.\n"
    "example:\n"
    "  zelctl table examples/j1939/signals.csv\n";

bool sendPayload(void* bus, unsigned id, const std::vector<uint8_t>& p) {
    return Common::Q7X_MSGSendMessage(bus, 0, id, 0, p.data(), static_cast<int>(p.size()), 0) ==
           0;
}

// "line N: what" of the table reader as "FILE:N: what".
std::string atFileLine(const std::string& file, const std::string& error) {
    if (error.compare(0, 5, "line ") != 0) return file + ": " + error;
    return file + ":" + error.substr(5);
}

}  // namespace

int runSend(int argc, char** argv) {
    if (asksHelp(argc, argv)) {
        std::string text(sizeof kSendUsage + strlen(zelscenario::signalSyntax()), '\0');
        snprintf(text.data(), text.size(), kSendUsage, zelscenario::signalSyntax());
        return usage(text.c_str());
    }
    if (argc < 2) return wrongCall("send", "no signal");
    std::vector<std::string> words(argv + 1, argv + argc);
    std::vector<zelscenario::Step> steps;
    std::string error;
    if (!zelscenario::parseSignal(words, "", steps, error)) return wrongCall("send", error);
    if (!brokerThere("send")) return 1;
    catchStop();
    void* bus = openBus();
    const double start = peer::monotonicSeconds();
    size_t sent = 0;
    for (const zelscenario::Step& s : steps) {
        while (g_running && peer::monotonicSeconds() < start + s.at)
            Common::Q7X_MSGWaitForEvent(bus, 5);
        if (!g_running) break;
        if (!sendPayload(bus, s.id, s.payload))
            return refuse("send", "could not send message " + std::to_string(s.id) +
                                      " to the broker");
        ++sent;
    }
    if (steps.size() == 1)
        printf("sent %s: message %u, %zu bytes\n", words[0].c_str(), steps[0].id,
               steps[0].payload.size());
    else
        printf("sent %zu of %zu messages of %s\n", sent, steps.size(), words[0].c_str());
    return sent == steps.size() ? 0 : 1;
}

int runTable(int argc, char** argv) {
    if (asksHelp(argc, argv)) return usage(kTableUsage);
    if (argc != 2) return wrongCall("table", argc < 2 ? "no FILE.csv" : "one FILE.csv only");
    const std::string path = argv[1];
    std::ifstream in(path.c_str());
    if (!in) return refuse("table", path + ": cannot read: " + cli::errorText(errno));
    std::vector<zelj1939::SignalRow> rows;
    std::string error;
    if (!zelj1939::parseSignalTable(in, rows, error))
        return refuse("table", atFileLine(path, error));
    if (!brokerThere("table")) return 1;
    void* bus = openBus();
    if (!sendPayload(bus, zel::kMsgJ1939Param, zelj1939::buildTablePayload(rows)))
        return refuse("table", "could not send the table (476) to the broker");
    for (size_t n = 0; n < rows.size(); ++n)
        printf("J1939%-3zu %-32s pgn %5u\n", n, rows[n].name.c_str(),
               static_cast<unsigned>(rows[n].pgn));
    printf("sent the table of %zu signals from %s (message 476)\n", rows.size(), path.c_str());
    return 0;
}

}  // namespace zelctl
