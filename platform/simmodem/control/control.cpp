#include "platform/simmodem/control/control.h"

#include <asio/buffer.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>
#include <spdlog/spdlog.h>

#include <sys/stat.h>

#include <memory>
#include <stdexcept>
#include <utility>

namespace smspb::simmodem {
namespace {

using Protocol = asio::local::stream_protocol;
namespace fs = std::filesystem;

constexpr std::size_t LINE_OCTETS_MAX = 65536;

constexpr std::size_t ANSWER_OCTETS_MAX = 16UL * 1024 * 1024;
constexpr std::chrono::seconds ANSWER_TIME{30};

constexpr std::size_t CLIENTS_MAX = 16;
constexpr std::chrono::milliseconds ACCEPT_AGAIN{100};

std::string errorLine(const std::string &text) { return R"({"error":")" + text + "\"}\n"; }

// One client. Lives as long as an operation of its own is under way.
class Client : public std::enable_shared_from_this<Client> {
public:
    Client(Protocol::socket socket, const Control::Answer &answer, std::size_t &count)
        : socket_(std::move(socket)), answer_(answer), count_(count) {
        count_++;
    }
    ~Client() { count_--; }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    void readLine() {
        asio::async_read_until(
            socket_, asio::dynamic_buffer(received_, LINE_OCTETS_MAX), '\n',
            [self = shared_from_this()](asio::error_code error, std::size_t size) {
                if (!error) { self->takeLine(size); }
                if (error == asio::error::not_found) { self->refuseLine(); }
            });
    }

private:
    void takeLine(std::size_t size) {
        sending_ = answer_(std::string_view(received_).substr(0, size - 1)) + "\n";
        received_.erase(0, size);
        asio::async_write(socket_, asio::buffer(sending_),
                          [self = shared_from_this()](asio::error_code error, std::size_t) {
                              if (!error) { self->readLine(); }
                          });
    }

    // What follows cannot be told from the rest of the line, so this is the end.
    void refuseLine() {
        sending_ = errorLine("a line is " + std::to_string(LINE_OCTETS_MAX) + " octets at most");
        asio::async_write(socket_, asio::buffer(sending_),
                          [self = shared_from_this()](asio::error_code, std::size_t) {});
    }

    Protocol::socket socket_;
    const Control::Answer &answer_;
    std::size_t &count_;
    std::string received_, sending_;
};

void removeStale(const fs::path &path) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (!fs::exists(status)) { return; }
    if (!fs::is_socket(status)) {
        throw std::runtime_error(path.string() +
                                 " is there already and no socket: choose another --ctl");
    }
    asio::io_context io;
    Protocol::socket probe(io);
    asio::error_code refused;
    probe.connect(Protocol::endpoint(path.string()), refused);
    if (!refused) {
        throw std::runtime_error(path.string() + " is served by another simulated modem");
    }
    fs::remove(path);
}

Protocol::endpoint endpointAt(const fs::path &path) {
    try {
        return Protocol::endpoint(path.string());
    } catch (const std::system_error &) {
        throw std::runtime_error(path.string() +
                                 " is too long for a socket: choose a shorter --ctl");
    }
}

std::string unanswered(const asio::error_code &error, const std::string &begun) {
    if (error == asio::error::timed_out) {
        return "the simulated modem did not answer within " + std::to_string(ANSWER_TIME.count()) +
               " seconds";
    }
    if (error == asio::error::not_found) { return "the simulated modem's answer does not end"; }
    return std::string("the simulated modem went away ") +
           (begun.empty() ? "without an answer" : "in the middle of its answer") + ": " +
           error.message();
}

} // namespace

Control::Control(asio::io_context &io, fs::path path, Answer answer)
    : path_(std::move(path)), answer_(std::move(answer)), acceptor_(io), retry_(io) {
    const Protocol::endpoint endpoint = endpointAt(path_);
    removeStale(path_);
    acceptor_.open();
    const mode_t before = ::umask(0177);
    asio::error_code error;
    acceptor_.bind(endpoint, error);
    ::umask(before);
    if (error) { throw std::runtime_error(path_.string() + ": " + error.message()); }
    acceptor_.listen();
    acceptNext();
}

Control::~Control() {
    std::error_code ignored;
    fs::remove(path_, ignored);
}

void Control::acceptNext() {
    acceptor_.async_accept([this](asio::error_code error, Protocol::socket socket) {
        if (error == asio::error::operation_aborted) { return; }
        if (!error) {
            welcome(std::move(socket));
            return acceptNext();
        }
        // Out of descriptors, most likely: trying at once would only keep the modem from its work.
        spdlog::debug("control socket: {}", error.message());
        retry_.expires_after(ACCEPT_AGAIN);
        retry_.async_wait([this](asio::error_code stopped) {
            if (!stopped) { acceptNext(); }
        });
    });
}

void Control::welcome(Protocol::socket socket) {
    if (clients_ < CLIENTS_MAX) {
        std::make_shared<Client>(std::move(socket), answer_, clients_)->readLine();
        return;
    }
    const std::string refusal =
        errorLine("there are " + std::to_string(CLIENTS_MAX) + " clients already");
    asio::error_code ignored;
    socket.non_blocking(true, ignored);
    socket.write_some(asio::buffer(refusal), ignored);
}

fs::path controlPathOf(const fs::path &link) { return link.string() + ".ctl"; }

std::string askControl(const fs::path &path, const std::string &line) {
    if (line.size() >= LINE_OCTETS_MAX) {
        throw std::runtime_error(
            "the event takes " + std::to_string(line.size()) +
            " octets, which is too much: " + std::to_string(LINE_OCTETS_MAX - 1) + " at most");
    }
    asio::io_context io;
    Protocol::socket socket(io);
    asio::error_code error;
    socket.connect(endpointAt(path), error);
    if (error) {
        throw std::runtime_error("no simulated modem listens at " + path.string() + ": " +
                                 error.message());
    }
    const std::string sending = line + "\n";
    std::string answer;
    error = asio::error::timed_out;
    // A refused line is answered before it has been read: what becomes of the writing says nothing.
    asio::async_write(socket, asio::buffer(sending), [](asio::error_code, std::size_t) {});
    asio::async_read_until(socket, asio::dynamic_buffer(answer, ANSWER_OCTETS_MAX), '\n',
                           [&](asio::error_code done, std::size_t) {
                               error = done;
                               io.stop();
                           });
    io.run_for(ANSWER_TIME);
    if (error) { throw std::runtime_error(unanswered(error, answer)); }
    answer.resize(answer.find('\n'));
    return answer;
}

} // namespace smspb::simmodem
