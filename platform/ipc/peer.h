// Who is at the other end of a connection.
#ifndef SMSPB_PLATFORM_IPC_PEER_H
#define SMSPB_PLATFORM_IPC_PEER_H

#include <sys/types.h>

namespace smspb::ipc {

// As the kernel saw the process when it connected (SO_PEERCRED): none of it can be claimed falsely.
struct Peer {
    pid_t process = 0;
    uid_t user = 0;
    gid_t group = 0;
};

} // namespace smspb::ipc

#endif
