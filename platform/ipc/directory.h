// Names in the runtime directory, and the numbers that its processes share.
#ifndef SMSPB_PLATFORM_IPC_DIRECTORY_H
#define SMSPB_PLATFORM_IPC_DIRECTORY_H

#include <string>
#include <string_view>

#include "comm/smspb_types.h"

namespace smspb::ipc {

// Where something of that name lies in the runtime directory. Throws like runtimeDirectory().
std::string runtimePath(std::string_view name);

std::string destinationName(u32 dest_id);
std::string queueName(u32 mq);

// A subscriber's socket: every name that begins with the prefix of a message id listens to it.
std::string subscriberPrefix(u32 messageId);

// A number that no process or thread has been given before in this runtime directory, until the 32
// bits are used up; never 0. Throws like runtimeDirectory().
u32 nextSharedNumber();

} // namespace smspb::ipc

#endif
