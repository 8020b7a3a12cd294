// The platform's functions for sending. Every result but 0 is an errno value:
//   EINVAL        a null argument, not a block of IPC memory, or lengths that do not agree
//   EMSGSIZE      more payload than PAYLOAD_OCTETS_MAX
//   ECONNREFUSED  nobody serves the destination or reads the queue
//   EAGAIN        the receiver is alive, but its queue stayed full
//   ENOTCONN, EPIPE  the sender that is answered no longer waits
//   ECONNRESET    the process that was asked died or dropped the request
//   ETIMEDOUT     it did not answer in time
//   others        what the runtime directory or the system refuses
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "comm/platform_ipc.h"
#include "platform/ipc/block.h"
#include "platform/ipc/directory.h"
#include "platform/ipc/idle.h"
#include "platform/ipc/ipc_server.h"
#include "platform/ipc/socket.h"
#include "platform/ipc/waiting.h"

using namespace smspb::ipc;

namespace {

namespace fs = std::filesystem;

// How long a sender that does not wait for an answer waits for room in a full queue.
constexpr std::chrono::milliseconds FULL_QUEUE_WAIT{250};

// No exception passes into the callers' C.
template <typename Call> u32 guarded(Call call) {
    try {
        return call();
    } catch (const std::system_error &error) {
        return static_cast<u32>(error.code().value());
    } catch (const std::bad_alloc &) { return ENOMEM; }
}

u32 checkOrdinary(const void *block, u32 len) {
    if (!isBlock(block) || readHeader(block).kind == QUEUED) { return EINVAL; }
    if (readHeader(block).payloadOctets != len || len > payloadRoom(block)) { return EINVAL; }
    return len <= PAYLOAD_OCTETS_MAX ? 0 : EMSGSIZE;
}

u32 checkQueued(const void *block) {
    if (!isBlock(block) || readHeader(block).kind != QUEUED) { return EINVAL; }
    return payloadRoom(block) <= PAYLOAD_OCTETS_MAX ? 0 : EMSGSIZE;
}

Address addressFrom(const void *record) {
    Address address{};
    std::memcpy(&address, record, sizeof(address));
    return address;
}

std::vector<fs::path> subscribersOf(u32 messageId) {
    const std::string prefix = subscriberPrefix(messageId);
    std::vector<fs::path> found;
    for (const fs::directory_entry &entry : fs::directory_iterator(runtimeDirectory())) {
        if (entry.path().filename().native().starts_with(prefix)) { found.push_back(entry.path()); }
    }
    return found;
}

// What a dead subscriber left behind is removed, and counts as delivered.
u32 notifySubscriber(const fs::path &path, Deadline deadline, const void *block) {
    Address address{};
    if (const u32 error = makeAddress(path.native(), &address); error != 0) { return error; }
    const u32 error = deliver(address, deadline, readHeader(block), payloadOf(block));
    if (error == ECONNREFUSED) { unlink(path.c_str()); }
    const bool isDead = error == ECONNREFUSED || error == EPIPE || error == ECONNRESET;
    return isDead ? 0 : error;
}

// Waits for nobody: what a subscriber has no room for, because it does not read, it loses.
u32 notifyAll(const void *block) {
    u32 result = 0;
    for (const fs::path &path : subscribersOf(readHeader(block).messageId)) {
        const u32 error = notifySubscriber(path, Clock::now(), block);
        if (error != 0) { result = error; }
    }
    return result;
}

bool isAnswer(const Header &header, ssize_t size, u32 sessionId) {
    return isWellFormed(header, size) && header.kind == RESPONSE && header.sessionId == sessionId;
}

// Takes the waiting packet into the block; what is longer than `*octets` is cut.
u32 takeAnswer(int socket, void *block, u32 *octets) {
    Header header{};
    iovec parts[] = {
        {                                        &header, HEADER_OCTETS},
        {static_cast<std::byte *>(block) + HEADER_OCTETS,       *octets}
    };
    msghdr packet{};
    packet.msg_iov = parts;
    packet.msg_iovlen = std::size(parts);
    if (recvmsg(socket, &packet, MSG_DONTWAIT) < 0) { return static_cast<u32>(errno); }
    header.payloadOctets = std::min(header.payloadOctets, *octets);
    writeHeader(block, header);
    *octets = header.payloadOctets;
    return 0;
}

// ECONNRESET when the request was not read, and ECONNABORTED when it was and is not answered.
u32 awaitAnswer(int socket, u32 sessionId, Deadline deadline, void *block, u32 *octets) {
    while (waitReadable(socket, deadline)) {
        Header header{};
        const ssize_t size = peekHeader(socket, &header);
        if (size < 0) { return static_cast<u32>(errno); }
        if (size == 0) { return ECONNABORTED; }
        if (isAnswer(header, size, sessionId)) { return takeAnswer(socket, block, octets); }
        recv(socket, nullptr, 0, MSG_DONTWAIT);
        if (Clock::now() >= deadline) { break; }
    }
    return ETIMEDOUT;
}

// A synchronous request, with its deadline and the room for its answer.
struct Question {
    Header header;
    std::span<const std::byte> payload;
    Deadline deadline;
    void *response;
    u32 octets; // in: the response's room; out: what came

