// The J1939 tools: signal tables in CSV, the table message built from them,
// and candump lines.
#include <sstream>

#include <gtest/gtest.h>

#include "ByteOrder.h"
#include "Candump.h"
#include "SignalTable.h"

using zelj1939::CanFrame;
using zelj1939::SignalRow;

namespace {

const char kHeader[] = "name,pgn,startbyte,startbit,length,resolution,offset,unit\n";

bool parse(const std::string& text, std::vector<SignalRow>& rows, std::string& error) {
    std::istringstream in(text);
    return zelj1939::parseSignalTable(in, rows, error);
}

TEST(SignalTable, ReadsRowsInOrderAndIgnoresExtraColumns) {
    std::string text = std::string("\xEF\xBB\xBF") +
                       "name, pgn ,startbyte,startbit,length,resolution,offset,unit,notes\r\n"
                       "# comments and blank lines are not rows\n"
                       "\n"
                       "speed,65265,1,0,16,0.00390625,0,km/h,\"CCVS1, bytes 2-3\"\r\n"
                       "\"cool, ant\",0xFEEE,0,0,8,1,-40\n"
                       "gear,61445,3,0,8,1,-1.25e2,gear,x,y,z\n";
    std::vector<SignalRow> rows;
    std::string error;
    ASSERT_TRUE(parse(text, rows, error)) << error;
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].name, "speed");
    EXPECT_EQ(rows[0].pgn, 65265u);
    EXPECT_EQ(rows[0].startbyte, 1u);
    EXPECT_EQ(rows[0].length, 16);
    EXPECT_EQ(rows[0].resolution, 0.00390625);
    EXPECT_EQ(rows[0].unit, "km/h");
    EXPECT_EQ(rows[0].line, 4);
    EXPECT_EQ(rows[1].name, "cool, ant");
    EXPECT_EQ(rows[1].pgn, 65262u);
    EXPECT_EQ(rows[1].offset, -40.0);
    EXPECT_EQ(rows[1].unit, "");
    EXPECT_EQ(rows[2].offset, -125.0);
}

TEST(SignalTable, ErrorsNameTheLine) {
    const std::string h = kHeader;
    std::string tooMany = h;
    for (int i = 0; i < 65; ++i) tooMany += "s,65265,0,0,8,1,0\n";
    struct Row {
        std::string text;
        std::string error;
    } rows[] = {
        {"", "line 1: no header line"},
        {"name,pgn,startbit,startbyte,length,resolution,offset\n",
         "line 1: the header must begin with name,pgn,startbyte,startbit,length,resolution,offset"},
        {h + "a,65265,1,0,16,1\n", "line 2: expected at least 7 columns, found 6"},
        {h + "\na,65265,1,0,16,1,0\n,1,1,0,8,1,0\n", "line 4: name is empty"},
        {h + "a,0,0,0,8,1,0\n", "line 2: pgn 0 is outside 1..65535"},
        {h + "a,131072,0,0,8,1,0\n",
         "line 2: pgn 131072 is outside 1..65535 (the service matches bits 8..23 of a frame's "
         "identifier)"},
        {h + "a,-5,0,0,8,1,0\n", "line 2: pgn: '-5' is not a whole number"},
        {h + "a,65265,8,0,8,1,0\n", "line 2: startbyte 8 is outside 0..7"},
        {h + "a,65265,0,8,8,1,0\n", "line 2: startbit 8 is outside 0..7"},
        {h + "a,65265,0,0,0,1,0\n", "line 2: length 0 is outside 1..64"},
        {h + "a,65265,0,0,65,1,0\n", "line 2: length 65 is outside 1..64"},
        {h + "a,65265,6,4,16,1,0\n",
         "line 2: the signal ends at bit 68, past the 64 bits of the data field"},
        {h + "a,65265,1,0,8,1x,0\n", "line 2: resolution: '1x' is not a number"},
        {h + "a,65265,1,0,8,1,nan\n", "line 2: offset: 'nan' is not a number"},
        {h + "a,65265,1,0,8,1,\n", "line 2: offset: '' is not a number"},
        {h + "\"a,65265,1,0,8,1,0\n", "line 2: unterminated quote"},
        {tooMany, "line 66: more than 64 signals; the table holds 64"},
    };
    for (const Row& r : rows) {
        std::vector<SignalRow> out;
        std::string error;
        EXPECT_FALSE(parse(r.text, out, error)) << r.text;
        EXPECT_EQ(error, r.error) << r.text;
    }
    tooMany.resize(tooMany.rfind("s,"));  // 64 rows
    std::vector<SignalRow> out;
    std::string error;
    EXPECT_TRUE(parse(tooMany, out, error)) << error;
}

