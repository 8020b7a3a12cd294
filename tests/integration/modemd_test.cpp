// smspb-modemd as a process, on a terminal whose other end the tests hold: requests go in through
// the library, the tests speak as the modem. Replies are written by hand from V.250, TS 27.005 and
// TS 27.007. The parts that need no process are tested on their own.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <spdlog/spdlog.h>

#include "atlib/USBModem.h"
#include "comm/zeldcard_common.h"
#include "platform/ipc/ipc_server.h"
#include "platform/modemd/at_engine.h"
#include "platform/modemd/at_lines.h"
#include "platform/modemd/modem_service.h"
#include "platform/modemd/records.h"
#include "platform/modemd/request_queue.h"
#include "platform/modemd/settings_memory.h"
#include "support/manager_scene.h"

namespace {

using namespace scene;

// ================ records ================

struct BadRecord {
    const char *name;
    u32 messageId;
    std::string record;
    const char *complaint;
};

void PrintTo(const BadRecord &bad, std::ostream *out) { *out << bad.name; }

std::string withWord(std::string record, std::size_t at, u32 value) {
    return record.replace(at, sizeof(value), word(value));
}

// The builders keep the tables readable: a name, the record, what is said of it.
BadRecord badCommand(const char *name, const std::string &record, const char *complaint) {
    return {name, COMMAND_REQUEST, record, complaint};
}

BadRecord badSend(const char *name, const std::string &record, const char *complaint) {
    return {name, SEND_REQUEST, record, complaint};
}

BadRecord badStore(const char *name, const std::string &record, const char *complaint) {
    return {name, STORE_REQUEST, record, complaint};
}

std::string withLastOctet(std::string record, char octet) {
    record.back() = octet;
    return record;
}

std::vector<BadRecord> badCommandRecords() {
    const std::string good = commandRecord("AT\r");
    const std::string unterminatedMarker = std::string(good).replace(16, 16, "0123456789abcdef");
    const std::string withZero = commandRecord(std::string("AT\0I\r", 5));
    const std::string tooLong = commandRecord("AT+" + std::string(925, 'X') + "\r");
    return {
        badCommand("EmptyRecord", "", "0 octets where its text length of 0 makes it 97"),
        badCommand("RecordWithoutText", good.substr(0, 96), "96 octets where"),
        badCommand("RecordCutInItsMarkers", good.substr(0, 40), "marker 3"),
        badCommand("RecordCutInItsText", good.substr(0, 98), "98 octets where"),
        badCommand("TextLongerThanAnnounced", withWord(good, 0, 2),
                   "100 octets where its text length of 2 makes it 99"),
        badCommand("TextShorterThanAnnounced", withWord(good, 0, 4),
                   "100 octets where its text length of 4 makes it 101"),
        badCommand("LengthThatWouldWrap", withWord(good, 0, 0xffffffff),
                   "text length of 4294967295 makes it 4294967392"),
        badCommand("SixMarkers", withWord(good, 12, 6), "6 final-result markers; at most 5 fit"),
        badCommand("ABillionMarkers", withWord(good, 12, 1000000000), "at most 5 fit"),
        badCommand("EmptyMarker", withWord(good, 12, 5), "marker 5 must be 1 to 15"),
        badCommand("UnterminatedMarker", unterminatedMarker, "marker 1 must be 1 to 15"),
        badCommand("UnterminatedText", withLastOctet(good, '!'), "not zero-terminated"),
        badCommand("NoCarriageReturn", commandRecord("AT"), "does not end in"),
        badCommand("EmptyText", commandRecord(""), "does not end in"),
        badCommand("TwoLines", commandRecord("AT\rATZ\r"), "octet 0x0d at position 2"),
        badCommand("LineFeedAtTheEnd", commandRecord("AT\r\n"), "does not end in"),
        badCommand("Escape", commandRecord("AT\x1b\r"), "octet 0x1b"),
        badCommand("CtrlZ", commandRecord("AT\x1a\r"), "octet 0x1a"),
        badCommand("ZeroInTheText", withZero, "octet 0x00 at position 2"),
        badCommand("RecordOf1026Octets", tooLong, "has 1026 octets; at most 1025"),
    };
}

std::vector<BadRecord> badMessageRecords() {
    const std::string send = sendRecord(PDU);
    const std::string store = storeRecord(PDU, 2);
    return {
        badSend("EmptySend", "", "0 octets where"),
        badSend("SendCutInItsLength", "\x02", "1 octets where"),
        badSend("SendTextLongerThanAnnounced", withWord(send, 0, 36), "makes it 41"),
        badSend("SendTextShorterThanAnnounced", withWord(send, 0, 400), "makes it 405"),
        badSend("UnterminatedSend", withLastOctet(send, '0'), "not zero-terminated"),
        badSend("PduThatIsNotHexadecimal", sendRecord("00G0"), "not a row of hexadecimal"),
        badSend("PduWithHalfAnOctet", sendRecord(PDU + "0"), "39 characters"),
        badSend("PduWithLineEnd", sendRecord(PDU + "\r\n"), "not a row of hexadecimal"),
        badSend("EmptyPdu", sendRecord(""), "0 octets ends in its service-centre part"),
        badSend("PduOfServiceCentreAlone", sendRecord("0291FF"), "3 octets ends in"),
        badSend("PduShorterThanItsServiceCentre", sendRecord("FF91515500"), "part of 256"),
        badStore("StoreWithoutStatus", store.substr(0, 4), "4 octets where"),
        badStore("StoreTextLongerThanAnnounced", withWord(store, 0, 36), "makes it 45"),
        badStore("UnterminatedStore", withLastOctet(store, '0'), "not zero-terminated"),
        badStore("StoreAsReceivedUnread", storeRecord(PDU, 1),
                 "message status 1; 2 stores as unsent, 3 as sent, 0"),
        badStore("StoreWithUnknownStatus", storeRecord(PDU, 0xffffffff), "status 4294967295"),
        badStore("StoreOfBadPdu", storeRecord("zz", 2), "not a row of hexadecimal"),
        BadRecord{"UnknownMessageId", 0x10400090, send, "message id 0x10400090 is no request"},
    };
}

std::vector<BadRecord> badRecords() {
    std::vector<BadRecord> all = badCommandRecords();
    for (const BadRecord &bad : badMessageRecords()) { all.push_back(bad); }
    return all;
}

class MalformedRecord : public testing::TestWithParam<BadRecord> {};

TEST_P(MalformedRecord, IsRefusedWithWhatWouldBeRight) {
    try {
        parseRequest(GetParam().messageId, octetsOf(GetParam().record));
        ADD_FAILURE() << "taken";
    } catch (const MalformedRequest &error) {
        EXPECT_NE(std::string(error.what()).find(GetParam().complaint), std::string::npos)
            << error.what();
    }
}

INSTANTIATE_TEST_SUITE_P(Requests, MalformedRecord, testing::ValuesIn(badRecords()), CaseName());

TEST(Record, ACommandComesWithItsMarkersAndWait) {
    const std::string record = commandRecord("AT+CPMS=\"SM\"\r", {"OK", "0123456789abcde"}, 1234);
    const auto request = std::get<CommandRequest>(parseRequest(COMMAND_REQUEST, octetsOf(record)));
    EXPECT_EQ(request.text, "AT+CPMS=\"SM\"\r");
    EXPECT_EQ(request.markers, (std::vector<std::string>{"OK", "0123456789abcde"}));
    EXPECT_EQ(request.wait, 1234ms);
}

TEST(Record, WaitsAreBoundedAndZeroMeansTheUsualOne) {
    const auto waitOf = [](u32 wait) {
        const std::string record = commandRecord("AT\r", {}, wait);
        return std::get<CommandRequest>(parseRequest(COMMAND_REQUEST, octetsOf(record))).wait;
    };
    EXPECT_EQ(waitOf(0), 3000ms);
    EXPECT_EQ(waitOf(1), 1ms);
    EXPECT_EQ(waitOf(50000), 50000ms);
    EXPECT_EQ(waitOf(60001), 60000ms);
    EXPECT_EQ(waitOf(0xffffffff), 60000ms);
}

TEST(Record, TheReservedWordAndUnusedMarkerSlotsAreNotLookedAt) {
    std::string record = withWord(commandRecord("AT\r", {"OK"}), 4, 77);
    record.replace(32, 16, "0123456789abcdef");
    const auto request = std::get<CommandRequest>(parseRequest(COMMAND_REQUEST, octetsOf(record)));
    EXPECT_EQ(request.markers, std::vector<std::string>{"OK"});
}

TEST(Record, TheLengthOfAMessageLeavesItsServiceCentreOut) {
    EXPECT_EQ(tpduOctets(PDU), 18u);
    EXPECT_EQ(tpduOctets(PDU_WITH_CENTRE), 18u);
    EXPECT_EQ(tpduOctets("00ff"), 1u);
}

TEST(Record, TheStoreStatusGoesBehindTheLength) {
    const auto commandOf = [](u32 status) {
        const std::string record = storeRecord(PDU, status);
        return std::get<MessageRequest>(parseRequest(STORE_REQUEST, octetsOf(record))).command;
    };
    EXPECT_EQ(commandOf(0), "AT+CMGW=18\r");
    EXPECT_EQ(commandOf(2), "AT+CMGW=18,2\r");
    EXPECT_EQ(commandOf(3), "AT+CMGW=18,3\r");
}

TEST(Record, TheNameOfACommandHoldsNoParameter) {
    EXPECT_EQ(commandName("AT+CSCA = \"+49171\"\r"), "AT+CSCA");
    EXPECT_EQ(commandName("AT+CPBW=1,\"5551\"\r"), "AT+CPBW");
    EXPECT_EQ(commandName("AT+CMGF?\r"), "AT+CMGF");
    EXPECT_EQ(commandName("ATI\r"), "ATI");
    EXPECT_EQ(commandName("ATD5551;\r"), "ATD");
    EXPECT_EQ(commandName("AT\r"), "AT");
    EXPECT_EQ(commandName("AT^SYSINFO\r"), "AT^SYSINFO");
}

// ================ lines ================

struct LineCase {
    const char *line;
    const char *command;
    bool isReport;
};

void PrintTo(const LineCase &c, std::ostream *out) { *out << c.line << " while " << c.command; }

class ReportLine : public testing::TestWithParam<LineCase> {};

TEST_P(ReportLine, IsToldFromAReply) {
    EXPECT_EQ(isReport(GetParam().line, GetParam().command), GetParam().isReport);
}

INSTANTIATE_TEST_SUITE_P(
    Known, ReportLine,
    testing::Values(LineCase{"+CMTI: \"SM\",3", "AT+CMGR=1\r", true},
                    LineCase{"+CMT: ,24", "AT+CMGR=1\r", true},
                    LineCase{"+CDSI: \"SM\",5", "AT\r", true}, LineCase{"+CDS: 25", "AT\r", true},
                    LineCase{"+CBMI: \"BM\",5", "AT\r", true}, LineCase{"+CBM: 88", "AT\r", true},
                    LineCase{"+CRING: VOICE", "AT\r", true}, LineCase{"RING", "AT\r", true},
                    LineCase{"RING_BACK", "AT\r", true},
                    LineCase{"DIAL CONNECT REQUEST", "AT\r", true},
                    LineCase{"Sim card removed", "AT\r", true},
                    LineCase{"+DISC: 1,2,3,4", "AT\r", true}, LineCase{"+URCIND:5,1", "AT\r", true},
                    LineCase{"+VOICEMAIL: 1", "AT\r", true}, LineCase{"^RSSI:15", "AT\r", true},
                    LineCase{"+CMGR: 1,,24", "AT+CMGR=1\r", false},
                    LineCase{"+CMGL: 1,1,,24", "AT+CMGL=4\r", false},
                    LineCase{"+CPMS: 1,2", "AT+CPMS?\r", false},
                    LineCase{"RINGTONE: 1", "AT\r", false}, LineCase{"OK", "AT\r", false}));

INSTANTIATE_TEST_SUITE_P(
    ThatACommandMayAskFor, ReportLine,
    testing::Values(
        LineCase{"+CUSD: 1", "AT+CUSD?\r", false}, LineCase{"+CUSD: (0-2)", "AT+CUSD=?\r", false},
        LineCase{"+CUSD: 0,\"hi\",15", "AT+CUSD =1, \"*100#\",15\r", true},
        LineCase{"+CLIP: 1,1", "at+clip?\r", false}, LineCase{"+CLIP: 1,1", "AT+CLIP ?\r", false},
        LineCase{"+CLIP: \"+4917\",145", "AT+CMGR=1\r", true},
        LineCase{"+CREG: 0,1", "AT+CREG?\r", false},
        LineCase{"+CREG: 2,1,\"00C3\",\"A1\"", "AT+CREG?\r", false},
        LineCase{"+CREG: (0-2)", "AT+CREG=?\r", false},
        LineCase{"+CREG: 0,1", "AT+CSQ;+CREG?\r", false}, LineCase{"+CREG: 5", "AT+CREG?\r", true},
        LineCase{"+CREG: 1,\"00C3\",\"A1\"", "AT+CREG?\r", true},
        LineCase{"+CREG: 1,00C3,00A1", "AT+CREG?\r", true},
        LineCase{"+CREG: 0,1", "AT+CREG=1\r", true}, LineCase{"+CREG: 0,1", "AT+CGREG?\r", true},
        LineCase{"+CEREG: 0,1", "AT+CEREG?\r", false},
        LineCase{"^SYSINFO:2,3,0,5,1", "AT^SYSINFO\r", false},
        LineCase{"^SYSINFO:2,3,0,5,1", "AT^SYSINFOEX\r", true},
        LineCase{"^RSSI:15", "AT^SYSINFO\r", true}, LineCase{"NO CARRIER", "AT+CMGR=1\r", true},
        LineCase{"NO CARRIER", "ATD5551;\r", false}, LineCase{"BUSY", "atd5551;\r", false},
        LineCase{"NO ANSWER", "AT\r", true}, LineCase{"CONNECT 150000", "AT\r", true},
        LineCase{"CONNECT 150000", "ATD*99#\r", false}, LineCase{"CONNECTED", "AT\r", false},
        LineCase{"RING", "ATA\r", true}));

TEST(Line, OkAndErrorAreWholeLinesAndOtherMarkersBeginnings) {
    EXPECT_TRUE(matchesMarker("OK", "OK"));
    EXPECT_FALSE(matchesMarker("OKAY", "OK"));
    EXPECT_FALSE(matchesMarker("NOT OK", "OK"));
    EXPECT_TRUE(matchesMarker("ERROR", "ERROR"));
    EXPECT_FALSE(matchesMarker("ERRORS", "ERROR"));
    EXPECT_FALSE(matchesMarker("+CME ERROR: 10", "ERROR"));
    EXPECT_TRUE(matchesMarker("+CME ERROR: 10", "+CME"));
    EXPECT_TRUE(matchesMarker("+CMS ERROR: 500", "+CMS ERROR:"));
    EXPECT_FALSE(matchesMarker(" +CME ERROR: 10", "+CME"));
}

std::vector<std::string> linesOf(std::string_view octets, LineAssembler *assembler) {
    std::vector<std::string> lines;
    for (const char octet : octets) {
        switch (assembler->put(octet)) {
        case LineAssembler::Event::NONE: break;
        case LineAssembler::Event::LINE: lines.push_back(assembler->take()); break;
        case LineAssembler::Event::PROMPT: lines.push_back("prompt " + assembler->take()); break;
        case LineAssembler::Event::OVERLONG: lines.emplace_back("overlong"); break;
        }
    }
    return lines;
}

TEST(LineAssembly, KeepsLineEndsAndKnowsThePrompt) {
    LineAssembler assembler;
    EXPECT_EQ(
        linesOf("\r\n+CMGS: 1\r\nlone\n\r\n> \r\nx> y", &assembler),
        (std::vector<std::string>{"\r\n", "+CMGS: 1\r\n", "lone\n", "\r\n", "prompt > ", "\r\n"}));
    EXPECT_TRUE(assembler.inLine());
}

TEST(LineAssembly, APromptThatIsLeftAloneGrowsIntoALine) {
    LineAssembler assembler;
    EXPECT_EQ(assembler.put('>'), LineAssembler::Event::NONE);
    EXPECT_EQ(assembler.put(' '), LineAssembler::Event::PROMPT);
    EXPECT_TRUE(assembler.isAtPrompt());
    EXPECT_EQ(linesOf("text\r\n", &assembler), Texts{"> text\r\n"});
    EXPECT_FALSE(assembler.isAtPrompt());
}

TEST(Line, CommandsThatTakeATextAreKnown) {
    EXPECT_TRUE(promptsForText("AT+CMGS=18\r"));
    EXPECT_TRUE(promptsForText("at+cmgw\r"));
    EXPECT_TRUE(promptsForText("AT+CMGC = 5\r"));
    EXPECT_FALSE(promptsForText("AT+CMGW=?\r"));
    EXPECT_FALSE(promptsForText("AT+CMGR=1\r"));
    EXPECT_FALSE(promptsForText("AT+CMSS=1\r"));
}

TEST(LineAssembly, DropsZeroOctets) {
    LineAssembler assembler;
    EXPECT_EQ(linesOf(std::string_view("\0O\0K\r\0\n", 7), &assembler),
              std::vector<std::string>{"OK\r\n"});
}

TEST(LineAssembly, ALineOf4096OctetsIsTakenAndALongerOneDroppedWhole) {
    LineAssembler assembler;
    const std::string longest(LINE_OCTETS_MAX, 'x');
    EXPECT_EQ(linesOf(longest + "\n", &assembler), std::vector<std::string>{longest + "\n"});
    EXPECT_EQ(linesOf(longest + "x> \nOK\r\n", &assembler),
              (std::vector<std::string>{"overlong", "OK\r\n"}));
}

// The reports that a row of lines makes; a line that belongs to none is given in brackets.
std::vector<std::string> reportsOf(const std::vector<std::string> &lines) {
    ReportAssembler assembler;
    std::vector<std::string> reports;
    for (const std::string &raw : lines) {
        if (assembler.isWaiting()) {
            bool taken = false;
            if (auto report = assembler.proceed(raw, &taken)) { reports.push_back(*report); }
            if (taken) { continue; }
        }
        if (!isReport(lineText(raw), {})) {
            reports.push_back("[" + std::string(lineText(raw)) + "]");
        } else if (auto report = assembler.begin(lineText(raw))) {
            reports.push_back(*report);
        }
    }
    if (assembler.isWaiting()) { reports.push_back("unfinished " + assembler.abandon()); }
    return reports;
}

TEST(ReportAssembly, AMessageIsToldWithTheLineBehindIt) {
    EXPECT_EQ(reportsOf({"+CMT: ,24\r\n", "0791\r\n"}), Texts{"+CMT: ,24\r\n0791\r\n"});
    EXPECT_EQ(reportsOf({"+CDS: 25\r\n", "0006\r\n"}), Texts{"+CDS: 25\r\n0006\r\n"});
    EXPECT_EQ(reportsOf({"+CBM: 88\r\n", "0001\r\n"}), Texts{"+CBM: 88\r\n0001\r\n"});
    EXPECT_EQ(reportsOf({"+CMT: \"+49\",,\"26/01/02\"\r\n", "RING\r\n"}),
              Texts{"+CMT: \"+49\",,\"26/01/02\"\r\nRING\r\n"});
}

TEST(ReportAssembly, AStatusReportInTextModeIsOneLine) {
    EXPECT_EQ(reportsOf({"+CDS: 6,12,\"+49\",145,\"26/01/02\",\"26/01/02\",0\r\n", "RING\r\n"}),
              (Texts{"+CDS: 6,12,\"+49\",145,\"26/01/02\",\"26/01/02\",0\r\n", "RING\r\n"}));
}

TEST(ReportAssembly, BehindABlankLineOnlyAPduBelongsToAMessage) {
    EXPECT_EQ(reportsOf({"+CMT: ,24\r\n", "\r\n", "0791\r\n"}), Texts{"+CMT: ,24\r\n0791\r\n"});
    EXPECT_EQ(reportsOf({"+CMT: ,24\r\n", "\r\n", "OK\r\n"}), (Texts{"+CMT: ,24\r\n", "[OK]"}));
    EXPECT_EQ(reportsOf({"+CMT: ,24\r\n", "\r\n", "RING\r\n"}),
              (Texts{"+CMT: ,24\r\n", "RING\r\n"}));
}

TEST(ReportAssembly, AUssdTextMayHoldLineEnds) {
    EXPECT_EQ(reportsOf({"+CUSD: 0,\"one\r\n", "\r\n", "two\n", "three\",15\r\n"}),
              Texts{"+CUSD: 0,\"one\r\n\r\ntwo\nthree\",15\r\n"});
    EXPECT_EQ(reportsOf({"+CUSD: 0,\"say \"hi\" now\",15\r\n"}),
              Texts{"+CUSD: 0,\"say \"hi\" now\",15\r\n"});
    EXPECT_EQ(reportsOf({"+CUSD: 0,\"open\r\n", "end\"\r\n"}),
              Texts{"+CUSD: 0,\"open\r\nend\"\r\n"});
    EXPECT_EQ(reportsOf({"+CUSD: 2\r\n", "RING\r\n"}), (Texts{"+CUSD: 2\r\n", "RING\r\n"}));
}

TEST(ReportAssembly, AUssdLineWithHalfALineEndIsToldWithAWholeOne) {
    EXPECT_EQ(reportsOf({"+CUSD: 1,\"a\r\n", "b\",15\n"}), Texts{"+CUSD: 1,\"a\r\nb\",15\r\n"});
    EXPECT_EQ(reportsOf({"+CUSD: 1,\"a\r\n", "D: 1,\"\n"}), Texts{"+CUSD: 1,\"a\r\nD: 1,\"\r\n"});
}

TEST(ReportAssembly, AUssdTextThatNeverEndsGivesWayToAFinalResult) {
    EXPECT_EQ(reportsOf({"+CUSD: 0,\"open\r\n", "\r\n", "OK\r\n"}),
              (Texts{"+CUSD: 0,\"open\r\n\r\n", "[OK]"}));
    const std::string line = std::string(1000, 'x') + "\r\n";
    EXPECT_EQ(reportsOf({"+CUSD: 0,\"", line, line, line, line, line, "+X\r\n"}).back(), "[+X]");
}

TEST(ReplyCollection, AReplyBeyondItsBoundIsSpoiltButStillEnds) {
    ReplyCollector reply("AT+CMGL=4\r", {"OK"});
    const std::string line = std::string(4000, '0') + "\r\n";
    for (std::size_t octets = 0; octets <= REPLY_OCTETS_MAX; octets += line.size()) {
        EXPECT_EQ(reply.put(line), ReplyCollector::Verdict::TAKEN);
    }
    EXPECT_EQ(reply.put("OK\r\n"), ReplyCollector::Verdict::ENDED);
    EXPECT_TRUE(reply.isSpoilt());
    EXPECT_LE(reply.text().size(), REPLY_OCTETS_MAX);
}

// ================ queue ================

// A runner that holds what it was given until the test answers it.
struct HeldRunner {
    std::vector<std::string> started;
    RequestQueue::OnAnswer answer;
    RequestQueue queue{[this](const RequestQueue::Job &job, RequestQueue::OnAnswer onAnswer) {
                           started.push_back(std::get<CommandRequest>(job.request).text);
                           answer = std::move(onAnswer);
                       },
                       [this](Clock::time_point at) { wakings.push_back(at - arrival); }};
    Clock::time_point arrival = Clock::now(); // of what is added
    std::vector<Clock::duration> wakings;     // that it asked for
    std::vector<std::string> answers;

