// The device clock: local time, shifted by Q7X_TIME_OFFSET_S so that a run
// can start just before midnight or on any chosen day.
#include <errno.h>
#include <stdlib.h>
#include <time.h>

#include "Common.h"

namespace {

// Read once: a clock that jumped because someone changed the environment
// mid-run would be a worse surprise than an offset that needs a restart.
time_t TimeOffset() {
    static const time_t offset = [] {
        const char* text = getenv("Q7X_TIME_OFFSET_S");
        if (!text || !*text) return static_cast<time_t>(0);
        char* end = nullptr;
        errno = 0;
        const long long v = strtoll(text, &end, 10);
        if (errno != 0 || *end != '\0') return static_cast<time_t>(0);
        return static_cast<time_t>(v);
    }();
    return offset;
}

int ReadNow(Common::_datetime_* now, int* isdst) {
    if (!now) return -1;
    const time_t t = time(nullptr) + TimeOffset();
    struct tm tm;
    if (!localtime_r(&t, &tm)) return -1;
    const int year = tm.tm_year - 100;
    now->year = static_cast<unsigned char>(year < 0 ? 0 : year > 255 ? 255 : year);
    now->month = static_cast<unsigned char>(tm.tm_mon + 1);
    now->day = static_cast<unsigned char>(tm.tm_mday);
    now->hour = static_cast<unsigned char>(tm.tm_hour);
    now->minute = static_cast<unsigned char>(tm.tm_min);
    now->second = static_cast<unsigned char>(tm.tm_sec > 59 ? 59 : tm.tm_sec);
    now->weekday = static_cast<unsigned char>(tm.tm_wday);
    now->reserved = 0;
    if (isdst) *isdst = tm.tm_isdst > 0 ? 1 : 0;
    return 0;
}

}  // namespace

namespace Common {

int Q7X_TMGetShareTime(_datetime_* now) { return ReadNow(now, nullptr); }

// The flag is the daylight-saving state of that local time (0 or 1), so it
// changes exactly when the clock's offset from UTC does.
int Q7X_TMGetShareTime(_datetime_* now, unsigned char& timeFlag) {
    int isdst = 0;
    const int rc = ReadNow(now, &isdst);
    if (rc == 0) timeFlag = static_cast<unsigned char>(isdst);
    return rc;
}

// A field out of range fails and leaves *utc alone; mktime would otherwise
// quietly roll 31 April over into May.
int Q7X_TMDateTimeToUtcTime(const _datetime_* dt, long* utc) {
    if (!dt || !utc) return -1;
    if (dt->month < 1 || dt->month > 12 || dt->day < 1 || dt->day > 31 ||
        dt->hour > 23 || dt->minute > 59 || dt->second > 59)
        return -1;
    struct tm tm = {};
    tm.tm_year = dt->year + 100;
    tm.tm_mon = dt->month - 1;
    tm.tm_mday = dt->day;
    tm.tm_hour = dt->hour;
    tm.tm_min = dt->minute;
    tm.tm_sec = dt->second;
    tm.tm_isdst = -1;
    const time_t t = mktime(&tm);
    if (t == static_cast<time_t>(-1) || tm.tm_mday != dt->day) return -1;
    *utc = static_cast<long>(t);
    return 0;
}

}  // namespace Common
