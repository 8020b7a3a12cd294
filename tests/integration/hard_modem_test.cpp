// The library through manager and simulated modem when the modem is hard to live with, and for a
// whole day whose clock the test drives.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "atlib/CPbSIM.h"
#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "platform/ipc/ipc_server.h"
#include "support/library_texts.h"
#include "support/process.h"
#include "support/simmodem.h"

namespace {

using support::callersNumber;
using support::callersText;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr u32 REPORT_NOTIFICATION = 0x10400090;
constexpr u16 NO_TIME[6] = {0, 0, 0, 0, 0, 0};

struct Read {
    u32 status = 0;
    std::u16string text;
    std::string date; // of the time stamp
};

Read readMessage(u32 index) {
    Read read;
    SmsRecord *record = nullptr;
    read.status = getSMSbyindex(&record, index);
    if (read.status != SMS_OK) { return read; }
    const u16 *const text = record->message.text;
    if (text != nullptr) { read.text.assign(text, text + sms_wstrlen(text)); }
    std::array<char, 40> date{};
    get_date_t_of_sms(record, date.data());
    read.date = date.data();
    std::free(record->message.text);
    std::free(record);
    return read;
}

class Road : public testing::Test {
protected:
    Road() {
        ::setenv("SMSPB_RUNTIME_DIR", directory_.path().c_str(), 1);
        g_blInitCsca = 0;
        std::memset(g_wszCsca, 0, sizeof(g_wszCsca));
    }

    void start(const std::vector<std::string> &modemOptions) {
        std::vector<std::string> words{SIMMODEM_PROGRAM, "--link", tty()};
        words.insert(words.end(), modemOptions.begin(), modemOptions.end());
        modem_ = std::make_unique<support::Program>(words);
        ASSERT_TRUE(modem_->prints("ready"));
        manager_ = std::make_unique<support::Program>(
            std::vector<std::string>{MODEMD_PROGRAM, "--device", tty()});
        ASSERT_TRUE(manager_->prints("ready"));
    }

    std::string tty() const { return (directory_.path() / "modem").string(); }

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

// ---- manners ----

struct Manners {
    const char *name;
    std::vector<std::string> options;
};

void PrintTo(const Manners &manners, std::ostream *out) { *out << manners.name; }

class HardModem : public Road, public testing::WithParamInterface<Manners> {
protected:
    void SetUp() override { start(GetParam().options); }

