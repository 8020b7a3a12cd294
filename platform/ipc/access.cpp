#include "platform/ipc/access.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "platform/ipc/ipc_server.h"

namespace smspb::ipc {

namespace {

constexpr mode_t OWNERS_FILE = 0600;
constexpr mode_t GROUPS_FILE = 0660;
constexpr mode_t GROUP_BITS = 0070;

bool contains(const std::vector<gid_t> &groups, gid_t group) {
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

// Before 4.13 the kernel does not tell a peer's further groups; then the mode of the socket, which
// let the peer connect, has to do.
bool isPeerMember(int socket, const Peer &peer, gid_t group) {
    if (peer.group == group) { return true; }
    std::vector<gid_t> groups(64);
    auto octets = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    int result = getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &octets);
    if (result != 0 && errno == ERANGE) {
        groups.resize(octets / sizeof(gid_t));
        result = getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &octets);
    }
    if (result != 0) { return errno == ENOPROTOOPT; }
    groups.resize(octets / sizeof(gid_t));
    return contains(groups, group);
}

} // namespace

std::optional<gid_t> groupOf(const struct stat &directory) {
    if ((directory.st_mode & GROUP_BITS) == 0) { return std::nullopt; }
    return directory.st_gid;
}

bool isMember(gid_t group) {
    if (geteuid() == 0 || getegid() == group) { return true; }
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<size_t>(std::max(count, 0)));
    const int told = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<size_t>(std::max(told, 0)));
    return contains(groups, group);
}

int openToOthers(const std::string &path) {
    const std::optional<gid_t> group = runtimeGroup();
    const auto ourUser = static_cast<uid_t>(-1);
    if (group && lchown(path.c_str(), ourUser, *group) != 0) { return errno; }
    return chmod(path.c_str(), group ? GROUPS_FILE : OWNERS_FILE) == 0 ? 0 : errno;
}

bool isTrusted(int socket, const Peer &peer) {
    if (peer.user == 0 || peer.user == geteuid()) { return true; }
    try {
        struct stat directory {};
        if (lstat(runtimeDirectory().c_str(), &directory) != 0) { return false; }
        const std::optional<gid_t> group = groupOf(directory);
        return group && (peer.user == directory.st_uid || isPeerMember(socket, peer, *group));
    } catch (const std::system_error &) { return false; }
}

} // namespace smspb::ipc
