// gclDebugPrintf and the channel counts: what a service reads from its
// environment and writes to standard error.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "Common.h"

namespace {

// Parses a whole decimal integer; anything else (empty, trailing junk,
// overflow) leaves the default.
long EnvInt(const char* name, long fallback) {
    const char* text = getenv(name);
    if (!text || !*text) return fallback;
    char* end = nullptr;
    errno = 0;
    const long v = strtol(text, &end, 10);
    if (errno != 0 || *end != '\0') return fallback;
    return v;
}

int DebugLevel() {
    static const int level = static_cast<int>(EnvInt("Q7X_DEBUG_LEVEL", 3));
    return level;
}

int ChannelCount(const char* name) {
    constexpr long kDefault = 4;
    constexpr long kMax = 64;
    const long v = EnvInt(name, kDefault);
    return static_cast<int>(std::clamp(v, 0L, kMax));
}

void WriteAll(const char* p, size_t n) {
    while (n > 0) {
        const ssize_t w = write(STDERR_FILENO, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return;
        p += w;
        n -= static_cast<size_t>(w);
    }
}

// The whole line is built first and leaves in one write(), so lines printed
// by several threads at once stay whole. Out of line, so that a hidden line
// (8,000 a second at the CAN rate) costs only the level test.
__attribute__((noinline)) void PrintLine(int level, const char* file, const char* func,
                                         int line, const char* fmt, va_list ap) {
    if (!file) file = "?";
    if (!func) func = "?";
    if (!fmt) fmt = "";

    va_list again;
    va_copy(again, ap);
    const int head = snprintf(nullptr, 0, "[%d] %s %s:%d: ", level, file, func, line);
    const int body = vsnprintf(nullptr, 0, fmt, ap);
    if (head < 0 || body < 0) {
        va_end(again);
        return;
    }

    const size_t size = static_cast<size_t>(head) + static_cast<size_t>(body) + 2;
    char small[1024];
    std::unique_ptr<char[]> big;
    char* buf = small;
    if (size > sizeof small) {
        big.reset(new char[size]);
        buf = big.get();
    }
    snprintf(buf, size, "[%d] %s %s:%d: ", level, file, func, line);
    vsnprintf(buf + head, size - static_cast<size_t>(head), fmt, again);
    va_end(again);

    size_t n = static_cast<size_t>(head) + static_cast<size_t>(body);
    if (body == 0 || buf[n - 1] != '\n') buf[n++] = '\n';
    WriteAll(buf, n);
}

}  // namespace

namespace Common {

void gclDebugPrintf(int level, const char* file, const char* func, int line,
                    const char* fmt, ...) {
    if (level > DebugLevel()) return;
    va_list ap;
    va_start(ap, fmt);
    PrintLine(level, file, func, line, fmt, ap);
    va_end(ap);
}

}  // namespace Common

int Q7X_GetVichnNum() { return ChannelCount("Q7X_VIDEO_CHANNELS"); }

int Q7X_GetDigitalchnNum() { return ChannelCount("Q7X_DIGITAL_CHANNELS"); }
