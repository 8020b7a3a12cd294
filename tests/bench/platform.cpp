// The platform's functions in the same process: the modem manager answers at once, without leaving
// the caller's thread. It costs a block from the heap and a copied answer, nothing else.
#include "comm/platform_ipc.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// The response record: result 0, inline, the length of the text, the text.
constexpr std::string_view REPLY = "\r\nOK\r\n";
enum { RECORD_HEAD = 12, HEAD_WORDS = 3 };

struct Answer {
    u32 head[HEAD_WORDS] = {0, 0, static_cast<u32>(REPLY.size())};
};
constexpr Answer ANSWER;
constexpr u32 BLOCK_HEAD = 16;
constexpr u32 ADDRESS_ROOM = IPC_ADDRESS_SIZE + 4; // behind a payload, at a multiple of 4

} // namespace

void *ipc_memory_assign(u32 size, u32 /*type*/) {
    return std::malloc(BLOCK_HEAD + std::size_t{size} + ADDRESS_ROOM);
}

u32 mem_free_ex(u32 /*thread_id*/, u32 /*line*/, u32 /*zero*/, void *block) {
    std::free(block);
    return 0;
}

u32 ipc_gen_seesion_id(void *block) {
    static u32 last = 0;
    static_cast<u32 *>(block)[3] = ++last;
    return 0;
}

u32 ipc_get_addr_by_id(u32 dest_id, u32 /*zero*/, void *address) {
    std::memset(address, 0, IPC_ADDRESS_SIZE);
    std::memcpy(address, &dest_id, sizeof(dest_id));
    return 0;
}

u32 ipc_msg_notify(void * /*block*/, u32 /*len*/) { return 0; }

u32 ipc_msg_send_asy(const void * /*address*/, void * /*block*/, u32 /*len*/) { return 0; }

u32 ipc_msg_send_syn(const void * /*address*/, void * /*request*/, u32 /*len*/, u32 /*timeout_ms*/,
                     void *response, u32 *response_len) {
    u8 *payload = static_cast<u8 *>(response) + BLOCK_HEAD;
    static_cast<u32 *>(response)[0] = 2; // a synchronous response
    std::memcpy(payload, ANSWER.head, RECORD_HEAD);
    std::memcpy(payload + RECORD_HEAD, REPLY.data(), REPLY.size());
    *response_len = RECORD_HEAD + static_cast<u32>(REPLY.size());
    return 0;
}

u32 ipc_mq_send(u32 /*mq*/, void *block, u32 /*zero1*/, u32 /*zero2*/) {
    std::free(block);
    return 0;
}
