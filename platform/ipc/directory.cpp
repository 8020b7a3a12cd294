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

#include "platform/ipc/access.h"
#include "platform/ipc/descriptor.h"
#include "platform/ipc/failure.h"
#include "platform/ipc/ipc_server.h"

namespace smspb::ipc {

namespace {

namespace fs = std::filesystem;

constexpr const char *COUNTER_NAME = "sessions";
constexpr const char *SYSTEM_FOLDER = "/run/smspb";

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

bool isOpenToUs(const char *directory) {
    return faccessat(AT_FDCWD, directory, R_OK | W_OK | X_OK, AT_EACCESS) == 0;
}

std::string chosenDirectory() {
    thread_local Absolute chosen, users;
    if (const char *own = secure_getenv("SMSPB_RUNTIME_DIR"); own != nullptr && *own != '\0') {
        return chosen.from("SMSPB_RUNTIME_DIR", own);
    }
    if (geteuid() == 0 || isOpenToUs(SYSTEM_FOLDER)) { return SYSTEM_FOLDER; }
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

bool isOwners(const struct stat &status) { return (status.st_mode & 0777) == OWNERS_FOLDER; }

bool isGroups(const struct stat &status) {
    return (status.st_mode & (S_ISVTX | 0777)) == GROUPS_FOLDER;
}

Objection objectionTo(const struct stat &status) {
    if (S_ISLNK(status.st_mode)) { return {ELOOP, " is a symbolic link"}; }
    if (!S_ISDIR(status.st_mode)) { return {ENOTDIR, " is not a directory"}; }
    if (!isOwners(status) && !isGroups(status)) {
        return {EPERM, " must be open to its owner only, or to a group: chmod 700 or 1770 it"};
    }
    const std::optional<gid_t> group = groupOf(status);
    if (status.st_uid == geteuid() || (group && isMember(*group))) { return {}; }
    if (group) {
        return {EPERM, " is open to group " + std::to_string(*group) + ", and we are no member"};
    }
    return {EPERM, " belongs to user " + std::to_string(status.st_uid) + ", not to us"};
}

struct Directory {
    std::string path;
    struct stat status {};
};

Directory checkedDirectory() {
    Directory directory{chosenDirectory(), {}};
    const char *path = directory.path.c_str();
    if (lstat(path, &directory.status) != 0) {
        const bool isThere = mkdir(path, OWNERS_FOLDER) == 0 || errno == EEXIST;
        if (!isThere || lstat(path, &directory.status) != 0) {
            fail(errno, "cannot create the runtime directory " + directory.path);
        }
    }
    const Objection objection = objectionTo(directory.status);
    if (objection.error != 0) {
        refuse(objection.error, "runtime directory " + directory.path + objection.what);
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
        if (status.st_uid == geteuid()) {
            if (const int error = openToOthers(path); error != 0) { fail(error, path); }
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

fs::path runtimeDirectory() { return checkedDirectory().path; }

std::optional<gid_t> runtimeGroup() { return groupOf(checkedDirectory().status); }

void setRuntimeGroup(std::optional<gid_t> group) {
    const Directory directory = checkedDirectory();
    const char *path = directory.path.c_str();
    const auto sameUser = static_cast<uid_t>(-1);
    const bool isSo = groupOf(directory.status) == group;
    if (!isSo && ((group && chown(path, sameUser, *group) != 0) ||
                  chmod(path, group ? GROUPS_FOLDER : OWNERS_FOLDER) != 0)) {
        fail(errno, "cannot open the runtime directory " + directory.path + " to " +
                        (group ? "group " + std::to_string(*group) : "its owner alone"));
    }
    nextSharedNumber(); // creates the file, which follows the directory
    if (directory.status.st_uid == geteuid()) { openToOthers(runtimePath(COUNTER_NAME)); }
}

std::string runtimePath(std::string_view name) {
    std::string path = checkedDirectory().path;
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
    return counter.next(runtimePath(COUNTER_NAME));
}

} // namespace smspb::ipc
