#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "atlib/CSMS.h"
#include "support/failing_decode.h"
#include "support/library_test.h"
#include "support/random.h"

using namespace support;

namespace {

const u32 NOT_A_REPORT = 20, CUT_SHORT = 21, NO_FIELD = 22, NO_MEMORY = 23, BAD_TEXT = 24,
          REFUSED = 26;
const u32 MESSAGE = 1, STATUS = 3; // report kinds
const u32 UNTOUCHED = 0xA5A5A5A5;

// A message with the text "Hello", and a status report.
const std::string HELLO_PDU = "0791947101670000040D91945111325476F800103150709030008005C8329BFD06";
const std::string STATUS_PDU =
    "0791947101670000062A0D91945111325476F8315070903000803150709030048000";

using Texts = std::vector<std::string>;

struct Free {
    void operator()(u8 *octets) const { std::free(octets); }
    void operator()(SmsRecord *record) const {
        std::free(record->message.text);
        std::free(record);
    }
};
using Octets = std::unique_ptr<u8, Free>;
using Record = std::unique_ptr<SmsRecord, Free>;

SmsRecord *const NO_RECORD = reinterpret_cast<SmsRecord *>(16);
u8 *const NO_OCTETS = reinterpret_cast<u8 *>(16);

std::string line(const std::string &head, const std::string &body) {
    return head + "\r\n" + body + "\r\n";
}

// The lines that the functions of this file log; those of the PDU decoder are left out.
Texts logged() { return logMessagesIn("atlib/CSMS.cpp"); }

bool isCleared(const SmsRecord &record) {
    static const SmsRecord CLEARED = {};
    return std::memcmp(&record, &CLEARED, sizeof(record)) == 0;
}

bool isUntouched(const Guarded<SmsRecord> &record) {
    const u8 *octets = reinterpret_cast<const u8 *>(record.get());
    for (std::size_t i = 0; i < sizeof(SmsRecord); i++) {
        if (octets[i] != 0xA5) { return false; }
    }
    return true;
}

std::string narrow(const u16 *number) {
    const std::u16string text = textOf(number);
    return {text.begin(), text.end()};
}

// "0048 0065" -> units.
std::u16string unitsOf(const std::string &notation) {
    const std::vector<u8> pairs = octets(notation);
    std::u16string text;
    for (std::size_t i = 0; i + 1 < pairs.size(); i += 2) {
        text.push_back(static_cast<char16_t>(pairs[i] << 8 | pairs[i + 1]));
    }
    return text;
}

std::string timeOf(const SmsMessage &message) {
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", message.year, message.month,
                  message.day, message.hour, message.minute, message.second);
    return text;
}

void expectMessage(const Vector &v, const SmsMessage &message) {
    EXPECT_EQ(message.kind, v.number("type"));
    EXPECT_EQ(narrow(message.sc_number), v.text("centre"));
    EXPECT_EQ(narrow(message.peer_number), v.text("peer"));
    EXPECT_EQ(message.msg_class, v.number("class"));
    EXPECT_EQ(timeOf(message), v.text("time"));
    EXPECT_EQ(message.reference, v.number("reference", 0));
    EXPECT_EQ(message.total_segments, v.number("total", 0));
    EXPECT_EQ(message.segment_number, v.number("number", 0));
    if (!v.has("text")) {
        EXPECT_EQ(message.text, nullptr);
        return;
    }
    ASSERT_NE(message.text, nullptr);
    EXPECT_EQ(textOf(message.text), unitsOf(v.text("text")));
}

// What the two kinds of report log before their PDU is decoded.
Texts expectedLog(u32 kind, const std::string &size, const std::string &pdu) {
    if (kind == MESSAGE) {
        return {"deliver class 0 sms\n\n", "deliver sms pdu size=" + size + "\n\n",
                "deliver sms pdu data=" + pdu + "\n\n"};
    }
    return {"report status sms\n\n", "report sms pdu size=" + size + "\n\n",
            "report sms pdu data=" + pdu + "\n\n"};
}

// What stands behind the comma of "+CMT:" or the blank of "+CDS: ".
std::string sizeField(const std::string &head, u32 kind) {
    return head.substr(kind == MESSAGE ? head.find(',') + 1 : head.find(' ') + 1);
}

class PopUpVector : public LibraryVectorTest {};
class PopUp : public LibraryTest {
protected:
    void TearDown() override {
        record_.reset();
        LibraryTest::TearDown();
    }
    Record record_;
    u32 kind_ = UNTOUCHED;
    u32 popUp(const std::string &text) {
        SmsRecord *record = NO_RECORD;
        kind_ = UNTOUCHED;
        const u32 status = PopupSms(&record, guardedText(text).get(), &kind_);
        record_.reset(record == NO_RECORD ? nullptr : record);
        return status;
    }
};
class PageVector : public LibraryVectorTest {};
class Page : public LibraryTest {};
class ChunkList : public LibraryTest {};
class UssdRequest : public LibraryTest {};
class UssdAnswerVector : public LibraryVectorTest {};
class UssdAnswer : public LibraryTest {};

// The outputs of decodeCUSD.
struct Ussd {
    u32 status = 0;
    Octets data;
    u32 length = UNTOUCHED, scheme = UNTOUCHED, readable = 0;
};

Ussd decodeUssd(const std::string &text) {
    Ussd answer;
    u8 *data = NO_OCTETS;
    answer.status = decodeCUSD(guardedText(text).get(), &data, &answer.length, &answer.scheme,
                               &answer.readable);
    if (data != NO_OCTETS) { answer.data.reset(data); }
    return answer;
}

} // namespace

SMSPB_VECTORS(PopUpVector, "popup_reports.txt");
SMSPB_VECTORS(PageVector, "cell_broadcast.txt");
SMSPB_VECTORS(UssdAnswerVector, "ussd_answers.txt");

// PopupSms and decodePopupSms

TEST_P(PopUpVector, IsHandedOutAsANewRecord) {
    const auto text = guardedText(line(v().text("head"), v().text("pdu")));
    v().has("logged");
    SmsRecord *record = NO_RECORD;
    u32 kind = UNTOUCHED;
    EXPECT_EQ(PopupSms(&record, text.get(), &kind), 0U);
    ASSERT_NE(record, NO_RECORD);
    const Record owner(record);
    EXPECT_EQ(kind, v().number("kind"));
    EXPECT_EQ(allocationSizes().front(), sizeof(SmsRecord));
    EXPECT_EQ(record->reserved, 0U);
    EXPECT_EQ(record->index, 0U);
    EXPECT_EQ(record->status, 0U);
    expectMessage(v(), record->message);
}

