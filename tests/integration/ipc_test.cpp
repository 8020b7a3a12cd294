// platform/ipc between real processes: the library's functions on the asking side, ipc_server.h on
// the other. Every test has its own runtime directory.
#include "ipc_peers.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

namespace {

using namespace ipc_peers;

// ---- blocks ----

TEST(IpcMemory, AnOrdinaryBlockIsCleared) {
    auto *block = static_cast<u32 *>(ipc_memory_assign(100, 0));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + (16 + 100) / 4, [](u32 word) { return word == 0; }));
    EXPECT_EQ(mem_free_ex(1, __LINE__, 0, block), 0u);
}

TEST(IpcMemory, AQueueBlockHasItsKind) {
    auto *block = static_cast<u32 *>(ipc_memory_assign(0, 3));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0], 3u);
    EXPECT_EQ(mem_free_ex(1, __LINE__, 0, block), 0u);
}

TEST(IpcMemory, AbsurdSizesAndUnknownTypesGiveNone) {
    EXPECT_EQ(ipc_memory_assign(0xFFFFFFFF, 0), nullptr);
    EXPECT_EQ(ipc_memory_assign(0xFFFFFFF0, 3), nullptr);
    EXPECT_EQ(ipc_memory_assign(16 * 1024 * 1024 + 1, 0), nullptr);
    EXPECT_EQ(ipc_memory_assign(16, 1), nullptr);
}

TEST(IpcMemory, NullArgumentsAreRefused) {
    const Memory message("x");
    u32 room = 1;
    std::array<u8, IPC_ADDRESS_SIZE> address{};
    EXPECT_EQ(mem_free_ex(1, __LINE__, 0, nullptr), u32{EINVAL});
    EXPECT_EQ(ipc_gen_seesion_id(nullptr), u32{EINVAL});
    EXPECT_EQ(ipc_get_addr_by_id(1, 0, nullptr), u32{EINVAL});
    EXPECT_EQ(ipc_msg_notify(nullptr, 0), u32{EINVAL});
    EXPECT_EQ(ipc_mq_send(1, nullptr, 0, 0), u32{EINVAL});
    EXPECT_EQ(ipc_msg_send_asy(nullptr, message.block, 1), u32{EINVAL});
    EXPECT_EQ(ipc_msg_send_asy(address.data(), nullptr, 1), u32{EINVAL});
    EXPECT_EQ(ipc_msg_send_syn(address.data(), message.block, 1, 1, nullptr, &room), u32{EINVAL});
    EXPECT_EQ(ipc_msg_send_syn(address.data(), message.block, 1, 1, message.block, nullptr),
              u32{EINVAL});
}

TEST(IpcMemory, AnAddressThatNothingWasResolvedIntoIsRefused) {
    const Memory message("x");
    std::array<u8, IPC_ADDRESS_SIZE> address{};
    EXPECT_EQ(ipc_msg_send_asy(address.data(), message.block, 1), u32{EDESTADDRREQ});
    address.fill(0xFF);
    EXPECT_NE(ipc_msg_send_asy(address.data(), message.block, 1), 0u);
}

TEST(IpcMemory, LengthsThatDoNotAgreeAreRefused) {
    const Memory message("four");
    EXPECT_EQ(ipc_msg_notify(message.block, 3), u32{EINVAL});
    message.word(2) = 5; // more than the block has room for
    EXPECT_EQ(ipc_msg_notify(message.block, 5), u32{EINVAL});
    message.word(2) = 4;
    message.word(0) = 3;
    EXPECT_EQ(ipc_msg_notify(message.block, 4), u32{EINVAL});
    EXPECT_EQ(ipc_mq_send(1, Memory("text").block, 0, 0), u32{EINVAL});
}

// ---- requests ----

class Request : public Ipc {};

TEST_F(Request, IsAnswered) {
    const Child server = serve(echoReversed);
    const Outcome outcome = ask("AT+CSQ\r");
    EXPECT_EQ(outcome.status, IPC_OK);
    EXPECT_EQ(outcome.text, "\rQSC+TA");
    EXPECT_LT(outcome.took, PROMPTLY);
}

TEST_F(Request, CarriesItsHeaderAndItsSenderBehindThePaddedPayload) {
    const Child server = serve([](Server &, const Block &request) {
        const auto *behind =
            static_cast<const u8 *>(request.get()) + 16 + (request.payload().size() + 3) / 4 * 4;
        sockaddr_un sender{};
        std::memcpy(&sender, behind + 4, sizeof(sender));
        const bool isRight = request.kind() == 1 && request.messageId() == MESSAGE &&
                             request.sessionId() != 0 && sender.sun_family == AF_UNIX;
        respond(request, isRight ? textOf(request) : "wrong");
    });
    for (const std::string_view text : {"", "1", "12", "123", "1234", "12345"}) {
        EXPECT_EQ(ask(text).text, text);
    }
}

TEST_F(Request, NamesTheProcessThatSentIt) {
    Server server(DESTINATION);
    const Child asker([] { return ask("hello").status == IPC_OK ? 0 : 1; });
    const auto request = server.receive(SOON);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->sender().process, asker.pid());
    EXPECT_EQ(request->sender().user, geteuid());
    EXPECT_EQ(request->sender().group, getegid());
}

TEST_F(Request, FailsAtOnceWhenNobodyServes) {
    const Outcome outcome = ask("anyone?");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, AT_ONCE);
    EXPECT_EQ(platformResult("anyone?", WAIT_MS), u32{ECONNREFUSED});
}

