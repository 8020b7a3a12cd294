// The process that the user started stays outside and looks after its children: the simulated
// modem, the modem manager, and a child that runs the command. The library's calls block; so a
// signal ends the command's process, and this one, which only waits, cleans up.
#include "tools/simulate.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "platform/ipc/descriptor.h"
#include "tools/failure.h"
#include "tools/signals.h"

namespace smspb::cli {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using ipc::Descriptor;

constexpr std::chrono::seconds START_LIMIT{10};
constexpr std::chrono::seconds STOP_LIMIT{3};

[[noreturn]] void failStart(const std::string &what, const std::string &hint = "") {
    throw Failure(Exit::NO_SIMULATION, "the simulation does not start: " + what, hint);
}

[[noreturn]] void failSystem(const std::string &what) {
    failStart(fmt::format("{}: {}", what, std::strerror(errno)));
}

int millisecondsTo(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// A directory of our own for sockets, terminal link and logs.
class PrivateDirectory {
public:
    PrivateDirectory() {
        std::string name = (fs::temp_directory_path() / "smspb-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) { failSystem("cannot create " + name); }
        path_ = name;
    }
    ~PrivateDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    PrivateDirectory(const PrivateDirectory &) = delete;
    PrivateDirectory &operator=(const PrivateDirectory &) = delete;

    const fs::path &path() const { return path_; }

private:
    fs::path path_;
};

// In a forked child: dies with the process that looks after it.
void followParent(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) { _exit(1); }
}

// Whether a whole line of the text, before which "\n" stands, begins with "ready".
bool isReady(std::string_view said) {
    const std::size_t line = said.find("\nready");
    return line != said.npos && said.find('\n', line + 1) != said.npos;
}

// A program of the simulation, ended when it goes.
class Daemon {
public:
    Daemon(const SignalWatch &signals, const std::vector<std::string> &arguments, fs::path log)
        : name_(fs::path(arguments.front()).filename().string()), log_(std::move(log)) {
        launch(signals, arguments);
        awaitReady(signals);
    }
    ~Daemon() { stop(); }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

private:
    // Our end of the pipe is readable, or closed when the program ends.
    void launch(const SignalWatch &signals, const std::vector<std::string> &arguments) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) { failSystem("cannot create a pipe"); }
        output_ = Descriptor(ends[0]);
        const Descriptor input(ends[1]);
        const pid_t self = getpid();
        pid_ = fork();
        if (pid_ < 0) { failSystem("cannot fork"); }
        if (pid_ > 0) { return; }
        followParent(self);
        signals.setBack();
        become(arguments, input.get());
    }

    [[noreturn]] void become(const std::vector<std::string> &arguments, int output) const {
        // Out of the terminal's foreground: Ctrl-C is for the command, which may still need us.
        setpgid(0, 0);
        const int log = open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        std::vector<char *> values;
        values.reserve(arguments.size() + 1);
        for (const std::string &argument : arguments) {
            values.push_back(const_cast<char *>(argument.c_str()));
        }
        values.push_back(nullptr);
        execv(values.front(), values.data());
        dprintf(STDERR_FILENO, "%s: %s\n", values.front(), std::strerror(errno));
        _exit(127);
    }

    // Both programs print a line that begins with "ready" when they are.
    void awaitReady(const SignalWatch &signals) {
        const Clock::time_point deadline = Clock::now() + START_LIMIT;
        std::string said = "\n";
        while (!isReady(said)) {
            pollfd waits[] = {
                {output_.get(), POLLIN, 0},
                { signals.fd(), POLLIN, 0}
            };
            const int ready = poll(waits, std::size(waits), millisecondsTo(deadline));
            if (ready == 0) { giveUp("it is not ready in time"); }
            stopWhenInterrupted(signals);
            if (waits[0].revents != 0) { said += readOutput(); }
        }
    }

    void stopWhenInterrupted(const SignalWatch &signals) {
        const int signal = signals.take();
        if (signal == 0 || signal == SIGCHLD) { return; }
        stop();
        throw Interrupted{signal};
    }

    std::string readOutput() {
        std::array<char, 256> chunk{};
        const ssize_t count = ::read(output_.get(), chunk.data(), chunk.size());
        if (count <= 0) { giveUp("it ended"); }
        return {chunk.data(), static_cast<std::size_t>(count)};
    }

