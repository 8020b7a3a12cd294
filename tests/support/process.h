// Programs as their users run them: started, awaited, ended, in a directory of their own.
#ifndef SMSPB_TESTS_SUPPORT_PROCESS_H
#define SMSPB_TESTS_SUPPORT_PROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace support {

// A directory of mode 0700 that goes with its object.
class PrivateDirectory {
public:
    PrivateDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "smspb-test-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr) { path_ = name; }
    }
    ~PrivateDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    PrivateDirectory(const PrivateDirectory &) = delete;
    PrivateDirectory &operator=(const PrivateDirectory &) = delete;
    const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};

// A program with its standard output in a pipe; ended with SIGTERM when the object goes.
class Program {
public:
    explicit Program(const std::vector<std::string> &words) {
        std::array<int, 2> output{};
        if (::pipe2(output.data(), O_CLOEXEC) != 0) { return; }
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(output[1], STDOUT_FILENO);
            std::vector<char *> arguments;
            for (const std::string &word : words) {
                arguments.push_back(const_cast<char *>(word.c_str()));
            }
            arguments.push_back(nullptr);
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(output[1]);
        output_ = output[0];
    }
    ~Program() {
        end(SIGTERM);
        if (output_ >= 0) { ::close(output_); }
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    // Whether the program prints `text` within ten seconds.
    bool prints(const std::string &text) {
        std::string printed;
        while (printed.find(text) == std::string::npos) {
            pollfd waiting{output_, POLLIN, 0};
            std::array<char, 512> buffer{};
            if (::poll(&waiting, 1, 10000) != 1) { return false; }
            const ssize_t count = ::read(output_, buffer.data(), buffer.size());
            if (count <= 0) { return false; }
            printed.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return true;
    }

    pid_t pid() const { return pid_; }

    void end(int signal) {
        if (pid_ <= 0) { return; }
        ::kill(pid_, signal);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
    int output_ = -1;
};

} // namespace support

#endif
