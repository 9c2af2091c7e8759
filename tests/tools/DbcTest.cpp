// The DBC reader: a hand-written DBC with every section the reader must read
// past gives the rows a decode by hand expects, names each signal the table
// cannot hold with its reason, and reads as a table wherever one is taken.
#include <gtest/gtest.h>

#include <sstream>

#include "Dbc.h"
#include "SignalTable.h"

using namespace zelj1939;

namespace {

// 2364540158 = 0x8CF004FE: extended, priority 3, group 0xF004 (EEC1, 61444), source 0xFE.
// 2566844158 = 0x98FEEEFE: group 0xFEEE (ET1, 65262). 2348875518 = 0x8C00FEFE: PDU1
// group 0 with destination 0xFE: the service matches the 16 bits 0x00FE (254).
const char* const kDbc =
    "VERSION \"1.0 \\\"hand\\\" made\"\n"
    "\n"
    "NS_ :\n"
    "\tNS_DESC_\n"
    "\tCM_\n"
    "\tBA_DEF_\n"
    "\tVAL_\n"
    "\n"
    "BS_:\n"
    "\n"
    "BU_: Engine Cab\n"
    "VAL_TABLE_ Switch 3 \"Not available\" 2 \"Error\" 1 \"On\" 0 \"Off\" ;\n"
    "\n"
    "BO_ 2364540158 EEC1: 8 Engine\n"
    " SG_ EngineSpeed : 24|16@1+ (0.125,0) [0|8031.875] \"rpm\" Cab\n"
    " SG_ TorqueMode : 0|4@1+ (1,0) [0|15] \"\" Cab\n"
    " SG_ ActualTorque : 16|8@1- (1,-125) [-125|125] \"%\" Cab\n"
    " SG_ BigEndian : 39|16@0+ (1,0) [0|65535] \"\" Cab\n"
    "\n"
    "BO_ 2566844158 ET1: 8 Engine\n"
    " SG_ Mode M : 0|8@1+ (1,0) [0|255] \"\" Cab\n"
    " SG_ CoolantTemp m1 : 8|8@1+ (1,-40) [-40|210] \"degC\" Cab\n"
    " SG_ OilTemp : 16|16@1+ (0.03125,-273) [-273|1735] \"degC, oil\" Cab\n"
    " SG_ Ratio : 32|32@1+ (1,0) [0|1] \"\" Cab\n"
    "\n"
    "BO_ 2348875518 Request: 3 Cab\n"
    " SG_ RequestedPgn : 0|24@1+ (1,0) [0|16777215] \"\" Engine\n"
    "\n"
    "BO_ 512 Dash: 8 Cab\n"
    " SG_ Lamp : 0|1@1+ (1,0) [0|1] \"\" Engine\n"
    "\n"
    "BO_ 3221225472 VECTOR__INDEPENDENT_SIG_MSG: 0 Vector__XXX\n"
    " SG_ Orphan : 0|8@1+ (1,0) [0|0] \"\" Vector__XXX\n"
    "\n"
    "CM_ \"The whole file; BO_ 1 X: 8 Y in a comment is no message.\";\n"
    "CM_ BU_ Engine \"The engine controller\";\n"
    "CM_ SG_ 2364540158 EngineSpeed \"Actual engine speed,\n"
    "which is \\\"calculated\\\" over a minimum crankshaft angle.\";\n"
    "BA_DEF_ SG_ \"SPN\" INT 0 524287;\n"
    "BA_DEF_DEF_ \"SPN\" 0;\n"
    "BA_ \"SPN\" SG_ 2364540158 EngineSpeed 190;\n"
    "VAL_ 2364540158 TorqueMode 0 \"Low idle\" 1 \"Accelerator pedal\" ;\n"
    "SIG_VALTYPE_ 2566844158 Ratio : 1;\n";

}  // namespace

