#include "tools/hook.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

#include <fmt/format.h>

namespace smspb::cli {

namespace {

constexpr std::size_t WAITING_MAX = 10000;
constexpr std::chrono::seconds MERCY{2}; // between SIGTERM and SIGKILL

bool isProgram(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

std::string found(const std::string &program) {
    if (program.find('/') != std::string::npos && isProgram(program)) { return program; }
    const char *const path = std::getenv("PATH");
    std::istringstream folders(program.find('/') == std::string::npos && path != nullptr ? path
                                                                                         : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string candidate = (folder.empty() ? "." : folder) + "/" + program;
        if (isProgram(candidate)) { return candidate; }
    }
    throw Failure(Exit::USAGE, fmt::format("--exec {}: there is no such program", program),
                  "give one executable file, without arguments; it reads the event from its "
                  "environment (SMSPB_KIND, SMSPB_FROM, SMSPB_TEXT)");
}

// Our own environment, without what an event of ours may have put there, and the event.
std::vector<std::string> environmentFor(const Event &event) {
    std::vector<std::string> variables = environmentOf(event);
    for (char **entry = environ; *entry != nullptr; entry++) {
        const std::string_view variable = *entry;
        const bool isOurs = variable.starts_with("SMSPB_");
        if (!isOurs || variable.starts_with("SMSPB_RUNTIME_DIR=")) {
            variables.emplace_back(variable);
        }
    }
    return variables;
}

// What a program starts with: no input, its output where complaints go, signals as we found them,
// and a process group of its own, so that Ctrl-C is for the listener alone.
class SpawnSettings {
public:
    explicit SpawnSettings(const sigset_t &mask) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
        sigset_t all;
        sigemptyset(&all);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGCHLD}) {
            sigaddset(&all, number);
        }
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setsigmask(&attributes_, &mask);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                                                   POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    const posix_spawn_file_actions_t *actions() const { return &actions_; }
    const posix_spawnattr_t *attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

std::string endOf(int status, bool wasOverdue) {
    if (wasOverdue) { return "took too long and was ended"; }
    if (WIFSIGNALED(status)) {
        return fmt::format("was ended by signal {} ({})", WTERMSIG(status),
                           strsignal(WTERMSIG(status)));
    }
    const int code = WEXITSTATUS(status);
    return code == 0 ? "" : fmt::format("ended with exit code {}", code);
}

} // namespace

Hook::Hook(const std::string &program, std::chrono::milliseconds limit, const sigset_t &mask)
    : program_(found(program)), limit_(limit), mask_(mask) {}

Hook::~Hook() {
    if (pid_ <= 0) { return; }
    kill(-pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

bool Hook::add(Event event) {
    if (waiting_.size() >= WAITING_MAX) { return false; }
    waiting_.push_back(std::move(event));
    return true;
}

std::optional<Hook::Done> Hook::proceed(Clock::time_point now) {
    if (waiting_.empty()) { return std::nullopt; }
    std::string problem;
    if (pid_ <= 0) {
        problem = start(now);
        if (problem.empty()) { return std::nullopt; }
    } else {
        if (now >= deadline_) {
            kill(-pid_, isOverdue_ ? SIGKILL : SIGTERM);
            isOverdue_ = true;
            deadline_ = now + MERCY;
        }
        const std::optional<int> status = reap();
        if (!status) { return std::nullopt; }
        problem = endOf(*status, isOverdue_);
    }
    Done done{std::move(waiting_.front()), std::move(problem)};
    waiting_.pop_front();
    return done;
}

void Hook::interrupt() {
    if (pid_ > 0) { kill(-pid_, SIGTERM); }
}

std::optional<Hook::Clock::time_point> Hook::deadline() const {
    return pid_ > 0 ? std::optional(deadline_) : std::nullopt;
}

// Gives why the program could not be started; empty when it runs.
std::string Hook::start(Clock::time_point now) {
    std::vector<std::string> variables = environmentFor(waiting_.front());
    std::vector<char *> environment;
    environment.reserve(variables.size() + 1);
    for (std::string &variable : variables) { environment.push_back(variable.data()); }
    environment.push_back(nullptr);
    char *const arguments[] = {program_.data(), nullptr};
    const SpawnSettings settings(mask_);
    const int error = posix_spawn(&pid_, program_.c_str(), settings.actions(),
                                  settings.attributes(), arguments, environment.data());
    deadline_ = now + limit_;
    isOverdue_ = false;
    if (error == 0) { return ""; }
    pid_ = -1;
    return fmt::format("cannot be run: {}", std::strerror(error));
}

std::optional<int> Hook::reap() {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == 0) { return std::nullopt; }
    pid_ = -1;
    return status;
}

} // namespace smspb::cli
