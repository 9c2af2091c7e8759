// Scenario lines into message bytes: each signal's payload, the running
// state between steps, traces and tables from files, and the refusals with
// their file and line.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Scenario.h"

namespace zelscenario {
namespace {

std::vector<uint8_t> Hex(const std::string& text) {
    std::vector<uint8_t> out;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        out.push_back(static_cast<uint8_t>(strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    return out;
}

// A payload of `size` zero bytes with `parts` (offset, hex) laid over it.
std::vector<uint8_t> Bytes(size_t size, const std::vector<std::pair<size_t, std::string>>& parts) {
    std::vector<uint8_t> out(size, 0);
    for (const auto& part : parts) {
        std::vector<uint8_t> b = Hex(part.second);
        std::copy(b.begin(), b.end(), out.begin() + part.first);
    }
    return out;
}

std::vector<uint8_t> Text(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

std::vector<Step> Parse(const std::string& text, const std::string& dir = "") {
    std::istringstream in(text);
    std::vector<Step> steps;
    std::string error;
    EXPECT_TRUE(parseScenario(in, "t.scn", dir, steps, error)) << error;
    return steps;
}

std::string ParseError(const std::string& text, const std::string& dir = "") {
    std::istringstream in(text);
    std::vector<Step> steps;
    std::string error;
    EXPECT_FALSE(parseScenario(in, "t.scn", dir, steps, error)) << text;
    EXPECT_TRUE(steps.empty());
    return error;
}

// A fresh folder under gtest's temporary directory, removed with its
// contents at the end of the scope.
struct ScratchDir {
    ScratchDir() {
        std::string tmpl = ::testing::TempDir() + "scenarioXXXXXX";
        EXPECT_NE(mkdtemp(tmpl.data()), nullptr) << tmpl;
        path = tmpl;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(path + "/" + name) << text;
        return path + "/" + name;
    }
    std::string path;
};

struct SignalCase {
    const char* line;
    unsigned id;
    std::vector<uint8_t> payload;
};

TEST(ScenarioSignal, EachSignalBecomesItsMessage) {
    const std::string canData = "FF3417FCFF6800CF";
    const SignalCase cases[] = {
        {"speed 70 kmh", 6777, Bytes(12, {{4, "46000000"}})},
        {"speed 4294967295 mph", 6777, Bytes(12, {{0, "01"}, {4, "FFFFFFFF"}})},
        {"input 16 on", 1031, Bytes(4, {{0, "00800000"}})},
        {"input word 0x18001", 1031, Bytes(4, {{0, "01800100"}})},
        {"panic press", 1176, Bytes(4, {{0, "3101"}})},
        // 0x8000 | v * 256: the fine form of each axis.
        {"accel 1 1.5 0", 1071, Bytes(40, {{6, "0081"}, {8, "8081"}, {10, "0080"}})},
        {"accel 127.99 0.00390625 64", 1071, Bytes(40, {{6, "FDFF"}, {8, "0180"}, {10, "00C0"}})},
        {"gps 3", 1073, Bytes(52, {{8, "03"}})},
        {"vehicle systemp=45.5", 1081, Bytes(64, {{0, "01"}, {4, "01"}, {12, "2D003200"}})},
        // Whole part and hundredths carry the sign; a disk status "usable" comes along.
        {"vehicle hdtemp=-5.25", 1081,
         Bytes(64, {{0, "09"}, {4, "02"}, {20, "FBFFE7FF"}, {48, "08"}})},
        {"vehicle volt=12.34", 1081, Bytes(64, {{0, "02"}, {24, "01"}, {28, "0C22"}})},
        {"vehicle ignition=off volt=24", 1081,
         Bytes(64, {{0, "0A"}, {24, "01"}, {28, "18"}, {48, "01"}})},
        {"alpr status=7 l4=255", 8963, Bytes(16, {{8, "11"}, {9, "07"}, {13, "FF"}})},
        {"motion 2 on", 1288, Bytes(48, {{33, "01"}})},
        {"camera 5 digital 3", 320, Bytes(3208, {{808, "01"}, {814, "03"}})},
        {"can 18FEF100#FF3417FCFF6800CF", 1089, Bytes(28, {{12, "00F1FE18"}, {20, canData}})},
        {"can 123#0102", 1089, Bytes(28, {{12, "23010000"}, {20, "0102"}})},
        {"fence 7 in", 6795, Text("{\"SOURCE\":100,\"EVENT\":1,\"ID\":7}")},
        {"fence 4294967295 out", 6795, Text("{\"SOURCE\":100,\"EVENT\":0,\"ID\":4294967295}")},
    };
    for (const SignalCase& c : cases) {
        std::vector<Step> steps;
        std::string error;
        ASSERT_TRUE(parseSignal(splitWords(c.line), "", steps, error)) << c.line << ": " << error;
        ASSERT_EQ(steps.size(), 1u) << c.line;
        EXPECT_EQ(steps[0].id, c.id) << c.line;
        EXPECT_EQ(steps[0].payload, c.payload) << c.line;
    }
}

TEST(Scenario, StepsKeepTimeLineAndTheRunningStateOfInputsAndMotion) {
    std::vector<Step> s = Parse(
        "# inputs and motion are words: each line changes one bit\n"
        "0 input 1 on\n"
        "\n"
        "0 input 3 on\n"
        "  1.5 input 1 off   # indented, with a comment\n"
        "1.5 camera 2 digital 9   # channel 2's motion must carry tag 9\n"
        "2 motion 2 on\n"
        "2 motion 1 on\n"
        "7.25 motion 2 off\n");
    ASSERT_EQ(s.size(), 7u);
    EXPECT_DOUBLE_EQ(s[2].at, 1.5);
    EXPECT_EQ(s[2].line, 5);
    EXPECT_DOUBLE_EQ(s[6].at, 7.25);
    EXPECT_EQ(s[6].line, 9);
    EXPECT_EQ(s[0].payload, Bytes(4, {{0, "01"}}));
    EXPECT_EQ(s[1].payload, Bytes(4, {{0, "05"}}));
    EXPECT_EQ(s[2].payload, Bytes(4, {{0, "04"}}));
    EXPECT_EQ(s[4].payload, Bytes(48, {{0, "0009"}, {32, "0001"}}));
    EXPECT_EQ(s[5].payload, Bytes(48, {{0, "0009"}, {32, "0101"}}));
    EXPECT_EQ(s[6].payload, Bytes(48, {{0, "0009"}, {32, "0100"}}));
}

TEST(Scenario, CanTraceFramesFollowTheirOwnTimingAndInterleave) {
    ScratchDir dir;
    dir.Write("ta.log",
              " (000.000000)  can0  18FEF100   [8]  FF 34 17 FC FF 68 00 CF\n"
              " (002.000000)  can0  0CF00400   [3]  F8 7D 7D\n");
    std::vector<Step> s = Parse(
        "1 cantrace ta.log\n"
        "2 speed 10 kmh\n"
        "4 cantrace ta.log x4\n",
        dir.path);
    ASSERT_EQ(s.size(), 5u);
    const double at[] = {1, 2, 3, 4, 4.5};
    const unsigned id[] = {1089, 6777, 1089, 1089, 1089};
    for (int i = 0; i < 5; ++i) {
        EXPECT_DOUBLE_EQ(s[i].at, at[i]) << i;
        EXPECT_EQ(s[i].id, id[i]) << i;
    }
    EXPECT_EQ(s[2].payload, Bytes(28, {{12, "0004F00C"}, {20, "F87D7D"}}));
    EXPECT_EQ(s[2].line, 1);
}

TEST(Scenario, TableComesFromTheCsvBesideTheScenario) {
    ScratchDir dir;
    dir.Write("signals.csv",
              "name,pgn,startbyte,startbit,length,resolution,offset,unit\n"
              "wheel_speed,65265,1,0,16,0.00390625,0,km/h\n"
              "coolant,65262,0,0,8,1,-40,degC\n");
    std::string path = dir.Write("road.scn", "0 j1939table signals.csv\n");
    std::vector<Step> s;
    std::string error;
    ASSERT_TRUE(loadScenario(path, s, error)) << error;
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0].id, 476u);
    ASSERT_EQ(s[0].payload.size(), 6048u);
    // Row 1 (84 bytes in): id 1, length 8, pgn 65262, offset -40.0.
    EXPECT_EQ(std::vector<uint8_t>(s[0].payload.begin() + 84, s[0].payload.begin() + 100),
              Hex("0100000008000000" "00000000EEFE0000"));
    EXPECT_EQ(std::vector<uint8_t>(s[0].payload.begin() + 120, s[0].payload.begin() + 128),
              Hex("00000000000044C0"));
}

// Refusals name the scenario's line, and inside a file it reads, that file's.
TEST(Scenario, RefusalsNameFileLineAndWhat) {
    ScratchDir dir;
    dir.Write("bad.log", "(0.0) can0 18FEF100#00\n(0.1) can0 18FEF100#0\n");
    dir.Write("bad.csv", "name,pgn,startbyte,startbit,length,resolution,offset\nx,0,0,0,8,1,0\n");
    const std::string base = dir.path + "/";
    const struct {
        std::string text, error;
    } cases[] = {
        {"0 speed 70", "t.scn:1: speed takes a value and a unit"},
        {"\n0 speed 70 kph", "t.scn:2: speed: 'kph' is not a unit (kmh or mph)"},
        {"0 speed 70.5 kmh", "t.scn:1: speed: '70.5' is not a whole number"},
        {"soon speed 70 kmh", "t.scn:1: 'soon' is not a time in seconds"},
        {"5 speed 1 kmh\n4 speed 2 kmh", "t.scn:2: time 4 is before the line above"},
        {"0 warp 9", "t.scn:1: unknown signal 'warp'"},
        {"0 input 17 on", "t.scn:1: input: '17' is not an input of 1..16"},
        {"0 input word 0x100000000", "t.scn:1: input word: '0x100000000' is not a word"},
        {"0 accel 128 0 0", "t.scn:1: accel: '128' is not a number of 0 .. 127.99"},
        {"0 vehicle volt=256", "t.scn:1: vehicle volt: '256' is not a number of 0 .. 255.99"},
        {"0 vehicle colour=red", "t.scn:1: vehicle: unknown key 'colour'"},
        {"0 vehicle volt=12 volt=13", "t.scn:1: vehicle: volt is given twice"},
        {"0 alpr l1=300", "t.scn:1: alpr l1: '300' is not a value of 0..255"},
        {"0 can 18FEF100#FF3", "t.scn:1: can: '18FEF100#FF3' is not a frame"},
        {"0 fence 7 maybe", "t.scn:1: fence: 'maybe' is not in or out"},
        {"0 cantrace missing.log", "t.scn:1: cantrace: cannot read " + base + "missing.log"},
        {"0 speed 1 kmh\n1 cantrace bad.log",
         "t.scn:2: cantrace: " + base + "bad.log:2: not a classic CAN frame of candump -l or -ta"},
        {"0 j1939table bad.csv", "t.scn:1: j1939table: " + base + "bad.csv: line 2: pgn"},
    };
    for (const auto& c : cases) {
        std::string error = ParseError(c.text, dir.path);
        EXPECT_EQ(error.compare(0, c.error.size(), c.error), 0)
            << "got: " << error << "\nwanted: " << c.error;
    }
}

TEST(ScenarioBuilder, RefusedStepLeavesRunningStateAlone) {
    ScenarioBuilder b("");
    std::vector<Step> out;
    std::string error;
    ASSERT_TRUE(b.add(0, {"input", "1", "on"}, 1, out, error));
    EXPECT_FALSE(b.add(0, {"input", "2", "maybe"}, 2, out, error));
    ASSERT_TRUE(b.add(0, {"input", "3", "on"}, 3, out, error));
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[1].payload, Bytes(4, {{0, "05"}}));
}

}  // namespace
}  // namespace zelscenario