    void add(const std::string &text, bool isWanted = true, pid_t process = 1,
             milliseconds wait = 0ms) {
        Account account;
        account.asker.process = process;
        account.arrival = arrival;
        queue.add({
            CommandRequest{text, {}, wait},
            account,
            std::make_unique<Asker>(this, text, isWanted)
        });
    }
    void finish(Result result = Result::CARRIED_OUT) {
        std::exchange(answer, nullptr)({result, {}});
    }
    // What runs, and all that waits, to their end.
    void finishAll() {
        while (answer) { finish(); }
    }

private:
    class Asker : public RequestQueue::Caller {
    public:
        Asker(HeldRunner *held, std::string text, bool isWanted)
            : held_(held), text_(std::move(text)), isWanted_(isWanted) {}
        bool isWaiting() const override { return isWanted_; }
        void answer(const Account &, const Answer &given) override {
            held_->answers.push_back(text_ + "=" + std::to_string(static_cast<u32>(given.result)));
        }
        void drop(const Account &) override { held_->dropped++; }

    private:
        HeldRunner *held_;
        std::string text_;
        bool isWanted_;
    };

public:
    int dropped = 0;
};

TEST(Queue, ServesInOrderOneAtATime) {
    HeldRunner held;
    for (const char *name : {"a", "b", "c"}) { held.add(name); }
    EXPECT_EQ(held.started, Texts{"a"});
    held.finish();
    EXPECT_EQ(held.started, (Texts{"a", "b"}));
    held.finish(Result::NO_ANSWER);
    held.finish();
    EXPECT_EQ(held.answers, (Texts{"a=0", "b=3", "c=0"}));
}

TEST(Queue, DropsWhatIsNoLongerWantedWhenItsTurnComes) {
    HeldRunner held;
    held.add("a");
    held.add("gone", false);
    held.add("b");
    held.finish();
    EXPECT_EQ(held.started, (Texts{"a", "b"}));
    held.finish();
    held.add("gone too", false);
    held.add("c");
    EXPECT_EQ(held.started, (Texts{"a", "b", "c"}));
    EXPECT_EQ(held.answers, (Texts{"a=0", "b=0"}));
    EXPECT_EQ(held.dropped, 2);
}

TEST(Queue, RefusesMoreThan256ThatWait) {
    HeldRunner held;
    for (int process = 0; process < 257; process++) { held.add("x", true, process); }
    EXPECT_TRUE(held.answers.empty());
    held.add("y", true, 257);
    EXPECT_EQ(held.answers, Texts{"y=6"});
}

TEST(Queue, LetsAProcessHave64WaitingAndTheOthersIn) {
    HeldRunner held;
    for (int i = 0; i < 65; i++) { held.add("flood"); }
    held.add("one too many");
    held.add("another's", true, 2);
    EXPECT_EQ(held.answers, Texts{"one too many=6"});
    held.finish();
    held.add("as one is done");
    EXPECT_EQ(held.queue.waitingCount(), 65u);
    held.finishAll();
    EXPECT_EQ(held.answers.size(), 68u);
    EXPECT_EQ(std::count(held.answers.begin(), held.answers.end(), "another's=0"), 1);
}

TEST(Queue, KeepsTheLastPlacesForThoseWhoHaveNothingWaiting) {
    HeldRunner held;
    held.add("runs", true, 9);
    for (const pid_t process : {1, 2, 3}) {
        for (int i = 0; i < 64; i++) { held.add("x", true, process); }
    }
    held.add("first", true, 4);
    held.add("second", true, 4);
    EXPECT_EQ(held.answers, Texts{"second=6"});
    EXPECT_EQ(held.queue.waitingCount(), 193u);
}

TEST(Queue, WhatAProcessAsksBeyondItsEightPlacesJoinsTheRowAtItsEnd) {
    HeldRunner held;
    for (int i = 0; i < 12; i++) { held.add("f" + std::to_string(i)); }
    held.add("other", true, 2);
    held.add("third", true, 3);
    held.finishAll();
    EXPECT_EQ(held.started, (Texts{"f0", "f1", "f2", "f3", "f4", "f5", "f6", "f7", "f8", "other",
                                   "third", "f9", "f10", "f11"}));
}

TEST(Queue, NobodyWaitsForHisTurnForMoreThan15Seconds) {
    HeldRunner held;
    held.add("runs");
    held.add("waits", true, 1, 60000ms);
    EXPECT_EQ(held.wakings, (std::vector<Clock::duration>{15s}));
    held.queue.expire(held.arrival + 15s - 1ms);
    EXPECT_TRUE(held.answers.empty());
    EXPECT_EQ(held.wakings, (std::vector<Clock::duration>{15s, 15s}));
    held.queue.expire(held.arrival + 15s);
    EXPECT_EQ(held.answers, Texts{"waits=3"});
    held.finish();
    EXPECT_EQ(held.started, Texts{"runs"});
}

TEST(Queue, BehindASilentModemNobodyWaitsLongerThanForHisReply) {
    HeldRunner held;
    held.arrival = Clock::now() - 1s;
    held.add("runs");
    held.add("patient", true, 1, 5000ms);
    held.add("hasty", true, 1, 200ms);
    held.queue.setModemSilent(true);
    EXPECT_EQ(held.answers, Texts{"hasty=3"});
    EXPECT_EQ(held.wakings.back(), Clock::duration(5s));
    held.queue.setModemSilent(false);
    held.add("hasty", true, 1, 200ms);
    EXPECT_EQ(held.answers.size(), 1u);
    held.queue.expire(held.arrival + 5s);
    EXPECT_EQ(held.answers.size(), 1u);
}

TEST(Queue, AnswersEverybodyWhenItStops) {
    HeldRunner held;
    for (const char *name : {"a", "b", "c"}) { held.add(name); }
    held.queue.stop();
    held.add("d");
    EXPECT_EQ(held.answers, (Texts{"b=8", "c=8", "d=8"}));
    held.finish(Result::NO_MODEM);
    EXPECT_EQ(held.answers.back(), "a=8");
    EXPECT_EQ(held.started, Texts{"a"});
}

// ================ commands ================

TEST_F(Modemd, HandsBackTheReplyAsTheModemGaveIt) {
    startInStep();
    Question question = command("AT+CMGR=1\r");
    modem_.answer("AT+CMGR=1\r", "\r\n+CMGR: 1,,24\r\n0791515500\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGR: 1,,24\r\n0791515500\r\n\r\nOK\r\n");
}

TEST_F(Modemd, TakesTheEchoOfACommandOutOfItsReply) {
    startInStep();
    Question question = command("AT+CMGF?\r");
    modem_.answer("AT+CMGF?\r", "AT+CMGF?\r\r\n+CMGF: 0\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGF: 0\r\n\r\nOK\r\n");
}

TEST_F(Modemd, ServesTheLibrarysCalls) {
    startInStep();
    auto reply = std::async(std::launch::async, [] {
        char *text = writeComm("AT+CPMS?\r", 3000, 4, "OK", "ERROR", "+CMS ERROR:", "+CME ERROR:");
        const std::string copy = text != nullptr ? text : "none";
        std::free(text);
        return copy;
    });
    modem_.answer("AT+CPMS?\r", "\r\n+CPMS: \"SM\",3,50\r\n\r\nOK\r\n");
    EXPECT_EQ(reply.get(), "\r\n+CPMS: \"SM\",3,50\r\n\r\nOK\r\n");
}

// Each part is traced when it is read, so the next one is sure to come in a read of its own.
TEST_F(Modemd, AReplySplitAnywhereIsHandedBackWhole) {
    startInStep({"--verbose"});
    const std::string reply = "\r\n+CMGR: 1,,24\r\n0791\r\n\r\n+CMTI: \"SM\",3\r\n\r\nOK\r\n";
    for (std::size_t at = 1; at < reply.size(); at++) {
        Question question = command("AT+CMGR=1\r");
        modem_.expect("AT+CMGR=1\r");
        ASSERT_TRUE(daemon_->logs("-> AT+CMGR=1"));
        modem_.say(reply.substr(0, at));
        ASSERT_TRUE(daemon_->logs("<- "));
        modem_.say(reply.substr(at));
        question.gives("\r\n+CMGR: 1,,24\r\n0791\r\n\r\nOK\r\n");
    }
}

struct EndingCase {
    const char *name;
    std::vector<std::string> markers;
    std::string said;
    std::string reply;
};

void PrintTo(const EndingCase &c, std::ostream *out) { *out << c.name; }

class ModemdEnding : public Modemd, public testing::WithParamInterface<EndingCase> {};

TEST_P(ModemdEnding, EndsTheReply) {
    startInStep();
    Question question = command("AT+CUSD=1\r", GetParam().markers);
    modem_.answer("AT+CUSD=1\r", GetParam().said);
    question.gives(GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(
    Marker, ModemdEnding,
    testing::Values(
        EndingCase{
            "Ok", USUAL_MARKERS, "\r\nOK\r\n", "\r\nOK\r\n"
},
        EndingCase{"Error", USUAL_MARKERS, "\r\nERROR\r\n", "\r\nERROR\r\n"},
        EndingCase{"CmsError", USUAL_MARKERS, "\r\n+CMS ERROR: 500\r\n", "\r\n+CMS ERROR: 500\r\n"},
        EndingCase{"CmeByItsBeginning",
                   {"OK", "ERROR", "+CME"},
                   "\r\n+CME ERROR: 10\r\n",
                   "\r\n+CME ERROR: 10\r\n"},
        EndingCase{"OkOnlyAsAWholeLine", USUAL_MARKERS, "\r\nOKAY\r\nNOT OK\r\n\r\nOK\r\n",
                   "\r\nOKAY\r\nNOT OK\r\n\r\nOK\r\n"},
        EndingCase{"ErrorOnlyAsAWholeLine", USUAL_MARKERS, "\r\nERRORS: 0\r\n\r\nOK\r\n",
                   "\r\nERRORS: 0\r\n\r\nOK\r\n"},
        EndingCase{
            "AnErrorThatIsNotListed", {"OK"}, "\r\n+CME ERROR: 10\r\n", "\r\n+CME ERROR: 10\r\n"},
        EndingCase{"OkThatIsNotListedDoesNot",
                   {"+CUSD:", "ERROR"},
                   "\r\nOK\r\n\r\n+CUSD: 0,\"hi\",15\r\n",
                   "\r\nOK\r\n\r\n+CUSD: 0,\"hi\",15\r\n"},
        EndingCase{"OkWithLineFeedAlone", USUAL_MARKERS, "OK\n", "OK\n"},
        EndingCase{"OkBehindZeroOctets", USUAL_MARKERS, std::string("\0\0\r\nOK\r\n", 8),
                   "\r\nOK\r\n"}),
    CaseName());

TEST_F(Modemd, WithoutMarkersWhatComesWithinTheWaitIsTheReply) {
    startInStep();
    Question question = command("AT+COPS?\r", {}, 80);
    modem_.answer("AT+COPS?\r", "\r\n+COPS: 0\r\n\r\nOK\r\n");
    question.gives("\r\n+COPS: 0\r\n\r\nOK\r\n");
    expectAlive();
    Question silent = command("AT+COPS?\r", {}, 1);
    modem_.expect("AT+COPS?\r");
    silent.fails(Result::NO_ANSWER);
}

TEST_F(Modemd, RunsARequestThatWantsNoAnswer) {
    startInStep();
    const std::string record = commandRecord("ATH\r");
    EXPECT_EQ(zeldcard_send_request_asyn(MODEM_MANAGER_ID, COMMAND_REQUEST, record.data(),
                                         static_cast<u32>(record.size())),
              IPC_OK);
    modem_.answer("ATH\r", "\r\nOK\r\n");
    expectAlive();
}

TEST_F(Modemd, RefusesMalformedRequestsAndGoesOn) {
    startInStep();
    for (const BadRecord &bad : badRecords()) {
        SCOPED_TRACE(bad.name);
        const Response response = ask(bad.messageId, bad.record);
        EXPECT_EQ(response, (Response{IPC_OK, static_cast<u32>(Result::MALFORMED), 0, 0, ""}));
        EXPECT_TRUE(daemon_->logs(bad.complaint)) << daemon_->log();
    }
    modem_.expectNothing();
    expectAlive();
}

// ================ reports ================

struct ReportCase {
    const char *name;
    std::string command;
    std::string said;
    std::string reply;
    Texts reports;
};

void PrintTo(const ReportCase &c, std::ostream *out) { *out << c.name; }

class ModemdReport : public Modemd, public testing::WithParamInterface<ReportCase> {};

TEST_P(ModemdReport, IsToldAndKeptOutOfTheReply) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    Question question = command(GetParam().command);
    modem_.answer(GetParam().command, GetParam().said);
    question.gives(GetParam().reply);
    for (const std::string &expected : GetParam().reports) {
        const auto report = reports.receive(SOON);
        ASSERT_TRUE(report) << "missing: " << expected;
        EXPECT_EQ(textOf(*report), expected);
    }
    EXPECT_FALSE(reports.receive(QUIET));
}

INSTANTIATE_TEST_SUITE_P(
    InAReply, ModemdReport,
    testing::Values(
        ReportCase{
            "BeforeTheReply",
            "AT+CMGF?\r",
            "\r\nRING\r\n\r\n+CLIP: \"5551\",129\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n",
            "\r\n+CMGF: 0\r\n\r\nOK\r\n",
            {"RING\r\n", "+CLIP: \"5551\",129\r\n"}
},
        ReportCase{"BetweenTheLinesOfAMessage",
                   "AT+CMGR=1\r",
                   "\r\n+CMGR: 1,,24\r\n\r\n+CMTI: \"SM\",7\r\n0791\r\n\r\nOK\r\n",
                   "\r\n+CMGR: 1,,24\r\n0791\r\n\r\nOK\r\n",
                   {"+CMTI: \"SM\",7\r\n"}},
        ReportCase{"WithItsPdu",
                   "AT+CMGR=1\r",
                   "\r\n+CMT: ,24\r\nABCD\r\n\r\n+CMGR: 1,,24\r\n0791\r\n\r\nOK\r\n",
                   "\r\n+CMGR: 1,,24\r\n0791\r\n\r\nOK\r\n",
                   {"+CMT: ,24\r\nABCD\r\n"}},
        ReportCase{"StatusReportBeforeTheFinalResult",
                   "AT+CMGF?\r",
                   "\r\n+CMGF: 0\r\n\r\n+CDS: 25\r\n0006\r\n\r\nOK\r\n",
                   "\r\n+CMGF: 0\r\n\r\nOK\r\n",
                   {"+CDS: 25\r\n0006\r\n"}},
        ReportCase{"CellBroadcast",
                   "AT\r",
                   "\r\n+CBM: 2\r\n0102\r\n\r\nOK\r\n",
                   "\r\nOK\r\n",
                   {"+CBM: 2\r\n0102\r\n"}},
        ReportCase{"BehindTheEcho",
                   "AT+CSQ\r",
                   "AT+CSQ\r\r\n^RSSI:15\r\n\r\n+CSQ: 15,99\r\n\r\nOK\r\n",
                   "\r\n+CSQ: 15,99\r\n\r\nOK\r\n",
                   {"^RSSI:15\r\n"}},
        ReportCase{"RegistrationInItsOwnQuery",
                   "AT+CREG?\r",
                   "\r\n+CREG: 5\r\n\r\n+CREG: 0,1\r\n\r\nOK\r\n",
                   "\r\n+CREG: 0,1\r\n\r\nOK\r\n",
                   {"+CREG: 5\r\n"}},
        ReportCase{"UssdAnswerBeforeTheFinalResult",
                   "AT+CUSD =1, \"*100#\",15\r",
                   "\r\n+CUSD: 0,\"credit\r\n5\",15\r\n\r\nOK\r\n",
                   "\r\nOK\r\n",
                   {"+CUSD: 0,\"credit\r\n5\",15\r\n"}},
        ReportCase{
            "BehindTheFinalResult", "AT\r", "\r\nOK\r\n\r\nRING\r\n", "\r\nOK\r\n", {"RING\r\n"}},
        ReportCase{"OfAKindThatIsNotKnown",
                   "AT\r",
                   "\r\nOK\r\n\r\n*EMRDY: 1\r\n",
                   "\r\nOK\r\n",
                   {"*EMRDY: 1\r\n"}}),
    CaseName());

TEST_F(Modemd, TellsReportsWhileNobodyAsks) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    expectAlive();
    modem_.say("\r\n+CMTI: \"SM\",1\r\n\r\n+CMT: ,2\r\n01");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "+CMTI: \"SM\",1\r\n");
    modem_.say("02\r\n\r\nNO CARRIER\r\n");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "+CMT: ,2\r\n0102\r\n");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "NO CARRIER\r\n");
    modem_.say("\r\nsecret body\r\n");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "secret body\r\n");
    EXPECT_TRUE(daemon_->logs("report told: +CMT"));
    EXPECT_TRUE(daemon_->logs("report told: of an unknown kind"));
    EXPECT_EQ(daemon_->log().find("0102"), std::string::npos) << "bodies are not logged";
    EXPECT_EQ(daemon_->log().find("secret"), std::string::npos);
}

