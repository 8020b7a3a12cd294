#include "platform/ipc/socket.h"

#include "platform/ipc/access.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace smspb::ipc {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr microseconds SECOND = seconds(1);

template <typename Duration> Duration remaining(Deadline deadline) {
    return std::max(duration_cast<Duration>(deadline - Clock::now()), Duration::zero());
}

timespec toTimespec(nanoseconds left) {
    const auto whole = duration_cast<seconds>(left);
    return {static_cast<time_t>(whole.count()), static_cast<long>((left - whole).count())};
}

// Back to waiting, but not for ever: how long connect() waits for room in the receiver's queue. The
// kernel takes 0 for "for ever".
void limitConnect(int socket, Deadline deadline) {
    const auto left = std::max(remaining<microseconds>(deadline), microseconds(1));
    const timeval limit = {static_cast<time_t>(left / SECOND),
                           static_cast<suseconds_t>((left % SECOND).count())};
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    fcntl(socket, F_SETFL, 0);
}

u32 connectOnce(int socket, const sockaddr_un &name) {
    const auto *generic = reinterpret_cast<const sockaddr *>(&name);
    return connect(socket, generic, sizeof(name)) == 0 ? 0 : static_cast<u32>(errno);
}

bool isPath(const sockaddr_un &name) {
    return name.sun_family == AF_UNIX && name.sun_path[0] == '/' &&
           std::memchr(name.sun_path, 0, sizeof(name.sun_path)) != nullptr;
}

// A name of the kernel's choosing, so that the sender has an address.
bool takeAnyName(int socket) {
    const sa_family_t family = AF_UNIX;
    return bind(socket, reinterpret_cast<const sockaddr *>(&family), sizeof(family)) == 0;
}

} // namespace

Deadline deadlineAfter(std::chrono::milliseconds wait) {
    if (wait.count() < 0 || wait >= remaining<std::chrono::milliseconds>(FOREVER)) {
        return FOREVER;
    }
    return Clock::now() + wait;
}

bool waitReadable(int fd, Deadline deadline) {
    for (;;) {
        pollfd event = {fd, POLLIN, 0};
        const timespec left = toTimespec(remaining<nanoseconds>(deadline));
        const int count = ppoll(&event, 1, deadline == FOREVER ? nullptr : &left, nullptr);
        if (count >= 0) { return count > 0; }
        if (errno != EINTR) { return false; }
    }
}

bool hasHungUp(int fd) {
    pollfd event = {fd, POLLRDHUP, 0};
    return poll(&event, 1, 0) > 0;
}

u32 makeAddress(const std::string &path, Address *address) {
    *address = {};
    address->name.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address->name.sun_path)) { return ENAMETOOLONG; }
    std::memcpy(address->name.sun_path, path.data(), path.size());
    return 0;
}

std::optional<Peer> peerOf(int socket) {
    ucred told{};
    socklen_t size = sizeof(told);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &told, &size) != 0) { return std::nullopt; }
    return Peer{told.pid, told.uid, told.gid};
}

u32 connectTo(const Address &address, Deadline deadline, Descriptor *connection) {
    if (!isPath(address.name)) { return EDESTADDRREQ; }
    Descriptor own(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!own.isOpen() || !takeAnyName(own.get())) { return static_cast<u32>(errno); }
    u32 error = connectOnce(own.get(), address.name);
    bool isFull = error == EAGAIN;
    while (isFull && Clock::now() < deadline) {
        limitConnect(own.get(), deadline);
        error = connectOnce(own.get(), address.name);
        isFull = error == EINTR;
    }
    if (error != 0) { return error == ENOENT ? ECONNREFUSED : error; }
    const std::optional<Peer> peer = peerOf(own.get());
    if (!peer || !isTrusted(own.get(), *peer)) { return EPERM; }
    *connection = std::move(own);
    return 0;
}

u32 sendMessage(int socket, const Header &header, std::span<const std::byte> payload) {
    iovec parts[] = {
        {          const_cast<Header *>(&header), headerOctets(header.kind)},
        {const_cast<std::byte *>(payload.data()),            payload.size()}
    };
    msghdr packet{};
    packet.msg_iov = parts;
    packet.msg_iovlen = std::size(parts);
    return sendmsg(socket, &packet, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 ? 0 : static_cast<u32>(errno);
}

u32 deliver(const Address &address, Deadline deadline, const Header &header,
            std::span<const std::byte> payload) {
    Descriptor connection;
    const u32 error = connectTo(address, deadline, &connection);
    return error != 0 ? error : sendMessage(connection.get(), header, payload);
}

ssize_t peekHeader(int socket, Header *header) {
    *header = {};
    return recv(socket, header, HEADER_OCTETS, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
}

bool isWellFormed(const Header &header, ssize_t size) {
    if (size < static_cast<ssize_t>(headerOctets(header.kind))) { return false; }
    const auto payload = static_cast<size_t>(size) - headerOctets(header.kind);
    return payload <= PAYLOAD_OCTETS_MAX &&
           (header.kind == QUEUED || payload == header.payloadOctets);
}

} // namespace smspb::ipc
