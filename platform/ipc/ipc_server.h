// The receiving side of the IPC library: serve a destination, follow notifications, read a queue.
//
// The constructors throw std::system_error or std::runtime_error whose text says what is wrong and
// what would be right. Everything received is checked first: a peer that the runtime directory is
// not open to, and a message whose lengths do not agree, is dropped and its sender fails at once.
//
// A Server, Subscription or Queue is used by one thread at a time; its blocks may be read, answered
// and dropped by any. It belongs to the process that opened it: in a forked child it is closed and
// the child opens its own.
#ifndef SMSPB_PLATFORM_IPC_SERVER_H
#define SMSPB_PLATFORM_IPC_SERVER_H

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "comm/smspb_types.h"
#include "platform/ipc/peer.h"

namespace smspb::ipc {

class Mailbox;

// The directory that holds the sockets: SMSPB_RUNTIME_DIR, or /run/smspb for root and for those
// whom it is open to, and $XDG_RUNTIME_DIR/smspb for others. Created when it is missing. It is its
// owner's alone (mode 0700) or a group's too (mode 1770); any other, one that is a link and one
// that is not open to us are refused.
std::filesystem::path runtimeDirectory();

// The group that it is open to, besides its owner and root. Throws like runtimeDirectory().
std::optional<gid_t> runtimeGroup();

// Opens it to the members of that group as well, or, without one, to its owner alone. For the one
// that owns it, before it serves anything. Throws like runtimeDirectory().
void setRuntimeGroup(std::optional<gid_t> group);

// Whether a process serves the destination right now.
bool isServed(u32 dest_id);

// A received block of IPC memory. It is given back when it goes; a synchronous request that goes
// unanswered makes its sender's call fail at once.
class Block {
public:
    // The block as zeldcard_send_response takes it, the sender's address behind the payload.
    const void *get() const { return block_.get(); }
    u32 kind() const;
    u32 messageId() const;
    u32 sessionId() const; // 0 for a queue message, which has none
    std::span<const std::byte> payload() const;
    // The process that sent it.
    const Peer &sender() const { return sender_; }

private:
    friend class Mailbox;
    struct Release {
        void operator()(void *block) const noexcept;
    };
    Block(void *block, const Peer &sender) : block_(block), sender_(sender) {}
    std::unique_ptr<void, Release> block_;
    Peer sender_;
};

// Serves a destination. Throws when another live process serves it; what a dead one left behind is
// taken over.
class Server {
public:
    explicit Server(u32 dest_id);
    Server(Server &&) noexcept;
    Server &operator=(Server &&) noexcept;
    ~Server();

    // For poll and the like: readable when receive() may have something to give.
    int fd() const;
    // The next message in order of arrival. A wait of 0 polls, a negative one lasts for ever.
    std::optional<Block> receive(std::chrono::milliseconds wait);
    // False once the asking process hung up or has its answer, and for a request that did not ask
    // for one.
    bool senderWaits(const Block &request) const;

private:
    std::unique_ptr<Mailbox> mailbox_;
};

// Follows the notifications of the given message ids from the moment of its construction: in order
// of arrival, also between the ids, none lost while up to SOMAXCONN of them wait to be received.
class Subscription {
public:
    explicit Subscription(const std::vector<u32> &ids);
    Subscription(Subscription &&) noexcept;
    Subscription &operator=(Subscription &&) noexcept;
    ~Subscription();

    int fd() const;
    std::optional<Block> receive(std::chrono::milliseconds wait);

private:
    std::unique_ptr<Mailbox> mailbox_;
};

// The reading end of message queue `mq`; there is one at a time, as with a Server.
class Queue {
public:
    explicit Queue(u32 mq);
    Queue(Queue &&) noexcept;
    Queue &operator=(Queue &&) noexcept;
    ~Queue();

    int fd() const;
    std::optional<Block> receive(std::chrono::milliseconds wait);

private:
    std::unique_ptr<Mailbox> mailbox_;
};

} // namespace smspb::ipc

#endif
