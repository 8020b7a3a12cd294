// The diagnostic log: /tmp/smspblog.1, opened and closed for every line, renamed to /tmp/smspblog.2
// once it is larger than 256 KiB. Nothing stays open across the long waits of the AT channel.
#ifndef SMSPB_COMM_LOG_LINE_H
#define SMSPB_COMM_LOG_LINE_H

// Appends "[source:function:line]" and the formatted message. A line that cannot be written is
// dropped; logging never changes what the caller returns, nor errno.
__attribute__((format(printf, 4, 5))) void logLine(const char *source, const char *function,
                                                   int line, const char *format, ...);

// Opens a log file for appending. /tmp is everybody's: never blocks on a FIFO nor writes to one,
// never follows a symbolic link nor takes a file that has a second name. Returns the descriptor, -1
// on failure.
int openLogFile(const char *path);

// Each source file defines LOG_SOURCE, its name as the log shows it.
#ifdef SMSPB_NO_LOG // for measuring what the work costs without its log
#define LOG_LINE(...)                                                                              \
    do {                                                                                           \
        if (false) { logLine(LOG_SOURCE, __func__, __LINE__, __VA_ARGS__); }                       \
    } while (false)
#else
#define LOG_LINE(...) logLine(LOG_SOURCE, __func__, __LINE__, __VA_ARGS__)
#endif

#endif
