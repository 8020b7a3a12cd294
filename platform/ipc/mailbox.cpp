#include "platform/ipc/mailbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "platform/ipc/access.h"
#include "platform/ipc/directory.h"
#include "platform/ipc/failure.h"
#include "platform/ipc/waiting.h"

namespace smspb::ipc {

namespace {

namespace fs = std::filesystem;

// Of peers that connect and say nothing, the oldest is dropped beyond this many.
constexpr size_t SILENT_SENDERS_MAX = 64;
// Of peers that have their answer and may ask again, the oldest is let go beyond this many: it
// connects anew.
constexpr size_t KEPT_SENDERS_MAX = 64;
// How long a peer that was accepted on the spare descriptor has for its message: that one cannot be
// left for later.
constexpr std::chrono::milliseconds SPARE_WAIT{250};
constexpr mode_t OWNER_FILE = 0600;

Address addressOf(const fs::path &path) {
    Address address{};
    if (makeAddress(path, &address) != 0) {
        refuse(ENAMETOOLONG, "socket path " + path.string() + " is longer than " +
                                 std::to_string(sizeof(address.name.sun_path) - 1) +
                                 " characters: choose a shorter SMSPB_RUNTIME_DIR");
    }
    return address;
}

std::string holderOf(int lock) {
    char pid[16] = {};
    return pread(lock, pid, sizeof(pid) - 1, 0) > 0 ? "process " + std::string(pid)
                                                    : "another process";
}

// The kernel lets go of the lock when its holder dies, however it dies.
Descriptor lockName(const fs::path &path, const std::string &what) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, OWNER_FILE));
    if (!file.isOpen()) { fail(errno, path.string()); }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) { fail(errno, path.string()); }
        refuse(EADDRINUSE, what + " is already served by " + holderOf(file.get()));
    }
    const std::string pid = std::to_string(getpid());
    if (ftruncate(file.get(), 0) != 0 ||
        pwrite(file.get(), pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        fail(errno, path.string());
    }
    return file;
}

bool watch(int poller, int fd, u32 events = EPOLLIN, int step = EPOLL_CTL_ADD) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(poller, step, fd, &event) == 0;
}

// A connection that is kept for its answer must not make the mailbox look full when it hangs up.
void stopWatching(int poller, int fd) { epoll_ctl(poller, EPOLL_CTL_DEL, fd, nullptr); }

Descriptor openSpare() { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

// The descriptor that has been ready for longest; -1 for none.
int firstReady(int poller) {
    epoll_event event{};
    return epoll_wait(poller, &event, 1, 0) == 1 ? event.data.fd : -1;
}

bool isReadable(int fd) {
    pollfd event = {fd, POLLIN, 0};
    return poll(&event, 1, 0) > 0;
}

} // namespace

std::unique_ptr<Mailbox> Mailbox::exclusive(const std::string &name, const std::string &what,
                                            Welcome welcome) {
    const fs::path path = runtimeDirectory() / name;
    auto mailbox = std::make_unique<Mailbox>(std::move(welcome));
    const std::lock_guard lock(processMutex());
    mailbox->lock_ = lockName(path.string() + ".lock", what);
    fs::remove(path); // what a dead holder left behind
    mailbox->listenAt(path);
    enroll(mailbox.get());
    return mailbox;
}

// A name that notifications are sent to must lead to a socket that listens from its first moment
// on: else its notifier would take it for a dead subscriber's and remove it. So it is a second
// name.
std::unique_ptr<Mailbox> Mailbox::shared(const std::vector<std::string> &prefixes,
                                         Welcome welcome) {
    const fs::path directory = runtimeDirectory();
    const std::string suffix = std::to_string(getpid()) + "-" + std::to_string(nextSharedNumber());
    auto mailbox = std::make_unique<Mailbox>(std::move(welcome));
    const std::lock_guard lock(processMutex());
    mailbox->listenAt(directory / ("subscriber-" + suffix));
    for (const std::string &prefix : prefixes) { mailbox->alsoAt(directory / (prefix + suffix)); }
    mailbox->forgetFirstName();
    enroll(mailbox.get());
    return mailbox;
}

