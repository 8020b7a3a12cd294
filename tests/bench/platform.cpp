#include "platform.h"

#include <cstdlib>
#include <cstring>

#include "comm/platform_ipc.h"

namespace {

enum {
    BLOCK_HEAD = 16,
    SESSION_WORD = 3,
    ADDRESS_ROOM = IPC_ADDRESS_SIZE + 4, // behind a payload, at a multiple of 4
    RECORD_HEAD = 12                     // result, transfer flag, length of the text
};
constexpr u32 SYNC_RESPONSE = 2;

std::string_view theReply = "\r\nOK\r\n";

} // namespace

void bench::answerWith(std::string_view reply) { theReply = reply; }

void *ipc_memory_assign(u32 size, u32 /*type*/) {
    return std::malloc(BLOCK_HEAD + std::size_t{size} + ADDRESS_ROOM);
}

u32 mem_free_ex(u32 /*thread_id*/, u32 /*line*/, u32 /*zero*/, void *block) {
    std::free(block);
    return 0;
}

u32 ipc_gen_seesion_id(void *block) {
    static u32 last = 0;
    static_cast<u32 *>(block)[SESSION_WORD] = ++last;
    return 0;
}

u32 ipc_get_addr_by_id(u32 dest_id, u32 /*zero*/, void *address) {
    std::memcpy(address, &dest_id, sizeof(dest_id));
    return 0;
}

u32 ipc_msg_notify(void * /*block*/, u32 /*len*/) { return 0; }

u32 ipc_msg_send_asy(const void * /*address*/, void * /*block*/, u32 /*len*/) { return 0; }

u32 ipc_msg_send_syn(const void * /*address*/, void * /*request*/, u32 /*len*/, u32 /*timeout_ms*/,
                     void *response, u32 *response_len) {
    const u32 head[] = {0, 0, static_cast<u32>(theReply.size())};
    static_assert(sizeof(head) == RECORD_HEAD);
    static_cast<u32 *>(response)[0] = SYNC_RESPONSE;
    u8 *record = static_cast<u8 *>(response) + BLOCK_HEAD;
    std::memcpy(record, head, RECORD_HEAD);
    std::memcpy(record + RECORD_HEAD, theReply.data(), theReply.size());
    *response_len = RECORD_HEAD + static_cast<u32>(theReply.size());
    return 0;
}

u32 ipc_mq_send(u32 /*mq*/, void *block, u32 /*zero1*/, u32 /*zero2*/) {
    std::free(block);
    return 0;
}
