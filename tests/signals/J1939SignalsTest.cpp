// J1939: the parameter table, the rows that count, and the decode of a
// frame's data field, bit for bit.
#include <cmath>

#include "SignalMessages.h"

using harness::Bytes;
using sig::J1939Row;

namespace {

const uint64_t kAllOnes = ~0ull;

class J1939 : public harness::ServiceTest {
protected:
    void table(const std::vector<J1939Row>& rows, const std::vector<size_t>& at = {}) {
        h.deliver(476, sig::j1939Table(rows, at));
    }
    void frame(uint32_t id, uint64_t data) { h.deliver(1089, sig::canFrame(id, data)); }
    bool has(uint32_t row) {
        double v;
        return svc().m_J1939Value.find(row, v);
    }
    // The trigger's verdict, starting from true.
    bool holds(uint32_t event, eTriggerType type, double v) {
        return trigger(event, type, v, true);
    }
};

TEST_F(J1939, DecodeCutsTheFieldAndScalesWithOneRounding) {
    struct { const char* what; uint32_t startbyte, startbit; int32_t length;
             double resolution, offset; uint64_t data; double value; } rows[] = {
        {"low byte", 0, 0, 8, 1, 0, 0x1234, 52},
        {"nibble inside byte 1", 1, 4, 4, 1, 0, 0x1234, 1},
        {"scaled and offset", 0, 0, 16, 0.125, -40, 0x1234, 542.5},
        {"whole field, unsigned", 0, 0, 64, 1, 0, kAllOnes, 18446744073709551616.0},
        {"start bit past its byte", 0, 9, 3, 1, 0, 0x1234, 1},
        {"field cut off at the top", 7, 4, 8, 1, 0, 0xF5ull << 56, 15},
        {"top bit alone", 7, 7, 1, 1, 0, 1ull << 63, 1},
        {"shift of exactly 64", 8, 0, 8, 2, -7, kAllOnes, -7},
        {"shift far out does not wrap", 0x20000000, 0, 8, 1, 5, kAllOnes, 5},
        {"length above 64 takes every bit", 0, 0, 100, 1, 0, 0x8000000000000001ull,
         9223372036854775808.0},
        {"negative length takes every bit", 0, 0, -1, 1, 0, 0x10, 16},
        {"no sign extension", 0, 0, 8, 1, 0, 0xff, 255},
        {"all-ones field decodes like any other", 1, 0, 16, 0.00390625, 0, 0xffff00, 255.99609375},
        {"one rounding: not 3 * 0.1 - 0.3", 0, 0, 8, 0.1, -0.3, 3, std::fma(3.0, 0.1, -0.3)},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        table({{0, r.length, 65265, r.startbyte, r.startbit, r.resolution, r.offset}});
        frame(0x18FEF100, r.data);
        double v = 0;
        ASSERT_TRUE(svc().m_J1939Value.find(0, v));
        EXPECT_EQ(v, r.value);
    }
}

TEST_F(J1939, GroupNumberIsBits8To23OfTheIdentifier) {
    table({{0, 8, 65265, 0, 0, 1, 0}, {1, 8, 0xEA17, 0, 0, 1, 0}});
    // {identifier, the row it feeds or -1}; with a destination, the destination counts.
    const std::pair<uint32_t, int> rows[] = {{0x18FEF100, 0}, {0x0CFEF117, 0}, {0x1CFEF1FE, 0},
                                             {0x18FEF200, -1}, {0x18EA17F9, 1}, {0x18EA00F9, -1},
                                             {0x00FEF1, -1}};
    for (auto [canId, row] : rows) {
        svc().m_J1939Value = J1939ValueMap();
        frame(canId, 1);
        EXPECT_EQ(has(0), row == 0) << std::hex << canId;
        EXPECT_EQ(has(1), row == 1) << std::hex << canId;
    }
}

// Rows count with an id below 64, a length and a group. The value is kept by
// table row (event 34 + row) and printed with the row's id.
TEST_F(J1939, FirstCountingRowOfAGroupWinsAndValuesAreKeptByRow) {
    // Rows 0..2 don't count; 3 and 7 share a group, 5, 9 and 11 have their own;
    // 11's group 60097 hashes to the place of 65265 and takes the next one.
    std::vector<J1939Row> rows = {
        {64, 8, 65265, 0, 0, 1, 0}, {1, 0, 65265, 0, 0, 1, 0}, {2, 8, 0, 0, 0, 1, 0},
        {3, 8, 65265, 0, 0, 1, 0},  {5, 8, 100, 1, 0, 1, 0},   {7, 8, 65265, 1, 0, 1, 0},
        {9, 16, 61444, 3, 0, 0.125, 0}, {11, 8, 60097, 0, 0, 1, 0}, {12, 8, 65262, 0, 2, 1, -40},
    };
    std::vector<size_t> at = {0, 1, 2, 3, 5, 7, 9, 11, 63};
    table(rows, at);
    EXPECT_EQ(Bytes(svc().m_J1939Param, svc().m_J1939Param + 6048), sig::j1939Table(rows, at));
    // The table alone neither decodes nor validates anything.
    EXPECT_TRUE(svc().m_J1939Value.empty());
    EXPECT_FALSE(svc().isEventValid(34));
    frame(0x18FEF100, 0x2211);
    frame(0x0CF00400, 0x000000401F000000ull);
    frame(0x180064AA, 0x3300);
    frame(0x18FEEE00, 0x84 << 2);
    frame(0x18EAC1F9, 0x44);
    EXPECT_TRUE(h.hasLine("J1939_12:92.00000000 \n"));
    EXPECT_FALSE(has(12));
    EXPECT_TRUE(holds(34 + 3, EQ, 0x11) && holds(34 + 5, EQ, 0x33) &&
                holds(34 + 9, EQ, 0x401F * 0.125) && holds(34 + 63, EQ, 92.0) &&
                holds(34 + 11, EQ, 0x44));
    EXPECT_EQ(svc().m_J1939Value.size(), 5u);
    h.clearLines();
    EXPECT_FALSE(holds(34 + 7, GT, -1e9));  // valid, but row 7 never gets a value
    EXPECT_TRUE(h.texts().empty());
}

TEST_F(J1939, OnlyAWholeTableChangesTheDecodingAndOldValuesStayUntilOverwritten) {
    table({{0, 8, 65262, 0, 0, 1, -40}});
    EXPECT_FALSE(holds(34, GT, 0.0));
    EXPECT_TRUE(h.hasLine("Event[34][J19390] the value is Invalid !\n"));
    const J1939Row next = {0, 16, 65265, 1, 0, 0.00390625, 0};
    Bytes cut = sig::j1939Table({next});
    cut.pop_back();  // the claimed table arrives one byte short
    h.injectClaiming(33243, 6048, cut);
    h.cycle();
    frame(0x18FEF100, 0x3200);  // the refused table's group: nothing, but events are valid
    EXPECT_FALSE(holds(34, LT, 1e9));
    // The head's length field says nothing to the frame handler, nor bytes behind the record.
    h.injectClaiming(1089, 0, sig::canFrame(0x18FEEE00, 0x50));
    h.cycle();
    EXPECT_TRUE(holds(34, EQ, 40.0));
    Bytes longer = sig::canFrame(0x18FEEE00, 0x84);
    longer.resize(64, 0x99);
    h.deliver(1089, longer);
    EXPECT_TRUE(holds(34, EQ, 92.0));
    table({next});
    EXPECT_TRUE(holds(34, EQ, 92.0));  // the old row's value stays
    frame(0x18FEEE00, 0x10);           // the old group feeds nothing now
    EXPECT_TRUE(holds(34, EQ, 92.0));
    frame(0x18FEF100, 0x3200);
    EXPECT_TRUE(holds(34, EQ, 0.1953125));
}

}  // namespace