TEST_P(PopUpVector, FillsAnExistingRecord) {
    const std::string head = v().text("head"), pdu = v().text("pdu");
    const u32 kind = v().number("kind");
    const Guarded<SmsRecord> record;
    EXPECT_EQ(decodePopupSms(guardedText(line(head, pdu)).get(), record.get()), 0U);
    EXPECT_EQ(record->reserved, 0U);
    EXPECT_EQ(record->index, 0U);
    EXPECT_EQ(record->status, 0U);
    expectMessage(v(), record->message);
    std::free(record->message.text);
    const std::string size = v().has("logged") ? v().text("logged") : sizeField(head, kind);
    EXPECT_EQ(logged(), expectedLog(kind, size, pdu));
    EXPECT_EQ(logged(), logMessagesOf("decodePopupSms"));
}

TEST_F(PopUp, AnotherLineGives20AndAllocatesNothing) {
    for (const char *text :
         {"", "\r\nRING\r\n", "+CMTI: \"SM\",3\r\n", "+CDSI: \"SM\",3\r\n", "+CMT 1,2\r\n",
          "+CDS:26\r\n00\r\n", "+cds: 26\r\n00\r\n", "+CBM: 88\r\n00\r\n"}) {
        EXPECT_EQ(popUp(text), NOT_A_REPORT) << text;
        EXPECT_EQ(record_, nullptr);
        EXPECT_EQ(kind_, UNTOUCHED);
    }
    EXPECT_TRUE(allocationSizes().empty());
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(PopUp, MessageWithoutACommaAndWithoutAStatusReportGives20) {
    EXPECT_EQ(popUp("+CMT: 25\r\n" + HELLO_PDU + "\r\n"), NOT_A_REPORT);
    EXPECT_EQ(popUp(",+CMT: 25\r\n" + HELLO_PDU + "\r\n"), NOT_A_REPORT) << "a comma before it";
    EXPECT_TRUE(allocationSizes().empty());
}

TEST_F(PopUp, MessageKeyWithoutItsBlankGives20ThoughItDecodes) {
    const std::string text = line("+CMT:,25", HELLO_PDU);
    EXPECT_EQ(popUp(text), NOT_A_REPORT);
    EXPECT_TRUE(allocationSizes().empty());
    const Guarded<SmsRecord> record;
    EXPECT_EQ(decodePopupSms(guardedText(text).get(), record.get()), 0U);
    EXPECT_EQ(textOf(record->message.text), u"Hello");
    std::free(record->message.text);
}

TEST_F(PopUp, StatusReportBehindABlanklessMessageKeyIsDecodedAsTheMessage) {
    EXPECT_EQ(popUp(line("+CMT:,25", HELLO_PDU) + line("+CDS: 26", STATUS_PDU)), 0U);
    EXPECT_EQ(kind_, STATUS);
    ASSERT_NE(record_, nullptr);
    EXPECT_EQ(record_->message.kind, 1U);
    EXPECT_EQ(textOf(record_->message.text), u"Hello");
}

TEST_F(PopUp, StatusReportBehindAMessageWithoutACommaIsCutShort) {
    EXPECT_EQ(popUp(line("+CMT: 25", HELLO_PDU) + line("+CDS: 26", STATUS_PDU)), CUT_SHORT);
    EXPECT_EQ(kind_, STATUS);
    ASSERT_NE(record_, nullptr);
    EXPECT_TRUE(isCleared(*record_));
    EXPECT_EQ(logged(), Texts{"deliver class 0 sms\n\n"});
}

TEST_F(PopUp, MessageBeforeAStatusReportWinsWhereverItsCommaIs) {
    EXPECT_EQ(popUp(line("+CDS: 26", STATUS_PDU) + line("+CMT: ,25", HELLO_PDU)), 0U);
    EXPECT_EQ(kind_, MESSAGE);
    EXPECT_EQ(textOf(record_->message.text), u"Hello");
}

TEST_F(PopUp, MessageCutAnywhereIsNoReportOrCutShort) {
    const std::string whole = line("+CMT: \"Bob\",25", HELLO_PDU);
    const std::size_t comma = whole.find(','), end = whole.find("\r\n");
    for (std::size_t kept = 0; kept < whole.size(); kept++) {
        const bool isReport = kept > comma;
        clearLog();
        EXPECT_EQ(popUp(whole.substr(0, kept)), isReport ? CUT_SHORT : NOT_A_REPORT) << kept;
        EXPECT_EQ(kind_, isReport ? MESSAGE : UNTOUCHED);
        EXPECT_EQ(record_ != nullptr, isReport);
        if (isReport) { EXPECT_TRUE(isCleared(*record_)); }
        Texts lines;
        if (isReport) { lines.push_back("deliver class 0 sms\n\n"); }
        if (kept >= end + 2) { lines.push_back("deliver sms pdu size=25\n\n"); }
        EXPECT_EQ(logMessages(), lines) << kept;
    }
    EXPECT_EQ(popUp(whole), 0U);
}

TEST_F(PopUp, StatusReportCutAnywhereIsNoReportOrCutShort) {
    const std::string whole = line("+CDS: 26", STATUS_PDU);
    const std::size_t key = std::strlen("+CDS: "), end = whole.find("\r\n");
    for (std::size_t kept = 0; kept < whole.size(); kept++) {
        const bool isReport = kept >= key;
        clearLog();
        EXPECT_EQ(popUp(whole.substr(0, kept)), isReport ? CUT_SHORT : NOT_A_REPORT) << kept;
        EXPECT_EQ(kind_, isReport ? STATUS : UNTOUCHED);
        EXPECT_EQ(record_ != nullptr, isReport);
        if (isReport) { EXPECT_TRUE(isCleared(*record_)); }
        Texts lines;
        if (isReport) { lines.push_back("report status sms\n\n"); }
        if (kept >= end + 2) { lines.push_back("report sms pdu size=26\n\n"); }
        EXPECT_EQ(logMessages(), lines) << kept;
    }
    EXPECT_EQ(popUp(whole), 0U);
}

TEST_F(PopUp, LineCutAnywhereClearsAnExistingRecordOrLeavesIt) {
    for (const std::string &whole : {line("+CMT: ,25", HELLO_PDU), line("+CDS: 26", STATUS_PDU)}) {
        const std::size_t key = std::strlen(whole[2] == 'M' ? "+CMT:" : "+CDS: ");
        for (std::size_t kept = 0; kept < whole.size(); kept++) {
            const Guarded<SmsRecord> record;
            const u32 status =
                decodePopupSms(guardedText(whole.substr(0, kept)).get(), record.get());
            EXPECT_EQ(status, kept < key ? NO_FIELD : CUT_SHORT) << kept;
            EXPECT_EQ(isUntouched(record), kept < key);
            EXPECT_EQ(isCleared(*record), kept >= key);
        }
    }
}

TEST_F(PopUp, LineWithOneDelimiterMissingIsCutShort) {
    const std::string pdu = HELLO_PDU;
    for (const std::string &text :
         {"+CMT: 25\r\n" + pdu + "\r\n,", "+CMT: ,25" + pdu + "\r\n", "+CMT: ,25\r\n" + pdu,
          "+CMT: ,25\n" + pdu + "\n", "+CMT: ,25\r" + pdu + "\r", "+CMT: ,25\n\r" + pdu + "\n\r",
          "+CDS: 26" + pdu + "\r\n", "+CDS: 26\r\n" + pdu, "+CDS: 26\n" + pdu + "\n"}) {
        EXPECT_EQ(popUp(text), CUT_SHORT) << text;
        ASSERT_NE(record_, nullptr);
        EXPECT_TRUE(isCleared(*record_));
    }
}

TEST_F(PopUp, UnknownLineGives22AndIsLoggedWhole) {
    const std::string text = "+CDS:26 %s\r\n" + std::string(500, 'x') + "\r\n";
    const Guarded<SmsRecord> record;
    EXPECT_EQ(decodePopupSms(guardedText(text).get(), record.get()), NO_FIELD);
    EXPECT_TRUE(isUntouched(record));
    EXPECT_EQ(logMessages(), Texts{"invalid pop up msg:" + text + "\n\n"});
    clearLog();
    EXPECT_EQ(decodePopupSms("", record.get()), NO_FIELD);
    EXPECT_EQ(logMessages(), Texts{"invalid pop up msg:\n\n"});
}

TEST_F(PopUp, LengthIsReadAsALooseNumberOfAtMostNineCharacters) {
    const struct {
        const char *field, *size;
    } cases[] = {
        {                        "",         "0"},
        {                     "abc",         "0"},
        {                     " 25",        "25"},
        {                     "-25",       "-25"},
        {                     "+25",        "25"},
        {                    "25 x",        "25"},
        {               "123456789", "123456789"},
        {              "1234567890", "123456789"},
        {              "         7",         "0"},
        {"999999999999999999999999", "999999999"},
    };
    for (const auto &c : cases) {
        for (const u32 kind : {MESSAGE, STATUS}) {
            clearLog();
            const std::string pdu = kind == MESSAGE ? HELLO_PDU : STATUS_PDU;
            const std::string head = kind == MESSAGE ? "+CMT: ," : "+CDS: ";
            EXPECT_EQ(popUp(line(head + c.field, pdu)), 0U);
            EXPECT_EQ(logged(), expectedLog(kind, c.size, pdu)) << c.field;
        }
    }
}

TEST_F(PopUp, PduIsCutTo399Characters) {
    for (const std::size_t length : {399, 400, 401, 511, 1000, 70000}) {
        clearLog();
        const std::string pdu = HELLO_PDU + std::string(length - HELLO_PDU.size(), '0');
        EXPECT_EQ(popUp(line("+CMT: ,25", pdu)), 0U);
        EXPECT_EQ(textOf(record_->message.text), u"Hello") << "octets behind it do not matter";
        EXPECT_EQ(logged(), expectedLog(MESSAGE, "25", pdu.substr(0, 399)));
        const std::string report = STATUS_PDU + std::string(length - STATUS_PDU.size(), '0');
        clearLog();
        EXPECT_EQ(popUp(line("+CDS: 26", report)), 0U);
        EXPECT_EQ(record_->message.kind, 3U);
        EXPECT_EQ(logged(), expectedLog(STATUS, "26", report.substr(0, 399)));
    }
}

TEST_F(PopUp, PduThatDoesNotDecodeGives0AndAClearedMessage) {
    for (const char *pdu : {"07", "07919471", "..", "0003", "00040D9194511132547 F800"}) {
        EXPECT_EQ(popUp(line("+CMT: ,25", pdu)), 0U) << pdu;
        ASSERT_NE(record_, nullptr);
        EXPECT_TRUE(isCleared(*record_)) << pdu;
        EXPECT_EQ(popUp(line("+CDS: 26", pdu)), 0U) << pdu;
        EXPECT_TRUE(isCleared(*record_)) << pdu;
        const Guarded<SmsRecord> record;
        EXPECT_EQ(decodePopupSms(guardedText(line("+CMT: ,25", pdu)).get(), record.get()), 0U);
        EXPECT_TRUE(isCleared(*record));
    }
}

TEST_F(PopUp, DecoderThatRefusedAMessageWouldGive24WithoutALine) {
    failDecode(7);
    EXPECT_EQ(popUp(line("+CMT: ,25", HELLO_PDU)), BAD_TEXT);
    ASSERT_NE(record_, nullptr) << "the record is the caller's also then";
    EXPECT_TRUE(isCleared(*record_));
    EXPECT_EQ(logged(), expectedLog(MESSAGE, "25", HELLO_PDU));
}

TEST_F(PopUp, DecoderThatRefusedAStatusReportWouldGive24AndLogItsResult) {
    failDecode(7);
    EXPECT_EQ(popUp(line("+CDS: 26", STATUS_PDU)), BAD_TEXT);
    ASSERT_NE(record_, nullptr) << "the record is the caller's also then";
    Texts lines = expectedLog(STATUS, "26", STATUS_PDU);
    lines.push_back("decode pdu error:7\n\n");
    EXPECT_EQ(logged(), lines);
}

TEST_F(PopUp, WithoutMemoryForTheRecordGives23) {
    for (const std::string &text : {line("+CMT: ,25", HELLO_PDU), line("+CDS: 26", STATUS_PDU)}) {
        clearLog();
        failAllocation(1);
        SmsRecord *record = nullptr;
        u32 kind = UNTOUCHED;
        EXPECT_EQ(PopupSms(&record, guardedText(text).get(), &kind), NO_MEMORY);
        EXPECT_EQ(record, nullptr);
        EXPECT_EQ(logMessages(), Texts{"malloc sms pdu failure\n\n"});
        EXPECT_EQ(logMessagesOf("PopupSms"), logMessages());
    }
}

TEST_F(PopUp, WithoutMemoryForTheTextGives0AndARecordWithoutOne) {
    failAllocation(2);
    EXPECT_EQ(popUp(line("+CMT: ,25", HELLO_PDU)), 0U);
    EXPECT_EQ(narrow(record_->message.peer_number), "+4915112345678");
    EXPECT_EQ(record_->message.text, nullptr);
}

TEST_F(PopUp, LinesOfRandomPiecesNeverLeaveTheirText) {
    const Texts pieces = {"+CMT:", "+CMT: ", "+CDS: ", ",",  "\r\n", "\r",   "\n",      "\"",
                          "25",    "07",     "0003",   "FF", " ",    "+CDS", HELLO_PDU, STATUS_PDU};
    Random random(54);
    for (u32 round = 0; round < 3000; round++) {
        std::string text;
        for (u32 i = random.below(12); i > 0; i--) {
            text += pieces[random.below(static_cast<u32>(pieces.size()))];
        }
        const std::size_t key = text.find("+CMT: ");
        const bool message =
            key != std::string::npos && text.find(',', key + 6) != std::string::npos;
        const bool report = text.find("+CDS: ") != std::string::npos;
        const u32 status = popUp(text);
        EXPECT_EQ(status == NOT_A_REPORT, !message && !report) << text;
        EXPECT_EQ(kind_, message ? MESSAGE : report ? STATUS : UNTOUCHED) << text;
        EXPECT_TRUE(status == NOT_A_REPORT || status == 0 || status == CUT_SHORT) << status;
    }
}

// getCBMindex and decodeCBM

TEST_F(Page, IndexIs0ForALineWithTheKeyAndItsBlank) {
    EXPECT_EQ(getCBMindex("+CBM: 88\r\n"), 0);
    EXPECT_EQ(getCBMindex("\r\n+CBM: 88\r\n"), 0);
    EXPECT_EQ(getCBMindex("+CBM: "), 0);
    EXPECT_EQ(getCBMindex("+CBM:88"), -1);
    EXPECT_EQ(getCBMindex("+CBM:"), -1);
    EXPECT_EQ(getCBMindex("+CBMI: \"BM\",1"), -1);
    EXPECT_EQ(getCBMindex("+cbm: 88"), -1);
    EXPECT_EQ(getCBMindex(""), -1);
}

TEST_P(PageVector, IsHandedOutAsItsOctets) {
    const std::string page = v().text("page");
    const auto text = guardedText(line(v().text("head"), page));
    const u32 status = v().number("status", 0);
    u8 *block = NO_OCTETS;
    u32 length = UNTOUCHED;
    EXPECT_EQ(decodeCBM(text.get(), &block, &length), status);
    Texts lines;
    if (status != NO_FIELD) {
        EXPECT_EQ(length, static_cast<u32>(v().integer("length")));
        lines = {"cbm pdu size:" + std::to_string(v().integer("length")) + "\n\n",
                 "cbm pdu:" + page + " strlen(pdu):" + std::to_string(page.size()) + "\n\n"};
    }
    if (status == BAD_TEXT) { lines.push_back("convert Hex stream to stream of octets failure\n"); }
    EXPECT_EQ(logMessages(), lines);
    EXPECT_EQ(logMessagesOf("decodeCBM"), lines);
    if (status != 0) {
        EXPECT_EQ(block, NO_OCTETS);
        EXPECT_TRUE(allocationSizes().empty());
        return;
    }
    const Octets owner(block);
    const std::vector<u8> expected = v().octets("octets");
    EXPECT_EQ(std::vector<u8>(block, block + expected.size()), expected);
    EXPECT_EQ(block[expected.size()], 0) << "a zero behind the page";
    EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{expected.size() + 1});
}