TEST_F(Request, FailsAtOnceWhenTheServerHasCrashed) {
    serve(echoReversed).kill();
    ASSERT_TRUE(fs::exists(socketOf("dest-7")));
    const Outcome outcome = ask("anyone?");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, AT_ONCE);
    EXPECT_EQ(platformResult("anyone?", WAIT_MS), u32{ECONNREFUSED});
}

TEST_F(Request, FailsAtOnceWhenTheServerDiesOverIt) {
    const Child server = serve([](Server &, const Block &) { raise(SIGKILL); });
    const Outcome outcome = ask("die");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, PROMPTLY);
}

TEST_F(Request, FailsAtOnceWhenTheServerDiesBeforeItTookIt) {
    const Line ready;
    Child server([&] {
        const Server idle(DESTINATION);
        ready.say();
        return pause();
    });
    ready.hear();
    std::thread killer([&] {
        std::this_thread::sleep_for(50ms);
        server.kill();
    });
    const Outcome outcome = ask("die");
    killer.join();
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, 50ms + PROMPTLY);
}

TEST_F(Request, FailsAtOnceWhenTheServerDropsIt) {
    const Child server = serve([](Server &, const Block &) {});
    EXPECT_LT(ask("drop").took, PROMPTLY);
    EXPECT_EQ(platformResult("drop", WAIT_MS), u32{ECONNRESET});
}

Child serveNothing() {
    return serve([](Server &, Block request) {
        static std::vector<Block> kept;
        kept.push_back(std::move(request));
    });
}

TEST_F(Request, TimesOut) {
    const Child server = serveNothing();
    const Outcome outcome = ask("wait", 150);
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_GE(outcome.took, 150ms);
    EXPECT_LT(outcome.took, 150ms + PROMPTLY);
    EXPECT_EQ(platformResult("wait", 10), u32{ETIMEDOUT});
    EXPECT_EQ(platformResult("wait", 0), u32{ETIMEDOUT});
}

TEST_F(Request, SignalsNeitherCutNorStretchTheTimeOut) {
    const Child server = serveNothing();
    Child asker([] {
        struct sigaction interrupting {}; // without SA_RESTART
        interrupting.sa_handler = [](int) {};
        sigaction(SIGALRM, &interrupting, nullptr);
        const itimerval every = {
            {0, 3000},
            {0, 3000}
        };
        setitimer(ITIMER_REAL, &every, nullptr);
        const Outcome outcome = ask("wait", 150);
        return outcome.took >= 150ms && outcome.took < 150ms + PROMPTLY ? 0 : 1;
    });
    EXPECT_EQ(asker.exitCode(), 0);
}

// Sends `text` to the sender of the request under another kind and session id.
u32 respondAs(const Block &request, u32 kind, u32 sessionId, std::string_view text) {
    const Memory message(text);
    message.word(0) = kind;
    message.word(3) = sessionId;
    const auto *address =
        static_cast<const u8 *>(request.get()) + 16 + (request.payload().size() + 3) / 4 * 4;
    return ipc_msg_send_asy(address, message.block, lengthOf(text));
}

TEST_F(Request, AnswersThatAreNotItsOwnAreIgnored) {
    const Child server = serve([](Server &, const Block &request) {
        respondAs(request, 2, request.sessionId() + 1, "of another session");
        respondAs(request, 0, request.sessionId(), "of another kind");
        respond(request, "its own");
    });
    EXPECT_EQ(ask("which?").text, "its own");
}

TEST_F(Request, TimesOutWhenOnlyAnswersOfAnotherSessionCome) {
    const Child server = serve([](Server &, Block request) {
        static std::vector<Block> kept;
        respondAs(request, 2, request.sessionId() + 1, "of another session");
        kept.push_back(std::move(request));
    });
    EXPECT_EQ(platformResult("which?", 150), u32{ETIMEDOUT});
}

// The whole received block, the sender's address included, handed to a third process.
int answerInPlaceOfTheServer(int in) {
    std::array<u32, (16 + 8 + IPC_ADDRESS_SIZE) / 4> stolen{};
    if (read(in, stolen.data(), sizeof(stolen)) != sizeof(stolen)) { return 1; }
    sockaddr_un sender{};
    std::memcpy(&sender, &stolen[7], sizeof(sender));
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    const auto nameOctets = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 6);
    if (connect(fd, reinterpret_cast<sockaddr *>(&sender), nameOctets) == 0) { return 2; }
    return zeldcard_send_response(stolen.data(), ANSWER, "stolen", 6) != IPC_OK ? 0 : 3;
}

TEST_F(Request, AThirdProcessCannotAnswer) {
    const Line theft;
    const Line tried;
    Child thief([&] {
        const int result = answerInPlaceOfTheServer(theft.in());
        tried.say();
        return result;
    });
    const Child server = serve([&](Server &, const Block &request) {
        EXPECT_GT(write(theft.out(), request.get(), 16 + 8 + IPC_ADDRESS_SIZE), 0);
        tried.hear();
        respond(request, "the server's");
    });
    EXPECT_EQ(ask("8 octets").text, "the server's");
    EXPECT_EQ(thief.exitCode(), 0);
}

// One thread's share of the crowd: every answer must be its own question's.
bool askManyTimes(u32 process, u32 thread) {
    for (u32 i = 0; i < 200; i++) {
        const std::string text = std::to_string(process) + "/" + std::to_string(thread) + "/" +
                                 std::to_string(i) + std::string(i * 7 % 900, '.');
        const Outcome outcome = ask(text, WAIT_MS, 1025);
        if (outcome.status != IPC_OK || outcome.text != reversed(text)) { return false; }
    }
    return true;
}

