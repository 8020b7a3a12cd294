#include "fake_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "guard_page.h"

namespace support {
namespace {

constexpr u32 QUEUE = 3;
constexpr std::size_t HEADER = 16, QUEUE_HEADER = 8;
constexpr u8 CANARY = 0xC3;

struct Block {
    GuardedBytes memory; // the block, then up to 3 octets of canary against the page
    std::size_t size;
    u32 payload;
};

struct Failure {
    Call which;
    u32 countdown, result;
};

struct Platform {
    std::recursive_mutex guard;
    std::map<const void *, Block> live, queued;
    std::vector<Failure> failures;
    std::function<Answer(const Sent &)> answer;
    std::vector<Call> calls;
    std::vector<Assigned> assigned;
    std::vector<Resolved> resolved;
    std::vector<Sent> sent;
    std::vector<Freed> freed;
    u32 session = 0x5E550000;
};

Platform &platform() {
    static Platform instance;
    return instance;
}

using Lock = std::lock_guard<std::recursive_mutex>;

u32 word(const void *block, std::size_t index) {
    u32 value = 0;
    std::memcpy(&value, static_cast<const u8 *>(block) + index * sizeof(u32), sizeof(value));
    return value;
}

void setWord(void *block, std::size_t index, u32 value) {
    std::memcpy(static_cast<u8 *>(block) + index * sizeof(u32), &value, sizeof(value));
}

// Records the call; the result it was told to fail with, if any.
std::optional<u32> enter(Call which) {
    Platform &p = platform();
    p.calls.push_back(which);
    std::optional<u32> result;
    for (auto it = p.failures.begin(); it != p.failures.end();) {
        if (it->which == which && --it->countdown == 0) {
            result = it->result;
            it = p.failures.erase(it);
        } else {
            ++it;
        }
    }
    return result;
}

Block makeBlock(u32 payload, u32 type) {
    const std::size_t size = (type == QUEUE ? QUEUE_HEADER : HEADER) + payload;
    const std::size_t rounded = (size + 3) / 4 * 4;
    Block block{GuardedBytes(rounded), size, payload};
    std::memset(block.memory.data() + size, CANARY, rounded - size);
    if (type == QUEUE) { setWord(block.memory.data(), 0, QUEUE); }
    return block;
}

void checkCanary(const Block &block) {
    for (std::size_t i = block.size; i < block.memory.size(); i++) {
        EXPECT_EQ(block.memory[i], CANARY)
            << "IPC block of " << block.size << " octets written beyond its end";
    }
}

Block *findLive(const void *block, const char *function) {
    const auto found = platform().live.find(block);
    if (found == platform().live.end()) {
        ADD_FAILURE() << function << " was given a block that is not live";
        return nullptr;
    }
    return &found->second;
}

Sent describe(Call how, const void *memory, const Block &block) {
    Sent sent;
    sent.how = how;
    sent.block = memory;
    sent.kind = word(memory, 0);
    sent.messageId = word(memory, 1);
    const std::size_t header = how == Call::MqSend ? QUEUE_HEADER : HEADER;
    if (header == HEADER) {
        sent.payloadLength = word(memory, 2);
        sent.sessionId = word(memory, 3);
    }
    const u8 *payload = static_cast<const u8 *>(memory) + header;
    sent.payload.assign(payload, payload + block.payload);
    return sent;
}

void copyAddress(const void *address, Sent *sent) {
    std::memcpy(sent->address.data(), address, sent->address.size());
}

void storeAnswer(const Answer &answer, void *response, Block *block, u32 *length) {
    setWord(response, 0, answer.asQueueMessage ? QUEUE : 0);
    const std::size_t header = answer.asQueueMessage ? QUEUE_HEADER : HEADER;
    const std::size_t count = std::min(answer.payload.size(), block->size - header);
    if (count != 0) {
        std::memcpy(static_cast<u8 *>(response) + header, answer.payload.data(), count);
    }
    *length = answer.length.value_or(static_cast<u32>(answer.payload.size()));
}

} // namespace

AddressRecord addressOf(u32 dest_id) {
    AddressRecord record;
    for (std::size_t i = 0; i < record.size(); i++) {
        record[i] = static_cast<u8>(0x80 + i + dest_id);
    }
    std::memcpy(record.data(), &dest_id, sizeof(dest_id));
    return record;
}

u32 Sent::destination() const {
    const u32 id = word(address.data(), 0);
    EXPECT_EQ(address, addressOf(id)) << "the address record was changed on its way";
    return id;
}

void resetPlatform() {
    Platform &p = platform();
    const Lock lock(p.guard);
    p.live.clear();
    p.queued.clear();
    p.failures.clear();
    p.answer = nullptr;
    p.calls.clear();
    p.assigned.clear();
    p.resolved.clear();
    p.sent.clear();
    p.freed.clear();
}

void failCall(Call which, u32 nth, u32 result) {
    const Lock lock(platform().guard);
    platform().failures.push_back({which, nth, result});
}

void answerRequests(std::function<Answer(const Sent &)> answer) {
    const Lock lock(platform().guard);
    platform().answer = std::move(answer);
}

const std::vector<Call> &calls() { return platform().calls; }
const std::vector<Assigned> &assigned() { return platform().assigned; }
const std::vector<Resolved> &resolved() { return platform().resolved; }
const std::vector<Sent> &sent() { return platform().sent; }
const std::vector<Freed> &freed() { return platform().freed; }

std::size_t liveIpcBlocks() {
    const Lock lock(platform().guard);
    return platform().live.size();
}

std::vector<u32> receivedRequest(u32 kind, u32 messageId, u32 sessionId,
                                 const std::vector<u8> &payload, const AddressRecord &from) {
    const std::size_t rounded = (payload.size() + 3) / 4 * 4;
    std::vector<u32> block((HEADER + rounded + from.size()) / sizeof(u32));
    block[0] = kind;
    block[1] = messageId;
    block[2] = static_cast<u32>(payload.size());
    block[3] = sessionId;
    u8 *octets = reinterpret_cast<u8 *>(block.data());
    if (!payload.empty()) { std::memcpy(octets + HEADER, payload.data(), payload.size()); }
    std::memcpy(octets + HEADER + rounded, from.data(), from.size());
    return block;
}

} // namespace support

