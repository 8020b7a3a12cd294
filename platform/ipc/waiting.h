// The senders that wait for this process's answer, and the mailboxes that it reads: what a forked
// child must not keep open, because it would keep alive what dies with this process.
#ifndef SMSPB_PLATFORM_IPC_WAITING_H
#define SMSPB_PLATFORM_IPC_WAITING_H

#include <cstddef>
#include <mutex>
#include <span>

#include "platform/ipc/block.h"
#include "platform/ipc/sender.h"

namespace smspb::ipc {

class Mailbox;

// Guards everything below and each mailbox's state. Held for moments only.
std::mutex &processMutex();

// For these three the caller holds the mutex. Between the first two a forked child lets go of the
// mailbox; the third keeps the sender of a request until it is answered or dropped, and gives its
// number. An answered sender goes back to its mailbox, if that is still there.
void enroll(Mailbox *mailbox);
void dismiss(Mailbox *mailbox);
u32 keepWaiting(Mailbox *mailbox, Sender sender, u32 sessionId);

// The following take the mutex themselves.
u32 answer(u32 number, const Header &header, std::span<const std::byte> payload);
bool isWaiting(u32 number);
void dropWaiting(u32 number);

} // namespace smspb::ipc

#endif
