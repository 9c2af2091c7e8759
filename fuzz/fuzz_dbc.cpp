// The DBC reader and its table: any text is read or refused with a line,
// never crashes; what it reads makes a table CSV that reads back as a table.
#include <stddef.h>
#include <stdint.h>

#include <sstream>
#include <string>
#include <vector>

#include "Dbc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<zelj1939::DbcSignal> signals;
    std::string error;
    if (!zelj1939::parseDbc(text, signals, error)) return 0;
    std::vector<zelj1939::SignalRow> rows;
    std::vector<std::string> comments;
    std::vector<zelj1939::LeftOut> left;
    zelj1939::dbcRows(signals, std::vector<std::string>(), true, rows, comments, left);
    std::istringstream csv(zelj1939::tableCsv(rows, comments));
    std::vector<zelj1939::SignalRow> back;
    if (!rows.empty() && !zelj1939::parseSignalTable(csv, back, error)) __builtin_trap();
    return 0;
}
