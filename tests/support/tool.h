// The command line tool as its users run it: the program, the modem manager and the simulated modem
// as real processes, with what they print read back. Needs SMSPB_PROGRAM, MODEMD_PROGRAM and
// SIMMODEM_PROGRAM.
#ifndef SMSPB_TESTS_SUPPORT_TOOL_H
#define SMSPB_TESTS_SUPPORT_TOOL_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace support {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;
using Arguments = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

inline constexpr const char *OWN_NUMBER = "+15550001000"; // of the simulated modem

// Exit codes, docs/smspb.md.
enum : int {
    OK = 0,
    USAGE = 2,
    BAD_PDU = 3,
    NO_MANAGER = 4,
    NO_ANSWER = 5,
    REFUSED = 6,
    NO_MESSAGE = 7,
    IN_PART = 8,
    UNREADABLE = 9,
    NO_SIMULATION = 10,
    NOTHING_CAME = 11
};

inline bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

// Waits for something that another process brings about.
inline bool becomes(const std::function<bool()> &state, std::chrono::milliseconds limit = 5s) {
    const Clock::time_point deadline = Clock::now() + limit;
    while (!state()) {
        if (Clock::now() > deadline) { return false; }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (fs::temp_directory_path() / "smspb-cli-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

    fs::path operator/(const std::string &name) const { return path_ / name; }
    const fs::path &path() const { return path_; }
    bool isEmpty() const { return fs::is_empty(path_); }

private:
    fs::path path_;
};

using Environment = std::vector<std::pair<std::string, std::string>>;

// A child process with pipes for its three streams.
class Process {
public:
    Process(const Arguments &command, const Environment &environment) {
        int input[2] = {}, output[2] = {}, errors[2] = {};
        for (int *ends : {input, output, errors}) {
            if (pipe2(ends, O_CLOEXEC) != 0) { std::abort(); }
        }
        pid_ = fork();
        if (pid_ == 0) {
            std::signal(SIGPIPE, SIG_DFL);
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            dup2(errors[1], STDERR_FILENO);
            for (const auto &[name, value] : environment) {
                setenv(name.c_str(), value.c_str(), 1);
            }
            std::vector<char *> values;
            for (const std::string &argument : command) {
                values.push_back(const_cast<char *>(argument.c_str()));
            }
            values.push_back(nullptr);
            execv(values[0], values.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        close(errors[1]);
        input_ = input[1];
        output_ = output[0];
        errors_ = errors[0];
    }
    ~Process() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        for (const int fd : {input_, output_, errors_}) {
            if (fd >= 0) { close(fd); }
        }
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const { kill(pid_, number); }

    // As much as the process takes: one that refuses its command line reads nothing.
    void write(std::string_view text) const {
        std::signal(SIGPIPE, SIG_IGN);
        while (!text.empty()) {
            const ssize_t written = ::write(input_, text.data(), text.size());
            if (written <= 0) { return; }
            text.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    void closeInput() {
        close(input_);
        input_ = -1;
    }

    // The first line of the standard output.
    std::string readLine() const {
        std::string line;
        for (char c = 0; ::read(output_, &c, 1) == 1 && c != '\n';) { line += c; }
        return line;
    }

    // Reads both streams to their ends and waits. Returns the wait status.
    int finish(std::string &out, std::string &err) {
        pollfd streams[] = {
            {output_, POLLIN, 0},
            {errors_, POLLIN, 0}
        };
        std::string *const texts[] = {&out, &err};
        int open = 2;
        while (open > 0 && poll(streams, 2, -1) > 0) {
            for (std::size_t i = 0; i < 2; i++) {
                if (streams[i].fd < 0 || streams[i].revents == 0) { continue; }
                std::array<char, 4096> chunk{};
                const ssize_t size = ::read(streams[i].fd, chunk.data(), chunk.size());
                if (size > 0) {
                    texts[i]->append(chunk.data(), static_cast<std::size_t>(size));
                } else {
                    streams[i].fd = -1;
                    open--;
                }
            }
        }
        return wait();
    }

    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

    void stop() {
        if (pid_ <= 0) { return; }
        signal(SIGTERM);
        wait();
    }

private:
    pid_t pid_ = -1;
    int input_ = -1, output_ = -1, errors_ = -1;
};

struct Result {
    int code = -1; // 128 + n for a signal
    std::string out, err;

    Json json() const {
        const Json parsed = Json::parse(out, nullptr, false);
        EXPECT_FALSE(parsed.is_discarded()) << out << err;
        return parsed;
    }
};

inline std::ostream &operator<<(std::ostream &stream, const Result &result) {
    return stream << "exit " << result.code << "\nout: " << result.out << "\nerr: " << result.err;
}

inline int exitCode(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// A runtime directory of its own, and nobody who serves the modem.
class Tool : public testing::Test {
protected:
    Environment environment() const {
        return {
            {"SMSPB_RUNTIME_DIR", (directory_ / "run").string()},
            {           "TMPDIR",                   temporary()}
        };
    }
    std::string temporary() const {
        fs::create_directory(directory_ / "tmp");
        return (directory_ / "tmp").string();
    }

    static Arguments command(const Arguments &arguments) {
        Arguments all = {SMSPB_PROGRAM};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    Result run(const Arguments &arguments, std::string_view input = "") const {
        Process process(command(arguments), environment());
        process.write(input);
        process.closeInput();
        Result result;
        result.code = exitCode(process.finish(result.out, result.err));
        return result;
    }

    // With --json; the document of a success.
    Json json(Arguments arguments, std::string_view input = "") const {
        arguments.insert(arguments.begin(), "--json");
        const Result result = run(arguments, input);
        EXPECT_EQ(result.code, OK) << result;
        EXPECT_EQ(result.err, "");
        return result.json();
    }

    // A failure: its code, something of what it says, and something of the next step.
    void expectFailure(const Arguments &arguments, int code, const std::string &what,
                       const std::string &hint = "", std::string_view input = "") const {
        const Result result = run(arguments, input);
        EXPECT_EQ(result.code, code) << result;
        EXPECT_EQ(result.out, "") << result;
        EXPECT_TRUE(result.err.starts_with("smspb: ")) << result;
        EXPECT_TRUE(contains(result.err, what)) << what << "\n" << result;
        if (!hint.empty()) { EXPECT_TRUE(contains(result.err, "\n  next: ")) << result; }
        EXPECT_TRUE(contains(result.err, hint)) << hint << "\n" << result;

        Arguments again = arguments;
        again.insert(again.begin(), "--json");
        const Result document = run(again, input);
        EXPECT_EQ(document.code, code) << document;
        EXPECT_EQ(document.json()["error"]["exit_code"], code);
        EXPECT_TRUE(contains(document.json()["error"]["message"].get<std::string>(), what));
    }

    TemporaryDirectory directory_;
};

// The road behind the tool: a simulated modem and its manager.
class ToolWithModem : public Tool {
protected:
    void SetUp() override { start({}); }
    void TearDown() override {
        if (manager_) { manager_->stop(); }
        if (modem_) { modem_->stop(); }
    }

    void start(const Arguments &modemOptions) {
        TearDown();
        const std::string terminal = (directory_ / "terminal").string();
        Arguments modem = {SIMMODEM_PROGRAM, "--link", terminal};
        modem.insert(modem.end(), modemOptions.begin(), modemOptions.end());
        modem_ = std::make_unique<Process>(modem, environment());
        ASSERT_EQ(modem_->readLine(), "ready: " + terminal);
        startManager();
    }

    void startManager() {
        manager_ = std::make_unique<Process>(
            Arguments{MODEMD_PROGRAM, "--device", (directory_ / "terminal").string()},
            environment());
        ASSERT_TRUE(manager_->readLine().starts_with("ready"));
    }

    void sendToSelf(const std::string &text) const {
        const Result result = run({"send", OWN_NUMBER, "-"}, text + "\n");
        ASSERT_EQ(result.code, OK) << result;
    }

    // What comes from the network, or from the SIM's slot.
    void happen(const Arguments &event) const {
        Arguments all = {SIMMODEM_PROGRAM, "ctl", "--link", (directory_ / "terminal").string()};
        all.insert(all.end(), event.begin(), event.end());
        Process control(all, environment());
        Result result;
        result.code = exitCode(control.finish(result.out, result.err));
        ASSERT_EQ(result.code, OK) << result;
    }

    void fault(const std::string &fault) const {
        ASSERT_EQ(run({"at", "AT^FAULT=\"" + fault + "\""}).code, OK);
    }

    std::vector<std::string> inboxTexts() const {
        std::vector<std::string> texts;
        const Json inbox = json({"inbox"});
        for (const Json &message : inbox["messages"]) {
            texts.push_back(message["text"].get<std::string>());
        }
        return texts;
    }

    std::unique_ptr<Process> modem_, manager_;
};

} // namespace support

#endif
