// The date-time text of a rule's window: "year/month/day hour:minute:second",
// such as "2021/06/15 08:30:00". Fields need no leading zero; year 0 with
// month and day 0 means "no date". The text is tested field by field in a
// fixed order and the first failing test names the refusal by its code.
// The target is written only when every test has passed, and then only its
// first six bytes.
#include <ctype.h>
#include <limits.h>
#include <string.h>

#include "AlertZelManage.h"

namespace {

const size_t kMinLength = 11;
const size_t kMaxLength = 19;
const size_t kMaxFieldWidth = 2;

// A number read as atoi reads it: leading white space, an optional sign,
// digits up to the first other character, 0 when there are none. Unlike atoi
// it saturates instead of overflowing; a saturated value fails every range
// test all the same.
int readNumber(const char* p) {
    while (isspace(static_cast<unsigned char>(*p))) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = (*p++ == '-');
    long long value = 0;
    while (isdigit(static_cast<unsigned char>(*p))) {
        if (value <= INT_MAX) value = value * 10 + (*p - '0');
        ++p;
    }
    if (negative) value = -value;
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

// Ranges compare as unsigned, so a negative value counts as too large.
bool above(int value, unsigned int limit) { return static_cast<unsigned int>(value) > limit; }

bool isDigit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }

// Width of a field: the characters from its first one up to its separator.
size_t width(const char* first, const char* separator) {
    return static_cast<size_t>(separator - first);
}

// The refusal code of `text`, or 0 when it is a valid text; the fields go to
// `fields` (year, month, day, hour, minute, second) as they are read.
int checkText(const char* text, int fields[6]) {
    size_t length = strlen(text);
    if (length < kMinLength || length > kMaxLength) return 1;
    if (!isDigit(text[0])) return 2;
    int year = readNumber(text);
    if (year != 0 && (above(year, 2099) || year < 2001)) return 3;

    const char* slash1 = strchr(text, '/');
    if (slash1 == nullptr) return 4;
    int month = readNumber(slash1 + 1);
    if (above(month, 12)) return 5;
    if (year % 1000 == 0 && month != 0) return 21;
    if (year % 1000 != 0 && month == 0) return 22;

    const char* slash2 = strchr(slash1 + 1, '/');
    if (slash2 == nullptr) return 6;
    if (width(slash1 + 1, slash2) > kMaxFieldWidth) return 7;
    int day = readNumber(slash2 + 1);
    if (above(day, 31)) return 8;
    if (month == 0 && day != 0) return 23;
    if (month != 0 && day == 0) return 24;

    const char* blank = strchr(slash2 + 1, ' ');
    if (blank == nullptr) return 9;
    if (width(slash2 + 1, blank) > kMaxFieldWidth) return 10;
    if (!isDigit(blank[1])) return 11;

    const char* colon1 = strchr(blank + 1, ':');
    if (colon1 == nullptr) return 12;
    int hour = readNumber(blank + 1);
    if (above(hour, 23)) return 13;
    if (width(blank + 1, colon1) > kMaxFieldWidth) return 14;

    const char* colon2 = strchr(colon1 + 1, ':');
    if (colon2 == nullptr) return 15;
    int minute = readNumber(colon1 + 1);
    if (above(minute, 59)) return 16;
    if (width(colon1 + 1, colon2) > kMaxFieldWidth) return 17;

    int second = readNumber(colon2 + 1);
    if (above(second, 59)) return 19;
    if (strlen(colon2 + 1) > kMaxFieldWidth) return 20;

    fields[0] = year % 1000;
    fields[1] = month;
    fields[2] = day;
    fields[3] = hour;
    fields[4] = minute;
    fields[5] = second;
    return 0;
}

}  // namespace

void CAlertZelManage::stringToDateTime(const char* text, Common::_datetime_& out) {
    int fields[6] = {0, 0, 0, 0, 0, 0};
    int code = checkText(text != nullptr ? text : "", fields);
    if (code != 0) {
        ZEL_LOG(3, "==stringToDateTime,errcode[%d]...\n", code);
        return;
    }
    out.year = static_cast<unsigned char>(fields[0]);
    out.month = static_cast<unsigned char>(fields[1]);
    out.day = static_cast<unsigned char>(fields[2]);
    out.hour = static_cast<unsigned char>(fields[3]);
    out.minute = static_cast<unsigned char>(fields[4]);
    out.second = static_cast<unsigned char>(fields[5]);
}
