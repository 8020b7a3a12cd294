#include "comm/zeldcard_common.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "support/library_test.h"

using namespace support;

namespace {

const u32 MESSAGE = 0x10400090;
const u32 DESTINATION = 0x2A;
const u32 PLATFORM_ERROR = 4000000001U; // shows that the error is printed unsigned

u32 threadId() { return static_cast<u32>(syscall(SYS_gettid)) & 0xFFFF; }

const std::vector<u8> PAYLOAD = {0xDE, 0xAD, 0xBE, 0xEF, 0x05};

u32 size(const std::vector<u8> &octets) { return static_cast<u32>(octets.size()); }

// The only line of the log is this one, under the function's own name.
void expectLogged(const char *function, const std::string &message) {
    const auto entries = logEntries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].source, "comm/zeldcard_common.cpp");
    EXPECT_EQ(entries[0].function, function);
    EXPECT_GT(entries[0].line, 0);
    EXPECT_EQ(entries[0].message, message);
}

void expectNothingLogged() { EXPECT_EQ(logMessages(), std::vector<std::string>()); }

// Each of the blocks, in this order, went back with the caller's thread id and a source line.
void expectFreed(const std::vector<const void *> &blocks) {
    const auto given = freed();
    ASSERT_EQ(given.size(), blocks.size());
    for (std::size_t i = 0; i < blocks.size(); i++) {
        EXPECT_EQ(given[i].block, blocks[i]);
        EXPECT_EQ(given[i].thread_id, threadId());
        EXPECT_GT(given[i].line, 0U);
        EXPECT_LT(given[i].line, 10000U);
        EXPECT_EQ(given[i].zero, 0U);
    }
}

void expectAddressAskedFor(u32 destination) {
    const auto asked = resolved();
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(asked[0].destination, destination);
    EXPECT_EQ(asked[0].zero, 0U);
    EXPECT_TRUE(asked[0].wasClear);
}

// The header of a new ordinary message: kind 0, its id, its length, a fresh session id.
void expectNewMessage(const Sent &message, Call how) {
    EXPECT_EQ(message.how, how);
    EXPECT_EQ(message.kind, 0U);
    EXPECT_EQ(message.messageId, MESSAGE);
    EXPECT_EQ(message.payloadLength, size(PAYLOAD));
    EXPECT_EQ(message.sessionId >> 16, 0x5E55U);
    EXPECT_EQ(message.payload, PAYLOAD);
    EXPECT_EQ(message.len, size(PAYLOAD));
}

class Notification : public LibraryTest {};
class Response : public LibraryTest {};
class AsynchronousRequest : public LibraryTest {};
class SynchronousRequest : public LibraryTest {};
class QueueMessage : public LibraryTest {};
class IpcStatus : public LibraryTest {};
class VoteSleep : public LibraryTest {};

} // namespace

TEST_F(IpcStatus, NumbersAreThoseOfTheInterface) {
    EXPECT_EQ(IPC_OK, 0U);
    EXPECT_EQ(IPC_NULL_ARGUMENT, 1U);
    EXPECT_EQ(IPC_NO_MEMORY, 2U);
    EXPECT_EQ(IPC_NO_RESPONSE_MEMORY, 3U);
    EXPECT_EQ(IPC_SEND_FAILED, 4U);
    EXPECT_EQ(IPC_UNKNOWN_DESTINATION, 5U);
    EXPECT_EQ(IPC_ADDRESS_SIZE, 116);
}

TEST_F(VoteSleep, DoesNothingAndReturns0) {
    EXPECT_EQ(zeldcard_vote_sleep(), 0);
    EXPECT_TRUE(calls().empty());
    expectNothingLogged();
}

// Notification

