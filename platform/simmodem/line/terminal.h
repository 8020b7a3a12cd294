// The pseudo-terminal and the symbolic link under which its other end is found.
#pragma once

#include "platform/simmodem/modem/clock.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace smspb::simmodem {

// How much is written at once, and the pause behind it; no octets for all there is.
struct Pieces {
    std::size_t octets = 0;
    std::chrono::milliseconds pause{0};
};

// A pseudo-terminal in raw mode. Keeps its far end open itself, so that a daemon may close and
// reopen it and finds what was not read yet.
class Terminal : public std::enable_shared_from_this<Terminal> {
public:
    using Receive = std::function<void(std::string_view)>;

    // Throws std::system_error when there is none to be had.
    Terminal(asio::io_context &io, Clock &clock, Pieces pieces);

    const std::string &name() const { return name_; } // of the far end, "/dev/pts/..."

    // Gives `receive` what comes in, until close().
    void start(Receive receive);

    // Gives `receive` what has been written to the far end by now.
    void readAll();

    // Queues characters; they go out in order as the far end takes them.
    void write(std::string_view characters);

    // True when all has been written, and read on the far end.
    bool isRead();

    // Hangs up: the far end reads the end of file. What is queued is lost.
    void close();

private:
    void readSome();
    void writeSome();
    bool isWrittenAtOnce();
    void writeNext();

    asio::posix::stream_descriptor near_;
    asio::posix::stream_descriptor far_;
    std::string name_;
    Receive receive_;
    Pieces pieces_;
    Timer pause_;
    std::array<char, 4096> in_{};
    std::string queued_, sending_;
};

// A symbolic link that lives as long as the object.
class TerminalLink {
public:
    // Replaces what an earlier run left: a link to a terminal, or to nothing. Throws
    // std::runtime_error when something else has that name, or the link cannot be made.
    TerminalLink(std::filesystem::path path, const std::string &target);
    ~TerminalLink(); // leaves a link that points elsewhere by now
    TerminalLink(const TerminalLink &) = delete;
    TerminalLink &operator=(const TerminalLink &) = delete;

private:
    std::filesystem::path path_, target_;
};

} // namespace smspb::simmodem
