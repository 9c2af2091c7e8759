// The J1939 tools: signal tables in CSV, the table message built from them,
// candump lines; and real truck traces through the service with the example
// table, read from the shared data folder beside the repository (the test is
// skipped where it is absent).
#include <fstream>
#include <map>
#include <sstream>

#include "Candump.h"
#include "SignalMessages.h"
#include "SignalTable.h"

using zelj1939::CanFrame;
using zelj1939::SignalRow;

namespace {

bool parse(const std::string& text, std::vector<SignalRow>& rows, std::string& error) {
    std::istringstream in(text);
    return zelj1939::parseSignalTable(in, rows, error);
}

TEST(SignalTable, ReadsRowsInOrderAndBuildsTheTableMessage) {
    std::string text = std::string("\xEF\xBB\xBF") +
                       "name, pgn ,startbyte,startbit,length,resolution,offset,unit,notes\r\n"
                       "# comments and blank lines are not rows\n"
                       "\n"
                       "speed,65265,1,2,16,0.00390625,0,km/h,\"CCVS1, bytes 2-3\"\r\n"
                       "\"cool, ant\",0xFEEE,0,0,8,1,-40\n"
                       "gear,61445,7,0,8,0.5,-1.25e2,gear,x,y,z\n";  // ends at bit 64
    std::vector<SignalRow> rows;
    std::string error;
    ASSERT_TRUE(parse(text, rows, error)) << error;
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].name + "|" + rows[0].unit + "|" + rows[1].name + "|" + rows[1].unit,
              "speed|km/h|cool, ant|");
    EXPECT_EQ(rows[0].line, 4);
    // Row n at table row n with id n, any source, no maximum; the rest empty.
    EXPECT_EQ(zelj1939::buildTablePayload(rows),
              sig::j1939Table({{0, 16, 65265, 1, 2, 0.00390625, 0, 0, 0xff},
                               {1, 8, 65262, 0, 0, 1, -40, 0, 0xff},
                               {2, 8, 61445, 7, 0, 0.5, -125, 0, 0xff}}));
}

// Errors name the line. Lint reads the same CSV without the service's ranges
// (kSyntaxOnly), to report the rows the service would skip; numbers must
// still be numbers.
TEST(SignalTable, ErrorsNameTheLineAndSyntaxOnlyLeavesOutTheRanges) {
    using zelj1939::kServiceRanges;
    using zelj1939::kSyntaxOnly;
    const std::string h = "name,pgn,startbyte,startbit,length,resolution,offset,unit\n";
    std::string tooMany = h;
    for (int i = 0; i < 65; ++i) tooMany += "s,65265,0,0,8,1,0\n";
    const std::string sixtyFour = tooMany.substr(0, tooMany.rfind("s,"));
    const std::string wide = h + "a,131072,6,12,16,1,0\n";
    const struct { zelj1939::RowCheck check; std::string text, error; } rows[] = {  // error or ""
        {kServiceRanges, "", "line 1: no header line"},
        {kServiceRanges, "name,pgn,startbit,startbyte,length,resolution,offset\n",
         "line 1: the header must begin with name,pgn,startbyte,startbit,length,resolution,offset"},
        {kServiceRanges, h + "a,65265,1,0,16,1\n", "line 2: expected at least 7 columns, found 6"},
        {kServiceRanges, h + "\na,65265,1,0,16,1,0\n,1,1,0,8,1,0\n", "line 4: name is empty"},
        {kServiceRanges, h + "a,131072,0,0,8,1,0\n",
         "line 2: pgn 131072 is outside 1..65535 (the service matches bits 8..23 of a frame's "
         "identifier)"},
        {kServiceRanges, h + "a,-5,0,0,8,1,0\n", "line 2: pgn: '-5' is not a whole number"},
        {kServiceRanges, h + "a,65265,8,0,8,1,0\n", "line 2: startbyte 8 is outside 0..7"},
        {kServiceRanges, h + "a,65265,0,0,65,1,0\n", "line 2: length 65 is outside 1..64"},
        {kServiceRanges, h + "a,65265,6,4,16,1,0\n",
         "line 2: the signal ends at bit 68, past the 64 bits of the data field"},
        {kServiceRanges, h + "a,65265,1,0,8,1,nan\n", "line 2: offset: 'nan' is not a number"},
        {kServiceRanges, h + "\"a,65265,1,0,8,1,0\n", "line 2: unterminated quote"},
        {kServiceRanges, tooMany, "line 66: more than 64 signals; the table holds 64"},
        {kServiceRanges, sixtyFour, ""},
        {kSyntaxOnly, h + ",0,0,0,0,1,0\n", ""},  // no name, no group, no length
        {kSyntaxOnly, wide, ""},                  // wide group, past the data field
        {kSyntaxOnly, tooMany, ""},
        {kSyntaxOnly, h + "a,65265,0,0,-1,1,0\n", "line 2: length: '-1' is not a whole number"},
        {kSyntaxOnly, h + "a,65265,4294967296,0,8,1,0\n",
         "line 2: startbyte 4294967296 is outside 0..4294967295"},
        {kSyntaxOnly, h + "a,65265,1,0,8,x,0\n", "line 2: resolution: 'x' is not a number"},
    };
    for (const auto& r : rows) {
        std::istringstream in(r.text);
        std::vector<SignalRow> out;
        std::string error;
        EXPECT_EQ(zelj1939::parseSignalTable(in, out, error, r.check), r.error.empty()) << r.text;
        EXPECT_EQ(error, r.error) << r.text;
        if (r.check == kSyntaxOnly && r.text == wide) {
            EXPECT_EQ(out.at(0).pgn, 131072u);
            EXPECT_EQ(out.at(0).startbit, 12u);
        }
    }
}

