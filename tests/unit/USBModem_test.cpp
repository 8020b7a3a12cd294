#include "atlib/USBModem.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "support/library_test.h"

using namespace support;

namespace {

const u32 FAILED = 0;
const u32 RESPONSE_ROOM = 1025;
const std::size_t HEADER = 12, INLINE_MAX = RESPONSE_ROOM - HEADER;

using Texts = std::vector<std::string>;

struct Free {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

void appendWord(std::vector<u8> *octets, u32 value) {
    u8 bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    octets->insert(octets->end(), bytes, bytes + sizeof(value));
}

void appendText(std::vector<u8> *octets, const std::string &text, std::size_t width) {
    octets->insert(octets->end(), text.begin(), text.end());
    octets->insert(octets->end(), width - text.size(), 0);
}

// The ordinary AT request record, field by field.
std::vector<u8> atRecord(const std::string &command, u32 wait, const Texts &markers) {
    std::vector<u8> record;
    appendWord(&record, static_cast<u32>(command.size()));
    appendWord(&record, 0);
    appendWord(&record, wait);
    appendWord(&record, static_cast<u32>(markers.size()));
    for (const std::string &marker : markers) { appendText(&record, marker, 16); }
    record.resize(96);
    appendText(&record, command, command.size() + 1);
    return record;
}

std::vector<u8> responseRecord(u32 result, u32 flag, u32 length, const std::string &rest) {
    std::vector<u8> record;
    appendWord(&record, result);
    appendWord(&record, flag);
    appendWord(&record, length);
    appendText(&record, rest, rest.size());
    return record;
}

void respond(const Answer &answer) {
    answerRequests([answer](const Sent &) { return answer; });
}

void respondInline(const std::string &text) {
    respond({0, responseRecord(0, 0, static_cast<u32>(text.size()), text)});
}

u32 execAT(const char *command, u32 commandLength, char **reply, u32 wait, int count, ...) {
    va_list markers;
    va_start(markers, count);
    const u32 length = ExecAT(command, commandLength, reply, wait, count, markers);
    va_end(markers);
    return length;
}

// The three ways to ask, for what they have in common.
struct Way {
    const char *name;
    u32 messageId;
    std::size_t commandMax; // what fits the record of 1,025 octets
    u32 (*ask)(const char *command, char **reply);
};

u32 askAT(const char *command, char **reply) {
    return execAT(command, 0, reply, 3000, 2, "OK", "ERROR");
}
u32 askSend(const char *command, char **reply) {
    return ExecAT2(command, nullptr, 0, reply, 35000);
}
u32 askStore(const char *command, char **reply) {
    return ExecAT3(command, 2, nullptr, 0, reply, 35000);
}

const Way WAYS[] = {
    { "ExecAT", 0x1040008f, 1025 - 96 - 1,    askAT},
    {"ExecAT2", 0x104000af,      1025 - 5,  askSend},
    {"ExecAT3", 0x104000b1,      1025 - 9, askStore},
};

class EveryWay : public ::testing::TestWithParam<Way> {
protected:
    void SetUp() override { beginLibraryTest(); }
    void TearDown() override { endLibraryTest(); }
    u32 ask(char **reply) const { return GetParam().ask("AT\r", reply); }
    std::string lastLine() const {
        const auto messages = logMessages();
        return messages.empty() ? "" : messages.back();
    }
};

std::string wayName(const ::testing::TestParamInfo<Way> &info) { return info.param.name; }

// A file that a response can name; gone with the test.
class TransferFile {
public:
    explicit TransferFile(const std::string &content) {
        char path[] = "/tmp/smspb-transfer-XXXXXX";
        const int fd = mkstemp(path);
        EXPECT_GE(fd, 0);
        close(fd);
        path_ = path;
        std::ofstream(path_, std::ios::binary) << content;
    }
    TransferFile(const TransferFile &) = delete;
    TransferFile &operator=(const TransferFile &) = delete;
    ~TransferFile() { unlink(path_.c_str()); }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

void respondThrough(const TransferFile &file) {
    respond({0, responseRecord(0, 1, 0, file.path() + std::string(1, '\0'))});
}

char g_untouched[] = "untouched";

} // namespace

INSTANTIATE_TEST_SUITE_P(Channel, EveryWay, ::testing::ValuesIn(WAYS), wayName);

// What the three ways have in common

TEST_P(EveryWay, AsksDestination1UnderItsMessageIdWithRoomFor1025Octets) {
    respondInline("\r\nOK\r\n");
    char *reply = nullptr;
    ask(&reply);
    const Text owner(reply);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].how, Call::SendSyn);
    EXPECT_EQ(sent()[0].destination(), 1U);
    EXPECT_EQ(sent()[0].messageId, GetParam().messageId);
    EXPECT_EQ(sent()[0].room, RESPONSE_ROOM);
}

