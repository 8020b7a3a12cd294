// Reads the diagnostic log back, entry by entry, with the line ends of each message.
#ifndef SMSPB_TESTS_LOG_READER_H
#define SMSPB_TESTS_LOG_READER_H

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace support {

struct LogEntry {
    std::string source;   // "atlib/SmsEncoding.cpp"
    std::string function; // "wms_ts_decode_dcs"
    int line = 0;
    std::string message; // exact, line ends included
};
void PrintTo(const LogEntry &entry, std::ostream *out);

// Everything logged since the start of the test (or since clearLog), the rotated file first.
std::vector<LogEntry> logEntries();
void clearLog();

// The message texts alone: all, those of one function, those of one source file.
std::vector<std::string> logMessages();
std::vector<std::string> logMessagesOf(std::string_view function);
std::vector<std::string> logMessagesIn(std::string_view source);

// The content of a file under one of the log names; empty when there is none.
std::string logFile(const char *name);
bool logFileExists(const char *name);
void writeLogFile(const char *name, const std::string &content);

} // namespace support

#endif
