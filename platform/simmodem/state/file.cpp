#include "platform/simmodem/state/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace smspb::simmodem {
namespace {

[[noreturn]] void refuseFile(const std::filesystem::path &path, const std::string &why) {
    throw std::runtime_error(path.string() + ": " + why);
}

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (isOpen()) { ::close(fd_); }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

void lock(const Descriptor &file, const std::filesystem::path &path) {
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) { return; }
    refuseFile(path, errno == EWOULDBLOCK ? "another simulated modem keeps its state there"
                                          : std::generic_category().message(errno));
}

bool writeWhole(const Descriptor &file, std::string_view content) {
    if (::ftruncate(file.get(), 0) != 0) { return false; }
    while (!content.empty()) {
        const ssize_t size = ::write(file.get(), content.data(), content.size());
        if (size < 0 && errno != EINTR) { return false; }
        content.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    return true;
}

// So that the new name outlives the power as well. Not every file system can.
void syncFolder(const std::filesystem::path &path) {
    const Descriptor folder(::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.isOpen()) { ::fsync(folder.get()); }
}

struct CloseStream {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};

} // namespace

std::string readFile(const std::filesystem::path &path, std::size_t octetsMax) {
    const std::unique_ptr<std::FILE, CloseStream> in(std::fopen(path.c_str(), "re"));
    if (in == nullptr) { refuseFile(path, std::generic_category().message(errno)); }
    std::string text;
    std::array<char, 65536> buffer{};
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), in.get())) {
        text.append(buffer.data(), size);
        if (text.size() > octetsMax) {
            refuseFile(path, "too large, " + std::to_string(octetsMax) + " octets at most");
        }
    }
    if (std::ferror(in.get()) != 0) { refuseFile(path, std::generic_category().message(errno)); }
    return text;
}

ReplacedFile::ReplacedFile(const std::filesystem::path &path)
    : path_(std::filesystem::weakly_canonical(std::filesystem::absolute(path))) {
    Descriptor file(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen() && errno == ENOENT) { return; }
    if (!file.isOpen()) { refuseFile(path_, std::generic_category().message(errno)); }
    struct stat opened {};
    if (::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode)) {
        refuseFile(path_, "no regular file");
    }
    lock(file, path_);
    locked_ = file.release();
}

ReplacedFile::~ReplacedFile() {
    if (locked_ >= 0) { ::close(locked_); }
}

void ReplacedFile::replace(const std::string &content) {
    const std::filesystem::path fresh = path_.string() + ".new";
    Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen()) { refuseFile(fresh, std::generic_category().message(errno)); }
    lock(file, path_);
    if (!writeWhole(file, content) || ::fsync(file.get()) != 0 ||
        ::rename(fresh.c_str(), path_.c_str()) != 0) {
        const int error = errno;
        ::unlink(fresh.c_str());
        refuseFile(path_, std::generic_category().message(error));
    }
    syncFolder(path_);
    if (locked_ >= 0) { ::close(locked_); }
    locked_ = file.release(); // locked before it got its name
}

} // namespace smspb::simmodem
