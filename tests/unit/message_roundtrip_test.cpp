// A composed text comes back: every segment is decoded as the SUBMIT it is, and the parts are
// joined.
#include <cstdlib>
#include <memory>

#include "atlib/SmsUtils.h"
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

struct Letter {
    std::u16string number, serviceCentre, text;
    std::vector<u16> time; // six fields, or none
    u8 report = 0;
};

class RoundTrip : public LibraryTest {};

template <std::size_t N> void store(u16 (&field)[N], const std::u16string &text) {
    ASSERT_LT(text.size(), N);
    for (std::size_t i = 0; i < text.size(); i++) { field[i] = static_cast<u16>(text[i]); }
}

std::vector<SmsSegment> composed(const Letter &letter) {
    SmsMessage request = {};
    store(request.peer_number, letter.number);
    store(request.sc_number, letter.serviceCentre);
    std::vector<u16> text = units(letter.text);
    request.text = text.data();
    request.status_report = letter.report;
    if (!letter.time.empty()) {
        request.year = letter.time[0];
        request.month = letter.time[1];
        request.day = letter.time[2];
        request.hour = letter.time[3];
        request.minute = letter.time[4];
        request.second = letter.time[5];
    }
    SmsSegment *segments = nullptr;
    u8 count = 0;
    EXPECT_EQ(sms_encode_pdu(&request, &segments, &count), 0);
    const Block<SmsSegment> owned(segments);
    return {segments, segments + count};
}

struct Decoded {
    SmsMessage record;
    std::u16string text;
};

Decoded decoded(const SmsSegment &segment) {
    SmsMessage message = {};
    EXPECT_EQ(sms_decode_pdu(segment.pdu, &message), 0);
    const Block<u16> text(message.text);
    message.text = nullptr;
    EXPECT_NE(text, nullptr);
    return {message, text != nullptr ? textOf(text.get()) : u""};
}

std::vector<u16> timeOf(const SmsMessage &m) {
    return {m.year, m.month, m.day, m.hour, m.minute, m.second};
}

void expectHeader(const SmsMessage &message, const Letter &letter) {
    EXPECT_EQ(message.kind, MESSAGE_SUBMIT);
    EXPECT_EQ(textOf(message.peer_number), letter.number);
    EXPECT_EQ(textOf(message.sc_number), letter.serviceCentre);
    EXPECT_EQ(message.msg_class, MSG_CLASS_NONE);
    EXPECT_EQ(message.status_report, letter.report);
    EXPECT_EQ(timeOf(message), letter.time.empty() ? std::vector<u16>(6) : letter.time);
}

void expectBack(const Letter &letter) {
    const std::vector<SmsSegment> segments = composed(letter);
    std::u16string joined;
    unsigned reference = 0;
    for (std::size_t i = 0; i < segments.size(); i++) {
        const Decoded part = decoded(segments[i]);
        expectHeader(part.record, letter);
        const bool several = segments.size() > 1;
        EXPECT_EQ(part.record.total_segments, several ? segments.size() : 0);
        EXPECT_EQ(part.record.segment_number, several ? i + 1 : 0);
        if (i == 0) { reference = part.record.reference; }
        EXPECT_EQ(part.record.reference, reference);
        joined += part.text;
    }
    EXPECT_EQ(reference::utf8(joined), reference::utf8(reference::readBack(letter.text)));
}

std::u16string digits(Random &random, std::size_t count) {
    std::u16string number;
    while (number.size() < count) { number += u"0123456789*#"[random.below(12)]; }
    return number;
}

std::u16string number(Random &random) {
    const bool international = random.below(2) != 0;
    const std::u16string body = digits(random, random.between(1, international ? 19 : 20));
    return international ? u"+" + body : body;
}

// Any character of the alphabet but the escape's U+00A0, which swallows what follows it.
char16_t gsmCharacter(Random &random) {
    const u32 code = random.below(127);
    return static_cast<char16_t>(reference::defaultAlphabet()[code < 0x1B ? code : code + 1]);
}

std::u16string gsmText(Random &random, std::size_t length) {
    std::u16string text;
    while (text.size() < length) { text += gsmCharacter(random); }
    return text;
}

std::u16string ucs2Text(Random &random, std::size_t length) {
    std::u16string text(1, u'\u0416'); // so that it is one
    while (text.size() < length) { text += static_cast<char16_t>(random.between(1, 0xFFFF)); }
    return text;
}

Letter letterOf(Random &random) {
    Letter letter;
    letter.number = number(random);
    if (random.below(3) == 0) { letter.serviceCentre = number(random); }
    letter.report = static_cast<u8>(random.below(2));
    if (random.below(2) == 0) {
        letter.time = {
            static_cast<u16>(random.between(1980, 2079)), static_cast<u16>(random.between(1, 12)),
            static_cast<u16>(random.between(1, 31)),      static_cast<u16>(random.below(24)),
            static_cast<u16>(random.below(60)),           static_cast<u16>(random.below(60))};
    }
    return letter;
}

TEST_F(RoundTrip, OfRandomGsmTexts) {
    Random random(20136);
    for (u32 round = 0; round < 300; round++) {
        Letter letter = letterOf(random);
        letter.text = gsmText(random, random.below(700));
        expectBack(letter);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST_F(RoundTrip, OfRandomUcs2Texts) {
    Random random(20137);
    for (u32 round = 0; round < 300; round++) {
        Letter letter = letterOf(random);
        letter.text = ucs2Text(random, random.between(1, 320));
        expectBack(letter);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST_F(RoundTrip, OfTheLongestTexts) {
    Random random(20138);
    for (const bool gsm : {true, false}) {
        Letter letter = letterOf(random);
        letter.text = gsm ? gsmText(random, 39015) : ucs2Text(random, 17085);
        expectBack(letter);
    }
}

TEST_F(RoundTrip, OfNumbersOfEveryLength) {
    Random random(20139);
    for (std::size_t count = 1; count <= 20; count++) {
        Letter letter;
        letter.text = u"x";
        letter.number = digits(random, count);
        letter.serviceCentre = digits(random, 21 - count);
        expectBack(letter);
        if (count == 20) { break; } // no room for a plus sign
        letter.number = u"+" + letter.number;
        expectBack(letter);
    }
}

TEST_F(RoundTrip, OfTextsWithoutCommercialAtIsTheTextItself) {
    Random random(20140);
    for (u32 round = 0; round < 50; round++) {
        std::u16string text = gsmText(random, random.below(400));
        for (char16_t &c : text) {
            if (c == u'@') { c = u'a'; }
        }
        EXPECT_EQ(reference::readBack(text), text);
    }
}

TEST_F(RoundTrip, ACommercialAtComesBackAsOneOnlyWhereItFillsTheTopOfAnOctet) {
    Letter letter;
    letter.number = u"1";
    letter.text = std::u16string(16, u'@');
    const std::vector<SmsSegment> segments = composed(letter);
    ASSERT_EQ(segments.size(), 1U);
    EXPECT_EQ(decoded(segments[0]).text, u"¡¡¡¡¡¡¡@¡¡¡¡¡¡¡@");
}

TEST_F(RoundTrip, ANoBreakSpaceSwallowsTheCharacterBehindIt) {
    Letter letter;
    letter.number = u"1";
    letter.text = u"a\u00A0b\u00A0(c"; // sent as escapes
    const std::vector<SmsSegment> segments = composed(letter);
    ASSERT_EQ(segments.size(), 1U);
    EXPECT_EQ(decoded(segments[0]).text, u"a\u00A0{c");
}

} // namespace
