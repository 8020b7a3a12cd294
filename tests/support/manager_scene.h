// The modem manager as a process, on a terminal whose other end the tests hold: requests go in
// through the library, the tests speak as the modem. Needs MODEMD_PROGRAM.
#ifndef SMSPB_TESTS_SUPPORT_MANAGER_SCENE_H
#define SMSPB_TESTS_SUPPORT_MANAGER_SCENE_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "comm/zeldcard_common.h"
#include "platform/ipc/ipc_server.h"
#include "platform/modemd/records.h"

namespace scene {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace smspb::modemd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

inline constexpr auto AT_ONCE =
    400ms;                            // where nothing has to be waited for, on a loaded machine too
inline constexpr auto SOON = 10000ms; // for what must come; ends a test that would hang
inline constexpr auto QUIET = 60ms;   // for what must not come
inline constexpr u32 PATIENCE = 20000; // IPC wait in milliseconds

using Texts = std::vector<std::string>;

inline const std::vector<std::string> USUAL_MARKERS = {"OK", "ERROR", "+CMS ERROR:", "+CME ERROR:"};

// What leaves a prompt and asks whether the modem is there.
inline const std::string ESCAPE_AND_PROBE = std::string("\x1b") + "ATE0Q0V1\r";

// A SUBMIT without service centre (1 + 18 octets), and one with (8 + 18 octets).
inline const std::string PDU = "0001000B915155001000F0000005E8329BFD06";
inline const std::string PDU_WITH_CENTRE = "07915155000090F9" + PDU.substr(2);

// ---- descriptors and processes ----

inline bool comesTrue(const std::function<bool()> &condition) {
    const auto until = steady_clock::now() + SOON;
    while (!condition()) {
        if (steady_clock::now() > until) { return false; }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }
    int get() const { return fd_; }
    void reset(int fd = -1) {
        if (fd_ >= 0) { ::close(fd_); }
        fd_ = fd;
    }

private:
    int fd_;
};

inline int millisecondsUntil(steady_clock::time_point until) {
    const auto left = std::chrono::ceil<milliseconds>(until - steady_clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

// What is there within the time; nothing at the end of file and when nothing comes.
inline std::string readSome(int fd, steady_clock::time_point until, std::size_t most = 4096) {
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, millisecondsUntil(until)) != 1) { return {}; }
    std::string octets(most, '\0');
    const ssize_t count = ::read(fd, octets.data(), octets.size());
    octets.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return octets;
}

class Directory {
public:
    Directory() : path_((fs::temp_directory_path() / "modemd-XXXXXX").string()) {
        EXPECT_NE(::mkdtemp(path_.data()), nullptr);
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    ~Directory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    fs::path operator/(const char *name) const { return fs::path(path_) / name; }

private:
    std::string path_;
};

// The program under test. It is killed when the test leaves it running.
class Daemon {
public:
    explicit Daemon(const std::vector<std::string> &options) {
        std::array<int, 2> out{};
        std::array<int, 2> err{};
        EXPECT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(err.data(), O_CLOEXEC), 0);
        std::vector<std::string> words{MODEMD_PROGRAM};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char *> arguments;
        for (std::string &word : words) { arguments.push_back(word.data()); }
        arguments.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(err[1], STDERR_FILENO);
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(out[1]);
        ::close(err[1]);
        out_.reset(out[0]);
        err_.reset(err[0]);
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;
    ~Daemon() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            exitCode();
        }
    }

    bool isReady() {
        std::string text;
        const auto until = steady_clock::now() + SOON;
        while (!text.ends_with("ready\n")) {
            const std::string some = readSome(out_.get(), until);
            if (some.empty()) { return false; }
            text += some;
        }
        return text == "ready\n";
    }
    // Whether the log says it, now or soon, behind what was found before.
    bool logs(std::string_view text) {
        const auto until = steady_clock::now() + SOON;
        for (;;) {
            const std::size_t at = log_.find(text, seen_);
            if (at != std::string::npos) {
                seen_ = at + text.size();
                return true;
            }
            const std::string some = readSome(err_.get(), until);
            if (some.empty()) { return false; }
            log_ += some;
        }
    }
    const std::string &log() const { return log_; }
    pid_t pid() const { return pid_; }
    void signal(int number) const { ::kill(pid_, number); }
    // Waits for the end. 128 and the number for a signal.
    int exitCode() {
        const auto until = steady_clock::now() + SOON;
        for (std::string some = "-"; !some.empty(); log_ += some) {
            some = readSome(err_.get(), until);
        }
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t pid_ = -1;
    Descriptor out_;
    Descriptor err_;
    std::string log_;
    std::size_t seen_ = 0;
};

// ---- the modem ----

// The modem's end of a terminal that `link` names. The other end is kept open here as well, so that
// the modem can speak before the program listens.
class Modem {
public:
    explicit Modem(fs::path link) : link_(std::move(link)) { appear(); }
    Modem(const Modem &) = delete;
    Modem &operator=(const Modem &) = delete;

