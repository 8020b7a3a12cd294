#include "platform/ipc/waiting.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <unordered_map>
#include <vector>

#include "platform/ipc/mailbox.h"
#include "platform/ipc/socket.h"

namespace smspb::ipc {

namespace {

struct Waiting {
    Mailbox *mailbox; // null when it has gone
    Sender sender;
    u32 sessionId;

    int socket() const { return sender.connection.get(); }
};

struct Process {
    std::mutex mutex;
    std::vector<Mailbox *> mailboxes;
    std::unordered_map<u32, Waiting> senders;
    u32 lastNumber = 0;
};

// Never destroyed: blocks may be given back while the program ends.
Process &process() {
    static auto *instance = new Process;
    return *instance;
}

void lockForFork() { process().mutex.lock(); }
void unlockAfterFork() { process().mutex.unlock(); }

// The numbers go on in the child, so that a parent's request never names a sender of the child.
void closeInChild() {
    Process &own = process();
    for (Mailbox *mailbox : own.mailboxes) { mailbox->abandon(); }
    own.mailboxes.clear();
    own.senders.clear();
    own.mutex.unlock();
}

} // namespace

std::mutex &processMutex() { return process().mutex; }

void enroll(Mailbox *mailbox) {
    static const int registered = pthread_atfork(lockForFork, unlockAfterFork, closeInChild);
    static_cast<void>(registered);
    process().mailboxes.push_back(mailbox);
}

void dismiss(Mailbox *mailbox) {
    std::erase(process().mailboxes, mailbox);
    for (auto &[number, waiting] : process().senders) {
        if (waiting.mailbox == mailbox) { waiting.mailbox = nullptr; }
    }
}

u32 keepWaiting(Mailbox *mailbox, Sender sender, u32 sessionId) {
    Process &own = process();
    do { own.lastNumber++; } while (own.lastNumber == 0 || own.senders.contains(own.lastNumber));
    own.senders.emplace(own.lastNumber, Waiting{mailbox, std::move(sender), sessionId});
    return own.lastNumber;
}

u32 answer(u32 number, const Header &header, std::span<const std::byte> payload) {
    const std::lock_guard lock(process().mutex);
    const auto found = process().senders.find(number);
    if (found == process().senders.end()) { return ENOTCONN; }
    Waiting &waiting = found->second;
    const u32 error = sendMessage(waiting.socket(), header, payload);
    const bool isAnswered = header.kind == RESPONSE && header.sessionId == waiting.sessionId;
    if (error != 0 || !isAnswered) { return error; }
    if (waiting.mailbox != nullptr) { waiting.mailbox->keep(std::move(waiting.sender)); }
    process().senders.erase(found);
    return 0;
}

bool isWaiting(u32 number) {
    const std::lock_guard lock(process().mutex);
    const auto found = process().senders.find(number);
    return found != process().senders.end() && !hasHungUp(found->second.socket());
}

void dropWaiting(u32 number) {
    const std::lock_guard lock(process().mutex);
    process().senders.erase(number);
}

} // namespace smspb::ipc
