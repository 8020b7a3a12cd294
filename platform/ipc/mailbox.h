// A listening socket under one or more names, and the messages that come to it.
#ifndef SMSPB_PLATFORM_IPC_MAILBOX_H
#define SMSPB_PLATFORM_IPC_MAILBOX_H

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ipc/block.h"
#include "platform/ipc/descriptor.h"
#include "platform/ipc/ipc_server.h"
#include "platform/ipc/sender.h"
#include "platform/ipc/socket.h"

namespace smspb::ipc {

class Mailbox {
public:
    // Which well-formed messages are taken; the others are dropped.
    using Welcome = std::function<bool(const Header &)>;

    // The only mailbox of its name: throws when another live process holds it. `what` says in
    // words what that is.
    static std::unique_ptr<Mailbox> exclusive(const std::string &name, const std::string &what,
                                              Welcome welcome);
    // One mailbox of several, found by the beginnings of its names, which all lead to one queue.
    static std::unique_ptr<Mailbox> shared(const std::vector<std::string> &prefixes,
                                           Welcome welcome);

    explicit Mailbox(Welcome welcome) : welcome_(std::move(welcome)) {}
    Mailbox(const Mailbox &) = delete;
    Mailbox &operator=(const Mailbox &) = delete;
    ~Mailbox();

    int fd() const { return poller_.get(); }
    std::optional<Block> receive(std::chrono::milliseconds wait);

    // Waits for the next request of a sender that has its answer. The caller holds the mutex of
    // waiting.h.
    void keep(Sender sender);

    // Closes everything and leaves the names alone: they are the parent's when a child calls this.
    void abandon();

private:
    void listenAt(const std::filesystem::path &path);
    void alsoAt(const std::filesystem::path &path);
    void forgetFirstName();
    std::optional<Block> take();
    std::optional<Sender> nextReady();
    void watchSilent();
    void dropSilent();
    void acceptNext();
    Sender acceptSender();
    std::optional<Sender> oldestReady();
    std::optional<Sender> takeKept(int fd);
    void dropOldestKept();
    std::optional<Block> readMessage(Sender sender);

    Welcome welcome_;
    Descriptor lock_;
    Descriptor listener_;
    Descriptor poller_;
    // Given up when the process has no other descriptor left, so that what is queued is still read.
    Descriptor spare_;
    std::vector<std::filesystem::path> names_;
    std::vector<Sender> silent_; // connected, nothing said yet; the oldest first
    std::vector<Sender> kept_;   // answered, nothing said since; the oldest first
};

} // namespace smspb::ipc

#endif
