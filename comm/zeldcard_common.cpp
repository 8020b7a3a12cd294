// IPC messages: assign a block, fill its header, copy the payload, hand it over, free what is still
// owned. No state; nothing is retried.
#include "zeldcard_common.h"

#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "log_line.h"
#include "platform_ipc.h"

static const char LOG_SOURCE[] = "comm/zeldcard_common.cpp";

static const u32 KIND_PLAIN = 0;
static const u32 KIND_SYNC_REQUEST = 1;
static const u32 KIND_SYNC_RESPONSE = 2;
static const u32 KIND_QUEUE = 3;

static const u32 BLOCK_ORDINARY = 0; // ipc_memory_assign's types
static const u32 BLOCK_QUEUE = 3;

enum { WORD_KIND, WORD_MESSAGE_ID, WORD_LENGTH, WORD_SESSION, HEADER_WORDS };
static const u32 HEADER_OCTETS = 16;
static const u32 QUEUE_HEADER_OCTETS = 8;
static const u32 THREAD_ID_MASK = 0xFFFF;

static u32 threadId() { return static_cast<u32>(syscall(SYS_gettid)) & THREAD_ID_MASK; }

#define FREE_BLOCK(thread, block) mem_free_ex(thread, __LINE__, 0, block)

static u8 *payloadOf(void *block) {
    const u32 kind = static_cast<const u32 *>(block)[WORD_KIND];
    return static_cast<u8 *>(block) + (kind == KIND_QUEUE ? QUEUE_HEADER_OCTETS : HEADER_OCTETS);
}

// The sender's address record behind a request's payload; null for a queue message, and for a
// length that no block can have.
static const void *sourceAddress(const void *request) {
    const u32 *words = static_cast<const u32 *>(request);
    if (words[WORD_KIND] == KIND_QUEUE) { return nullptr; } // its header ends before the length
    const u32 length = words[WORD_LENGTH];
    if (length > INT32_MAX) { return nullptr; }
    const u32 padded = (length + 3) & ~3u;
    return static_cast<const u8 *>(request) + HEADER_OCTETS + padded;
}

static void fillHeader(void *block, u32 kind, u32 msg_id, u32 len) {
    u32 *words = static_cast<u32 *>(block);
    words[WORD_KIND] = kind;
    words[WORD_MESSAGE_ID] = msg_id;
    words[WORD_LENGTH] = len;
    words[WORD_SESSION] = 0;
}

static void copyPayload(u8 *destination, const void *payload, u32 len) {
    if (payload != nullptr && destination != nullptr) { memcpy(destination, payload, len); }
}

u32 zeldcard_send_notify(u32 msg_id, const void *payload, u32 len) {
    void *block = ipc_memory_assign(len, BLOCK_ORDINARY);
    if (block == nullptr) {
        LOG_LINE("Alloc IPC memory failed.\n");
        return IPC_NO_MEMORY;
    }
    fillHeader(block, KIND_PLAIN, msg_id, len);
    ipc_gen_seesion_id(block);
    copyPayload(payloadOf(block), payload, len);
    const u32 result = ipc_msg_notify(block, len);
    if (result != 0) {
        LOG_LINE("Send IPC notify failed! ret = %lu.\n", static_cast<unsigned long>(result));
    }
    FREE_BLOCK(threadId(), block);
    return result != 0 ? IPC_SEND_FAILED : IPC_OK;
}

u32 zeldcard_send_response(const void *req_msg, u32 msg_id, const void *payload, u32 len) {
    if (req_msg == nullptr) {
        LOG_LINE("null pointer of req_msg\n");
        return IPC_NULL_ARGUMENT;
    }
    const void *address = sourceAddress(req_msg);
    if (address == nullptr) {
        LOG_LINE("null pointer of ipc source addr\n");
        // KEPT: a request without a sender shares its code with a failed send; callers rely on it.
        return IPC_SEND_FAILED;
    }
    void *block = ipc_memory_assign(len, BLOCK_ORDINARY);
    if (block == nullptr) {
        LOG_LINE("alloc IPC memory failed\n");
        // KEPT: 3 where the other functions give 2; callers rely on it.
        return IPC_NO_RESPONSE_MEMORY;
    }
    const u32 *request = static_cast<const u32 *>(req_msg);
    const bool synchronous = request[WORD_KIND] == KIND_SYNC_REQUEST;
    fillHeader(block, synchronous ? KIND_SYNC_RESPONSE : KIND_PLAIN, msg_id, len);
    static_cast<u32 *>(block)[WORD_SESSION] = request[WORD_SESSION];
    copyPayload(payloadOf(block), payload, len);
    const u32 result = ipc_msg_send_asy(address, block, len);
    if (result != 0) {
        LOG_LINE("IPC send response failed, err = %lu\n", static_cast<unsigned long>(result));
    }
    FREE_BLOCK(threadId(), block);
    return result != 0 ? IPC_SEND_FAILED : IPC_OK;
}

