#include "PeerUtil.h"

#include <stdarg.h>
#include <stdio.h>
#include <sys/time.h>
#include <time.h>

namespace peer {

void say(const char* who, const char* fmt, ...) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm tm;
    localtime_r(&tv.tv_sec, &tm);
    char text[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    printf("%02d:%02d:%02d.%03d %s: %s\n", tm.tm_hour, tm.tm_min, tm.tm_sec,
           static_cast<int>(tv.tv_usec / 1000), who, text);
    fflush(stdout);
}

double monotonicSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

}  // namespace peer
