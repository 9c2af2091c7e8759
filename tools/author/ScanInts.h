// Integers read out of a short text against a pattern, the way sscanf reads
// "%d" fields, but a number too large for an int stops the reading instead of
// giving an undefined value.
#ifndef ZELAUTHOR_SCANINTS_H
#define ZELAUTHOR_SCANINTS_H

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>

namespace zelauthor {

// `pattern` holds "%d" for a decimal integer (leading white space and a sign
// allowed), ' ' for any run of white space (none included) and any other
// character for itself. Stores the integers read into `out` and returns how
// many; the reading stops at the first mismatch. `end`, if given, is set to
// where the reading stopped in `text`.
inline int scanInts(const char* text, const char* pattern, int* out,
                    const char** end = nullptr) {
    int count = 0;
    while (*pattern != '\0') {
        if (pattern[0] == '%' && pattern[1] == 'd') {
            char* after = nullptr;
            errno = 0;
            const long value = strtol(text, &after, 10);
            if (after == text || errno == ERANGE || value < INT_MIN || value > INT_MAX) break;
            out[count++] = static_cast<int>(value);
            text = after;
            pattern += 2;
        } else if (*pattern == ' ') {
            while (isspace(static_cast<unsigned char>(*text))) ++text;
            ++pattern;
        } else if (*text == *pattern) {
            ++text;
            ++pattern;
        } else {
            break;
        }
    }
    if (end != nullptr) *end = text;
    return count;
}

// True when the whole of `text` matches `pattern`, with `n` integers read.
inline bool scanIntsWhole(const char* text, const char* pattern, int* out, int n) {
    const char* end = nullptr;
    return scanInts(text, pattern, out, &end) == n && *end == '\0';
}

}  // namespace zelauthor

#endif  // ZELAUTHOR_SCANINTS_H
