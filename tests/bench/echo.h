// What one command costs at least: the bare round trips on its way, each to a forked process that
// answers at once.
#ifndef SMSPB_TESTS_BENCH_ECHO_H
#define SMSPB_TESTS_BENCH_ECHO_H

#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>
#include <filesystem>

namespace bench {

// Ends the forked process with its object.
class Forked {
public:
    // True in the new process, which ends with this one.
    bool isChild();
    ~Forked();

private:
    pid_t pid_ = 0;
};

// A sequenced-packet socket of the file system. One round trip is connection, request, answer, end
// of connection: the platform's way of asking.
class SocketEcho {
public:
    explicit SocketEcho(const std::filesystem::path &path);
    // The octets of the answer, 0 when something failed.
    std::size_t roundTrip() const;

    static constexpr std::size_t REQUEST_OCTETS = 16 + 100; // header, record of a short command
    static constexpr std::size_t ANSWER_OCTETS = 16 + 18;   // header, record of "\r\nOK\r\n"

private:
    sockaddr_un name_{};
    Forked process_;
};

// A pseudo-terminal in raw mode, the process at its modem end.
class TerminalEcho {
public:
    TerminalEcho();
    ~TerminalEcho();
    TerminalEcho(const TerminalEcho &) = delete;
    TerminalEcho &operator=(const TerminalEcho &) = delete;
    // The octets of the answer, 0 when something failed.
    std::size_t roundTrip() const;

    static constexpr std::size_t ANSWER_OCTETS = 6; // "\r\nOK\r\n"

private:
    int terminal_ = -1;
    Forked process_;
};

} // namespace bench

#endif
