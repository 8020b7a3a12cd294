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

// Opens the file and tells its size. A FIFO is refused since it kills its writer when the reader
// goes, a file with a second name since it may be somebody's own.
static int openPlainFile(const char *path, off_t *size) {
    const int file =
        open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, LOG_MODE);
    if (file < 0) { return -1; }
    struct stat status;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink <= 1) {
        *size = status.st_size;
        return file;
    }
    close(file);
    return -1;
}

int openLogFile(const char *path) {
    off_t size = 0;
    return openPlainFile(path, &size);
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

// One write for a line that fits, so that lines of several processes stay whole. Returns its
// octets.
__attribute__((format(printf, 5, 0))) static off_t writeLine(int log, const char *source,
                                                             const char *function, int line,
                                                             const char *format, va_list values) {
    char text[LINE_ROOM];
    char *const message = putPlace(text, source, function, static_cast<unsigned>(line));
    const size_t place = static_cast<size_t>(message - text);
    va_list again;
    va_copy(again, values);
    const int length = vsnprintf(message, LINE_ROOM - place, format, values);
    const size_t octets = length >= 0 ? place + static_cast<size_t>(length) : 0;
    if (octets != 0) { writeAll(log, text, octets < LINE_ROOM ? octets : place); }
    if (octets >= LINE_ROOM) { vdprintf(log, format, again); }
    va_end(again);
    return static_cast<off_t>(octets);
}

static void rotateWhenFull() {
    struct stat status;
    if (lstat(CURRENT_LOG, &status) == 0 && status.st_size > ROTATION_SIZE) {
        rename(CURRENT_LOG, PREVIOUS_LOG);
    }
}

void logLine(const char *source, const char *function, int line, const char *format, ...) {
    const int callersError = errno;
    off_t size = ROTATION_SIZE + 1; // when it is not known
    const int log = openPlainFile(CURRENT_LOG, &size);
    if (log >= 0) {
        va_list values;
        va_start(values, format);
        size += writeLine(log, source, function, line, format, values);
        va_end(values);
        close(log);
    }
    if (size > ROTATION_SIZE) { rotateWhenFull(); }
    errno = callersError;
}
