// The library's operations through real processes: modem manager and simulated modem.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "support/library_texts.h"
#include "support/process.h"

namespace {

using support::callersNumber;
using support::callersText;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

const std::u16string OWN_NUMBER = u"+15550001000"; // the simulated modem's
constexpr u32 UNSET = 0xFFFFFFFF;
constexpr u16 NO_TIME[6] = {0, 0, 0, 0, 0, 0};

std::u16string textOf(const u16 *text) {
    return text == nullptr ? std::u16string() : std::u16string(text, text + sms_wstrlen(text));
}

// A text of `length` GSM characters that differs at every place.
std::u16string longText(std::size_t length) {
    std::u16string text;
    while (text.size() < length) {
        const std::string part = std::to_string(text.size()) + " ";
        text.append(part.begin(), part.end());
    }
    return text.substr(0, length);
}

struct Stored {
    u32 status = 0;
    u32 kind = 0;
    u16 index = 0, reference = 0, total = 0, segment = 0;
    std::u16string text, peer;
};

class WholeRoad : public testing::Test {
protected:
    WholeRoad() {
        ::setenv("SMSPB_RUNTIME_DIR", directory_.path().c_str(), 1);
        g_blInitCsca = 0;
        std::memset(g_wszCsca, 0, sizeof(g_wszCsca));
    }

    void start(const std::vector<std::string> &modemOptions = {}) {
        const std::string tty = (directory_.path() / "modem").string();
        std::vector<std::string> words{SIMMODEM_PROGRAM, "--link", tty};
        words.insert(words.end(), modemOptions.begin(), modemOptions.end());
        modem_ = std::make_unique<support::Program>(words);
        ASSERT_TRUE(modem_->prints("ready"));
        manager_ = std::make_unique<support::Program>(
            std::vector<std::string>{MODEMD_PROGRAM, "--device", tty});
        ASSERT_TRUE(manager_->prints("ready"));
    }

    void killManager() { manager_->end(SIGKILL); }

    static u32 read(u32 index, Stored *stored) {
        SmsRecord *record = nullptr;
        const u32 status = getSMSbyindex(&record, index);
        if (status != SMS_OK) { return status; }
        const SmsMessage &message = record->message;
        *stored = {record->status,         message.kind,
                   record->index,          message.reference,
                   message.total_segments, message.segment_number,
                   textOf(message.text),   textOf(message.peer_number)};
        std::free(message.text);
        std::free(record);
        return SMS_OK;
    }

    static u32 send(const std::u16string &text, u8 *sent) {
        return SendSMS(callersNumber(OWN_NUMBER).data(), callersText(text).data(), 0, sent);
    }

    static std::string ask(const char *command) {
        char *reply = writeComm(command, 3000, 2, "OK", "ERROR");
        const std::string text = reply != nullptr ? reply : "no reply";
        std::free(reply);
        return text;
    }

