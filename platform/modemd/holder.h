// Who has a file open, for messages to people.
#ifndef SMSPB_PLATFORM_MODEMD_HOLDER_H
#define SMSPB_PLATFORM_MODEMD_HOLDER_H

#include <string>

#include <sys/types.h>

namespace smspb::modemd {

// The name of the process's program, "gone" when there is none.
std::string programOf(pid_t process);
// "process 1234 (gammu)"
std::string describeProcess(pid_t process);

// "process 1234 (gammu)", or "another process" when it cannot be seen: of other users' processes
// only root sees the files.
std::string holderOf(const std::string &path);

} // namespace smspb::modemd

#endif