TEST_F(Page, LineCutAnywhereGives22) {
    const std::string whole = line("+CBM: 4", "0A1BC2FF");
    const std::size_t end = whole.find("\r\n");
    for (std::size_t kept = 0; kept < whole.size(); kept++) {
        clearLog();
        u8 *block = NO_OCTETS;
        u32 length = UNTOUCHED;
        EXPECT_EQ(decodeCBM(guardedText(whole.substr(0, kept)).get(), &block, &length), NO_FIELD);
        EXPECT_EQ(block, NO_OCTETS);
        const bool sized = kept >= end + 2;
        EXPECT_EQ(length, sized ? 4U : UNTOUCHED) << kept;
        EXPECT_EQ(logMessages(), sized ? Texts{"cbm pdu size:4\n\n"} : Texts{});
    }
    EXPECT_TRUE(allocationSizes().empty());
}

TEST_F(Page, LineWithOneDelimiterMissingGives22) {
    for (const char *text : {"+CBM 4\r\n0A1B\r\n", "+CBM: 40A1B\r\n", "+CBM: 4\r\n0A1B",
                             "+CBM: 4\n0A1B\n", "+CBM: 4\r0A1B\r", "\r\n0A1B\r\n+CBM: 4"}) {
        u8 *block = NO_OCTETS;
        u32 length = UNTOUCHED;
        EXPECT_EQ(decodeCBM(guardedText(text).get(), &block, &length), NO_FIELD) << text;
    }
}

