// Connections that stay open between the requests of a process.
#include "ipc_peers.h"

#include <sys/resource.h>

#include <thread>

namespace {

using namespace ipc_peers;

class Idle : public Ipc {};

// The kernel names each connection, and the name stands behind the request.
std::string connectionOf(const Block &request) {
    const size_t octets = (request.payload().size() + 3) / 4 * 4;
    const auto *record = reinterpret_cast<const char *>(request.payload().data()) + octets;
    sockaddr_un name{};
    std::memcpy(&name, record + sizeof(u32), sizeof(name));
    return {name.sun_path, sizeof(name.sun_path)};
}

// Answers each request with the number of its connection, the first is 1.
class Numbering {
public:
    void operator()(Server & /*server*/, const Block &request) {
        const std::string name = connectionOf(request);
        const auto found = std::find(names_.begin(), names_.end(), name);
        respond(request, std::to_string(found - names_.begin() + 1));
        if (found == names_.end()) { names_.push_back(name); }
    }

private:
    std::vector<std::string> names_;
};

size_t openDescriptors() {
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

TEST_F(Idle, AProcessAsksAgainOnItsConnection) {
    const Child server = serve(Numbering());
    EXPECT_EQ(ask("?").text, "1");
    const size_t before = openDescriptors();
    for (int i = 0; i < 100; i++) { EXPECT_EQ(ask("?").text, "1"); }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Idle, ThreadsThatAskAtTheSameTimeHaveConnectionsOfTheirOwn) {
    const Child server =
        serve([](Server &, const Block &request) { respond(request, textOf(request)); });
    std::vector<std::thread> threads;
    std::array<int, 16> right{};
    for (size_t i = 0; i < right.size(); i++) {
        threads.emplace_back([&right, i] {
            for (int n = 0; n < 50; n++) {
                const std::string text = std::to_string(i) + " " + std::to_string(n);
                right.at(i) += ask(text).text == text ? 1 : 0;
            }
        });
    }
    for (auto &thread : threads) { thread.join(); }
    for (const int count : right) { EXPECT_EQ(count, 50); }
}

TEST_F(Idle, TheNextServerIsAskedWhenTheFirstHasDied) {
    {
        const Child first = serve(echoReversed);
        EXPECT_EQ(ask("abc").text, "cba");
    }
    const Child second = serve(echoReversed);
    EXPECT_EQ(ask("abc").text, "cba");
}

TEST_F(Idle, FailsAtOnceWhenTheServerHasDiedAndNoneCame) {
    {
        const Child server = serve(echoReversed);
        EXPECT_EQ(ask("abc").text, "cba");
    }
    const Outcome outcome = ask("anyone?");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, PROMPTLY);
}

// A request that was read may have been carried out: it must not come twice.
TEST_F(Idle, ARequestThatWasReadAndDroppedIsNotSentAgain) {
    const Child server = serve([](Server &, Block request) {
        static int count = 0;
        count++;
        if (textOf(request) == "count") { respond(request, std::to_string(count)); }
    });
    EXPECT_EQ(ask("count").text, "1");
    EXPECT_EQ(ask("drop").status, IPC_SEND_FAILED);
    EXPECT_EQ(ask("count").text, "3");
}

TEST_F(Idle, ARequestThatWasReadByADyingServerIsNotSentAgain) {
    const Line arrivals;
    const auto handle = [&arrivals](Server &, const Block &request) {
        arrivals.say();
        if (textOf(request) == "die") { raise(SIGKILL); }
        respond(request, "alive");
    };
    const Child first = serve(handle);
    EXPECT_EQ(ask("live").text, "alive");
    EXPECT_EQ(ask("die").status, IPC_SEND_FAILED);
    const Child second = serve(handle);
    EXPECT_EQ(ask("live").text, "alive");
    for (int i = 0; i < 3; i++) { arrivals.hear(); }
    pollfd event = {arrivals.in(), POLLIN, 0};
    EXPECT_EQ(poll(&event, 1, 0), 0);
}

TEST_F(Idle, AServerLearnsThatASenderGaveUpOnAConnectionUsedBefore) {
    Server server(DESTINATION);
    Child asker([] {
        if (ask("first").status != IPC_OK) { return 1; }
        return ask("second", 100).status == IPC_SEND_FAILED ? 0 : 2;
    });
    const auto first = server.receive(SOON);
    ASSERT_TRUE(first);
    EXPECT_EQ(respond(*first, "answer"), IPC_OK);
    auto second = server.receive(SOON);
    ASSERT_TRUE(second);
    EXPECT_EQ(connectionOf(*second), connectionOf(*first));
    EXPECT_TRUE(server.senderWaits(*second));
    EXPECT_EQ(asker.exitCode(), 0);
    EXPECT_FALSE(server.senderWaits(*second));
    EXPECT_EQ(respond(*second, "too late"), IPC_SEND_FAILED);
}

TEST_F(Idle, TheAnswerToARequestThatWasGivenUpIsNotTakenForTheNextOnes) {
    const Child server = serve([](Server &, Block request) {
        static std::vector<Block> slow;
        if (textOf(request) == "slow") {
            slow.push_back(std::move(request));
            return;
        }
        for (const Block &late : slow) { respond(late, "late"); }
        respond(request, "quick");
    });
    EXPECT_EQ(ask("quick").text, "quick");
    EXPECT_EQ(ask("slow", 50).status, IPC_SEND_FAILED);
    EXPECT_EQ(ask("quick").text, "quick");
}

TEST_F(Idle, AForkedChildHasAConnectionOfItsOwn) {
    const Child server = serve(Numbering());
    EXPECT_EQ(ask("?").text, "1");
    Child child([] { return ask("?").text == "2" && ask("?").text == "2" ? 0 : 1; });
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(ask("?").text, "1");
}

// As a daemon does when it begins; then the numbers are given to others.
int closeAllAndAsk() {
    if (ask("?").text != "1") { return 1; }
    if (close_range(3, ~0U, 0) != 0) { return 2; }
    std::array<int, 2> pair{};
    do {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, pair.data()) != 0) { return 3; }
    } while (pair[1] < 40);
    if (ask("?").text != "2") { return 4; }
    for (int fd = 3; fd <= 40; fd++) {
        char octet = 0;
        if (recv(fd, &octet, 1, 0) != -1 || errno != EAGAIN) { return 5; }
    }
    return 0;
}