TEST_F(Modemd, ALineThatBeganBeforeTheCommandIsNoPartOfTheReply) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep({"--verbose"});
    expectAlive();
    ASSERT_TRUE(daemon_->logs("<- \\r\\nOK\\r\\n"));
    modem_.say("\r\n*EMR");
    ASSERT_TRUE(daemon_->logs("*EMR"));
    Question question = command("AT+CMGF?\r");
    modem_.answer("AT+CMGF?\r", "DY: 1\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGF: 0\r\n\r\nOK\r\n");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "*EMRDY: 1\r\n");
}

TEST_F(Modemd, GarbageAndStrayResultsAreNoReports) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    expectAlive();
    std::string garbage;
    for (int octet = 0; octet < 256; octet++) { garbage += static_cast<char>(octet); }
    modem_.say(garbage + garbage + "\r\n\r\nOK\r\n");
    EXPECT_TRUE(daemon_->logs("line that is no text dropped: "));
    EXPECT_TRUE(daemon_->logs("final result without a command dropped: OK"));
    modem_.say(std::string(20000, '\xff') + "\r\nRING\r\n");
    EXPECT_TRUE(daemon_->logs("line that is too long dropped: more than 4096 octets"));
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "RING\r\n");
    expectAlive();
}

// ================ silence ================