TEST_P(EveryWay, HandsBackTheInlineReplyAsAHeapText) {
    respondInline("\r\n+CSQ: 17,99\r\n\r\nOK\r\n");
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 21U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "\r\n+CSQ: 17,99\r\n\r\nOK\r\n");
    EXPECT_EQ(allocationSizes(), (std::vector<std::size_t>{22})) << "length and zero";
}

TEST_P(EveryWay, EmptyReplyIsAReply) {
    respondInline("");
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 0U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "");
}

TEST_P(EveryWay, ReplyIsCutAtItsFirstZero) {
    respondInline(std::string("\r\nOK\0junk\r\n", 11));
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 4U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "\r\nOK");
}

TEST_P(EveryWay, LongestInlineReplyComesWhole) {
    const std::string text(INLINE_MAX, 'x');
    respondInline(text);
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), INLINE_MAX);
    const Text owner(reply);
    EXPECT_STREQ(reply, text.c_str());
}

TEST_P(EveryWay, InlineLengthIsCutToWhatTheResponseCarries) {
    const std::string text(INLINE_MAX, 'x');
    for (const u32 claimed : {1014U, 1024U, 1025U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        respond({0, responseRecord(0, 0, claimed, text)});
        char *reply = nullptr;
        EXPECT_EQ(ask(&reply), INLINE_MAX) << claimed << " claimed";
        const Text owner(reply);
        EXPECT_STREQ(reply, text.c_str());
    }
}

TEST_P(EveryWay, InlineLengthBeyondAShortResponseGivesWhatCame) {
    respond({0, responseRecord(0, 0, 600, "\r\nOK\r\n")});
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 6U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "\r\nOK\r\n");
}

TEST_P(EveryWay, InlineLengthCutsTheReply) {
    respond({0, responseRecord(0, 0, 4, "\r\nOK\r\n")});
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 4U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "\r\nOK");
}

TEST_P(EveryWay, ResponseThatClaimsMoreThanItsRoomIsCutToIt) {
    const std::string text(3000, 'y');
    respond({0, responseRecord(0, 0, 3000, text), 3012});
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), INLINE_MAX);
    const Text owner(reply);
    EXPECT_EQ(std::string(reply), std::string(INLINE_MAX, 'y'));
}

TEST_P(EveryWay, ResponseWithoutAnyOctetIsAnEmptyReply) {
    respond({0, {}});
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 0U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "") << "the response area was cleared, so result and length are 0";
}

TEST_P(EveryWay, AnyFlagButOneMeansInline) {
    for (const u32 flag : {0U, 2U, 0x01000000U, 0xFFFFFFFFU}) {
        respond({0, responseRecord(0, flag, 2, "OK")});
        char *reply = nullptr;
        EXPECT_EQ(ask(&reply), 2U) << "flag " << flag;
        const Text owner(reply);
        EXPECT_STREQ(reply, "OK");
    }
}

TEST_P(EveryWay, TransferFileGivesTheReply) {
    const TransferFile file("\r\n+CMGL: 1\r\n\r\nOK\r\n");
    respondThrough(file);
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 18U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "\r\n+CMGL: 1\r\n\r\nOK\r\n");
    EXPECT_TRUE(std::filesystem::exists(file.path())) << "the library only reads it";
}

TEST_P(EveryWay, TransferFileOf1024OctetsComesWhole) {
    const std::string text(1024, 'z');
    const TransferFile file(text);
    respondThrough(file);
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 1024U);
    const Text owner(reply);
    EXPECT_STREQ(reply, text.c_str());
}