// Every tool reads a log through one reader: blank lines pass, anything else
// that is not a frame refuses the whole log.
TEST(Candump, LogReaderRefusesALogWithAnyLineThatIsNoFrame) {
    const std::pair<std::string, std::string> cases[] = {  // {log, error or ""}
        {"(1.0) can0 123#01\n\n \t\r\n(1.5) can0 124#02\r\n", ""},
        {"(1.0) can0 123#01\ngarbage\n(1.5) can0 124#02\n",
         "t.log:2: not a classic CAN frame of candump -l or -ta"},
        {"\n  \n", "t.log holds no frame"},
    };
    for (const auto& [log, expected] : cases) {
        std::istringstream in(log);
        std::vector<CanFrame> frames;
        std::string error;
        EXPECT_EQ(zelj1939::readCandumpLog(in, "t.log", frames, error), expected.empty()) << log;
        EXPECT_EQ(error, expected) << log;
        if (expected.empty()) {
            EXPECT_EQ(frames.size(), 2u);
        }
    }
}

TEST(Candump, ReadsBothLogFormsIntoTheFrameMessage) {
    struct { std::string line; double time; const char* iface; uint32_t id; bool extended; int dlc;
             uint64_t data; } rows[] = {
        {"(1690000000.123456) can0 18FEF100#FF3417FCFF6800CF", 1690000000.123456, "can0",
         0x18FEF100, true, 8, 0xCF0068FFFC1734FFull},
        {" (000.011063)  can0  18FEF100   [8]  FF 34 17 FC FF 68 00 CF", 0.011063, "can0",
         0x18FEF100, true, 8, 0xCF0068FFFC1734FFull},
        {"(1.5) can1 18EA00F9#ECFE00", 1.5, "can1", 0x18EA00F9, true, 3, 0x00FEEC},
        {"(2.0) vcan0 123#", 2.0, "vcan0", 0x123, false, 0, 0},
        {"(2.0) can0 7FF#0102 T", 2.0, "can0", 0x7FF, false, 2, 0x0201},
        {" (000.5)  can0  123   [2]  0A 0b", 0.5, "can0", 0x123, false, 2, 0x0B0A},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.line);
        CanFrame f;
        ASSERT_TRUE(zelj1939::parseCandumpLine(r.line, f));
        EXPECT_EQ(f.time, r.time);
        EXPECT_EQ(f.iface, r.iface);
        EXPECT_EQ(f.extended, r.extended);
        EXPECT_EQ(f.dlc, r.dlc);
        // The identifier at 12 and the data field at 20, the rest zero.
        EXPECT_EQ(zelj1939::canFramePayload(f), sig::record(28, {{12, 4, r.id}, {20, 8, r.data}}));
    }
}

