// One owner per file descriptor.
#ifndef SMSPB_PLATFORM_IPC_DESCRIPTOR_H
#define SMSPB_PLATFORM_IPC_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace smspb::ipc {

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) { reset(std::exchange(other.fd_, -1)); }
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    // Lets go of it without closing it.
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (isOpen()) { close(fd_); }
        fd_ = fd;
    }

private:
    int fd_;
};

} // namespace smspb::ipc

#endif
