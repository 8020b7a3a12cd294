#include "platform/ipc/ipc_server.h"

#include <cstring>
#include <stdexcept>
#include <unordered_set>

#include "comm/platform_ipc.h"
#include "platform/ipc/block.h"
#include "platform/ipc/directory.h"
#include "platform/ipc/mailbox.h"
#include "platform/ipc/socket.h"
#include "platform/ipc/waiting.h"

namespace smspb::ipc {

namespace {

// The number of the sender that waits for the request's answer; 0 when none does.
u32 waitingSender(const void *block) {
    const Header header = readHeader(block);
    if (header.kind != REQUEST) { return 0; }
    Address address{};
    const auto *behind = payloadOf(block).data() + roundUpTo4(header.payloadOctets);
    std::memcpy(&address, behind, sizeof(address));
    return address.waiting;
}

std::vector<std::string> subscriberPrefixes(const std::unordered_set<u32> &ids) {
    std::vector<std::string> prefixes;
    for (const u32 id : ids) { prefixes.push_back(subscriberPrefix(id)); }
    return prefixes;
}

std::unique_ptr<Mailbox> subscribe(const std::vector<u32> &ids) {
    if (ids.empty()) { throw std::invalid_argument("a subscription needs a message id"); }
    const std::unordered_set<u32> wanted(ids.begin(), ids.end());
    return Mailbox::shared(subscriberPrefixes(wanted), [wanted](const Header &header) {
        return header.kind == ONE_WAY && wanted.contains(header.messageId);
    });
}

} // namespace

bool isServed(u32 dest_id) {
    Address address{};
    if (makeAddress(runtimePath(destinationName(dest_id)), &address) != 0) { return false; }
    Descriptor connection;
    const u32 error = connectTo(address, Clock::now(), &connection);
    return error == 0 || error == EAGAIN;
}

void Block::Release::operator()(void *block) const noexcept {
    dropWaiting(waitingSender(block));
    mem_free_ex(static_cast<u32>(gettid()) & 0xffffu, __LINE__, 0, block);
}

u32 Block::kind() const { return readHeader(get()).kind; }

u32 Block::messageId() const { return readHeader(get()).messageId; }

u32 Block::sessionId() const { return kind() == QUEUED ? 0 : readHeader(get()).sessionId; }

std::span<const std::byte> Block::payload() const { return payloadOf(get()); }

Server::Server(u32 dest_id)
    : mailbox_(Mailbox::exclusive(destinationName(dest_id),
                                  "destination " + std::to_string(dest_id),
                                  [](const Header &header) { return header.kind != QUEUED; })) {}
Server::Server(Server &&) noexcept = default;
Server &Server::operator=(Server &&) noexcept = default;
Server::~Server() = default;

int Server::fd() const { return mailbox_->fd(); }

std::optional<Block> Server::receive(std::chrono::milliseconds wait) {
    return mailbox_->receive(wait);
}

bool Server::senderWaits(const Block &request) const {
    return isWaiting(waitingSender(request.get()));
}

Subscription::Subscription(const std::vector<u32> &ids) : mailbox_(subscribe(ids)) {}
Subscription::Subscription(Subscription &&) noexcept = default;
Subscription &Subscription::operator=(Subscription &&) noexcept = default;
Subscription::~Subscription() = default;

int Subscription::fd() const { return mailbox_->fd(); }

std::optional<Block> Subscription::receive(std::chrono::milliseconds wait) {
    return mailbox_->receive(wait);
}

Queue::Queue(u32 mq)
    : mailbox_(Mailbox::exclusive(queueName(mq), "message queue " + std::to_string(mq),
                                  [](const Header &header) { return header.kind == QUEUED; })) {}
Queue::Queue(Queue &&) noexcept = default;
Queue &Queue::operator=(Queue &&) noexcept = default;
Queue::~Queue() = default;

int Queue::fd() const { return mailbox_->fd(); }

std::optional<Block> Queue::receive(std::chrono::milliseconds wait) {
    return mailbox_->receive(wait);
}

} // namespace smspb::ipc