TEST_F(Idle, ANumberThatWasClosedAndGivenToAnotherIsLeftAlone) {
    const Child server = serve(Numbering());
    Child daemon(closeAllAndAsk);
    EXPECT_EQ(daemon.exitCode(), 0);
}

// Asks with an address that was resolved while it was root: the directory alone would refuse it.
int askAsAnother() {
    std::array<u8, IPC_ADDRESS_SIZE> address{};
    const Memory request("x");
    const Memory response("", 0, 100);
    ipc_get_addr_by_id(DESTINATION, 0, address.data());
    for (const u32 expected : {0u, u32{ECONNREFUSED}}) {
        u32 room = 100;
        ipc_gen_seesion_id(request.block);
        const u32 result =
            ipc_msg_send_syn(address.data(), request.block, 1, WAIT_MS, response.block, &room);
        if (expected == 0 && result != 0) { return 1; }
        if (expected != 0 && result == 0) { return 2; }
        if (setuid(NOBODY) != 0) { return 3; }
    }
    return 0;
}

TEST_F(Idle, AProcessThatBecomesAnotherUserLosesItsConnection) {
    if (geteuid() != 0) { GTEST_SKIP() << "needs root to become somebody else"; }
    const Child server = serve(echoReversed);
    Child asker(askAsAnother);
    EXPECT_EQ(asker.exitCode(), 0);
}

// ---- the server's side ----

// A sender that has its answer and stays.
RawPeer answeredPeer(Server &server, const std::string &path) {
    RawPeer peer(path);
    EXPECT_TRUE(peer.send({1, MESSAGE, 0, 9}, 16));
    const auto request = server.receive(0ms);
    EXPECT_TRUE(request && respond(*request, "answer") == IPC_OK);
    return peer;
}

TEST_F(Idle, WhatWasSentBeforeComesBeforeARequestOnAnOldConnection) {
    Server server(DESTINATION);
    const RawPeer peer = answeredPeer(server, socketOf("dest-7"));
    zeldcard_send_request_asyn(DESTINATION, 1, nullptr, 0);
    ASSERT_TRUE(peer.send({1, 2, 0, 9}, 16));
    zeldcard_send_request_asyn(DESTINATION, 3, nullptr, 0);
    std::vector<u32> order;
    while (const auto message = server.receive(0ms)) { order.push_back(message->messageId()); }
    ASSERT_EQ(order.size(), 3u);
    EXPECT_LT(std::find(order.begin(), order.end(), 1u), std::find(order.begin(), order.end(), 2u));
    EXPECT_LT(std::find(order.begin(), order.end(), 1u), std::find(order.begin(), order.end(), 3u));
}