    // Three parts, the last with a character that the GSM alphabet lacks.
    static std::u16string longText() { return std::u16string(150, u'Ж') + u"end"; }
};

TEST_P(HardModem, SendsAndReadsALongTextWhole) {
    ASSERT_EQ(InitSMS(), SMS_OK);
    u8 sent = 0;
    ASSERT_EQ(
        SendSMS(callersNumber(u"+15550001000").data(), callersText(longText()).data(), 0, &sent),
        SMS_OK);
    ASSERT_EQ(sent, 3);
    std::u16string joined;
    for (u32 index = 1; index <= sent; index++) { joined += readMessage(index).text; }
    EXPECT_EQ(joined, longText());
}

TEST_P(HardModem, SavesCountsAndDeletesMessages) {
    ASSERT_EQ(InitSMS(), SMS_OK);
    u32 index = 0xFFFFFFFF; // to be filled in
    ASSERT_EQ(
        SaveSMS(callersNumber(u"123").data(), callersText(u"kept").data(), 3, &index, NO_TIME),
        SMS_OK);
    EXPECT_EQ(readMessage(index).text, u"kept");
    u16 counts[2] = {0, 0};
    ASSERT_EQ(SM_GetStorageInfo_Sms(counts, SMS_STORAGE_SM), SMS_OK);
    EXPECT_EQ(counts[0], 1);
    ASSERT_EQ(deleteByStoreId(index, SMS_STORAGE_SM), SMS_OK);
    EXPECT_EQ(readMessage(index).status, SMS_MODEM_ERROR);
}

TEST_P(HardModem, WritesAndReadsAContactAndTheServiceCentre) {
    ASSERT_EQ(SM_SetCodeDec("UCS2"), PB_OK);
    ASSERT_EQ(SM_SetStorage(PB_STORAGE_SM), PB_OK);
    sm_item_t item{};
    item.index = 3;
    std::strcpy(item.number, "5551234");
    item.name[0] = 0x04; // "Ж"
    item.name[1] = 0x16;
    i32 index = 0;
    ASSERT_EQ(SM_WriteItem(3, &item, &index), PB_OK);
    sm_item_t read{};
    testing::internal::CaptureStdout(); // where the library tells of each entry
    const u32 status = SM_ReadItem(3, &read);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(status, PB_OK);
    EXPECT_STREQ(read.number, "5551234");
    EXPECT_EQ(read.name[1], 0x16);
    ASSERT_EQ(SM_SetCodeDec("IRA"), PB_OK);
    ASSERT_EQ(SetCSCA(callersNumber(u"+4987654321").data()), SMS_OK);
    u16 address[21];
    ASSERT_EQ(readCSCA(address), SMS_OK);
    EXPECT_EQ(std::u16string(address, address + sms_wstrlen(address)), u"+4987654321");
}

INSTANTIATE_TEST_SUITE_P(Manners, HardModem,
                         testing::Values(
                             Manners{
                                 "AnEchoThatStays", {"--echo", "always"}
},
                             Manners{"OctetByOctet", {"--chunk", "1"}},
                             Manners{"PiecesWithPauses", {"--chunk", "16@1"}},
                             Manners{"ReportsInReplies", {"--interject"}},
                             Manners{"AllAtOnce",
                                     {"--echo", "always", "--chunk", "31@1", "--interject",
                                      "--latency", "1", "--index-base", "1"}}),
                         [](const auto &manners) { return std::string(manners.param.name); });

TEST_F(Road, AModemWithoutUcs2IsToldFromOneThatHasIt) {
    start({"--charsets", "IRA,GSM"});
    u32 charset = CHARSET_UNKNOWN;
    EXPECT_EQ(setEcodingFormat(CHARSET_UCS2), SMS_MODEM_ERROR);
    EXPECT_EQ(SM_SetCodeDec("UCS2"), PB_NOT_FOUND);
    ASSERT_EQ(getEcodingFormat(&charset), SMS_OK);
    EXPECT_EQ(charset, CHARSET_IRA);
    ASSERT_EQ(InitSMS(), SMS_OK);
    u8 sent = 0;
    ASSERT_EQ(
        SendSMS(callersNumber(u"+15550001000").data(), callersText(u"Привет").data(), 0, &sent),
        SMS_OK);
    EXPECT_EQ(readMessage(1).text, u"Привет") << "messages need no character set";
    ASSERT_EQ(SetCSCA(callersNumber(u"+4987654321").data()), SMS_OK);
    u16 address[21];
    ASSERT_EQ(readCSCA(address), SMS_OK);
    EXPECT_EQ(std::u16string(address, address + sms_wstrlen(address)), u"+4987654321");
}

TEST_F(Road, NumbersInUcs2AreSetAndTheSetIsGivenBack) {
    start({});
    ASSERT_EQ(setEcodingFormat(CHARSET_UCS2), SMS_OK);
    EXPECT_NE(ask("AT+CSCA?\r").find("\"002B00310035"), std::string::npos);
    ASSERT_EQ(SetCSCA(callersNumber(u"+4987654321").data()), SMS_OK);
    u32 charset = CHARSET_UNKNOWN;
    ASSERT_EQ(getEcodingFormat(&charset), SMS_OK);
    EXPECT_EQ(charset, CHARSET_UCS2);
    ASSERT_EQ(setEcodingFormat(CHARSET_IRA), SMS_OK);
    EXPECT_NE(ask("AT+CSCA?\r").find("\"+4987654321\""), std::string::npos);
}

// ---- a day ----

constexpr int MINUTES = 24 * 60;
constexpr int PLACES = 50;

// A text a minute comes in; a reader takes them by their announcements, in order.
class SimulatedDay : public Road {
protected:
    // The day on which summer time begins; half of it before midnight.
    void SetUp() override {
        ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        start({"--clock", "driven=2026-03-28 12:00:00", "--sm-size", std::to_string(PLACES)});
        ::unsetenv("TZ");
        control_ = std::make_unique<simulated::RawClient>(tty() + ".ctl");
        reports_ =
            std::make_unique<smspb::ipc::Subscription>(std::vector<u32>{REPORT_NOTIFICATION});
        ASSERT_EQ(InitSMS(), SMS_OK);
    }

