// Composing a text into SUBMITs and decoding received PDU texts.
#include "atlib/SmsUtils.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>

#include "support/library_test.h"
#include "support/random.h"
#include "support/reference_pdu.h"
#include "support/reference_text.h"

using namespace support;

namespace {

struct Free {
    void operator()(void *block) const { free(block); }
};
template <typename T> using Block = std::unique_ptr<T, Free>;

std::u16string wide(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

template <std::size_t N> void setNumber(u16 (&field)[N], std::string_view number) {
    ASSERT_LT(number.size(), N);
    for (std::size_t i = 0; i < number.size(); i++) { field[i] = static_cast<u16>(number[i]); }
}

struct Composed {
    i32 result = 0;
    u8 count = 0;
    Block<SmsSegment> segments;
};

Composed compose(SmsMessage request, const std::u16string &text) {
    std::vector<u16> source = units(text);
    request.text = source.data();
    Composed composed;
    SmsSegment *segments = nullptr;
    composed.count = 0x77;
    composed.result = sms_encode_pdu(&request, &segments, &composed.count);
    composed.segments.reset(segments);
    return composed;
}

SmsMessage requestTo(std::string_view number) {
    SmsMessage request = {};
    setNumber(request.peer_number, number);
    return request;
}

Composed composeText(const std::u16string &text) { return compose(requestTo("+4912345"), text); }

// The reference of a concatenated segment's header.
unsigned referenceOf(const SmsSegment &segment) {
    // 00 41 FF 07 91 94 21 43 F5 00 dcs udl 05 00 03 ref
    unsigned reference = 0;
    EXPECT_EQ(std::sscanf(segment.pdu + 30, "%2x", &reference), 1);
    return reference;
}

class Composition : public LibraryVectorTest {};
class Segmentation : public LibraryTest {};
class Concatenation : public LibraryTest {};
class CompositionFailure : public LibraryTest {};
class Reception : public LibraryVectorTest {};
class ReceptionFailure : public LibraryTest {};
class BodyText : public LibraryTest {};

// ---- one segment

void setTime(SmsMessage *request, const std::string &text) {
    std::istringstream in(text);
    for (u16 *field : {&request->year, &request->month, &request->day, &request->hour,
                       &request->minute, &request->second}) {
        in >> *field;
    }
}

TEST_P(Composition, MakesOneSubmit) {
    SmsMessage request = {};
    setNumber(request.peer_number, v().text("number"));
    if (v().has("sc_number")) { setNumber(request.sc_number, v().text("sc_number")); }
    if (v().has("time")) { setTime(&request, v().text("time")); }
    request.status_report = static_cast<u8>(v().number("report", 0));
    const Composed composed = compose(request, reference::fromUtf8(v().text("text")));
    EXPECT_EQ(composed.result, 0);
    ASSERT_EQ(composed.count, 1);
    EXPECT_STREQ(composed.segments->pdu, v().text("pdu").c_str());
    EXPECT_EQ(composed.segments->tpdu_length, v().number("length"));
    EXPECT_EQ(logMessagesOf("sms_encode_pdu"),
              (std::vector<std::string>{"nSegment:1\n", "encode pdu 0 of 1\n"}));
}
SMSPB_VECTORS(Composition, "compose.txt");

TEST_F(Segmentation, ANullTextIsAnEmptyText) {
    const SmsMessage request = requestTo("+4912345");
    SmsSegment *segments = nullptr;
    u8 count = 0;
    ASSERT_EQ(sms_encode_pdu(&request, &segments, &count), 0);
    const Block<SmsSegment> owned(segments);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(owned->pdu, "0001FF0791942143F5000000");
    EXPECT_EQ(owned->tpdu_length, 11U);
}

TEST_F(Segmentation, ReadsOnlyNumbersTextTimeAndReportFlag) {
    SmsMessage request = requestTo("+4912345");
    request.kind = 0x77777777;
    request.msg_class = 1;
    request.total_segments = request.segment_number = request.reference = 0x7777;
    EXPECT_STREQ(compose(request, u"hello").segments->pdu, "0001FF0791942143F5000005E8329BFD06");
}

// ---- many segments

struct CountCase {
    std::size_t length;
    unsigned segments;
};
const CountCase GSM_COUNTS[] = {
    {    0,   1},
    {    1,   1},
    {  153,   1},
    {  154,   1},
    {  159,   1},
    {  160,   1},
    {  161,   2},
    {  306,   2},
    {  307,   3},
    {  459,   3},
    {  460,   4},
    { 1530,  10},
    { 1531,  11},
    {39015, 255}
};
const CountCase UCS2_COUNTS[] = {
    {    1,   1},
    {   67,   1},
    {   70,   1},
    {   71,   2},
    {  134,   2},
    {  135,   3},
    {  201,   3},
    {  202,   4},
    {  670,  10},
    {  671,  11},
    {17085, 255}
};

// Runs of all characters of an alphabet, so that a displaced segment shows.
std::u16string gsmText(std::size_t length) {
    std::u16string text;
    for (std::size_t i = 0; i < length; i++) {
        text += static_cast<char16_t>(reference::defaultAlphabet()[i % 127 * 3 % 128]);
    }
    return text;
}

std::u16string ucs2Text(std::size_t length) {
    std::u16string text;
    for (std::size_t i = 0; i < length; i++) {
        text += static_cast<char16_t>(0x0400 + i * 257 % 0xF000);
    }
    return text;
}

void expectAsReference(const std::u16string &text, bool ucs2) {
    const Composed composed = composeText(text);
    ASSERT_EQ(composed.result, 0);
    const u8 counter =
        composed.count > 1 ? static_cast<u8>(referenceOf(composed.segments.get()[0])) : u8{0};
    const auto expected = reference::submits(text, ucs2, counter);
    ASSERT_EQ(composed.count, expected.size()) << text.size();
    for (std::size_t i = 0; i < expected.size(); i++) {
        const SmsSegment &segment = composed.segments.get()[i];
        ASSERT_NE(std::memchr(segment.pdu, 0, sizeof(segment.pdu)), nullptr);
        ASSERT_STREQ(segment.pdu, expected[i].pdu.c_str()) << text.size() << ": segment " << i;
        ASSERT_EQ(segment.tpdu_length, expected[i].length);
    }
}

TEST_F(Segmentation, CountsOfGsmTexts) {
    for (const CountCase &c : GSM_COUNTS) {
        const Composed composed = composeText(std::u16string(c.length, u'x'));
        EXPECT_EQ(composed.result, 0);
        EXPECT_EQ(composed.count, c.segments) << c.length;
    }
}

TEST_F(Segmentation, CountsOfUcs2Texts) {
    for (const CountCase &c : UCS2_COUNTS) {
        const Composed composed = composeText(std::u16string(c.length, u'\u0416'));
        EXPECT_EQ(composed.result, 0);
        EXPECT_EQ(composed.count, c.segments) << c.length;
    }
}

TEST_F(Segmentation, GsmTextsOfEveryLengthUpToFourSegments) {
    for (std::size_t length = 0; length <= 462; length++) {
        expectAsReference(gsmText(length), false);
    }
}

TEST_F(Segmentation, Ucs2TextsOfEveryLengthUpToFourSegments) {
    for (std::size_t length = 1; length <= 205; length++) {
        expectAsReference(ucs2Text(length), true);
    }
}

TEST_F(Segmentation, TheLongestTexts) {
    expectAsReference(gsmText(39015), false);
    expectAsReference(ucs2Text(17085), true);
}

TEST_F(Segmentation, AnExtensionCharacterInTheLastSegmentMakesAllOfThemUcs2) {
    expectAsReference(std::u16string(160, u'a') + u"}", true);
}

TEST_F(Segmentation, EverySegmentCarriesNumbersValidityAndReportFlag) {
    SmsMessage request = requestTo("0171234");
    setNumber(request.sc_number, "+4912345");
    setTime(&request, "2013 5 7 9 3 0");
    request.status_report = 1;
    const Composed composed = compose(request, std::u16string(161, u'a'));
    ASSERT_EQ(composed.count, 2);
    for (int i = 0; i < 2; i++) {
        const std::string pdu = composed.segments.get()[i].pdu;
        EXPECT_EQ(pdu.substr(0, 46), "0591942143F5"
                                     "79FF0781101732F40000"
                                     "31507090300000");
    }
}

TEST_F(Segmentation, LogsTheCountAndEachSegmentCountedFromZero) {
    composeText(std::u16string(307, u'a'));
    EXPECT_EQ(logMessagesOf("sms_encode_pdu"),
              (std::vector<std::string>{"nSegment:3\n", "encode pdu 0 of 3\n",
                                        "encode pdu 1 of 3\n", "encode pdu 2 of 3\n"}));
    for (const LogEntry &entry : logEntries()) { EXPECT_EQ(entry.source, "atlib/SmsUtils.cpp"); }
}

TEST_F(Segmentation, TakesOneHeapBlockOf404OctetsASegment) {
    for (const CountCase &c : GSM_COUNTS) {
        resetHeap();
        const Composed composed = composeText(std::u16string(c.length, u'x'));
        EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{404 * c.segments});
    }
}

// ---- the concatenation reference

unsigned nextReference() { return referenceOf(*composeText(std::u16string(161, u'a')).segments); }

TEST_F(Concatenation, AllSegmentsCarryOneReferenceTheTotalAndTheirNumber) {
    const Composed composed = composeText(std::u16string(307, u'a'));
    ASSERT_EQ(composed.count, 3);
    const std::string reference = std::string(composed.segments->pdu + 30, 2);
    for (unsigned i = 0; i < 3; i++) {
        const std::string pdu = composed.segments.get()[i].pdu;
        EXPECT_EQ(pdu.substr(2, 2), "41");
        EXPECT_EQ(pdu.substr(24, 12), "050003" + reference + "030" + std::to_string(i + 1));
    }
}

TEST_F(Concatenation, ConsecutiveMessagesDifferByOne) {
    const unsigned first = nextReference();
    EXPECT_EQ(nextReference(), (first + 1) % 256);
    EXPECT_EQ(nextReference(), (first + 2) % 256);
}

TEST_F(Concatenation, AMessageOfOneSegmentAdvancesTheReferenceToo) {
    const unsigned first = nextReference();
    composeText(u"one segment");
    composeText(u"");
    EXPECT_EQ(nextReference(), (first + 3) % 256);
}

TEST_F(Concatenation, TheReferenceWrapsAt256) {
    const unsigned first = nextReference();
    for (unsigned i = 1; i < 256; i++) { EXPECT_EQ(nextReference(), (first + i) % 256); }
    EXPECT_EQ(nextReference(), first);
}

TEST_F(Concatenation, ARefusedMessageDoesNotAdvanceTheReference) {
    const unsigned first = nextReference();
    EXPECT_EQ(composeText(std::u16string(39016, u'a')).result, -1);
    failAllocation(1);
    EXPECT_EQ(composeText(u"hello").result, -1);
    EXPECT_EQ(nextReference(), (first + 1) % 256);
}

TEST_F(Concatenation, ASegmentThatDoesNotEncodeAdvancesTheReference) {
    const unsigned first = nextReference();
    SmsMessage request = requestTo("1");
    setTime(&request, "2013 13 1 0 0 0");
    EXPECT_EQ(compose(request, u"hello").result, 0);
    EXPECT_EQ(nextReference(), (first + 2) % 256);
}

// ---- failures

TEST_F(CompositionFailure, MoreThan255SegmentsAreRefusedWithoutAllocating) {
    static const struct {
        std::size_t length;
        char16_t unit;
        const char *line;
    } CASES[] = {
        {        39016,      u'a',  "too many segments:256\n"},
        {    153 * 300,      u'a',  "too many segments:300\n"},
        {        17086, u'\u0416',  "too many segments:256\n"},
        {67 * 1000 + 1, u'\u0416', "too many segments:1001\n"},
    };
    for (const auto &c : CASES) {
        clearLog();
        resetHeap();
        const Composed composed = composeText(std::u16string(c.length, c.unit));
        EXPECT_EQ(composed.result, -1);
        EXPECT_EQ(composed.count, 0);
        EXPECT_EQ(composed.segments, nullptr);
        EXPECT_TRUE(allocationSizes().empty());
        const auto lines = logMessagesOf("sms_encode_pdu");
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), c.line);
    }
}