TEST_F(Notification, CarriesItsIdLengthSessionAndPayload) {
    const auto payload = againstGuardPage(PAYLOAD);
    EXPECT_EQ(zeldcard_send_notify(MESSAGE, payload.data(), size(PAYLOAD)), 0U);

    ASSERT_EQ(assigned().size(), 1U);
    EXPECT_EQ(assigned()[0].size, size(PAYLOAD));
    EXPECT_EQ(assigned()[0].type, 0U);
    ASSERT_EQ(sent().size(), 1U);
    expectNewMessage(sent()[0], Call::Notify);
    expectFreed({assigned()[0].block});
    expectNothingLogged();
    EXPECT_EQ(calls(), (std::vector<Call>{Call::MemoryAssign, Call::GenSession, Call::Notify,
                                          Call::MemFree}));
}

TEST_F(Notification, NullPayloadSendsItsLengthWithUnspecifiedContent) {
    EXPECT_EQ(zeldcard_send_notify(MESSAGE, nullptr, 40), 0U);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].payloadLength, 40U);
    EXPECT_EQ(sent()[0].len, 40U);
    EXPECT_EQ(assigned()[0].size, 40U);
    EXPECT_EQ(sent()[0].payload, std::vector<u8>(40, 0xA5)) << "left as assigned";
}

TEST_F(Notification, MayBeEmpty) {
    EXPECT_EQ(zeldcard_send_notify(MESSAGE, PAYLOAD.data(), 0), 0U);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].payloadLength, 0U);
    EXPECT_EQ(sent()[0].len, 0U);
}

TEST_F(Notification, WithoutMemoryGives2) {
    failCall(Call::MemoryAssign, 1);
    EXPECT_EQ(zeldcard_send_notify(MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 2U);
    expectLogged("zeldcard_send_notify", "Alloc IPC memory failed.\n");
    EXPECT_EQ(calls(), (std::vector<Call>{Call::MemoryAssign}));
}

TEST_F(Notification, RefusedByThePlatformGives4AndFreesItsBlock) {
    failCall(Call::Notify, 1, PLATFORM_ERROR);
    EXPECT_EQ(zeldcard_send_notify(MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 4U);
    expectLogged("zeldcard_send_notify", "Send IPC notify failed! ret = 4000000001.\n");
    expectFreed({assigned()[0].block});
}

// Response

TEST_F(Response, GoesToTheAddressBehindThePayloadAtTheNextMultipleOf4) {
    for (u32 length = 0; length <= 9; length++) {
        resetPlatform();
        const AddressRecord sender = addressOf(0x51);
        const auto request =
            Guarded<u32>(receivedRequest(1, 7, 0xCAFE0001, std::vector<u8>(length, 0x77), sender));
        EXPECT_EQ(zeldcard_send_response(request.get(), MESSAGE, PAYLOAD.data(), size(PAYLOAD)),
                  0U);
        ASSERT_EQ(sent().size(), 1U);
        EXPECT_EQ(sent()[0].address, sender) << "request payload of " << length;
    }
}

TEST_F(Response, CarriesTheRequestsSessionAndItsOwnPayload) {
    const auto request =
        Guarded<u32>(receivedRequest(1, 7, 0xCAFE0001, std::vector<u8>(6, 0x77), addressOf(0x51)));
    const auto payload = againstGuardPage(PAYLOAD);
    EXPECT_EQ(zeldcard_send_response(request.get(), MESSAGE, payload.data(), size(PAYLOAD)), 0U);

    ASSERT_EQ(assigned().size(), 1U);
    EXPECT_EQ(assigned()[0].size, size(PAYLOAD));
    EXPECT_EQ(assigned()[0].type, 0U);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].how, Call::SendAsy);
    EXPECT_EQ(sent()[0].messageId, MESSAGE);
    EXPECT_EQ(sent()[0].payloadLength, size(PAYLOAD));
    EXPECT_EQ(sent()[0].sessionId, 0xCAFE0001U);
    EXPECT_EQ(sent()[0].payload, PAYLOAD);
    EXPECT_EQ(sent()[0].len, size(PAYLOAD));
    expectFreed({assigned()[0].block});
    expectNothingLogged();
    EXPECT_EQ(calls(), (std::vector<Call>{Call::MemoryAssign, Call::SendAsy, Call::MemFree}));
}