TEST_F(Modemd, ASilentModemFailsTheRequestAfterItsWait) {
    startInStep();
    const auto begin = steady_clock::now();
    Question question = command("AT+CMGR=1\r", USUAL_MARKERS, 120);
    modem_.expect("AT+CMGR=1\r");
    question.fails(Result::NO_ANSWER);
    EXPECT_GE(steady_clock::now() - begin, 120ms);
    EXPECT_LT(steady_clock::now() - begin, 120ms + AT_ONCE);
    EXPECT_TRUE(daemon_->logs("AT+CMGR failed: no final result in time")) << daemon_->log();
}

TEST_F(Modemd, AModemThatStaysSilentFailsTheNextRequestToo) {
    startInStep();
    Question first = command("AT+CMGR=1\r", USUAL_MARKERS, 30);
    modem_.answer("AT+CMGR=1\r", "\r\n+CMGR: 1,,24\r\n");
    first.fails(Result::NO_ANSWER);
    Question second = command("AT+CMGR=2\r", {}, 100); // would take any text for its reply
    modem_.expect("ATE0Q0V1\r");
    second.fails(Result::NO_ANSWER);
    modem_.expect(ESCAPE_AND_PROBE);
    EXPECT_TRUE(daemon_->logs("does not answer"));
    Question third = command("AT+CMGR=3\r");
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n");
    modem_.answer("AT+CMGR=3\r", "\r\nOK\r\n");
    third.gives("\r\nOK\r\n");
}

