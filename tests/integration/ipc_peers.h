// What the tests of platform/ipc share: processes, messages, a peer that keeps to no rule, and a
// runtime directory for each test.
#ifndef SMSPB_TESTS_INTEGRATION_IPC_PEERS_H
#define SMSPB_TESTS_INTEGRATION_IPC_PEERS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "comm/platform_ipc.h"
#include "comm/zeldcard_common.h"
#include "platform/ipc/ipc_server.h"

namespace ipc_peers {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using smspb::ipc::Block;
using smspb::ipc::Queue;
using smspb::ipc::Server;
using smspb::ipc::Subscription;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr u32 DESTINATION = 7;
constexpr u32 MESSAGE = 0x1040008f;
constexpr u32 ANSWER = 0x10400091;
constexpr u32 PAYLOAD_MAX = 128 * 1024;
constexpr u32 WAIT_MS = 20000;
constexpr auto AT_ONCE = 100ms;
constexpr auto PROMPTLY = 1000ms; // where another process takes part, on a loaded machine too
constexpr auto SOON = 5000ms;     // for what must come; ends a test that would hang
constexpr uid_t NOBODY = 65534;

// ---- processes ----

// A forked process that runs `body` and exits with its result; killed when the test leaves it,
// however the test ends.
class Child {
public:
    explicit Child(const std::function<int()> &body) : pid_(fork()) {
        if (pid_ != 0) { return; }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    Child(Child &&other) noexcept : pid_(std::exchange(other.pid_, -1)) {}
    Child(const Child &) = delete;
    ~Child() { kill(); }

    pid_t pid() const { return pid_; }
    int exitCode() {
        int status = 0;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    void kill() {
        if (pid_ <= 0) { return; }
        ::kill(pid_, SIGKILL);
        exitCode();
    }

private:
    pid_t pid_;
};

// A one-way line between processes: a word at a time.
class Line {
public:
    Line() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
    Line(const Line &) = delete;
    ~Line() {
        close(ends_[0]);
        close(ends_[1]);
    }
    void say(u32 word = 1) const { EXPECT_EQ(write(ends_[1], &word, sizeof(word)), 4); }
    u32 hear() const {
        u32 word = 0;
        pollfd event = {ends_[0], POLLIN, 0};
        EXPECT_EQ(poll(&event, 1, static_cast<int>(SOON.count())), 1) << "nothing was said";
        EXPECT_EQ(read(ends_[0], &word, sizeof(word)), 4);
        return word;
    }
    int in() const { return ends_[0]; }
    int out() const { return ends_[1]; }

private:
    std::array<int, 2> ends_{};
};

using Handler = std::function<void(Server &, Block)>;

// A process that serves a destination for as long as it is left alone.
inline Child serve(const Handler &handle, u32 dest_id = DESTINATION) {
    const Line ready;
    Child child([&] {
        Server server(dest_id);
        ready.say();
        for (;;) {
            if (auto request = server.receive(-1ms)) { handle(server, std::move(*request)); }
        }
        return 0;
    });
    ready.hear();
    return child;
}

// ---- messages ----

inline std::string textOf(const Block &block) {
    const auto payload = block.payload();
    return {reinterpret_cast<const char *>(payload.data()), payload.size()};
}

inline std::string reversed(std::string text) {
    std::reverse(text.begin(), text.end());
    return text;
}

inline u32 lengthOf(std::string_view text) { return static_cast<u32>(text.size()); }

inline u32 respond(const Block &request, std::string_view text) {
    return zeldcard_send_response(request.get(), ANSWER, text.data(), lengthOf(text));
}

inline void echoReversed(Server &, const Block &request) {
    respond(request, reversed(textOf(request)));
}

struct Outcome {
    u32 status;
    std::string text;
    milliseconds took;
};

inline Outcome ask(std::string_view text, u32 timeout_ms = WAIT_MS, u32 room = PAYLOAD_MAX) {
    std::string buffer(room, '\0');
    const auto start = steady_clock::now();
    const u32 status = zeldcard_send_request_sync(DESTINATION, MESSAGE, text.data(), lengthOf(text),
                                                  buffer.data(), &room, timeout_ms);
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
    buffer.resize(status == IPC_OK ? room : 0);
    return {status, buffer, took};
}

// A block of our own, for what the library's functions do not send.
struct Memory {
    explicit Memory(std::string_view text, u32 kind = 0, u32 room = 0)
        : block(ipc_memory_assign(std::max(room, lengthOf(text)), kind)) {
        const std::array<u32, 4> header = {kind, MESSAGE, lengthOf(text), 0};
        const size_t octets = kind == 3 ? 8 : 16;
        std::memcpy(block, header.data(), octets);
        std::memcpy(static_cast<char *>(block) + octets, text.data(), text.size());
    }
    Memory(const Memory &) = delete;
    ~Memory() {
        if (block != nullptr) { EXPECT_EQ(mem_free_ex(0, 0, 0, block), 0u); }
    }
    u32 &word(size_t index) const { return static_cast<u32 *>(block)[index]; }
    void *block;
};

// The platform's own result, which the library's status hides.
inline u32 platformResult(std::string_view text, u32 timeout_ms) {
    std::array<u8, IPC_ADDRESS_SIZE> address{};
    EXPECT_EQ(ipc_get_addr_by_id(DESTINATION, 0, address.data()), 0u);
    const Memory request(text);
    const Memory response("", 0, 100);
    EXPECT_EQ(ipc_gen_seesion_id(request.block), 0u);
    u32 room = 100;
    return ipc_msg_send_syn(address.data(), request.block, lengthOf(text), timeout_ms,
                            response.block, &room);
}

// ---- a peer that keeps to no rule ----

class RawPeer {
public:
    explicit RawPeer(const std::string &path) : fd_(socket(AF_UNIX, SOCK_SEQPACKET, 0)) {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::snprintf(name.sun_path, sizeof(name.sun_path), "%s", path.c_str());
        error_ = connect(fd_, reinterpret_cast<sockaddr *>(&name), sizeof(name)) == 0 ? 0 : errno;
    }
    RawPeer(const RawPeer &) = delete;
    RawPeer(RawPeer &&other) noexcept : fd_(std::exchange(other.fd_, -1)), error_(other.error_) {}
    ~RawPeer() { close(fd_); }
    int error() const { return error_; }
    bool send(const std::vector<u32> &words, size_t octets) const {
        return ::send(fd_, words.data(), octets, MSG_NOSIGNAL) == static_cast<ssize_t>(octets);
    }
    bool isCutOff() const {
        pollfd event = {fd_, POLLRDHUP, 0};
        return poll(&event, 1, 0) > 0;
    }

private:
    int fd_;
    int error_ = 0;
};

class Ipc : public ::testing::Test {
protected:
    Ipc() {
        std::string pattern = (fs::temp_directory_path() / "smspb-ipc-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        base_ = pattern;
        directory_ = base_ / "run";
        setenv("SMSPB_RUNTIME_DIR", directory_.c_str(), 1);
    }
    ~Ipc() override {
        unsetenv("SMSPB_RUNTIME_DIR");
        fs::remove_all(base_);
    }
    std::string socketOf(const std::string &name) const { return (directory_ / name).string(); }
    std::vector<std::string> socketsBeginning(std::string_view beginning) const {
        std::vector<std::string> found;
        for (const auto &entry : fs::directory_iterator(directory_)) {
            if (entry.path().filename().native().starts_with(beginning)) {
                found.push_back(entry.path().string());
            }
        }
        return found;
    }
    size_t countNames(std::string_view beginning) const {
        return socketsBeginning(beginning).size();
    }
    fs::path base_;
    fs::path directory_;
};

} // namespace ipc_peers

#endif