TEST_F(Page, IsCutTo399Characters) {
    for (const std::size_t length : {398, 399, 400, 401, 1000, 70000}) {
        clearLog();
        resetHeap();
        const std::string page(length, 'A');
        u8 *block = nullptr;
        u32 announced = 0;
        EXPECT_EQ(decodeCBM(guardedText(line("+CBM: 88", page)).get(), &block, &announced), 0U);
        const Octets owner(block);
        EXPECT_EQ(std::vector<u8>(block, block + 199), std::vector<u8>(199, 0xAA));
        EXPECT_EQ(block[199], 0);
        EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{200});
        const std::string kept = page.substr(0, 399);
        EXPECT_EQ(logMessages()[1],
                  "cbm pdu:" + kept + " strlen(pdu):" + std::to_string(kept.size()) + "\n\n");
    }
}

TEST_F(Page, EveryOctetComesBack) {
    for (u32 value = 0; value < 256; value++) {
        const std::string page = hex({static_cast<u8>(value), 0x5A});
        u8 *block = nullptr;
        u32 length = 0;
        ASSERT_EQ(decodeCBM(line("+CBM: 2", page).c_str(), &block, &length), 0U) << page;
        const Octets owner(block);
        EXPECT_EQ(block[0], value);
        EXPECT_EQ(block[1], 0x5A);
    }
}

