// The one writer behind every log line, on bare system calls.
#include "log_line.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const char CURRENT_LOG[] = "/tmp/smspblog.1";
static const char PREVIOUS_LOG[] = "/tmp/smspblog.2";
static const off_t ROTATION_SIZE = 262144; // octets; one more and the file is rotated
static const mode_t LOG_MODE = 0666;       // less the process's umask, as fopen() creates files
enum { LINE_ROOM = 1536 }; // the longest reply, 1,024 octets, and what stands around it

int openLogFile(const char *path) {
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                LOG_MODE);
}

static void writeAll(int log, const char *text, size_t length) {
    const ssize_t written = write(log, text, length);
    (void)written; // a line that cannot be written is dropped
}

// Puts "[source:function:line]", which are names of this library and fit. Returns its end.
static char *putPlace(char *out, const char *source, const char *function, unsigned line) {
    char digits[12];
    char *first = digits + sizeof(digits);
    *--first = '\0';
    do { *--first = static_cast<char>('0' + line % 10); } while ((line /= 10) != 0);
    *out++ = '[';
    out = stpcpy(out, source);
    *out++ = ':';
    out = stpcpy(out, function);
    *out++ = ':';
    out = stpcpy(out, first);
    *out++ = ']';
    return out;
}

// One write for a line that fits, so that lines of several processes stay whole.
__attribute__((format(printf, 5, 0))) static void writeLine(int log, const char *source,
                                                            const char *function, int line,
                                                            const char *format, va_list values) {
    char text[LINE_ROOM];
    char *const message = putPlace(text, source, function, static_cast<unsigned>(line));
    const size_t place = static_cast<size_t>(message - text);
    va_list again;
    va_copy(again, values);
    const int length = vsnprintf(message, LINE_ROOM - place, format, values);
    const bool fits = length >= 0 && static_cast<size_t>(length) < LINE_ROOM - place;
    if (length >= 0) { writeAll(log, text, fits ? place + static_cast<size_t>(length) : place); }
    if (length >= 0 && !fits) { vdprintf(log, format, again); }
    va_end(again);
}

void logLine(const char *source, const char *function, int line, const char *format, ...) {
    const int callersError = errno;
    const int log = openLogFile(CURRENT_LOG);
    if (log >= 0) {
        va_list values;
        va_start(values, format);
        writeLine(log, source, function, line, format, values);
        va_end(values);
        close(log);
    }
    struct stat status;
    if (stat(CURRENT_LOG, &status) == 0 && status.st_size > ROTATION_SIZE) {
        rename(CURRENT_LOG, PREVIOUS_LOG);
    }
    errno = callersError;
}