// As after ATV0 or ATQ1: no result in words comes until the manager asks for them.
TEST_F(Modemd, AModemThatWasMadeTerseIsMadeToSpeakAgain) {
    startInStep();
    Question terse = command("ATV0\r", USUAL_MARKERS, 40);
    modem_.answer("ATV0\r", "0\r");
    terse.fails(Result::NO_ANSWER);
    modem_.answer("ATE0Q0V1\r", "\r\nOK\r\n");
    awaitStep();
    expectAlive();
}

TEST_F(Modemd, LateOutputIsNotTakenForTheNextReply) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    Question slow = command("AT+CMGR=1\r", USUAL_MARKERS, 30);
    modem_.answer("AT+CMGR=1\r", "\r\n+CMGR: 1,");
    slow.fails(Result::NO_ANSWER);
    Question next = command("AT+CMGR=2\r");
    modem_.expect("ATE0Q0V1\r");
    modem_.say(",24\r\n0791\r\n\r\n+CMTI: \"SM\",4\r\n\r\nOK\r\n");
    modem_.expectNothing();
    EXPECT_FALSE(next.isAnswered());
    modem_.say("\r\nOK\r\n"); // to the probe
    modem_.answer("AT+CMGR=2\r", "\r\n+CMGR: 1,,25\r\n0792\r\n\r\nOK\r\n");
    next.gives("\r\n+CMGR: 1,,25\r\n0792\r\n\r\nOK\r\n");
    EXPECT_TRUE(daemon_->logs("2 late lines of the modem dropped")) << daemon_->log();
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "+CMTI: \"SM\",4\r\n");
    EXPECT_FALSE(reports.receive(QUIET));
}

TEST_F(Modemd, AMessageIsToldThoughItsSecondLineComesLate) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    Question slow = command("AT+CMGR=1\r", USUAL_MARKERS, 30);
    modem_.answer("AT+CMGR=1\r", "\r\n+CMT: ,2\r\n");
    slow.fails(Result::NO_ANSWER);
    modem_.answer("ATE0Q0V1\r", "0102\r\n\r\nOK\r\n\r\nOK\r\n");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "+CMT: ,2\r\n0102\r\n");
    expectAlive();
}

TEST_F(Modemd, ARequestGetsAWholeAttemptToWakeTheModem) {
    start();
    modem_.expect("ATE0Q0V1\r" + ESCAPE_AND_PROBE);
    Question question = command("AT\r");
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n");
    modem_.answer("AT\r", "\r\nOK\r\n");
    question.gives("\r\nOK\r\n");
}

TEST_F(Modemd, ALateAnswerToAQueryIsNoReport) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    Question slow = command("AT+CREG?\r", USUAL_MARKERS, 1);
    modem_.expect("AT+CREG?\r");
    slow.fails(Result::NO_ANSWER);
    modem_.expect("ATE0Q0V1\r");
    modem_.say("\r\n+CREG: 0,1\r\n\r\nOK\r\n\r\nOK\r\n");
    expectAlive();
    EXPECT_FALSE(reports.receive(QUIET));
}

// The modem drops what comes while it is busy: the late result is the only one.
TEST_F(Modemd, AfterOneLateResultTheModemGetsTheTimeForASecond) {
    startInStep();
    Question slow = command("AT+COPS=0\r", USUAL_MARKERS, 1);
    modem_.expect("AT+COPS=0\r");
    slow.fails(Result::NO_ANSWER);
    modem_.answer("ATE0Q0V1\r", "\r\nERROR\r\n");
    Question next = command("AT\r");
    modem_.expectNothing(100ms);
    modem_.answer("AT\r", "\r\nOK\r\n");
    next.gives("\r\nOK\r\n");
}

TEST_F(Modemd, WhatAMarkerLeavesOfAReplyIsDropped) {
    startInStep();
    Question question = command("AT+CMGR=1\r", {"+CMGR:"});
    modem_.answer("AT+CMGR=1\r", "\r\n+CMGR: 1,,24\r\n0791\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGR: 1,,24\r\n");
    modem_.answerProbe();
    expectAlive();
}

TEST_F(Modemd, LeavesAPromptThatNobodyAskedFor) {
    startInStep();
    Question question = command("AT+CMGS=\"5551\"\r");
    modem_.answer("AT+CMGS=\"5551\"\r", "\r\n> ");
    question.fails(Result::NO_PROMPT);
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n\r\nOK\r\n");
    expectAlive();
}

TEST_F(Modemd, ATextThatLooksLikeAPromptIsPartOfTheReply) {
    startInStep();
    const std::string reply = "\r\n+CMGR: \"REC READ\",\"+49\"\r\n> yes\r\n\r\nOK\r\n";
    Question question = command("AT+CMGR=1\r");
    modem_.answer("AT+CMGR=1\r", reply);
    question.gives(reply);
}

TEST_F(Modemd, LeavesAPromptOfACommandThatIsNotKnownToPrompt) {
    startInStep();
    Question question = command("AT^TEXT=1\r", USUAL_MARKERS, 50);
    modem_.answer("AT^TEXT=1\r", "\r\n> ");
    question.fails(Result::NO_ANSWER);
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n\r\nOK\r\n");
    expectAlive();
}

TEST_F(Modemd, ALineThatIsTooLongFailsTheRequestItBelongsTo) {
    startInStep();
    Question question = command("AT+CMGL=4\r");
    modem_.answer("AT+CMGL=4\r", "\r\n+CMGL: 1,1,,24\r\n" + std::string(5000, '0'));
    modem_.say("\r\n\r\nOK\r\n");
    question.fails(Result::TOO_LONG);
    expectAlive();
}

// What another process left unread, and what still comes for it, when it had the terminal.
TEST_F(Modemd, OutputForAnEarlierOwnerIsNotTakenForAReply) {
    modem_.say("\r\n+CMGR: 1,,24\r\n0791\r\n\r\nOK\r\n\r\nOK\r\n");
    start();
    modem_.expect("ATE0Q0V1\r");
    Question question = command("AT\r");
    modem_.answer("AT\r", "\r\nERROR\r\n");
    question.gives("\r\nERROR\r\n");
    daemon_->signal(SIGTERM);
    EXPECT_EQ(daemon_->exitCode(), 0);
    EXPECT_NE(daemon_->log().find("2 late lines"), std::string::npos) << daemon_->log();
    EXPECT_EQ(daemon_->log().find("without a command"), std::string::npos) << daemon_->log();
}

// ================ what the callers have set ================

struct Learnt {
    const char *name;
    Texts lines;
    Texts commands; // without their "\r"
};

void PrintTo(const Learnt &learnt, std::ostream *out) { *out << learnt.name; }

class Settings : public testing::TestWithParam<Learnt> {};

