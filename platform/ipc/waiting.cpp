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

struct Sender {
    Descriptor connection;
    u32 sessionId;
};

struct Process {
    std::mutex mutex;
    std::vector<Mailbox *> mailboxes;
    std::unordered_map<u32, Sender> senders;
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

void dismiss(Mailbox *mailbox) { std::erase(process().mailboxes, mailbox); }

u32 keepWaiting(Descriptor connection, u32 sessionId) {
    Process &own = process();
    do { own.lastNumber++; } while (own.lastNumber == 0 || own.senders.contains(own.lastNumber));
    own.senders.emplace(own.lastNumber, Sender{std::move(connection), sessionId});
    return own.lastNumber;
}

u32 answer(u32 number, const Header &header, std::span<const std::byte> payload) {
    const std::lock_guard lock(process().mutex);
    const auto found = process().senders.find(number);
    if (found == process().senders.end()) { return ENOTCONN; }
    const Sender &sender = found->second;
    const u32 error = sendMessage(sender.connection.get(), header, payload);
    const bool isAnswered = header.kind == RESPONSE && header.sessionId == sender.sessionId;
    if (error == 0 && isAnswered) { process().senders.erase(found); }
    return error;
}

bool isWaiting(u32 number) {
    const std::lock_guard lock(process().mutex);
    const auto found = process().senders.find(number);
    return found != process().senders.end() && !hasHungUp(found->second.connection.get());
}

void dropWaiting(u32 number) {
    const std::lock_guard lock(process().mutex);
    process().senders.erase(number);
}

} // namespace smspb::ipc
