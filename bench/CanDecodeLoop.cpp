// The backtest's baseline: a bare loop that only reads a candump log line by
// line and decodes each frame with the J1939 table, as the service decodes
// it, and nothing else. Prints "frames SECONDS" for scripts/bench.sh.
#include <stdio.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "Candump.h"
#include "TableLint.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: az-can-decode-loop TABLE.csv LOG\n");
        return 2;
    }
    zelauthor::J1939Table table;
    std::string error;
    if (zelauthor::loadTable(argv[1], table, error) != zelauthor::kClean) {
        fprintf(stderr, "az-can-decode-loop: %s\n", error.c_str());
        return 2;
    }
    auto start = std::chrono::steady_clock::now();
    std::ifstream in(argv[2]);
    std::string line;
    zelj1939::CanFrame frame;
    size_t frames = 0;
    double sum = 0;
    while (std::getline(in, line)) {
        if (!zelj1939::parseCandumpLine(line, frame)) continue;
        ++frames;
        uint32_t pgn = (frame.id >> 8) & 0xffff;
        for (const zelauthor::TableRow& r : table.rows) {
            if (r.pgn != pgn || !r.counts()) continue;
            uint64_t raw = 0;
            sum += zelauthor::decodeRow(r, frame.dataLe(), raw);
        }
    }
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    printf("%zu %.6f %g\n", frames, s, sum > 0 ? 1.0 : 0.0);
    return 0;
}