TEST_F(Response, ToARequestOfKind1IsOfKind2) {
    const auto request = receivedRequest(1, 7, 1, {}, addressOf(1));
    EXPECT_EQ(zeldcard_send_response(request.data(), MESSAGE, nullptr, 0), 0U);
    EXPECT_EQ(sent()[0].kind, 2U);
}

TEST_F(Response, ToARequestOfAnyOtherKindIsOfKind0) {
    for (const u32 kind : {0U, 2U, 4U, 5U, 256U, 0x01000000U, 0xFFFFFFFFU}) {
        resetPlatform();
        const auto request = receivedRequest(kind, 7, 1, {}, addressOf(1));
        EXPECT_EQ(zeldcard_send_response(request.data(), MESSAGE, nullptr, 0), 0U);
        EXPECT_EQ(sent()[0].kind, 0U) << "request of kind " << kind;
    }
}

TEST_F(Response, NullPayloadSendsItsLengthWithUnspecifiedContent) {
    const auto request = receivedRequest(1, 7, 1, {}, addressOf(1));
    EXPECT_EQ(zeldcard_send_response(request.data(), MESSAGE, nullptr, 33), 0U);
    EXPECT_EQ(sent()[0].payload, std::vector<u8>(33, 0xA5));
    EXPECT_EQ(sent()[0].payloadLength, 33U);
}

TEST_F(Response, ToNoRequestGives1) {
    EXPECT_EQ(zeldcard_send_response(nullptr, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 1U);
    expectLogged("zeldcard_send_response", "null pointer of req_msg\n");
    EXPECT_TRUE(calls().empty());
}

TEST_F(Response, ToAQueueMessageGives4ForWantOfASender) {
    const Guarded<u32> queueMessage(std::vector<u32>{3, 7});
    EXPECT_EQ(zeldcard_send_response(queueMessage.get(), MESSAGE, PAYLOAD.data(), size(PAYLOAD)),
              4U);
    expectLogged("zeldcard_send_response", "null pointer of ipc source addr\n");
    EXPECT_TRUE(calls().empty());
}

TEST_F(Response, WithoutMemoryGives3) {
    failCall(Call::MemoryAssign, 1);
    const auto request = receivedRequest(1, 7, 1, {}, addressOf(1));
    EXPECT_EQ(zeldcard_send_response(request.data(), MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 3U);
    expectLogged("zeldcard_send_response", "alloc IPC memory failed\n");
    EXPECT_EQ(calls(), (std::vector<Call>{Call::MemoryAssign}));
}

TEST_F(Response, RefusedByThePlatformGives4AndFreesItsBlock) {
    failCall(Call::SendAsy, 1, PLATFORM_ERROR);
    const auto request = receivedRequest(1, 7, 1, {}, addressOf(1));
    EXPECT_EQ(zeldcard_send_response(request.data(), MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 4U);
    expectLogged("zeldcard_send_response", "IPC send response failed, err = 4000000001\n");
    expectFreed({assigned()[0].block});
}

// Asynchronous request

TEST_F(AsynchronousRequest, GoesToItsDestinationWithItsIdSessionAndPayload) {
    const auto payload = againstGuardPage(PAYLOAD);
    EXPECT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, payload.data(), size(PAYLOAD)), 0U);

    expectAddressAskedFor(DESTINATION);
    ASSERT_EQ(assigned().size(), 1U);
    EXPECT_EQ(assigned()[0].size, size(PAYLOAD));
    EXPECT_EQ(assigned()[0].type, 0U);
    ASSERT_EQ(sent().size(), 1U);
    expectNewMessage(sent()[0], Call::SendAsy);
    EXPECT_EQ(sent()[0].address, addressOf(DESTINATION));
    expectFreed({assigned()[0].block});
    expectNothingLogged();
    EXPECT_EQ(calls(), (std::vector<Call>{Call::GetAddress, Call::MemoryAssign, Call::GenSession,
                                          Call::SendAsy, Call::MemFree}));
}

TEST_F(AsynchronousRequest, NullPayloadSendsItsLengthWithUnspecifiedContent) {
    EXPECT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, nullptr, 7), 0U);
    EXPECT_EQ(sent()[0].payload, std::vector<u8>(7, 0xA5));
    EXPECT_EQ(sent()[0].payloadLength, 7U);
}