    // On a connection that nothing is owed on. The results of awaitAnswer().
    u32 ask(int socket) {
        const u32 error = sendMessage(socket, header, payload);
        if (error != 0) { return error == EPIPE ? ECONNRESET : error; }
        return awaitAnswer(socket, header.sessionId, deadline, response, &octets);
    }
};

// On an idle connection if there is one. Its server may have closed it, and has not read the
// request then: that is no failure, another connection may do better.
u32 askSomehow(const Address &address, Question *question) {
    u32 error = ECONNRESET;
    Descriptor connection = takeIdle(address);
    while (connection.isOpen() && error == ECONNRESET) {
        error = question->ask(connection.get());
        if (error == ECONNRESET) { connection = takeIdle(address); }
    }
    if (!connection.isOpen()) {
        error = connectTo(address, question->deadline, &connection);
        if (error == 0) { error = question->ask(connection.get()); }
    }
    if (error == 0) { keepIdle(address, std::move(connection)); }
    return error == ECONNABORTED ? ECONNRESET : error;
}

} // namespace

u32 ipc_gen_seesion_id(void *block) {
    if (!isBlock(block)) { return EINVAL; }
    return guarded([block] {
        Header header = readHeader(block);
        header.sessionId = nextSharedNumber();
        writeHeader(block, header);
        return 0u;
    });
}

u32 ipc_get_addr_by_id(u32 dest_id, u32 /*zero*/, void *address) {
    if (address == nullptr) { return EINVAL; }
    return guarded([=] {
        Address found{};
        const u32 error = makeAddress(runtimePath(destinationName(dest_id)), &found);
        std::memcpy(address, &found, sizeof(found));
        return error;
    });
}

// 0 when every living subscriber has it, also when there is none. EAGAIN when one did not read and
// its queue is full: the others have it.
u32 ipc_msg_notify(void *block, u32 len) {
    const u32 error = checkOrdinary(block, len);
    return error != 0 ? error : guarded([block] { return notifyAll(block); });
}

u32 ipc_msg_send_asy(const void *address, void *block, u32 len) {
    if (address == nullptr) { return EINVAL; }
    if (const u32 error = checkOrdinary(block, len); error != 0) { return error; }
    const Address to = addressFrom(address);
    const Header header = readHeader(block);
    if (to.waiting != 0) { return answer(to.waiting, header, payloadOf(block)); }
    return deliver(to, deadlineAfter(FULL_QUEUE_WAIT), header, payloadOf(block));
}

// An answer longer than `*response_len` is cut to it.
u32 ipc_msg_send_syn(const void *address, void *request, u32 len, u32 timeout_ms, void *response,
                     u32 *response_len) {
    const Deadline deadline = deadlineAfter(std::chrono::milliseconds(timeout_ms));
    if (address == nullptr || !isBlock(response) || response_len == nullptr) { return EINVAL; }
    if (const u32 error = checkOrdinary(request, len); error != 0) { return error; }
    Question question{readHeader(request), payloadOf(request), deadline, response,
                      std::min(*response_len, payloadRoom(response))};
    question.header.kind = REQUEST;
    const u32 error = askSomehow(addressFrom(address), &question);
    if (error == 0) { *response_len = question.octets; }
    return error;
}

u32 ipc_mq_send(u32 mq, void *block, u32 /*zero1*/, u32 /*zero2*/) {
    if (const u32 error = checkQueued(block); error != 0) { return error; }
    const u32 error = guarded([=] {
        Address address{};
        const u32 tooLong = makeAddress(runtimePath(queueName(mq)), &address);
        return tooLong != 0 ? tooLong
                            : deliver(address, deadlineAfter(FULL_QUEUE_WAIT), readHeader(block),
                                      payloadOf(block));
    });
    if (error == 0) { mem_free_ex(static_cast<u32>(gettid()) & 0xffffu, __LINE__, 0, block); }
    return error;
}