TEST_F(CompositionFailure, WithoutMemoryTheCountIsStoredAlready) {
    for (const std::size_t length : {5U, 307U}) {
        clearLog();
        failAllocation(1);
        const Composed composed = composeText(std::u16string(length, u'a'));
        EXPECT_EQ(composed.result, -1);
        EXPECT_EQ(composed.count, length == 5 ? 1 : 3);
        EXPECT_EQ(composed.segments, nullptr);
        EXPECT_EQ(logMessagesOf("sms_encode_pdu"),
                  std::vector<std::string>{length == 5 ? "nSegment:1\n" : "nSegment:3\n"});
    }
}

TEST_F(CompositionFailure, NumbersThatFillTheirFieldsWithoutAZeroDoNoHarm) {
    const Guarded<SmsMessage> request(1, Fill::Cleared);
    for (u16 &unit : request->peer_number) { unit = '5'; }
    for (u16 &unit : request->sc_number) { unit = '6'; }
    std::vector<u16> text = units(u"hello");
    request->text = text.data();
    SmsSegment *segments = nullptr;
    u8 count = 0;
    EXPECT_EQ(sms_encode_pdu(request.get(), &segments, &count), 0);
    const Block<SmsSegment> owned(segments);
    ASSERT_EQ(count, 1);
    EXPECT_NE(std::memchr(owned->pdu, 0, sizeof(owned->pdu)), nullptr);
}

