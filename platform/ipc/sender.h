// The other end of a connection that was accepted.
#ifndef SMSPB_PLATFORM_IPC_SENDER_H
#define SMSPB_PLATFORM_IPC_SENDER_H

#include <sys/un.h>

#include "platform/ipc/descriptor.h"
#include "platform/ipc/peer.h"

namespace smspb::ipc {

struct Sender {
    Descriptor connection;
    sockaddr_un name{};
    Peer peer{};
    bool usesSpare = false; // accepted on the descriptor that a mailbox has in reserve
    bool isWatched = false; // by its mailbox's poller
};

} // namespace smspb::ipc

#endif
