// Unix-domain sequenced-packet sockets: addresses, deadlines and single packets. One packet is one
// message. Functions that return u32 give 0 or an errno value.
#ifndef SMSPB_PLATFORM_IPC_SOCKET_H
#define SMSPB_PLATFORM_IPC_SOCKET_H

#include <sys/types.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "comm/platform_ipc.h"
#include "platform/ipc/block.h"
#include "platform/ipc/descriptor.h"
#include "platform/ipc/peer.h"

namespace smspb::ipc {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;
constexpr Deadline FOREVER = Deadline::max();

// Negative waits last for ever.
Deadline deadlineAfter(std::chrono::milliseconds wait);

// True once the descriptor is readable or its peer hung up, false at the deadline.
bool waitReadable(int fd, Deadline deadline);
bool hasHungUp(int fd);

// The address record: where to connect, or which of this process's waiting senders to answer.
struct Address {
    u32 waiting; // 0, or the number of the sender that waits for an answer
    sockaddr_un name;
};
static_assert(sizeof(Address) == IPC_ADDRESS_SIZE);

// ENAMETOOLONG when the path does not fit a socket's address.
u32 makeAddress(const std::string &path, Address *address);

// The process at the other end, as it was when it connected; nothing when the kernel does not say.
std::optional<Peer> peerOf(int socket);

// Connects until the deadline, which counts only while the receiver's queue is full (EAGAIN).
// ECONNREFUSED when nobody listens there.
u32 connectTo(const Address &address, Deadline deadline, Descriptor *connection);

// Sends the message without waiting.
u32 sendMessage(int socket, const Header &header, std::span<const std::byte> payload);

// Connects, sends and closes.
u32 deliver(const Address &address, Deadline deadline, const Header &header,
            std::span<const std::byte> payload);

// The next packet's size and as much of its header as it has, the packet left where it is.
// 0 when the peer hung up, -1 with errno when there is none.
ssize_t peekHeader(int socket, Header *header);

// Whether a packet of `size` octets is what its header says it is.
bool isWellFormed(const Header &header, ssize_t size);

} // namespace smspb::ipc

#endif
