// zel-j1939-table: turns a J1939 signal table in CSV into the 6048-byte
// table message the alert service takes (476), and lists which event each
// signal feeds.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "SignalTable.h"

int dbcMain(int argc, char** argv);  // DbcMain.cpp: --dbc FILE.dbc -o TABLE.csv

namespace {

const char kProgram[] = "zel-j1939-table";
const char kUsage[] =
    "usage: zel-j1939-table CSV OUT.bin\n"
    "       zel-j1939-table --dbc FILE.dbc -o TABLE.csv [--pick NAME,NAME...]\n"
    "\n"
    "Reads a J1939 signal table (header: name,pgn,startbyte,startbit,length,\n"
    "resolution,offset[,unit,...]) and writes the 6048-byte table payload.\n"
    "Data row n becomes table row n, which a rule names as event J1939n.\n"
    "With --dbc, writes the table CSV of the signals of a DBC file instead;\n"
    "those the table cannot hold are named on standard error and left out.\n"
    "--version prints the version. Exit status: 0 written, 1 refused or not\n"
    "written, 2 a wrong call.\n"
    "\n"
    "example:\n"
    "  zel-j1939-table examples/j1939/signals.csv /tmp/j1939-table.bin\n";

int cannot(const char* what, const char* path) {
    return cli::fail(kProgram,
                     std::string("cannot ") + what + " " + path + ": " + cli::errorText(errno));
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], "--dbc") == 0) return dbcMain(argc, argv);
    for (int i = 1; i < argc; ++i)
        if (argv[i][0] == '-' && argv[i][1] != '\0')
            return cli::usageError(kProgram, std::string("unknown option ") + argv[i]);
    if (argc != 3) return cli::usageError(kProgram, "needs CSV and OUT.bin");
    const char* csvPath = argv[1];
    const char* outPath = argv[2];

    std::ifstream csv(csvPath);
    if (!csv) return cannot("read", csvPath);
    std::vector<zelj1939::SignalRow> rows;
    std::string error;
    if (!zelj1939::parseSignalTable(csv, rows, error))
        return cli::fail(kProgram, std::string(csvPath) + ": " + error);

    std::vector<uint8_t> payload = zelj1939::buildTablePayload(rows);
    FILE* out = fopen(outPath, "wb");
    if (out == nullptr) return cannot("write", outPath);
    size_t written = fwrite(payload.data(), 1, payload.size(), out);
    if (fclose(out) != 0 || written != payload.size()) return cannot("write", outPath);

    for (size_t n = 0; n < rows.size(); ++n) {
        const zelj1939::SignalRow& r = rows[n];
        printf("J1939%-3zu %-32s pgn %5u byte %u bit %u len %2d x %.8g %+g %s\n", n,
               r.name.c_str(), static_cast<unsigned>(r.pgn), r.startbyte, r.startbit, r.length, r.resolution,
               r.offset, r.unit.c_str());
    }
    printf("wrote %zu signals to %s (%zu bytes)\n", rows.size(), outPath, payload.size());
    return 0;
}
