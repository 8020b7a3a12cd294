// Who has a file open, for messages to people.
#ifndef SMSPB_PLATFORM_MODEMD_HOLDER_H
#define SMSPB_PLATFORM_MODEMD_HOLDER_H

#include <string>

namespace smspb::modemd {

// "process 1234 (gammu)", or "another process" when it cannot be seen: of other users' processes
// only root sees the files.
std::string holderOf(const std::string &path);

} // namespace smspb::modemd

#endif
