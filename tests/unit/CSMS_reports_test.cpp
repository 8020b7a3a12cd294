#include <cstdlib>
#include <cstring>
#include <memory>

#include "atlib/CSMS.h"
#include "support/failing_decode.h"
#include "support/library_test.h"
#include "support/random.h"

using namespace support;

namespace {

const u32 NOT_A_REPORT = 20, CUT_SHORT = 21, NO_FIELD = 22, NO_MEMORY = 23, BAD_TEXT = 24;
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

} // namespace

SMSPB_VECTORS(PopUpVector, "popup_reports.txt");
SMSPB_VECTORS(PageVector, "cell_broadcast.txt");

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

TEST_F(Page, NullIsNoLineForAnyReport) {
    u8 *octets = nullptr;
    u32 length = 0, kind = 0;
    SmsRecord *message = nullptr;
    SmsRecord record = {};
    EXPECT_EQ(decodeCBM(nullptr, &octets, &length), 22U);
    EXPECT_EQ(decodePopupSms(nullptr, &record), 22U);
    EXPECT_EQ(PopupSms(&message, nullptr, &kind), 20U);
    EXPECT_EQ(message, nullptr);
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
