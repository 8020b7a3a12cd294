// Who may reach what is in the runtime directory: its owner and root, and the members of a group
// when the directory is theirs too.
#ifndef SMSPB_PLATFORM_IPC_ACCESS_H
#define SMSPB_PLATFORM_IPC_ACCESS_H

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/ipc/peer.h"

namespace smspb::ipc {

// Open to its owner alone, or sticky and open to its group: members make and remove their own names
// in it and nobody else's.
constexpr mode_t OWNERS_FOLDER = 0700;
constexpr mode_t GROUPS_FOLDER = 01770;

// The group that a directory of that status is open to; nothing when it is its owner's alone.
std::optional<gid_t> groupOf(const struct stat &directory);

// Whether this process is root's or a member's.
bool isMember(gid_t group);

// Makes a name in the runtime directory usable for those whom the directory is open to. 0 or an
// errno value.
int openToOthers(const std::string &path);

// Whether the process at the other end is our own user's, root's, the runtime directory's owner's,
// or a member's of its group.
bool isTrusted(int socket, const Peer &peer);

} // namespace smspb::ipc

#endif