int crowd(u32 process) {
    std::atomic<u32> right = 0;
    std::vector<std::thread> threads;
    for (u32 thread = 0; thread < 4; thread++) {
        threads.emplace_back([=, &right] { right += askManyTimes(process, thread) ? 1 : 0; });
    }
    for (auto &thread : threads) { thread.join(); }
    return right == 4 ? 0 : 1;
}

TEST_F(Request, SixteenProcessesOfFourThreadsLoseAndMixUpNothing) {
    const Child server = serve(echoReversed);
    std::vector<Child> processes;
    for (u32 process = 0; process < 16; process++) {
        processes.emplace_back([process] { return crowd(process); });
    }
    for (auto &process : processes) { EXPECT_EQ(process.exitCode(), 0); }
}

TEST_F(Request, IsCutToTheRoomOfTheResponse) {
    const Child server = serve(echoReversed);
    std::string buffer = "################";
    u32 room = 10;
    const std::string text = "0123456789abcdefghij";
    ASSERT_EQ(zeldcard_send_request_sync(DESTINATION, MESSAGE, text.data(), lengthOf(text),
                                         buffer.data(), &room, WAIT_MS),
              IPC_OK);
    EXPECT_EQ(room, 10u);
    EXPECT_EQ(buffer, "jihgfedcba######");
}

TEST_F(Request, WithoutRoomForTheResponseStillSucceeds) {
    const Child server = serve(echoReversed);
    EXPECT_EQ(ask("done?", WAIT_MS, 0).status, IPC_OK);
}

TEST_F(Request, AShorterResponseGivesItsLength) {
    const Child server = serve([](Server &, const Block &request) { respond(request, "ok"); });
    EXPECT_EQ(ask("a longer question", WAIT_MS, 1025).text, "ok");
}

TEST_F(Request, LargePayloadsTravelBothWays) {
    const Child server = serve(echoReversed);
    for (const size_t octets : {size_t{64 * 1024}, size_t{PAYLOAD_MAX}}) {
        const std::string text = std::string(octets - 3, 'x') + "end";
        const Outcome outcome = ask(text);
        EXPECT_EQ(outcome.status, IPC_OK);
        EXPECT_TRUE(outcome.text == reversed(text)) << octets;
    }
}

TEST_F(Request, AnOversizedOneIsRefusedAndHarmsNobody) {
    const Child server = serve(echoReversed);
    EXPECT_EQ(ask(std::string(PAYLOAD_MAX + 1, 'x')).status, IPC_SEND_FAILED);
    EXPECT_EQ(platformResult(std::string(PAYLOAD_MAX + 1, 'x'), WAIT_MS), u32{EMSGSIZE});
    EXPECT_EQ(ask("still there?").status, IPC_OK);
}

TEST_F(Request, AnOversizedResponseIsRefusedAndEndsTheWait) {
    const Child server = serve([](Server &, const Block &request) {
        EXPECT_EQ(respond(request, std::string(PAYLOAD_MAX + 1, 'x')), IPC_SEND_FAILED);
    });
    const Outcome outcome = ask("too much");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, PROMPTLY);
}

TEST_F(Request, WithoutAnswerIsSentAndNotWaitedFor) {
    Server server(DESTINATION);
    for (u32 i = 0; i < 100; i++) {
        ASSERT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE + i, "text", 4), IPC_OK);
    }
    for (u32 i = 0; i < 100; i++) {
        const auto request = server.receive(0ms);
        ASSERT_TRUE(request);
        EXPECT_EQ(request->kind(), 0u);
        EXPECT_EQ(request->messageId(), MESSAGE + i);
        EXPECT_EQ(textOf(*request), "text");
        EXPECT_FALSE(server.senderWaits(*request));
        EXPECT_EQ(respond(*request, "nobody listens"), IPC_SEND_FAILED);
    }
    EXPECT_FALSE(server.receive(0ms));
}

TEST_F(Request, WithoutAnswerFailsWhenNobodyServes) {
    EXPECT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, "text", 4), IPC_SEND_FAILED);
}

// ---- session ids ----

