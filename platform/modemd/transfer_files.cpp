#include "platform/modemd/transfer_files.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace smspb::modemd {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char *NAME_PREFIX = "transfer-";

// 0, or the error that stopped it.
int writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) { return errno; }
        if (count > 0) { text.remove_prefix(static_cast<std::size_t>(count)); }
    }
    return 0;
}

// 0, or the error that forbids it.
int letRead(int fd, gid_t readers) {
    const bool isDone =
        ::fchown(fd, static_cast<uid_t>(-1), readers) == 0 && ::fchmod(fd, 0640) == 0;
    return isDone ? 0 : errno;
}

void removeLeftovers(const fs::path &directory) {
    std::error_code ignored;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory, ignored)) {
        if (entry.path().filename().native().starts_with(NAME_PREFIX)) {
            fs::remove(entry.path(), ignored);
        }
    }
}

} // namespace

TransferFiles::TransferFiles(asio::io_context &loop, fs::path directory,
                             std::optional<gid_t> readers, std::chrono::seconds keep)
    : directory_(std::move(directory)), readers_(readers), keep_(keep), timer_(loop) {
    removeLeftovers(directory_);
}

TransferFiles::~TransferFiles() {
    while (!files_.empty()) { removeOldest(); }
}

fs::path TransferFiles::write(std::string_view text) {
    std::string name = directory_ / (std::string(NAME_PREFIX) + "XXXXXX");
    const int fd = ::mkostemp(name.data(), O_CLOEXEC); // exclusive, mode 0600
    int error = fd < 0 ? errno : writeAll(fd, text);
    if (error == 0 && readers_) { error = letRead(fd, *readers_); }
    if (fd >= 0 && ::close(fd) != 0 && error == 0) { error = errno; }
    if (error != 0) {
        if (fd >= 0) { ::unlink(name.c_str()); }
        throw std::system_error(error, std::generic_category(), name);
    }
    if (files_.size() == FILES_MAX) { removeOldest(); }
    files_.push_back({name, Clock::now() + keep_});
    if (files_.size() == 1) { removeExpired(); }
    return name;
}

void TransferFiles::removeOldest() {
    std::error_code ignored;
    fs::remove(files_.front().path, ignored);
    files_.pop_front();
}

// Removes what is due and waits for the next.
void TransferFiles::removeExpired() {
    while (!files_.empty() && files_.front().expiry <= Clock::now()) { removeOldest(); }
    if (files_.empty()) { return; }
    timer_.expires_at(files_.front().expiry);
    timer_.async_wait([this](asio::error_code error) {
        if (!error) { removeExpired(); }
    });
}

} // namespace smspb::modemd
