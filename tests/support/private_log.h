// The library's three log files, kept apart per test process: what it opens, asks after or renames
// under their fixed names lands in a directory of this process. Other paths are left alone. So test
// programs may run side by side, and the exact names are still what the library has to ask for.
#ifndef SMSPB_TESTS_PRIVATE_LOG_H
#define SMSPB_TESTS_PRIVATE_LOG_H

#include <string>

namespace support {

// The fixed names.
inline constexpr char CURRENT_LOG[] = "/tmp/smspblog.1";
inline constexpr char PREVIOUS_LOG[] = "/tmp/smspblog.2";
inline constexpr char AUXILIARY_LOG[] = "/tmp/usbmodem_log";

// Where a path leads in this process: the private file for a log name, the path itself otherwise.
std::string privatePath(const char *path);

// Removes whatever stands under the log names, directories included.
void removeLogs();

// Faults of the file system, for the log names alone.
struct LogFaults {
    bool opens = false, statusQueries = false;
};
void setLogFaults(LogFaults faults);

// How often a log name was opened since the last removeLogs().
unsigned logOpens();

} // namespace support

#endif
