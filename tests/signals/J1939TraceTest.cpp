// Real truck CAN traces, decoded frame by frame through the service's own
// frame handler with the example signal table, land in plausible ranges.
//
// The traces are not part of the project: they are read from the shared data
// folder beside the repository, and the test is skipped where it is absent.
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "Candump.h"
#include "Harness.h"
#include "SignalTable.h"

using harness::Harness;

namespace {

const std::string kDataDir = AZ_J1939_DATA_DIR;
const std::string kExampleTable = std::string(AZ_EXAMPLES_DIR) + "/j1939/signals.csv";

struct Range {
    uint32_t row;
    double lo, hi;
};

struct Trace {
    std::string name;
    const char* file;
    std::vector<Range> ranges;  // every row named here must decode at least once
};

struct Seen {
    int frames = 0;
    int notAvailable = 0;  // J1939's error and not-available codes
    double lo = 1e300, hi = -1e300;
};

// J1939 keeps the top of each field's range for "error" and "not
// available": a byte above 0xFA, a word above 0xFAFF, and so on. Senders use
// them freely (a cab controller repeats the wheel speed as 0xFFFF), and the
// service decodes them like any other value, so plausibility is judged on
// the rest.
bool isDataValue(const zelj1939::SignalRow& row, uint64_t data) {
    uint32_t length = static_cast<uint32_t>(row.length);
    if (length < 8) return true;
    uint64_t raw = data >> (row.startbit + 8 * row.startbyte);
    if (length < 64) raw &= (1ull << length) - 1;
    uint32_t low = length - 8;
    uint64_t limit = (0xFAull << low) | ((1ull << low) - 1);
    return raw <= limit;
}

void PrintTo(const Trace& t, std::ostream* os) { *os << t.file; }

class TruckTrace : public ::testing::TestWithParam<Trace> {};

TEST_P(TruckTrace, DecodesIntoPlausibleValues) {
    const Trace& t = GetParam();
    std::string path = kDataDir + "/" + t.file;
    std::ifstream log(path);
    if (!log) GTEST_SKIP() << "J1939 trace " << path << " not found; this test reads it from "
                           << "the shared data folder beside the repository";

    std::ifstream csv(kExampleTable);
    std::vector<zelj1939::SignalRow> rows;
    std::string error;
    ASSERT_TRUE(zelj1939::parseSignalTable(csv, rows, error)) << kExampleTable << ": " << error;
    ASSERT_GE(rows.size(), 6u);
    Harness h;
    h.start();
    h.deliver(476, zelj1939::buildTablePayload(rows));
    CAlertZelManage& svc = h.service();
    std::map<uint32_t, Seen> seen;
    std::string line;
    int frames = 0;
    while (std::getline(log, line)) {
        zelj1939::CanFrame f;
        ASSERT_TRUE(zelj1939::parseCandumpLine(line, f)) << line;
        ++frames;
        h.deliver(1089, zelj1939::canFramePayload(f));
        h.clearLines();
        uint32_t pgn = (f.id >> 8) & 0xffff;
        for (uint32_t r = 0; r < rows.size(); ++r) {
            if (rows[r].pgn != pgn) continue;
            double v = 0;
            ASSERT_TRUE(svc.m_J1939Value.find(r, v)) << line;
            Seen& s = seen[r];
            ++s.frames;
            if (!isDataValue(rows[r], f.dataLe())) {
                ++s.notAvailable;
                break;
            }
            s.lo = std::min(s.lo, v);
            s.hi = std::max(s.hi, v);
            break;
        }
    }
    EXPECT_GT(frames, 0);
    for (uint32_t e = 34; e <= 97; ++e) EXPECT_TRUE(svc.isEventValid(e));

    for (const Range& r : t.ranges) {
        const Seen& s = seen[r.row];
        const char* name = rows[r.row].name.c_str();
        EXPECT_GT(s.frames - s.notAvailable, 0) << name;
        EXPECT_GE(s.lo, r.lo) << name;
        EXPECT_LE(s.hi, r.hi) << name;
    }
}

// Rows of examples/j1939/signals.csv: 0 wheel speed, 1 engine speed,
// 2 coolant, 3 pedal, 4 fuel level, 5 battery.
INSTANTIATE_TEST_SUITE_P(
    Logs, TruckTrace,
    ::testing::Values(
        // Some 30 seconds of driving.
        Trace{"Driving", "normal.candump.log",
              {{0, 0, 150}, {1, 0, 3000}, {2, -40, 150}, {3, 0, 100}, {4, 0, 100}, {5, 10, 30}}},
        // Parked with the engine off.
        Trace{"Parked", "candump-2021-10-14_234124.log",
              {{0, 0, 1}, {1, 0, 1}, {2, -40, 150}, {3, 0, 100}, {5, 10, 30}}}),
    [](const ::testing::TestParamInfo<Trace>& param) {
        return param.param.name;
    });

}  // namespace
