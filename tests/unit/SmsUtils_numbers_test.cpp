// Number, address and time helpers.
#include "atlib/SmsUtils.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "support/library_test.h"

using namespace support;

namespace {

constexpr u8 DECIMAL = 0, HEXADECIMAL = 1;

class TextToNumber : public LibraryTest {};
class NumberToText : public LibraryTest {};
class Trimming : public LibraryTest {};
class DigitValues : public LibraryTest {};
class BcdOctet : public LibraryTest {};
class DialCharacter : public LibraryTest {};
class TypedNumber : public LibraryVectorTest {};
class TypedNumberRecord : public LibraryTest {};
class DialledNumber : public LibraryVectorTest {};
class DialledNumberRecord : public LibraryTest {};
class KnownAddress : public LibraryVectorTest {};
class AddressText : public LibraryTest {};
class AddressWideText : public LibraryTest {};
class Narrowing : public LibraryTest {};
class Widening : public LibraryTest {};
class CalendarTime : public LibraryTest {};
class TimeStamp : public LibraryTest {};

std::vector<u8> digitsOf(const SmsAddress &address) {
    const std::size_t count = std::min<std::size_t>(address.number_of_digits, 36);
    return {address.digits, address.digits + count};
}

// ---- text to number

TEST_F(TextToNumber, KnownTexts) {
    static const struct Case {
        const char *text;
        u8 base;
        u32 value;
    } CASES[] = {
        Case{       "0",     DECIMAL,                      0},
        Case{       "7",     DECIMAL,                      7},
        Case{"00000042",     DECIMAL,                     42},
        Case{"99999999",     DECIMAL,               99999999},
        Case{        "",     DECIMAL,                      0},
        Case{        "", HEXADECIMAL,                      0},
        Case{      "91", HEXADECIMAL,                   0x91},
        Case{      "ff", HEXADECIMAL,                    255},
        Case{      "aF", HEXADECIMAL,                   0xAF},
        Case{"FFFFFFFF", HEXADECIMAL,             0xFFFFFFFF},
 // digits are not checked against the base
        Case{      "1A",     DECIMAL,                     20},
        Case{       "A",     DECIMAL,                     10},
        Case{       "z",     DECIMAL,                     35},
        Case{      "G0", HEXADECIMAL,                    256},
        Case{      "Zz", HEXADECIMAL,           35 * 16 + 35},
 // codes behind the letters count on
        Case{       "[", HEXADECIMAL,                     36},
        Case{       "`", HEXADECIMAL,                     41},
        Case{       "{", HEXADECIMAL,            0x7B - 0x37},
        Case{      "~1",     DECIMAL, (0x7E - 0x37) * 10 + 1},
    };
    for (const auto &c : CASES) {
        u32 value = 77;
        EXPECT_EQ(sms_utils_atoi(guardedText(c.text).get(), &value, c.base), 1) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
}

TEST_F(TextToNumber, RefusesOtherCharactersAndNineOfThemAndStoresNothing) {
    for (const char *text : {"-1", "1-", "+1", " 1", "1 ", "1.5", "0x,", "@", "4@", "1\n", ":", "#",
                             "000000001", "123456789", "FFFFFFFFF", "1234567890123456789"}) {
        for (const u8 base : {DECIMAL, HEXADECIMAL}) {
            u32 value = 77;
            EXPECT_EQ(sms_utils_atoi(guardedText(text).get(), &value, base), 0) << text;
            EXPECT_EQ(value, 77U) << text;
        }
    }
}

TEST_F(TextToNumber, ValueOfEverySingleCharacter) {
    for (unsigned c = 1; c < 256; c++) {
        const char text[] = {static_cast<char>(c), '\0'};
        u32 value = 77;
        const bool digit = c >= '0' && c <= '9';
        const bool accepted = digit || c >= 0x41;
        EXPECT_EQ(sms_utils_atoi(text, &value, HEXADECIMAL), accepted ? 1 : 0) << c;
        const bool lower = c >= 'a' && c <= 'z';
        const u32 counts = digit ? c - '0' : lower ? c - 0x57 : c - 0x37;
        EXPECT_EQ(value, accepted ? counts : 77U) << c;
    }
}

TEST_F(TextToNumber, AnyNonzeroFlagMeansHexadecimal) {
    u32 value = 0;
    EXPECT_EQ(sms_utils_atoi("10", &value, 0x80), 1);
    EXPECT_EQ(value, 16U);
}

// ---- number to text

TEST_F(NumberToText, KnownNumbers) {
    static const struct {
        u32 value;
        u8 base;
        const char *text;
    } CASES[] = {
        {          0,     DECIMAL,          "0"},
        {          0, HEXADECIMAL,          "0"},
        {          9,     DECIMAL,          "9"},
        {         10,     DECIMAL,         "10"},
        {         10, HEXADECIMAL,          "A"},
        {         15, HEXADECIMAL,          "F"},
        {         16, HEXADECIMAL,         "10"},
        {        255, HEXADECIMAL,         "FF"},
        {   0xABCDEF, HEXADECIMAL,     "ABCDEF"},
        {4294967295U,     DECIMAL, "4294967295"},
        {4294967295U, HEXADECIMAL,   "FFFFFFFF"},
        { 1000000000,     DECIMAL, "1000000000"},
    };
    for (const auto &c : CASES) {
        Guarded<char> out(std::strlen(c.text) + 1);
        EXPECT_EQ(sms_utils_itoa(c.value, out.get(), c.base), out.get() + std::strlen(c.text));
        EXPECT_STREQ(out.get(), c.text);
    }
}

TEST_F(NumberToText, AppendsBehindThePlaceItReturned) {
    char out[16];
    sms_utils_itoa(255, sms_utils_itoa(16, out, HEXADECIMAL), HEXADECIMAL);
    EXPECT_STREQ(out, "10FF");
}

// ---- trimming

TEST_F(Trimming, DropsTheBlanksTheLastCharacterAndTheTerminator) {
    static const struct {
        const char *text, *copied;
        u8 result;
    } CASES[] = {
        {"  abc  ",   "ab", 1},
        {    "abc",   "ab", 0},
        {   " abc",   "ab", 1},
        {   "abc ",   "ab", 1},
        {      "a",     "", 0},
        {    " a ",     "", 1},
        {    "a b",   "a ", 0},
        { " a  b ",  "a  ", 1},
        { "\tab\t", "\tab", 0},
        {  "\n ab", "\n a", 0},
    };
    for (const auto &c : CASES) {
        const std::string copied = c.copied;
        Guarded<char> out(copied.size());
        EXPECT_EQ(sms_str_trim(guardedText(c.text).get(), out.get()), c.result) << c.text;
        EXPECT_EQ(std::string(out.get(), copied.size()), copied) << c.text;
    }
}

TEST_F(Trimming, WritesNothingBehindTheCopy) {
    Guarded<char> out(5);
    sms_str_trim("  abc  ", out.get());
    EXPECT_EQ(std::string(out.get() + 2, 3), "\xA5\xA5\xA5");
}

TEST_F(Trimming, OfAnEmptyOrBlankTextCopiesNothing) {
    const Guarded<char> out(0);
    EXPECT_EQ(sms_str_trim(guardedText("").get(), out.get()), 0);
    EXPECT_EQ(sms_str_trim(guardedText("   ").get(), out.get()), 1);
}

// ---- digit values

TEST_F(DigitValues, OfEveryCharacter) {
    std::vector<u8> chars(256), expected(256);
    std::iota(chars.begin(), chars.end(), u8{0});
    for (unsigned c = 0; c < 256; c++) { expected[c] = static_cast<u8>(c - 0x30); }
    expected['#'] = 11;
    expected['*'] = 10;
    Guarded<u8> out(255);
    sms_ascii_to_bcd(chars.data(), 255, out.get());
    EXPECT_EQ(hex({out.get(), out.get() + 255}), hex({expected.begin(), expected.end() - 1}));
    sms_ascii_to_bcd(chars.data() + 255, 1, out.get());
    EXPECT_EQ(out[0], expected[255]);
    EXPECT_EQ(expected['P'], 0x20); // no validation
}

TEST_F(DigitValues, CharacterOfTheLowNibble) {
    for (unsigned octet = 0; octet < 256; octet++) {
        const u8 digit = static_cast<u8>(octet);
        u8 character = 0;
        sms_bcd_to_ascii(&digit, 1, &character);
        EXPECT_EQ(character, "0123456789*#abc "[octet % 16]) << octet;
    }
}

TEST_F(DigitValues, ConvertInPlaceBothWaysAndWriteNoTerminator) {
    u8 number[] = {'1', '*', '#', '9', 0xEE};
    sms_ascii_to_bcd(number, 4, number);
    EXPECT_EQ(hex({number, number + 5}), "010A0B09EE");
    sms_bcd_to_ascii(number, 4, number);
    EXPECT_EQ(hex({number, number + 5}), "312A2339EE");
}

TEST_F(DigitValues, OfNothingAreNothing) {
    u8 out = 0xEE;
    const u8 in = '5';
    sms_ascii_to_bcd(&in, 0, &out);
    sms_bcd_to_ascii(&in, 0, &out);
    EXPECT_EQ(out, 0xEE);
}

TEST_F(BcdOctet, OfEveryValue) {
    for (unsigned octet = 0; octet < 256; octet++) {
        const unsigned tens = octet / 16, ones = octet % 16;
        const bool valid = tens < 10 && ones < 10;
        u8 value = 0xEE;
        EXPECT_EQ(wms_bcd_to_int(static_cast<u8>(octet), &value), valid ? 1 : 0) << octet;
        EXPECT_EQ(value, valid ? tens * 10 + ones : 0) << octet;
    }
    EXPECT_TRUE(logMessages().empty()); // unlike the codec's, this one does not log
}

// ---- dial characters

TEST_F(DialCharacter, ClassOfEveryCharacter) {
    std::vector<u8> expected(256, 12);
    const auto set = [&expected](std::string_view characters, u8 which) {
        for (const char c : characters) { expected[static_cast<u8>(c)] = which; }
    };
    expected[0] = 0;
    set("0123456789", 1);
    set("ABCabc", 3);
    set("Dd", 4);
    set("Ee", 5);
    set(";", 7);
    set("*", 8);
    set("#", 9);
    set("+", 10);
    set("W,$TP!@wtp", 11);
    for (unsigned c = 0; c < 256; c++) {
        const char character = static_cast<char>(c);
        EXPECT_EQ(dsatutil_validate_dial_char(&character), expected[c]) << c;
    }
}

TEST_F(DialCharacter, LooksAtOneCharacterOnly) {
    const GuardedBytes character = againstGuardPage({'7'});
    EXPECT_EQ(dsatutil_validate_dial_char(reinterpret_cast<const char *>(character.data())), 1);
}

// ---- numbers with a type of address

TEST_P(TypedNumber, Converts) {
    const std::string number = v().text("number"), type = v().text("type");
    const auto guardedNumber = guardedText(number), guardedType = guardedText(type);
    Guarded<SmsAddress> address(1, Fill::Cleared);
    address->digit_mode = 1;
    address->aux_mode = 0x77;
    const u32 result = v().number("result");
    EXPECT_EQ(wms_str_to_addr(address.get(), guardedNumber.get(),
                              type == "-" ? nullptr : guardedType.get()),
              result);
    EXPECT_EQ(address->digit_mode, 0U);
    EXPECT_EQ(address->aux_mode, 0x77U);
    if (v().has("digits")) { EXPECT_EQ(hex(digitsOf(*address)), hex(v().octets("digits"))); }
    if (result == 1) {
        EXPECT_EQ(address->number_type, v().number("number_type"));
        EXPECT_EQ(address->number_plan, v().number("plan"));
    }
}
SMSPB_VECTORS(TypedNumber, "typed_numbers.txt");

TEST_F(TypedNumberRecord, StaysWithinItselfForAnyLength) {
    for (std::size_t length = 15; length < 60; length++) {
        const auto number = guardedText(std::string(length, '5'));
        Guarded<SmsAddress> address(1, Fill::Cleared);
        EXPECT_EQ(wms_str_to_addr(address.get(), number.get(), "91"), length <= 20 ? 1 : 0)
            << length;
        const auto bad = guardedText(std::string(length, '*'));
        EXPECT_EQ(wms_str_to_addr(address.get(), bad.get(), nullptr), 0) << length;
    }
}

// ---- dialled numbers

TEST_P(DialledNumber, ConvertsFromTextAndFromUcs2Alike) {
    const std::string number = v().text("number");
    const auto narrow = guardedText(number);
    const Guarded<u16> wide(units(std::u16string(number.begin(), number.end())));
    Guarded<SmsAddress> address(1, Fill::Cleared), fromWide(1, Fill::Cleared);
    EXPECT_EQ(wms_number_to_address(narrow.get(), address.get()), 1);
    EXPECT_EQ(sms_WStrNumberToWmsAddress(wide.get(), fromWide.get()), 1);
    const std::string digits = hex(v().octets("digits"));
    const u32 type = v().number("type");
    for (const SmsAddress *a : {address.get(), fromWide.get()}) {
        EXPECT_EQ(a->number_type, type);
        EXPECT_EQ(a->number_plan, PLAN_TELEPHONE);
        EXPECT_EQ(hex(digitsOf(*a)), digits);
    }
}
SMSPB_VECTORS(DialledNumber, "dialled_numbers.txt");

TEST_F(DialledNumberRecord, KeepsTheTypeAndTheModesThatTheCallerSet) {
    SmsAddress address = {};
    address.digit_mode = 11;
    address.aux_mode = 12;
    address.number_type = 2;
    address.number_plan = 9;
    wms_number_to_address("0123", &address);
    EXPECT_EQ(address.digit_mode, 11U);
    EXPECT_EQ(address.aux_mode, 12U);
    EXPECT_EQ(address.number_type, 2U);
    EXPECT_EQ(address.number_plan, 1U);
    wms_number_to_address("+123", &address);
    EXPECT_EQ(address.number_type, 1U);
}

TEST_F(DialledNumberRecord, TakesTheLengthOfTheTextModulo256) {
    // 300 characters count as 44: ten digits, blanks, one digit; what follows is not looked at.
    std::string number = "1234567890" + std::string(33, ' ') + "7" + std::string(256, '9');
    SmsAddress address = {};
    EXPECT_EQ(wms_number_to_address(guardedText(number).get(), &address), 1);
    EXPECT_EQ(hex(digitsOf(address)), "0102030405060708090007");
    number = std::string(256, '9');
    address = {};
    EXPECT_EQ(wms_number_to_address(guardedText(number).get(), &address), 1);
    EXPECT_EQ(address.number_of_digits, 0);
}

TEST_F(DialledNumberRecord, StaysWithinItselfForAnyLength) {
    for (std::size_t length = 0; length < 600; length++) {
        const std::string number = (length % 2 != 0 ? "+" : "5") + std::string(length, '5');
        Guarded<SmsAddress> address(1, Fill::Cleared);
        EXPECT_EQ(wms_number_to_address(guardedText(number).get(), address.get()), 1);
        const Guarded<u16> wide(units(std::u16string(number.begin(), number.end())));
        EXPECT_EQ(sms_WStrNumberToWmsAddress(wide.get(), address.get()), 1);
        EXPECT_LE(address->number_of_digits, 36) << length;
    }
}

TEST_F(DialledNumberRecord, ReadsTheLowOctetOfEachUnit) {
    const u16 number[] = {0x012B, 0xFF31, 0x4E32, 0};
    SmsAddress address = {};
    EXPECT_EQ(sms_WStrNumberToWmsAddress(number, &address), 1);
    EXPECT_EQ(address.number_type, NUMBER_INTERNATIONAL);
    EXPECT_EQ(hex(digitsOf(address)), "0102");
}

// ---- addresses as text

SmsAddress numberAddress(u32 type, const std::vector<u8> &digits) {
    SmsAddress address = {};
    address.number_type = type;
    address.number_plan = PLAN_TELEPHONE;
    address.number_of_digits = static_cast<u8>(digits.size());
    std::copy_n(digits.begin(), std::min<std::size_t>(digits.size(), 36), address.digits);
    return address;
}

// A number field against a guard page: what the address leaves there.
std::u16string wideText(const SmsAddress &address) {
    Guarded<u16> out(21, Fill::Cleared);
    EXPECT_EQ(sms_ConvertAddressToWString(&address, out.get()), 1);
    EXPECT_EQ(out[20], 0);
    return textOf(out.get());
}

TEST_P(KnownAddress, IsItsTextNarrowAndWide) {
    const SmsAddress address = numberAddress(v().number("type"), v().octets("digits"));
    std::string text = v().text("text");
    if (text.size() > 2 && text.substr(text.size() - 2) == "\\s") {
        text.replace(text.size() - 2, 2, " ");
    }
    Guarded<char> out(38, Fill::Cleared);
    EXPECT_EQ(sms_ConvertAddressToString(&address, out.get()), 1);
    EXPECT_EQ(out.get(), text);
    EXPECT_EQ(wideText(address), std::u16string(text.begin(), text.end()));
}
SMSPB_VECTORS(KnownAddress, "address_texts.txt");

TEST_F(AddressText, ClearsFourOctetsAndTerminatesNothingBehindThem) {
    const SmsAddress address = numberAddress(NUMBER_UNKNOWN, octets("01"));
    u8 out[6] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    sms_ConvertAddressToString(&address, reinterpret_cast<char *>(out));
    EXPECT_EQ(hex({out, out + 6}), "31000000EEEE");
    const SmsAddress longer = numberAddress(NUMBER_INTERNATIONAL, octets("01 02 03 04"));
    std::fill_n(out, 6, u8{0xEE});
    sms_ConvertAddressToString(&longer, reinterpret_cast<char *>(out));
    EXPECT_EQ(hex({out, out + 6}), "2B31323334EE");
    const SmsAddress empty = numberAddress(NUMBER_UNKNOWN, {});
    std::fill_n(out, 6, u8{0xEE});
    EXPECT_EQ(sms_ConvertAddressToString(&empty, reinterpret_cast<char *>(out)), 1);
    EXPECT_EQ(hex({out, out + 6}), "00000000EEEE");
}

TEST_F(AddressText, Converts36DigitsAtMost) {
    SmsAddress address = numberAddress(NUMBER_INTERNATIONAL, std::vector<u8>(36, 7));
    address.number_of_digits = 255;
    Guarded<char> out(38, Fill::Cleared);
    EXPECT_EQ(sms_ConvertAddressToString(&address, out.get()), 1);
    EXPECT_EQ(std::string(out.get()), "+" + std::string(36, '7'));
}

TEST_F(AddressWideText, WithoutDigitsLeavesTheOutputAlone) {
    for (const u32 type : {NUMBER_UNKNOWN, NUMBER_INTERNATIONAL, NUMBER_ALPHANUMERIC}) {
        const SmsAddress address = numberAddress(type, {});
        Guarded<u16> out(1);
        EXPECT_EQ(sms_ConvertAddressToWString(&address, out.get()), 1);
        EXPECT_EQ(out[0], 0xA5A5);
    }
}

TEST_F(AddressWideText, IsTerminatedInAFieldThatWasNotCleared) {
    const SmsAddress address = numberAddress(NUMBER_UNKNOWN, octets("01 02 03 04 05"));
    Guarded<u16> out(21);
    sms_ConvertAddressToWString(&address, out.get());
    EXPECT_EQ(textOf(out.get()), u"12345");
}

TEST_F(AddressWideText, TwentyDigitsComeThroughWhole) {
    EXPECT_EQ(wideText(numberAddress(NUMBER_UNKNOWN, std::vector<u8>(20, 7))),
              std::u16string(20, u'7'));
}

TEST_F(AddressWideText, KeepsTwentyUnitsWithThePlusSignAmongThem) {
    EXPECT_EQ(wideText(numberAddress(NUMBER_INTERNATIONAL, std::vector<u8>(19, 7))),
              u"+" + std::u16string(19, u'7'));
    EXPECT_EQ(wideText(numberAddress(NUMBER_INTERNATIONAL, std::vector<u8>(20, 7))),
              u"+" + std::u16string(19, u'7'));
    EXPECT_EQ(wideText(numberAddress(NUMBER_UNKNOWN, std::vector<u8>(36, 7))),
              std::u16string(20, u'7'));
}

TEST_F(AddressWideText, OfAnAlphanumericAddressStaysWithinTheField) {
    for (std::size_t count = 1; count <= 36; count++) {
        EXPECT_EQ(wideText(numberAddress(NUMBER_ALPHANUMERIC, std::vector<u8>(count, 'x'))),
                  std::u16string(std::min<std::size_t>(count, 20), u'x'));
    }
}

// ---- narrow and wide

TEST_F(Narrowing, KeepsTheLowOctetTerminatesAndCounts) {
    const Guarded<u16> text(std::vector<u16>{0x0041, 0x4E42, 0xFFE9, 0x0031, 0});
    Guarded<char> out(5);
    EXPECT_EQ(sms_wstrtostr(text.get(), out.get()), 4U);
    EXPECT_STREQ(out.get(), "AB\xE9"
                            "1");
}

TEST_F(Narrowing, OfNullIsZeroAndLeavesTheOutput) {
    char out[] = "x";
    EXPECT_EQ(sms_wstrtostr(nullptr, out), 0U);
    EXPECT_STREQ(out, "x");
}

TEST_F(Narrowing, OfTheEmptyTextIsTheTerminator) {
    const Guarded<u16> text(units(u""));
    Guarded<char> out(1);
    EXPECT_EQ(sms_wstrtostr(text.get(), out.get()), 0U);
    EXPECT_EQ(out[0], '\0');
}

TEST_F(Widening, ExtendsTheSignOfEveryOctet) {
    for (unsigned c = 1; c < 256; c++) {
        const char text[] = {static_cast<char>(c), '\0'};
        u16 out[2] = {0xEEEE, 0xEEEE};
        EXPECT_EQ(sms_strtowstr(text, out), 1U);
        EXPECT_EQ(out[0], c < 0x80 ? c : 0xFF00 + c) << c;
        EXPECT_EQ(out[1], 0);
    }
}

TEST_F(Widening, TerminatesAndCounts) {
    Guarded<u16> out(6);
    EXPECT_EQ(sms_strtowstr(guardedText("Hello").get(), out.get()), 5U);
    EXPECT_EQ(textOf(out.get()), u"Hello");
}

TEST_F(Widening, OfNullIsZeroAndLeavesTheOutput) {
    u16 out = 0xEEEE;
    EXPECT_EQ(sms_strtowstr(nullptr, &out), 0U);
    EXPECT_EQ(out, 0xEEEE);
}

// ---- times

TEST_F(CalendarTime, KnownTimeStamps) {
    static const struct {
        SmsTimestamp stamp;
        u16 year;
        u8 month, day, hour, minute, second, result;
    } CASES[] = {
        { {0x09, 0x12, 0x31, 0x23, 0x59, 0x59, 0}, 2009, 12, 31, 23, 59, 59, 1},
        {{0x85, 0x01, 0x02, 0x03, 0x04, 0x05, -8}, 1985,  1,  2,  3,  4,  5, 1},
        {{0x79, 0x06, 0x15, 0x00, 0x00, 0x00, 48}, 2079,  6, 15,  0,  0,  0, 1},
        { {0x80, 0x06, 0x15, 0x00, 0x00, 0x00, 0}, 1980,  6, 15,  0,  0,  0, 1},
        { {0x99, 0x06, 0x15, 0x00, 0x00, 0x00, 0}, 1999,  6, 15,  0,  0,  0, 1},
        { {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0}, 2000,  0,  0,  0,  0,  0, 1},
        { {0x13, 0x1A, 0xA1, 0xFF, 0x0B, 0x59, 0}, 2013,  0,  0,  0,  0, 59, 1},
        { {0x13, 0x05, 0x07, 0x09, 0x03, 0x6A, 0}, 2013,  5,  7,  9,  3,  0, 0},
        { {0x13, 0x99, 0x99, 0x99, 0x99, 0x99, 0}, 2013, 99, 99, 99, 99, 99, 1}, // no range check
    };
    for (const auto &c : CASES) {
        Guarded<SmsCalendarTime> time;
        EXPECT_EQ(wms_Timestamp_to_JulianType(&c.stamp, time.get()), c.result);
        EXPECT_EQ(time->year, c.year);
        EXPECT_EQ(time->month, c.month);
        EXPECT_EQ(time->day, c.day);
        EXPECT_EQ(time->hour, c.hour);
        EXPECT_EQ(time->minute, c.minute);
        EXPECT_EQ(time->second, c.second);
    }
}

TEST_F(CalendarTime, CenturyOfEveryYearOctet) {
    for (unsigned octet = 0; octet < 256; octet++) {
        SmsTimestamp stamp = {};
        stamp.year = static_cast<u8>(octet);
        SmsCalendarTime time;
        wms_Timestamp_to_JulianType(&stamp, &time);
        const bool valid = octet / 16 < 10 && octet % 16 < 10;
        const unsigned years = valid ? octet / 16 * 10 + octet % 16 : 0;
        EXPECT_EQ(time.year, (octet < 0x80 || octet >= 0x9A ? 2000 : 1900) + years) << octet;
    }
}

TEST_F(TimeStamp, OfCalendarTimes) {
    static const struct {
        SmsCalendarTime time;
        const char *octets;
        u8 result;
    } CASES[] = {
        {{2009, 12, 31, 23, 59, 59}, "09 12 31 23 59 59", 0x59},
        {     {1985, 1, 2, 3, 4, 5}, "85 01 02 03 04 05", 0x05},
        {     {2000, 0, 0, 0, 0, 0}, "00 00 00 00 00 00", 0x00},
        {{1999, 10, 20, 11, 30, 40}, "99 10 20 11 30 40", 0x40},
        {     {1900, 1, 1, 0, 0, 7}, "00 01 01 00 00 07", 0x07},
        {     {2099, 1, 1, 0, 0, 0}, "99 01 01 00 00 00", 0x00},
        {     {2100, 1, 1, 0, 0, 0}, "A0 01 01 00 00 00", 0x00}, // from 2100 on above 0x99
        {     {2155, 1, 1, 0, 0, 0}, "F5 01 01 00 00 00", 0x00},
        {     {2160, 1, 1, 0, 0, 0}, "00 01 01 00 00 00", 0x00}, // and from 2160 on cut to 8 bits
        {       {13, 1, 1, 0, 0, 0}, "13 01 01 00 00 00", 0x00}, // below 1900 the year itself
        {     {1899, 1, 1, 0, 0, 0}, "D9 01 01 00 00 00", 0x00}, // 189 * 16 + 9, cut
        { {0, 99, 100, 255, 99, 99}, "00 99 A0 95 99 99", 0x99}, // 25 * 16 + 5, cut
    };
    for (const auto &c : CASES) {
        Guarded<SmsTimestamp> stamp;
        stamp->timezone = 0x55;
        EXPECT_EQ(wms_JulianType_to_Timestamp(&c.time, stamp.get()), c.result);
        const std::vector<u8> fields = {stamp->year, stamp->month,  stamp->day,
                                        stamp->hour, stamp->minute, stamp->second};
        EXPECT_EQ(hex(fields), hex(octets(c.octets)));
        EXPECT_EQ(stamp->timezone, 0x55); // left as it was
    }
}

TEST_F(TimeStamp, AndBackForEveryYearFrom1980To2079) {
    for (unsigned year = 1980; year < 2080; year++) {
        const SmsCalendarTime time = {static_cast<u16>(year), 2, 29, 13, 14, 15};
        SmsTimestamp stamp = {};
        SmsCalendarTime back = {};
        wms_JulianType_to_Timestamp(&time, &stamp);
        EXPECT_EQ(wms_Timestamp_to_JulianType(&stamp, &back), 1);
        EXPECT_EQ(back.year, year);
        EXPECT_EQ(back.day, 29);
        EXPECT_EQ(back.second, 15);
    }
}

} // namespace
