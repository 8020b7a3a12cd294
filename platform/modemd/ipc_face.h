// The side that the other processes see: takes requests as IPC destination 1, answers them, and
// tells what the modem reports.
#ifndef SMSPB_PLATFORM_MODEMD_IPC_FACE_H
#define SMSPB_PLATFORM_MODEMD_IPC_FACE_H

#include <chrono>
#include <memory>
#include <string_view>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include "platform/ipc/ipc_server.h"
#include "platform/modemd/request_queue.h"
#include "platform/modemd/transfer_files.h"

namespace smspb::modemd {

// Notifies the subscribers of an unsolicited line or lines, each ended by "\r\n".
void notifyReport(std::string_view lines);

class IpcFace {
public:
    // Throws when another process serves the destination. Requests wait until listen().
    IpcFace(asio::io_context &loop, std::chrono::seconds keepTransfers);

    // Hands requests to the queue from now on. A malformed one is answered without it.
    void listen(RequestQueue &queue);
    void stop();

private:
    void waitForRequest();
    void takeRequest(ipc::Block block);
    bool isWanted(const ipc::Block &request) const;
    void answer(const ipc::Block &request, const std::string &name, const Answer &answer);
    std::vector<std::byte> responseTo(Answer answer, const std::string &name);

    ipc::Server server_;
    asio::posix::stream_descriptor readable_; // a duplicate: the server owns its own
    TransferFiles transfers_;
    RequestQueue *queue_ = nullptr;
};

} // namespace smspb::modemd

#endif