TEST_F(Page, WithoutMemoryGives23) {
    failAllocation(1);
    u8 *block = nullptr;
    u32 length = 0;
    EXPECT_EQ(decodeCBM("+CBM: 2\r\n0A1B\r\n", &block, &length), NO_MEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(length, 2U) << "read before";
    EXPECT_EQ(logMessages(), (Texts{"cbm pdu size:2\n\n", "cbm pdu:0A1B strlen(pdu):4\n\n"}));
}

// The list of received chunks

TEST_F(ChunkList, FirstChunkBecomesTheHead) {
    RxDataNode *head = nullptr;
    RxDataNode *node = AddRxDataNode(&head, "abc", 3);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(head, node);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->length, 3U);
    EXPECT_STREQ(node->data, "abc");
    EXPECT_EQ(allocationSizes(), (std::vector<std::size_t>{sizeof(RxDataNode), 4}));
    DelRxDataNodeLink(&head);
    EXPECT_EQ(head, nullptr);
}

TEST_F(ChunkList, ChunksAreAppendedAndLinkedBothWays) {
    RxDataNode *head = nullptr;
    RxDataNode *before = nullptr;
    RxDataNode *first = nullptr;
    for (u32 i = 0; i < 100; i++) {
        const std::string data = "chunk " + std::to_string(i);
        RxDataNode *node = AddRxDataNode(&head, data.data(), static_cast<u32>(data.size()));
        ASSERT_NE(node, nullptr);
        if (first == nullptr) { first = node; }
        EXPECT_EQ(head, first);
        EXPECT_EQ(node->prev, before);
        EXPECT_EQ(node->next, nullptr);
        if (before != nullptr) { EXPECT_EQ(before->next, node); }
        EXPECT_EQ(std::string(node->data), data);
        before = node;
    }
    DelRxDataNodeLink(&head);
    EXPECT_EQ(liveBlocks(), 0U);
}

TEST_F(ChunkList, DataIsACopyWithAZeroBehindIt) {
    const auto data = againstGuardPage({1, 0, 2, 0xFF});
    RxDataNode *head = nullptr;
    RxDataNode *node = AddRxDataNode(&head, data.data(), 4);
    data[0] = 9;
    EXPECT_EQ(std::vector<u8>(node->data, node->data + 5), (std::vector<u8>{1, 0, 2, 0xFF, 0}));
    DelRxDataNodeLink(&head);
}

TEST_F(ChunkList, EmptyChunkIsAChunk) {
    RxDataNode *head = nullptr;
    for (const void *data : {static_cast<const void *>(""), static_cast<const void *>(nullptr)}) {
        RxDataNode *node = AddRxDataNode(&head, data, 0);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->length, 0U);
        EXPECT_EQ(node->data[0], 0);
    }
    EXPECT_EQ(head->next->prev, head);
    DelRxDataNodeLink(&head);
}

TEST_F(ChunkList, WithoutMemoryGivesNullAndLeavesTheList) {
    for (const unsigned nth : {1U, 2U}) {
        RxDataNode *head = nullptr;
        failAllocation(nth);
        EXPECT_EQ(AddRxDataNode(&head, "abc", 3), nullptr);
        EXPECT_EQ(head, nullptr);
        EXPECT_EQ(liveBlocks(), 0U);
        RxDataNode *only = AddRxDataNode(&head, "abc", 3);
        failAllocation(nth);
        EXPECT_EQ(AddRxDataNode(&head, "def", 3), nullptr);
        EXPECT_EQ(head, only);
        EXPECT_EQ(only->next, nullptr);
        EXPECT_EQ(only->prev, nullptr);
        EXPECT_EQ(liveBlocks(), 2U);
        DelRxDataNodeLink(&head);
    }
}

TEST_F(ChunkList, LengthWithoutRoomForTheZeroGivesNull) {
    RxDataNode *head = nullptr;
    EXPECT_EQ(AddRxDataNode(&head, "abc", 0xFFFFFFFF), nullptr);
    EXPECT_EQ(head, nullptr);
}

TEST_F(ChunkList, EmptyListIsFreedToo) {
    RxDataNode *head = nullptr;
    DelRxDataNodeLink(&head);
    EXPECT_EQ(head, nullptr);
}

TEST_F(ChunkList, RestOfAListIsFreedFromItsHead) {
    RxDataNode *head = nullptr;
    AddRxDataNode(&head, "1", 1);
    AddRxDataNode(&head, "2", 1);
    RxDataNode *rest = AddRxDataNode(&head, "3", 1);
    rest->prev->next = nullptr;
    DelRxDataNodeLink(&rest);
    EXPECT_EQ(rest, nullptr);
    EXPECT_EQ(liveBlocks(), 4U) << "what stands before the head given is left";
    DelRxDataNodeLink(&head);
}

TEST_F(ChunkList, MiddleNodeIsUnlinkedAndItsSuccessorKeepsThePointerToIt) {
    RxDataNode *head = nullptr;
    RxDataNode *first = AddRxDataNode(&head, "1", 1);
    RxDataNode *second = AddRxDataNode(&head, "2", 1);
    RxDataNode *third = AddRxDataNode(&head, "3", 1);
    const auto freed = reinterpret_cast<std::uintptr_t>(second);
    DelRxDataNode(&second);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(head, first);
    EXPECT_EQ(first->next, third);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(third->prev), freed);
    EXPECT_EQ(liveBlocks(), 4U);
    DelRxDataNodeLink(&head);
}

