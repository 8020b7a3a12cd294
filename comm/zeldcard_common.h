/*
 * IPC messages with a plain payload: notification, request, response, queue message.
 *
 * Each call takes one block of IPC memory for the outgoing message and gives it back before it
 * returns; a block that was queued belongs to the queue. A null payload sends `len` octets of
 * unspecified content. Every refusal writes one line to the diagnostic log. The functions keep no
 * state and may be called from several threads; only the synchronous request waits.
 *
 * All return a status: 0 or one of the codes below.
 */
#ifndef SMSPB_COMM_ZELDCARD_COMMON_H
#define SMSPB_COMM_ZELDCARD_COMMON_H

#include "smspb_types.h"

static const u32 IPC_OK = 0;
static const u32 IPC_NULL_ARGUMENT = 1;      /* a required pointer or handle is null */
static const u32 IPC_NO_MEMORY = 2;          /* no block for the message */
static const u32 IPC_NO_RESPONSE_MEMORY = 3; /* the same, when answering */
static const u32 IPC_SEND_FAILED = 4; /* the platform refused, or a request without a sender */
static const u32 IPC_UNKNOWN_DESTINATION = 5;

SMSPB_BEGIN_EXPORTS

/* Sends a notification; the platform delivers it by its message id. */
u32 zeldcard_send_notify(u32 msg_id, const void *payload, u32 len);

/* Answers `req_msg`, a received request block, to the sender's address that lies behind its
 * payload. A queue message has no sender and gives IPC_SEND_FAILED. */
u32 zeldcard_send_response(const void *req_msg, u32 msg_id, const void *payload, u32 len);

/* Sends a request to process `dest_id` and does not wait. */
u32 zeldcard_send_request_asyn(u32 dest_id, u32 msg_id, const void *payload, u32 len);

/* Sends a request to process `dest_id` and waits up to `timeout` milliseconds for the response.
 * `*out_len`: in, the room at `out_buf` in octets; out, the octets that the response brought, never
 * more than that room copied. On failure `out_buf` is left as it was. */
u32 zeldcard_send_request_sync(u32 dest_id, u32 msg_id, const void *payload, u32 len, void *out_buf,
                               u32 *out_len, u32 timeout);

/* Puts a message on the queue with the handle `mq`. */
u32 zeldcard_send_mq(u32 mq, u32 msg_id, const void *payload, u32 len);

/* Does nothing and returns 0. */
int zeldcard_vote_sleep(void);

SMSPB_END_EXPORTS

#endif
