// The platform's eight IPC functions, scripted: every call is recorded, answers come from the test,
// a chosen call fails. Blocks lie against an unreadable page and are unmapped when given back. A
// block freed twice, freed though unknown, or written beyond its end fails the test.
#ifndef SMSPB_TESTS_FAKE_PLATFORM_H
#define SMSPB_TESTS_FAKE_PLATFORM_H

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "comm/platform_ipc.h"

namespace support {

enum class Call { MemoryAssign, MemFree, GenSession, GetAddress, Notify, SendAsy, SendSyn, MqSend };

using AddressRecord = std::array<u8, IPC_ADDRESS_SIZE>;

// What ipc_get_addr_by_id fills in for a destination: its id in the first word, then a pattern.
AddressRecord addressOf(u32 dest_id);

struct Assigned {
    u32 size, type;
    void *block; // null when the call was made to fail
};

struct Resolved {
    u32 destination, zero;
    bool wasClear; // all 116 octets of the record were 0
};

// One message as it was handed over, header words as they stood in the block.
struct Sent {
    Call how; // Notify, SendAsy, SendSyn or MqSend
    u32 kind = 0, messageId = 0;
    u32 payloadLength = 0, sessionId = 0; // ordinary messages only
    std::vector<u8> payload;
    u32 len = 0;               // the argument (not MqSend)
    AddressRecord address{};   // SendAsy, SendSyn
    u32 timeout = 0, room = 0; // SendSyn: the wait, and the value at response_len on entry
    u32 mq = 0, zero1 = 0, zero2 = 0;
    const void *block = nullptr, *response = nullptr;
    u32 destination() const; // of the address, as addressOf() filled it in
};

struct Freed {
    u32 thread_id, line, zero;
    const void *block;
};

// What a synchronous request brings.
struct Answer {
    u32 result = 0;              // of ipc_msg_send_syn; nothing is stored unless it is 0
    std::vector<u8> payload;     // stored in the response block, cut to its size
    std::optional<u32> length{}; // written to *response_len instead of the payload's size
    bool asQueueMessage = false; // the response's first word is 3, so its payload is at octet 8
};

// Everything forgotten, every block gone, nothing fails, requests meet result 0 without a payload.
void resetPlatform();

// The nth call from now (1 is the next) gives `result`, or null for MemoryAssign.
void failCall(Call which, u32 nth, u32 result = 77);

// Answers every synchronous request from now on.
void answerRequests(std::function<Answer(const Sent &)> answer);

// What was called, in order.
const std::vector<Call> &calls();
const std::vector<Assigned> &assigned();
const std::vector<Resolved> &resolved();
const std::vector<Sent> &sent();
const std::vector<Freed> &freed();

// Blocks assigned and neither freed nor queued.
std::size_t liveIpcBlocks();

// A received request: header, payload, and behind it (at the next multiple of 4) the sender's
// address. The octets end at the address's end; put them against a guard page with Guarded<u32> if
// need be.
std::vector<u32> receivedRequest(u32 kind, u32 messageId, u32 sessionId,
                                 const std::vector<u8> &payload, const AddressRecord &from);

} // namespace support

#endif