    [[noreturn]] void giveUp(const std::string &why) {
        stop();
        std::string last;
        std::ifstream log(log_);
        for (std::string line; std::getline(log, line);) { last = line; }
        failStart(fmt::format("{}: {}{}{}", name_, why, last.empty() ? "" : ", saying ", last));
    }

    void stop() {
        if (pid_ <= 0) { return; }
        kill(pid_, SIGTERM);
        const Clock::time_point deadline = Clock::now() + STOP_LIMIT;
        while (waitpid(pid_, nullptr, WNOHANG) == 0) {
            if (Clock::now() >= deadline) { kill(pid_, SIGKILL); }
            poll(nullptr, 0, 2);
        }
        pid_ = -1;
    }

    std::string name_;
    fs::path log_;
    Descriptor output_;
    pid_t pid_ = -1;
};

// Beside our own binary in a build tree, in libexec or on PATH when installed.
std::string findProgram(const std::string &name, const std::string &buildFolder) {
    const fs::path own = fs::read_symlink("/proc/self/exe").parent_path();
    std::vector<fs::path> folders = {own, own.parent_path() / "platform" / buildFolder,
                                     own.parent_path() / "libexec" / "smspb",
                                     own.parent_path() / "libexec"};
    if (const char *variable = std::getenv("PATH"); variable != nullptr) {
        std::istringstream path(variable);
        for (std::string folder; std::getline(path, folder, ':');) {
            if (!folder.empty()) { folders.emplace_back(folder); }
        }
    }
    for (const fs::path &folder : folders) {
        const std::string program = (folder / name).string();
        if (access(program.c_str(), X_OK) == 0 && fs::is_regular_file(program)) { return program; }
    }
    failStart(fmt::format("there is no {} beside {}, in its ../libexec or on PATH", name,
                          (own / "smspb").string()),
              fmt::format("build it (target {}) or install it", name));
}

// The child that runs the command.
pid_t startCommand(const SignalWatch &signals, const std::function<int()> &command) {
    std::fflush(nullptr);
    const pid_t self = getpid(), child = fork();
    if (child < 0) { failSystem("cannot fork"); }
    if (child > 0) { return child; }
    followParent(self);
    signals.setBack();
    const int code = command();
    std::fflush(nullptr);
    _exit(code);
}

// Waits for the command and passes signals on to it. Gives its wait status and the last signal.
std::pair<int, int> awaitCommand(const SignalWatch &signals, pid_t child) {
    int received = 0;
    for (;;) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) { return {status, received}; }
        pollfd wait{signals.fd(), POLLIN, 0};
        poll(&wait, 1, -1);
        const int signal = signals.take();
        if (signal == 0 || signal == SIGCHLD) { continue; }
        received = signal;
        kill(child, signal);
    }
}

struct Outcome {
    int code = 0, signal = 0;
};

Outcome outcomeOf(int status, int received) {
    if (received != 0) { return {128 + received, received}; }
    if (WIFSIGNALED(status)) { return {128 + WTERMSIG(status), WTERMSIG(status)}; }
    return {WEXITSTATUS(status), 0};
}

// Everything that is started here is gone when it returns.
Outcome runAround(const std::function<int()> &command) {
    const SignalWatch signals;
    try {
        const std::string modem = findProgram("smspb-simmodem", "simmodem");
        const std::string manager = findProgram("smspb-modemd", "modemd");
        const PrivateDirectory directory;
        const fs::path terminal = directory.path() / "modem", sockets = directory.path() / "run";
        setenv("SMSPB_RUNTIME_DIR", sockets.c_str(), 1);
        const Daemon simulatedModem(signals, {modem, "--link", terminal.string()},
                                    directory.path() / "simmodem.log");
        const Daemon modemManager(signals, {manager, "--device", terminal.string()},
                                  directory.path() / "modemd.log");
        const auto [status, received] = awaitCommand(signals, startCommand(signals, command));
        return outcomeOf(status, received);
    } catch (const Interrupted &interrupted) {
        return {128 + interrupted.signal, interrupted.signal};
    }
}

} // namespace

int simulated(const std::function<int()> &command) {
    const Outcome outcome = runAround(command);
    // As if the signal had ended this process, so that a shell or script sees it.
    if (outcome.signal != 0 && outcome.signal != SIGCHLD) {
        std::signal(outcome.signal, SIG_DFL);
        raise(outcome.signal);
    }
    return outcome.code;
}

} // namespace smspb::cli
