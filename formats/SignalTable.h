// J1939 signal tables as a person writes them, and the 6048-byte table
// message the service takes (messages 476 and 33243).
//
// The text form is CSV: a header line whose first columns are
// name,pgn,startbyte,startbit,length,resolution,offset, in that order; any
// further columns (unit, notes) are ignored. Blank lines and lines starting
// with '#' are skipped. Data row n (counted from 0) becomes table row n and so
// feeds the service's event J1939n. Fields may be quoted with "...", with ""
// for a quote inside.
//
// parseSignalTable is the one reader of the CSV: zel-j1939-table, zelctl,
// scenarios and zel-author replay read tables with the service's ranges
// checked; zel-author lint reads them with the syntax checked only, so that it
// can report each row the service would skip. A DBC file is read too, as the
// table zel-j1939-table --dbc makes of it (formats/Dbc.h), so that every
// program that takes a table takes a DBC.
#ifndef ZELFORMATS_SIGNALTABLE_H
#define ZELFORMATS_SIGNALTABLE_H

#include <stdint.h>

#include <istream>
#include <string>
#include <vector>

namespace zelj1939 {

struct SignalRow {
    std::string name;
    uint64_t pgn;        // 1..65535: the service matches bits 8..23 of the identifier
    uint32_t startbyte;  // 0..7
    uint32_t startbit;   // 0..7, within the start byte
    int32_t length;      // 1..64 bits, ending inside the 8 data bytes
    double resolution;
    double offset;
    std::string unit;    // the eighth column when there is one, else empty
    int line;            // line of the file it came from
};

// Rows the table can hold.
const size_t kMaxSignals = 64;
// Size of the table message's payload.
const size_t kTablePayloadSize = 6048;
// Written into each row's source field: frames are not matched on it.
const uint32_t kAnySource = 0xff;

// How much of a row the reader checks.
enum RowCheck {
    kServiceRanges,  // the ranges above, at most kMaxSignals rows: the table as sent
    kSyntaxOnly,     // numbers as numbers; rows kept as written, even past the 64th
};

// Reads a whole table. On failure returns false, leaves `rows` as far as it
// got, and sets `error` to one line of the form "line N: what is wrong".
bool parseSignalTable(std::istream& whole, std::vector<SignalRow>& rows, std::string& error,
                      RowCheck check = kServiceRanges);

// True when `data` is a table payload as the service receives it rather than
// CSV text: exactly its size, and not starting with the CSV header.
bool isTablePayload(const std::string& data);

// The table payload: row n of `rows` at table row n with id n; rows behind
// the last are zero, that is empty. At most kMaxSignals rows are written.
std::vector<uint8_t> buildTablePayload(const std::vector<SignalRow>& rows);

// A whole number: decimal, or hexadecimal with 0x. No sign, no trailing text.
bool parseWhole(const std::string& text, unsigned long long& out);

// One CSV line split into fields. False on an unterminated quote.
bool splitCsvLine(const std::string& line, std::vector<std::string>& fields);

}  // namespace zelj1939

#endif  // ZELFORMATS_SIGNALTABLE_H