Mailbox::~Mailbox() {
    const std::lock_guard lock(processMutex());
    dismiss(this);
    for (const fs::path &name : names_) { unlink(name.c_str()); }
    abandon();
}

void Mailbox::abandon() {
    names_.clear();
    silent_.clear();
    kept_.clear();
    spare_.reset();
    poller_.reset();
    listener_.reset();
    lock_.reset();
}

void Mailbox::listenAt(const fs::path &path) {
    const Address address = addressOf(path);
    listener_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    poller_.reset(epoll_create1(EPOLL_CLOEXEC));
    spare_ = openSpare();
    if (!listener_.isOpen() || !poller_.isOpen()) { fail(errno, path.string()); }
    const auto *name = reinterpret_cast<const sockaddr *>(&address.name);
    if (bind(listener_.get(), name, sizeof(address.name)) != 0) { fail(errno, path.string()); }
    names_.push_back(path);
    if (const int error = openToOthers(path); error != 0) { fail(error, path.string()); }
    if (listen(listener_.get(), SOMAXCONN) != 0 || !watch(poller_.get(), listener_.get())) {
        fail(errno, path.string());
    }
}

void Mailbox::alsoAt(const fs::path &path) {
    addressOf(path);
    fs::create_hard_link(names_.front(), path);
    names_.push_back(path);
}

void Mailbox::forgetFirstName() {
    unlink(names_.front().c_str());
    names_.erase(names_.begin());
}

std::optional<Block> Mailbox::receive(std::chrono::milliseconds wait) {
    if (!poller_.isOpen()) {
        throw std::logic_error("this process inherited the mailbox: it has to open its own");
    }
    const Deadline deadline = deadlineAfter(wait);
    do {
        if (auto block = take()) { return block; }
    } while (waitReadable(poller_.get(), deadline));
    return std::nullopt;
}

std::optional<Block> Mailbox::take() {
    const std::lock_guard lock(processMutex());
    while (auto sender = nextReady()) {
        if (auto block = readMessage(std::move(*sender))) { return block; }
    }
    return std::nullopt;
}

// The kernel gives what became ready in that order. A kept sender waits for its answer once it has
// asked, so nothing that others sent can have come after its request in any other sense than that
// of time: new senders first is in order.
std::optional<Sender> Mailbox::nextReady() {
    for (;;) {
        if (auto sender = oldestReady()) { return sender; }
        const int fd = firstReady(poller_.get());
        if (fd < 0) { break; }
        if (auto sender = takeKept(fd)) { return sender; }
        acceptNext();
    }
    watchSilent();
    return std::nullopt;
}

void Mailbox::keep(Sender sender) {
    const int fd = sender.connection.get();
    const int step = std::exchange(sender.isWatched, true) ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (!watch(poller_.get(), fd, EPOLLIN | EPOLLONESHOT, step)) { return; }
    if (kept_.size() == KEPT_SENDERS_MAX) { dropOldestKept(); }
    kept_.push_back(std::move(sender));
}

// Its poller tells of a kept sender once, until it is kept again.
std::optional<Sender> Mailbox::takeKept(int fd) {
    const auto found = std::find_if(kept_.begin(), kept_.end(),
                                    [fd](const Sender &s) { return s.connection.get() == fd; });
    if (found == kept_.end()) { return std::nullopt; }
    Sender sender = std::move(*found);
    kept_.erase(found);
    return sender;
}

void Mailbox::dropOldestKept() {
    stopWatching(poller_.get(), kept_.front().connection.get());
    kept_.erase(kept_.begin());
}

// Who has said nothing yet wakes the poller later; most have spoken when they are accepted.
void Mailbox::watchSilent() {
    std::erase_if(silent_, [this](Sender &sender) {
        if (!sender.isWatched) { sender.isWatched = watch(poller_.get(), sender.connection.get()); }
        return !sender.isWatched;
    });
}

