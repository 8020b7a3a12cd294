#include "platform/simmodem/line/terminal.h"

#include <asio/buffer.hpp>
#include <asio/write.hpp>

#include <fcntl.h>
#include <poll.h>
#include <spdlog/spdlog.h>
#include <stdlib.h> // NOLINT(modernize-deprecated-headers): posix_openpt is POSIX
#include <termios.h>
#include <unistd.h>

#include <stdexcept>
#include <system_error>
#include <utility>

namespace smspb::simmodem {
namespace {

namespace fs = std::filesystem;

int checked(int result, const char *what) {
    if (result < 0) { throw std::system_error(errno, std::generic_category(), what); }
    return result;
}

std::string farEndName(int fd) {
    std::array<char, 64> name{};
    const int error = ::ptsname_r(fd, name.data(), name.size());
    if (error != 0) { throw std::system_error(error, std::generic_category(), "ptsname"); }
    return name.data();
}

// Characters pass as they are: the modem echoes, not the terminal.
void makeRaw(int fd) {
    termios mode{};
    checked(::tcgetattr(fd, &mode), "tcgetattr");
    ::cfmakeraw(&mode);
    checked(::tcsetattr(fd, TCSANOW, &mode), "tcsetattr");
}

bool isTerminalPath(const fs::path &target) { return target.native().starts_with("/dev/pts/"); }

[[noreturn]] void refuseLink(const fs::path &path, const std::string &why) {
    throw std::runtime_error("cannot create the link " + path.string() + ": " + why);
}

// Only a link to a terminal or to nothing is anyone's leftover.
void checkReplaceable(const fs::path &path) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (status.type() == fs::file_type::not_found) { return; }
    if (status.type() == fs::file_type::none) { refuseLink(path, error.message()); }
    if (status.type() != fs::file_type::symlink) {
        refuseLink(path, "a file of that name exists and is no link; remove it or choose another "
                         "path with --link");
    }
    const fs::path target = fs::read_symlink(path, error);
    if (!isTerminalPath(target) && fs::exists(path, error)) {
        refuseLink(path,
                   "a link of that name leads to " + target.string() +
                       ", which is no terminal; remove it or choose another path with --link");
    }
}

} // namespace

Terminal::Terminal(asio::io_context &io, Clock &clock, Pieces pieces)
    : near_(io), far_(io), pieces_(pieces), pause_(clock) {
    near_.assign(checked(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt"));
    checked(::grantpt(near_.native_handle()), "grantpt");
    checked(::unlockpt(near_.native_handle()), "unlockpt");
    name_ = farEndName(near_.native_handle());
    far_.assign(checked(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), name_.c_str()));
    makeRaw(far_.native_handle());
    near_.non_blocking(true);
}

void Terminal::start(Receive receive) {
    receive_ = std::move(receive);
    readSome();
}

void Terminal::close() {
    std::error_code ignored;
    pause_.cancel();
    near_.close(ignored);
    far_.close(ignored);
}

// A completion may be on its way when the terminal closes: it then holds the object and does
// nothing.
void Terminal::readSome() {
    near_.async_read_some(asio::buffer(in_), [self = shared_from_this()](
                                                 const std::error_code &error, std::size_t size) {
        if (!self->near_.is_open()) { return; }
        if (error) {
            spdlog::error("the terminal {} cannot be read: {}", self->name_, error.message());
            return;
        }
        self->receive_({self->in_.data(), size});
        self->readSome();
    });
}

// poll() waits for what is still on its way through the kernel.
void Terminal::readAll() {
    const auto self = shared_from_this();
    std::array<char, 4096> read{};
    while (near_.is_open()) {
        pollfd waiting{near_.native_handle(), POLLIN, 0};
        if (::poll(&waiting, 1, 0) != 1) { return; }
        const ssize_t size = ::read(near_.native_handle(), read.data(), read.size());
        if (size <= 0) { return; }
        receive_({read.data(), static_cast<std::size_t>(size)});
    }
}

void Terminal::write(std::string_view characters) {
    queued_ += characters;
    if (sending_.empty() && !pause_.runs()) { writeSome(); }
}

// A count of unread octets would not wait for those that are still on their way.
bool Terminal::isRead() {
    pollfd unread{far_.native_handle(), POLLIN, 0};
    return sending_.empty() && queued_.empty() && ::poll(&unread, 1, 0) == 0;
}

void Terminal::writeSome() {
    const std::size_t octets = pieces_.octets != 0 ? pieces_.octets : queued_.size();
    sending_ = queued_.substr(0, octets);
    queued_.erase(0, octets);
    if (pieces_.pause.count() > 0 && isWrittenAtOnce()) {
        sending_.clear();
        return writeNext();
    }
    asio::async_write(near_, asio::buffer(sending_),
                      [self = shared_from_this()](const std::error_code &error, std::size_t) {
                          if (!self->near_.is_open()) { return; }
                          if (error) {
                              spdlog::error("the terminal {} cannot be written: {}", self->name_,
                                            error.message());
                          }
                          self->sending_.clear();
                          self->writeNext();
                      });
}

// So that a driven clock sees the pause behind a piece begin before it is driven on.
bool Terminal::isWrittenAtOnce() {
    const ssize_t size = ::write(near_.native_handle(), sending_.data(), sending_.size());
    if (size > 0) { sending_.erase(0, static_cast<std::size_t>(size)); }
    return sending_.empty();
}

void Terminal::writeNext() {
    const auto goOn = [this] {
        if (!queued_.empty()) { writeSome(); }
    };
    if (pieces_.pause.count() == 0) { return goOn(); }
    pause_.start(pieces_.pause, goOn);
}

TerminalLink::TerminalLink(fs::path path, const std::string &target)
    : path_(std::move(path)), target_(target) {
    checkReplaceable(path_);
    const fs::path fresh = path_.string() + "." + std::to_string(::getpid());
    std::error_code error;
    fs::remove(fresh, error);
    fs::create_symlink(target_, fresh, error);
    if (error) { refuseLink(path_, error.message()); }
    fs::rename(fresh, path_, error); // at no moment is there no link
    if (error) {
        std::error_code ignored;
        fs::remove(fresh, ignored);
        refuseLink(path_, error.message());
    }
}

TerminalLink::~TerminalLink() {
    std::error_code error;
    if (fs::read_symlink(path_, error) == target_ && !error) { fs::remove(path_, error); }
}

} // namespace smspb::simmodem