TEST_F(Idle, OldConnectionsAreServedInTheOrderInWhichTheyAsk) {
    Server server(DESTINATION);
    std::vector<RawPeer> peers;
    for (int i = 0; i < 3; i++) { peers.push_back(answeredPeer(server, socketOf("dest-7"))); }
    u32 id = 0;
    for (const size_t peer : {2u, 0u, 1u}) { ASSERT_TRUE(peers[peer].send({1, id++, 0, 9}, 16)); }
    for (u32 i = 0; i < 3; i++) {
        pollfd event = {server.fd(), POLLIN, 0};
        EXPECT_EQ(poll(&event, 1, 0), 1) << "one at a time";
        const auto request = server.receive(0ms);
        ASSERT_TRUE(request);
        EXPECT_EQ(request->messageId(), i);
    }
    pollfd event = {server.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&event, 1, 0), 0);
}

TEST_F(Idle, SendersThatGoAreForgotten) {
    Server server(DESTINATION);
    const size_t before = openDescriptors();
    for (int i = 0; i < 10; i++) { answeredPeer(server, socketOf("dest-7")); }
    EXPECT_FALSE(server.receive(0ms));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Idle, BeyondSixtyFourTheOldestIsLetGoAndConnectsAnew) {
    Server server(DESTINATION);
    std::vector<RawPeer> peers;
    for (int i = 0; i < 70; i++) { peers.push_back(answeredPeer(server, socketOf("dest-7"))); }
    for (size_t i = 0; i < peers.size(); i++) { EXPECT_EQ(peers[i].isCutOff(), i < 6) << i; }
    ASSERT_TRUE(peers.back().send({1, MESSAGE, 0, 9}, 16));
    EXPECT_TRUE(server.receive(0ms));
}

TEST_F(Idle, SeventyProcessesShareSixtyFourConnections) {
    const Child server = serve(echoReversed);
    std::vector<Child> askers;
    for (int i = 0; i < 70; i++) {
        askers.emplace_back([] {
            for (int n = 0; n < 5; n++) {
                if (ask("abc").text != "cba") { return 1; }
            }
            return 0;
        });
    }
    for (Child &asker : askers) { EXPECT_EQ(asker.exitCode(), 0); }
}

// Answers one request, then has no descriptor left, and answers another sender's all the same.
int answerWithoutDescriptors(const Line &ready) {
    Server server(DESTINATION);
    ready.say();
    const auto answerOne = [&server] {
        const auto request = server.receive(SOON);
        return request && respond(*request, "answer") == IPC_OK;
    };
    if (!answerOne()) { return 1; }
    const int next = dup(0);
    close(next);
    const rlimit none = {static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) { return 2; }
    return answerOne() ? 0 : 3;
}

TEST_F(Idle, WithoutDescriptorsAnIdleSenderMakesRoom) {
    const Line ready;
    Child server([&ready] { return answerWithoutDescriptors(ready); });
    ready.hear();
    EXPECT_EQ(ask("first").text, "answer"); // its connection stays
    Child other([] { return ask("second").text == "answer" ? 0 : 1; });
    EXPECT_EQ(other.exitCode(), 0);
    EXPECT_EQ(server.exitCode(), 0);
}

TEST_F(Idle, AnsweredSendersAreCutOffWhenTheServerEnds) {
    auto server = std::make_unique<Server>(DESTINATION);
    const RawPeer peer = answeredPeer(*server, socketOf("dest-7"));
    EXPECT_FALSE(peer.isCutOff());
    server.reset();
    EXPECT_TRUE(peer.isCutOff());
}

TEST_F(Idle, ARequestMayBeAnsweredAfterItsServerEnded) {
    auto server = std::make_unique<Server>(DESTINATION);
    Child asker([] { return ask("?").text == "late" ? 0 : 1; });
    const auto request = server->receive(SOON);
    ASSERT_TRUE(request);
    server.reset();
    EXPECT_EQ(respond(*request, "late"), IPC_OK);
    EXPECT_EQ(asker.exitCode(), 0);
}

} // namespace
