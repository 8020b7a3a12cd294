// A runtime directory that is open to a group. Needs root, to become members and strangers.
#include "ipc_peers.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <fstream>

namespace {

using namespace ipc_peers;

constexpr gid_t GROUP = 54321;
constexpr gid_t OTHERS_GROUP = 54322;
constexpr uid_t MANAGER = 4001;
constexpr uid_t MEMBER = 4002;
constexpr uid_t STRANGER = 4003;

enum class Belongs { primarily, further, not_at_all };

bool become(uid_t user, Belongs belongs) {
    const gid_t further[] = {OTHERS_GROUP, GROUP};
    const gid_t primary = belongs == Belongs::primarily ? GROUP : OTHERS_GROUP;
    const size_t count = belongs == Belongs::further ? 2 : 1;
    return setgroups(count, further) == 0 && setgid(primary) == 0 && setuid(user) == 0;
}

class GroupAccess : public Ipc {
protected:
    void SetUp() override {
        if (geteuid() != 0) { GTEST_SKIP() << "needs root to become somebody else"; }
        fs::permissions(base_, fs::perms(0755));
    }
    // The exit status of a process of that user; 99 when it cannot become so.
    static int as(uid_t user, Belongs belongs, const std::function<int()> &body) {
        Child child([&] { return become(user, belongs) ? body() : 99; });
        return child.exitCode();
    }
    // The destination served by MANAGER, who owns the directory and has opened it.
    Child serveAsManager() {
        fs::create_directory(directory_);
        fs::permissions(directory_, fs::perms(0700));
        EXPECT_EQ(chown(directory_.c_str(), MANAGER, OTHERS_GROUP), 0);
        const Line ready;
        Child child([&ready] {
            if (!become(MANAGER, Belongs::further)) { return 99; }
            smspb::ipc::setRuntimeGroup(GROUP);
            Server server(DESTINATION);
            ready.say();
            while (auto request = server.receive(-1ms)) {
                respond(*request, std::to_string(request->sender().user));
                zeldcard_send_notify(MESSAGE, "news", 4);
            }
            return 0;
        });
        ready.hear();
        return child;
    }
    mode_t modeOf(const fs::path &path) const {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_gid, GROUP) << path;
        return status.st_mode & 07777;
    }
};

TEST_F(GroupAccess, OpensTheDirectoryAndTheSocketsToTheGroupAndNobodyElse) {
    const mode_t before = umask(077);
    smspb::ipc::setRuntimeGroup(GROUP);
    const Server server(DESTINATION);
    const Subscription subscription({MESSAGE});
    umask(before);
    EXPECT_EQ(smspb::ipc::runtimeGroup(), GROUP);
    EXPECT_EQ(modeOf(directory_), mode_t{01770});
    EXPECT_EQ(modeOf(directory_ / "dest-7"), mode_t{0660});
    EXPECT_EQ(modeOf(directory_ / "sessions"), mode_t{0660});
    for (const std::string &path : socketsBeginning("notify-")) {
        EXPECT_EQ(modeOf(path), mode_t{0660});
    }
}

TEST_F(GroupAccess, MembersAreServedAndStrangersAreNot) {
    const Child manager = serveAsManager();
    const auto asks = [] { return ask("?").text == std::to_string(geteuid()) ? 0 : 1; };
    EXPECT_EQ(as(MEMBER, Belongs::primarily, asks), 0);
    EXPECT_EQ(as(MEMBER, Belongs::further, asks), 0);
    EXPECT_EQ(as(MANAGER, Belongs::further, asks), 0) << "the owner";
    EXPECT_EQ(ask("?").text, "0") << "root";
    EXPECT_EQ(as(STRANGER, Belongs::not_at_all,
                 [] { return ask("?").status == IPC_UNKNOWN_DESTINATION ? 0 : 1; }),
              0);
}

TEST_F(GroupAccess, AStrangerIsToldWhy) {
    const Child manager = serveAsManager();
    EXPECT_EQ(as(STRANGER, Belongs::not_at_all,
                 [] {
                     try {
                         smspb::ipc::runtimeDirectory();
                     } catch (const std::system_error &error) {
                         const std::string text = error.what();
                         return text.find("is open to group 54321, and we are no member") !=
                                        std::string::npos
                                    ? 0
                                    : 1;
                     }
                     return 2;
                 }),
              0);
}

