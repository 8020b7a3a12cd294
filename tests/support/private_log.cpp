#include "private_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace support {
namespace {

// One directory per process, gone with it.
class PrivateDirectory {
public:
    PrivateDirectory() {
        char name[] = "/tmp/smspb-unit-XXXXXX";
        if (mkdtemp(name) == nullptr) {
            std::perror("mkdtemp /tmp/smspb-unit-XXXXXX");
            std::abort();
        }
        path_ = name;
    }
    PrivateDirectory(const PrivateDirectory &) = delete;
    PrivateDirectory &operator=(const PrivateDirectory &) = delete;
    ~PrivateDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

const std::string &privateDirectory() {
    static const PrivateDirectory directory;
    return directory.path();
}

LogFaults g_faults;
std::atomic<unsigned> g_opens = 0;

bool isLogName(const char *path) {
    return std::strcmp(path, CURRENT_LOG) == 0 || std::strcmp(path, PREVIOUS_LOG) == 0 ||
           std::strcmp(path, AUXILIARY_LOG) == 0;
}

bool refuseStatus(const char *path) {
    if (!g_faults.statusQueries || !isLogName(path)) { return false; }
    errno = EIO;
    return true;
}

bool refuseOpen(const char *path) {
    if (!isLogName(path)) { return false; }
    g_opens++;
    if (g_faults.opens) { errno = EACCES; }
    return g_faults.opens;
}

} // namespace

std::string privatePath(const char *path) {
    if (!isLogName(path)) { return path; }
    return privateDirectory() + std::strrchr(path, '/');
}

void removeLogs() {
    for (const char *name : {CURRENT_LOG, PREVIOUS_LOG, AUXILIARY_LOG}) {
        std::filesystem::remove_all(privatePath(name));
    }
    g_opens = 0;
}

void setLogFaults(LogFaults faults) { g_faults = faults; }

unsigned logOpens() { return g_opens; }

} // namespace support

// The linker sends the library's calls here (--wrap). The status record is passed on untouched.
extern "C" {
int __real_open(const char *path, int flags, ...);
int __real_open64(const char *path, int flags, ...);
FILE *__real_fopen(const char *path, const char *mode);
FILE *__real_fopen64(const char *path, const char *mode);
int __real_stat(const char *path, void *status);
int __real_stat64(const char *path, void *status);
int __real_lstat(const char *path, void *status);
int __real_lstat64(const char *path, void *status);
int __real_rename(const char *from, const char *to);

int __wrap_open(const char *path, int flags, ...);
int __wrap_open64(const char *path, int flags, ...);
FILE *__wrap_fopen(const char *path, const char *mode);
FILE *__wrap_fopen64(const char *path, const char *mode);
int __wrap_stat(const char *path, void *status);
int __wrap_stat64(const char *path, void *status);
int __wrap_lstat(const char *path, void *status);
int __wrap_lstat64(const char *path, void *status);
int __wrap_rename(const char *from, const char *to);

int __wrap_open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (support::refuseOpen(path)) { return -1; }
    return __real_open(support::privatePath(path).c_str(), flags, mode);
}

int __wrap_open64(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (support::refuseOpen(path)) { return -1; }
    return __real_open64(support::privatePath(path).c_str(), flags, mode);
}

FILE *__wrap_fopen(const char *path, const char *mode) {
    if (support::refuseOpen(path)) { return nullptr; }
    return __real_fopen(support::privatePath(path).c_str(), mode);
}

FILE *__wrap_fopen64(const char *path, const char *mode) {
    if (support::refuseOpen(path)) { return nullptr; }
    return __real_fopen64(support::privatePath(path).c_str(), mode);
}

int __wrap_stat(const char *path, void *status) {
    return support::refuseStatus(path) ? -1
                                       : __real_stat(support::privatePath(path).c_str(), status);
}

int __wrap_stat64(const char *path, void *status) {
    return support::refuseStatus(path) ? -1
                                       : __real_stat64(support::privatePath(path).c_str(), status);
}

int __wrap_lstat(const char *path, void *status) {
    return support::refuseStatus(path) ? -1
                                       : __real_lstat(support::privatePath(path).c_str(), status);
}

int __wrap_lstat64(const char *path, void *status) {
    return support::refuseStatus(path) ? -1
                                       : __real_lstat64(support::privatePath(path).c_str(), status);
}

int __wrap_rename(const char *from, const char *to) {
    return __real_rename(support::privatePath(from).c_str(), support::privatePath(to).c_str());
}
}