TEST_P(EveryWay, LongerTransferFileGivesItsFirst1024Octets) {
    for (const std::size_t size : {1025, 1026, 4096, 100000}) {
        const TransferFile file(std::string(1024, 'z') + std::string(size - 1024, '!'));
        respondThrough(file);
        char *reply = nullptr;
        EXPECT_EQ(ask(&reply), 1024U);
        const Text owner(reply);
        EXPECT_EQ(std::string(reply), std::string(1024, 'z'));
    }
}

TEST_P(EveryWay, TransferFileIsCutAtItsFirstZero) {
    const TransferFile file(std::string("abc\0def", 7));
    respondThrough(file);
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 3U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "abc");
}

TEST_P(EveryWay, EmptyTransferFileIsAnEmptyReply) {
    const TransferFile file("");
    respondThrough(file);
    char *reply = nullptr;
    EXPECT_EQ(ask(&reply), 0U);
    const Text owner(reply);
    EXPECT_STREQ(reply, "");
}

TEST_P(EveryWay, MissingTransferFileGives0AndLeavesTheReply) {
    respond({0, responseRecord(0, 1, 0, std::string("/tmp/smspb-no-such-file\0", 24))});
    char *reply = g_untouched;
    EXPECT_EQ(ask(&reply), FAILED);
    EXPECT_EQ(reply, g_untouched);
    const auto entries = logEntries();
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries.back().message, "open RPC transfor file failed.\n\n");
    EXPECT_EQ(entries.back().source, "atlib/USBModem.cpp");
    EXPECT_EQ(entries.back().function, GetParam().name);
}

TEST_P(EveryWay, PathWithoutAZeroIsCutAtTheResponsesEnd) {
    respond({0, responseRecord(0, 1, 0, std::string(INLINE_MAX, '/'))});
    char *reply = g_untouched;
    // All slashes name the root directory, which opens but does not read.
    ask(&reply);
    if (reply != g_untouched) { const Text owner(reply); }
    respond({0, responseRecord(0, 1, 0, std::string(INLINE_MAX, 'x'))});
    reply = g_untouched;
    EXPECT_EQ(ask(&reply), FAILED);
    EXPECT_EQ(reply, g_untouched);
}

TEST_P(EveryWay, ResultWordOtherThan0Gives0AndReadsNothing) {
    for (const u32 result : {1U, 0x01000000U, 0xFFFFFFFFU}) {
        respond({0, responseRecord(result, 0, 6, "\r\nOK\r\n")});
        char *reply = g_untouched;
        EXPECT_EQ(ask(&reply), FAILED) << "result word " << result;
        EXPECT_EQ(reply, g_untouched);
        EXPECT_TRUE(allocationSizes().empty());
    }
}

TEST_P(EveryWay, FailedSendGives0AndLeavesTheReply) {
    const struct {
        Call which;
        u32 nth;
    } faults[] = {
        {  Call::GetAddress, 1},
        {Call::MemoryAssign, 1},
        {Call::MemoryAssign, 2},
        {     Call::SendSyn, 1}
    };
    for (const auto &fault : faults) {
        resetPlatform();
        respondInline("\r\nOK\r\n");
        failCall(fault.which, fault.nth);
        char *reply = g_untouched;
        EXPECT_EQ(ask(&reply), FAILED);
        EXPECT_EQ(reply, g_untouched);
    }
}

TEST_P(EveryWay, WithoutMemoryStoresNullAndStillReturnsTheLength) {
    respondInline("\r\nOK\r\n");
    failAllocation(1);
    char *reply = g_untouched;
    EXPECT_EQ(ask(&reply), 6U);
    EXPECT_EQ(reply, nullptr);
}

TEST_P(EveryWay, LongestCommandThatFitsItsRecordIsSent) {
    respondInline("OK");
    const std::string command(GetParam().commandMax, 'A');
    const auto text = guardedText(command);
    char *reply = nullptr;
    EXPECT_EQ(GetParam().ask(text.get(), &reply), 2U);
    const Text owner(reply);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].len, RESPONSE_ROOM);
    const std::vector<u8> &payload = sent()[0].payload;
    ASSERT_EQ(payload.size(), RESPONSE_ROOM);
    EXPECT_EQ(std::string(payload.end() - 1 - static_cast<std::ptrdiff_t>(command.size()),
                          payload.end() - 1),
              command);
    EXPECT_EQ(payload.back(), 0);
}

