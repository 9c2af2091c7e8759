// The J1939 table and a CAN log as lint sees them: every row as the service
// would hold it, even rows the service skips, so that each can be reported.
//
// A table is read from the CSV a person writes, through the table's one
// reader (formats/SignalTable.h) with ranges unchecked, so that rows the
// converter refuses, such as a group number of 0, are kept and reported; or
// from a 6048-byte table payload as the service receives it. A CAN log is read
// through the one candump reader (formats/Candump.h).
#ifndef ZELAUTHOR_TABLELINT_H
#define ZELAUTHOR_TABLELINT_H

#include <stdint.h>

#include <string>
#include <vector>

#include "Candump.h"
#include "Findings.h"

namespace zelauthor {

struct TableRow {
    std::string name;   // empty for a binary table
    int line = 0;       // line of the CSV; 0 for a binary table
    uint32_t id = 0;    // the row's signal number; a CSV row's is its index
    int32_t length = 0;
    uint64_t pgn = 0;   // as written; the service keeps 32 bits and matches 16
    uint32_t startbyte = 0;
    uint32_t startbit = 0;
    double resolution = 1.0;
    double offset = 0.0;

    bool counts() const { return id < 64 && length != 0 && pgn != 0; }
    std::string label() const;  // "wheel_based_vehicle_speed, line 2" or ""
};

struct J1939Table {
    std::string path;
    bool binary = false;
    std::vector<TableRow> rows;  // a CSV may hold more than the 64 that fit
    // Why the table's reader with the service's ranges refuses the CSV, as
    // zel-j1939-table, replay and the player say it ("line N: what"); empty
    // when they take it.
    std::string refused;

    // The row a frame of group `pgn` feeds: the first counting row of that
    // group among rows 0..63, or -1.
    int rowFedBy(uint32_t pgn) const;
};

Status loadTable(const std::string& path, J1939Table& out, std::string& error);

// A trigger of a rule on event J1939n.
struct RowUse {
    uint32_t row;
    double threshold;
    std::string rule;  // "rule 31"
    bool gt;           // a GT trigger, which J1939's codes for missing values pass
};

Status loadCanLog(const std::string& path, std::vector<zelj1939::CanFrame>& frames,
                  std::string& error);

void lintTable(const J1939Table& table, Findings& out);
// CAN findings on a row that no rule reads are notes.
void lintCan(const J1939Table& table, const std::vector<zelj1939::CanFrame>& frames,
             const std::vector<RowUse>& uses, Findings& out);

// The row's value in a frame's data field, decoded as the service decodes it;
// `raw` gets the field's bits.
double decodeRow(const TableRow& row, uint64_t data, uint64_t& raw);
// "not available", "error" or "reserved" for J1939's codes at the top of a
// field's range, or nullptr for a reading.
const char* specialValue(uint64_t raw, int32_t length);

}  // namespace zelauthor

#endif  // ZELAUTHOR_TABLELINT_H