TEST_F(Ipc, SessionIdsAreUniqueAcrossProcessesAndThreads) {
    constexpr size_t processes = 4, threads = 4, each = 500, all = processes * threads * each;
    void *page = mmap(nullptr, all * 4, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto *ids = static_cast<u32 *>(page);
    const auto take = [](u32 *first) {
        const Memory message("");
        for (size_t i = 0; i < each; i++) {
            ipc_gen_seesion_id(message.block);
            first[i] = message.word(3);
        }
    };
    std::vector<Child> children;
    for (size_t p = 0; p < processes; p++) {
        children.emplace_back([=] {
            std::vector<std::thread> team;
            for (size_t t = 0; t < threads; t++) {
                team.emplace_back(take, ids + (p * threads + t) * each);
            }
            for (auto &thread : team) { thread.join(); }
            return 0;
        });
    }
    for (auto &child : children) { EXPECT_EQ(child.exitCode(), 0); }
    const std::set<u32> distinct(ids, ids + all);
    EXPECT_EQ(distinct.size(), all);
    EXPECT_FALSE(distinct.contains(0));
    munmap(page, all * 4);
}

TEST_F(Ipc, SessionIdsGoOnWhenTheirFileIsReplacedOrCut) {
    const Memory message("");
    const auto file = smspb::ipc::runtimeDirectory() / "sessions";
    const auto take = [&message] { return ipc_gen_seesion_id(message.block); };
    EXPECT_EQ(take(), 0u);
    fs::remove(file);
    EXPECT_EQ(take(), 0u);
    EXPECT_TRUE(fs::exists(file)) << "others must count in the same one";
    const u32 before = message.word(3);
    EXPECT_EQ(take(), 0u);
    EXPECT_EQ(message.word(3), before + 1);
    fs::resize_file(file, 0);
    EXPECT_EQ(take(), 0u) << "what lies behind the file's end must not be touched";
    EXPECT_EQ(message.word(3), 1u);
}

// ---- servers ----

class Serving : public Ipc {};

std::string refusalOf(const std::function<void()> &open) {
    try {
        open();
    } catch (const std::runtime_error &error) { return error.what(); }
    return "";
}

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST_F(Serving, AnotherServerIsRefusedWhileTheFirstLives) {
    const Child first = serve(echoReversed);
    const std::string refusal = refusalOf([] { const Server second(DESTINATION); });
    EXPECT_EQ(refusal, "destination 7 is already served by process " + std::to_string(first.pid()));
    EXPECT_EQ(ask("still served?").status, IPC_OK);
    const Server other(DESTINATION + 1);
}

TEST_F(Serving, AnotherServerInTheSameProcessIsRefusedToo) {
    const Server first(DESTINATION);
    EXPECT_NE(refusalOf([] { const Server second(DESTINATION); }), "");
}

TEST_F(Serving, WhatACrashedServerLeftIsTakenOver) {
    serve(echoReversed).kill();
    const Child second = serve(echoReversed);
    EXPECT_EQ(ask("abc").text, "cba");
}

TEST_F(Serving, AServerThatEndsLeavesNoSocketAndMakesRoom) {
    { const Server first(DESTINATION); }
    EXPECT_FALSE(fs::exists(socketOf("dest-7")));
    const Server second(DESTINATION);
}

TEST_F(Serving, IsServedFollowsTheServer) {
    EXPECT_FALSE(smspb::ipc::isServed(DESTINATION));
    {
        Server server(DESTINATION);
        EXPECT_TRUE(smspb::ipc::isServed(DESTINATION));
        EXPECT_FALSE(server.receive(0ms));
    }
    EXPECT_FALSE(smspb::ipc::isServed(DESTINATION));
    serve(echoReversed).kill();
    EXPECT_FALSE(smspb::ipc::isServed(DESTINATION));
}

TEST_F(Serving, AMovedServerGoesOn) {
    Server first(DESTINATION);
    Server second = std::move(first);
    ASSERT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, "text", 4), IPC_OK);
    EXPECT_TRUE(second.receive(0ms));
}

TEST_F(Serving, ReceiveWaitsAsLongAsItWasTold) {
    Server server(DESTINATION);
    const auto start = steady_clock::now();
    EXPECT_FALSE(server.receive(0ms));
    EXPECT_LT(steady_clock::now() - start, 20ms);
    EXPECT_FALSE(server.receive(60ms));
    EXPECT_GE(steady_clock::now() - start, 60ms);
}

TEST_F(Serving, TheDescriptorIsReadableWhileThereIsSomethingToReceive) {
    Server server(DESTINATION);
    const auto isReadable = [&server] {
        pollfd event = {server.fd(), POLLIN, 0};
        return poll(&event, 1, 0) > 0;
    };
    EXPECT_FALSE(isReadable());
    for (int i = 0; i < 3; i++) { zeldcard_send_request_asyn(DESTINATION, MESSAGE, "text", 4); }
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE(isReadable());
        EXPECT_TRUE(server.receive(0ms));
    }
    EXPECT_FALSE(server.receive(0ms));
    EXPECT_FALSE(isReadable());
}

TEST_F(Serving, AKeptRequestWhoseSenderHangsUpIsNothingToReceive) {
    Server server(DESTINATION);
    Child asker([] { return ask("quick!", 100).status == IPC_SEND_FAILED ? 0 : 1; });
    const auto request = server.receive(SOON);
    ASSERT_TRUE(request);
    EXPECT_EQ(asker.exitCode(), 0);
    pollfd event = {server.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&event, 1, 0), 0);
    EXPECT_FALSE(server.receive(0ms));
}

TEST_F(Serving, AServerLearnsThatTheSenderGaveUp) {
    Server server(DESTINATION);
    Child asker([] { return ask("quick!", 100).status == IPC_SEND_FAILED ? 0 : 1; });
    auto request = server.receive(SOON);
    ASSERT_TRUE(request);
    EXPECT_TRUE(server.senderWaits(*request));
    EXPECT_EQ(asker.exitCode(), 0);
    EXPECT_FALSE(server.senderWaits(*request));
    std::signal(SIGPIPE, SIG_DFL); // would end the test
    EXPECT_EQ(respond(*request, "too late"), IPC_SEND_FAILED);
}

TEST_F(Serving, AnAnsweredSenderNoLongerWaits) {
    Server server(DESTINATION);
    const RawPeer asker(socketOf("dest-7")); // one that stays after its answer
    ASSERT_TRUE(asker.send({1, MESSAGE, 0, 9}, 16));
    auto request = server.receive(0ms);
    ASSERT_TRUE(request);
    EXPECT_TRUE(server.senderWaits(*request));
    EXPECT_EQ(respond(*request, "first"), IPC_OK);
    EXPECT_FALSE(server.senderWaits(*request));
    EXPECT_EQ(respond(*request, "second"), IPC_SEND_FAILED);
}