// ---- received texts

std::string timeOf(const SmsMessage &m) {
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u", unsigned{m.year},
                  unsigned{m.month}, unsigned{m.day}, unsigned{m.hour}, unsigned{m.minute},
                  unsigned{m.second});
    return text;
}

TEST_P(Reception, DecodesIntoTheRecord) {
    const auto pdu = guardedText(v().text("pdu"));
    Guarded<SmsMessage> message(1, Fill::Cleared);
    EXPECT_EQ(sms_decode_pdu(pdu.get(), message.get()), 0);
    const Block<u16> text(message->text);
    const auto textOr = [this](const char *key) {
        return wide(v().has(key) ? v().text(key) : std::string());
    };
    EXPECT_EQ(message->kind, v().number("kind"));
    EXPECT_EQ(textOf(message->sc_number), textOr("sc"));
    EXPECT_EQ(textOf(message->peer_number), textOr("peer"));
    EXPECT_EQ(message->msg_class, v().number("class"));
    EXPECT_EQ(timeOf(*message), v().has("time") ? v().text("time") : "0000-00-00 00:00:00");
    EXPECT_EQ(message->status_report, v().number("report", 0));
    EXPECT_EQ(message->total_segments, v().number("total", 0));
    EXPECT_EQ(message->segment_number, v().number("number", 0));
    EXPECT_EQ(message->reference, v().number("reference", 0));
    ASSERT_EQ(text != nullptr, v().has("text"));
    if (text != nullptr) {
        EXPECT_EQ(reference::utf8(textOf(text.get())), v().text("text"));
        EXPECT_EQ(allocationSizes().size(), 1U);
    }
}
SMSPB_VECTORS(Reception, "received.txt");

