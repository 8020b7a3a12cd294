// The control socket: a Unix stream socket on which a line of JSON asks and a line of JSON answers.
// Sixteen clients at a time, any number of lines each.
#pragma once

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

class Control {
public:
    using Answer = std::function<std::string(std::string_view line)>;

    // Listens at `path`, mode 0600. Replaces a socket that nobody serves; throws std::runtime_error
    // when something else is there, or somebody serves it.
    Control(asio::io_context &io, std::filesystem::path path, Answer answer);
    ~Control(); // takes the socket away
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

private:
    void acceptNext();
    void welcome(asio::local::stream_protocol::socket socket);

    std::filesystem::path path_;
    Answer answer_;
    asio::local::stream_protocol::acceptor acceptor_;
    asio::steady_timer retry_;
    std::size_t clients_ = 0;
};

// Where the control socket of a modem is, unless its user chose otherwise.
std::filesystem::path controlPathOf(const std::filesystem::path &link);

// Sends one line to the control socket at `path` and returns the answer. Throws std::runtime_error
// when nobody is there, or nothing comes back.
std::string askControl(const std::filesystem::path &path, const std::string &line);

} // namespace smspb::simmodem
