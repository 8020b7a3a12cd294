#include "platform/ipc/idle.h"

#include <pthread.h>
#include <sys/stat.h>

#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace smspb::ipc {

namespace {

// More than this many threads that ask at the same moment connect anew.
constexpr size_t IDLE_MAX = 4;

// The socket behind the number; 0 for none.
ino_t inodeOf(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode) ? status.st_ino : 0;
}

// A program may close descriptors that it does not know, as daemons do when they begin, and get the
// number back for something else. That is not ours to use or close.
class IdleConnection {
public:
    IdleConnection(const sockaddr_un &to, Descriptor connection)
        : to_(to), user_(geteuid()), inode_(inodeOf(connection.get())),
          connection_(std::move(connection)) {}
    IdleConnection(IdleConnection &&) noexcept = default;
    IdleConnection &operator=(IdleConnection &&other) noexcept {
        disownStranger();
        to_ = other.to_;
        user_ = other.user_;
        inode_ = other.inode_;
        connection_ = std::move(other.connection_);
        return *this;
    }
    ~IdleConnection() { disownStranger(); }

    bool leadsTo(const sockaddr_un &name) const {
        return std::strcmp(to_.sun_path, name.sun_path) == 0;
    }
    // Closed when it is not what it was: a server would take it for another user's.
    Descriptor take() {
        disownStranger();
        if (user_ != geteuid()) { connection_.reset(); }
        return std::move(connection_);
    }

private:
    void disownStranger() {
        if (connection_.isOpen() && inodeOf(connection_.get()) != inode_) { connection_.release(); }
    }

    sockaddr_un to_;
    uid_t user_;
    ino_t inode_;
    Descriptor connection_;
};

struct Pool {
    std::mutex mutex;
    std::vector<IdleConnection> connections; // the longest idle first
};

// Never destroyed: a thread may ask while the program ends.
Pool &pool() {
    static auto *instance = new Pool;
    return *instance;
}

void lockIdle() { pool().mutex.lock(); }
void unlockIdle() { pool().mutex.unlock(); }

// They are the parent's: two processes on one connection would take each other's answers.
void closeIdleInChild() {
    pool().connections.clear();
    pool().mutex.unlock();
}

} // namespace

Descriptor takeIdle(const Address &address) {
    const std::lock_guard lock(pool().mutex);
    std::vector<IdleConnection> &all = pool().connections;
    Descriptor found;
    for (size_t i = all.size(); i-- > 0 && !found.isOpen();) {
        if (!all[i].leadsTo(address.name)) { continue; }
        found = all[i].take();
        all.erase(all.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return found;
}

void keepIdle(const Address &address, Descriptor connection) {
    static const int registered = pthread_atfork(lockIdle, unlockIdle, closeIdleInChild);
    if (registered != 0) { return; }
    try {
        const std::lock_guard lock(pool().mutex);
        std::vector<IdleConnection> &all = pool().connections;
        if (all.size() == IDLE_MAX) { all.erase(all.begin()); }
        all.emplace_back(address.name, std::move(connection));
    } catch (const std::bad_alloc &) { return; }
}

} // namespace smspb::ipc
