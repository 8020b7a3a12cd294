#include "platform/modemd/service_manager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace smspb::modemd {

void tellServiceManager(std::string_view state) {
    const char *const path = std::getenv("NOTIFY_SOCKET");
    const std::size_t length = path != nullptr ? std::strlen(path) : 0;
    sockaddr_un address{};
    const bool isName = length > 1 && (*path == '/' || *path == '@');
    if (!isName || length >= sizeof(address.sun_path)) { return; }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (*path == '@') { address.sun_path[0] = '\0'; } // no file, a name of the kernel's
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) { return; }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    ::sendto(fd, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
             reinterpret_cast<const sockaddr *>(&address), size);
    ::close(fd);
}

} // namespace smspb::modemd