TEST(Candump, RefusesWhatIsNotAClassicFrame) {
    const char* lines[] = {
        "", "# comment", "(1.0) can0 123#R" /* remote */, "(1.0) can0 123##10102" /* FD */,
        "(1.0) can0 123#010203040506070809", "(1.0) can0 123#0G", "(1.0) can0 12345#01",
        "(1.0) can0 3FFFFFFF#01", "(1.0) can0 800#01", "1.0 can0 123#01", "(x) can0 123#01",
        " (000.1)  can0  123   [9]  01", " (000.1)  can0  123   [3]  01 02"};
    for (const char* line : lines) {
        CanFrame f;
        EXPECT_FALSE(zelj1939::parseCandumpLine(line, f)) << line;
    }
}

// J1939 keeps the top of each field's range for "error" and "not available"
// (a byte above 0xFA, a word above 0xFAFF, ...). Senders use them and the
// service decodes them like any other value; plausibility is judged on the rest.
bool isDataValue(const zelj1939::SignalRow& row, uint64_t data) {
    uint32_t length = static_cast<uint32_t>(row.length);
    if (length < 8) return true;
    uint64_t raw = data >> (row.startbit + 8 * row.startbyte);
    if (length < 64) raw &= (1ull << length) - 1;
    uint32_t low = length - 8;
    return raw <= ((0xFAull << low) | ((1ull << low) - 1));
}

TEST(TruckTrace, DecodesIntoPlausibleValues) {
    struct Range { uint32_t row; double lo, hi; };  // every row named must decode once
    // Rows of examples/j1939/signals.csv: 0 wheel speed, 1 engine speed,
    // 2 coolant, 3 pedal, 4 fuel level, 5 battery.
    const std::pair<const char*, std::vector<Range>> traces[] = {
        {"normal.candump.log",  // some 30 seconds of driving
         {{0, 0, 150}, {1, 0, 3000}, {2, -40, 150}, {3, 0, 100}, {4, 0, 100}, {5, 10, 30}}},
        {"candump-2021-10-14_234124.log",  // parked with the engine off
         {{0, 0, 1}, {1, 0, 1}, {2, -40, 150}, {3, 0, 100}, {5, 10, 30}}}};
    std::string table = std::string(AZ_EXAMPLES_DIR) + "/j1939/signals.csv";
    std::ifstream csv(table);
    std::vector<zelj1939::SignalRow> rows;
    std::string error;
    ASSERT_TRUE(zelj1939::parseSignalTable(csv, rows, error)) << table << ": " << error;
    ASSERT_GE(rows.size(), 6u);
    for (const auto& [file, ranges] : traces) {
        std::string path = std::string(AZ_J1939_DATA_DIR) + "/" + file;
        std::ifstream log(path);
        if (!log) GTEST_SKIP() << "J1939 trace " << path << " not found; this test reads it from "
                               << "the shared data folder beside the repository";
        SCOPED_TRACE(file);
        harness::Harness h;
        h.start();
        h.deliver(476, zelj1939::buildTablePayload(rows));
        struct Seen { int data = 0; double lo = 1e300, hi = -1e300; };
        std::map<uint32_t, Seen> seen;  // by row, the values that are data
        std::string line;
        while (std::getline(log, line)) {
            zelj1939::CanFrame f;
            ASSERT_TRUE(zelj1939::parseCandumpLine(line, f)) << line;
            h.deliver(1089, zelj1939::canFramePayload(f));
            h.clearLines();
            uint32_t pgn = (f.id >> 8) & 0xffff;
            uint32_t r = 0;  // the first row of the frame's group is fed
            while (r < rows.size() && rows[r].pgn != pgn) ++r;
            if (r == rows.size()) continue;
            double v = 0;
            ASSERT_TRUE(h.service().m_J1939Value.find(r, v)) << line;
            if (!isDataValue(rows[r], f.dataLe())) continue;
            Seen& s = seen[r];
            ++s.data;
            s.lo = std::min(s.lo, v);
            s.hi = std::max(s.hi, v);
        }
        for (uint32_t e = 34; e <= 97; ++e) EXPECT_TRUE(h.service().isEventValid(e));
        for (const Range& r : ranges) {
            const Seen& s = seen[r.row];
            const char* name = rows[r.row].name.c_str();
            EXPECT_GT(s.data, 0) << name;
            EXPECT_GE(s.lo, r.lo) << name;
            EXPECT_LE(s.hi, r.hi) << name;
        }
    }
}

}  // namespace
