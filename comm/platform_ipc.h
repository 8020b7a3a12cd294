/*
 * The platform's IPC functions. The library calls them and never defines them: the program that
 * links the library brings them, from the router's own IPC library or from platform/ipc.
 *
 * A block of IPC memory holds one message, its words in host order.
 *   ordinary  u32 kind, u32 message id, u32 payload length, u32 session id, payload at octet 16;
 *             behind the payload of a received request, at the next multiple of 4, the sender's
 *             address record
 *   queue     u32 kind (3), u32 message id, payload at octet 8
 */
#ifndef SMSPB_COMM_PLATFORM_IPC_H
#define SMSPB_COMM_PLATFORM_IPC_H

#include "smspb_types.h"

enum { IPC_ADDRESS_SIZE = 116 }; /* octets of an address record */

SMSPB_BEGIN_EXPORTS

/* A block for a payload of `size` octets; `type` 0 ordinary, 3 queue. Null when there is none. */
void *ipc_memory_assign(u32 size, u32 type);

/* Gives a block back. `thread_id` is the caller's kernel thread id, masked to its low 16 bits. */
u32 mem_free_ex(u32 thread_id, u32 line, u32 zero, void *block);

/* Fills the session id of a new message. */
u32 ipc_gen_seesion_id(void *block);

/* Resolves a process id into an address record of IPC_ADDRESS_SIZE octets. 0 on success. */
u32 ipc_get_addr_by_id(u32 dest_id, u32 zero, void *address);

/* Delivers a notification by its message id. `len` is the payload's. 0 on success. */
u32 ipc_msg_notify(void *block, u32 len);

/* Sends a message and does not wait. 0 on success. */
u32 ipc_msg_send_asy(const void *address, void *block, u32 len);

/* Sends a request and waits for its response, at most `timeout_ms`. `*response_len`: in, the
 * payload that `response` has room for; out, what came. 0 on success. */
u32 ipc_msg_send_syn(const void *address, void *request, u32 len, u32 timeout_ms, void *response,
                     u32 *response_len);

/* Queues a message. 0 on success: the block then belongs to the queue. */
u32 ipc_mq_send(u32 mq, void *block, u32 zero1, u32 zero2);

SMSPB_END_EXPORTS

#endif