TEST_F(AsynchronousRequest, ToAnUnknownDestinationGives5) {
    failCall(Call::GetAddress, 1, PLATFORM_ERROR);
    EXPECT_EQ(zeldcard_send_request_asyn(3000000000U, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 5U);
    expectLogged("zeldcard_send_request_asyn",
                 "IPC get addr failed, dest_id = 3000000000, ret = 4000000001\n");
    EXPECT_EQ(calls(), (std::vector<Call>{Call::GetAddress}));
}

TEST_F(AsynchronousRequest, WithoutMemoryGives2) {
    failCall(Call::MemoryAssign, 1);
    EXPECT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 2U);
    expectLogged("zeldcard_send_request_asyn", "alloc IPC memory failed.\n");
    EXPECT_TRUE(freed().empty());
}

TEST_F(AsynchronousRequest, RefusedByThePlatformGives4AndFreesItsBlock) {
    failCall(Call::SendAsy, 1, PLATFORM_ERROR);
    EXPECT_EQ(zeldcard_send_request_asyn(DESTINATION, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 4U);
    expectLogged("zeldcard_send_request_asyn", "IPC send asyn request failed, ret = 4000000001\n");
    expectFreed({assigned()[0].block});
}

// Synchronous request

namespace {

const u32 WAIT = 20000;
const u32 ROOM = 8;

// A request with room for 8 octets; `out` and `*length` show what came.
u32 ask(const GuardedBytes &out, u32 *length) {
    const auto payload = againstGuardPage(PAYLOAD);
    return zeldcard_send_request_sync(DESTINATION, MESSAGE, payload.data(), size(PAYLOAD),
                                      out.data(), length, WAIT);
}

void respond(const Answer &answer) {
    answerRequests([answer](const Sent &) { return answer; });
}

} // namespace

TEST_F(SynchronousRequest, GoesToItsDestinationAndBringsTheResponse) {
    const std::vector<u8> response = {1, 2, 3, 4, 5, 6, 7, 8};
    respond({0, response});
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 0U);

    EXPECT_EQ(length, ROOM);
    EXPECT_EQ(out.octets(), response);
    expectAddressAskedFor(DESTINATION);
    ASSERT_EQ(assigned().size(), 2U);
    EXPECT_EQ(assigned()[0].size, size(PAYLOAD));
    EXPECT_EQ(assigned()[0].type, 0U);
    EXPECT_EQ(assigned()[1].size, ROOM);
    EXPECT_EQ(assigned()[1].type, 0U);
    ASSERT_EQ(sent().size(), 1U);
    expectNewMessage(sent()[0], Call::SendSyn);
    EXPECT_EQ(sent()[0].address, addressOf(DESTINATION));
    EXPECT_EQ(sent()[0].timeout, WAIT);
    EXPECT_EQ(sent()[0].room, ROOM);
    EXPECT_EQ(sent()[0].block, assigned()[0].block);
    EXPECT_EQ(sent()[0].response, assigned()[1].block);
    expectFreed({assigned()[0].block, assigned()[1].block});
    expectNothingLogged();
    EXPECT_EQ(calls(),
              (std::vector<Call>{Call::GetAddress, Call::MemoryAssign, Call::MemoryAssign,
                                 Call::GenSession, Call::SendSyn, Call::MemFree, Call::MemFree}));
}

TEST_F(SynchronousRequest, WithAShorterResponseCopiesOnlyThat) {
    respond({
        0, {1, 2, 3}
    });
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 0U);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(out.octets(), octets("01 02 03 A5 A5 A5 A5 A5"));
}

TEST_F(SynchronousRequest, WithAnEmptyResponseCopiesNothing) {
    respond({0, {}});
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 0U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(out.octets(), octets("A5x8"));
}

