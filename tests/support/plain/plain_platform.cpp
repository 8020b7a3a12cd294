#include "plain_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace support::plain {
namespace {

constexpr u32 QUEUE = 3;
constexpr std::size_t HEADER = 16, QUEUE_HEADER = 8, RESPONSE_HEADER = 12, RECORD_MAX = 1025;

thread_local Responder t_responder;
thread_local long t_liveBlocks = 0;

} // namespace

void answerThisThread(Responder responder) { t_responder = std::move(responder); }

Response carrying(std::string_view text) {
    text = text.substr(0, RECORD_MAX - RESPONSE_HEADER);
    Response response;
    const u32 words[] = {0, 0, static_cast<u32>(text.size())};
    static_assert(sizeof(words) == RESPONSE_HEADER);
    response.payload.resize(sizeof(words) + text.size());
    std::memcpy(response.payload.data(), words, sizeof(words));
    std::copy(text.begin(), text.end(), response.payload.begin() + sizeof(words));
    response.length = static_cast<u32>(response.payload.size());
    return response;
}

void answerWithTexts(std::vector<std::string> texts) {
    answerThisThread([texts = std::move(texts), next = std::size_t{0}](const void *, u32) mutable {
        if (texts.empty()) { return Response{}; }
        const std::size_t turn = std::min(next++, texts.size() - 1);
        return carrying(texts[turn]);
    });
}

long liveIpcBlocks() { return t_liveBlocks; }

} // namespace support::plain

using namespace support::plain;

void *ipc_memory_assign(u32 size, u32 type) {
    void *block = std::malloc((type == QUEUE ? QUEUE_HEADER : HEADER) + size);
    if (block != nullptr) {
        t_liveBlocks++;
        std::memcpy(block, &type, sizeof(type));
    }
    return block;
}

u32 mem_free_ex(u32, u32, u32, void *block) {
    std::free(block);
    t_liveBlocks--;
    return 0;
}

u32 ipc_gen_seesion_id(void *block) {
    static_cast<u32 *>(block)[3] = 1;
    return 0;
}

u32 ipc_get_addr_by_id(u32 dest_id, u32, void *address) {
    std::memset(address, static_cast<int>(dest_id), IPC_ADDRESS_SIZE);
    return 0;
}

u32 ipc_msg_notify(void *, u32) { return 0; }

u32 ipc_msg_send_asy(const void *, void *, u32) { return 0; }

u32 ipc_msg_send_syn(const void *, void *request, u32 len, u32, void *response, u32 *response_len) {
    const Response answer =
        t_responder ? t_responder(static_cast<u8 *>(request) + HEADER, len) : Response{};
    if (answer.result != 0) { return answer.result; }
    const u32 kind = answer.asQueueMessage ? QUEUE : 0;
    std::memcpy(response, &kind, sizeof(kind));
    const std::size_t header = answer.asQueueMessage ? QUEUE_HEADER : HEADER;
    const std::size_t held = std::min<std::size_t>(answer.payload.size(), *response_len);
    if (held != 0) {
        std::memcpy(static_cast<u8 *>(response) + header, answer.payload.data(), held);
    }
    *response_len = answer.length;
    return 0;
}

u32 ipc_mq_send(u32, void *block, u32, u32) {
    std::free(block);
    t_liveBlocks--;
    return 0;
}