TEST_P(EveryWay, CommandThatDoesNotFitIsRefusedAndNothingIsSent) {
    for (const std::size_t excess : {1, 2, 200, 70000}) {
        clearLog();
        respondInline("OK");
        const auto text = guardedText(std::string(GetParam().commandMax + excess, 'A'));
        char *reply = g_untouched;
        EXPECT_EQ(GetParam().ask(text.get(), &reply), FAILED);
        EXPECT_EQ(reply, g_untouched);
        EXPECT_TRUE(calls().empty());
        EXPECT_EQ(lastLine().rfind("call WM_MSG_MODEM_AT_REQ failed", 0), 0U) << lastLine();
    }
}

TEST_P(EveryWay, CommandIsReadUpToItsZeroOnly) {
    respondInline("OK");
    const auto text = guardedText("AT+CSQ\r");
    char *reply = nullptr;
    EXPECT_EQ(GetParam().ask(text.get(), &reply), 2U);
    const Text owner(reply);
}

// ExecAT

namespace {
class Command : public LibraryTest {};
class SendRequest : public LibraryTest {};
class StoreRequest : public LibraryTest {};
class WriteComm : public LibraryTest {};
class AuxiliaryLog : public LibraryTest {};
} // namespace

TEST_F(Command, RecordHoldsLengthWaitMarkersAndText) {
    respondInline("OK");
    char *reply = nullptr;
    execAT("AT+CSCA?\r", 9, &reply, 3000, 4, "OK", "ERROR", "+CMS ERROR:", "+CME ERROR:");
    const Text owner(reply);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].payload, atRecord("AT+CSCA?\r", 3000, fourMarkers()));
    EXPECT_EQ(sent()[0].len, 96U + 9 + 1);
    EXPECT_EQ(sent()[0].payloadLength, 96U + 9 + 1);
}

TEST_F(Command, RecordOfAnEmptyTextEndsWithItsZero) {
    respondInline("OK");
    char *reply = nullptr;
    execAT("", 0, &reply, 0, 0);
    const Text owner(reply);
    EXPECT_EQ(sent()[0].payload, atRecord("", 0, {}));
    EXPECT_EQ(sent()[0].len, 97U);
}

TEST_F(Command, LengthArgumentIsNotUsed) {
    for (const u32 length : {0U, 2U, 100000U}) {
        respondInline("OK");
        char *reply = nullptr;
        execAT("AT+CSCA?\r", length, &reply, 3000, 1, "OK");
        const Text owner(reply);
        EXPECT_EQ(sent().back().payload, atRecord("AT+CSCA?\r", 3000, {"OK"}));
    }
}

TEST_F(Command, AnyNumberOfMarkersUpTo5FillsItsSlots) {
    const Texts markers = {"OK", "ERROR", "+CME", "NO CARRIER", "CONNECT"};
    for (int count = 0; count <= 5; count++) {
        respondInline("OK");
        char *reply = nullptr;
        execAT("AT\r", 3, &reply, 1, count, "OK", "ERROR", "+CME", "NO CARRIER", "CONNECT");
        const Text owner(reply);
        EXPECT_EQ(sent().back().payload,
                  atRecord("AT\r", 1, Texts(markers.begin(), markers.begin() + count)));
    }
}

TEST_F(Command, MarkersBeyondTheFifthAreNotSent) {
    for (const int count : {6, 7}) {
        respondInline("OK");
        char *reply = nullptr;
        execAT("AT\r", 3, &reply, 1, count, "1", "2", "3", "4", "5", "6", "7");
        const Text owner(reply);
        EXPECT_EQ(sent().back().payload, atRecord("AT\r", 1, {"1", "2", "3", "4", "5"}));
    }
}

TEST_F(Command, NegativeCountSendsNoMarkers) {
    respondInline("OK");
    char *reply = nullptr;
    execAT("AT\r", 3, &reply, 1, -1);
    const Text owner(reply);
    EXPECT_EQ(sent().back().payload, atRecord("AT\r", 1, {}));
}

TEST_F(Command, MarkerIsCutTo15Characters) {
    respondInline("OK");
    char *reply = nullptr;
    const auto longMarker = guardedText("0123456789ABCDEFGHIJ");
    execAT("AT\r", 3, &reply, 1, 3, "0123456789ABCDE", "0123456789ABCDEF", longMarker.get());
    const Text owner(reply);
    EXPECT_EQ(sent().back().payload,
              atRecord("AT\r", 1, {"0123456789ABCDE", "0123456789ABCDE", "0123456789ABCDE"}));
}