TEST_F(SynchronousRequest, NeverCopiesMoreThanTheRoomGivenOnEntry) {
    for (const u32 claimed : {9U, 1000U, 0x80000000U, 0xFFFFFFFFU}) {
        resetPlatform();
        respond({
            0, {1, 2, 3, 4, 5, 6, 7, 8},
             claimed
        });
        const GuardedBytes out(ROOM);
        u32 length = ROOM;
        EXPECT_EQ(ask(out, &length), 0U);
        EXPECT_EQ(out.octets(), octets("01 02 03 04 05 06 07 08")) << claimed << " claimed";
    }
}

TEST_F(SynchronousRequest, FindsThePayloadOfAResponseOfKind3AtOctet8) {
    respond({
        0, {9, 8, 7, 6},
         4, true
    });
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 0U);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(out.octets(), octets("09 08 07 06 A5 A5 A5 A5"));
}

TEST_F(SynchronousRequest, NullPayloadSendsItsLengthWithUnspecifiedContent) {
    respond({0, {1}});
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(zeldcard_send_request_sync(DESTINATION, MESSAGE, nullptr, 7, out.data(), &length, 1),
              0U);
    EXPECT_EQ(sent()[0].payload, std::vector<u8>(7, 0xA5));
    EXPECT_EQ(sent()[0].payloadLength, 7U);
    EXPECT_EQ(sent()[0].timeout, 1U);
}

TEST_F(SynchronousRequest, WithoutABufferGives1) {
    u32 length = ROOM;
    EXPECT_EQ(zeldcard_send_request_sync(DESTINATION, MESSAGE, PAYLOAD.data(), size(PAYLOAD),
                                         nullptr, &length, WAIT),
              1U);
    expectLogged("zeldcard_send_request_sync", "null pointer of out_buf/out_len\n");
    EXPECT_TRUE(calls().empty());
}

TEST_F(SynchronousRequest, WithoutALengthGives1) {
    u8 out[ROOM];
    EXPECT_EQ(zeldcard_send_request_sync(DESTINATION, MESSAGE, PAYLOAD.data(), size(PAYLOAD), out,
                                         nullptr, WAIT),
              1U);
    expectLogged("zeldcard_send_request_sync", "null pointer of out_buf/out_len\n");
    EXPECT_TRUE(calls().empty());
}

TEST_F(SynchronousRequest, ToAnUnknownDestinationGives5) {
    failCall(Call::GetAddress, 1, PLATFORM_ERROR);
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 5U);
    expectLogged("zeldcard_send_request_sync",
                 "IPC get addr failed, dest_id = 42, ret = 4000000001\n");
    EXPECT_EQ(calls(), (std::vector<Call>{Call::GetAddress}));
}

TEST_F(SynchronousRequest, WithoutMemoryForTheRequestGives2) {
    failCall(Call::MemoryAssign, 1);
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 2U);
    expectLogged("zeldcard_send_request_sync", "alloc IPC memory failed\n");
    EXPECT_TRUE(freed().empty());
    EXPECT_TRUE(sent().empty());
}

TEST_F(SynchronousRequest, WithoutMemoryForTheResponseGives2AndFreesTheRequest) {
    failCall(Call::MemoryAssign, 2);
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 2U);
    expectLogged("zeldcard_send_request_sync", "alloc IPC memory failed\n");
    ASSERT_EQ(assigned().size(), 2U);
    expectFreed({assigned()[0].block});
    EXPECT_TRUE(sent().empty());
}

TEST_F(SynchronousRequest, RefusedByThePlatformGives4AndLeavesTheBuffer) {
    failCall(Call::SendSyn, 1, PLATFORM_ERROR);
    const GuardedBytes out(ROOM);
    u32 length = ROOM;
    EXPECT_EQ(ask(out, &length), 4U);
    expectLogged("zeldcard_send_request_sync",
                 "IPC send sync message failed, ret = 4000000001\n\n");
    EXPECT_EQ(out.octets(), octets("A5x8"));
    expectFreed({assigned()[0].block, assigned()[1].block});
}