TEST_F(Serving, AnyThreadMayAnswerWhileAnotherReceives) {
    const Child server = serve([](Server &running, Block request) {
        static std::vector<std::thread> threads;
        threads.emplace_back([&running, kept = std::move(request)] {
            if (running.senderWaits(kept)) { respond(kept, reversed(textOf(kept))); }
        });
    });
    std::vector<std::thread> askers;
    std::atomic<int> right = 0;
    for (int i = 0; i < 8; i++) {
        askers.emplace_back([&right, i] {
            const std::string text = "question " + std::to_string(i);
            for (int n = 0; n < 20; n++) { right += ask(text).text == reversed(text) ? 1 : 0; }
        });
    }
    for (auto &asker : askers) { asker.join(); }
    EXPECT_EQ(right, 8 * 20);
}

TEST_F(Serving, PacketsThatLieAreDroppedAndTheirSendersCutOff) {
    Server server(DESTINATION);
    const struct {
        const char *what;
        std::vector<u32> words;
        size_t octets;
    } packets[] = {
        {          "shorter than a header",      {1, MESSAGE, 0, 9}, 15},
        {                      "one octet",      {1, MESSAGE, 0, 9},  1},
        {                        "nothing",      {1, MESSAGE, 0, 9},  0},
        {     "a length beyond the packet",   {1, MESSAGE, 8, 9, 0}, 20},
        {"a length that wraps to the room", {1, MESSAGE, ~0u, 9, 0}, 20},
        {    "more than its length counts",   {1, MESSAGE, 0, 9, 0}, 20},
        {                "a queue message",      {3, MESSAGE, 0, 9}, 16},
    };
    for (const auto &packet : packets) {
        const RawPeer peer(socketOf("dest-7"));
        ASSERT_TRUE(peer.send(packet.words, packet.octets)) << packet.what;
        EXPECT_FALSE(server.receive(0ms)) << packet.what;
        EXPECT_TRUE(peer.isCutOff()) << packet.what;
    }
    std::vector<u32> longer(4 + PAYLOAD_MAX / 4 + 1);
    longer[2] = PAYLOAD_MAX + 4;
    const RawPeer generous(socketOf("dest-7"));
    ASSERT_TRUE(generous.send(longer, longer.size() * 4));
    EXPECT_FALSE(server.receive(0ms)) << "more than a message may carry";
    const RawPeer honest(socketOf("dest-7"));
    ASSERT_TRUE(honest.send({1, MESSAGE, 4, 9, 0}, 20));
    EXPECT_TRUE(server.receive(0ms));
}

TEST_F(Serving, AProcessOfAnotherUserIsRefused) {
    if (geteuid() != 0) { GTEST_SKIP() << "needs root to become somebody else"; }
    Server server(DESTINATION);
    // As if somebody had opened the directory and the socket to all.
    fs::permissions(base_, fs::perms(0711));
    fs::permissions(directory_, fs::perms(0711));
    fs::permissions(socketOf("dest-7"), fs::perms(0666));
    const std::string path = socketOf("dest-7");
    Child stranger([&path] {
        if (setuid(NOBODY) != 0) { return 2; }
        const RawPeer peer(path);
        return peer.error() == 0 && peer.send({0, MESSAGE, 0, 9}, 16) ? 0 : 1;
    });
    EXPECT_EQ(stranger.exitCode(), 0);
    EXPECT_FALSE(server.receive(0ms));
    const RawPeer own(path);
    ASSERT_TRUE(own.send({0, MESSAGE, 0, 9}, 16));
    EXPECT_TRUE(server.receive(0ms));
}

TEST_F(Serving, PeersThatSayNothingHoldNobodyUp) {
    Server server(DESTINATION);
    std::vector<RawPeer> silent;
    for (int i = 0; i < 70; i++) { silent.emplace_back(socketOf("dest-7")); }
    zeldcard_send_request_asyn(DESTINATION, MESSAGE, "text", 4);
    EXPECT_TRUE(server.receive(0ms));
    const auto cutOff = std::count_if(silent.begin(), silent.end(),
                                      [](const RawPeer &peer) { return peer.isCutOff(); });
    EXPECT_EQ(cutOff, 70 + 1 - 64);
    EXPECT_TRUE(silent.front().isCutOff());
    ASSERT_TRUE(silent.back().send({0, MESSAGE + 1, 0, 9}, 16));
    const auto late = server.receive(0ms);
    ASSERT_TRUE(late);
    EXPECT_EQ(late->messageId(), MESSAGE + 1);
}

TEST_F(Serving, WhatWasSentFirstComesFirstWhoeverConnectedFirst) {
    Server server(DESTINATION);
    const RawPeer early(socketOf("dest-7"));
    const RawPeer late(socketOf("dest-7"));
    EXPECT_FALSE(server.receive(0ms));
    zeldcard_send_request_asyn(DESTINATION, 1, nullptr, 0);
    EXPECT_EQ(server.receive(0ms)->messageId(), 1u);
    ASSERT_TRUE(early.send({0, 2, 0, 9}, 16));
    ASSERT_TRUE(late.send({0, 3, 0, 9}, 16));
    zeldcard_send_request_asyn(DESTINATION, 4, nullptr, 0);
    for (const u32 id : {2u, 3u, 4u}) { EXPECT_EQ(server.receive(0ms)->messageId(), id); }
}

// With not one descriptor left, one-way messages still come through and a request fails at once.
int serveWithoutDescriptors(const Line &ready, const Line &go) {
    Server server(DESTINATION);
    if (server.receive(0ms)) { return 1; } // the spare descriptor is taken now
    const int next = dup(0);
    close(next);
    const rlimit none = {static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) { return 2; }
    ready.say();
    go.hear();
    for (u32 i = 0; i < 10; i++) {
        const auto request = server.receive(SOON);
        if (!request || request->messageId() != i) { return 3; }
    }
    ready.say();
    const auto after = server.receive(SOON); // the request in between was not let in
    return after && after->kind() == 0 ? 0 : 4;
}