TEST_F(Command, IpcWaitIs20SecondsWhateverTheManagersWaitIs) {
    for (const u32 wait : {0U, 3000U, 50000U}) {
        respondInline("OK");
        char *reply = nullptr;
        execAT("AT\r", 3, &reply, wait, 0);
        const Text owner(reply);
        EXPECT_EQ(sent().back().timeout, 20000U);
        EXPECT_EQ(sent().back().payload, atRecord("AT\r", wait, {}));
    }
}

TEST_F(Command, SuccessLogsNothing) {
    respondInline("OK");
    char *reply = nullptr;
    askAT("AT\r", &reply);
    const Text owner(reply);
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Command, FailureLogsOneLine) {
    respond({0, responseRecord(1, 0, 0, "")});
    char *reply = nullptr;
    EXPECT_EQ(askAT("AT\r", &reply), FAILED);
    const auto entries = logEntries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].source, "atlib/USBModem.cpp");
    EXPECT_EQ(entries[0].function, "ExecAT");
    EXPECT_EQ(entries[0].message, "call WM_MSG_MODEM_AT_REQ failed.\n\n");
}

TEST_F(Command, FailedSendLogsBelowItsPrimitivesLine) {
    failCall(Call::SendSyn, 1, 5);
    char *reply = nullptr;
    EXPECT_EQ(askAT("AT\r", &reply), FAILED);
    EXPECT_EQ(logMessages(), (Texts{"IPC send sync message failed, ret = 5\n\n",
                                    "call WM_MSG_MODEM_AT_REQ failed.\n\n"}));
}

TEST_F(Command, RefusedOversizeLogsTheFailedLine) {
    const std::string command(929, 'A');
    char *reply = nullptr;
    EXPECT_EQ(askAT(command.c_str(), &reply), FAILED);
    EXPECT_EQ(logMessages(), (Texts{"call WM_MSG_MODEM_AT_REQ failed.\n\n"}));
}

// ExecAT2

TEST_F(SendRequest, RecordHoldsLengthAndText) {
    respondInline("OK");
    char *reply = nullptr;
    const char markers[2][31] = {"OK", "ERROR"};
    EXPECT_EQ(ExecAT2("0011000B", markers, 2, &reply, 35000), 2U);
    const Text owner(reply);
    std::vector<u8> record;
    appendWord(&record, 8);
    appendText(&record, "0011000B", 9);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].payload, record);
    EXPECT_EQ(sent()[0].len, 8U + 5);
    EXPECT_EQ(sent()[0].timeout, 35000U);
}

TEST_F(SendRequest, WaitIsTheCallers) {
    respondInline("OK");
    char *reply = nullptr;
    ExecAT2("00", nullptr, 0, &reply, 7);
    const Text owner(reply);
    EXPECT_EQ(sent()[0].timeout, 7U);
}

TEST_F(SendRequest, MarkersAreNotLookedAt) {
    respondInline("OK");
    char *reply = nullptr;
    EXPECT_EQ(ExecAT2("00", nullptr, 4000000000U, &reply, 1), 2U);
    const Text owner(reply);
    EXPECT_EQ(sent()[0].payload.size(), 7U);
}

TEST_F(SendRequest, LogsRequestAndResponse) {
    respondInline("\r\n+CMGS: 5\r\n\r\nOK\r\n");
    char *reply = nullptr;
    askSend("0011%s", &reply);
    const Text owner(reply);
    EXPECT_EQ(logMessagesOf("ExecAT2"),
              (Texts{"REQUEST data:0011%s\n\n",
                     "RESPONSE data:\r\n+CMGS: 5\r\n\r\nOK\r\n RESPONSE length:18\n\n"}));
    EXPECT_EQ(logMessages().size(), 2U);
    EXPECT_EQ(logEntries()[0].source, "atlib/USBModem.cpp");
}

