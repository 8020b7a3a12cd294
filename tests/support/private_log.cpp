#include "private_log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

bool g_failStatusQueries = false;

bool isLogName(const char *path) {
    return std::strcmp(path, CURRENT_LOG) == 0 || std::strcmp(path, PREVIOUS_LOG) == 0 ||
           std::strcmp(path, AUXILIARY_LOG) == 0;
}

bool refuseStatus(const char *path) {
    if (!g_failStatusQueries || !isLogName(path)) { return false; }
    errno = EIO;
    return true;
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
}

void failStatusQueries(bool fail) { g_failStatusQueries = fail; }

} // namespace support

// The linker sends the library's calls here (--wrap). The status record is passed on untouched.
extern "C" {
FILE *__real_fopen(const char *path, const char *mode);
FILE *__real_fopen64(const char *path, const char *mode);
int __real_stat(const char *path, void *status);
int __real_stat64(const char *path, void *status);
int __real_rename(const char *from, const char *to);

FILE *__wrap_fopen(const char *path, const char *mode);
FILE *__wrap_fopen64(const char *path, const char *mode);
int __wrap_stat(const char *path, void *status);
int __wrap_stat64(const char *path, void *status);
int __wrap_rename(const char *from, const char *to);

FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(support::privatePath(path).c_str(), mode);
}

FILE *__wrap_fopen64(const char *path, const char *mode) {
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

int __wrap_rename(const char *from, const char *to) {
    return __real_rename(support::privatePath(from).c_str(), support::privatePath(to).c_str());
}
}
