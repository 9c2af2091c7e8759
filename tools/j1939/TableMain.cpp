// zel-j1939-table: turns a J1939 signal table in CSV into the 6048-byte
// table message the alert service takes (476), and lists which event each
// signal feeds.
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <string>
#include <vector>

#include "SignalTable.h"

int dbcMain(int argc, char** argv);  // DbcMain.cpp: --dbc FILE.dbc -o TABLE.csv

namespace {

void printUsage(FILE* out, const char* program) {
    fprintf(out,
            "usage: %s CSV OUT.bin\n"
            "       %s --dbc FILE.dbc -o TABLE.csv [--pick NAME,NAME...]\n"
            "\n"
            "Reads a J1939 signal table (header: name,pgn,startbyte,startbit,length,\n"
            "resolution,offset[,unit,...]) and writes the 6048-byte table payload.\n"
            "Data row n becomes table row n, which a rule names as event J1939n.\n"
            "With --dbc, writes the table CSV of the signals of a DBC file instead;\n"
            "those the table cannot hold are named on standard error and left out.\n"
            "\n"
            "example:\n"
            "  %s examples/j1939/signals.csv /tmp/j1939-table.bin\n",
            program, program, program);
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], "--dbc") == 0) return dbcMain(argc, argv);
    bool help = argc == 2 && (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0);
    if (argc != 3) {
        printUsage(help ? stdout : stderr, argv[0]);
        return help ? 0 : 1;
    }
    const char* csvPath = argv[1];
    const char* outPath = argv[2];

    std::ifstream csv(csvPath);
    if (!csv) {
        perror(csvPath);
        return 1;
    }
    std::vector<zelj1939::SignalRow> rows;
    std::string error;
    if (!zelj1939::parseSignalTable(csv, rows, error)) {
        fprintf(stderr, "%s: %s\n", csvPath, error.c_str());
        return 1;
    }

    std::vector<uint8_t> payload = zelj1939::buildTablePayload(rows);
    FILE* out = fopen(outPath, "wb");
    if (out == NULL) {
        perror(outPath);
        return 1;
    }
    size_t written = fwrite(payload.data(), 1, payload.size(), out);
    if (fclose(out) != 0 || written != payload.size()) {
        perror(outPath);
        return 1;
    }

    for (size_t n = 0; n < rows.size(); ++n) {
        const zelj1939::SignalRow& r = rows[n];
        printf("J1939%-3zu %-32s pgn %5u byte %u bit %u len %2d x %.8g %+g %s\n", n,
               r.name.c_str(), static_cast<unsigned>(r.pgn), r.startbyte, r.startbit, r.length, r.resolution,
               r.offset, r.unit.c_str());
    }
    printf("wrote %zu signals to %s (%zu bytes)\n", rows.size(), outPath, payload.size());
    return 0;
}