const char DELIVER_HELLO[] = "00040791942143F500003150709030008005E8329BFD06";

void expectUntouched(const std::string &pdu) {
    Guarded<SmsMessage> message; // every octet 0xA5
    const std::vector<u8> before(sizeof(SmsMessage), 0xA5);
    EXPECT_EQ(sms_decode_pdu(guardedText(pdu).get(), message.get()), 0) << pdu;
    EXPECT_EQ(std::memcmp(message.get(), before.data(), before.size()), 0) << pdu;
}

TEST_F(ReceptionFailure, ATextThatDoesNotDecodeLeavesTheRecordAsItWas) {
    for (const char *pdu : {"", "0", "00040791942143F5-0", "0891214365", "0003", "02911*04"}) {
        expectUntouched(pdu);
    }
    expectUntouched(DELIVER_HELLO + std::string(511, '0'));
    EXPECT_EQ(liveBlocks(), 0U);
}

TEST_F(ReceptionFailure, WithoutMemoryOnlyTheTextIsMissing) {
    for (const char *pdu : {DELIVER_HELLO, "00040791942143F50008315070903000800400480069",
                            "00040791942143F5000431507090300080020102"}) {
        SmsMessage message = {};
        failAllocation(1);
        EXPECT_EQ(sms_decode_pdu(pdu, &message), 0);
        EXPECT_EQ(message.text, nullptr);
        EXPECT_EQ(message.kind, MESSAGE_DELIVER);
        EXPECT_EQ(textOf(message.peer_number), u"+4912345");
        EXPECT_EQ(message.year, 2013);
    }
}

