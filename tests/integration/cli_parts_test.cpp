// The parts of the command line tool that need no process: texts, errors, joining, layout, plans.
#include <gtest/gtest.h>

#include <clocale>

#include "tools/compose.h"
#include "tools/failure.h"
#include "tools/output.h"
#include "tools/pdu_layout.h"
#include "tools/received.h"
#include "tools/stored.h"
#include "tools/text.h"

namespace {

using namespace smspb::cli;

class Text : public testing::Test {
protected:
    static void SetUpTestSuite() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
};

// The failure that a call throws; a test failure when it throws none.
template <typename Call> Failure failureOf(Call call) {
    try {
        call();
    } catch (const Failure &failure) { return failure; }
    ADD_FAILURE() << "no failure was thrown";
    return {Exit::OK, ""};
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

TEST_F(Text, WellFormedUtf8HasNoInvalidOctet) {
    for (const char *text : {"", "abc", "é", "€", "😀", "\xED\x9F\xBF", "\xEE\x80\x80",
                             "\xF4\x8F\xBF\xBF", "\xEF\xBF\xBF"}) {
        EXPECT_FALSE(findInvalidUtf8(text)) << text;
    }
}

TEST_F(Text, MalformedUtf8IsFoundWhereItStands) {
    const struct {
        const char *text;
        std::size_t at;
    } cases[] = {
        {              "ab\x80", 2}, // a following octet without its lead
        {               "a\xC3", 1}, // cut short
        {            "\xE2\x82", 0}, // cut short
        {           "\xE2\x82z", 0}, // not followed
        {            "\xC0\xAF", 0}, // overlong
        {            "\xC1\xBF", 0}, // overlong
        {        "\xE0\x9F\xBF", 0}, // overlong
        {    "\xF0\x8F\xBF\xBF", 0}, // overlong
        {       "x\xED\xA0\x80", 1}, // a surrogate
        {        "\xED\xBF\xBF", 0}, // a surrogate
        {    "\xF4\x90\x80\x80", 0}, // above U+10FFFF
        {"\xF8\x88\x80\x80\x80", 0},
        {             "caf\xE9", 3}, // ISO 8859-1
        {                "\xFF", 0},
    };
    for (const auto &[text, at] : cases) { EXPECT_EQ(findInvalidUtf8(text), at) << text; }
}

TEST_F(Text, EveryCharacterComesBackFromUtf8AndFromUnits) {
    for (char32_t c = 0; c < 0x110000; c++) {
        if (c >= 0xD800 && c < 0xE000) { continue; }
        const std::u32string one(1, c);
        const std::string utf8 = toUtf8(one);
        const std::u16string units = toUnits(one);
        ASSERT_FALSE(findInvalidUtf8(utf8)) << codePointName(c);
        ASSERT_EQ(toCharacters(utf8), one) << codePointName(c);
        ASSERT_EQ(toCharacters(units), one) << codePointName(c);
        ASSERT_EQ(units.size(), c < 0x10000 ? 1U : 2U) << codePointName(c);
    }
}

TEST_F(Text, AnEmojiIsItsSurrogatePair) {
    EXPECT_EQ(toUnits(U"😀"), (std::u16string{0xD83D, 0xDE00}));
    EXPECT_EQ(toUtf8(std::u16string{0xD83D, 0xDE00}), "😀");
}

TEST_F(Text, HalfAPairBecomesTheReplacementCharacter) {
    EXPECT_EQ(toUtf8(std::u16string{0xD83D}), "\uFFFD");
    EXPECT_EQ(toUtf8(std::u16string{0xDE00, u'a'}), "\uFFFDa");
    EXPECT_EQ(toUtf8(std::u16string{0xD83D, 0xD83D, 0xDE00}), "\uFFFD😀");
}

TEST_F(Text, WideAndCombiningCharactersCountTheirColumns) {
    EXPECT_EQ(columnsOf("hello"), 5U);
    EXPECT_EQ(columnsOf("Γειά"), 4U);
    EXPECT_EQ(columnsOf("你好"), 4U);
    EXPECT_EQ(columnsOf("😀"), 2U);
    EXPECT_EQ(columnsOf("e\u0301"), 1U);
    EXPECT_EQ(padded("你好", 6), "你好  ");
    EXPECT_EQ(padded("toolong", 3), "toolong");
}

TEST_F(Text, NothingThatATerminalObeysIsPrinted) {
    for (char32_t c = 0; c < 0x110000; c++) {
        if (c == '\n' || (c >= 0xD800 && c < 0xE000) || !isDangerous(c)) { continue; }
        const std::string shown = printable(toUtf8(std::u32string(1, c)), LineEnds::KEPT);
        for (const char32_t left : toCharacters(shown)) {
            ASSERT_TRUE(left == '\n' ? c == '\r' : !isDangerous(left)) << codePointName(c);
        }
        ASSERT_FALSE(shown.empty()) << codePointName(c);
    }
}

TEST_F(Text, ControlCharactersAreShownInPlaceOfBeingObeyed) {
    EXPECT_EQ(printable("a\x1B[31mb", LineEnds::KEPT), "a␛[31mb");
    EXPECT_EQ(printable("\x7F\a\t.", LineEnds::KEPT), "␡␇ .");
    EXPECT_EQ(printable("\u009B31m", LineEnds::KEPT), "<U+009B>31m");
    EXPECT_EQ(printable("\u202Eabc\u2066", LineEnds::KEPT), "<U+202E>abc<U+2066>");
    EXPECT_EQ(printable("a\xFF z", LineEnds::KEPT), "a\\xFF z");
    EXPECT_EQ(printable(std::string_view("a\0b", 3), LineEnds::KEPT), "a␀b");
}

TEST_F(Text, LineEndsOfEveryKindAreOneLineEnd) {
    EXPECT_EQ(printable("a\nb\r\nc\rd\n\re", LineEnds::KEPT), "a\nb\nc\nd\n\ne");
    EXPECT_EQ(printable("a\nb\r\nc\rd", LineEnds::MARKED), "a⏎b⏎c⏎d");
}

TEST_F(Text, LongLinesAreBrokenAtBlanksOrElseWhereTheyMust) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(wrapped("", 10), (Lines{""}));
    EXPECT_EQ(wrapped("one two three", 20), (Lines{"one two three"}));
    EXPECT_EQ(wrapped("one two three", 7), (Lines{"one two", "three"}));
    EXPECT_EQ(wrapped("one two three", 8), (Lines{"one two ", "three"}));
    EXPECT_EQ(wrapped("abcdefgh", 3), (Lines{"abc", "def", "gh"}));
    EXPECT_EQ(wrapped("ab cdefgh", 4), (Lines{"ab ", "cdef", "gh"}));
    EXPECT_EQ(wrapped("a\n\nb", 4), (Lines{"a", "", "b"}));
    EXPECT_EQ(wrapped("你好吗", 4), (Lines{"你好", "吗"}));
    EXPECT_EQ(wrapped("你好吗", 5), (Lines{"你好", "吗"}));
    EXPECT_EQ(wrapped("你", 1), (Lines{"你"}));
    EXPECT_EQ(wrapped("one   two", 3), (Lines{"one", "two"}));
}

TEST_F(Text, TheTableFitsTheTerminalAndKeepsItsColumns) {
    const Table table{
        {                                                  "N",              "NAME", "TEXT"},
        {{"1", "你好", "a long text that has to be wrapped"}, {"22", "x", "a\nb"}       }
    };
    EXPECT_EQ(layOut(table, 30), "N   NAME  TEXT\n"
                                 "1   你好  a long text that has\n"
                                 "          to be wrapped\n"
                                 "22  x     a\n"
                                 "          b\n");
    EXPECT_EQ(layOut(table, 0), "N   NAME  TEXT\n"
                                "1   你好  a long text that has to be wrapped\n"
                                "22  x     a⏎b\n");
}

TEST_F(Text, ATableCellCannotBreakOutOfItsRow) {
    const Table table{
        {                    "A", "B"},
        {{"x\ny\x1B", "z\u202E"}    }
    };
    EXPECT_EQ(layOut(table, 0), "A     B\nx⏎y␛  z<U+202E>\n");
}

TEST_F(Text, JsonEscapesWhatATerminalObeys) {
    const std::string text = serialized({
        {"t", "a\x1B\x7F\u009B\u202E\U000E0001é😀"}
    });
    EXPECT_EQ(text, "{\n  \"t\": \"a\\u001b\\u007f\\u009b\\u202e\\udb40\\udc01é😀\"\n}");
    EXPECT_EQ(Json::parse(text)["t"], "a\x1B\x7F\u009B\u202E\U000E0001é😀");
}

TEST(ModemErrors, AFinalResultIsToldFromAGoodReply) {
    EXPECT_FALSE(errorOf("\r\n+CSQ: 1,2\r\n\r\nOK\r\n"));
    EXPECT_FALSE(errorOf(""));
    EXPECT_FALSE(errorOf("\r\nERRORS: 0\r\nOK\r\n"));
    EXPECT_TRUE(errorOf("\r\nERROR\r\n"));
    EXPECT_TRUE(errorOf("\r\nNO CARRIER\r\n"));
}

TEST(ModemErrors, NumbersComeWithTheirWordsAndTheNextStep) {
    const auto full = errorOf("\r\n+CMS ERROR: 322\r\n");
    ASSERT_TRUE(full);
    EXPECT_EQ(full->number, 322U);
    EXPECT_EQ(describe(*full), "memory full (+CMS ERROR: 322)");
    EXPECT_TRUE(contains(hintFor(*full), "smspb delete"));
    const auto noSim = errorOf("+CME ERROR: 10\r\n");
    ASSERT_TRUE(noSim);
    EXPECT_EQ(describe(*noSim), "SIM not inserted (+CME ERROR: 10)");
    EXPECT_TRUE(contains(hintFor(*noSim), "SIM"));
}

TEST(ModemErrors, UnknownNumbersAndWordsAreShownAsTheyCame) {
    EXPECT_EQ(describe(*errorOf("+CMS ERROR: 9999\r\n")), "+CMS ERROR: 9999");
    EXPECT_EQ(hintFor(*errorOf("+CMS ERROR: 9999\r\n")), "");
    const auto verbose = errorOf("+CME ERROR: SIM busy\r\n");
    ASSERT_TRUE(verbose);
    EXPECT_FALSE(verbose->number);
    EXPECT_EQ(describe(*verbose), "+CME ERROR: SIM busy");
    EXPECT_EQ(describe(*errorOf("+CME ERROR: \x1B[2J\r\n")), "+CME ERROR: ␛[2J");
}

TEST(ModemErrors, TheTwoNumberingsAreKeptApart) {
    EXPECT_EQ(errorOf("+CMS ERROR: 20\r\n")->words, "");
    EXPECT_EQ(errorOf("+CME ERROR: 20\r\n")->words, "memory full");
    EXPECT_EQ(hintFor(*errorOf("+CMS ERROR: 10\r\n")), "");
}

TEST(Indexes, RangesAreWrittenAndReadAlike) {
    const struct {
        const char *text;
        std::vector<u32> indexes;
    } cases[] = {
        {      "3",             {3}},
        {      "0",             {0}},
        {    "3-4",          {3, 4}},
        {"1,3-5,9", {1, 3, 4, 5, 9}},
        {  "65535",         {65535}}
    };
    for (const auto &[text, indexes] : cases) {
        EXPECT_EQ(indexRanges(indexes), text);
        EXPECT_EQ(parseIndexes(text), indexes) << text;
    }
    EXPECT_EQ(indexRanges({5, 3, 4}), "3-5");
}

TEST(Indexes, WhatIsNoneIsRefused) {
    for (const char *text : {"", "x", "-1", "1-", "1,", ",1", "5-3", "65536", "1 2", "1-2-3",
                             "99999999999", "1x", "+1"}) {
        const Failure failure = failureOf([text] { parseIndexes(text); });
        EXPECT_EQ(failure.exit, Exit::USAGE) << text;
        EXPECT_FALSE(failure.hint.empty()) << text;
    }
}

Stored part(u32 index, unsigned number, unsigned total, std::int64_t seconds,
            std::u16string text = u"?", u16 reference = 7, std::string from = "+1") {
    Message message;
    message.number = std::move(from);
    message.seconds = seconds;
    message.part = Part{reference, total, number};
    message.text = std::move(text);
    return {index, 1, "", message, ""};
}

std::vector<std::vector<u32>> indexesOf(const std::vector<Joined> &messages) {
    std::vector<std::vector<u32>> all;
    for (const Joined &joined : messages) {
        all.emplace_back();
        for (const Stored &one : joined.parts) { all.back().push_back(one.index); }
    }
    return all;
}

using IndexLists = std::vector<std::vector<u32>>;

TEST(Join, PartsComeTogetherInTheirOrder) {
    const auto joined =
        join({part(1, 3, 3, 2, u"c"), part(2, 1, 3, 0, u"a"), part(9, 2, 3, 1, u"b")});
    EXPECT_EQ(indexesOf(joined), (IndexLists{
                                     {2, 9, 1}
    }));
    EXPECT_TRUE(joined[0].isComplete());
    EXPECT_EQ(textOf(joined[0]), "abc");
}

TEST(Join, AMissingPartIsMarkedWhereItIs) {
    EXPECT_EQ(textOf(join({part(1, 1, 3, 0, u"a"), part(2, 3, 3, 0, u"c")})[0]), "a[…]c");
    EXPECT_EQ(textOf(join({part(1, 2, 3, 0, u"b")})[0]), "[…]b[…]");
    const auto joined = join({part(1, 2, 5, 0), part(2, 4, 5, 0)});
    EXPECT_FALSE(joined[0].isComplete());
    EXPECT_EQ(missingParts(joined[0]), "1, 3, 5");
}

TEST(Join, APairOfSurrogatesMayStandAcrossTwoParts) {
    const auto joined = join({part(1, 1, 2, 0, {u'a', 0xD83D}), part(2, 2, 2, 0, {0xDE00, u'b'})});
    EXPECT_EQ(textOf(joined[0]), "a😀b");
}

TEST(Join, AnotherSenderReferenceOrTotalIsAnotherMessage) {
    const auto joined = join({part(1, 1, 2, 0), part(2, 2, 2, 0, u"?", 8),
                              part(3, 2, 2, 0, u"?", 7, "+2"), part(4, 2, 3, 0)});
    EXPECT_EQ(indexesOf(joined), (IndexLists{{1}, {2}, {3}, {4}}));
}

TEST(Join, AReferenceThatComesAgainBeginsANewMessage) {
    const auto joined =
        join({part(1, 1, 2, 0), part(2, 2, 2, 1), part(3, 1, 2, 60), part(4, 2, 2, 61)});
    EXPECT_EQ(indexesOf(joined), (IndexLists{
                                     {1, 2},
                                     {3, 4}
    }));
}

TEST(Join, AnOldMessageThatLacksAPartDoesNotTakeItFromANewOne) {
    const std::int64_t day = 86400;
    const auto joined = join({part(1, 1, 2, 0), part(2, 1, 2, day), part(3, 2, 2, day + 5)});
    EXPECT_EQ(indexesOf(joined), (IndexLists{
                                     {1},
                                     { 2,3}
    }));
}

TEST(Join, ALongMessageMayTakeHoursAsLongAsItsPartsFollowEachOther) {
    std::vector<Stored> parts;
    for (unsigned number = 1; number <= 200; number++) {
        parts.push_back(part(number, number, 200, number * 60));
    }
    const auto joined = join(parts);
    ASSERT_EQ(joined.size(), 1U);
    EXPECT_TRUE(joined[0].isComplete());
}

TEST(Join, SingleAndUndecodableMessagesStayAlone) {
    Stored single{4, 0, "", Message{}, ""}, broken{2, 0, "zz", std::nullopt, "not a PDU"};
    const auto joined = join({single, broken, broken, single});
    EXPECT_EQ(joined.size(), 4U);
    EXPECT_EQ(textOf(joined[0]), "not a PDU");
    EXPECT_TRUE(joined[0].isComplete());
}

constexpr const char *HELLO = "00040B915155001000F000006210302143654005E8329BFD06";

TEST(StoredMessages, AreTakenFromTheReply) {
    const auto stored =
        storedFrom("\r\n+CMGR: 0,,24\r\n" + std::string(HELLO) + "\r\n\r\nOK\r\n", 7);
    ASSERT_TRUE(stored && stored->message);
    EXPECT_EQ(stored->index, 7U);
    EXPECT_EQ(stored->status, 0U);
    EXPECT_EQ(stored->message->text, u"hello");
    EXPECT_EQ(
        storedFrom("\r\n+CMGR: 3,\"Bob\",24\r\n" + std::string(HELLO) + "\r\nOK\r\n", 7)->status,
        3U);
}

TEST(StoredMessages, AnEmptyPlaceHoldsNone) {
    EXPECT_FALSE(storedFrom("\r\nOK\r\n", 1));
    EXPECT_FALSE(storedFrom("\r\n+CMGR: 0,,0\r\n\r\nOK\r\n", 1));
    EXPECT_FALSE(storedFrom("\r\n+CMGR: 0,,0\r\n", 1));
}

TEST(StoredMessages, TextModeIsNamedAsTheTrouble) {
    const Failure failure = failureOf([] {
        storedFrom("\r\n+CMGR: \"REC READ\",\"+49\",,\"26/01/03\"\r\nhello\r\n\r\nOK\r\n", 1);
    });
    EXPECT_EQ(failure.exit, Exit::BAD_REPLY);
    EXPECT_TRUE(contains(failure.hint, "AT+CMGF=0"));
}

TEST(StoredMessages, AWrongPduKeepsWhatIsWrongWithIt) {
    const auto stored = storedFrom("+CMGR: 1,,9\r\n0004\r\n\r\nOK\r\n", 3);
    ASSERT_TRUE(stored);
    EXPECT_FALSE(stored->message);
    EXPECT_TRUE(contains(stored->problem, "originating address")) << stored->problem;
    EXPECT_EQ(stored->pdu, "0004");
}

TEST(Reports, EveryStatusHasWords) {
    EXPECT_EQ(statusWords(0x00), "delivered");
    EXPECT_EQ(statusWords(0x46), "failed: validity period expired");
    EXPECT_EQ(statusWords(0x15), "completed, reason of the service centre's own");
    EXPECT_EQ(statusWords(0x30), "still trying, no known reason");
    EXPECT_EQ(statusWords(0x50), "failed, no known reason");
    EXPECT_EQ(statusWords(0x7F), "given up, no known reason");
    EXPECT_EQ(statusWords(0x80), "no known status");
    for (unsigned status = 0; status <= 0xFF; status++) {
        EXPECT_FALSE(statusWords(status).empty());
    }
}

std::vector<std::size_t> segmentsOf(std::size_t count, char32_t character) {
    return compose(parseNumber("1", "NUMBER"), std::u32string(count, character), false, 0)
        .segmentUnits;
}

// TS 23.040, 9.2.3.24.1
TEST(Plans, SegmentsFollowTheLimitsOfTheCoding) {
    using Sizes = std::vector<std::size_t>;
    EXPECT_EQ(segmentsOf(0, U'x'), (Sizes{0}));
    EXPECT_EQ(segmentsOf(160, U'x'), (Sizes{160}));
    EXPECT_EQ(segmentsOf(161, U'x'), (Sizes{153, 8}));
    EXPECT_EQ(segmentsOf(306, U'x'), (Sizes{153, 153}));
    EXPECT_EQ(segmentsOf(307, U'x'), (Sizes{153, 153, 1}));
    EXPECT_EQ(segmentsOf(70, U'я'), (Sizes{70}));
    EXPECT_EQ(segmentsOf(71, U'я'), (Sizes{67, 4}));
    EXPECT_EQ(segmentsOf(35, U'😀'), (Sizes{70}));
    EXPECT_EQ(segmentsOf(36, U'😀'), (Sizes{67, 5}));
}

TEST(Plans, TheLibraryMakesAsManySegmentsAsThePlanSays) {
    for (const char32_t character : {U'x', U'я', U'😀'}) {
        for (std::size_t count = 0; count < 500; count += 7) {
            const Plan plan = compose(parseNumber("+1234", "NUMBER"),
                                      std::u32string(count, character), false, 200);
            ASSERT_EQ(plan.segments.size(), plan.segmentUnits.size()) << count;
            for (std::size_t i = 0; i < plan.segments.size(); i++) {
                const Message message = interpret(plan.segments[i].pdu);
                ASSERT_EQ(message.text.size(), plan.segmentUnits[i]) << count;
            }
        }
    }
}

TEST(Plans, TheReferenceGoesIntoEverySegmentWhateverTheNumber) {
    for (const char *number : {"1", "+12", "123", "+491701234567", "50003000000005000301"}) {
        for (const char32_t character : {U'x', U'я'}) {
            const Plan plan =
                compose(parseNumber(number, "NUMBER"), std::u32string(200, character), true, 0xA7);
            for (std::size_t i = 0; i < plan.segments.size(); i++) {
                const Message message = interpret(plan.segments[i].pdu);
                ASSERT_TRUE(message.part);
                EXPECT_EQ(message.part->reference, 0xA7);
                EXPECT_EQ(message.part->number, i + 1);
                EXPECT_EQ(message.part->total, plan.segments.size());
                EXPECT_EQ(message.number, number);
            }
        }
    }
}

TEST(Plans, WhatForcesUcs2IsNamedWithItsPlaceAndAnAlternative) {
    const Plan plan = compose(parseNumber("1", "NUMBER"), U"ab€c😀€", false, 0);
    EXPECT_TRUE(plan.isUcs2);
    EXPECT_EQ(plan.characters, 6U);
    EXPECT_EQ(plan.units, 7U);
    ASSERT_EQ(plan.forcing.size(), 2U);
    EXPECT_EQ(plan.forcing[0].character, U'€');
    EXPECT_EQ(plan.forcing[0].position, 3U);
    EXPECT_EQ(plan.forcing[0].count, 2U);
    EXPECT_EQ(plan.forcing[0].hint, "EUR");
    EXPECT_EQ(plan.forcing[1].position, 5U);
    EXPECT_EQ(plan.forcing[1].hint, "");
}

// Everything a hint proposes must be worth it.
TEST(Plans, NoAlternativeForcesUcs2Itself) {
    for (char32_t c = 1; c < 0x3000; c++) {
        const Plan plan = compose(parseNumber("1", "NUMBER"), std::u32string(1, c), false, 0);
        for (const Forcing &forcing : plan.forcing) {
            const std::u32string hint = toCharacters(forcing.hint);
            EXPECT_FALSE(compose(parseNumber("1", "NUMBER"), hint, false, 0).isUcs2)
                << codePointName(c);
        }
    }
}

TEST(Plans, ANoBreakSpaceGoesAsBlankBecauseItsSeptetIsTheEscape) {
    const Plan plan = compose(parseNumber("1", "NUMBER"), U"10\u00A0e", false, 0);
    EXPECT_FALSE(plan.isUcs2);
    EXPECT_EQ(plan.blanksReplaced, 1U);
    EXPECT_EQ(interpret(plan.segments[0].pdu).text, u"10 e");
    const Plan ucs2 = compose(parseNumber("1", "NUMBER"), U"10\u00A0€", false, 0);
    EXPECT_EQ(ucs2.blanksReplaced, 0U);
    EXPECT_EQ(interpret(ucs2.segments[0].pdu).text, u"10\u00A0€");
}

TEST(Plans, TheLastTextThatFitsIsTakenAndTheNextIsRefused) {
    EXPECT_EQ(segmentsOf(255 * 153, U'x').size(), 255U);
    EXPECT_EQ(segmentsOf(255 * 67, U'я').size(), 255U);
    const Failure failure = failureOf([] { segmentsOf(255 * 153 + 1, U'x'); });
    EXPECT_EQ(failure.exit, Exit::USAGE);
    EXPECT_TRUE(contains(failure.hint, "39015")) << failure.hint;
    EXPECT_TRUE(contains(failureOf([] { segmentsOf(255 * 67 + 1, U'я'); }).hint, "17085"));
}

TEST(Plans, EveryCharacterOfTheGsmAlphabetComesBackFromItsSeptet) {
    for (u32 c = 1; c < 0x10000; c++) {
        if (c == 0xA0 || sms_IsUnicode(static_cast<u16>(c)) != 0) { continue; }
        // Eight of them, so that one stands at every bit position.
        const std::u32string text(8, static_cast<char32_t>(c));
        const Plan plan = compose(parseNumber("1", "NUMBER"), text, false, 0);
        ASSERT_EQ(toUtf8(interpret(plan.segments[0].pdu).text), toUtf8(text)) << codePointName(c);
    }
}

TEST(Layout, SeptetsAreReadAtEveryBitPosition) {
    // "hello" behind the octets that precede TP-UD in HELLO.
    const PduLayout pdu = layOutPdu(HELLO);
    const std::string_view hello = "hello";
    for (std::size_t i = 0; i < hello.size(); i++) { EXPECT_EQ(septetAt(pdu, i), hello[i]); }
}

TEST(Layout, EveryCutOfAPduIsRefusedWithTheFieldThatLacks) {
    const std::string whole = HELLO;
    for (std::size_t length = 2; length < whole.size(); length += 2) {
        const Failure failure =
            failureOf([&] { layOutPdu(std::string_view(whole).substr(0, length)); });
        EXPECT_EQ(failure.exit, Exit::BAD_PDU) << length;
        EXPECT_TRUE(contains(failure.what(), "it ends")) << failure.what();
    }
}

} // namespace