TEST_F(SendRequest, LogsTheResponseAlsoWithoutMemoryForIt) {
    respondInline("OK");
    failAllocation(1);
    char *reply = nullptr;
    EXPECT_EQ(askSend("00", &reply), 2U);
    EXPECT_EQ(logMessages(),
              (Texts{"REQUEST data:00\n\n", "RESPONSE data:OK RESPONSE length:2\n\n"}));
}

TEST_F(SendRequest, LogsTheReplyCutAtItsZero) {
    const TransferFile file(std::string("abc\0def", 7));
    respondThrough(file);
    char *reply = nullptr;
    askSend("00", &reply);
    const Text owner(reply);
    EXPECT_EQ(logMessages().back(), "RESPONSE data:abc RESPONSE length:3\n\n");
}

TEST_F(SendRequest, FailedSendLogsItsStatusAndResultWord0) {
    failCall(Call::SendSyn, 1, 5);
    char *reply = nullptr;
    EXPECT_EQ(askSend("00", &reply), FAILED);
    EXPECT_EQ(logMessagesOf("ExecAT2"),
              (Texts{"REQUEST data:00\n\n", "call WM_MSG_MODEM_AT_REQ failed:4 errcode:0\n\n"}));
}

TEST_F(SendRequest, UnknownManagerLogsStatus5) {
    failCall(Call::GetAddress, 1);
    char *reply = nullptr;
    EXPECT_EQ(askSend("00", &reply), FAILED);
    EXPECT_EQ(logMessages().back(), "call WM_MSG_MODEM_AT_REQ failed:5 errcode:0\n\n");
}

TEST_F(SendRequest, RefusedRequestLogsStatus0AndTheResultWord) {
    respond({0, responseRecord(38, 0, 0, "")});
    char *reply = nullptr;
    EXPECT_EQ(askSend("00", &reply), FAILED);
    EXPECT_EQ(logMessagesOf("ExecAT2"),
              (Texts{"REQUEST data:00\n\n", "call WM_MSG_MODEM_AT_REQ failed:0 errcode:38\n\n"}));
}

TEST_F(SendRequest, ResultWordIsPrintedSigned) {
    respond({0, responseRecord(0xFFFFFFFF, 0, 0, "")});
    char *reply = nullptr;
    EXPECT_EQ(askSend("00", &reply), FAILED);
    EXPECT_EQ(logMessages().back(), "call WM_MSG_MODEM_AT_REQ failed:0 errcode:-1\n\n");
}

TEST_F(SendRequest, MissingTransferFileLogsNoResponse) {
    respond({0, responseRecord(0, 1, 0, std::string("/tmp/smspb-no-such-file\0", 24))});
    char *reply = nullptr;
    EXPECT_EQ(askSend("00", &reply), FAILED);
    EXPECT_EQ(logMessages(), (Texts{"REQUEST data:00\n\n", "open RPC transfor file failed.\n\n"}));
}

TEST_F(SendRequest, RefusedOversizeEndsWithResultWord0) {
    const std::string command(1021, 'A');
    char *reply = nullptr;
    EXPECT_EQ(askSend(command.c_str(), &reply), FAILED);
    const std::string line = logMessages().back();
    EXPECT_EQ(line.substr(line.size() - 11), "errcode:0\n\n");
}

// ExecAT3

TEST_F(StoreRequest, RecordHoldsLengthParameterAndText) {
    respondInline("OK");
    char *reply = nullptr;
    const char markers[2][31] = {"OK", "ERROR"};
    EXPECT_EQ(ExecAT3("0011000B", 0xFEDC0002, markers, 2, &reply, 35000), 2U);
    const Text owner(reply);
    std::vector<u8> record;
    appendWord(&record, 8);
    appendWord(&record, 0xFEDC0002);
    appendText(&record, "0011000B", 9);
    ASSERT_EQ(sent().size(), 1U);
    EXPECT_EQ(sent()[0].payload, record);
    EXPECT_EQ(sent()[0].len, 8U + 9);
    EXPECT_EQ(sent()[0].timeout, 35000U);
}

TEST_F(StoreRequest, WaitIsTheCallers) {
    respondInline("OK");
    char *reply = nullptr;
    ExecAT3("00", 0, nullptr, 0, &reply, 7);
    const Text owner(reply);
    EXPECT_EQ(sent()[0].timeout, 7U);
}

