// zel-j1939-table --dbc: the signal table CSV of a DBC file. Signals the
// table cannot hold are named on standard error with the reason and left
// out; --pick chooses signals when a DBC has more than fit.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Dbc.h"
#include "PlatformRules.h"

int dbcMain(int argc, char** argv) {
    std::string dbc;
    std::string out;
    std::vector<std::string> pick;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--dbc" || a == "-o" || a == "--pick") {
            if (i + 1 >= argc) {
                fprintf(stderr, "zel-j1939-table: %s needs a value\n", a.c_str());
                return 2;
            }
            std::string v = argv[++i];
            if (a == "--dbc") dbc = v;
            else if (a == "-o") out = v;
            else {
                std::istringstream names(v);
                std::string name;
                while (std::getline(names, name, ','))
                    if (!name.empty()) pick.push_back(name);
            }
        } else {
            fprintf(stderr, "zel-j1939-table: unexpected '%s' (see --help)\n", a.c_str());
            return 2;
        }
    }
    if (dbc.empty() || out.empty()) {
        fprintf(stderr, "zel-j1939-table: --dbc FILE.dbc -o TABLE.csv are both needed\n");
        return 2;
    }
    std::string text;
    std::string error;
    if (!platformpeer::readFile(dbc, text, error)) {
        fprintf(stderr, "zel-j1939-table: %s\n", error.c_str());
        return 2;
    }
    std::vector<zelj1939::DbcSignal> signals;
    if (!zelj1939::parseDbc(text, signals, error)) {
        fprintf(stderr, "zel-j1939-table: %s: %s\n", dbc.c_str(), error.c_str());
        return 2;
    }
    std::vector<zelj1939::SignalRow> rows;
    std::vector<std::string> comments;
    std::vector<zelj1939::LeftOut> left;
    zelj1939::dbcRows(signals, pick, true, rows, comments, left);
    for (const zelj1939::LeftOut& l : left)
        fprintf(stderr, "left out %s: %s\n", l.name.c_str(), l.reason.c_str());
    if (rows.empty()) {
        fprintf(stderr, "zel-j1939-table: %s: no signal the table can hold\n", dbc.c_str());
        return 2;
    }
    std::ofstream csv(out, std::ios::binary);
    csv << zelj1939::tableCsv(rows, comments);
    csv.close();
    if (!csv) {
        fprintf(stderr, "zel-j1939-table: %s: %s\n", out.c_str(), cli::errorText(errno).c_str());
        return 2;
    }
    printf("wrote %zu signal%s to %s; %zu left out\n", rows.size(), rows.size() == 1 ? "" : "s",
           out.c_str(), left.size());
    return 0;
}
