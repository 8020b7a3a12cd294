// The side that the other processes see: takes requests as IPC destination 1, answers them, and
// tells what the modem reports. A request for the manager's status is answered at once, whatever
// waits and runs.
#ifndef SMSPB_PLATFORM_MODEMD_IPC_FACE_H
#define SMSPB_PLATFORM_MODEMD_IPC_FACE_H

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include "platform/ipc/ipc_server.h"
#include "platform/modemd/account.h"
#include "platform/modemd/request_queue.h"
#include "platform/modemd/transfer_files.h"

namespace smspb::modemd {

// Notifies the subscribers of an unsolicited line or lines, each ended by "\r\n".
void notifyReport(std::string_view lines, Ledger &ledger);

class IpcFace {
public:
    using DescribeStatus = std::function<std::string()>;

    // Throws when another process serves the destination. Requests wait until listen().
    IpcFace(asio::io_context &loop, std::chrono::seconds keepTransfers, Ledger &ledger);

    // Hands requests to the queue from now on. A malformed one is answered without it.
    void listen(RequestQueue &queue, DescribeStatus describeStatus);
    void stop();

private:
    class Asking;

    void waitForRequests();
    void takeRequests();
    void takeRequest(ipc::Block block);
    void answerStatus(const ipc::Block &block, const Account &account);
    bool isWaiting(const ipc::Block &request) const;
    void answer(const ipc::Block &request, const Account &account, const Answer &answer);
    Answer respond(const ipc::Block &request, const Account &account, const Answer &answer);
    void send(const ipc::Block &request, const Account &account,
              const std::vector<std::byte> &response);

    asio::io_context &loop_;
    Ledger &ledger_;
    ipc::Server server_;
    asio::posix::stream_descriptor readable_; // a duplicate: the server owns its own
    TransferFiles transfers_;
    RequestQueue *queue_ = nullptr;
    DescribeStatus describeStatus_;
};

} // namespace smspb::modemd

#endif