TEST_P(Settings, AreLearntFromWhatSucceeded) {
    SettingsMemory memory;
    for (const std::string &line : GetParam().lines) { memory.learn(line + "\r"); }
    Texts commands;
    for (const std::string &line : memory.commands()) {
        EXPECT_TRUE(line.ends_with('\r'));
        commands.push_back(line.substr(0, line.size() - 1));
    }
    EXPECT_EQ(commands, GetParam().commands);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Memory, Settings,
    testing::Values(
        Learnt{"Nothing", {}, {}},
        Learnt{"TheLastValueCounts", {"AT+CMEE=1", "AT+CMEE=2"}, {"AT+CMEE=2"}},
        Learnt{"AnyCaseAndBlanks", {"at +cmee = 1"}, {"AT+CMEE=1"}},
        Learnt{"WhatIsLeftOutStays", {"AT+CNMI=2,1,0,2,0", "AT+CNMI=,,2"}, {"AT+CNMI=2,1,2,2,0"}},
        Learnt{"OnlyTheSecondParameter", {"AT+CNMI=,1"}, {"AT+CNMI=,1"}},
        Learnt{"FewerParametersLeaveTheRest", {R"(AT+CPMS="SM","SM","SM")", R"(AT+CPMS="ME")"},
               {R"(AT+CPMS="ME","SM","SM")"}},
        Learnt{"ReadAndTestSetNothing", {"AT+CMEE?", "AT+CMEE=?", "AT+CNMI"}, {}},
        Learnt{"OtherCommandsAreNotKept", {"AT+CMGF=0", "AT+CMGS=18", "ATD123", "AT+CPBW=3"}, {}},
        Learnt{"SeveralInALine", {"ATE0+CMEE=1;+CREG=2"}, {"AT+CMEE=1", "AT+CREG=2"}},
        Learnt{"ASemicolonInAStringIsText", {R"(AT+CSCB=0,"1;+CMEE=1","")"},
               {R"(AT+CSCB=0,"1;+CMEE=1","")"}},
        Learnt{"TheCharacterSetComesLast", {R"(AT+CSCS="UCS2")", "AT+CMEE=1"},
               {"AT+CMEE=1", R"(AT+CSCS="UCS2")"}},
        Learnt{"TheMessageServiceComesBeforeItsReports", {"AT+CNMI=2,2", "AT+CSMS=1"},
               {"AT+CSMS=1", "AT+CNMI=2,2"}},
        Learnt{"AUssdRequestIsNotSentAgain", {R"(AT+CUSD=1,"*100#",15)"}, {"AT+CUSD=1"}},
        Learnt{"TheEndOfAUssdDialogueIsNoSetting", {"AT+CUSD=1", "AT+CUSD=2"}, {"AT+CUSD=1"}},
        Learnt{"ZForgetsAll", {"AT+CMEE=1", "ATZ"}, {}},
        Learnt{"FactorySettingsForgetAll", {"AT+CMEE=1", "AT&F0+CREG=1"}, {"AT+CREG=1"}},
        Learnt{"AResetForgetsAll", {"AT+CMEE=1", "AT+CFUN=1,1"}, {}},
        Learnt{"FullFunctionalityAloneForgetsNothing", {"AT+CMEE=1", "AT+CFUN=1"}, {"AT+CMEE=1"}},
        Learnt{"NoCommandAtAll", {"", "A", "+CMEE=1", "AT+CMEE="}, {"AT+CMEE="}}),
    CaseName());
// clang-format on

// ================ the terminal ================

TEST_F(Modemd, ATerminalThatVanishesFailsThePendingRequestsAtOnce) {
    startInStep();
    Question running = command("AT+CMGR=1\r");
    modem_.expect("AT+CMGR=1\r");
    Question waiting = command("AT+CMGR=2\r");
    const auto begin = steady_clock::now();
    modem_.vanish();
    running.fails(Result::NO_MODEM);
    waiting.fails(Result::NO_MODEM);
    EXPECT_LT(steady_clock::now() - begin, AT_ONCE);
    EXPECT_TRUE(daemon_->logs("is lost: ")) << daemon_->log();
    command("AT\r").fails(Result::NO_MODEM);
    EXPECT_LT(steady_clock::now() - begin, 2 * AT_ONCE);
    modem_.appear();
    Question again = command("AT\r");
    modem_.answerProbe();
    modem_.answer("AT\r", "\r\nOK\r\n");
    again.gives("\r\nOK\r\n");
}

TEST_F(Modemd, AModemThatComesBackIsSetUpAsItWas) {
    startInStep();
    for (const std::string line : {"AT+CMEE=1\r", "AT+CNMI=2,1,0,1,0\r", "AT+CSCS=\"UCS2\"\r"}) {
        Question set = command(line);
        modem_.answer(line, "\r\nOK\r\n");
        set.gives("\r\nOK\r\n");
    }
    Question refused = command("AT+CPMS=\"XX\"\r");
    modem_.answer("AT+CPMS=\"XX\"\r", "\r\nERROR\r\n");
    refused.gives("\r\nERROR\r\n");
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    modem_.vanish();
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "^SMSPB: \"modem lost\"\r\n");
    modem_.appear();
    Question first = command("AT\r");
    modem_.answerProbe();
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "^SMSPB: \"modem back\"\r\n");
    modem_.answer("AT+CMEE=1\r", "\r\nOK\r\n");
    modem_.answer("AT+CNMI=2,1,0,1,0\r", "\r\nERROR\r\n");
    modem_.answer("AT+CSCS=\"UCS2\"\r", "\r\nOK\r\n");
    modem_.answer("AT\r", "\r\nOK\r\n");
    first.gives("\r\nOK\r\n");
    EXPECT_TRUE(daemon_->logs("AT+CNMI could not be set again")) << daemon_->log();
}

TEST_F(Modemd, AModemThatGoesWhileItIsSetUpIsSetUpAtItsNextReturn) {
    startInStep();
    Question set = command("AT+CMEE=2\r");
    modem_.answer("AT+CMEE=2\r", "\r\nOK\r\n");
    set.gives("\r\nOK\r\n");
    modem_.vanish();
    EXPECT_TRUE(daemon_->logs("is lost: "));
    modem_.appear();
    modem_.answerProbe();
    modem_.expect("AT+CMEE=2\r");
    Question waiting = command("AT\r");
    EXPECT_FALSE(waiting.isAnswered());
    modem_.vanish();
    waiting.fails(Result::NO_MODEM);
    modem_.appear();
    modem_.answerProbe();
    modem_.answer("AT+CMEE=2\r", "\r\nOK\r\n");
    expectAlive();
}

TEST_F(Modemd, ATerminalThatComesLaterIsOpenedByItself) {
    modem_.vanish();
    start();
    EXPECT_TRUE(daemon_->logs("cannot open " + device() + ": No such file or directory"));
    command("AT\r").fails(Result::NO_MODEM);
    modem_.appear();
    modem_.answerProbe();
    EXPECT_TRUE(daemon_->logs("is open"));
    EXPECT_EQ(daemon_->log().find("cannot open"), daemon_->log().rfind("cannot open"))
        << "the same trouble is logged once";
    expectAlive();
}

TEST_F(Modemd, ATerminalThatTakesNoOctetsIsOpenedAnew) {
    startInStep();
    expectAlive();
    ASSERT_EQ(::tcflow(modem_.terminal(), TCOOFF), 0);
    command("AT\r", USUAL_MARKERS, 1).fails(Result::NO_MODEM);
    EXPECT_TRUE(daemon_->logs("it takes no octets"));
    ASSERT_EQ(::tcflow(modem_.terminal(), TCOON), 0);
    Question again = command("AT\r");
    EXPECT_TRUE(modem_.hear().ends_with("ATE0Q0V1\r"));
    modem_.say("\r\nOK\r\n");
    modem_.answer("AT\r", "\r\nOK\r\n");
    again.gives("\r\nOK\r\n");
}

TEST_F(Modemd, IsSetRawAtTheGivenRate) {
    termios line{};
    ASSERT_EQ(::tcgetattr(modem_.terminal(), &line), 0);
    line.c_lflag |= ICANON | ECHO | ISIG;
    line.c_iflag |= ICRNL | IXON;
    line.c_oflag |= OPOST;
    ASSERT_EQ(::tcsetattr(modem_.terminal(), TCSANOW, &line), 0);
    startInStep({"--baud", "9600"});
    ASSERT_EQ(::tcgetattr(modem_.terminal(), &line), 0);
    EXPECT_EQ(::cfgetospeed(&line), static_cast<speed_t>(B9600));
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(line.c_iflag & (ICRNL | IXON), 0u);
    EXPECT_EQ(line.c_oflag & OPOST, 0u);
}

TEST_F(Modemd, RefusesADeviceThatIsNoTerminal) {
    const std::string file = directory_ / "file";
    std::ofstream(file) << "text";
    for (const std::string &path : {file, std::string("/dev/null")}) {
        Daemon refused({"--device", path});
        EXPECT_EQ(refused.exitCode(), 1);
        EXPECT_NE(refused.log().find(path + " is not a tty; name the modem's AT port"),
                  std::string::npos)
            << refused.log();
    }
}

TEST_F(Modemd, RefusesWrongOptions) {
    EXPECT_EQ(Daemon({}).exitCode(), 2);
    EXPECT_EQ(Daemon({"--device", device(), "--baud", "7"}).exitCode(), 2);
    EXPECT_EQ(Daemon({"--device", device(), "--keep-transfers", "0"}).exitCode(), 2);
}

TEST_F(Modemd, ASecondManagerIsRefused) {
    startInStep();
    Daemon second({"--device", device()});
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_NE(second.log().find("already served"), std::string::npos) << second.log();
    expectAlive();
}

TEST_F(Modemd, ATerminalThatAnotherManagerHoldsIsLeftAlone) {
    startInStep();
    ::setenv("SMSPB_RUNTIME_DIR", (directory_ / "other").c_str(), 1);
    Daemon other({"--device", device()});
    ASSERT_TRUE(other.isReady());
    EXPECT_TRUE(other.logs(device() + " is in use by process ")) << other.log();
    EXPECT_TRUE(other.logs("(smspb-modemd)")) << other.log();
    command("AT\r").fails(Result::NO_MODEM);
    modem_.expectNothing();
}

// ================ order ================

TEST_F(Modemd, ServesRequestsInTheOrderOfTheirArrival) {
    startInStep();
    for (int i = 0; i < 40; i++) {
        const std::string record = commandRecord("AT+N=" + std::to_string(i) + "\r");
        ASSERT_EQ(zeldcard_send_request_asyn(MODEM_MANAGER_ID, COMMAND_REQUEST, record.data(),
                                             static_cast<u32>(record.size())),
                  IPC_OK);
    }
    for (int i = 0; i < 40; i++) {
        modem_.answer("AT+N=" + std::to_string(i) + "\r", "\r\nOK\r\n");
    }
    modem_.expectNothing();
}

TEST_F(Modemd, ARequestWhoseAskerHungUpIsNotRun) {
    startInStep();
    Question first = command("AT+N=1\r");
    modem_.expect("AT+N=1\r");
    EXPECT_NE(ask(COMMAND_REQUEST, commandRecord("AT+N=2\r"), 50).status, IPC_OK);
    Question third = command("AT+N=3\r");
    modem_.say("\r\nOK\r\n");
    first.gives("\r\nOK\r\n");
    modem_.answer("AT+N=3\r", "\r\nOK\r\n");
    third.gives("\r\nOK\r\n");
    EXPECT_TRUE(daemon_->logs("its asker hung up before it started"));
}

constexpr int CLIENTS = 16;
constexpr int COMMANDS_PER_CLIENT = 25;

