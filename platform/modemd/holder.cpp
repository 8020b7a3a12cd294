#include "platform/modemd/holder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fmt/format.h>

namespace smspb::modemd {
namespace {

namespace fs = std::filesystem;

bool isProcess(const fs::path &folder) {
    return folder.filename().native().find_first_not_of("0123456789") == std::string::npos;
}

bool hasOpen(const fs::path &process, const struct stat &wanted) {
    std::error_code error;
    for (fs::directory_iterator fd(process / "fd", error), end; !error && fd != end;
         fd.increment(error)) {
        struct stat status {};
        const bool known = ::stat(fd->path().c_str(), &status) == 0;
        if (known && status.st_dev == wanted.st_dev && status.st_ino == wanted.st_ino) {
            return true;
        }
    }
    return false;
}

// The holder of an flock(), by the kernel's list: "1: FLOCK ADVISORY WRITE PID MAJOR:MINOR:INODE 0
// EOF".
std::optional<std::string> lockHolder(const struct stat &wanted) {
    const std::string file =
        fmt::format("{:02x}:{:02x}:{}", major(wanted.st_dev), minor(wanted.st_dev), wanted.st_ino);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, mode, type, pid, place;
        words >> number >> kind >> mode >> type >> pid >> place;
        if (kind == "FLOCK" && place == file) { return pid; }
    }
    return std::nullopt;
}

std::string named(const std::string &process) {
    return describeProcess(static_cast<pid_t>(std::strtol(process.c_str(), nullptr, 10)));
}

} // namespace

std::string programOf(pid_t process) {
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    for (char &c : name) {
        if (c < ' ' || c > '~') { c = '?'; } // whatever the process calls itself
    }
    return name.empty() ? "gone" : name;
}

std::string describeProcess(pid_t process) {
    return fmt::format("process {} ({})", process, programOf(process));
}

std::string holderOf(const std::string &path) {
    struct stat wanted {};
    std::error_code error;
    if (::stat(path.c_str(), &wanted) != 0) { return "another process"; }
    if (const auto pid = lockHolder(wanted)) { return named(*pid); }
    const std::string self = std::to_string(::getpid());
    for (fs::directory_iterator process("/proc", error), end; !error && process != end;
         process.increment(error)) {
        const fs::path &folder = process->path();
        if (folder.filename() != self && isProcess(folder) && hasOpen(folder, wanted)) {
            return named(folder.filename());
        }
    }
    return "another process";
}

} // namespace smspb::modemd