TEST_F(ReceptionFailure, AnAddressWithoutDigitsLeavesTheNumbersAsTheyWere) {
    SmsMessage message = {};
    setNumber(message.sc_number, "111");
    setNumber(message.peer_number, "222");
    EXPECT_EQ(sms_decode_pdu("0004008100003150709030008005E8329BFD06", &message), 0);
    const Block<u16> text(message.text);
    EXPECT_EQ(textOf(message.sc_number), u"111");
    EXPECT_EQ(textOf(message.peer_number), u"222");
    EXPECT_EQ(textOf(text.get()), u"hello");
}

TEST_F(ReceptionFailure, AStatusReportLogsItsTypeAndLeavesTheTextPointer) {
    SmsMessage message = {};
    u16 *const mine = units(u"x").data();
    message.text = mine;
    EXPECT_EQ(sms_decode_pdu("00062A0791942143F5315070903000803150709040038000", &message), 0);
    EXPECT_EQ(message.text, mine);
    EXPECT_EQ(message.kind, MESSAGE_STATUS_REPORT);
    EXPECT_EQ(logMessagesOf("sms_decode_msg_body_text"),
              std::vector<std::string>{"pdu type error:6\n"});
    EXPECT_TRUE(allocationSizes().empty());
}

TEST_F(ReceptionFailure, AnyCutOfAGoodTextIsRead) {
    const std::string pdus[] = {
        "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37",
        "00440791942143F500083150709030008013060804123403020043043804400021",
        "00592A0791942143F5000031507090300080"
        "0C050003120201D06536FB0D",
        "00462A0791942143F5315070903000803150709040038000"
        "060008"
        "0500031202010041",
    };
    for (const std::string &pdu : pdus) {
        for (std::size_t length = 0; length <= pdu.size(); length++) {
            Guarded<SmsMessage> message(1, Fill::Cleared);
            EXPECT_EQ(sms_decode_pdu(guardedText(pdu.substr(0, length)).get(), message.get()), 0);
            const Block<u16> text(message->text);
            if (text != nullptr) { EXPECT_LE(textOf(text.get()).size(), 160U) << pdu; }
        }
    }
}

TEST_F(ReceptionFailure, RandomTpdusAreReadWithinBounds) {
    Random random(20135);
    for (u32 round = 0; round < 3000; round++) {
        std::vector<u8> tpdu = random.octets(random.below(254));
        if (!tpdu.empty()) { tpdu[0] = static_cast<u8>((tpdu[0] & 0xFC) | round % 3); }
        if (tpdu.size() > 3) { tpdu[round % 3 == 0 ? 1 : 2] %= 24; } // mostly a fitting address
        Guarded<SmsMessage> message(1, Fill::Cleared);
        EXPECT_EQ(sms_decode_pdu(guardedText("00" + hex(tpdu)).get(), message.get()), 0);
        const Block<u16> text(message->text);
        if (text != nullptr) { EXPECT_LE(textOf(text.get()).size(), 160U) << hex(tpdu); }
        EXPECT_EQ(message->peer_number[20], 0) << hex(tpdu);
    }
}

// ---- the text of a body

SmsTpdu bodyOf(u32 type, u32 alphabet, const std::vector<u8> &data) {
    SmsTpdu tpdu = {};
    tpdu.tpdu_type = type;
    SmsUserData &body = type == TPDU_SUBMIT ? tpdu.u.submit.user_data : tpdu.u.deliver.user_data;
    SmsDcs &dcs = type == TPDU_SUBMIT ? tpdu.u.submit.dcs : tpdu.u.deliver.dcs;
    dcs.alphabet = alphabet;
    body.sm_len = static_cast<u16>(data.size());
    std::copy(data.begin(), data.end(), body.sm_data);
    return tpdu;
}

