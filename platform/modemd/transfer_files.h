// Files for replies that are too long for a response, each with a name that cannot be guessed and
// readable by our own user alone, or by the group as well that the runtime directory is open to.
#ifndef SMSPB_PLATFORM_MODEMD_TRANSFER_FILES_H
#define SMSPB_PLATFORM_MODEMD_TRANSFER_FILES_H

#include <chrono>
#include <deque>
#include <filesystem>
#include <optional>
#include <string_view>

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

namespace smspb::modemd {

class TransferFiles {
public:
    // Files live for `keep`: whoever asked reads them at once, but a slow one gets the time. What a
    // killed predecessor left in the directory is removed.
    TransferFiles(asio::io_context &loop, std::filesystem::path directory,
                  std::optional<gid_t> readers, std::chrono::seconds keep);
    TransferFiles(const TransferFiles &) = delete;
    TransferFiles &operator=(const TransferFiles &) = delete;
    // Removes all that are left.
    ~TransferFiles();

    // Throws std::system_error; nothing is left behind then.
    std::filesystem::path write(std::string_view text);
    // Lets the event loop end; the files stay until the destructor.
    void stop() { timer_.cancel(); }

private:
    static constexpr std::size_t FILES_MAX = 256; // the oldest goes first

    struct File {
        std::filesystem::path path;
        std::chrono::steady_clock::time_point expiry;
    };

    void removeOldest();
    void removeExpired();

    std::filesystem::path directory_;
    std::optional<gid_t> readers_;
    std::chrono::seconds keep_;
    asio::steady_timer timer_; // for the oldest file
    std::deque<File> files_;
};

} // namespace smspb::modemd

#endif