TEST_F(ChunkList, LastNodeEndsTheListBeforeIt) {
    RxDataNode *head = nullptr;
    RxDataNode *first = AddRxDataNode(&head, "1", 1);
    RxDataNode *second = AddRxDataNode(&head, "2", 1);
    DelRxDataNode(&second);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(first->next, nullptr);
    DelRxDataNodeLink(&head);
}

TEST_F(ChunkList, HeadIsFreedWithoutTouchingTheRest) {
    RxDataNode *head = nullptr;
    RxDataNode *first = AddRxDataNode(&head, "1", 1);
    RxDataNode *second = AddRxDataNode(&head, "2", 1);
    const auto freed = reinterpret_cast<std::uintptr_t>(first);
    head = second; // who deletes the head moves it first
    DelRxDataNode(&first);
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(head, second);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(second->prev), freed);
    EXPECT_STREQ(second->data, "2");
    EXPECT_EQ(liveBlocks(), 2U);
    DelRxDataNodeLink(&head);
}

TEST_F(ChunkList, OnlyNodeGivenByTheHeadItselfEmptiesTheList) {
    RxDataNode *head = nullptr;
    AddRxDataNode(&head, "1", 1);
    DelRxDataNode(&head);
    EXPECT_EQ(head, nullptr);
    DelRxDataNode(&head);
    EXPECT_EQ(head, nullptr) << "nothing to delete";
}

// sendUSSD

namespace {
const std::string SET_IRA = "AT+CSCS=\"IRA\"\r";
const std::string OK = "\r\nOK\r\n";
std::string ussdCommand(const std::string &text) { return "AT+CUSD =1, \"" + text + "\",15\r"; }
} // namespace

TEST_F(UssdRequest, SetsIraAndSendsTheCodeWithItsOddBlanks) {
    ScriptedModem modem({
        {                     SET_IRA, OK},
        {"AT+CUSD =1, \"*100#\",15\r", OK}
    });
    EXPECT_EQ(sendUSSD("*100#"), 0U);
    ASSERT_EQ(modem.requests().size(), 2U) << "the character set is not restored";
    for (const Request &request : modem.requests()) {
        EXPECT_EQ(request.waitMs, 3000U);
        EXPECT_EQ(request.markers, fourMarkers());
        EXPECT_EQ(request.ipcTimeout, 20000U);
    }
    EXPECT_EQ(logged(), Texts{});
}

TEST_F(UssdRequest, CodeIsCutTo29Characters) {
    const std::string longest = "*123456789012345678901234567#";
    ASSERT_EQ(longest.size(), 29U);
    for (const std::string &text : {std::string(), std::string("1"), longest, longest + "0",
                                    longest + std::string(5000, '0')}) {
        ScriptedModem modem({
            {                  SET_IRA,   OK},
            { ussdCommand(text.substr(0, 29)),                       OK}
        });
        EXPECT_EQ(sendUSSD(guardedText(text).get()), 0U);
    }
}

TEST_F(UssdRequest, CodeWithPercentSignsIsSentAsItIs) {
    ScriptedModem modem({
        {            SET_IRA, OK},
        {ussdCommand("%s%n"), OK}
    });
    EXPECT_EQ(sendUSSD("%s%n"), 0U);
}

TEST_F(UssdRequest, CharacterSetThatIsNotAcceptedGives26AndSendsNothing) {
    const Reply replies[] = {NO_REPLY,
                             refused(1),
                             "\r\nERROR\r\n",
                             "\r\n+CME ERROR: 3\r\n",
                             "\r\n+CMS ERROR: 302\r\n",
                             "\r\n+CMS ERROR: 302"};
    for (const Reply &reply : replies) {
        clearLog();
        ScriptedModem modem({
            {SET_IRA, reply}
        });
        EXPECT_EQ(sendUSSD("*100#"), REFUSED);
        EXPECT_EQ(logged(), Texts{"set ussd encode error\n\n"});
        EXPECT_EQ(logMessagesOf("sendUSSD"), logged());
    }
}

TEST_F(UssdRequest, WithoutAReplyGives20AndLogsNoErrorLine) {
    for (const Reply &reply : {NO_REPLY, refused(1)}) {
        ScriptedModem modem({
            {             SET_IRA,    OK},
            {ussdCommand("*100#"), reply}
        });
        EXPECT_EQ(sendUSSD("*100#"), NOT_A_REPORT);
        EXPECT_EQ(logged(), Texts{});
    }
}

TEST_F(UssdRequest, ReplyIsJudgedAsEveryReply) {
    const struct {
        const char *reply;
        u32 status;
    } cases[] = {
        {             "\r\nOK\r\n",        0},
        {       "\r\n+CUSD: 2\r\n",        0},
        {                       "",        0},
        {    "\r\nERROR\r\nOK\r\n",        0},
        {          "\r\nERROR\r\n",  REFUSED},
        {"\r\n+CME ERROR: 100\r\n",  REFUSED},
        {"\r\n+CMS ERROR: 500\r\n",  REFUSED},
        {    "\r\n+CMS ERROR: 500", NO_FIELD},
    };
    for (const auto &c : cases) {
        clearLog();
        ScriptedModem modem({
            {             SET_IRA,      OK},
            {ussdCommand("*100#"), c.reply}
        });
        EXPECT_EQ(sendUSSD("*100#"), c.status) << c.reply;
        EXPECT_EQ(logged(), c.status == 0 ? Texts{} : Texts{"send ussd error\n\n"});
        EXPECT_EQ(logMessagesOf("sendUSSD"), logged());
    }
}

TEST_F(UssdRequest, WithoutMemoryForAReplyThereIsNone) {
    {
        ScriptedModem modem({
            {SET_IRA, OK}
        });
        failAllocation(1);
        EXPECT_EQ(sendUSSD("*100#"), REFUSED);
    }
    ScriptedModem modem({
        {             SET_IRA, OK},
        {ussdCommand("*100#"), OK}
    });
    failAllocation(2);
    EXPECT_EQ(sendUSSD("*100#"), NOT_A_REPORT);
}

// getCUSDindex, str_all_capital and decodeCUSD