    void appear() {
        master_.reset(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        EXPECT_EQ(::grantpt(master_.get()), 0);
        EXPECT_EQ(::unlockpt(master_.get()), 0);
        const char *name = ::ptsname(master_.get());
        slave_.reset(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios line{};
        EXPECT_EQ(::tcgetattr(slave_.get(), &line), 0);
        ::cfmakeraw(&line);
        EXPECT_EQ(::tcsetattr(slave_.get(), TCSANOW, &line), 0);
        fs::remove(link_);
        fs::create_symlink(name, link_);
    }
    void vanish() {
        fs::remove(link_);
        master_.reset();
        slave_.reset();
    }
    void say(std::string_view octets) const {
        while (!octets.empty()) {
            const ssize_t count = ::write(master_.get(), octets.data(), octets.size());
            ASSERT_GT(count, 0) << std::strerror(errno);
            octets.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    // The next octets, as many as are expected.
    void expect(std::string_view octets) const {
        std::string heard;
        const auto until = steady_clock::now() + SOON;
        while (heard.size() < octets.size()) {
            const std::string some = readSome(master_.get(), until, octets.size() - heard.size());
            if (some.empty()) { break; }
            heard += some;
        }
        EXPECT_EQ(heard, octets);
    }
    void expectNothing(milliseconds wait = QUIET) const {
        EXPECT_EQ(readSome(master_.get(), steady_clock::now() + wait), "");
    }
    void answer(std::string_view command, std::string_view reply) const {
        expect(command);
        say(reply);
    }
    void answerProbe() const { answer("ATE0Q0V1\r", "\r\nOK\r\n"); }
    // One command line, whatever it is.
    std::string hear() const {
        std::string line;
        const auto until = steady_clock::now() + SOON;
        while (!line.ends_with('\r')) {
            const std::string some = readSome(master_.get(), until);
            if (some.empty()) { break; }
            line += some;
        }
        return line;
    }
    int terminal() const { return slave_.get(); }
    int line() const { return master_.get(); } // the modem's end

private:
    fs::path link_;
    Descriptor master_;
    Descriptor slave_;
};

// ---- requests ----

inline std::string word(u32 value) {
    std::string octets(sizeof(value), '\0');
    std::memcpy(octets.data(), &value, sizeof(value));
    return octets;
}

inline std::string terminated(const std::string &text) { return text + std::string(1, '\0'); }

inline std::string slot(const std::string &marker) {
    return marker + std::string(16 - std::min<std::size_t>(16, marker.size()), '\0');
}

inline std::string commandRecord(const std::string &text,
                                 const std::vector<std::string> &markers = USUAL_MARKERS,
                                 u32 wait = 5000) {
    std::string record = word(static_cast<u32>(text.size())) + word(0) + word(wait) +
                         word(static_cast<u32>(markers.size()));
    for (const std::string &marker : markers) { record += slot(marker); }
    record.resize(96);
    return record + terminated(text);
}

inline std::string sendRecord(const std::string &pdu) {
    return word(static_cast<u32>(pdu.size())) + terminated(pdu);
}

inline std::string storeRecord(const std::string &pdu, u32 status) {
    return word(static_cast<u32>(pdu.size())) + word(status) + terminated(pdu);
}

inline std::span<const std::byte> octetsOf(const std::string &record) {
    return std::as_bytes(std::span(record.data(), record.size()));
}

struct Response {
    u32 status; // of the call
    u32 result;
    u32 flag;
    u32 length;
    std::string rest;

    std::string reply() const { return flag == 1 ? "in a file" : rest.substr(0, length); }
    std::string path() const { return rest.c_str(); }
    friend bool operator==(const Response &, const Response &) = default;
};

inline Response ask(u32 messageId, const std::string &record, u32 patience = PATIENCE) {
    std::array<char, RECORD_OCTETS_MAX> room{};
    u32 size = room.size();
    Response response{};
    response.status =
        zeldcard_send_request_sync(MODEM_MANAGER_ID, messageId, record.data(),
                                   static_cast<u32>(record.size()), room.data(), &size, patience);
    std::memcpy(&response.result, room.data(), sizeof(u32));
    std::memcpy(&response.flag, room.data() + 4, sizeof(u32));
    std::memcpy(&response.length, room.data() + 8, sizeof(u32));
    response.rest.assign(room.data() + RESPONSE_HEADER_OCTETS,
                         std::max<std::size_t>(size, RESPONSE_HEADER_OCTETS) -
                             RESPONSE_HEADER_OCTETS);
    return response;
}

// The manager's own status.
inline std::string statusText() {
    std::array<char, 65536> room{};
    u32 size = room.size();
    const u32 status = zeldcard_send_request_sync(MODEM_MANAGER_ID, STATUS_REQUEST, nullptr, 0,
                                                  room.data(), &size, PATIENCE);
    if (status != IPC_OK || size < RESPONSE_HEADER_OCTETS) { return ""; }
    return {room.data() + RESPONSE_HEADER_OCTETS, size - RESPONSE_HEADER_OCTETS};
}

// A question under way while the test speaks as the modem.
class Question {
public:
    Question(u32 messageId, std::string record)
        : response_(std::async(std::launch::async, [messageId, record = std::move(record)] {
              return ask(messageId, record);
          })) {}

    bool isAnswered() { return response_.wait_for(0ms) == std::future_status::ready; }
    Response wait() { return response_.get(); }
    void gives(const std::string &reply) {
        const Response response = wait();
        EXPECT_EQ(response.status, IPC_OK);
        EXPECT_EQ(response.result, static_cast<u32>(Result::CARRIED_OUT));
        EXPECT_EQ(response.reply(), reply);
    }
    void fails(Result result) {
        const Response response = wait();
        EXPECT_EQ(response.status, IPC_OK);
        EXPECT_EQ(response.result, static_cast<u32>(result));
        EXPECT_EQ(response.flag, 0u);
        EXPECT_EQ(response.length, 0u);
    }

private:
    std::future<Response> response_;
};

inline Question command(const std::string &text,
                        const std::vector<std::string> &markers = USUAL_MARKERS, u32 wait = 5000) {
    return {COMMAND_REQUEST, commandRecord(text, markers, wait)};
}

inline std::string textOf(const smspb::ipc::Block &block) {
    const auto payload = block.payload();
    return {reinterpret_cast<const char *>(payload.data()), payload.size()};
}

// ---- the scene ----

class Modemd : public testing::Test {
protected:
    Modemd() : modem_(directory_ / "tty") { ::setenv("SMSPB_RUNTIME_DIR", runtime().c_str(), 1); }

    fs::path runtime() const { return directory_ / "run"; }
    std::string device() const { return directory_ / "tty"; }

    void start(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"--device", device()});
        daemon_.emplace(options);
        ASSERT_TRUE(daemon_->isReady()) << daemon_->log();
    }
    // In step with a modem that answers the first question.
    void startInStep(const std::vector<std::string> &options = {}) {
        start(options);
        modem_.answerProbe();
        awaitStep();
    }
    // Until what is asked next is sent at once.
    static void awaitStep() {
        EXPECT_TRUE(
            comesTrue([] { return statusText().find("\"in step\"") != std::string::npos; }));
    }
    void expectAlive() {
        Question question = command("AT\r");
        modem_.answer("AT\r", "\r\nOK\r\n");
        question.gives("\r\nOK\r\n");
    }
    std::vector<fs::path> transferFiles() const {
        std::vector<fs::path> files;
        for (const auto &entry : fs::directory_iterator(runtime())) {
            if (entry.path().filename().native().starts_with("transfer-")) {
                files.push_back(entry.path());
            }
        }
        return files;
    }

    Directory directory_;
    Modem modem_;
    std::optional<Daemon> daemon_;
};

// The name of a case that has one.
struct CaseName {
    template <typename Case>
    std::string operator()(const testing::TestParamInfo<Case> &given) const {
        return given.param.name;
    }
};

} // namespace scene

#endif
