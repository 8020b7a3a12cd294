// Reading the modem's replies: a cursor over zero-terminated text. Each step moves on and returns
// true, or stays where it is and returns false.
#ifndef SMSPB_ATLIB_AT_CURSOR_H
#define SMSPB_ATLIB_AT_CURSOR_H

#include <stddef.h>
#include <string.h>

#include "../comm/smspb_types.h"

struct AtCursor {
    const char *at;
};

// Behind the next `key`; never in a null text.
static inline bool skipPast(AtCursor *c, const char *key) {
    const char *found = c->at != nullptr ? strstr(c->at, key) : nullptr;
    if (found == nullptr) { return false; }
    c->at = found + strlen(key);
    return true;
}

// Copies the text before the next `stop`, cut to fit `out` with its zero, and moves behind the
// stop.
static inline bool takeUntil(AtCursor *c, const char *stop, char *out, size_t size) {
    const char *end = strstr(c->at, stop);
    if (end == nullptr) { return false; }
    const size_t length = static_cast<size_t>(end - c->at);
    const size_t kept = length < size ? length : size - 1;
    memcpy(out, c->at, kept);
    out[kept] = '\0';
    c->at = end + strlen(stop);
    return true;
}

// Behind `key`, when it comes next.
static inline bool takeKey(AtCursor *c, const char *key) {
    const size_t length = strlen(key);
    if (strncmp(c->at, key, length) != 0) { return false; }
    c->at += length;
    return true;
}

static inline bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// A decimal number with blanks and a sign before it, clamped to 32 bits on every machine.
static inline bool takeDecimal(AtCursor *c, int64_t *value) {
    const char *p = c->at;
    while (isBlank(*p)) { p++; }
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') { p++; }
    if (*p < '0' || *p > '9') { return false; }
    int64_t number = 0;
    for (; *p >= '0' && *p <= '9'; p++) {
        number = number * 10 + (*p - '0');
        if (number > UINT32_MAX) { number = UINT32_MAX; }
    }
    *value = negative ? -number : number;
    c->at = p;
    return true;
}

// As "%d" reads it, clamped.
static inline bool takeInt(AtCursor *c, i32 *value) {
    int64_t number = 0;
    if (!takeDecimal(c, &number)) { return false; }
    if (number > INT32_MAX) { number = INT32_MAX; }
    if (number < INT32_MIN) { number = INT32_MIN; }
    *value = static_cast<i32>(number);
    return true;
}

// As "%u" reads it: a negative number wraps.
static inline bool takeUnsigned(AtCursor *c, u32 *value) {
    int64_t number = 0;
    if (!takeDecimal(c, &number)) { return false; }
    *value = static_cast<u32>(number);
    return true;
}

// The number that a text begins with, 0 when it begins with none: atoi's tolerance.
static inline i32 looseInt(const char *text) {
    AtCursor c = {text};
    i32 value = 0;
    return takeInt(&c, &value) ? value : 0;
}

#endif
