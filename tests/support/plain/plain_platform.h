// The platform's functions without a script: blocks of the heap's own, exactly as long as asked
// for, and replies that belong to the calling thread. No lock, so that a race in the library stays
// one.
#ifndef SMSPB_TESTS_PLAIN_PLATFORM_H
#define SMSPB_TESTS_PLAIN_PLATFORM_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/platform_ipc.h"

namespace support::plain {

// What a synchronous request brings.
struct Response {
    u32 result = 0;              // of ipc_msg_send_syn
    std::vector<u8> payload{};   // stored in the response block, cut to its size
    u32 length = 0;              // what is said to have come
    bool asQueueMessage = false; // the response's first word is 3
};
using Responder = std::function<Response(const void *request, u32 length)>;

// Answers this thread's requests from now on; without one they meet an empty response.
void answerThisThread(Responder responder);

// A response record that carries the text, cut to what a record holds.
Response carrying(std::string_view text);

// Answers this thread's requests with the texts in turn, the last one again and again.
void answerWithTexts(std::vector<std::string> texts);

// Blocks that this thread took less those that it gave back.
long liveIpcBlocks();

} // namespace support::plain

#endif
