#include "echo.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace bench {
namespace {

constexpr std::string_view COMMAND = "AT\r";
constexpr std::string_view REPLY = "\r\nOK\r\n";
static_assert(REPLY.size() == TerminalEcho::ANSWER_OCTETS);

int checked(int result, const char *what) {
    if (result < 0) { throw std::runtime_error(std::string(what) + ": " + std::strerror(errno)); }
    return result;
}

const sockaddr *generic(const sockaddr_un &name) {
    return reinterpret_cast<const sockaddr *>(&name);
}

[[noreturn]] void answerSockets(int listener) {
    std::array<char, 2048> packet{};
    for (;;) {
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) { _exit(1); }
        if (recv(connection, packet.data(), packet.size(), 0) > 0) {
            send(connection, packet.data(), SocketEcho::ANSWER_OCTETS, MSG_NOSIGNAL);
        }
        close(connection);
    }
}

[[noreturn]] void answerTerminal(int modem) {
    std::array<char, 256> octets{};
    for (;;) {
        const ssize_t count = read(modem, octets.data(), octets.size());
        if (count <= 0) { _exit(1); }
        if (octets[static_cast<std::size_t>(count) - 1] != '\r') { continue; }
        if (write(modem, REPLY.data(), REPLY.size()) < 0) { _exit(1); }
    }
}

} // namespace

bool Forked::isChild() {
    pid_ = checked(fork(), "fork");
    if (pid_ == 0) { prctl(PR_SET_PDEATHSIG, SIGKILL); }
    return pid_ == 0;
}

Forked::~Forked() {
    if (pid_ <= 0) { return; }
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

SocketEcho::SocketEcho(const std::filesystem::path &path) {
    name_.sun_family = AF_UNIX;
    path.native().copy(name_.sun_path, sizeof(name_.sun_path) - 1);
    const int listener = checked(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket");
    checked(bind(listener, generic(name_), sizeof(name_)), path.c_str());
    checked(listen(listener, SOMAXCONN), "listen");
    if (process_.isChild()) { answerSockets(listener); }
    close(listener);
}

std::size_t SocketEcho::roundTrip() const {
    std::array<char, 2048> packet{};
    const int own = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ssize_t got = 0;
    if (connect(own, generic(name_), sizeof(name_)) == 0 &&
        send(own, packet.data(), REQUEST_OCTETS, MSG_NOSIGNAL) > 0) {
        got = recv(own, packet.data(), packet.size(), 0);
    }
    close(own);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

TerminalEcho::TerminalEcho() {
    const int modem = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    checked(grantpt(modem), "grantpt");
    checked(unlockpt(modem), "unlockpt");
    std::array<char, 64> name{};
    if (ptsname_r(modem, name.data(), name.size()) != 0) { throw std::runtime_error("ptsname"); }
    terminal_ = checked(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC), name.data());
    termios mode{};
    checked(tcgetattr(terminal_, &mode), "tcgetattr");
    cfmakeraw(&mode);
    checked(tcsetattr(terminal_, TCSANOW, &mode), "tcsetattr");
    if (process_.isChild()) { answerTerminal(modem); }
    close(modem);
}

TerminalEcho::~TerminalEcho() { close(terminal_); }

std::size_t TerminalEcho::roundTrip() const {
    if (write(terminal_, COMMAND.data(), COMMAND.size()) < 0) { return 0; }
    std::array<char, 256> octets{};
    std::size_t total = 0;
    while (total < REPLY.size()) {
        const ssize_t count = read(terminal_, octets.data() + total, octets.size() - total);
        if (count <= 0) { return 0; }
        total += static_cast<std::size_t>(count);
    }
    return total;
}

} // namespace bench
