// Blocks of IPC memory and what is in them. The layout is told in comm/platform_ipc.h.
#ifndef SMSPB_PLATFORM_IPC_BLOCK_H
#define SMSPB_PLATFORM_IPC_BLOCK_H

#include <cstddef>
#include <span>

#include "comm/smspb_types.h"

namespace smspb::ipc {

enum Kind : u32 {
    ONE_WAY = 0,  // a notification, or a request that nobody waits for
    REQUEST = 1,  // the sender waits for the answer
    RESPONSE = 2, // the answer to a REQUEST
    QUEUED = 3,   // a queue message: the header ends behind the message id
};

struct Header {
    u32 kind;
    u32 messageId;
    u32 payloadOctets;
    u32 sessionId;
};

constexpr u32 HEADER_OCTETS = sizeof(Header);
constexpr u32 QUEUE_HEADER_OCTETS = 2 * sizeof(u32);

// The longest payload that travels. A packet must fit a socket's send buffer, and this fits the
// kernel's default of every machine.
constexpr u32 PAYLOAD_OCTETS_MAX = 128 * 1024;

constexpr u32 headerOctets(u32 kind) {
    return kind == QUEUED ? QUEUE_HEADER_OCTETS : HEADER_OCTETS;
}
constexpr u32 roundUpTo4(u32 octets) { return (octets + 3) & ~3u; }

// The payload octets that the block was assigned for; 0 when it is null or not one of ours.
u32 payloadRoom(const void *block);
bool isBlock(const void *block);

// Of a queue message only `kind` and `messageId` count.
Header readHeader(const void *block);
void writeHeader(void *block, const Header &header);

// What the block carries: by its length word, a queue message by the size of its block.
std::span<const std::byte> payloadOf(const void *block);
std::byte *payloadStart(void *block);

} // namespace smspb::ipc

#endif