// As if somebody had opened the sockets to all: the server itself looks who connects.
TEST_F(GroupAccess, AStrangerThatGetsToTheSocketIsNotServed) {
    const Child manager = serveAsManager();
    fs::permissions(directory_, fs::perms(0777));
    const std::string path = socketOf("dest-7");
    fs::permissions(path, fs::perms(0666));
    const auto send = [&path] {
        const RawPeer peer(path);
        if (peer.error() != 0) { return 1; }
        peer.send({1, MESSAGE, 0, 9}, 16); // fails when it is cut off already
        const auto deadline = steady_clock::now() + SOON;
        while (!peer.isCutOff()) {
            if (steady_clock::now() > deadline) { return 2; }
        }
        return 0;
    };
    EXPECT_EQ(as(STRANGER, Belongs::not_at_all, send), 0);
}

TEST_F(GroupAccess, MembersHearNotifications) {
    const Child manager = serveAsManager();
    EXPECT_EQ(as(MEMBER, Belongs::further,
                 [] {
                     Subscription subscription({MESSAGE});
                     if (ask("?").status != IPC_OK) { return 1; }
                     const auto news = subscription.receive(SOON);
                     return news && textOf(*news) == "news" ? 0 : 2;
                 }),
              0);
}

TEST_F(GroupAccess, AMemberCannotTakeTheServersNameAway) {
    const Child manager = serveAsManager();
    EXPECT_EQ(as(MEMBER, Belongs::further,
                 [path = socketOf("dest-7")] { return unlink(path.c_str()) != 0 ? 0 : 1; }),
              0);
}

TEST_F(GroupAccess, IsClosedAgainWhenNoGroupIsWanted) {
    smspb::ipc::setRuntimeGroup(GROUP);
    smspb::ipc::setRuntimeGroup(std::nullopt);
    EXPECT_FALSE(smspb::ipc::runtimeGroup());
    const Server server(DESTINATION);
    for (const fs::path &path : {directory_, directory_ / "dest-7", directory_ / "sessions"}) {
        struct stat status {};
        ASSERT_EQ(lstat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0077, 0u) << path;
    }
}

TEST_F(GroupAccess, AGroupWithoutTheStickyBitIsRefused) {
    fs::create_directory(directory_);
    fs::permissions(directory_, fs::perms(0770));
    EXPECT_THROW(smspb::ipc::runtimeDirectory(), std::system_error);
}

TEST_F(GroupAccess, OnlyTheOwnerMayOpenIt) {
    fs::create_directory(directory_);
    fs::permissions(directory_, fs::perms(0700));
    ASSERT_EQ(chown(directory_.c_str(), MANAGER, OTHERS_GROUP), 0);
    const auto opens = [](gid_t group) {
        return [group] {
            try {
                smspb::ipc::setRuntimeGroup(group);
            } catch (const std::system_error &) { return 1; }
            return 0;
        };
    };
    EXPECT_EQ(as(STRANGER, Belongs::primarily, opens(GROUP)), 1);
    EXPECT_EQ(as(MANAGER, Belongs::not_at_all, opens(GROUP)), 1) << "a group that it is not in";
    EXPECT_EQ(as(MANAGER, Belongs::further, opens(GROUP)), 0);
    EXPECT_EQ(as(MANAGER, Belongs::further, opens(GROUP)), 0) << "twice";
}

// In a mount namespace of its own, so that the machine's /run is left alone.
TEST_F(GroupAccess, AMemberFindsTheSystemsDirectoryByItself) {
    Child child([] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/run", "tmpfs", 0, nullptr) != 0) {
            return 77;
        }
        unsetenv("SMSPB_RUNTIME_DIR");
        unsetenv("XDG_RUNTIME_DIR");
        smspb::ipc::setRuntimeGroup(GROUP);
        if (as(STRANGER, Belongs::not_at_all, [] {
                try {
                    smspb::ipc::runtimeDirectory();
                } catch (const std::system_error &) { return 0; }
                return 1;
            }) != 0) {
            return 1;
        }
        return as(MEMBER, Belongs::further,
                  [] { return smspb::ipc::runtimeDirectory() == "/run/smspb" ? 0 : 2; });
    });
    const int code = child.exitCode();
    if (code == 77) { GTEST_SKIP() << "no mount namespaces here"; }
    EXPECT_EQ(code, 0);
}

} // namespace