// A process that sent twice connected twice, in that order, and sent the first before it connected
// for the second. Looking from the youngest to the oldest therefore never overtakes: what was sent
// before the message that is there has been sent by the time its connection is looked at.
std::optional<Sender> Mailbox::oldestReady() {
    size_t oldest = silent_.size();
    for (size_t i = silent_.size(); i-- > 0;) {
        if (isReadable(silent_[i].connection.get())) { oldest = i; }
    }
    if (oldest == silent_.size()) { return std::nullopt; }
    Sender sender = std::move(silent_[oldest]);
    silent_.erase(silent_.begin() + static_cast<std::ptrdiff_t>(oldest));
    if (std::exchange(sender.isWatched, false)) {
        stopWatching(poller_.get(), sender.connection.get());
    }
    return sender;
}

// The oldest of the process that has most of them: whoever opens too many pays for it himself.
void Mailbox::dropSilent() {
    const auto countOf = [this](const Sender &sender) {
        return std::count_if(silent_.begin(), silent_.end(), [&sender](const Sender &other) {
            return other.peer.process == sender.peer.process;
        });
    };
    silent_.erase(std::max_element(
        silent_.begin(), silent_.end(),
        [&countOf](const Sender &a, const Sender &b) { return countOf(a) < countOf(b); }));
}

void Mailbox::acceptNext() {
    Sender sender = acceptSender();
    const int fd = sender.connection.get();
    if (fd < 0) { return; }
    const bool staysSilent = sender.usesSpare && !waitReadable(fd, deadlineAfter(SPARE_WAIT));
    const std::optional<Peer> peer = peerOf(fd);
    if (!peer || !isTrusted(fd, *peer) || staysSilent) { return; }
    sender.peer = *peer;
    if (silent_.size() == SILENT_SENDERS_MAX) { dropSilent(); }
    silent_.push_back(std::move(sender));
}

Sender Mailbox::acceptSender() {
    if (!spare_.isOpen()) { spare_ = openSpare(); }
    Sender sender;
    auto *name = reinterpret_cast<sockaddr *>(&sender.name);
    socklen_t size = sizeof(sender.name);
    sender.connection.reset(accept4(listener_.get(), name, &size, SOCK_CLOEXEC));
    if (!sender.connection.isOpen() && (errno == EMFILE || errno == ENFILE) && !kept_.empty()) {
        dropOldestKept();
        sender.connection.reset(accept4(listener_.get(), name, &size, SOCK_CLOEXEC));
    }
    if (!sender.connection.isOpen() && (errno == EMFILE || errno == ENFILE)) {
        spare_.reset();
        sender.usesSpare = true;
        sender.connection.reset(accept4(listener_.get(), name, &size, SOCK_CLOEXEC));
    }
    return sender;
}

// The message as a block, an ordinary one with its sender's address; nothing when it is refused. A
// request that came on the spare descriptor is: there is none to keep its sender waiting with.
std::optional<Block> Mailbox::readMessage(Sender sender) {
    Header header{};
    const int fd = sender.connection.get();
    const ssize_t size = peekHeader(fd, &header);
    const Peer peer = sender.peer;
    const bool mayStay = header.kind != REQUEST || !sender.usesSpare;
    if (size <= 0 || !isWellFormed(header, size) || !welcome_(header) || !mayStay) {
        return std::nullopt;
    }
    const u32 payload = static_cast<u32>(size) - headerOctets(header.kind);
    const bool isQueued = header.kind == QUEUED;
    const u32 room = isQueued ? payload : roundUpTo4(payload) + IPC_ADDRESS_SIZE;
    void *block = ipc_memory_assign(room, isQueued ? QUEUED : ONE_WAY);
    if (block == nullptr) { return std::nullopt; }
    recv(fd, block, static_cast<size_t>(size), MSG_DONTWAIT);
    if (isQueued) { return Block(block, peer); }
    Address address = {0, sender.name};
    if (header.kind == REQUEST) {
        address.waiting = keepWaiting(this, std::move(sender), header.sessionId);
    }
    std::memcpy(payloadStart(block) + roundUpTo4(payload), &address, sizeof(address));
    return Block(block, peer);
}

} // namespace smspb::ipc