TEST_F(Serving, WithoutDescriptorsOnlyRequestsThatWaitAreRefused) {
    const Line ready;
    const Line go;
    Child server([&] { return serveWithoutDescriptors(ready, go); });
    ready.hear();
    for (u32 i = 0; i < 10; i++) { zeldcard_send_request_asyn(DESTINATION, i, nullptr, 0); }
    go.say();
    ready.hear();
    const Outcome outcome = ask("room?");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, PROMPTLY);
    zeldcard_send_request_asyn(DESTINATION, MESSAGE, nullptr, 0);
    EXPECT_EQ(server.exitCode(), 0);
}

// ---- fork ----

class Forked : public Ipc {};

TEST_F(Forked, AChildDoesNotKeepADeadServersPlace) {
    const Line grandchild;
    Child server = serve([&](Server &, const Block &) {
        const pid_t pid = fork();
        if (pid == 0) { _exit(pause()); }
        grandchild.say(static_cast<u32>(pid));
        raise(SIGKILL);
    });
    const Outcome outcome = ask("fork and die");
    EXPECT_EQ(outcome.status, IPC_SEND_FAILED);
    EXPECT_LT(outcome.took, PROMPTLY);
    EXPECT_EQ(server.exitCode(), 128 + SIGKILL);
    EXPECT_EQ(platformResult("anyone?", WAIT_MS), u32{ECONNREFUSED});
    {
        const Child next = serve(echoReversed);
        EXPECT_EQ(ask("abc").text, "cba");
    }
    kill(static_cast<pid_t>(grandchild.hear()), SIGKILL);
}

TEST_F(Forked, AChildCannotServeForItsParent) {
    Server server(DESTINATION);
    Child child([&server] {
        try {
            server.receive(0ms);
        } catch (const std::logic_error &) { return server.fd() == -1 ? 0 : 1; }
        return 2;
    });
    EXPECT_EQ(child.exitCode(), 0);
}

TEST_F(Forked, AServerOutlivesItsChildrensCopies) {
    auto server = std::make_unique<Server>(DESTINATION);
    Child child([&server] {
        server.reset();
        return 0;
    });
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_TRUE(smspb::ipc::isServed(DESTINATION));
    ASSERT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, "text", 4), IPC_OK);
    EXPECT_TRUE(server->receive(SOON));
}

TEST_F(Forked, AChildsAnswerIsRefused) {
    Server server(DESTINATION);
    Child asker([] { return ask("?").text == "the parent's" ? 0 : 1; });
    auto request = server.receive(SOON);
    ASSERT_TRUE(request);
    Child child([&request] { return respond(*request, "a child's") != IPC_OK ? 0 : 1; });
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(respond(*request, "the parent's"), IPC_OK);
    EXPECT_EQ(asker.exitCode(), 0);
}

// ---- notifications ----

class Notification : public Ipc {};

constexpr u32 NEWS = 0x10400090;

// A process that receives `count` notifications numbered in order.
Child subscriber(u32 count) {
    const Line ready;
    Child child([&ready, count] {
        Subscription subscription({NEWS});
        ready.say();
        for (u32 i = 0; i < count; i++) {
            const auto news = subscription.receive(SOON);
            if (!news || news->messageId() != NEWS || textOf(*news) != std::to_string(i)) {
                return 1;
            }
        }
        return subscription.receive(0ms) ? 2 : 0;
    });
    ready.hear();
    return child;
}

TEST_F(Notification, AThousandInARowReachThreeSubscribersInOrder) {
    std::array<Child, 3> subscribers = {subscriber(1000), subscriber(1000), subscriber(1000)};
    for (u32 i = 0; i < 1000; i++) {
        const std::string text = std::to_string(i);
        ASSERT_EQ(zeldcard_send_notify(NEWS, text.data(), lengthOf(text)), IPC_OK);
    }
    for (auto &process : subscribers) { EXPECT_EQ(process.exitCode(), 0); }
}

TEST_F(Notification, SeveralNotifiersKeepTheirOwnOrder) {
    Subscription subscription({NEWS, NEWS + 1, NEWS + 2, NEWS + 3});
    const auto notify = [](u32 id) {
        for (u32 i = 0; i < 500; i++) { zeldcard_send_notify(id, &i, sizeof(i)); }
        return 0;
    };
    std::vector<Child> notifiers;
    for (u32 id = NEWS; id < NEWS + 4; id++) {
        notifiers.emplace_back([=] { return notify(id); });
    }
    std::array<u32, 4> next{};
    for (int i = 0; i < 4 * 500; i++) {
        const auto news = subscription.receive(SOON);
        ASSERT_TRUE(news);
        u32 number = 0;
        std::memcpy(&number, news->payload().data(), sizeof(number));
        EXPECT_EQ(number, next.at(news->messageId() - NEWS)++);
    }
}

TEST_F(Notification, OrderHoldsBetweenTheIdsOfOneSubscription) {
    Subscription subscription({NEWS, NEWS + 1, NEWS});
    for (u32 i = 0; i < 50; i++) { zeldcard_send_notify(NEWS + i * i % 2, &i, sizeof(i)); }
    for (u32 i = 0; i < 50; i++) {
        const auto news = subscription.receive(0ms);
        ASSERT_TRUE(news);
        EXPECT_EQ(news->messageId(), NEWS + i * i % 2);
        EXPECT_EQ(std::memcmp(news->payload().data(), &i, sizeof(i)), 0);
    }
}