// Exits with the number of replies that were not its own.
pid_t forkClient(int client) {
    const pid_t pid = ::fork();
    if (pid != 0) { return pid; }
    int wrong = 0;
    for (int i = 0; i < COMMANDS_PER_CLIENT; i++) {
        const std::string name = std::to_string(client) + "," + std::to_string(i);
        const Response response = ask(COMMAND_REQUEST, commandRecord("AT+N=" + name + "\r"));
        wrong += response.reply() != "\r\n+N: " + name + "\r\n\r\nOK\r\n" ? 1 : 0;
    }
    ::_exit(wrong);
}

TEST_F(Modemd, SixteenProcessesAtOnceEachGetTheirOwnReplies) {
    startInStep();
    std::vector<pid_t> clients;
    for (int client = 0; client < CLIENTS; client++) { clients.push_back(forkClient(client)); }
    for (int i = 0; i < CLIENTS * COMMANDS_PER_CLIENT; i++) {
        const std::string line = modem_.hear();
        ASSERT_EQ(std::count(line.begin(), line.end(), '\r'), 1) << "one command at a time";
        ASSERT_TRUE(line.starts_with("AT+N="));
        modem_.say("\r\n+N: " + line.substr(5, line.size() - 6) + "\r\n\r\nOK\r\n");
    }
    for (const pid_t client : clients) {
        int status = -1;
        ASSERT_EQ(::waitpid(client, &status, 0), client);
        EXPECT_EQ(status, 0);
    }
}

// ================ long replies ================

std::string longReply(std::size_t octets) {
    const std::string end = "\r\n\r\nOK\r\n";
    return "\r\n" + std::string(octets - 2 - end.size(), '7') + end;
}

Response askLong(const Modem &modem, const std::string &reply) {
    Question question = command("AT+CMGL=4\r");
    modem.answer("AT+CMGL=4\r", reply);
    return question.wait();
}

