// The modem's tty: opened raw and for us alone, read as octets come, written without blocking.
#ifndef SMSPB_PLATFORM_MODEMD_TTY_H
#define SMSPB_PLATFORM_MODEMD_TTY_H

#include <array>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

namespace smspb::modemd {

// The path names something that will never be a modem.
struct NotATty : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Another process has it.
struct InUse : std::runtime_error {
    InUse(const std::string &path, const std::string &by)
        : std::runtime_error(path + " is in use by " + by), holder(by) {}
    std::string holder;
};

class Tty {
public:
    struct Events {
        std::function<void(std::string_view octets)> received;
        std::function<void(const std::string &why)> lost; // the tty is closed by then
    };

    // `events` are called from the event loop, never from within a call of this class.
    Tty(asio::io_context &loop, std::string path, unsigned baud, Events events);

    // Throws NotATty or std::runtime_error, both with a text that names the path and the reason.
    void open();
    void close();
    bool isOpen() const { return port_.is_open(); }
    const std::string &path() const { return path_; }
    unsigned baud() const { return baud_; }

    // Queues octets behind those that are not out yet.
    void write(std::string_view octets);
    bool isWriting() const { return !outgoing_.empty(); }
    // The last octets before the program ends, as far as they go without waiting.
    void writeNow(std::string_view octets);

private:
    // Few enough that the clock gets its turn between the reports of a modem that never stops.
    static constexpr std::size_t READ_OCTETS = 256;

    void read();
    void writeNext();
    void lose(const std::string &why);

    asio::posix::stream_descriptor port_;
    std::string path_;
    unsigned baud_;
    Events events_;
    std::array<char, READ_OCTETS> incoming_{};
    std::string outgoing_;
    unsigned opening_ = 0; // which of the openings a handler belongs to
};

} // namespace smspb::modemd

#endif
