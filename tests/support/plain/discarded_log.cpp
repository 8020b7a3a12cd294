// A log that goes nowhere: each line is formatted, so that every argument is read to its end, and
// dropped. In place of comm/log_line.cpp where the four system calls of a line would be most of the
// work.
#include <cstdarg>
#include <cstdio>

#include "comm/log_line.h"

void logLine(const char *, const char *, int, const char *format, ...) {
    char line[4096];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(line, sizeof(line), format, values);
    va_end(values);
    static_cast<void>(length);
}

int openLogFile(const char *) { return -1; }
