// The simulated modem as a process, spoken to over its terminal and its control socket. Needs
// SIMMODEM_PROGRAM.
#ifndef SMSPB_TESTS_SUPPORT_SIMMODEM_H
#define SMSPB_TESTS_SUPPORT_SIMMODEM_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace simulated {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto SOON = 5000ms; // for what must come; ends a test that would hang

class Directory {
public:
    Directory() {
        std::string name = (fs::temp_directory_path() / "simmodem-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr) { path_ = name; }
    }
    ~Directory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    fs::path operator/(const char *name) const { return path_ / name; }

private:
    fs::path path_;
};

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    int get() const { return fd_; }
    void reset(int fd = -1) {
        if (fd_ >= 0) { ::close(fd_); }
        fd_ = fd;
    }

private:
    int fd_;
};

// Reads what is there within the time; nothing at the end of file and when nothing comes.
inline std::string readSome(int fd, steady_clock::time_point until) {
    const auto left = std::chrono::ceil<milliseconds>(until - steady_clock::now());
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, std::max(0, static_cast<int>(left.count()))) != 1) { return {}; }
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(fd, buffer.data(), buffer.size());
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

struct Outcome {
    int status = -1; // the exit status, -1 for a process that a signal ended
    std::string output;
};

class Process {
public:
    Process(const std::vector<std::string> &options, const char *zone = nullptr) {
        std::array<int, 2> out{};
        if (::pipe2(out.data(), O_CLOEXEC) != 0) { return; }
        std::vector<std::string> words{SIMMODEM_PROGRAM};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char *> arguments;
        for (std::string &word : words) { arguments.push_back(word.data()); }
        arguments.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(out[1], STDERR_FILENO);
            if (zone != nullptr) { ::setenv("TZ", zone, 1); }
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(out[1]);
        output_.reset(out[0]);
    }
    ~Process() {
        if (runs()) { end(SIGTERM); }
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const { return pid_; }
    bool runs() const { return pid_ > 0; } // not ended by end() yet

    std::string readLine() {
        const auto until = steady_clock::now() + SOON;
        std::string line;
        while (!line.ends_with('\n')) {
            const std::string more = readSome(output_.get(), until);
            if (more.empty()) { break; }
            line += more;
        }
        return line;
    }

    // Sends the signal, if any, and waits for the end.
    Outcome end(int signal = 0) {
        if (signal != 0) { ::kill(pid_, signal); }
        Outcome outcome;
        const auto until = steady_clock::now() + SOON;
        for (std::string more = "-"; !more.empty();) {
            more = readSome(output_.get(), until);
            outcome.output += more;
        }
        int status = 0;
        if (steady_clock::now() >= until) { ::kill(pid_, SIGKILL); }
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        if (WIFEXITED(status)) { outcome.status = WEXITSTATUS(status); }
        return outcome;
    }

private:
    pid_t pid_ = -1;
    Descriptor output_;
};

inline bool isFinal(std::string_view text) {
    static constexpr std::array<std::string_view, 4> WORDS = {"\r\nOK\r\n", "\r\nERROR\r\n",
                                                              "\r\nNO CARRIER\r\n", "\r\n> "};
    for (const std::string_view word : WORDS) {
        if (text.ends_with(word)) { return true; }
    }
    const std::size_t error = std::max(text.rfind("\r\n+CMS ERROR: ") + 1, //
                                       text.rfind("\r\n+CME ERROR: ") + 1);
    return error != 0 && text.find('\n', error + 1) == text.size() - 1;
}

class Modem {
public:
    explicit Modem(std::vector<std::string> options = {}, const char *zone = nullptr)
        : process_(withLink(std::move(options)), zone) {
        EXPECT_EQ(process_.readLine(), "ready: " + link().string() + "\n");
        open();
    }
    ~Modem() {
        if (!process_.runs()) { return; }
        const Outcome outcome = process_.end(SIGTERM);
        EXPECT_EQ(outcome.status, 0) << "the modem died";
        EXPECT_EQ(outcome.output, "");
    }
    Modem(const Modem &) = delete;
    Modem &operator=(const Modem &) = delete;

    fs::path link() const { return directory_ / "modem"; }
    Process &process() { return process_; }

    // To the control socket; what is printed.
    std::string control(const std::vector<std::string> &event) {
        std::vector<std::string> words{"ctl", "--link", link().string()};
        words.insert(words.end(), event.begin(), event.end());
        return Process(words).end().output;
    }

    // Through the control socket, as its users do.
    void letHappen(const std::vector<std::string> &event) {
        std::vector<std::string> words{"ctl", "--link", link().string()};
        words.insert(words.end(), event.begin(), event.end());
        Process control(words);
        const Outcome outcome = control.end();
        EXPECT_EQ(outcome.status, 0) << outcome.output;
    }

    void open() { terminal_.reset(::open(link().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)); }
    void close() { terminal_.reset(); }
    int fd() const { return terminal_.get(); }

    void write(std::string_view text) {
        while (!text.empty()) {
            const ssize_t count = ::write(fd(), text.data(), text.size());
            ASSERT_GT(count, 0) << std::generic_category().message(errno);
            text.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    // Reads until `enough` holds of everything read; what came until then when it never does.
    template <typename Enough> std::string readUntil(Enough enough) {
        const auto until = steady_clock::now() + SOON;
        std::string text;
        while (!enough(text)) {
            const std::string more = readSome(fd(), until);
            if (more.empty()) { break; }
            text += more;
        }
        return text;
    }
    std::string readTo(const std::string &end) {
        return readUntil([&](const std::string &text) { return text.ends_with(end); });
    }
    std::string readReply() { return readUntil(isFinal); }

    // Sends a command line, or data behind a prompt, and gives the reply.
    std::string ask(const std::string &text) {
        write(text + (text.ends_with('\x1A') || text.ends_with('\x1B') ? "" : "\r"));
        return readReply();
    }

    // Sends a message of 18 octets.
    std::string send(const std::string &pdu) {
        const std::string prompt = ask("AT+CMGS=18");
        return prompt == "\r\n> " ? ask(pdu) : prompt;
    }

private:
    std::vector<std::string> withLink(std::vector<std::string> options) const {
        options.insert(options.begin(), {"--link", link().string()});
        return options;
    }

    Directory directory_;
    Process process_;
    Descriptor terminal_;
};

// A modem that does not echo.
class Quiet : public Modem {
public:
    explicit Quiet(std::vector<std::string> options = {}, const char *zone = nullptr)
        : Modem(std::move(options), zone) {
        ask("ATE0");
    }
};

// A program that speaks to the control socket by itself.
class RawClient {
public:
    explicit RawClient(const fs::path &path) : socket_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.native().copy(address.sun_path, sizeof address.sun_path - 1);
        const timeval limit{5, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        connected_ =
            ::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(socket_); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    [[nodiscard]] bool connected() const { return connected_; }

    bool send(const std::string &octets) const {
        return ::send(socket_, octets.data(), octets.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(octets.size());
    }

    // Up to and with the next line end; what there is when the other side hangs up.
    [[nodiscard]] std::string readLine() const {
        std::string line;
        char c = 0;
        while (!line.ends_with('\n') && ::recv(socket_, &c, 1, 0) == 1) { line += c; }
        return line;
    }

private:
    int socket_;
    bool connected_ = false;
};

} // namespace simulated

#endif
