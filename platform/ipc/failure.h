// What the constructors and runtimeDirectory() throw. The code goes to those that report by number.
#ifndef SMSPB_PLATFORM_IPC_FAILURE_H
#define SMSPB_PLATFORM_IPC_FAILURE_H

#include <string>
#include <system_error>
#include <utility>

namespace smspb::ipc {

// Says all by itself, where the system's words for the code would only confuse.
class Refusal : public std::system_error {
public:
    Refusal(int error, std::string text)
        : std::system_error(error, std::generic_category()), text_(std::move(text)) {}
    const char *what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

[[noreturn]] inline void refuse(int error, std::string text) {
    throw Refusal(error, std::move(text));
}

// The system refused: `what` it was asked for, then its own words.
[[noreturn]] inline void fail(int error, const std::string &what) {
    throw std::system_error(error, std::generic_category(), what);
}

} // namespace smspb::ipc

#endif