TEST_F(BodyText, OfDeliverAndSubmitByAlphabetWithItsAllocation) {
    static const struct {
        u32 alphabet;
        const char *data;
        std::u16string_view text;
        std::size_t allocated;
    } CASES[] = {
        {ALPHABET_GSM_7BIT, "68 65 6C 6C 6F",   u"hello", 4 * 5 + 2},
        {ALPHABET_GSM_7BIT,    "00 1B 28 02",     u"@{$", 4 * 4 + 2},
        {ALPHABET_GSM_7BIT,               "",        u"",         2},
        {    ALPHABET_UCS2,    "00 48 4E 2D", u"H\u4E2D",     4 + 2},
        {    ALPHABET_UCS2,               "",        u"",         2},
        {    ALPHABET_8BIT,               "",        u"",         2},
    };
    for (const u32 type : {TPDU_DELIVER, TPDU_SUBMIT}) {
        for (const auto &c : CASES) {
            resetHeap();
            const SmsTpdu tpdu = bodyOf(type, c.alphabet, octets(c.data));
            u16 *text = nullptr;
            EXPECT_EQ(sms_decode_msg_body_text(&tpdu, &text), 1U);
            const Block<u16> owned(text);
            ASSERT_NE(text, nullptr);
            EXPECT_EQ(textOf(text), c.text);
            EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{c.allocated});
        }
    }
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(BodyText, EightBitDataIsCopiedTwoOctetsToAUnitAndZeroFilled) {
    for (const u32 alphabet : {ALPHABET_8BIT, 3U, 77U}) {
        resetHeap();
        const SmsTpdu tpdu = bodyOf(TPDU_DELIVER, alphabet, octets("01 02 03 FF FE"));
        u16 *text = nullptr;
        EXPECT_EQ(sms_decode_msg_body_text(&tpdu, &text), 1U);
        const Block<u16> owned(text);
        EXPECT_EQ(allocationSizes(), std::vector<std::size_t>{2 * (5 + 1)});
        const auto *bytes = reinterpret_cast<const u8 *>(text);
        EXPECT_EQ(hex({bytes, bytes + 12}), "010203FFFE00000000000000");
    }
}

TEST_F(BodyText, OfEverySeptetCountUpTo160) {
    for (std::size_t length = 0; length <= 160; length++) {
        const SmsTpdu tpdu = bodyOf(TPDU_DELIVER, ALPHABET_GSM_7BIT, std::vector<u8>(length, 'a'));
        u16 *text = nullptr;
        EXPECT_EQ(sms_decode_msg_body_text(&tpdu, &text), 1U);
        const Block<u16> owned(text);
        EXPECT_EQ(textOf(text), std::u16string(length, u'a'));
    }
}

TEST_F(BodyText, OfAnyOctetCountInUcs2EndsInsideItsBlock) {
    for (std::size_t length = 0; length <= 140; length++) {
        const SmsTpdu tpdu = bodyOf(TPDU_DELIVER, ALPHABET_UCS2, std::vector<u8>(length, 0x41));
        u16 *text = nullptr;
        EXPECT_EQ(sms_decode_msg_body_text(&tpdu, &text), 1U);
        const Block<u16> owned(text);
        const std::u16string whole(length / 2, u'\u4141');
        EXPECT_EQ(textOf(text).substr(0, length / 2), whole) << length;
        EXPECT_LE(textOf(text).size(), (length + 1) / 2) << length;
    }
}

TEST_F(BodyText, OfAnyOtherTypeIsNoneAndLogged) {
    for (const u32 type : {1U, TPDU_STATUS_REPORT, TPDU_RESERVED}) {
        clearLog();
        const SmsTpdu tpdu = bodyOf(type, ALPHABET_GSM_7BIT, octets("61"));
        u16 mine = 0, *text = &mine;
        EXPECT_EQ(sms_decode_msg_body_text(&tpdu, &text), 0U);
        EXPECT_EQ(text, &mine);
        EXPECT_EQ(logMessagesOf("sms_decode_msg_body_text"),
                  std::vector<std::string>{"pdu type error:" + std::to_string(type) + "\n"});
    }
    EXPECT_TRUE(allocationSizes().empty());
}

} // namespace
