#include "platform/ipc/directory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

#include "platform/ipc/descriptor.h"
#include "platform/ipc/failure.h"
#include "platform/ipc/ipc_server.h"

namespace smspb::ipc {

namespace {

namespace fs = std::filesystem;

constexpr mode_t OWNER_FOLDER = 0700;

std::string absoluteFrom(const char *variable, const char *value) {
    const fs::path path = fs::path(value).lexically_normal();
    if (!path.is_absolute()) {
        refuse(EINVAL, std::string(variable) + "=" + value + " is not an absolute path");
    }
    // A trailing slash would make lstat() look behind a link.
    return path.has_filename() ? path : path.parent_path();
}

// The value that a variable had last, and what it came to: paths are slow to put in order, and
// every message needs this one.
struct Absolute {
    std::string value, path;

    const std::string &from(const char *variable, const char *now) {
        if (value != now) {
            path = absoluteFrom(variable, now);
            value = now;
        }
        return path;
    }
};

std::string chosenDirectory() {
    thread_local Absolute chosen, users;
    if (const char *own = secure_getenv("SMSPB_RUNTIME_DIR"); own != nullptr && *own != '\0') {
        return chosen.from("SMSPB_RUNTIME_DIR", own);
    }
    if (geteuid() == 0) { return "/run/smspb"; }
    if (const char *user = secure_getenv("XDG_RUNTIME_DIR"); user != nullptr && *user != '\0') {
        return users.from("XDG_RUNTIME_DIR", user) + "/smspb";
    }
    refuse(ENOENT, "no runtime directory: set SMSPB_RUNTIME_DIR or XDG_RUNTIME_DIR");
}

// What is wrong with it; empty when nothing is.
struct Objection {
    int error = 0;
    std::string what;
};

Objection objectionTo(const struct stat &status) {
    if (S_ISLNK(status.st_mode)) { return {ELOOP, " is a symbolic link"}; }
    if (!S_ISDIR(status.st_mode)) { return {ENOTDIR, " is not a directory"}; }
    if (status.st_uid != geteuid()) {
        return {EPERM, " belongs to user " + std::to_string(status.st_uid) + ", not to us"};
    }
    if ((status.st_mode & 0777) != OWNER_FOLDER) {
        return {EPERM, " must be open to its owner only: chmod 700 it"};
    }
    return {};
}

std::string checkedDirectory() {
    std::string directory = chosenDirectory();
    struct stat status {};
    if (lstat(directory.c_str(), &status) != 0) {
        const bool isThere = mkdir(directory.c_str(), OWNER_FOLDER) == 0 || errno == EEXIST;
        if (!isThere || lstat(directory.c_str(), &status) != 0) {
            fail(errno, "cannot create the runtime directory " + directory);
        }
    }
    const Objection objection = objectionTo(status);
    if (objection.error != 0) {
        refuse(objection.error, "runtime directory " + directory + objection.what);
    }
    return directory;
}

// The counter lives in a file that every process maps: one atomic step, whoever takes it. The
// mapping is kept for the next number; a lock would not survive a fork, so each thread has its own.
class SharedCounter {
public:
    SharedCounter() = default;
    SharedCounter(const SharedCounter &) = delete;
    SharedCounter &operator=(const SharedCounter &) = delete;
    ~SharedCounter() { close(); }

    u32 next(const std::string &path) {
        if (!isMapped(path)) { map(path); }
        std::atomic_ref<u32> counter(*page_);
        u32 number = 0;
        while (number == 0) { number = ++counter; }
        return number;
    }

private:
    // False also when the file was replaced or cut since.
    bool isMapped(const std::string &path) const {
        struct stat status {};
        return page_ != nullptr && lstat(path.c_str(), &status) == 0 && status.st_dev == device_ &&
               status.st_ino == inode_ && status.st_size >= static_cast<off_t>(sizeof(u32));
    }

    void map(const std::string &path) {
        close();
        const Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        struct stat status {};
        if (!file.isOpen() || fstat(file.get(), &status) != 0) { fail(errno, path); }
        if (status.st_size < static_cast<off_t>(sizeof(u32))) {
            // Allocated, not only extended: a full file system must fail here, not in the mapping.
            if (const int error = posix_fallocate(file.get(), 0, sizeof(u32)); error != 0) {
                fail(error, path);
            }
        }
        void *page = mmap(nullptr, sizeof(u32), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
        if (page == MAP_FAILED) { fail(errno, "cannot map the session counter"); }
        page_ = static_cast<u32 *>(page);
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }

    void close() {
        if (page_ != nullptr) { munmap(std::exchange(page_, nullptr), sizeof(u32)); }
    }

    u32 *page_ = nullptr;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace

fs::path runtimeDirectory() { return checkedDirectory(); }

std::string runtimePath(std::string_view name) {
    std::string path = checkedDirectory();
    if (!path.ends_with('/')) { path += '/'; }
    return path.append(name);
}

std::string destinationName(u32 dest_id) { return "dest-" + std::to_string(dest_id); }

std::string queueName(u32 mq) { return "mq-" + std::to_string(mq); }

std::string subscriberPrefix(u32 messageId) {
    char prefix[24];
    std::snprintf(prefix, sizeof(prefix), "notify-%08x-", messageId);
    return prefix;
}

u32 nextSharedNumber() {
    thread_local SharedCounter counter;
    return counter.next(runtimePath("sessions"));
}

} // namespace smspb::ipc