    support::PrivateDirectory directory_;
    std::unique_ptr<support::Program> modem_;
    std::unique_ptr<support::Program> manager_;
};

TEST_F(WholeRoad, InitSetsTheIndicationsAndAllStoragesToTheSim) {
    start();
    ASSERT_EQ(InitSMS(), SMS_OK);
    EXPECT_NE(ask("AT+CNMI?\r").find("+CNMI: 2,1,0,0,0"), std::string::npos);
    EXPECT_NE(ask("AT+CPMS?\r").find("+CPMS: \"SM\",0,50,\"SM\",0,50,\"SM\",0,50"),
              std::string::npos);
}

class SentToItself : public WholeRoad, public testing::WithParamInterface<std::size_t> {};

TEST_P(SentToItself, ComesBackWholeAndInOrder) {
    const std::size_t segments = GetParam();
    const std::u16string text =
        segments == 1 ? u"Hello from the router." : longText(segments * 153);
    start({"--sm-size", "250"});
    ASSERT_EQ(InitSMS(), SMS_OK);
    u8 sent = 0;
    ASSERT_EQ(send(text, &sent), SMS_OK);
    EXPECT_EQ(sent, segments);
    std::u16string joined;
    for (u32 index = 1; index <= segments; index++) {
        Stored stored;
        ASSERT_EQ(read(index, &stored), SMS_OK) << index;
        EXPECT_EQ(stored.kind, MESSAGE_DELIVER);
        EXPECT_EQ(stored.status, 0U);
        EXPECT_EQ(stored.index, index);
        EXPECT_EQ(stored.peer, OWN_NUMBER);
        EXPECT_EQ(stored.total, segments == 1 ? 0 : segments);
        EXPECT_EQ(stored.segment, segments == 1 ? 0 : index);
        joined += stored.text;
    }
    EXPECT_EQ(joined, text);
    u16 counts[2] = {0, 0};
    ASSERT_EQ(SM_GetStorageInfo_Sms(counts, SMS_STORAGE_SM), SMS_OK);
    EXPECT_EQ(counts[0], segments);
    EXPECT_EQ(counts[1], 250);
}

INSTANTIATE_TEST_SUITE_P(Segments, SentToItself, testing::Values(1, 3, 200));

TEST_F(WholeRoad, ASavedTextHasAnIndexForEachSegment) {
    start();
    ASSERT_EQ(InitSMS(), SMS_OK);
    const std::u16string text = longText(300);
    u32 indexes[2] = {UNSET, UNSET};
    ASSERT_EQ(SaveSMS(callersNumber(u"+491701234567").data(), callersText(text).data(), 3, indexes,
                      NO_TIME),
              SMS_OK);
    std::u16string joined;
    for (const u32 index : indexes) {
        Stored stored;
        ASSERT_EQ(read(index, &stored), SMS_OK) << index;
        EXPECT_EQ(stored.kind, MESSAGE_SUBMIT);
        EXPECT_EQ(stored.status, 3U);
        EXPECT_EQ(stored.peer, u"+491701234567");
        joined += stored.text;
    }
    EXPECT_EQ(joined, text);
}

TEST_F(WholeRoad, DeletingByIdTakesOneMessageOutOfTheModemsOwnMemory) {
    start();
    ASSERT_EQ(setReceiveMemStore(SMS_STORAGE_ME), SMS_OK);
    u32 indexes[2] = {UNSET, UNSET};
    ASSERT_EQ(
        SaveSMS(callersNumber(u"123").data(), callersText(u"gone").data(), 2, &indexes[0], NO_TIME),
        SMS_OK);
    ASSERT_EQ(
        SaveSMS(callersNumber(u"123").data(), callersText(u"kept").data(), 2, &indexes[1], NO_TIME),
        SMS_OK);
    EXPECT_EQ(deleteSMSByID(indexes[0] | 0x50000), SMS_OK);
    Stored stored;
    EXPECT_EQ(read(indexes[0], &stored), SMS_MODEM_ERROR);
    EXPECT_EQ(read(indexes[1], &stored), SMS_OK);
    EXPECT_EQ(stored.text, u"kept");
}

// Where the modem's places are: the first index, and the distance of the others.
struct Indexes {
    const char *name;
    u32 base, step;

    u32 at(u32 place) const { return base + place * step; }
};

class OddIndexes : public WholeRoad, public testing::WithParamInterface<Indexes> {
protected:
    void startWithIndexes() {
        start({"--index-base", std::to_string(GetParam().base), "--index-step",
               std::to_string(GetParam().step)});
    }

