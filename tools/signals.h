// Signals as something to wait for among other things.
#ifndef SMSPB_TOOLS_SIGNALS_H
#define SMSPB_TOOLS_SIGNALS_H

#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "platform/ipc/descriptor.h"

namespace smspb::cli {

// Thrown when the user interrupts.
struct Interrupted {
    int signal;
};

// The watched signals, read from a descriptor instead of interrupting. Children set them back.
class SignalWatch {
public:
    SignalWatch() {
        sigset_t watched;
        sigemptyset(&watched);
        for (const int number : WATCHED) { sigaddset(&watched, number); }
        sigprocmask(SIG_BLOCK, &watched, &former_);
        fd_ = ipc::Descriptor(signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    ~SignalWatch() { setBack(); }
    SignalWatch(const SignalWatch &) = delete;
    SignalWatch &operator=(const SignalWatch &) = delete;

    int fd() const { return fd_.get(); }
    void setBack() const { sigprocmask(SIG_SETMASK, &former_, nullptr); }
    const sigset_t &former() const { return former_; }

    // The next signal that came, 0 for none.
    int take() const {
        signalfd_siginfo info{};
        const ssize_t size = ::read(fd_.get(), &info, sizeof(info));
        return size == static_cast<ssize_t>(sizeof(info)) ? static_cast<int>(info.ssi_signo) : 0;
    }

private:
    static constexpr std::array WATCHED = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD};

    sigset_t former_{};
    ipc::Descriptor fd_;
};

} // namespace smspb::cli

#endif
