#include "platform/modemd/ipc_face.h"

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include <asio/post.hpp>
#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "comm/zeldcard_common.h"
#include "platform/modemd/at_lines.h"

namespace smspb::modemd {
namespace {

// The kind of an ordinary message whose sender wants no answer.
enum : u32 { ONE_WAY = 0 };

constexpr unsigned REQUESTS_A_TURN = 32;

int duplicate(int fd) {
    const int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) { throw std::system_error(errno, std::generic_category(), "IPC descriptor"); }
    return copy;
}

// For the log: what a line that is not known holds may be anything, a message body as well.
std::string_view reportName(std::string_view lines) {
    const std::string_view line = lines.substr(0, lines.find('\r'));
    return isReport(line, {}) ? line.substr(0, line.find(':')) : "of an unknown kind";
}

} // namespace

void notifyReport(std::string_view lines, Ledger &ledger) {
    const u32 status =
        zeldcard_send_notify(REPORT_NOTIFICATION, lines.data(), static_cast<u32>(lines.size()));
    ledger.countReport(status == IPC_OK, reportName(lines));
}

// A request in the queue, and the process behind it.
class IpcFace::Asking : public RequestQueue::Caller {
public:
    Asking(IpcFace &face, ipc::Block block) : face_(face), block_(std::move(block)) {}

    bool isWaiting() const override { return face_.isWaiting(block_); }
    void answer(const Account &account, const Answer &answer) override {
        face_.answer(block_, account, answer);
    }
    void drop(const Account &account) override {
        if (face_.ledger_.mayLog(account.asker)) {
            spdlog::info("request dropped: its asker hung up before it started");
        }
        face_.ledger_.drop(account);
    }

private:
    IpcFace &face_;
    ipc::Block block_;
};

IpcFace::IpcFace(asio::io_context &loop, std::chrono::seconds keepTransfers, Ledger &ledger)
    : loop_(loop), ledger_(ledger), server_(MODEM_MANAGER_ID),
      readable_(loop, duplicate(server_.fd())),
      transfers_(loop, ipc::runtimeDirectory(), ipc::runtimeGroup(), keepTransfers) {}

void IpcFace::listen(RequestQueue &queue, DescribeStatus describeStatus) {
    queue_ = &queue;
    describeStatus_ = std::move(describeStatus);
    waitForRequests();
}

void IpcFace::stop() {
    asio::error_code ignored;
    readable_.close(ignored);
    transfers_.stop();
}

void IpcFace::waitForRequests() {
    readable_.async_wait(asio::posix::stream_descriptor::wait_read, [this](asio::error_code error) {
        if (!error) { takeRequests(); }
    });
}

// A few at a time, so that tty and clock get their turn however many there are.
void IpcFace::takeRequests() {
    for (unsigned taken = 0; taken < REQUESTS_A_TURN && readable_.is_open(); taken++) {
        auto block = server_.receive(std::chrono::milliseconds(0));
        if (!block) {
            waitForRequests();
            return;
        }
        takeRequest(std::move(*block));
    }
    if (readable_.is_open()) {
        asio::post(loop_, [this] { takeRequests(); });
    }
}

void IpcFace::takeRequest(ipc::Block block) {
    Account account = ledger_.open(block.sender(), kindOf(block.messageId()));
    try {
        if (account.kind == Kind::STATUS) {
            answerStatus(block, account);
            return;
        }
        Request request = parseRequest(block.messageId(), block.payload());
        account.name = nameOf(request);
        if (spdlog::should_log(spdlog::level::trace)) { account.details = textOf(request); }
        queue_->add({std::move(request), std::move(account),
                     std::make_unique<Asking>(*this, std::move(block))});
    } catch (const MalformedRequest &error) {
        if (ledger_.mayLog(account.asker)) {
            spdlog::warn("request 0x{:08x} of {} refused: {}", block.messageId(),
                         describe(account.asker), error.what());
        }
        answer(block, account, {Result::MALFORMED, {}});
    }
}

void IpcFace::answerStatus(const ipc::Block &block, const Account &account) {
    if (!block.payload().empty()) {
        throw MalformedRequest(fmt::format("{} octets where the request for the status has none",
                                           block.payload().size()));
    }
    const Answer status{Result::CARRIED_OUT, describeStatus_()};
    ledger_.close(account, status);
    send(block, account, inlineResponse(status.result, status.text));
}

bool IpcFace::isWaiting(const ipc::Block &request) const {
    return request.kind() == ONE_WAY || server_.senderWaits(request);
}

void IpcFace::answer(const ipc::Block &request, const Account &account, const Answer &answer) {
    const bool isFailure = answer.result != Result::CARRIED_OUT &&
                           answer.result != Result::MALFORMED && answer.result != Result::TOO_MANY;
    if (isFailure && ledger_.mayLog(account.asker)) {
        spdlog::warn("{} failed: {}", account.name, describe(answer.result));
    }
    ledger_.close(account, respond(request, account, answer));
}

// Gives what was answered in the end.
Answer IpcFace::respond(const ipc::Block &request, const Account &account, const Answer &answer) {
    if (answer.result != Result::CARRIED_OUT || answer.text.size() <= INLINE_REPLY_MAX) {
        const bool hasText = answer.result == Result::CARRIED_OUT;
        send(request, account, inlineResponse(answer.result, hasText ? answer.text : ""));
        return answer;
    }
    if (!isWaiting(request)) { return answer; } // no file for nobody
    try {
        send(request, account, transferResponse(transfers_.write(answer.text).native()));
        return answer;
    } catch (const std::system_error &error) {
        spdlog::error("{}: cannot write the reply's transfer file: {}", account.name, error.what());
        send(request, account, inlineResponse(Result::NO_TRANSFER, {}));
        return {Result::NO_TRANSFER, {}};
    }
}

void IpcFace::send(const ipc::Block &request, const Account &account,
                   const std::vector<std::byte> &response) {
    if (request.kind() == ONE_WAY) { return; }
    const u32 status = zeldcard_send_response(request.get(), request.messageId(), response.data(),
                                              static_cast<u32>(response.size()));
    if (status == IPC_OK || !ledger_.mayLog(account.asker)) { return; }
    if (server_.senderWaits(request)) {
        spdlog::warn("{}: answer not delivered: status {}", account.name, status);
    } else {
        spdlog::info("{}: its asker hung up meanwhile", account.name);
    }
}

} // namespace smspb::modemd