// NOLINTBEGIN(misc-use-internal-linkage): the names are the platform's.
using namespace support;

void *ipc_memory_assign(u32 size, u32 type) {
    Platform &p = platform();
    const Lock lock(p.guard);
    if (enter(Call::MemoryAssign)) {
        p.assigned.push_back({size, type, nullptr});
        return nullptr;
    }
    Block block = makeBlock(size, type);
    void *memory = block.memory.data();
    p.live.emplace(memory, std::move(block));
    p.assigned.push_back({size, type, memory});
    return memory;
}

u32 mem_free_ex(u32 thread_id, u32 line, u32 zero, void *block) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const u32 result = enter(Call::MemFree).value_or(0);
    p.freed.push_back({thread_id, line, zero, block});
    if (Block *known = findLive(block, "mem_free_ex")) {
        checkCanary(*known);
        p.live.erase(block);
    }
    return result;
}

u32 ipc_gen_seesion_id(void *block) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const u32 result = enter(Call::GenSession).value_or(0);
    if (findLive(block, "ipc_gen_seesion_id") != nullptr) { setWord(block, 3, ++p.session); }
    return result;
}

u32 ipc_get_addr_by_id(u32 dest_id, u32 zero, void *address) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const auto failure = enter(Call::GetAddress);
    const auto *octets = static_cast<const u8 *>(address);
    const bool clear = std::all_of(octets, octets + IPC_ADDRESS_SIZE, [](u8 o) { return o == 0; });
    p.resolved.push_back({dest_id, zero, clear});
    if (failure) { return *failure; }
    const AddressRecord record = addressOf(dest_id);
    std::memcpy(address, record.data(), record.size());
    return 0;
}

u32 ipc_msg_notify(void *block, u32 len) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const u32 result = enter(Call::Notify).value_or(0);
    const Block *known = findLive(block, "ipc_msg_notify");
    if (known == nullptr) { return result; }
    p.sent.push_back(describe(Call::Notify, block, *known));
    p.sent.back().len = len;
    return result;
}

u32 ipc_msg_send_asy(const void *address, void *block, u32 len) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const u32 result = enter(Call::SendAsy).value_or(0);
    const Block *known = findLive(block, "ipc_msg_send_asy");
    if (known == nullptr) { return result; }
    p.sent.push_back(describe(Call::SendAsy, block, *known));
    p.sent.back().len = len;
    copyAddress(address, &p.sent.back());
    return result;
}

u32 ipc_msg_send_syn(const void *address, void *request, u32 len, u32 timeout_ms, void *response,
                     u32 *response_len) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const auto failure = enter(Call::SendSyn);
    const Block *asked = findLive(request, "ipc_msg_send_syn (request)");
    Block *room = findLive(response, "ipc_msg_send_syn (response)");
    if (asked == nullptr || room == nullptr) { return failure.value_or(0); }
    Sent sent = describe(Call::SendSyn, request, *asked);
    sent.len = len;
    sent.timeout = timeout_ms;
    sent.room = *response_len;
    sent.response = response;
    copyAddress(address, &sent);
    p.sent.push_back(sent);
    if (failure) { return *failure; }
    const Answer answer = p.answer ? p.answer(sent) : Answer{};
    if (answer.result == 0) { storeAnswer(answer, response, room, response_len); }
    return answer.result;
}

u32 ipc_mq_send(u32 mq, void *block, u32 zero1, u32 zero2) {
    Platform &p = platform();
    const Lock lock(p.guard);
    const auto failure = enter(Call::MqSend);
    Block *known = findLive(block, "ipc_mq_send");
    if (known == nullptr) { return failure.value_or(0); }
    Sent sent = describe(Call::MqSend, block, *known);
    sent.mq = mq;
    sent.zero1 = zero1;
    sent.zero2 = zero2;
    p.sent.push_back(sent);
    if (failure) { return *failure; }
    checkCanary(*known);
    p.queued.insert(p.live.extract(block));
    return 0;
}
// NOLINTEND(misc-use-internal-linkage)