TEST_F(UssdAnswer, IndexIs0ForALineWithTheKeyAndItsBlank) {
    EXPECT_EQ(getCUSDindex("+CUSD: 2\r\n"), 0);
    EXPECT_EQ(getCUSDindex("\r\n+CUSD: 0,\"x\",15\r\n"), 0);
    EXPECT_EQ(getCUSDindex("+CUSD: "), 0);
    EXPECT_EQ(getCUSDindex("+CUSD:2"), -1);
    EXPECT_EQ(getCUSDindex("+CUSD:"), -1);
    EXPECT_EQ(getCUSDindex("+cusd: 2"), -1);
    EXPECT_EQ(getCUSDindex(""), -1);
}

TEST_F(UssdAnswer, HexadecimalTextIsDigitsAndCapitalsUpToF) {
    EXPECT_EQ(str_all_capital("004F004B"), 0);
    EXPECT_EQ(str_all_capital("0123456789ABCDEF"), 0);
    EXPECT_EQ(str_all_capital(""), 0);
    EXPECT_EQ(str_all_capital("004F 04B"), -1);
    EXPECT_EQ(str_all_capital("004f004B"), -1);
    EXPECT_EQ(str_all_capital("HELLO"), -1) << "capitals, but not hexadecimal";
    EXPECT_EQ(str_all_capital(nullptr), -1);
    const std::string digits = "0123456789ABCDEF";
    for (int c = 1; c < 256; c++) {
        const char one = static_cast<char>(c);
        const i32 expected = digits.find(one) != std::string::npos ? 0 : -1;
        EXPECT_EQ(str_all_capital(guardedText(std::string(1, one)).get()), expected) << c;
        EXPECT_EQ(str_all_capital(guardedText("7" + std::string(1, one)).get()), expected) << c;
        EXPECT_EQ(str_all_capital(guardedText(std::string(1, one) + "7").get()), expected) << c;
    }
}

TEST_P(UssdAnswerVector, IsHandedOutAsTextOrOctets) {
    const std::string text = v().text("line");
    const u32 status = v().number("status", 0);
    for (const char *end : {"", "\r\n", "\r"}) {
        clearLog();
        resetHeap();
        const Ussd answer = decodeUssd(text + end);
        EXPECT_EQ(answer.status, status);
        Texts lines;
        if (v().has("answer")) {
            const std::string shown = v().text("answer");
            lines.push_back("ussd pdu:" + shown + " strlen(pdu):" + std::to_string(shown.size()) +
                            "\n\n");
        }
        if (status == BAD_TEXT) {
            lines.push_back("convert Hex stream to stream of octets failure\n");
        }
        if (status != 0) {
            EXPECT_EQ(logMessages(), lines);
            EXPECT_EQ(answer.data, nullptr);
            EXPECT_EQ(answer.readable, 0U);
            EXPECT_TRUE(allocationSizes().empty());
            continue;
        }
        const std::vector<u8> expected = v().octets("octets");
        ASSERT_EQ(answer.length, expected.size());
        const u8 *data = answer.data.get();
        EXPECT_EQ(std::vector<u8>(data, data + expected.size()), expected);
        EXPECT_EQ(data[expected.size()], 0) << "a zero behind the answer";
        EXPECT_EQ(answer.scheme, v().number("scheme"));
        EXPECT_EQ(answer.readable, v().number("readable"));
        EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{expected.size() + 1});
        lines.push_back("ussd pdu type:" + v().text("scheme") +
                        " pdu size:" + std::to_string(expected.size()) + "\n\n");
        EXPECT_EQ(logMessages(), lines);
        EXPECT_EQ(logMessagesOf("decodeCUSD"), lines);
    }
}

TEST_F(UssdAnswer, TextFlagIsSetTo1AndNeverCleared) {
    u8 *data = nullptr;
    u32 length = 0, scheme = 0, readable = 7;
    EXPECT_EQ(decodeCUSD("+CUSD: 0,\"4F\",72", &data, &length, &scheme, &readable), 0U);
    const Octets octets(data);
    EXPECT_EQ(readable, 7U);
    EXPECT_EQ(decodeCUSD("+CUSD: 0,\"Menu\",15", &data, &length, &scheme, &readable), 0U);
    const Octets text(data);
    EXPECT_EQ(readable, 1U);
    EXPECT_EQ(decodeCUSD("+CUSD: 0", &data, &length, &scheme, &readable), NO_FIELD);
    EXPECT_EQ(readable, 1U);
}

TEST_F(UssdAnswer, LineCutAnywhereGives22UpToTheLastComma) {
    const std::string whole = "+CUSD: 1,\"Menu\",15\r\n";
    const std::size_t answered = whole.find("\"Menu\"") + 6, comma = whole.rfind(',');
    for (std::size_t kept = 0; kept <= comma; kept++) {
        clearLog();
        const Ussd answer = decodeUssd(whole.substr(0, kept));
        EXPECT_EQ(answer.status, NO_FIELD) << kept;
        EXPECT_EQ(answer.data, nullptr);
        EXPECT_EQ(answer.length, UNTOUCHED);
        EXPECT_EQ(answer.scheme, UNTOUCHED);
        EXPECT_EQ(answer.readable, 0U);
        EXPECT_EQ(logMessages(),
                  kept >= answered ? Texts{"ussd pdu:Menu strlen(pdu):4\n\n"} : Texts{});
    }
    // Behind the comma: no scheme is 0 and "1" is 1, under which "Menu" counts as hexadecimal, each
    // pair by its low octet: 22 * 16 + 14 = 0x16E, 23 * 16 + 30 = 0x18E.
    for (const std::size_t kept : {comma + 1, comma + 2}) {
        const Ussd answer = decodeUssd(whole.substr(0, kept));
        EXPECT_EQ(answer.status, 0U);
        ASSERT_EQ(answer.length, 2U);
        EXPECT_EQ(answer.data.get()[0], 0x6E);
        EXPECT_EQ(answer.data.get()[1], 0x8E);
        EXPECT_EQ(answer.scheme, kept - comma - 1);
    }
    EXPECT_EQ(decodeUssd(whole.substr(0, comma + 3)).readable, 1U);
}