TEST(SignalTable, PayloadPutsRowNAtTableRowN) {
    std::vector<SignalRow> rows(2);
    rows[0] = {"a", 65265, 1, 2, 16, 0.5, -40, "", 2};
    rows[1] = {"b", 61444, 3, 0, 64, 0.125, 7.5, "", 3};
    std::vector<uint8_t> p = zelj1939::buildTablePayload(rows);
    ASSERT_EQ(p.size(), 6048u);
    const uint8_t* row1 = p.data() + 84;
    EXPECT_EQ(zel::getLe32(row1, 0), 1u);       // id
    EXPECT_EQ(zel::getLe32(row1, 4), 64u);      // length
    EXPECT_EQ(zel::getLe32(row1, 12), 61444u);  // pgn
    EXPECT_EQ(zel::getLe32(row1, 16), 0xffu);   // source: any
    EXPECT_EQ(zel::getLe32(row1, 24), 0u);      // startbit
    EXPECT_EQ(zel::getLe32(row1, 28), 3u);      // startbyte
    EXPECT_EQ(zel::getLeDouble(row1, 36), 7.5);
    EXPECT_EQ(zel::getLeDouble(row1, 44), 0.125);
    EXPECT_EQ(zel::getLe32(p.data(), 24), 2u);
    // Rows behind the last are empty.
    for (size_t i = 2 * 84; i < p.size(); ++i) ASSERT_EQ(p[i], 0) << i;
}

TEST(Candump, ReadsBothLogForms) {
    struct Row {
        std::string line;
        double time;
        const char* iface;
        uint32_t id;
        bool extended;
        int dlc;
        uint64_t data;
    } rows[] = {
        {"(1690000000.123456) can0 18FEF100#FF3417FCFF6800CF", 1690000000.123456, "can0",
         0x18FEF100, true, 8, 0xCF0068FFFC1734FFull},
        {" (000.011063)  can0  18FEF100   [8]  FF 34 17 FC FF 68 00 CF", 0.011063, "can0",
         0x18FEF100, true, 8, 0xCF0068FFFC1734FFull},
        {"(1.5) can1 18EA00F9#ECFE00", 1.5, "can1", 0x18EA00F9, true, 3, 0x00FEEC},
        {"(2.0) vcan0 123#", 2.0, "vcan0", 0x123, false, 0, 0},
        {"(2.0) can0 7FF#0102 T", 2.0, "can0", 0x7FF, false, 2, 0x0201},
        {" (000.5)  can0  123   [2]  0A 0b", 0.5, "can0", 0x123, false, 2, 0x0B0A},
    };
    for (const Row& r : rows) {
        CanFrame f;
        ASSERT_TRUE(zelj1939::parseCandumpLine(r.line, f)) << r.line;
        EXPECT_EQ(f.time, r.time) << r.line;
        EXPECT_EQ(f.iface, r.iface);
        EXPECT_EQ(f.id, r.id) << r.line;
        EXPECT_EQ(f.extended, r.extended);
        EXPECT_EQ(f.dlc, r.dlc);
        EXPECT_EQ(f.dataLe(), r.data) << r.line;
    }
}

TEST(Candump, RefusesWhatIsNotAClassicFrame) {
    const char* lines[] = {
        "",
        "# comment",
        "(1.0) can0 123#R",                     // remote frame
        "(1.0) can0 123##10102",                // CAN FD
        "(1.0) can0 123#010203040506070809",    // nine bytes
        "(1.0) can0 123#0G",                    // not hex
        "(1.0) can0 12345#01",                  // neither 3 nor 8 digits
        "(1.0) can0 3FFFFFFF#01",               // beyond 29 bits
        "(1.0) can0 800#01",                    // beyond 11 bits
        "1.0 can0 123#01",                      // no parentheses
        "(x) can0 123#01",
        " (000.1)  can0  123   [9]  01",
        " (000.1)  can0  123   [3]  01 02",     // fewer bytes than the count
    };
    for (const char* line : lines) {
        CanFrame f;
        EXPECT_FALSE(zelj1939::parseCandumpLine(line, f)) << line;
    }
}

TEST(Candump, FramePayloadCarriesIdentifierAndData) {
    CanFrame f;
    ASSERT_TRUE(zelj1939::parseCandumpLine("(0.1) can0 0CF00400#F87D7D000000FF7D", f));
    std::vector<uint8_t> p = zelj1939::canFramePayload(f);
    ASSERT_EQ(p.size(), 28u);
    EXPECT_EQ(zel::getLe32(p.data(), 12), 0x0CF00400u);
    EXPECT_EQ(zel::getLe64(p.data(), 20), 0x7DFF0000007D7DF8ull);
}

}  // namespace
