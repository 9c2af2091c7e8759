// Real truck CAN traces, decoded frame by frame through the service's own
// frame handler with the example signal table, land in plausible ranges.
// The traces are read from the shared data folder beside the repository;
// where it is absent, the test is skipped.
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "Candump.h"
#include "Harness.h"
#include "SignalTable.h"

namespace {

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