TEST(Dbc, SignalsBecomeTheRowsAHandDecodeExpects) {
    std::vector<DbcSignal> signals;
    std::string error;
    ASSERT_TRUE(parseDbc(kDbc, signals, error)) << error;
    ASSERT_EQ(signals.size(), 11u);
    EXPECT_EQ(signals[0].comment,
              "Actual engine speed,\nwhich is \"calculated\" over a minimum crankshaft angle.");

    std::vector<SignalRow> rows;
    std::vector<std::string> comments;
    std::vector<LeftOut> left;
    dbcRows(signals, {}, true, rows, comments, left);
    // name pgn startbyte startbit length resolution offset unit
    std::vector<std::string> got;
    for (const SignalRow& r : rows) {
        std::ostringstream line;
        line << r.name << " " << r.pgn << " " << r.startbyte << " " << r.startbit << " "
             << r.length << " " << r.resolution << " " << r.offset << " " << r.unit;
        got.push_back(line.str());
    }
    EXPECT_EQ(got, (std::vector<std::string>{
                       "EngineSpeed 61444 3 0 16 0.125 0 rpm",
                       "TorqueMode 61444 0 0 4 1 0 ",
                       "Mode 65262 0 0 8 1 0 ",
                       "OilTemp 65262 2 0 16 0.03125 -273 degC, oil",
                       "RequestedPgn 254 0 0 24 1 0 ",
                   }));
    std::vector<std::string> named;
    named.reserve(left.size());
    for (const LeftOut& l : left) named.push_back(l.name + ": " + l.reason);
    EXPECT_EQ(named, (std::vector<std::string>{
                         "ActualTorque: signed values",
                         "BigEndian: Motorola (big-endian) byte order",
                         "CoolantTemp: multiplexed (m1)",
                         "Ratio: a floating-point value",
                         "Lamp: a standard 11-bit identifier",
                         "Orphan: in no message",
                     }));

    // The CSV reads back as the same table, comments and all.
    std::string csv = tableCsv(rows, comments);
    EXPECT_NE(csv.find("EngineSpeed,61444,3,0,16,0.125,0,rpm,\"Actual engine speed, which is "
                       "\"\"calculated\"\" over a minimum crankshaft angle.\"\n"),
              std::string::npos)
        << csv;
    std::istringstream in(csv);
    std::vector<SignalRow> back;
    ASSERT_TRUE(parseSignalTable(in, back, error)) << error;
    ASSERT_EQ(back.size(), rows.size());
    EXPECT_EQ(back[3].unit, "degC, oil");
    EXPECT_EQ(back[3].offset, -273);

    // A DBC is taken wherever a table is, with the same rows.
    std::istringstream asTable(kDbc);
    ASSERT_TRUE(parseSignalTable(asTable, back, error)) << error;
    EXPECT_EQ(buildTablePayload(back), buildTablePayload(rows));
}

TEST(Dbc, PickAndTheTableLimit) {
    std::ostringstream dbc;
    dbc << "BO_ 2566844158 Many: 8 Engine\n";
    for (int i = 0; i < 70; ++i)
        dbc << " SG_ S" << i << " : " << (i % 8) << "|1@1+ (1,0) [0|1] \"\" Cab\n";
    std::vector<DbcSignal> signals;
    std::string error;
    ASSERT_TRUE(parseDbc(dbc.str(), signals, error)) << error;
    std::vector<SignalRow> rows;
    std::vector<std::string> comments;
    std::vector<LeftOut> left;
    dbcRows(signals, {}, true, rows, comments, left);
    EXPECT_EQ(rows.size(), kMaxSignals);
    ASSERT_EQ(left.size(), 6u);
    EXPECT_EQ(left[0].name + ": " + left[0].reason,
              "S64: the table holds 64 signals (choose them with --pick)");
    dbcRows(signals, {"S69", "S3", "Nope"}, true, rows, comments, left);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].name, "S3");  // in the order of the DBC
    EXPECT_EQ(rows[1].name, "S69");
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].reason, "not in the DBC");
}

TEST(Dbc, MalformedTextIsRefusedWithItsLine) {
    const struct Case {
        const char* text;
        const char* error;
    } cases[] = {
        {"BO_ 1 A: 8 X\n SG_ S : 0|8@1+ (1,0) [0|1] Cab\n", "line 2: SG_ S: expected (FACTOR"},
        {"BO_ 1 A: 8 X\n SG_ S : 0|8@2+ (1,0) [0|1] \"\" Cab\n", "line 2: SG_ S: byte order"},
        {"BO_ 1 A: 8 X\n SG_ S : 0-8@1+ (1,0) [0|1] \"\" Cab\n", "line 2: SG_ S: expected ': START"},
        {"VERSION \"\"\n SG_ S : 0|8@1+ (1,0) [0|1] \"\" Cab\n", "line 2: SG_ outside a message"},
        {"BO_ x A: 8 X\n", "line 1: expected BO_ ID NAME"},
        {"VERSION \"\"\n\nCM_ \"never closed\n", "line 3: CM_ without the ';'"},
        {"VERSION \"\"\nCM_ \"a\"; junk\n", "line 2: text after the ';' of CM_"},
        {"VERSION \"\"\n@@@\n", "line 2: expected a DBC keyword"},
    };
    for (const Case& c : cases) {
        std::vector<DbcSignal> signals;
        std::string error;
        EXPECT_FALSE(parseDbc(c.text, signals, error)) << c.text;
        EXPECT_EQ(error.compare(0, strlen(c.error), c.error), 0) << c.text << "\n" << error;
    }
    EXPECT_TRUE(looksLikeDbc("\xEF\xBB\xBFVERSION \"\"\n"));
    EXPECT_FALSE(looksLikeDbc("name,pgn,startbyte,startbit,length,resolution,offset\n"));
}