TEST_F(Notification, OthersIdsDoNotCome) {
    Subscription subscription({NEWS});
    EXPECT_EQ(zeldcard_send_notify(NEWS + 1, "other", 5), IPC_OK);
    EXPECT_FALSE(subscription.receive(0ms));
}

TEST_F(Notification, WhatIsNoNotificationOfItsIdsIsDropped) {
    Subscription subscription({NEWS});
    const std::string path = socketsBeginning("notify-").at(0);
    const RawPeer otherId(path);
    ASSERT_TRUE(otherId.send({0, NEWS + 1, 0, 9}, 16));
    const RawPeer otherKind(path);
    ASSERT_TRUE(otherKind.send({1, NEWS, 0, 9}, 16));
    EXPECT_FALSE(subscription.receive(0ms));
    EXPECT_TRUE(otherKind.isCutOff());
}

TEST_F(Notification, WithoutSubscriberSucceeds) {
    EXPECT_EQ(zeldcard_send_notify(NEWS, "text", 4), IPC_OK);
}

TEST_F(Notification, WithoutMessageIdThereIsNoSubscription) {
    EXPECT_THROW(Subscription({}), std::invalid_argument);
}

TEST_F(Notification, AnEndedSubscriptionLeavesNothing) {
    { const Subscription subscription({NEWS, NEWS + 1}); }
    EXPECT_EQ(countNames("notify-"), 0u);
    EXPECT_EQ(countNames("subscriber-"), 0u);
}

TEST_F(Notification, WhatADeadSubscriberLeftIsRemoved) {
    subscriber(1).kill();
    Child living = subscriber(1);
    EXPECT_EQ(countNames("notify-"), 2u);
    EXPECT_EQ(zeldcard_send_notify(NEWS, "0", 1), IPC_OK);
    EXPECT_EQ(living.exitCode(), 0);
    EXPECT_EQ(countNames("notify-"), 0u); // the living one removed its own
    EXPECT_EQ(countNames("subscriber-"), 0u);
}

TEST_F(Notification, ASubscriberThatDoesNotReadHoldsNobodyUp) {
    Subscription stuck({NEWS});
    u32 sent = 0;
    u32 status = IPC_OK;
    auto start = steady_clock::now();
    while (status == IPC_OK && sent < 100000) {
        start = steady_clock::now();
        status = zeldcard_send_notify(NEWS, &sent, sizeof(sent));
        sent += status == IPC_OK ? 1 : 0;
    }
    EXPECT_EQ(status, IPC_SEND_FAILED);
    EXPECT_LT(steady_clock::now() - start, AT_ONCE);

    Subscription living({NEWS});
    start = steady_clock::now();
    EXPECT_EQ(zeldcard_send_notify(NEWS, "text", 4), IPC_SEND_FAILED);
    EXPECT_LT(steady_clock::now() - start, AT_ONCE);
    EXPECT_TRUE(living.receive(0ms));
    for (u32 i = 0; i < sent; i++) {
        const auto news = stuck.receive(0ms);
        ASSERT_TRUE(news) << i;
        ASSERT_EQ(std::memcmp(news->payload().data(), &i, sizeof(i)), 0);
    }
    EXPECT_FALSE(stuck.receive(0ms));
    EXPECT_EQ(zeldcard_send_notify(NEWS, "text", 4), IPC_OK);
}

// ---- queues ----

class QueueMessage : public Ipc {};

TEST_F(QueueMessage, ArrivesInOrder) {
    Queue queue(5);
    for (const std::string text : {"", "one", "two and more"}) {
        ASSERT_EQ(zeldcard_send_mq(5, MESSAGE, text.data(), lengthOf(text)), IPC_OK);
    }
    for (const std::string text : {"", "one", "two and more"}) {
        const auto message = queue.receive(0ms);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->kind(), 3u);
        EXPECT_EQ(message->messageId(), MESSAGE);
        EXPECT_EQ(message->sessionId(), 0u);
        EXPECT_EQ(textOf(*message), text);
    }
    EXPECT_FALSE(queue.receive(0ms));
}

TEST_F(QueueMessage, HasNoSenderToAnswer) {
    Queue queue(5);
    ASSERT_EQ(zeldcard_send_mq(5, MESSAGE, "text", 4), IPC_OK);
    EXPECT_EQ(respond(*queue.receive(0ms), "answer"), IPC_SEND_FAILED);
}

TEST_F(QueueMessage, StaysTheCallersWhenNobodyReads) {
    const Memory message("text", 3); // given back by its destructor
    EXPECT_EQ(ipc_mq_send(5, message.block, 0, 0), u32{ECONNREFUSED});
    EXPECT_EQ(zeldcard_send_mq(5, MESSAGE, "text", 4), IPC_SEND_FAILED);
}

TEST_F(QueueMessage, BelongsToTheQueueOnceItIsSent) {
    Queue queue(5);
    Memory message("text", 3);
    ASSERT_EQ(ipc_mq_send(5, message.block, 0, 0), 0u);
    message.block = nullptr; // a leak or a second free would show under the sanitizer
    EXPECT_EQ(textOf(*queue.receive(0ms)), "text");
}

TEST_F(QueueMessage, AnOversizedOneIsRefusedAndStaysTheCallers) {
    Queue queue(5);
    const Memory message(std::string(PAYLOAD_MAX + 1, 'x'), 3);
    EXPECT_EQ(ipc_mq_send(5, message.block, 0, 0), u32{EMSGSIZE});
    EXPECT_FALSE(queue.receive(0ms));
}

