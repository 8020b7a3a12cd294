// Character sets: UCS-2, the GSM 7-bit default alphabet (TS 23.038), UTF-8.
#include "atlib/SmsUtils.h"

#include <algorithm>
#include <iterator>

#include "support/library_test.h"
#include "support/random.h"
#include "support/reference_text.h"

using namespace support;

namespace {

constexpr u32 ALL_UNITS = 0x10000;
constexpr u8 UNTOUCHED = 0xA5; // what guarded memory is filled with
constexpr u16 UNTOUCHED_UNIT = 0xA5A5;

std::vector<u8> octetsOf(std::string_view text) { return {text.begin(), text.end()}; }

class TextLength : public LibraryTest {};
class CodingChoice : public LibraryTest {};
class UnitToSeptet : public LibraryTest {};
class TextToSeptets : public LibraryTest {};
class KnownSeptets : public LibraryVectorTest {};
class SeptetsToText : public LibraryTest {};
class NetworkOrder : public LibraryTest {};
class KnownUnits : public LibraryVectorTest {};
class UnicodeToUtf8 : public LibraryTest {};
class Utf8ToUnicode : public LibraryTest {};
class Utf8LeadOctet : public LibraryTest {};
class Utf8ToStaticBuffer : public LibraryTest {};

// ---- lengths

TEST_F(TextLength, OfNullIsZero) {
    EXPECT_EQ(sms_wstrlen(nullptr), 0U);
    EXPECT_EQ(mywcslen(nullptr), 0U);
}

TEST_F(TextLength, CountsUnitsBeforeTheZeroUnitAndReadsNoFurther) {
    for (const std::u16string_view text : {u"", u"a", u"Hello", u"\u0100\u0001\uFF00\u00FF"}) {
        const Guarded<u16> guarded(units(text));
        EXPECT_EQ(sms_wstrlen(guarded.get()), text.size());
        EXPECT_EQ(mywcslen(guarded.get()), text.size());
    }
}

TEST_F(TextLength, HasNoBoundOfItsOwn) {
    const std::vector<u16> text = units(std::u16string(70000, u'x'));
    EXPECT_EQ(sms_wstrlen(text.data()), 70000U);
    EXPECT_EQ(mywcslen(text.data()), 70000U);
}

// ---- which coding a text needs

TEST_F(CodingChoice, OfEveryUnitFollowsTheDefaultAlphabet) {
    u32 gsmUnits = 0;
    for (u32 c = 0; c < ALL_UNITS; c++) {
        const auto unit = static_cast<u16>(c);
        const u32 expected = unit == 0 || reference::defaultCode(unit).has_value() ? 0U : 1U;
        ASSERT_EQ(sms_IsUnicode(unit), expected) << std::hex << c;
        gsmUnits += 1 - expected;
    }
    EXPECT_EQ(gsmUnits, 129U); // the 128 entries and the zero unit
}

TEST_F(CodingChoice, ExtensionCharactersGraveAccentAndEuroCountAsUnicode) {
    for (const char16_t unit : u"\u000C^{}\\[~]|`\u20AC") {
        EXPECT_EQ(sms_IsUnicode(static_cast<u16>(unit)), unit == 0 ? 0U : 1U) << std::hex << unit;
    }
}

TEST_F(CodingChoice, SmallCedillaIsGsmAndCapitalCedillaIsNot) {
    EXPECT_EQ(sms_IsUnicode(0x00E7), 0U);
    EXPECT_EQ(sms_IsUnicode(0x00C7), 1U);
}

TEST_F(CodingChoice, NoBreakSpaceIsGsm) { EXPECT_EQ(sms_IsUnicode(0x00A0), 0U); }

TEST_F(CodingChoice, OfATextIsUcs2AsSoonAsOneUnitNeedsIt) {
    static const struct {
        std::u16string_view text;
        u32 coding;
    } CASES[] = {
        {                        u"", ALPHABET_GSM_7BIT},
        {                   u"Hello", ALPHABET_GSM_7BIT},
        {        u"\u0394\u00A0\n\r",                 0},
        {                       u"{",     ALPHABET_UCS2},
        {         u"price: \u20AC 5",                 2},
        {                       u"`",     ALPHABET_UCS2},
        {u"only the last one \u4E2D",                 2},
        {                  u"\u00C7",     ALPHABET_UCS2},
        {              u"\U0001F600",     ALPHABET_UCS2},
        {                  u"\u00E7", ALPHABET_GSM_7BIT},
    };
    for (const auto &c : CASES) {
        const Guarded<u16> text(units(c.text));
        EXPECT_EQ(sms_GetEncodeType(text.get()), c.coding) << reference::utf8(c.text);
    }
}

TEST_F(CodingChoice, OfNullIsGsm) { EXPECT_EQ(sms_GetEncodeType(nullptr), ALPHABET_GSM_7BIT); }

TEST_F(CodingChoice, LooksNoFurtherThanTheZeroUnit) {
    const u16 text[] = {'a', 0, 0x4E2D, 0};
    EXPECT_EQ(sms_GetEncodeType(text), ALPHABET_GSM_7BIT);
}

// ---- one unit to its septet

TEST_F(UnitToSeptet, OfEveryUnitFollowsBothTables) {
    for (u32 c = 0; c < ALL_UNITS; c++) {
        const auto unit = static_cast<u16>(c);
        const auto plain = reference::defaultCode(unit), extended = reference::extensionCode(unit);
        u8 code = UNTOUCHED, extension = UNTOUCHED;
        ASSERT_EQ(sms_UnicodeToGSM(unit, &code, &extension), plain || extended ? 1U : 0U)
            << std::hex << c;
        ASSERT_EQ(code, plain ? *plain : extended.value_or(UNTOUCHED)) << std::hex << c;
        ASSERT_EQ(extension, !plain && extended ? 1 : 0) << std::hex << c;
    }
}

TEST_F(UnitToSeptet, WithoutOneLeavesTheCodeAndClearsTheFlag) {
    u8 code = 0x77, extension = 0x77;
    EXPECT_EQ(sms_UnicodeToGSM(0x20AC, &code, &extension), 0U);
    EXPECT_EQ(code, 0x77);
    EXPECT_EQ(extension, 0);
}

TEST_F(UnitToSeptet, OfTheNoBreakSpaceIsTheEscapeItself) {
    u8 code = 0, extension = 1;
    EXPECT_EQ(sms_UnicodeToGSM(0x00A0, &code, &extension), 1U);
    EXPECT_EQ(code, 0x1B);
    EXPECT_EQ(extension, 0);
}

TEST_F(UnitToSeptet, OfTheZeroUnitIsNone) {
    u8 code = 0x77, extension = 0x77;
    EXPECT_EQ(sms_UnicodeToGSM(0, &code, &extension), 0U);
    EXPECT_EQ(code, 0x77);
}

// ---- text to septets

TEST_F(TextToSeptets, KnownTexts) {
    static const struct {
        std::u16string_view text;
        const char *septets;
    } CASES[] = {
        {              u"Hello", "48 65 6C 6C 6F"},
        {                 u"$@",          "02 00"},
        {                  u"{",             "1B"}, // only the escape, never the code behind it
        {                u"a{b",       "61 1B 62"},
        {             u"\u00A0",             "1B"},
        {                  u"`",             "20"},
        {       u"\u20AC\u4E2D",          "20 20"},
        {       u"\u00E7\u00C7",          "09 20"},
        {u"\u0394_\u03A6\u00DF",    "10 11 12 1E"},
    };
    for (const auto &c : CASES) {
        const Guarded<u16> text(units(c.text));
        Guarded<u8> out(20);
        const u32 length = static_cast<u32>(c.text.size());
        const std::vector<u8> expected = octets(c.septets);
        EXPECT_EQ(sms_WSTRToGSM(text.get(), length, out.get(), 20), expected.size());
        EXPECT_EQ(hex({out.get(), out.get() + expected.size()}), hex(expected));
    }
}

TEST_F(TextToSeptets, ClearsTheWholeOutputFirst) {
    const Guarded<u16> text(units(u"ab"));
    Guarded<u8> out(30);
    ASSERT_EQ(sms_WSTRToGSM(text.get(), 2, out.get(), 30), 2U);
    EXPECT_EQ(std::count(out.get() + 2, out.get() + 30, 0), 28);
}

TEST_F(TextToSeptets, AMappedCharacterNeedsASpareOctetAndAnUnmappableOneDoesNot) {
    static const struct {
        std::u16string_view text;
        u32 capacity, written;
    } CASES[] = {
        { u"a", 0, 0},
        { u"a", 1, 0},
        { u"a", 2, 1},
        { u"`", 0, 0},
        { u"`", 1, 1},
        { u"{", 1, 0},
        { u"{", 2, 1},
        {u"ab", 2, 1},
        {u"ab", 3, 2},
        {u"a`", 2, 2},
        {u"`a", 2, 1},
        {u"``", 2, 2},
    };
    for (const auto &c : CASES) {
        const Guarded<u16> text(units(c.text));
        Guarded<u8> out(c.capacity);
        EXPECT_EQ(sms_WSTRToGSM(text.get(), static_cast<u32>(c.text.size()), out.get(), c.capacity),
                  c.written)
            << reference::utf8(c.text) << " in " << c.capacity;
    }
}

TEST_F(TextToSeptets, ConvertsExactlyTheGivenLength) {
    const u16 text[] = {'a', 0, 'b', 'c'};
    u8 out[10];
    ASSERT_EQ(sms_WSTRToGSM(text, 3, out, sizeof(out)), 3U);
    EXPECT_EQ(hex({out, out + 4}), "61206200"); // the zero unit has no septet: a space
    EXPECT_EQ(sms_WSTRToGSM(text, 0, out, sizeof(out)), 0U);
}

TEST_F(TextToSeptets, AgreesWithTheReferenceForEveryUnit) {
    Guarded<u8> out(2);
    for (u32 c = 0; c < ALL_UNITS; c++) {
        const auto unit = static_cast<u16>(c);
        const auto expected =
            reference::toSeptets({reinterpret_cast<const char16_t *>(&unit), 1}, 2);
        ASSERT_EQ(sms_WSTRToGSM(&unit, 1, out.get(), 2), expected.size()) << std::hex << c;
        ASSERT_EQ(out[0], expected[0]) << std::hex << c;
        ASSERT_EQ(out[1], 0) << std::hex << c;
    }
}

// Units with a preference for those that have a septet.
std::u16string mixedText(Random &random, std::size_t length) {
    std::u16string text;
    while (text.size() < length) {
        const u32 draw = random.bits();
        const auto plain = static_cast<char16_t>(reference::defaultAlphabet()[draw % 128]);
        text += draw % 4096 < 3500 ? plain : static_cast<char16_t>(draw >> 16);
    }
    return text;
}

TEST_F(TextToSeptets, AgreesWithTheReferenceAtEveryCapacity) {
    Random random(20131);
    const std::u16string text = mixedText(random, 40);
    const std::vector<u16> source = units(text);
    for (u32 capacity = 0; capacity <= 42; capacity++) {
        const auto expected = reference::toSeptets(text, capacity);
        Guarded<u8> out(capacity);
        ASSERT_EQ(sms_WSTRToGSM(source.data(), 40, out.get(), capacity), expected.size());
        EXPECT_EQ(hex({out.get(), out.get() + expected.size()}), hex(expected)) << capacity;
    }
}

// ---- septets to text

std::u16string decodeSeptets(const std::vector<u8> &septets, u32 count, u32 capacity) {
    const GuardedBytes source = againstGuardPage(septets);
    Guarded<u16> out(capacity);
    const i32 written = sms_GSMToWSTR(source.data(), count, out.get(), capacity);
    EXPECT_GE(written, 0);
    for (u32 i = static_cast<u32>(written); i < capacity; i++) { EXPECT_EQ(out[i], 0) << i; }
    return {out.get(), out.get() + written};
}

TEST_P(KnownSeptets, AreTheirText) {
    const std::vector<u8> septets = v().octets("septets");
    const std::u16string text = decodeSeptets(septets, static_cast<u32>(septets.size()), 20);
    EXPECT_EQ(reference::utf8(text), v().text("text"));
}
SMSPB_VECTORS(KnownSeptets, "septets.txt");

TEST_F(SeptetsToText, TheExtensionOfALineFeedIsAFormFeed) {
    EXPECT_EQ(decodeSeptets(octets("1B 0A"), 2, 5), u"\u000C");
}

TEST_F(SeptetsToText, AgreesWithTheReferenceForEveryOctet) {
    for (unsigned octet = 0; octet < 256; octet++) {
        const std::vector<u8> septets = {static_cast<u8>(octet), 0};
        ASSERT_EQ(decodeSeptets(septets, 1, 1), reference::fromSeptets(septets, 1, 1)) << octet;
    }
}

TEST_F(SeptetsToText, AgreesWithTheReferenceForEveryOctetBehindAnEscape) {
    for (unsigned octet = 0; octet < 256; octet++) {
        const std::vector<u8> septets = {0x1B, static_cast<u8>(octet), 0x61, 0};
        ASSERT_EQ(decodeSeptets(septets, 3, 4), reference::fromSeptets(septets, 3, 4)) << octet;
    }
}

TEST_F(SeptetsToText, AnEscapeAsTheLastOctetTakesTheOneBehindTheCount) {
    EXPECT_EQ(decodeSeptets(octets("61 1B 28"), 2, 5), u"a{");
    EXPECT_EQ(decodeSeptets(octets("61 1B 00"), 2, 5), u"a\u00A0");
}

TEST_F(SeptetsToText, StopsAtTheCapacity) {
    EXPECT_EQ(decodeSeptets(octets("61 62 63 64"), 4, 0), u"");
    EXPECT_EQ(decodeSeptets(octets("61 62 63 64"), 4, 3), u"abc");
    EXPECT_EQ(decodeSeptets(octets("61 1B 28 64"), 4, 2), u"a{");
    EXPECT_EQ(decodeSeptets(octets("61 62 63 64"), 4, 9), u"abcd");
}

TEST_F(SeptetsToText, OfNothingClearsTheOutput) {
    EXPECT_EQ(decodeSeptets(octets("61"), 0, 6), u"");
}

TEST_F(SeptetsToText, AgreesWithTheReferenceForRandomOctetsAtEveryCapacity) {
    Random random(20132);
    for (u32 round = 0; round < 60; round++) {
        std::vector<u8> septets(31);
        for (u8 &septet : septets) {
            const u32 draw = random.bits();
            septet = static_cast<u8>(draw % 5 == 0 ? 0x1BU : draw >> 8);
        }
        const u32 capacity = round % 35;
        ASSERT_EQ(decodeSeptets(septets, 30, capacity),
                  reference::fromSeptets(septets, 30, capacity))
            << hex(septets);
    }
}

// ---- network order

TEST_F(NetworkOrder, CopiesTheTextAndTheUnitBehindItUnchanged) {
    const Guarded<u16> source(std::vector<u16>{0x0102, 0xFF00, 0x4E2D, 0x0000});
    Guarded<u16> out(5);
    sms_FromUnicodeNetwork(source.get(), 3, out.get());
    EXPECT_EQ(std::vector<u16>(out.get(), out.get() + 5),
              (std::vector<u16>{0x0102, 0xFF00, 0x4E2D, 0x0000, UNTOUCHED_UNIT}));
}

TEST_F(NetworkOrder, TheUnitBehindTheTextNeedNotBeZero) {
    const Guarded<u16> source(std::vector<u16>{0x0061, 0x0062});
    Guarded<u16> out(2);
    sms_FromUnicodeNetwork(source.get(), 1, out.get());
    EXPECT_EQ(out[1], 0x0062);
}

TEST_F(NetworkOrder, CopiesNothingOfAnEmptyText) {
    const Guarded<u16> source(std::vector<u16>{0x0061});
    Guarded<u16> out(1);
    sms_FromUnicodeNetwork(source.get(), 0, out.get());
    EXPECT_EQ(out[0], UNTOUCHED_UNIT);
}

TEST_F(NetworkOrder, WritesTheHighOctetFirstAndNoTerminator) {
    const Guarded<u16> source(std::vector<u16>{0x0102, 0xFF00, 0x4E2D});
    Guarded<u8> out(7);
    sms_ToUnicodeNetwork(source.get(), 3, out.get());
    EXPECT_EQ(hex({out.get(), out.get() + 7}), "0102FF004E2DA5");
}

TEST_F(NetworkOrder, WritesNothingOfAnEmptyText) {
    const Guarded<u16> source(std::vector<u16>{0x0061});
    Guarded<u8> out(2);
    sms_ToUnicodeNetwork(source.get(), 0, out.get());
    EXPECT_EQ(hex({out.get(), out.get() + 2}), "A5A5");
}

// ---- UCS-2 to UTF-8

struct Utf8Unit {
    std::string octets; // as the library writes them
    i32 tooSmall;       // the error when they do not fit
    u32 needed;         // the capacity that must lie behind what is written, by the check
};

// The surrogates, first and last excepted, give two octets by an arithmetic of their own and need
// room for four.
Utf8Unit utf8UnitOf(u16 unit) {
    if (unit >= 0xD801 && unit < 0xDFFF) {
        const unsigned w = unit / 64 % 16 + 1;
        std::string two(1, static_cast<char>(0xF0 + w / 4));
        two += static_cast<char>(0x80 | w % 4 | unit % 64 / 4);
        return {two, -3, 4};
    }
    const std::string octets = reference::utf8(unit);
    const auto count = static_cast<u32>(octets.size());
    return {octets, count == 3 ? -4 : -static_cast<i32>(count), count};
}

TEST_F(UnicodeToUtf8, OfEveryUnitAtTheCapacityThatFitsAndTheOneThatDoesNot) {
    Guarded<u8> out(5);
    for (u32 c = 0; c < ALL_UNITS; c++) {
        const auto unit = static_cast<u16>(c);
        const Utf8Unit expected = utf8UnitOf(unit);
        ASSERT_EQ(UnicodeToUTF8(&unit, 1, out.get(), expected.needed + 1),
                  static_cast<i32>(expected.octets.size()))
            << std::hex << c;
        const std::vector<u8> written = octetsOf(expected.octets + '\0');
        ASSERT_TRUE(std::equal(written.begin(), written.end(), out.get()))
            << std::hex << c << ": " << hex({out.get(), out.get() + written.size()});
        ASSERT_EQ(UnicodeToUTF8(&unit, 1, out.get(), expected.needed), expected.tooSmall)
            << std::hex << c;
    }
}

std::vector<u16> unitsOf(const std::vector<u8> &octetPairs) {
    std::vector<u16> result;
    for (std::size_t i = 0; i < octetPairs.size(); i += 2) {
        result.push_back(static_cast<u16>(octetPairs[i] << 8 | octetPairs[i + 1]));
    }
    return result;
}

TEST_P(KnownUnits, AreTheirOctets) {
    const std::vector<u16> source = unitsOf(v().octets("units"));
    const Guarded<u16> text(source);
    const Guarded<u8> out(v().number("capacity"));
    EXPECT_EQ(UnicodeToUTF8(text.get(), static_cast<u32>(source.size()), out.get(),
                            static_cast<u32>(out.size())),
              std::stoi(v().text("result")));
    if (!v().has("octets")) { return; }
    const std::vector<u8> expected = v().octets("octets");
    EXPECT_EQ(hex({out.get(), out.get() + expected.size()}), hex(expected));
}
SMSPB_VECTORS(KnownUnits, "utf8.txt");

TEST_F(UnicodeToUtf8, OfNothingIsTheZeroOctet) {
    const Guarded<u16> text(units(u""));
    Guarded<u8> out(1);
    EXPECT_EQ(UnicodeToUTF8(text.get(), 0, out.get(), 1), 0);
    EXPECT_EQ(out[0], 0);
}

TEST_F(UnicodeToUtf8, OfNothingInNoRoomWritesNothing) {
    const Guarded<u16> text(units(u""));
    const Guarded<u8> out(0);
    EXPECT_EQ(UnicodeToUTF8(text.get(), 0, out.get(), 0), 0);
}

TEST_F(UnicodeToUtf8, FailsWithTheCodeOfTheFirstCharacterThatDoesNotFit) {
    const Guarded<u16> text(std::vector<u16>{'a', 0x00E9, 0x20AC, 0xD83D, 'b'});
    static const i32 RESULTS[] = {-1, -1, -2, -2, -4, -4, -4, -3, -3, -3, -3, 9, 9};
    for (u32 capacity = 0; capacity < std::size(RESULTS); capacity++) {
        Guarded<u8> out(capacity);
        EXPECT_EQ(UnicodeToUTF8(text.get(), 5, out.get(), capacity), RESULTS[capacity]) << capacity;
    }
}

// ---- UTF-8 to UCS-2

TEST_F(Utf8ToUnicode, OfEveryUnitGivesTheUnitBack) {
    Guarded<u16> out(2);
    for (u32 c = 0; c < ALL_UNITS; c++) {
        const std::vector<u8> source = octetsOf(reference::utf8(static_cast<u16>(c)));
        ASSERT_EQ(UTF8ToUnicode(source.data(), static_cast<u32>(source.size()), out.get(), 2), 1)
            << std::hex << c;
        ASSERT_EQ(out[0], c) << std::hex << c;
        ASSERT_EQ(out[1], 0) << std::hex << c;
    }
}

// One step of the decoder; 0 octets when the sequence is cut short.
struct Utf8Step {
    u32 octets;
    u16 unit;
};

Utf8Step stepAt(const std::vector<u8> &source, std::size_t i) {
    const unsigned lead = source[i];
    if (lead < 0xC0) { return {1, static_cast<u16>(lead)}; }
    if (lead < 0xE0) {
        if (i + 1 >= source.size()) { return {0, 0}; }
        return {2, static_cast<u16>((lead & 0x3F) << 6 | (source[i + 1] & 0x7FU))};
    }
    if (i + 2 >= source.size()) { return {0, 0}; }
    const unsigned unit =
        (lead << 12 & 0xFFFF) | (source[i + 1] & 0x3FU) << 6 | (source[i + 2] & 0x3FU);
    return {3, static_cast<u16>(unit)};
}

struct Utf8Decoded {
    std::u16string text;
    bool complete;
};

Utf8Decoded utf8Reference(const std::vector<u8> &source, std::size_t capacity) {
    Utf8Decoded decoded{{}, true};
    for (std::size_t i = 0; i < source.size();) {
        const Utf8Step step = stepAt(source, i);
        if (step.octets == 0 || decoded.text.size() + 1 >= capacity) {
            decoded.complete = false;
            break;
        }
        decoded.text += static_cast<char16_t>(step.unit);
        i += step.octets;
    }
    return decoded;
}

void expectAsReference(const std::vector<u8> &source, u32 capacity) {
    const Utf8Decoded expected = utf8Reference(source, capacity);
    const std::u16string &text = expected.text;
    const GuardedBytes guarded = againstGuardPage(source);
    Guarded<u16> out(capacity);
    EXPECT_EQ(UTF8ToUnicode(guarded.data(), static_cast<u32>(source.size()), out.get(), capacity),
              expected.complete ? static_cast<i32>(text.size()) : 0)
        << hex(source) << " in " << capacity;
    EXPECT_EQ(std::u16string(out.get(), out.get() + text.size()), text) << hex(source);
    if (text.size() < capacity) { // the zero unit behind a success, nothing behind a failure
        EXPECT_EQ(out[text.size()], expected.complete ? 0 : UNTOUCHED_UNIT) << hex(source);
    }
}

TEST_F(Utf8ToUnicode, OfEverySequenceOfTwoOctetsBehindATwoOctetLead) {
    Guarded<u16> out(3);
    for (unsigned lead = 0xC0; lead < 0xE0; lead++) {
        for (unsigned next = 0; next < 256; next++) {
            const std::vector<u8> source = {static_cast<u8>(lead), static_cast<u8>(next)};
            ASSERT_EQ(UTF8ToUnicode(source.data(), 2, out.get(), 3), 1);
            ASSERT_EQ(out[0], stepAt(source, 0).unit) << hex(source);
        }
    }
}

TEST_F(Utf8ToUnicode, KnownSequences) {
    static const struct {
        const char *octets;
        i32 result;
        std::vector<u16> units;
    } CASES[] = {
        {         "41", 1,              {'A', 0}},
        {      "C3 A9", 1,           {0x00E9, 0}},
        {   "E2 82 AC", 1,           {0x20AC, 0}},
        {      "80 BF", 2,       {0x80, 0xBF, 0}}, // stray continuation octets stay as they are
        {"F0 9F 98 80", 2,     {0x07D8, 0x80, 0}}, // a lead of four octets is read as one of three
        {   "FF BF BF", 1,           {0xFFFF, 0}},
        {      "C3 E9", 1,           {0x00E9, 0}}, // only the top bit of the second is cleared
        {      "00 41", 2,           {0, 'A', 0}},
        {      "41 C3", 0, {'A', UNTOUCHED_UNIT}}, // cut short: what came before stays
        {   "41 E2 82", 0, {'A', UNTOUCHED_UNIT}},
        {         "E2", 0,      {UNTOUCHED_UNIT}},
    };
    for (const auto &c : CASES) {
        const GuardedBytes source = againstGuardPage(octets(c.octets));
        Guarded<u16> out(8);
        EXPECT_EQ(UTF8ToUnicode(source.data(), static_cast<u32>(source.size()), out.get(), 8),
                  c.result)
            << c.octets;
        EXPECT_EQ(std::vector<u16>(out.get(), out.get() + c.units.size()), c.units) << c.octets;
    }
}

TEST_F(Utf8ToUnicode, NeedsAUnitToSpareBehindEachCharacter) {
    const std::vector<u8> source = octetsOf("a\xC3\xA9\xE2\x82\xAC");
    for (u32 capacity = 1; capacity <= 5; capacity++) { expectAsReference(source, capacity); }
}

TEST_F(Utf8ToUnicode, OfNothingIsTheZeroUnit) {
    const GuardedBytes source = againstGuardPage({});
    Guarded<u16> out(1);
    EXPECT_EQ(UTF8ToUnicode(source.data(), 0, out.get(), 1), 0);
    EXPECT_EQ(out[0], 0);
}

TEST_F(Utf8ToUnicode, InNoRoomWritesNothing) {
    const Guarded<u16> out(0);
    const u8 source[] = {'a'};
    EXPECT_EQ(UTF8ToUnicode(source, 0, out.get(), 0), 0);
    EXPECT_EQ(UTF8ToUnicode(source, 1, out.get(), 0), 0);
}

TEST_F(Utf8ToUnicode, AgreesWithTheReferenceForRandomOctets) {
    Random random(20133);
    for (u32 round = 0; round < 1500; round++) {
        const std::vector<u8> source = random.octets(random.below(12));
        expectAsReference(source, random.between(1, 12));
    }
}

// ---- UTF-8 into the static buffer

TEST_F(Utf8LeadOctet, ClassOfEveryOctet) {
    for (unsigned octet = 0; octet < 256; octet++) {
        int expected = -1;
        if (octet >= 0x01 && octet <= 0x7F) { expected = 0; }
        if (octet >= 0xC0 && octet <= 0xDF) { expected = 2; }
        if (octet >= 0xE0 && octet <= 0xEF) { expected = 3; }
        if (octet >= 0xF0 && octet <= 0xF7) { expected = 4; }
        if (octet >= 0xF8 && octet <= 0xFB) { expected = 5; }
        if (octet >= 0xFC && octet <= 0xFD) { expected = 6; }
        EXPECT_EQ(getCntBits(static_cast<u8>(octet)), expected) << std::hex << octet;
    }
}

std::u16string toStaticBuffer(const std::vector<u8> &source) {
    const GuardedBytes guarded = againstGuardPage(source);
    const u16 *text = UTF2Uni(guarded.data(), static_cast<u32>(source.size()));
    return {text, text + sms_wstrlen(text)};
}

TEST_F(Utf8ToStaticBuffer, KnownSequences) {
    static const struct {
        const char *octets;
        std::u16string_view text;
    } CASES[] = {
        {                    "",             u""},
        {               "48 69",           u"Hi"},
        {               "80 41",            u"A"}, // stray continuation octets vanish
        {      "00 41 FE FF 42",           u"AB"}, // so do 00, FE and FF
        {      "C3 A9 E2 82 AC", u"\u00E9\u20AC"},
        {      "F0 9F 98 80 41",      u"\uF600A"}, // U+1F600 cut to 16 bits
        {   "F8 88 80 80 80 42",            u"B"}, // 5 octets whose low 16 bits are 0: see below
        {"FC 84 80 80 84 83 43",      u"\u0103C"},
        {            "C3 41 42",      u"\u00C1B"}, // a continuation octet is not checked
        {               "41 C3",            u"A"}, // a sequence that is cut short ends the text
        {            "41 E2 82",            u"A"},
        {         "41 F0 9F 98",            u"A"},
        {   "41 FD BF BF BF BF",            u"A"},
        {               "E2 41",             u""},
    };
    for (const auto &c : CASES) {
        const std::vector<u8> source = octets(c.octets);
        if (source.size() == 6 && source[0] == 0xF8) { continue; }
        EXPECT_EQ(reference::utf8(toStaticBuffer(source)), reference::utf8(c.text)) << c.octets;
    }
}

TEST_F(Utf8ToStaticBuffer, ASequenceThatCutsToZeroIsAZeroUnit) {
    const std::vector<u8> source = octets("F8 88 80 80 80 42");
    const u16 *text = UTF2Uni(source.data(), 6);
    EXPECT_EQ(text[0], 0);
    EXPECT_EQ(text[1], 'B');
    EXPECT_EQ(logMessagesOf("UTF2Uni"), std::vector<std::string>{"unic count=2\n\n"});
}

TEST_F(Utf8ToStaticBuffer, OfEveryUnitGivesTheUnitBack) {
    constexpr u32 AT_ONCE = 1000;
    for (u32 first = 1; first < ALL_UNITS; first += AT_ONCE) {
        std::string source;
        const u32 last = std::min(first + AT_ONCE, ALL_UNITS);
        for (u32 c = first; c < last; c++) { source += reference::utf8(static_cast<u16>(c)); }
        const std::vector<u8> octetSource = octetsOf(source);
        const u16 *text = UTF2Uni(octetSource.data(), static_cast<u32>(octetSource.size()));
        for (u32 c = first; c < last; c++) { ASSERT_EQ(text[c - first], c) << std::hex << c; }
        ASSERT_EQ(text[last - first], 0);
    }
}

TEST_F(Utf8ToStaticBuffer, LogsTheUnitCountWithAnEmptyLineBehindIt) {
    const std::vector<u8> source = octets("80 41");
    const u16 *text = UTF2Uni(source.data(), 2);
    EXPECT_EQ(text[0], 'A');
    EXPECT_EQ(text[1], 0);
    EXPECT_EQ(logMessagesOf("UTF2Uni"), std::vector<std::string>{"unic count=1\n\n"});
    EXPECT_EQ(logMessagesIn("atlib/SmsUtils.cpp").size(), 1U);
}

TEST_F(Utf8ToStaticBuffer, StopsAfter1023Units) {
    const u16 *text = UTF2Uni(std::vector<u8>(1023, 'x').data(), 1023);
    EXPECT_EQ(sms_wstrlen(text), 1023U);
    text = UTF2Uni(std::vector<u8>(5000, 'y').data(), 5000);
    EXPECT_EQ(sms_wstrlen(text), 1023U);
    EXPECT_EQ(logMessagesOf("UTF2Uni"),
              (std::vector<std::string>{"unic count=1023\n\n", "unic count=1023\n\n"}));
}

TEST_F(Utf8ToStaticBuffer, ReturnsTheSameBufferClearedBeforeEachCall) {
    const u16 *first = UTF2Uni(std::vector<u8>(900, 'x').data(), 900);
    const u16 *second = UTF2Uni(std::vector<u8>(2, 'y').data(), 2);
    EXPECT_EQ(first, second);
    EXPECT_EQ(second[0], 'y');
    EXPECT_EQ(std::count(second + 2, second + 1024, 0), 1022);
}

std::u16string staticBufferReference(const std::vector<u8> &source) {
    std::u16string text;
    for (std::size_t i = 0; i < source.size() && text.size() < 1023;) {
        unsigned ones = 0;
        while (ones < 8 && (source[i] << ones & 0x80) != 0) { ones++; }
        if (source[i] == 0 || ones == 1 || ones > 6) {
            i++;
            continue;
        }
        const std::size_t count = ones == 0 ? 1 : ones;
        if (i + count > source.size()) { break; }
        u32 value = ones == 0 ? source[i] : source[i] & ((1U << (7 - ones)) - 1);
        for (std::size_t k = 1; k < count; k++) { value = value << 6 | (source[i + k] & 0x3FU); }
        text += static_cast<char16_t>(value & 0xFFFF);
        i += count;
    }
    return text;
}

TEST_F(Utf8ToStaticBuffer, AgreesWithTheReferenceForRandomOctets) {
    Random random(20134);
    for (u32 round = 0; round < 400; round++) {
        const std::vector<u8> source = random.octets(round < 395 ? random.below(40) : 4000);
        const std::u16string expected = staticBufferReference(source);
        const GuardedBytes guarded = againstGuardPage(source);
        const u16 *text = UTF2Uni(guarded.data(), static_cast<u32>(source.size()));
        ASSERT_EQ(std::u16string(text, text + expected.size()), expected) << hex(source);
        ASSERT_EQ(text[expected.size()], 0) << hex(source);
    }
}

} // namespace
