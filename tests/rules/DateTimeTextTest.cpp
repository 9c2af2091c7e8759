// The date-time text of a rule's window: every refusal code in its order, and
// the texts that pass. A refusal leaves the target untouched, a pass writes
// its first six bytes only.
#include <string.h>

#include <gtest/gtest.h>

#include "RulesFixture.h"

namespace {

struct TextCase {
    const char* text;
    int code;               // 0: accepted
    unsigned char want[6];  // year % 1000, month, day, hour, minute, second
};

const TextCase kCases[] = {
    {"2021/06/15 08:30:00", 0, {21, 6, 15, 8, 30, 0}},
    {"2021/5/6 7:8:9", 0, {21, 5, 6, 7, 8, 9}},
    {"2001/01/01 00:00:00", 0, {1, 1, 1, 0, 0, 0}},
    {"2099/12/31 23:59:59", 0, {99, 12, 31, 23, 59, 59}},
    {"0/0/0 0:0:0", 0, {0, 0, 0, 0, 0, 0}},
    {"0000/00/00 00:00:00", 0, {0, 0, 0, 0, 0, 0}},
    {"0/0/0 08:30:00", 0, {0, 0, 0, 8, 30, 0}},
    {"2021/02/31 00:00:00", 0, {21, 2, 31, 0, 0, 0}},
    {"2021/1a/05 00:00:5x", 0, {21, 1, 5, 0, 0, 5}},
    {"", 1, {}},
    {"2021/1/1", 1, {}},
    {"2021/06/15 08:30:00 ", 1, {}},
    {"x021/01/01 00:00:00", 2, {}},
    {"2000/01/01 00:00:00", 3, {}},
    {"2100/01/01 00:00:00", 3, {}},
    {"2021-01-01 00:00:00", 4, {}},
    {"2021/13/01 00:00:00", 5, {}},
    {"2021/01-01 00:00:00", 6, {}},
    {"2021/001/1 00:00:00", 7, {}},
    {"2021/1/32 00:00:00", 8, {}},
    {"2021/06/15T08:30:00", 9, {}},
    {"2021/01/001 0:00:00", 10, {}},
    {"2021/01/01 x0:00:00", 11, {}},
    {"2021/01/01 00-00-00", 12, {}},
    {"2021/01/01 24:00:00", 13, {}},
    {"0/0/0 000:00:00", 14, {}},
    {"2021/01/01 00:00-00", 15, {}},
    {"2021/01/01 00:60:00", 16, {}},
    {"0/0/0 00:000:00", 17, {}},
    {"2021/01/01 00:00:60", 19, {}},
    {"0/0/0 00:00:000", 20, {}},
    {"0/5/1 00:00:00", 21, {}},
    {"2021/00/10 00:00:00", 22, {}},
    {"0/0/5 00:00:00", 23, {}},
    {"2021/05/00 00:00:00", 24, {}},
    // Signs and overflowing digits read as atoi reads them, and fail ranges.
    {"2021/-1/01 00:00:00", 5, {}},
    {"0/0/0 0:0:-1", 19, {}},
    {"9999999999/0/0 0:0", 3, {}},
    {"2021/1/1 1:1:1", 0, {21, 1, 1, 1, 1, 1}},
};

class DateTimeText : public rulestest::RulesTest,
                     public ::testing::WithParamInterface<TextCase> {};

TEST_P(DateTimeText, RefusesWithItsCodeOrWritesSixBytes) {
    const TextCase& c = GetParam();
    Common::_datetime_ out;
    memset(&out, 0xAA, sizeof out);
    svc().stringToDateTime(c.text, out);

    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&out);
    if (c.code == 0) {
        EXPECT_TRUE(h.lines().empty());
        for (int i = 0; i < 6; ++i) EXPECT_EQ(bytes[i], c.want[i]) << "byte " << i;
    } else {
        ASSERT_EQ(h.lines().size(), 1u);
        char line[64];
        snprintf(line, sizeof line, "==stringToDateTime,errcode[%d]...\n", c.code);
        EXPECT_EQ(h.lines()[0].text, line);
        EXPECT_EQ(h.lines()[0].func, "stringToDateTime");
        for (int i = 0; i < 6; ++i) EXPECT_EQ(bytes[i], 0xAA) << "byte " << i;
    }
    EXPECT_EQ(bytes[6], 0xAA);
    EXPECT_EQ(bytes[7], 0xAA);
}

INSTANTIATE_TEST_SUITE_P(Table, DateTimeText, ::testing::ValuesIn(kCases));

}  // namespace