TEST_F(StoreRequest, MarkersAreNotLookedAt) {
    respondInline("OK");
    char *reply = nullptr;
    EXPECT_EQ(ExecAT3("00", 0, nullptr, 4000000000U, &reply, 1), 2U);
    const Text owner(reply);
    EXPECT_EQ(sent()[0].payload.size(), 11U);
}

TEST_F(StoreRequest, LogsRequestResultAndResponse) {
    respondInline("\r\n+CMGW: 3\r\n\r\nOK\r\n");
    char *reply = nullptr;
    askStore("0011", &reply);
    const Text owner(reply);
    EXPECT_EQ(logMessagesOf("ExecAT3"),
              (Texts{"REQUEST data:0011\n\n", "send REQUEST DATA result:0 0\n\n",
                     "RESPONSE data:\r\n+CMGW: 3\r\n\r\nOK\r\n RESPONSE length:18\n\n"}));
    EXPECT_EQ(logMessages().size(), 3U);
}

TEST_F(StoreRequest, FailedSendLogsItsStatusAndResultWord0) {
    failCall(Call::SendSyn, 1, 5);
    char *reply = nullptr;
    EXPECT_EQ(askStore("00", &reply), FAILED);
    EXPECT_EQ(logMessagesOf("ExecAT3"),
              (Texts{"REQUEST data:00\n\n", "send REQUEST DATA result:4 0\n\n",
                     "call WM_MSG_MODEM_AT_REQ failed.\n\n"}));
}

TEST_F(StoreRequest, RefusedRequestLogsStatus0AndTheResultWord) {
    respond({0, responseRecord(0xFFFFFFFE, 0, 0, "")});
    char *reply = nullptr;
    EXPECT_EQ(askStore("00", &reply), FAILED);
    EXPECT_EQ(logMessagesOf("ExecAT3"),
              (Texts{"REQUEST data:00\n\n", "send REQUEST DATA result:0 -2\n\n",
                     "call WM_MSG_MODEM_AT_REQ failed.\n\n"}));
}

TEST_F(StoreRequest, MissingTransferFileLogsNoResponse) {
    respond({0, responseRecord(0, 1, 0, std::string("/tmp/smspb-no-such-file\0", 24))});
    char *reply = nullptr;
    EXPECT_EQ(askStore("00", &reply), FAILED);
    EXPECT_EQ(logMessages(), (Texts{"REQUEST data:00\n\n", "send REQUEST DATA result:0 0\n\n",
                                    "open RPC transfor file failed.\n\n"}));
}

// writeComm

TEST_F(WriteComm, RunsTheCommandWithItsMarkersAndReturnsTheReply) {
    ScriptedModem modem({
        {"AT+CPMS?\r", "\r\n+CPMS: 1\r\n\r\nOK\r\n"}
    });
    const Text reply(writeComm("AT+CPMS?\r", 3000, 4, "OK", "ERROR", "+CMS ERROR:", "+CME ERROR:"));
    EXPECT_STREQ(reply.get(), "\r\n+CPMS: 1\r\n\r\nOK\r\n");
    ASSERT_EQ(modem.requests().size(), 1U);
    EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
    EXPECT_EQ(modem.requests()[0].reserved, 0U);
    EXPECT_EQ(modem.requests()[0].markers, fourMarkers());
    EXPECT_EQ(modem.requests()[0].ipcTimeout, 20000U);
    EXPECT_EQ(modem.requests()[0].destination, 1U);
}

TEST_F(WriteComm, LogsTheCommandAndTheReply) {
    ScriptedModem modem({
        {"AT+X=\"%s\"\r", "\r\n%d\r\nOK\r\n"}
    });
    const Text reply(writeComm("AT+X=\"%s\"\r", 3000, 1, "OK"));
    EXPECT_EQ(logMessages(), (Texts{"send at comand:AT+X=\"%s\"\r\n\n",
                                    "callback of at command is \r\n%d\r\nOK\r\n\n"}));
    for (const LogEntry &entry : logEntries()) {
        EXPECT_EQ(entry.source, "atlib/USBModem.cpp");
        EXPECT_EQ(entry.function, "writeComm");
    }
}

TEST_F(WriteComm, EmptyReplyIsAReply) {
    ScriptedModem modem({
        {"AT\r", ""}
    });
    const Text reply(writeComm("AT\r", 3000, 1, "OK"));
    EXPECT_STREQ(reply.get(), "");
    EXPECT_EQ(logMessages(), (Texts{"send at comand:AT\r\n\n", "callback of at command is \n"}));
}