    std::string happens(const std::string &event) const {
        EXPECT_TRUE(control_->send(event + "\n"));
        return control_->readLine();
    }

    // What the clock on the wall shows after so many minutes.
    static std::string wallAfter(int minutes) {
        constexpr int NOON = 12 * 60, CHANGE = 2 * 60;
        int minute = NOON + minutes;
        const int day = minute < MINUTES ? 28 : 29;
        if (day == 29) { minute -= MINUTES; }
        if (day == 29 && minute >= CHANGE) { minute += 60; }
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "2026-03-%02d %02d:%02d:00", day, minute / 60,
                      minute % 60);
        return text.data();
    }

    void letAMinutePass() {
        sent_++;
        ASSERT_TRUE(happens(R"({"event":"advance","by":"60"})").starts_with("{\"now\":"));
        ASSERT_EQ(happens(R"({"event":"text","from":"+4917012345","text":"minute )" +
                          std::to_string(sent_) + "\"}"),
                  "{\"parts\":1}\n");
    }

    // Reads and deletes all that has been sent by now, in the order in which it was announced.
    void readAll() {
        while (read_ < sent_) {
            const auto report = reports_->receive(5s);
            ASSERT_TRUE(report) << "nothing announces the text of minute " << read_ + 1;
            const auto octets = report->payload();
            std::string lines(reinterpret_cast<const char *>(octets.data()), octets.size());
            lines.resize(std::strlen(lines.c_str()));
            static const std::string ANNOUNCEMENT = "+CMTI: \"SM\",";
            for (std::size_t at = lines.find(ANNOUNCEMENT); at != lines.npos;
                 at = lines.find(ANNOUNCEMENT, at + 1)) {
                takeMessage(static_cast<u32>(std::atoi(lines.c_str() + at + ANNOUNCEMENT.size())));
            }
        }
    }

    void takeMessage(u32 index) {
        read_++;
        const Read message = readMessage(index);
        ASSERT_EQ(message.status, SMS_OK) << read_;
        const std::string expected = "minute " + std::to_string(read_);
        ASSERT_EQ(message.text, std::u16string(expected.begin(), expected.end()));
        ASSERT_EQ(message.date, wallAfter(read_));
        ASSERT_EQ(deleteByStoreId(index, SMS_STORAGE_SM), SMS_OK);
    }

    std::unique_ptr<simulated::RawClient> control_;
    std::unique_ptr<smspb::ipc::Subscription> reports_;
    int sent_ = 0, read_ = 0;
};

TEST_F(SimulatedDay, LosesNoTextAMinuteThoughForHoursNobodyReads) {
    constexpr int ROUND = 30, ASLEEP = 600, AWAKE = 800;
    const auto begun = steady_clock::now();
    while (sent_ < MINUTES) {
        ASSERT_NO_FATAL_FAILURE(letAMinutePass());
        const bool sleeps = sent_ > ASLEEP && sent_ < AWAKE;
        if (sent_ % ROUND == 0 && !sleeps) { ASSERT_NO_FATAL_FAILURE(readAll()); }
        if (sent_ == AWAKE - 1) {
            const std::string status = happens(R"({"event":"status"})");
            EXPECT_NE(status.find("\"SM\":{\"size\":50,\"used\":50}"), status.npos) << status;
            EXPECT_NE(status.find("\"pending\":" + std::to_string(AWAKE - 1 - ASLEEP - PLACES)),
                      status.npos)
                << status;
        }
    }
    EXPECT_EQ(read_, MINUTES);
    const std::string status = happens(R"({"event":"status"})");
    EXPECT_NE(status.find("\"SM\":{\"size\":50,\"used\":0}"), status.npos) << status;
    EXPECT_NE(status.find("\"pending\":0"), status.npos) << status;
    EXPECT_NE(status.find("\"now\":\"2026-03-29T13:00:00.000+02:00\""), status.npos) << status;
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - begun);
    EXPECT_LT(took, 60s);
    std::cout << MINUTES << " texts in " << took.count() << " ms\n";
}

} // namespace