    static std::u16string readText(u32 index) {
        Stored stored;
        return read(index, &stored) == SMS_OK ? stored.text : u"none";
    }
};

TEST_P(OddIndexes, ALongTextIsReadBackFromWhereItIsAnnounced) {
    startWithIndexes();
    ASSERT_EQ(InitSMS(), SMS_OK);
    const std::u16string text = longText(400);
    u8 sent = 0;
    ASSERT_EQ(send(text, &sent), SMS_OK);
    std::u16string joined;
    for (u32 place = 0; place < sent; place++) { joined += readText(GetParam().at(place)); }
    EXPECT_EQ(joined, text);
    Stored stored;
    EXPECT_EQ(read(GetParam().at(sent), &stored), SMS_MODEM_ERROR) << "empty";
    if (GetParam().step > 1) { EXPECT_EQ(read(GetParam().at(0) + 1, &stored), SMS_MODEM_ERROR); }
    if (GetParam().base > 0) { EXPECT_EQ(read(0, &stored), SMS_MODEM_ERROR); }
}

TEST_P(OddIndexes, WhatIsSavedIsFoundAndDeletedByTheIndexesThatTheModemGave) {
    startWithIndexes();
    ASSERT_EQ(setReceiveMemStore(SMS_STORAGE_ME), SMS_OK);
    u32 indexes[3] = {UNSET, UNSET, UNSET};
    const std::u16string text = longText(400);
    ASSERT_EQ(SaveSMS(callersNumber(u"123").data(), callersText(text).data(), 2, indexes, NO_TIME),
              SMS_OK);
    for (u32 place = 0; place < 3; place++) { EXPECT_EQ(indexes[place], GetParam().at(place)); }
    EXPECT_EQ(deleteSMSByID(indexes[1]), SMS_OK);
    EXPECT_EQ(readText(indexes[1]), u"none");
    EXPECT_EQ(readText(indexes[0]) + readText(indexes[2]), text.substr(0, 153) + text.substr(306));
    EXPECT_EQ(deleteSMSByID(GetParam().at(100)), SMS_MODEM_ERROR) << "behind the last place";
}

INSTANTIATE_TEST_SUITE_P(Schemes, OddIndexes,
                         testing::Values(Indexes{"FromZero", 0, 1}, Indexes{"EveryThird", 1, 3},
                                         Indexes{"EverySeventhFromZero", 0, 7}),
                         [](const auto &scheme) { return std::string(scheme.param.name); });

TEST_F(WholeRoad, TheServiceCentreIsReadOnceAndSet) {
    start({"--smsc", "+4912345678"});
    u16 address[21];
    ASSERT_EQ(GetCSCA(address), SMS_OK);
    EXPECT_EQ(textOf(address), u"+4912345678");
    EXPECT_EQ(GetCSCA(address), SMS_OK);
    EXPECT_EQ(textOf(address), u"");
    ASSERT_EQ(SetCSCA(callersNumber(u"+4987654321").data()), SMS_OK);
    ASSERT_EQ(readCSCA(address), SMS_OK);
    EXPECT_EQ(textOf(address), u"+4987654321");
}

TEST_F(WholeRoad, WithoutAManagerEveryOperationSaysSo) {
    start();
    killManager();
    u8 sent = 9;
    u32 index = UNSET;
    Stored stored;
    EXPECT_EQ(send(u"x", &sent), SMS_NO_REPLY_TEXT);
    EXPECT_EQ(sent, 0);
    EXPECT_EQ(SaveSMS(callersNumber(u"1").data(), callersText(u"x").data(), 0, &index, NO_TIME),
              SMS_NO_REPLY);
    EXPECT_EQ(index, UNSET);
    EXPECT_EQ(read(1, &stored), SMS_NO_REPLY);
    EXPECT_EQ(setInformmode(), SMS_NO_REPLY);
    EXPECT_EQ(deleteSMSByID(1), SMS_NO_REPLY);
    EXPECT_EQ(InitSMS(), SMS_NO_REPLY);
}

TEST_F(WholeRoad, AManagerKilledWhileItSendsEndsTheSendAtOnce) {
    start({"--fault", "+CMGS=silence"});
    std::thread killer([this] {
        std::this_thread::sleep_for(300ms);
        killManager();
    });
    const auto begun = steady_clock::now();
    u8 sent = 9;
    EXPECT_EQ(send(u"x", &sent), SMS_NO_REPLY_TEXT);
    EXPECT_LT(steady_clock::now() - begun, 3s);
    EXPECT_EQ(sent, 0);
    killer.join();
}

TEST_F(WholeRoad, ASilentModemEndsACommandAfterItsWait) {
    start({"--fault", "+CNMI=silence"});
    const auto begun = steady_clock::now();
    EXPECT_EQ(setInformmode(), SMS_NO_REPLY);
    EXPECT_GT(steady_clock::now() - begun, 2900ms);
    EXPECT_LT(steady_clock::now() - begun, 6s);
    EXPECT_EQ(setNewMessageChanel(0), SMS_OK); // the next command is clean again
}

TEST_F(WholeRoad, AModemWithoutAPromptRefusesTheSend) {
    start({"--fault", "+CMGS=no-prompt"});
    u8 sent = 9;
    EXPECT_EQ(send(u"x", &sent), SMS_NO_REPLY_TEXT);
    EXPECT_EQ(sent, 0);
}

TEST_F(WholeRoad, ARefusedSegmentEndsTheSend) {
    start({"--fault", "+CMGS=cms=500:2"});
    u8 sent = 9;
    EXPECT_EQ(send(longText(400), &sent), SMS_MODEM_ERROR);
    EXPECT_EQ(sent, 0);
}

TEST_F(WholeRoad, AFullStorageEndsTheSaveWithTheFirstIndexKept) {
    start({"--sm-size", "1"});
    ASSERT_EQ(InitSMS(), SMS_OK);
    u32 indexes[2] = {UNSET, UNSET};
    EXPECT_EQ(
        SaveSMS(callersNumber(u"1").data(), callersText(longText(200)).data(), 0, indexes, NO_TIME),
        SMS_MODEM_ERROR);
    EXPECT_EQ(indexes[0], 1U);
    EXPECT_EQ(indexes[1], UNSET);
}

// What one of many processes sends: its own number and the text's, one or two segments long.
std::u16string crowdText(int process, int text) {
    std::u16string result = longText(text % 2 == 0 ? 40 : 200);
    const std::string mark = std::to_string(process) + "/" + std::to_string(text) + ": ";
    return std::u16string(mark.begin(), mark.end()) + result;
}

TEST_F(WholeRoad, SixteenProcessesThatSendAtOnceLoseAndMixUpNothing) {
    constexpr int PROCESSES = 16;
    constexpr int TEXTS = 6;
    start({"--sm-size", "200"});
    ASSERT_EQ(InitSMS(), SMS_OK);
    std::vector<pid_t> children;
    for (int process = 0; process < PROCESSES; process++) {
        const pid_t child = fork();
        if (child == 0) {
            bool whole = true;
            for (int text = 0; text < TEXTS; text++) {
                u8 sent = 0;
                whole = send(crowdText(process, text), &sent) == SMS_OK && whole;
                whole = sent == 1 + text % 2 && whole;
            }
            _exit(whole ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    std::map<std::u16string, int> expected;
    for (int process = 0; process < PROCESSES; process++) {
        for (int text = 0; text < TEXTS; text++) {
            const std::u16string whole = crowdText(process, text);
            const std::size_t first = whole.size() > 160 ? 153 : whole.size();
            expected[whole.substr(0, first)]++;
            if (first < whole.size()) { expected[whole.substr(first)]++; }
        }
    }
    std::map<std::u16string, int> arrived;
    for (u32 index = 1; index <= PROCESSES * TEXTS * 3 / 2; index++) {
        Stored stored;
        ASSERT_EQ(read(index, &stored), SMS_OK) << index;
        arrived[stored.text]++;
    }
    EXPECT_EQ(arrived, expected);
}

} // namespace