TEST_F(QueueMessage, AnotherReaderIsRefused) {
    const Queue queue(5);
    EXPECT_PRED2(has, refusalOf([] { const Queue second(5); }), "message queue 5");
    const Server server(5); // queues and destinations are counted apart
}

TEST_F(QueueMessage, AnOrdinaryMessageIsDropped) {
    Queue queue(5);
    const RawPeer peer(socketOf("mq-5"));
    ASSERT_TRUE(peer.send({0, MESSAGE, 0, 9}, 16));
    EXPECT_FALSE(queue.receive(0ms));
}

// ---- the runtime directory ----

class RuntimeDirectory : public Ipc {
protected:
    static std::string refusal() {
        return refusalOf([] { smspb::ipc::runtimeDirectory(); });
    }
};

TEST_F(RuntimeDirectory, LetsNobodyElseIn) {
    const mode_t before = umask(0);
    const Server server(DESTINATION);
    const Subscription subscription({NEWS});
    const Queue queue(5);
    zeldcard_send_notify(NEWS, "text", 4);
    umask(before);
    EXPECT_EQ(fs::status(directory_).permissions(), fs::perms(0700));
    for (const auto &entry : fs::directory_iterator(directory_)) {
        EXPECT_EQ(entry.status().permissions(), fs::perms(0600)) << entry.path();
    }
}

TEST_F(RuntimeDirectory, IsRefusedWhenOthersMayEnter) {
    fs::create_directory(directory_);
    fs::permissions(directory_, fs::perms(0750));
    EXPECT_PRED2(has, refusal(), directory_.string());
    EXPECT_PRED2(has, refusal(), "chmod 700");
    EXPECT_EQ(ask("?").status, IPC_UNKNOWN_DESTINATION);
    EXPECT_EQ(zeldcard_send_notify(NEWS, "text", 4), IPC_SEND_FAILED);
    EXPECT_EQ(zeldcard_send_mq(5, MESSAGE, "text", 4), IPC_SEND_FAILED);
}

TEST_F(RuntimeDirectory, MayInheritItsParentsGroup) {
    fs::permissions(base_, fs::perms(02700));
    EXPECT_EQ(smspb::ipc::runtimeDirectory(), directory_);
}

TEST_F(RuntimeDirectory, IsRefusedWhenItIsALink) {
    fs::create_directory(base_ / "elsewhere");
    fs::permissions(base_ / "elsewhere", fs::perms(0700));
    fs::create_directory_symlink(base_ / "elsewhere", directory_);
    EXPECT_PRED2(has, refusal(), "symbolic link");
    setenv("SMSPB_RUNTIME_DIR", (directory_.string() + "/").c_str(), 1);
    EXPECT_PRED2(has, refusal(), "symbolic link");
}

TEST_F(RuntimeDirectory, IsRefusedWhenItIsAFile) {
    std::ofstream(directory_) << "text";
    EXPECT_PRED2(has, refusal(), "is not a directory");
}

TEST_F(RuntimeDirectory, IsRefusedWhenItBelongsToAnotherUser) {
    if (geteuid() != 0) { GTEST_SKIP() << "needs root to give a directory away"; }
    fs::create_directory(directory_);
    fs::permissions(directory_, fs::perms(0700));
    ASSERT_EQ(chown(directory_.c_str(), NOBODY, NOBODY), 0);
    EXPECT_PRED2(has, refusal(), "belongs to user 65534");
}

TEST_F(RuntimeDirectory, IsRefusedWhenItsParentIsMissing) {
    setenv("SMSPB_RUNTIME_DIR", (directory_ / "deeper").c_str(), 1);
    EXPECT_PRED2(has, refusal(), "cannot create the runtime directory");
}

TEST_F(RuntimeDirectory, IsRefusedWhenItIsNotAbsolute) {
    setenv("SMSPB_RUNTIME_DIR", "run", 1);
    EXPECT_PRED2(has, refusal(), "SMSPB_RUNTIME_DIR=run is not an absolute path");
}

TEST_F(RuntimeDirectory, APathTooLongForASocketIsNamed) {
    const fs::path longer = base_ / std::string(100, 'd');
    setenv("SMSPB_RUNTIME_DIR", longer.c_str(), 1);
    const std::string text = refusalOf([] { const Server server(DESTINATION); });
    EXPECT_PRED2(has, text, "longer than 107 characters");
    EXPECT_PRED2(has, text, "SMSPB_RUNTIME_DIR");
    EXPECT_NE(refusalOf([] { const Subscription subscription({NEWS}); }), "");
    EXPECT_EQ(ask("?").status, IPC_UNKNOWN_DESTINATION);
}

TEST_F(RuntimeDirectory, OfAnOrdinaryUserLiesInXdgRuntimeDir) {
    if (geteuid() != 0) { GTEST_SKIP() << "needs root to become an ordinary user"; }
    fs::permissions(base_, fs::perms(0711));
    const fs::path home = base_ / "user";
    fs::create_directory(home);
    ASSERT_EQ(chown(home.c_str(), NOBODY, NOBODY), 0);
    Child user([&home] {
        unsetenv("SMSPB_RUNTIME_DIR");
        unsetenv("XDG_RUNTIME_DIR");
        if (setuid(NOBODY) != 0) { return 1; }
        if (!has(refusal(), "set SMSPB_RUNTIME_DIR or XDG_RUNTIME_DIR")) { return 2; }
        setenv("XDG_RUNTIME_DIR", home.c_str(), 1);
        return smspb::ipc::runtimeDirectory() == home / "smspb" ? 0 : 3;
    });
    EXPECT_EQ(user.exitCode(), 0);
}

} // namespace
