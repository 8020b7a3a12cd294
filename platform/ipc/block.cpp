// IPC memory: heap blocks with a hidden prefix that tells their size, which a queue message does
// not tell itself.
#include "platform/ipc/block.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "comm/platform_ipc.h"

namespace smspb::ipc {

namespace {

constexpr u32 BLOCK_MARK = 0x49504342;            // "IPCB"
constexpr u32 ROOM_OCTETS_MAX = 16 * 1024 * 1024; // room for an answer may be generous, not absurd

struct alignas(16) Prefix {
    u32 mark;
    u32 payloadRoom;
};

const Prefix *prefixOf(const void *block) { return static_cast<const Prefix *>(block) - 1; }

} // namespace

bool isBlock(const void *block) { return block != nullptr && prefixOf(block)->mark == BLOCK_MARK; }

u32 payloadRoom(const void *block) { return isBlock(block) ? prefixOf(block)->payloadRoom : 0; }

Header readHeader(const void *block) {
    Header header{};
    std::memcpy(&header, block, HEADER_OCTETS);
    return header;
}

void writeHeader(void *block, const Header &header) {
    std::memcpy(block, &header, headerOctets(header.kind));
}

std::byte *payloadStart(void *block) {
    return static_cast<std::byte *>(block) + headerOctets(readHeader(block).kind);
}

std::span<const std::byte> payloadOf(const void *block) {
    const Header header = readHeader(block);
    const auto *start = static_cast<const std::byte *>(block) + headerOctets(header.kind);
    return {start, header.kind == QUEUED ? payloadRoom(block) : header.payloadOctets};
}

} // namespace smspb::ipc

using namespace smspb::ipc;

void *ipc_memory_assign(u32 size, u32 type) {
    if (size > ROOM_OCTETS_MAX || (type != ONE_WAY && type != QUEUED)) { return nullptr; }
    // Cleared, so that a payload that its sender leaves unset carries nothing of ours.
    auto *prefix = static_cast<Prefix *>(std::calloc(1, sizeof(Prefix) + HEADER_OCTETS + size));
    if (prefix == nullptr) { return nullptr; }
    *prefix = {BLOCK_MARK, size};
    void *block = prefix + 1;
    std::memcpy(block, &type, sizeof(type));
    return block;
}

u32 mem_free_ex(u32 /*thread_id*/, u32 /*line*/, u32 /*zero*/, void *block) {
    if (!isBlock(block)) { return EINVAL; }
    auto *prefix = static_cast<Prefix *>(block) - 1;
    prefix->mark = 0;
    std::free(prefix);
    return 0;
}