std::string contentsOf(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(Modemd, AReplyOf1013OctetsIsInlineAndALongerOneInAFile) {
    startInStep();
    const Response whole = askLong(modem_, longReply(1013));
    EXPECT_EQ(whole.flag, 0u);
    EXPECT_EQ(whole.reply(), longReply(1013));

    const Response filed = askLong(modem_, longReply(1014));
    EXPECT_EQ(filed.result, 0u);
    EXPECT_EQ(filed.flag, 1u);
    EXPECT_EQ(filed.rest.size(), filed.path().size() + 1);
    EXPECT_EQ(fs::path(filed.path()).parent_path(), runtime());
    EXPECT_EQ(contentsOf(filed.path()), longReply(1014));
    struct stat status {};
    ASSERT_EQ(::stat(filed.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0600));
}

TEST_F(Modemd, TheLibraryReadsALongReplyFromItsFile) {
    startInStep();
    auto reply = std::async(std::launch::async, [] {
        char *text = writeComm("AT+CMGL=4\r", 3000, 1, "OK");
        const std::string copy = text != nullptr ? text : "none";
        std::free(text);
        return copy;
    });
    modem_.answer("AT+CMGL=4\r", longReply(3000));
    EXPECT_EQ(reply.get(), longReply(3000).substr(0, 1024));
}

TEST_F(Modemd, ATransferFileIsRemovedAfterItsTime) {
    startInStep({"--keep-transfers", "1"});
    const Response first = askLong(modem_, longReply(2000));
    const Response second = askLong(modem_, longReply(2001));
    EXPECT_NE(first.path(), second.path());
    EXPECT_EQ(transferFiles().size(), 2u);
    EXPECT_TRUE(comesTrue([this] { return transferFiles().empty(); }));
}

TEST_F(Modemd, TransferFilesAreRemovedAtTheEnd) {
    startInStep();
    EXPECT_TRUE(fs::exists(askLong(modem_, longReply(2000)).path()));
    daemon_->signal(SIGINT);
    EXPECT_EQ(daemon_->exitCode(), 0);
    EXPECT_TRUE(transferFiles().empty());
}

TEST_F(Modemd, TransferFilesOfAKilledManagerAreRemovedAtTheStart) {
    startInStep();
    EXPECT_TRUE(fs::exists(askLong(modem_, longReply(2000)).path()));
    daemon_->signal(SIGKILL);
    EXPECT_EQ(daemon_->exitCode(), 128 + SIGKILL);
    EXPECT_EQ(transferFiles().size(), 1u);
    startInStep();
    EXPECT_TRUE(transferFiles().empty());
    expectAlive();
}

TEST_F(Modemd, ATransferFileThatCannotBeWrittenFailsTheRequest) {
    startInStep();
    const fs::path moved = directory_ / "moved";
    fs::rename(runtime(), moved);
    ::setenv("SMSPB_RUNTIME_DIR", moved.c_str(), 1);
    const Response response = askLong(modem_, longReply(2000));
    EXPECT_EQ(response.result, static_cast<u32>(Result::NO_TRANSFER));
    EXPECT_TRUE(daemon_->logs("cannot write the reply's transfer file"));
    expectAlive();
}

// ================ access ================

constexpr gid_t MEMBERS = 54321;

// Becomes an ordinary user, asks, and reads the reply's file.
int askAsUser(gid_t group) {
    constexpr uid_t SOMEBODY = 4002;
    if (::setgroups(0, nullptr) != 0 || ::setgid(group) != 0 || ::setuid(SOMEBODY) != 0) {
        return 1;
    }
    const Response response = ask(COMMAND_REQUEST, commandRecord("AT+X\r"));
    if (response.status != IPC_OK) { return 2; }
    return contentsOf(response.path()) == longReply(2000) ? 0 : 3;
}

class ModemdAccess : public Modemd {
protected:
    void SetUp() override {
        if (::geteuid() != 0) { GTEST_SKIP() << "needs root to become somebody else"; }
        fs::permissions(fs::path(device()).parent_path(), fs::perms(0755));
    }
    static pid_t forkAsker(gid_t group) {
        const pid_t pid = ::fork();
        if (pid == 0) { ::_exit(askAsUser(group)); }
        return pid;
    }
    static int exitCodeOf(pid_t pid) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(ModemdAccess, AMemberOfTheGroupIsServedAndReadsALongReply) {
    startInStep({"--group", std::to_string(MEMBERS)});
    const pid_t asker = forkAsker(MEMBERS);
    modem_.answer("AT+X\r", longReply(2000));
    EXPECT_EQ(exitCodeOf(asker), 0);
    for (const fs::path &file : transferFiles()) {
        EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
    }
}

TEST_F(ModemdAccess, OthersAreNot) {
    startInStep({"--group", std::to_string(MEMBERS)});
    EXPECT_EQ(exitCodeOf(forkAsker(MEMBERS + 1)), 2);
    expectAlive();
}

TEST_F(ModemdAccess, WithoutAGroupNobodyElseIs) {
    startInStep();
    EXPECT_EQ(exitCodeOf(forkAsker(MEMBERS)), 2);
    expectAlive();
}

TEST_F(ModemdAccess, AnUnknownGroupIsNamed) {
    Daemon daemon({"--device", device(), "--group", "no-such-group"});
    EXPECT_EQ(daemon.exitCode(), 1);
    EXPECT_TRUE(daemon.logs("--group no-such-group: no group of that name"));
}

// ================ messages ================

TEST_F(Modemd, SendsAMessageInPduMode) {
    startInStep();
    Question question(SEND_REQUEST, sendRecord(PDU));
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.answer("AT+CMGS=18\r", "\r\n> ");
    modem_.answer(PDU + "\x1a", "\r\n+CMGS: 7\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGS: 7\r\n\r\nOK\r\n");
}

TEST_F(Modemd, StoresAMessageWithItsStatus) {
    startInStep();
    const std::array<std::pair<u32, const char *>, 3> cases = {
        {{0, "AT+CMGW=18\r"}, {2, "AT+CMGW=18,2\r"}, {3, "AT+CMGW=18,3\r"}}
    };
    for (const auto &[status, announced] : cases) {
        Question question(STORE_REQUEST, storeRecord(PDU_WITH_CENTRE, status));
        modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
        modem_.answer(announced, "\r\n> ");
        modem_.answer(PDU_WITH_CENTRE + "\x1a", "\r\n+CMGW: 3\r\n\r\nOK\r\n");
        question.gives("\r\n+CMGW: 3\r\n\r\nOK\r\n");
    }
}

TEST_F(Modemd, AModemThatEchoesIsSentMessagesAsWell) {
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    startInStep();
    Question question(SEND_REQUEST, sendRecord(PDU));
    modem_.answer("AT+CMGF=0\r", "AT+CMGF=0\r\r\nOK\r\n");
    modem_.answer("AT+CMGS=18\r", "AT+CMGS=18\r\r\n> ");
    modem_.answer(PDU + "\x1a", PDU + "\x1a\r\n\r\n+CMTI: \"SM\",9\r\n\r\n+CMGS: 7\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGS: 7\r\n\r\nOK\r\n");
    EXPECT_EQ(textOf(reports.receive(SOON).value()), "+CMTI: \"SM\",9\r\n");
}

TEST_F(Modemd, APromptSplitInTwoIsKnown) {
    startInStep({"--verbose"});
    Question question(SEND_REQUEST, sendRecord(PDU));
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    ASSERT_TRUE(daemon_->logs("<- \\r\\nOK\\r\\n"));
    modem_.answer("AT+CMGS=18\r", "\r\n>");
    ASSERT_TRUE(daemon_->logs("<- \\r\\n>"));
    modem_.expectNothing();
    modem_.say(" ");
    modem_.answer(PDU + "\x1a", "\r\n+CMGS: 7\r\n\r\nOK\r\n");
    question.gives("\r\n+CMGS: 7\r\n\r\nOK\r\n");
}

TEST_F(Modemd, TheLibrarysSendAndStoreCallsGetTheModemsReply) {
    startInStep();
    const auto run = [](auto call) {
        return std::async(std::launch::async, [call] {
            char *text = nullptr;
            call(&text);
            const std::string copy = text != nullptr ? text : "none";
            std::free(text);
            return copy;
        });
    };
    auto sent = run([](char **text) { ExecAT2(PDU.c_str(), nullptr, 0, text, 35000); });
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.answer("AT+CMGS=18\r", "\r\n> ");
    modem_.answer(PDU + "\x1a", "\r\n+CMGS: 1\r\n\r\nOK\r\n");
    EXPECT_EQ(sent.get(), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
    auto stored = run([](char **text) { ExecAT3(PDU.c_str(), 2, nullptr, 0, text, 35000); });
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.answer("AT+CMGW=18,2\r", "\r\n> ");
    modem_.answer(PDU + "\x1a", "\r\n+CMGW: 5\r\n\r\nOK\r\n");
    EXPECT_EQ(stored.get(), "\r\n+CMGW: 5\r\n\r\nOK\r\n");
}

// The steps of an exchange: what the program sends, what the modem answers.
struct ExchangeCase {
    const char *name;
    std::vector<std::pair<std::string, std::string>> steps;
    Result result;
    std::string reply;
};

void PrintTo(const ExchangeCase &c, std::ostream *out) { *out << c.name; }

const std::pair<std::string, std::string> MODE_STEP = {"AT+CMGF=0\r", "\r\nOK\r\n"};
const std::pair<std::string, std::string> LENGTH_STEP = {"AT+CMGS=18\r", "\r\n> "};
const std::string PDU_STEP = PDU + "\x1a";

class ModemdExchange : public Modemd, public testing::WithParamInterface<ExchangeCase> {};

TEST_P(ModemdExchange, EndsAsTheModemSays) {
    startInStep();
    Question question(SEND_REQUEST, sendRecord(PDU));
    for (const auto &[sent, answer] : GetParam().steps) { modem_.answer(sent, answer); }
    if (GetParam().result == Result::CARRIED_OUT) {
        question.gives(GetParam().reply);
    } else {
        question.fails(GetParam().result);
    }
    expectAlive();
}

INSTANTIATE_TEST_SUITE_P(
    Failing, ModemdExchange,
    testing::Values(
        ExchangeCase{
            "NoPduMode", {{"AT+CMGF=0\r", "\r\nERROR\r\n"}},
             Result::CARRIED_OUT, "\r\nERROR\r\n"
},
        ExchangeCase{"ErrorInPlaceOfThePrompt",
                     {MODE_STEP, {"AT+CMGS=18\r", "\r\n+CMS ERROR: 304\r\n"}},
                     Result::CARRIED_OUT,
                     "\r\n+CMS ERROR: 304\r\n"},
        ExchangeCase{"PlainErrorInPlaceOfThePrompt",
                     {MODE_STEP, {"AT+CMGS=18\r", "\r\nERROR\r\n"}},
                     Result::CARRIED_OUT,
                     "\r\nERROR\r\n"},
        ExchangeCase{"OkInPlaceOfThePrompt",
                     {MODE_STEP, {"AT+CMGS=18\r", "\r\nOK\r\n"}},
                     Result::NO_PROMPT,
                     ""},
        ExchangeCase{"RefusedByTheNetwork",
                     {MODE_STEP, LENGTH_STEP, {PDU_STEP, "\r\n+CMS ERROR: 500\r\n"}},
                     Result::CARRIED_OUT,
                     "\r\n+CMS ERROR: 500\r\n"},
        ExchangeCase{"RefusedByTheEquipment",
                     {MODE_STEP, LENGTH_STEP, {PDU_STEP, "\r\n+CME ERROR: 10\r\n"}},
                     Result::CARRIED_OUT,
                     "\r\n+CME ERROR: 10\r\n"},
        ExchangeCase{"PromptAgain",
                     {MODE_STEP,
                      LENGTH_STEP,
                      {PDU_STEP, "\r\n> "},
                      {ESCAPE_AND_PROBE, "\r\nOK\r\n\r\nOK\r\n"}},
                     Result::NO_PROMPT,
                     ""}),
    CaseName());

TEST_F(Modemd, ATerminalThatVanishesAtThePromptFailsTheMessage) {
    startInStep();
    Question question(SEND_REQUEST, sendRecord(PDU));
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.answer("AT+CMGS=18\r", "\r\n> ");
    modem_.expect(PDU + "\x1a");
    modem_.vanish();
    question.fails(Result::NO_MODEM);
}

// The message exchange with short waits, in this process.
class ShortWaits : public testing::Test {
protected:
    ShortWaits()
        : modem_(directory_ / "tty"),
          engine_(loop_, directory_ / "tty", 115200, [](std::string_view) {}),
          service_(engine_, {50ms, 50ms, 50ms, 5000ms}), work_(loop_.get_executor()) {
        spdlog::set_level(spdlog::level::off);
        engine_.start();
        thread_ = std::thread([this] { loop_.run(); });
        modem_.answerProbe();
        awaitStep();
    }
    ~ShortWaits() override {
        asio::post(loop_, [this] {
            engine_.stop();
            work_.reset();
        });
        thread_.join();
    }
    // Until what is sent next goes out at once.
    void awaitStep() {
        EXPECT_TRUE(comesTrue([this] {
            std::promise<std::string> state;
            asio::post(loop_, [&] { state.set_value(engine_.state()); });
            return state.get_future().get() == "in step";
        }));
    }
    std::future<Answer> send() {
        auto promise = std::make_shared<std::promise<Answer>>();
        asio::post(loop_, [this, promise] {
            service_.carryOut(MessageRequest{"AT+CMGS=18\r", PDU}, Clock::now(),
                              [promise](const Answer &answer) { promise->set_value(answer); });
        });
        return promise->get_future();
    }

    Directory directory_;
    Modem modem_;
    asio::io_context loop_;
    AtEngine engine_;
    ModemService service_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    std::thread thread_;
};

TEST_F(ShortWaits, WithoutAnAnswerToTheModeNothingElseIsSent) {
    auto answer = send();
    modem_.expect("AT+CMGF=0\r");
    EXPECT_EQ(answer.get().result, Result::NO_ANSWER);
    modem_.answer("ATE0Q0V1\r", "\r\nOK\r\n\r\nOK\r\n");
}

TEST_F(ShortWaits, WithoutAPromptTheExchangeIsLeftByEscape) {
    auto answer = send();
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.expect("AT+CMGS=18\r");
    EXPECT_EQ(answer.get().result, Result::NO_PROMPT);
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n\r\nOK\r\n");
    awaitStep();
    auto again = send();
    modem_.answer("AT+CMGF=0\r", "\r\nERROR\r\n");
    EXPECT_EQ(again.get().text, "\r\nERROR\r\n");
}

TEST_F(ShortWaits, APromptThatComesTooLateIsLeftToo) {
    auto answer = send();
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.expect("AT+CMGS=18\r");
    EXPECT_EQ(answer.get().result, Result::NO_PROMPT);
    modem_.expect(ESCAPE_AND_PROBE);
    const auto begin = steady_clock::now();
    modem_.say("\r\n> "); // had not come yet when the escape was sent: the probe is message text
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n\r\nOK\r\n");
    EXPECT_LT(steady_clock::now() - begin, AT_ONCE) << "without waiting for the probe";
    awaitStep();
    auto again = send();
    modem_.answer("AT+CMGF=0\r", "\r\nERROR\r\n");
    EXPECT_EQ(again.get().text, "\r\nERROR\r\n");
}

TEST_F(ShortWaits, WithoutAFinalResultTheMessageFails) {
    auto answer = send();
    modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
    modem_.answer("AT+CMGS=18\r", "\r\n> ");
    modem_.answer(PDU_STEP, "\r\n+CMGS: 7\r\n");
    const Answer given = answer.get();
    EXPECT_EQ(given.result, Result::NO_ANSWER);
    EXPECT_EQ(given.text, "");
    modem_.answer(ESCAPE_AND_PROBE, "\r\nOK\r\n\r\nOK\r\n");
}

// ================ the service manager ================

class ServiceManager {
public:
    explicit ServiceManager(const fs::path &path)
        : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.native().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(
            ::bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~ServiceManager() { ::unsetenv("NOTIFY_SOCKET"); }
    ServiceManager(const ServiceManager &) = delete;
    ServiceManager &operator=(const ServiceManager &) = delete;

    std::string next() const { return readSome(socket_.get(), steady_clock::now() + SOON); }

private:
    Descriptor socket_;
};

TEST_F(Modemd, TellsTheServiceManagerThatItIsReadyAndThatItEnds) {
    const ServiceManager manager(directory_ / "notify");
    startInStep();
    EXPECT_EQ(manager.next(), "READY=1");
    daemon_->signal(SIGTERM);
    EXPECT_EQ(manager.next(), "STOPPING=1");
    EXPECT_EQ(daemon_->exitCode(), 0);
}

TEST_F(Modemd, DoesWithoutAServiceManager) {
    for (const std::string path : {"", "/", "relative", "/no/such/socket"}) {
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
        startInStep();
        expectAlive();
        daemon_->signal(SIGTERM);
        EXPECT_EQ(daemon_->exitCode(), 0) << path;
    }
    ::unsetenv("NOTIFY_SOCKET");
}

// ================ the end ================

// A manager whose message is under way, behind which another request waits.
class AtItsEnd : public Modemd {
protected:
    AtItsEnd() {
        startInStep();
        running_.emplace(SEND_REQUEST, sendRecord(PDU));
        modem_.answer("AT+CMGF=0\r", "\r\nOK\r\n");
        modem_.answer("AT+CMGS=18\r", "\r\n> ");
        modem_.expect(PDU_STEP);
        waiting_.emplace(command("AT\r"));
        EXPECT_FALSE(waiting_->isAnswered());
        daemon_->signal(SIGTERM);
        const Response other = waiting_->wait();
        EXPECT_TRUE(other.status != IPC_OK ||
                    other.result == static_cast<u32>(Result::SHUTTING_DOWN));
    }

    std::optional<Question> running_, waiting_;
};

TEST_F(AtItsEnd, WhatRunsIsFinished) {
    EXPECT_FALSE(running_->isAnswered());
    modem_.say("\r\n+CMGS: 5\r\n\r\nOK\r\n");
    running_->gives("\r\n+CMGS: 5\r\n\r\nOK\r\n");
    EXPECT_EQ(daemon_->exitCode(), 0);
}

TEST_F(AtItsEnd, ASecondSignalCutsShortWhatRuns) {
    EXPECT_TRUE(daemon_->logs("ending on signal"));
    daemon_->signal(SIGTERM);
    running_->fails(Result::SHUTTING_DOWN);
    modem_.expect("\x1b"); // a modem left at its prompt would take the next command for text
    EXPECT_EQ(daemon_->exitCode(), 0);
}

} // namespace