u32 zeldcard_send_request_asyn(u32 dest_id, u32 msg_id, const void *payload, u32 len) {
    u8 address[IPC_ADDRESS_SIZE] = {0};
    const u32 unresolved = ipc_get_addr_by_id(dest_id, 0, address);
    if (unresolved != 0) {
        LOG_LINE("IPC get addr failed, dest_id = %lu, ret = %lu\n",
                 static_cast<unsigned long>(dest_id), static_cast<unsigned long>(unresolved));
        return IPC_UNKNOWN_DESTINATION;
    }
    void *block = ipc_memory_assign(len, BLOCK_ORDINARY);
    if (block == nullptr) {
        LOG_LINE("alloc IPC memory failed.\n");
        return IPC_NO_MEMORY;
    }
    fillHeader(block, KIND_PLAIN, msg_id, len);
    ipc_gen_seesion_id(block);
    copyPayload(payloadOf(block), payload, len);
    const u32 result = ipc_msg_send_asy(address, block, len);
    if (result != 0) {
        LOG_LINE("IPC send asyn request failed, ret = %lu\n", static_cast<unsigned long>(result));
    }
    FREE_BLOCK(threadId(), block);
    return result != 0 ? IPC_SEND_FAILED : IPC_OK;
}

u32 zeldcard_send_request_sync(u32 dest_id, u32 msg_id, const void *payload, u32 len, void *out_buf,
                               u32 *out_len, u32 timeout) {
    if (out_buf == nullptr || out_len == nullptr) {
        LOG_LINE("null pointer of out_buf/out_len\n");
        return IPC_NULL_ARGUMENT;
    }
    u8 address[IPC_ADDRESS_SIZE] = {0};
    const u32 unresolved = ipc_get_addr_by_id(dest_id, 0, address);
    if (unresolved != 0) {
        LOG_LINE("IPC get addr failed, dest_id = %lu, ret = %lu\n",
                 static_cast<unsigned long>(dest_id), static_cast<unsigned long>(unresolved));
        return IPC_UNKNOWN_DESTINATION;
    }
    const u32 room = *out_len;
    void *request = ipc_memory_assign(len, BLOCK_ORDINARY);
    if (request == nullptr) {
        LOG_LINE("alloc IPC memory failed\n");
        return IPC_NO_MEMORY;
    }
    void *response = ipc_memory_assign(room, BLOCK_ORDINARY);
    if (response == nullptr) {
        LOG_LINE("alloc IPC memory failed\n");
        FREE_BLOCK(threadId(), request);
        return IPC_NO_MEMORY;
    }
    fillHeader(request, KIND_PLAIN, msg_id, len);
    ipc_gen_seesion_id(request);
    copyPayload(payloadOf(request), payload, len);
    const u32 result = ipc_msg_send_syn(address, request, len, timeout, response, out_len);
    if (result != 0) {
        LOG_LINE("IPC send sync message failed, ret = %lu\n\n", static_cast<unsigned long>(result));
    } else {
        memcpy(out_buf, payloadOf(response), *out_len < room ? *out_len : room);
    }
    const u32 thread = threadId();
    FREE_BLOCK(thread, request);
    FREE_BLOCK(thread, response);
    return result != 0 ? IPC_SEND_FAILED : IPC_OK;
}

u32 zeldcard_send_mq(u32 mq, u32 msg_id, const void *payload, u32 len) {
    if (mq == 0) {
        LOG_LINE("null pointer of IPC mq\n");
        return IPC_NULL_ARGUMENT;
    }
    void *block = ipc_memory_assign(len, BLOCK_QUEUE);
    if (block == nullptr) {
        LOG_LINE("Alloc IPC memory failed\n");
        return IPC_NO_MEMORY;
    }
    static_cast<u32 *>(block)[WORD_MESSAGE_ID] = msg_id;
    copyPayload(static_cast<u8 *>(block) + QUEUE_HEADER_OCTETS, payload, len);
    const u32 result = ipc_mq_send(mq, block, 0, 0);
    if (result != 0) {
        LOG_LINE("IPC send mq failed, ret = %lu\n", static_cast<unsigned long>(result));
        FREE_BLOCK(threadId(), block);
        return IPC_SEND_FAILED;
    }
    // KEPT: no free here, a queued block belongs to the queue; the platform relies on it.
    return IPC_OK;
}

int zeldcard_vote_sleep(void) { return 0; }