TEST_F(WriteComm, ReplyMayComeThroughAFile) {
    const std::string text(1000, 'q');
    ScriptedModem modem({
        {"AT\r", throughFile(text)}
    });
    const Text reply(writeComm("AT\r", 3000, 1, "OK"));
    EXPECT_EQ(std::string(reply.get()), text);
}

TEST_F(WriteComm, WithoutAnAnswerReturnsNull) {
    ScriptedModem modem({
        {"AT\r", NO_REPLY}
    });
    EXPECT_EQ(writeComm("AT\r", 3000, 1, "OK"), nullptr);
    EXPECT_EQ(logMessagesIn("atlib/USBModem.cpp"),
              (Texts{"send at comand:AT\r\n\n", "call WM_MSG_MODEM_AT_REQ failed.\n\n",
                     "callback of at command error\n"}));
}

TEST_F(WriteComm, RefusedByTheManagerReturnsNull) {
    ScriptedModem modem({
        {"AT\r", refused(3)}
    });
    EXPECT_EQ(writeComm("AT\r", 3000, 1, "OK"), nullptr);
    EXPECT_EQ(logMessages().back(), "callback of at command error\n");
}

TEST_F(WriteComm, WithoutMemoryForTheReplyReturnsNull) {
    ScriptedModem modem({
        {"AT\r", "OK"}
    });
    failAllocation(1);
    EXPECT_EQ(writeComm("AT\r", 3000, 1, "OK"), nullptr);
    EXPECT_EQ(logMessages(), (Texts{"send at comand:AT\r\n\n", "callback of at command error\n"}));
}

TEST_F(WriteComm, CommandThatDoesNotFitReturnsNullAndAsksNothing) {
    ScriptedModem modem({});
    EXPECT_EQ(writeComm(std::string(929, 'A').c_str(), 3000, 1, "OK"), nullptr);
    EXPECT_EQ(logMessages().back(), "callback of at command error\n");
    EXPECT_TRUE(calls().empty());
}

TEST_F(WriteComm, WorksWhenTheLogCannotBeWritten) {
    ScriptedModem modem({
        {"AT\r", "\r\nOK\r\n"}
    });
    setLogFaults({true, true});
    const Text reply(writeComm("AT\r", 3000, 1, "OK"));
    EXPECT_STREQ(reply.get(), "\r\nOK\r\n");
}

// usbmodem_log

TEST_F(AuxiliaryLog, TextStandsAloneWithoutPrefixOrEnd) {
    EXPECT_EQ(usbmodem_log("value %d of %s", -5, "name"), 0);
    EXPECT_EQ(usbmodem_log("%c\n", '!'), 0);
    EXPECT_EQ(logFile(AUXILIARY_LOG), "value -5 of name!\n");
    EXPECT_FALSE(logFileExists(CURRENT_LOG));
}

TEST_F(AuxiliaryLog, TextIsAppendedToWhatStands) {
    writeLogFile(AUXILIARY_LOG, "before;");
    EXPECT_EQ(usbmodem_log("after"), 0);
    EXPECT_EQ(logFile(AUXILIARY_LOG), "before;after");
}

TEST_F(AuxiliaryLog, FileIsNotRotated) {
    const std::string before(300000, '.');
    writeLogFile(AUXILIARY_LOG, before);
    EXPECT_EQ(usbmodem_log("x"), 0);
    EXPECT_EQ(logFile(AUXILIARY_LOG), before + "x");
}

TEST_F(AuxiliaryLog, LongTextIsWhole) {
    const std::string text(20000, 'l');
    EXPECT_EQ(usbmodem_log("%s", text.c_str()), 0);
    EXPECT_EQ(logFile(AUXILIARY_LOG), text);
}

TEST_F(AuxiliaryLog, FileThatCannotBeOpenedGivesMinus1) {
    setLogFaults({true, false});
    EXPECT_EQ(usbmodem_log("lost %d", 1), -1);
    setLogFaults({});
    std::filesystem::create_directory(privatePath(AUXILIARY_LOG));
    EXPECT_EQ(usbmodem_log("lost %d", 2), -1);
}