TEST_F(UssdAnswer, AnswerIsCutTo399Characters) {
    for (const std::size_t length : {398, 399, 400, 401, 1000, 70000}) {
        const std::size_t kept = length < 399 ? length : 399;
        const Ussd text = decodeUssd("+CUSD: 0,\"" + std::string(length, 'z') + "\",15\r\n");
        EXPECT_EQ(text.status, 0U);
        ASSERT_EQ(text.length, kept);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(text.data.get())),
                  std::string(kept, 'z'));
        clearLog();
        const Ussd stream = decodeUssd("+CUSD: 0,\"" + std::string(length, 'B') + "\",72\r\n");
        EXPECT_EQ(stream.status, 0U);
        ASSERT_EQ(stream.length, 199U);
        const u8 *data = stream.data.get();
        EXPECT_EQ(std::vector<u8>(data, data + 199), std::vector<u8>(199, 0xBB));
        EXPECT_EQ(data[199], 0);
        EXPECT_EQ(logMessages(), (Texts{"ussd pdu:" + std::string(kept, 'B') +
                                            " strlen(pdu):" + std::to_string(kept) + "\n\n",
                                        "ussd pdu type:72 pdu size:199\n\n"}));
    }
}

TEST_F(UssdAnswer, OnlyNineCharactersOfTheRestAreRead) {
    EXPECT_EQ(decodeUssd("+CUSD: 0,\"4F\",        15").scheme, 1U) << "eight blanks and a digit";
    EXPECT_EQ(decodeUssd("+CUSD: 0,\"4F\",         15").scheme, 0U) << "nine blanks";
    EXPECT_EQ(decodeUssd("+CUSD: 0,\"4F\",15" + std::string(70000, '0')).scheme, 150000000U);
    EXPECT_EQ(decodeUssd("+CUSD: 0,\"4F\",-1").scheme, 0xFFFFFFFFU);
}

TEST_F(UssdAnswer, AnswerOfSeveralLinesIsOneText) {
    const Ussd answer = decodeUssd("\r\n+CUSD: 1,\"1 Balance\r\n2 Top up\",15\r\n");
    EXPECT_EQ(answer.status, 0U);
    EXPECT_STREQ(reinterpret_cast<const char *>(answer.data.get()), "1 Balance\r\n2 Top up");
    EXPECT_EQ(answer.length, 19U);
}

TEST_F(UssdAnswer, WithoutMemoryGives23AndNoBlock) {
    for (const char *text : {"+CUSD: 0,\"4F4B\",72", "+CUSD: 0,\"Menu\",15", "+CUSD: 0,\"\",15"}) {
        failAllocation(1);
        const Ussd answer = decodeUssd(text);
        EXPECT_EQ(answer.status, NO_MEMORY);
        EXPECT_EQ(answer.data, nullptr);
        EXPECT_EQ(answer.length, UNTOUCHED);
        EXPECT_EQ(answer.scheme, UNTOUCHED);
    }
}

// The same line, read slowly and obviously.
namespace {

struct ExpectedUssd {
    u32 status = 0;
    std::vector<u8> octets{};
    u32 scheme = 0;
    bool readable = false;
};

// A digit of the lenient hexadecimal reader.
std::optional<u32> lenientDigit(char c) {
    const u32 code = static_cast<u8>(c);
    if (code >= '0' && code <= '9') { return code - 0x30; }
    if (code >= 'a' && code <= 'z') { return code - 0x57; }
    if (code >= 0x41) { return code - 0x37; }
    return std::nullopt;
}

std::optional<std::vector<u8>> lenientOctets(const std::string &text) {
    std::vector<u8> octets;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const auto high = lenientDigit(text[i]), low = lenientDigit(text[i + 1]);
        if (!high || !low) { return std::nullopt; }
        octets.push_back(static_cast<u8>((*high * 16 + *low) & 0xFF));
    }
    return octets;
}

ExpectedUssd readSlowly(const std::string &text) {
    const std::size_t none = std::string::npos;
    const std::size_t key = text.find("+CUSD:");
    if (key == none) { return {NO_FIELD}; }
    const std::size_t comma = text.find(',', key + 6);
    if (comma == none) { return {NO_FIELD}; }
    const std::size_t open = text.find('"', comma + 1);
    if (open == none) { return {NO_FIELD}; }
    const std::size_t close = text.find('"', open + 1);
    if (close == none) { return {NO_FIELD}; }
    const std::string answer = text.substr(open + 1, close - open - 1).substr(0, 399);
    const std::size_t last = text.find(',', close + 1);
    if (last == none) { return {NO_FIELD}; }
    const auto scheme = static_cast<u32>(std::atoi(text.substr(last + 1, 9).c_str()));
    if (scheme == 15 && answer.find_first_not_of("0123456789ABCDEF") != none) {
        return {
            0, {answer.begin(), answer.end()},
             scheme, true
        };
    }
    const auto octets = lenientOctets(answer);
    if (!octets) { return {BAD_TEXT}; }
    return {0, *octets, scheme, false};
}

} // namespace

TEST_F(UssdAnswer, RandomLinesReadAsTheyDoSlowly) {
    const Texts pieces = {"+CUSD:", "+CUSD: ", "0",   "1",  ",",    ",",    "\"",
                          "\"",     "15",      ",15", "72", "4F4B", "CAFE", "Menu",
                          " ",      "\r\n",    "-",   "fe", "z",    "\x80"};
    Random random(55);
    std::map<u32, u32> seen;
    for (u32 round = 0; round < 4000; round++) {
        // Half of them begin as an answer does, so that they come far.
        std::string text = round % 2 == 0 ? "+CUSD: 0,\"" : "";
        for (u32 i = random.below(10); i > 0; i--) {
            text += pieces[random.below(static_cast<u32>(pieces.size()))];
        }
        const ExpectedUssd expected = readSlowly(text);
        const Ussd answer = decodeUssd(text);
        ASSERT_EQ(answer.status, expected.status) << text;
        seen[answer.status]++;
        EXPECT_EQ(answer.readable, expected.readable ? 1U : 0U) << text;
        if (answer.status != 0) { continue; }
        ASSERT_EQ(answer.length, expected.octets.size()) << text;
        const u8 *data = answer.data.get();
        EXPECT_EQ(std::vector<u8>(data, data + answer.length), expected.octets) << text;
        EXPECT_EQ(answer.scheme, expected.scheme) << text;
    }
    EXPECT_GT(seen[0], 100U);
    EXPECT_GT(seen[NO_FIELD], 100U);
    EXPECT_GT(seen[BAD_TEXT], 20U);
}
