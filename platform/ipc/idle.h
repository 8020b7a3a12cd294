// Connections of this process that stay open between its requests: connecting costs as much as the
// request itself. Whoever waits for an answer has a connection for itself, and one that was given
// up is closed: that its asker hangs up is how a server learns that nobody wants the answer any
// more.
#ifndef SMSPB_PLATFORM_IPC_IDLE_H
#define SMSPB_PLATFORM_IPC_IDLE_H

#include "platform/ipc/descriptor.h"
#include "platform/ipc/socket.h"

namespace smspb::ipc {

// An idle connection to that address; a closed one when there is none. Its server may have gone, or
// let go of it, in the meantime.
Descriptor takeIdle(const Address &address);

// Keeps a connection on which nothing is owed any more. Without memory for it, it is closed.
void keepIdle(const Address &address, Descriptor connection);

} // namespace smspb::ipc

#endif
