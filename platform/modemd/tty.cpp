// A tty on the event loop: termios for the line, one read and at most one write outstanding.
#include "platform/modemd/tty.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <asio/buffer.hpp>
#include <fmt/format.h>

#include "platform/modemd/baud.h"
#include "platform/modemd/holder.h"

namespace smspb::modemd {
namespace {

// The slave sides of pseudo-terminals, as Linux numbers its devices.
constexpr unsigned PTY_MAJOR_FIRST = 136;
constexpr unsigned PTY_MAJOR_LAST = 143;

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (fd_ >= 0) { ::close(fd_); }
    }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

[[noreturn]] void fail(const char *what, const std::string &path) {
    throw std::runtime_error(fmt::format("cannot {} {}: {}", what, path, std::strerror(errno)));
}

bool isPty(int fd) {
    struct stat status {};
    const bool known = ::fstat(fd, &status) == 0;
    const unsigned number = major(status.st_rdev);
    return known && number >= PTY_MAJOR_FIRST && number <= PTY_MAJOR_LAST;
}

// The lock keeps out those who ask for it, TIOCEXCL all others. It would outlive a killed manager
// on a pseudo-terminal, whose other side keeps it alive, so there the lock must do.
void claim(int fd, const std::string &path) {
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) { fail("lock", path); }
        throw InUse(path, holderOf(path));
    }
    if (!isPty(fd) && ::ioctl(fd, TIOCEXCL) != 0) { fail("claim", path); }
}

// Octets pass as they are; no modem control lines, since a USB modem has none worth waiting for.
void configure(int fd, unsigned baud, const std::string &path) {
    termios line{};
    if (::tcgetattr(fd, &line) != 0) { fail("read the line settings of", path); }
    ::cfmakeraw(&line);
    line.c_cflag |= CLOCAL | CREAD;
    line.c_cflag &= ~static_cast<tcflag_t>(HUPCL | CSTOPB | CRTSCTS);
    line.c_cc[VMIN] = 1;
    line.c_cc[VTIME] = 0;
    if (::cfsetspeed(&line, speedOf(baud)) != 0 || ::tcsetattr(fd, TCSANOW, &line) != 0) {
        fail("set the line of", path);
    }
}

} // namespace

Tty::Tty(asio::io_context &loop, std::string path, unsigned baud, Events events)
    : port_(loop), path_(std::move(path)), baud_(baud), events_(std::move(events)) {}

void Tty::open() {
    Descriptor fd(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0) {
        if (errno == EISDIR) { throw NotATty(path_ + " is a directory, not a tty"); }
        if (errno == EBUSY) { throw InUse(path_, holderOf(path_)); }
        fail("open", path_);
    }
    if (::isatty(fd.get()) == 0) {
        throw NotATty(path_ + " is not a tty; name the modem's AT port, such as /dev/ttyUSB2");
    }
    claim(fd.get(), path_);
    configure(fd.get(), baud_, path_);
    port_.assign(fd.release());
    opening_++;
    read();
}

void Tty::close() {
    if (!isOpen()) { return; }
    // What the modem does not take would make close() wait for it.
    if (isWriting()) { ::tcflush(port_.native_handle(), TCOFLUSH); }
    outgoing_.clear();
    ::ioctl(port_.native_handle(), TIOCNXCL);
    asio::error_code ignored;
    port_.close(ignored);
}

void Tty::write(std::string_view octets) {
    const bool isIdle = outgoing_.empty();
    outgoing_ += octets;
    if (isIdle) { writeNext(); }
}

void Tty::writeNow(std::string_view octets) {
    if (!isOpen()) { return; }
    asio::error_code ignored;
    port_.write_some(asio::buffer(octets.data(), octets.size()), ignored);
}

void Tty::read() {
    port_.async_read_some(asio::buffer(incoming_),
                          [this, opening = opening_](asio::error_code error, std::size_t count) {
                              if (opening != opening_ || !isOpen()) { return; }
                              if (error) {
                                  lose(error.message());
                                  return;
                              }
                              events_.received({incoming_.data(), count});
                              if (opening == opening_ && isOpen()) { read(); }
                          });
}

// `outgoing_` may grow and move meanwhile, so the octets under way are the handler's.
void Tty::writeNext() {
    auto octets = std::make_shared<const std::string>(outgoing_);
    port_.async_write_some(asio::buffer(*octets), [this, octets, opening = opening_](
                                                      asio::error_code error, std::size_t count) {
        if (opening != opening_ || !isOpen()) { return; }
        if (error) {
            lose(error.message());
            return;
        }
        outgoing_.erase(0, count);
        if (!outgoing_.empty()) { writeNext(); }
    });
}

void Tty::lose(const std::string &why) {
    close();
    events_.lost(why);
}

} // namespace smspb::modemd
