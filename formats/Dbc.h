// CAN databases in the DBC form the industry keeps J1939 signals in, read as
// far as a J1939 signal table needs: the messages (BO_), their signals (SG_),
// the signals' comments (CM_ SG_) and value types (SIG_VALTYPE_). Every other
// section (VERSION, NS_, BS_, BU_, value tables, attributes, other comments,
// environment variables, signal groups ...) is read past, including strings
// that span lines.
//
//   BO_ 2364540158 EEC1: 8 Engine
//    SG_ EngineSpeed : 24|16@1+ (0.125,0) [0|8031.875] "rpm" Vector__XXX
//   CM_ SG_ 2364540158 EngineSpeed "Actual engine speed.";
//
// A message identifier with bit 31 set is an extended (29-bit) one. The table
// takes what the service can decode: Intel (little-endian) unsigned integer
// signals of extended frames whose 16 bits 8..23 of the identifier make the
// group number the service matches, no more than its 64 rows. Each signal it
// cannot hold is left out with the reason.
#ifndef ZELFORMATS_DBC_H
#define ZELFORMATS_DBC_H

#include <stdint.h>

#include <string>
#include <vector>

#include "SignalTable.h"

namespace zelj1939 {

struct DbcSignal {
    std::string name;
    std::string message;   // name of its BO_
    uint32_t id = 0;       // the message identifier as written, with bit 31
    int start = 0;         // start bit as written
    int length = 0;
    bool intel = true;     // @1; @0 is Motorola (big-endian)
    bool isSigned = false;
    std::string mux;       // "", "M" (the multiplexor) or "m3" (multiplexed)
    double factor = 1, offset = 0;
    std::string unit;
    std::string comment;
    int valueType = 0;     // SIG_VALTYPE_: 0 integer, 1 float, 2 double
    int line = 0;
};

// Reads a DBC text. On failure false with `error` "line N: what is wrong".
bool parseDbc(const std::string& text, std::vector<DbcSignal>& out, std::string& error);

// True when `text` reads as a DBC rather than a CSV table: its first word is
// one of the DBC section keywords.
bool looksLikeDbc(const std::string& text);

struct LeftOut {
    std::string name;
    std::string reason;
};

// The table rows of `signals`, in order; those it cannot hold go to `left`.
// `pick`, when not empty, names the signals to take (any order of writing;
// rows follow the DBC); a name picked but not in the DBC is left out too.
// `cap`: at most kMaxSignals rows, the rest left out as not fitting.
void dbcRows(const std::vector<DbcSignal>& signals, const std::vector<std::string>& pick,
             bool cap, std::vector<SignalRow>& rows, std::vector<std::string>& comments,
             std::vector<LeftOut>& left);

// The CSV of a table: the header name,pgn,startbyte,startbit,length,
// resolution,offset,unit,comment and one line a row; numbers written so
// that they read back the same.
std::string tableCsv(const std::vector<SignalRow>& rows, const std::vector<std::string>& comments);

}  // namespace zelj1939

#endif  // ZELFORMATS_DBC_H