TEST_F(SynchronousRequest, WorksFromManyThreadsAtOnce) {
    answerRequests([](const Sent &message) { return Answer{0, message.payload}; });
    const auto worker = [](u8 mark) {
        for (int i = 0; i < 50; i++) {
            const std::vector<u8> payload(100, mark);
            std::vector<u8> out(100);
            u32 length = 100;
            EXPECT_EQ(zeldcard_send_request_sync(mark, MESSAGE, payload.data(), 100, out.data(),
                                                 &length, WAIT),
                      0U);
            EXPECT_EQ(out, payload);
        }
    };
    std::vector<std::thread> threads;
    for (u8 mark = 1; mark <= 4; mark++) { threads.emplace_back(worker, mark); }
    for (std::thread &thread : threads) { thread.join(); }
    EXPECT_EQ(freed().size(), 400U);
}

TEST_F(SynchronousRequest, FreesUnderTheCallingThreadsOwnId) {
    u32 other = 0;
    std::thread([&other] {
        other = threadId();
        u8 out[1];
        u32 length = 1;
        zeldcard_send_request_sync(DESTINATION, MESSAGE, nullptr, 0, out, &length, WAIT);
    }).join();
    ASSERT_EQ(freed().size(), 2U);
    EXPECT_EQ(freed()[0].thread_id, other);
    EXPECT_EQ(freed()[1].thread_id, other);
    EXPECT_NE(other, threadId());
}

// Queue message

TEST_F(QueueMessage, CarriesItsIdAndItsPayloadAtOctet8AndBelongsToTheQueue) {
    const auto payload = againstGuardPage(PAYLOAD);
    EXPECT_EQ(zeldcard_send_mq(0x1234, MESSAGE, payload.data(), size(PAYLOAD)), 0U);

    ASSERT_EQ(assigned().size(), 1U);
    EXPECT_EQ(assigned()[0].size, size(PAYLOAD));
    EXPECT_EQ(assigned()[0].type, 3U);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].how, Call::MqSend);
    EXPECT_EQ(sent()[0].mq, 0x1234U);
    EXPECT_EQ(sent()[0].zero1, 0U);
    EXPECT_EQ(sent()[0].zero2, 0U);
    EXPECT_EQ(sent()[0].kind, 3U);
    EXPECT_EQ(sent()[0].messageId, MESSAGE);
    EXPECT_EQ(sent()[0].payload, PAYLOAD);
    expectNothingLogged();
    EXPECT_EQ(calls(), (std::vector<Call>{Call::MemoryAssign, Call::MqSend})) << "nothing freed";
}

TEST_F(QueueMessage, NullPayloadSendsItsLengthWithUnspecifiedContent) {
    EXPECT_EQ(zeldcard_send_mq(1, MESSAGE, nullptr, 9), 0U);
    EXPECT_EQ(sent()[0].payload, std::vector<u8>(9, 0xA5));
}

TEST_F(QueueMessage, WithoutAHandleGives1AndAssignsNothing) {
    EXPECT_EQ(zeldcard_send_mq(0, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 1U);
    expectLogged("zeldcard_send_mq", "null pointer of IPC mq\n");
    EXPECT_TRUE(calls().empty());
}

TEST_F(QueueMessage, WithoutMemoryGives2) {
    failCall(Call::MemoryAssign, 1);
    EXPECT_EQ(zeldcard_send_mq(1, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 2U);
    expectLogged("zeldcard_send_mq", "Alloc IPC memory failed\n");
    EXPECT_EQ(calls(), (std::vector<Call>{Call::MemoryAssign}));
}

TEST_F(QueueMessage, RefusedByThePlatformGives4AndFreesItsBlock) {
    failCall(Call::MqSend, 1, PLATFORM_ERROR);
    EXPECT_EQ(zeldcard_send_mq(1, MESSAGE, PAYLOAD.data(), size(PAYLOAD)), 4U);
    expectLogged("zeldcard_send_mq", "IPC send mq failed, ret = 4000000001\n");
    expectFreed({assigned()[0].block});
}
