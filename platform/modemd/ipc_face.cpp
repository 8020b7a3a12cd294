#include "platform/modemd/ipc_face.h"

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include <spdlog/spdlog.h>

#include "comm/zeldcard_common.h"
#include "platform/modemd/at_lines.h"

namespace smspb::modemd {
namespace {

// The kinds of an ordinary message. One way: its sender wants no answer.
enum : u32 { ONE_WAY = 0, REQUEST = 1 };

int duplicate(int fd) {
    const int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) { throw std::system_error(errno, std::generic_category(), "IPC descriptor"); }
    return copy;
}

std::string nameOf(const Request &request) {
    if (const auto *command = std::get_if<CommandRequest>(&request)) {
        return std::string(commandName(command->text));
    }
    return std::string(commandName(std::get<MessageRequest>(request).command));
}

const char *describe(Result result) {
    switch (result) {
    case Result::CARRIED_OUT: return "carried out";
    case Result::MALFORMED: return "malformed request";
    case Result::NO_MODEM: return "no modem";
    case Result::NO_ANSWER: return "no final result in time";
    case Result::NO_PROMPT: return "no prompt, or one that only send and store requests can answer";
    case Result::TOO_LONG: return "reply too long";
    case Result::TOO_MANY: return "too many requests wait";
    case Result::NO_TRANSFER: return "no transfer file";
    case Result::SHUTTING_DOWN: return "shutting down";
    }
    return "unknown result";
}

// For the log: what a line that is not known holds may be anything, a message body as well.
std::string_view reportName(std::string_view lines) {
    const std::string_view line = lines.substr(0, lines.find('\r'));
    return isReport(line, {}) ? line.substr(0, line.find(':')) : "of an unknown kind";
}

} // namespace

void notifyReport(std::string_view lines) {
    const u32 status =
        zeldcard_send_notify(REPORT_NOTIFICATION, lines.data(), static_cast<u32>(lines.size()));
    const std::string_view name = reportName(lines);
    if (status == IPC_OK) {
        spdlog::info("report told: {}", name);
    } else {
        spdlog::error("report {} not told to everybody: status {}", name, status);
    }
}

IpcFace::IpcFace(asio::io_context &loop, std::chrono::seconds keepTransfers)
    : server_(MODEM_MANAGER_ID), readable_(loop, duplicate(server_.fd())),
      transfers_(loop, ipc::runtimeDirectory(), ipc::runtimeGroup(), keepTransfers) {}

void IpcFace::listen(RequestQueue &queue) {
    queue_ = &queue;
    waitForRequest();
}

void IpcFace::stop() {
    asio::error_code ignored;
    readable_.close(ignored);
    transfers_.stop();
}

void IpcFace::waitForRequest() {
    readable_.async_wait(asio::posix::stream_descriptor::wait_read, [this](asio::error_code error) {
        if (error || !readable_.is_open()) { return; }
        while (auto block = server_.receive(std::chrono::milliseconds(0))) {
            takeRequest(std::move(*block));
        }
        waitForRequest();
    });
}

void IpcFace::takeRequest(ipc::Block received) {
    const auto block = std::make_shared<ipc::Block>(std::move(received));
    try {
        Request request = parseRequest(block->messageId(), block->payload());
        const std::string name = nameOf(request);
        queue_->add({std::move(request), [this, block] { return isWanted(*block); },
                     [this, block, name](const Answer &given) { answer(*block, name, given); }});
    } catch (const MalformedRequest &error) {
        spdlog::warn("request 0x{:08x} refused: {}", block->messageId(), error.what());
        answer(*block, "malformed request", {Result::MALFORMED, {}});
    }
}

bool IpcFace::isWanted(const ipc::Block &request) const {
    return request.kind() == ONE_WAY || server_.senderWaits(request);
}

void IpcFace::answer(const ipc::Block &request, const std::string &name, const Answer &answer) {
    if (answer.result != Result::CARRIED_OUT && answer.result != Result::MALFORMED) {
        spdlog::warn("{} failed: {}", name, describe(answer.result));
    }
    if (!server_.senderWaits(request)) {
        if (request.kind() == REQUEST) { spdlog::info("{}: its asker hung up meanwhile", name); }
        return;
    }
    const std::vector<std::byte> response = responseTo(answer, name);
    const u32 status = zeldcard_send_response(request.get(), request.messageId(), response.data(),
                                              static_cast<u32>(response.size()));
    if (status != IPC_OK) { spdlog::warn("{}: answer not delivered: status {}", name, status); }
}

std::vector<std::byte> IpcFace::responseTo(Answer answer, const std::string &name) {
    if (answer.result != Result::CARRIED_OUT) { return inlineResponse(answer.result, {}); }
    if (answer.text.size() <= INLINE_REPLY_MAX) {
        return inlineResponse(answer.result, answer.text);
    }
    try {
        return transferResponse(transfers_.write(answer.text).native());
    } catch (const std::system_error &error) {
        spdlog::error("{}: cannot write the reply's transfer file: {}", name, error.what());
        return inlineResponse(Result::NO_TRANSFER, {});
    }
}

} // namespace smspb::modemd
