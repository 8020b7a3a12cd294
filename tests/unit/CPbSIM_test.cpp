#include "atlib/CPbSIM.h"

#include <cstdlib>
#include <cstring>
#include <optional>

#include "support/library_test.h"
#include "support/phonebook.h"
#include "support/random.h"

using namespace support;

namespace {

const u32 CHARSET_REFUSED = 27, UNREADABLE = 28, NO_ANSWER = 29, NOT_SELECTED = 30, INVALID = 34;
const u32 NO_MEMORY = 30;
const u32 SM = 1, ME = 2;
const std::string OK = "\r\nOK\r\n";
const std::string SELECT_SM = "AT+CPBS=\"SM\"\r";
const std::string SELECT_ME = "AT+CPBS=\"ME\"\r";

using Texts = std::vector<std::string>;

class PhonebookStorage : public LibraryTest {};
class PhonebookCharset : public LibraryTest {};
class PhonebookLine : public LibraryTest {};
class PhonebookLineVector : public LibraryVectorTest {};
class PhonebookHex : public LibraryTest {};

// The replies that acknowledge nothing, whatever error they name.
const char *const REFUSALS[] = {
    "",           "\r\nERROR\r\n", "\r\n+CME ERROR: 10\r\n", "\r\n+CME ERROR: SIM not inserted\r\n",
    "\r\nok\r\n", "\r\nO\r\nK\r\n"};
const char *const ACKNOWLEDGEMENTS[] = {"\r\nOK\r\n", "OK", "\r\nERROR\r\nOK", "NOOK"};

// The hexadecimal text of a name, no two of its first 256 units alike.
std::string nameText(std::size_t units) {
    std::string text;
    for (std::size_t i = 0; i < units; i++) { text += hex({0x04, static_cast<u8>(i + 1)}); }
    return text;
}

} // namespace

SMSPB_VECTORS(PhonebookLineVector, "phonebook_lines.txt");

// SM_InitList

TEST_F(PhonebookStorage, ListIsClearedItemByItem) {
    for (const u32 count : {0U, 1U, 3U}) {
        const Guarded<sm_item_t> items(3);
        EXPECT_EQ(SM_InitList(items.get(), count), 0U);
        for (u32 i = 0; i < 3; i++) {
            sm_item_t expected;
            std::memset(&expected, i < count ? 0 : 0xA5, sizeof(expected));
            EXPECT_TRUE(same(items[i], expected)) << i << " of " << count;
        }
    }
    EXPECT_EQ(SM_InitList(nullptr, 0), 0U);
}

// SM_SetStorage

TEST_F(PhonebookStorage, OneIsTheSimAndTwoTheModem) {
    ScriptedModem modem({
        {SELECT_SM, OK},
        {SELECT_ME, OK}
    });
    EXPECT_EQ(SM_SetStorage(SM), 0U);
    EXPECT_EQ(SM_SetStorage(ME), 0U);
    for (const Request &request : modem.requests()) {
        EXPECT_EQ(request.waitMs, 3000U);
        EXPECT_EQ(request.markers, phonebookMarkers());
        EXPECT_EQ(request.ipcTimeout, 20000U);
    }
    EXPECT_EQ(logMessagesIn("atlib/CPbSIM.cpp"), Texts{});
}

TEST_F(PhonebookStorage, AnotherSelectorGives34AndSendsNothing) {
    ScriptedModem modem({});
    for (const u32 storage : {0U, 3U, 4U, 0x01000000U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(SM_SetStorage(storage), INVALID) << storage;
        const Guarded<sm_storage_info_t> info;
        EXPECT_EQ(SM_GetStorageInfo(info.get(), storage), INVALID);
        const Guarded<sm_record_info_t> limits;
        EXPECT_EQ(SM_GetRecordInfo(limits.get(), storage), INVALID);
    }
}

TEST_F(PhonebookStorage, OkAnywhereSelectsIt) {
    for (const char *reply : ACKNOWLEDGEMENTS) {
        ScriptedModem modem({
            {SELECT_SM, reply}
        });
        EXPECT_EQ(SM_SetStorage(SM), 0U) << reply;
    }
}

TEST_F(PhonebookStorage, ReplyWithoutOkGives30) {
    for (const char *reply : REFUSALS) {
        ScriptedModem modem({
            {SELECT_ME, reply}
        });
        EXPECT_EQ(SM_SetStorage(ME), NOT_SELECTED) << reply;
    }
}

TEST_F(PhonebookStorage, WithoutAReplyGives29) {
    for (const Reply &reply : {NO_REPLY, refused(1)}) {
        ScriptedModem modem({
            {SELECT_SM, reply}
        });
        EXPECT_EQ(SM_SetStorage(SM), NO_ANSWER);
    }
    ScriptedModem modem({
        {SELECT_SM, OK}
    });
    failAllocation(1);
    EXPECT_EQ(SM_SetStorage(SM), NO_ANSWER) << "no memory for the reply";
}

// SM_GetStorageInfo

TEST_F(PhonebookStorage, FillIsReadBeforeTheCapacity) {
    ScriptedModem modem({
        {   SELECT_SM,                                       OK},
        {"AT+CPBS?\r", "\r\n+CPBS: \"SM\",12,250\r\n\r\nOK\r\n"}
    });
    const Guarded<sm_storage_info_t> info;
    EXPECT_EQ(SM_GetStorageInfo(info.get(), SM), 0U);
    EXPECT_EQ(info->used, 12);
    EXPECT_EQ(info->total, 250);
    ASSERT_EQ(modem.requests().size(), 2U);
    EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
    EXPECT_EQ(modem.requests()[1].waitMs, 5000U);
    EXPECT_EQ(modem.requests()[1].markers, phonebookMarkers());
}

TEST_F(PhonebookStorage, FailedSelectionEndsTheQueries) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {       NO_REPLY,    NO_ANSWER},
        {"\r\nERROR\r\n", NOT_SELECTED}
    };
    for (const auto &c : cases) {
        ScriptedModem modem({
            {SELECT_ME, c.reply},
            {SELECT_ME, c.reply}
        });
        const Guarded<sm_storage_info_t> info;
        EXPECT_EQ(SM_GetStorageInfo(info.get(), ME), c.status);
        EXPECT_EQ(static_cast<u32>(info->used), 0xA5A5A5A5U);
        EXPECT_EQ(static_cast<u32>(info->total), 0xA5A5A5A5U);
        const Guarded<sm_record_info_t> limits;
        EXPECT_EQ(SM_GetRecordInfo(limits.get(), ME), c.status);
        EXPECT_EQ(static_cast<u32>(limits->name_length), 0xA5A5A5A5U);
    }
}

// The two queries read their numbers in the same way.
namespace {
struct TwoNumbers {
    u32 status;
    i32 first, second;
};
struct Query {
    const char *command, *key;
    TwoNumbers (*ask)();
};
TwoNumbers askStorageInfo() {
    sm_storage_info_t info = {-7, -7};
    const u32 status = SM_GetStorageInfo(&info, SM);
    return {status, info.used, info.total};
}
TwoNumbers askRecordInfo() {
    sm_record_info_t info = {-7, -7};
    const u32 status = SM_GetRecordInfo(&info, SM);
    return {status, info.number_length, info.name_length};
}
const Query QUERIES[] = {
    { "AT+CPBS?\r", "+CPBS:", askStorageInfo},
    {"AT+CPBR=?\r", "+CPBR:",  askRecordInfo}
};
} // namespace

TEST_F(PhonebookStorage, QueryWithoutAReplyGives29) {
    for (const Query &query : QUERIES) {
        ScriptedModem modem({
            {    SELECT_SM,       OK},
            {query.command, NO_REPLY}
        });
        EXPECT_EQ(query.ask().status, NO_ANSWER);
    }
    for (const Query &query : QUERIES) {
        ScriptedModem modem({
            {    SELECT_SM, OK},
            {query.command, OK}
        });
        failAllocation(2);
        EXPECT_EQ(query.ask().status, NO_ANSWER) << "no memory for the reply";
    }
}

TEST_F(PhonebookStorage, NumbersStandRightBehindTheFirstTwoCommas) {
    const struct {
        const char *fields;
        i32 first, second;
    } cases[] = {
        {" \"SM\",12,250\r\n\r\nOK\r\n",         12, 250},
        {            "\"SM\",0,0\r\nOK",          0,   0},
        {                  "x, 12, 250",         12, 250},
        {                    ",12,250x",         12, 250},
        {                 ",12abc,250,",         12, 250},
        {                   ",-12,+250",        -12, 250},
        {       " \"ME\",1,2,3,4,5\r\n",          1,   2},
        {     ",\r\n12\r\n,\r\n250\r\n",         12, 250},
        {               ",0012,0000250",         12, 250},
        {         ",2147483647,-99\r\n", 2147483647, -99},
    };
    for (const Query &query : QUERIES) {
        for (const auto &c : cases) {
            ScriptedModem modem({
                {    SELECT_SM,                                OK},
                {query.command, std::string(query.key) + c.fields}
            });
            const TwoNumbers numbers = query.ask();
            EXPECT_EQ(numbers.status, 0U) << c.fields;
            EXPECT_EQ(numbers.second, c.second) << c.fields;
            const bool limits = query.ask == askRecordInfo;
            EXPECT_EQ(numbers.first, limits ? 20 : c.first) << c.fields;
        }
    }
}

TEST_F(PhonebookStorage, MissingKeyCommaOrNumberGives28) {
    for (const Query &query : QUERIES) {
        const std::string key = query.key;
        const Texts replies = {OK,
                               "",
                               "\r\nERROR\r\n",
                               "\r\n+CME ERROR: 3\r\n",
                               key,
                               key + " \"SM\"",
                               key + " \"SM\" 12 250\r\n",
                               key + " \"SM\",12\r\n\r\nOK\r\n",
                               key + " \"SM\",12 250\r\n",
                               key + " \"SM\",,250\r\n",
                               key + " \"SM\",x,250\r\n",
                               key + " \"SM\",12,\r\n\r\nOK\r\n",
                               key + " \"SM\",12,x\r\n",
                               key + " \"SM\",12,-\r\n",
                               ",12,250 " + key,
                               key.substr(0, 5) + " \"SM\",12,250\r\n",
                               "+CPBX: \"SM\",12,250\r\n"};
        for (const std::string &reply : replies) {
            ScriptedModem modem({
                {    SELECT_SM,    OK},
                {query.command, reply}
            });
            EXPECT_EQ(query.ask().status, UNREADABLE) << reply;
        }
    }
}

TEST_F(PhonebookStorage, ReplyCutAnywhereGives28UpToItsLastNumber) {
    for (const Query &query : QUERIES) {
        const std::string whole = std::string("\r\n") + query.key + " \"SM\",12,250";
        for (std::size_t kept = 0; kept <= whole.size(); kept++) {
            ScriptedModem modem({
                {    SELECT_SM,             OK},
                { query.command, whole.substr(0,        kept)}
            });
            const bool readable = kept > whole.rfind(',') + 1;
            EXPECT_EQ(query.ask().status, readable ? 0U : UNREADABLE) << kept;
        }
    }
}

// SM_GetRecordInfo

TEST_F(PhonebookStorage, NumberLengthIs20WhateverTheModemSays) {
    for (const char *said : {"40", "20", "0", "19"}) {
        ScriptedModem modem({
            {    SELECT_ME,                                                              OK},
            {"AT+CPBR=?\r", "\r\n+CPBR: (1-250)," + std::string(said) + ",14\r\n\r\nOK\r\n"}
        });
        const Guarded<sm_record_info_t> info;
        EXPECT_EQ(SM_GetRecordInfo(info.get(), ME), 0U);
        EXPECT_EQ(info->name_length, 14);
        EXPECT_EQ(info->number_length, 20);
        EXPECT_EQ(modem.requests()[1].waitMs, 3000U);
        EXPECT_EQ(modem.requests()[1].markers, phonebookMarkers());
    }
}

TEST_F(PhonebookStorage, RangeWithACommaIsTakenForTheFirstFields) {
    ScriptedModem modem({
        {    SELECT_SM,                                              OK},
        {"AT+CPBR=?\r", "\r\n+CPBR: (1-99,101-250),40,14\r\n\r\nOK\r\n"}
    });
    sm_record_info_t info = {};
    EXPECT_EQ(SM_GetRecordInfo(&info, SM), 0U);
    EXPECT_EQ(info.name_length, 40);
    EXPECT_EQ(info.number_length, 20);
}

// SM_SetCodeDec

TEST_F(PhonebookCharset, NameIsSentAsItIs) {
    for (const char *charset : {"UCS2", "IRA", "GSM", "", "8859-1", "%s"}) {
        ScriptedModem modem({
            {"AT+CSCS=\"" + std::string(charset) + "\"\r", OK}
        });
        EXPECT_EQ(SM_SetCodeDec(charset), 0U);
        ASSERT_EQ(modem.requests().size(), 1U);
        EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
        EXPECT_EQ(modem.requests()[0].markers, (Texts{"OK", "ERROR"}));
    }
}

TEST_F(PhonebookCharset, ReplyWithoutOkGives27) {
    for (const char *reply : REFUSALS) {
        ScriptedModem modem({
            {"AT+CSCS=\"UCS2\"\r", reply}
        });
        EXPECT_EQ(SM_SetCodeDec("UCS2"), CHARSET_REFUSED) << reply;
    }
    for (const char *reply : ACKNOWLEDGEMENTS) {
        ScriptedModem modem({
            {"AT+CSCS=\"UCS2\"\r", reply}
        });
        EXPECT_EQ(SM_SetCodeDec("UCS2"), 0U) << reply;
    }
}

TEST_F(PhonebookCharset, WithoutAReplyGives29) {
    ScriptedModem modem({
        {"AT+CSCS=\"UCS2\"\r", NO_REPLY},
        {"AT+CSCS=\"UCS2\"\r",       OK}
    });
    EXPECT_EQ(SM_SetCodeDec("UCS2"), NO_ANSWER);
    failAllocation(1);
    EXPECT_EQ(SM_SetCodeDec("UCS2"), NO_ANSWER) << "no memory for the reply";
}

TEST_F(PhonebookCharset, NameThatDoesNotFitItsCommandIsRefusedUnsent) {
    ScriptedModem modem({});
    EXPECT_EQ(SM_SetCodeDec(guardedText(std::string(5000, 'U')).get()), CHARSET_REFUSED);
}

// SM_DecodeItem

TEST_P(PhonebookLineVector, IsDecodedByItsColumns) {
    const auto line = guardedText(v().text("line"));
    const Guarded<sm_item_t> item;
    const u32 status = v().number("status", 0);
    EXPECT_EQ(SM_DecodeItem(line.get(), item.get()), status);
    if (status != 0) {
        EXPECT_EQ(logMessages(), Texts{});
        return;
    }
    const sm_item_t expected = phonebookItem(v().integer("index"), v().text("number"),
                                             v().integer("international"), v().octets("name"));
    EXPECT_EQ(item->index, expected.index);
    EXPECT_EQ(item->international, expected.international);
    EXPECT_EQ(numberOf(*item), numberOf(expected));
    EXPECT_EQ(nameOf(*item), nameOf(expected));
    EXPECT_TRUE(same(*item, expected)) << "the fields are zero up to their ends";
    EXPECT_EQ(allocationSizes().front(), 4U) << "the type's copy";
    Texts lines;
    if (v().has("logged")) {
        const std::string counts = v().text("logged");
        const auto blank = counts.find(' ');
        lines = {"contact name len:" + counts.substr(0, blank) +
                 " hex len:" + counts.substr(blank + 1) + "\n\n"};
    }
    EXPECT_EQ(logMessages(), lines);
    EXPECT_EQ(logMessagesOf("SM_DecodeItem"), lines);
    EXPECT_EQ(logMessagesIn("atlib/CPbSIM.cpp"), lines);
}

TEST_F(PhonebookLine, CutAnywhereGives28) {
    for (const std::string whole :
         {"7,\"0123\",145,\"00410042\"", "42,\"+4912345\",145,\"00410042\"",
          "123,\"\",129,\"0041\"", "1000,\"0123\",129,\"0041\"",
          "7,\"012345678901234567890\",129,\"0041\""}) {
        // The index of 1,000 reads its name between the type and the next quote.
        const std::size_t end =
            whole[1] == '0' ? whole.rfind('"', whole.size() - 2) : whole.size() - 1;
        for (std::size_t kept = 0; kept <= end; kept++) {
            clearLog();
            const Guarded<sm_item_t> item;
            EXPECT_EQ(SM_DecodeItem(guardedText(whole.substr(0, kept)).get(), item.get()),
                      UNREADABLE)
                << whole.substr(0, kept);
            EXPECT_EQ(logMessages(), Texts{});
        }
        const Guarded<sm_item_t> item;
        EXPECT_EQ(SM_DecodeItem(guardedText(whole.substr(0, end + 1)).get(), item.get()), 0U);
    }
}

TEST_F(PhonebookLine, NumberIsCopiedWholeUpTo20CharactersAndFillsTheFieldFrom21) {
    for (std::size_t length = 0; length <= 70; length++) {
        const std::string number =
            std::string(length / 2, '1') + std::string(length - length / 2, '2');
        const std::string rest = number + "\",129,\"" + nameText(20) + "\"";
        const Guarded<sm_item_t> item;
        EXPECT_EQ(SM_DecodeItem(guardedText("7,\"" + rest).get(), item.get()), 0U);
        EXPECT_EQ(numberOf(*item), length < 21 ? number : rest.substr(0, 50)) << length;
    }
}

TEST_F(PhonebookLine, OverlongNumberWithNothingBehindItIsReadToTheLinesEnd) {
    const std::string number(30, '3');
    for (const std::string rest : {"\"", "\",", "\",129", "\",129,\"", "\",145,\"0041"}) {
        const Guarded<sm_item_t> item;
        EXPECT_EQ(SM_DecodeItem(guardedText("7,\"" + number + rest).get(), item.get()), UNREADABLE);
        EXPECT_EQ(numberOf(*item), (number + rest).substr(0, 50));
    }
}

TEST_F(PhonebookLine, NameBeyond50UnitsIsCutToItsField) {
    for (const std::size_t units : {1, 49, 50, 51, 52, 100, 5000}) {
        const std::string digits = nameText(units);
        const Guarded<sm_item_t> item;
        EXPECT_EQ(SM_DecodeItem(guardedText("7,\"1\",129,\"" + digits + "\"").get(), item.get()),
                  0U);
        std::vector<u8> expected = octets(digits.substr(0, 200));
        expected.resize(100);
        EXPECT_EQ(nameOf(*item), expected) << units;
    }
    for (const std::size_t extra : {1, 2, 3}) {
        const Guarded<sm_item_t> item;
        const std::string digits = nameText(50) + std::string(extra, 'F');
        EXPECT_EQ(SM_DecodeItem(guardedText("7,\"1\",129,\"" + digits + "\"").get(), item.get()),
                  0U);
        EXPECT_EQ(nameOf(*item), octets(nameText(50))) << "a broken unit behind the field";
    }
}

TEST_F(PhonebookLine, IndexOf1000AndMoreNeverLeavesTheLine) {
    for (const char *line :
         {"1000", "1000,", "99999", "2147483647", "99999999999999999999", "-2147483648",
          "-99999999999999999999", "100,", "100,\"", "10,", "7,", "7,\"", "+7"}) {
        const Guarded<sm_item_t> item;
        EXPECT_EQ(SM_DecodeItem(guardedText(line).get(), item.get()), UNREADABLE) << line;
    }
}

TEST_F(PhonebookLine, WithoutMemoryGives30) {
    const char *line = "7,\"0123\",145,\"00410042\"";
    for (const unsigned nth : {1U, 2U}) {
        failAllocation(nth);
        const Guarded<sm_item_t> item;
        EXPECT_EQ(SM_DecodeItem(line, item.get()), NO_MEMORY) << nth;
        EXPECT_EQ(logMessages(), Texts{});
    }
    failAllocation(2);
    sm_item_t item;
    EXPECT_EQ(SM_DecodeItem("7,\"0123\",145,\"\"", &item), 0U) << "an empty name takes no memory";
}

// The same line, read slowly and obviously.
namespace {

u32 digitValue(char c) {
    const std::string digits = "0123456789ABCDEF", small = "0123456789abcdef";
    if (c != '\0' && digits.find(c) != std::string::npos) {
        return static_cast<u32>(digits.find(c));
    }
    return c != '\0' && small.find(c) != std::string::npos ? static_cast<u32>(small.find(c)) : 0;
}

std::optional<sm_item_t> readSlowly(const std::string &line) {
    sm_item_t item = {};
    char *rest = nullptr;
    const long long index = std::strtoll(line.c_str(), &rest, 10);
    if (rest == line.c_str()) { return std::nullopt; }
    item.index = static_cast<i32>(index < INT32_MIN   ? INT32_MIN
                                  : index > INT32_MAX ? INT32_MAX
                                                      : index);
    const std::size_t column = item.index < 10 ? 3 : item.index < 100 ? 4 : 5;
    if (line.size() < column) { return std::nullopt; }
    const std::size_t close = line.find('"', column);
    if (close == std::string::npos) { return std::nullopt; }
    const std::size_t copied = close - column < 21 ? close - column : 50;
    const std::string number = line.substr(column, copied);
    std::memcpy(item.number, number.data(), number.size());
    if (line.size() < close + 2 + 5) { return std::nullopt; }
    if (line.substr(close + 2, 3) == "145") { item.international = 1; }
    const std::size_t name = close + 2 + 5, end = line.find('"', name);
    if (end == std::string::npos) { return std::nullopt; }
    std::string digits = line.substr(name, end - name).substr(0, 200);
    while (digits.size() % 4 != 0) { digits += '0'; }
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        item.name[i / 2] = static_cast<u8>(digitValue(digits[i]) * 16 + digitValue(digits[i + 1]));
    }
    return item;
}

} // namespace

TEST_F(PhonebookLine, RandomLinesReadAsTheyDoSlowly) {
    const Texts pieces = {",",      "\"",  "\"",   "7",   "42",  "123",        "1000",
                          "145",    "129", "0041", "004", "+49", "\",",        ",\"",
                          "145,\"", " ",   "-",    "G",   "e9",  "01234567890"};
    Random random(61);
    u32 readable = 0;
    for (u32 round = 0; round < 4000; round++) {
        std::string line = round % 2 == 0 ? "7,\"0123\",145,\"" : "";
        if (round % 3 == 0) { line = "12,\"" + std::string(random.below(60), '8') + "\",129,\""; }
        for (u32 i = random.below(14); i > 0; i--) {
            line += pieces[random.below(static_cast<u32>(pieces.size()))];
        }
        if (round % 5 != 0) { line += "\""; }
        const std::optional<sm_item_t> expected = readSlowly(line);
        const Guarded<sm_item_t> item;
        const u32 status = SM_DecodeItem(guardedText(line).get(), item.get());
        ASSERT_EQ(status, expected ? 0U : UNREADABLE) << line;
        if (!expected) { continue; }
        readable++;
        ASSERT_TRUE(same(*item, *expected)) << line;
    }
    EXPECT_GT(readable, 1000U);
    EXPECT_LT(readable, 3800U);
}

// DecodeName

TEST_F(PhonebookLine, NameIsCopiedUnchanged) {
    for (const i32 count : {1, 2, 99, 100}) {
        const GuardedBytes bytes =
            againstGuardPage(Random(7).octets(static_cast<std::size_t>(count)));
        const Guarded<u8> name(static_cast<std::size_t>(count));
        i32 length = -7;
        EXPECT_EQ(DecodeName(bytes.data(), count, name.get(), &length), 0);
        EXPECT_EQ(length, count);
        EXPECT_EQ(std::memcmp(name.get(), bytes.data(), static_cast<std::size_t>(count)), 0);
    }
}

TEST_F(PhonebookLine, NameWithoutOctetsGivesMinus1AndLeavesTheOutputs) {
    const u8 bytes[] = {0x00, 0x41};
    for (const auto &[from, count] : {
             std::pair<const u8 *, i32>{nullptr,         2},
             {nullptr,         0},
             {  bytes,         0},
             {  bytes,        -1},
             {  bytes, INT32_MIN}
    }) {
        u8 name[2] = {7, 7};
        i32 length = -7;
        EXPECT_EQ(DecodeName(from, count, name, &length), -1);
        EXPECT_EQ(length, -7);
        EXPECT_EQ(name[0], 7);
    }
}

// Hexadecimal

TEST_F(PhonebookHex, EveryOctetIsTwoCapitalDigitsAndAZero) {
    for (u32 value = 0; value < 256; value++) {
        const Guarded<char> out(3);
        EXPECT_EQ(byteToHex(static_cast<u8>(value), out.get()), out.get());
        char expected[3];
        std::snprintf(expected, sizeof(expected), "%02X", value);
        EXPECT_STREQ(out.get(), expected);
    }
}

TEST_F(PhonebookHex, CharacterThatIsNoDigitIs0) {
    for (int c = 0; c < 256; c++) {
        const char one = static_cast<char>(c);
        EXPECT_EQ(hexToDec(one), digitValue(one)) << c;
    }
    EXPECT_EQ(hexToDec('A'), 10);
    EXPECT_EQ(hexToDec('F'), 15);
    EXPECT_EQ(hexToDec('a'), 10);
    EXPECT_EQ(hexToDec('f'), 15);
    EXPECT_EQ(hexToDec('9'), 9);
    EXPECT_EQ(hexToDec('G'), 0);
}

TEST_F(PhonebookHex, UnitsAreWrittenUpToAZeroUnitOrTheBound) {
    const struct {
        const char *units;
        i32 bound, swap;
        const char *digits;
    } cases[] = {
        {"0041 0042 0000",   6,  0, "00410042"},
        {"0041 0042 0000",   6,  1, "41004200"},
        {"0041 0042 0000",   6,  7, "41004200"},
        {"0041 0042 0000",   6, -1, "41004200"},
        {     "0041 0042",   4,  0, "00410042"},
        {     "0041 0042",   2,  0,     "0041"},
        {"4100 0000 0042",   6,  0,     "4100"},
        {     "0100 0001",   4,  0, "01000001"},
        {     "ABCD EF09",   4,  0, "ABCDEF09"},
        {     "ABCD EF09",   4,  1, "CDAB09EF"},
        {"00FF FF00 0000", 100,  0, "00FFFF00"},
        {     "FFFF 0000",   4,  0,     "FFFF"},
    };
    for (const auto &c : cases) {
        const GuardedBytes units = againstGuardPage(octets(c.units));
        const Guarded<char> out(std::strlen(c.digits) + 1);
        EXPECT_EQ(Ucs2StringToHexString(units.data(), out.get(), c.bound, c.swap),
                  static_cast<i32>(std::strlen(c.digits) / 4))
            << c.units;
        EXPECT_STREQ(out.get(), c.digits) << c.units;
    }
}

TEST_F(PhonebookHex, NoUnitsWriteNoDigits) {
    const GuardedBytes zero = againstGuardPage({0, 0});
    for (const i32 bound : {0, 2, 100, -2}) {
        const Guarded<char> out(1);
        EXPECT_EQ(Ucs2StringToHexString(zero.data(), out.get(), bound, 0), 0);
    }
}

TEST_F(PhonebookHex, HalfAUnitBeforeTheBoundIsNotTaken) {
    const GuardedBytes units = againstGuardPage({0x00, 0x41, 0x42});
    const Guarded<char> out(5);
    EXPECT_EQ(Ucs2StringToHexString(units.data(), out.get(), 3, 0), 1);
    EXPECT_STREQ(out.get(), "0041");
    EXPECT_EQ(Ucs2StringToHexString(units.data(), out.get(), 1, 0), 0);
}

TEST_F(PhonebookHex, FiftyUnitsFillABound) {
    const GuardedBytes units = againstGuardPage(octets(nameText(50)));
    const Guarded<char> out(201);
    EXPECT_EQ(Ucs2StringToHexString(units.data(), out.get(), 100, 0), 50);
    EXPECT_EQ(std::string(out.get()), nameText(50));
}

TEST_F(PhonebookHex, GroupsOfFourDigitsAreTwoOctets) {
    const struct {
        const char *digits;
        i32 swap;
        const char *octets;
    } cases[] = {
        {            "", 0,             ""},
        {        "0041", 0,         "0041"},
        {        "0041", 1,         "4100"},
        {        "0041", 9,         "4100"},
        {"00410042ABCD", 0, "00410042ABCD"},
        {"00410042ABCD", 1, "41004200CDAB"},
        {"0041abcdEf90", 0, "0041ABCDEF90"},
        {        "0000", 0,         "0000"},
        {    "00410000", 0,     "00410000"},
        {        "G0*1", 0,         "0001"},
        {       "00411", 0,     "00411000"},
        {      "004112", 0,     "00411200"},
        {     "0041123", 0,     "00411230"},
        {     "0041123", 1,     "41003012"},
    };
    for (const auto &c : cases) {
        const std::vector<u8> expected = octets(c.octets);
        const Guarded<u8> out(expected.size());
        EXPECT_EQ(HexStrToDec(guardedText(c.digits).get(), out.get(), c.swap),
                  static_cast<i32>(expected.size()))
            << c.digits;
        EXPECT_EQ(std::vector<u8>(out.get(), out.get() + expected.size()), expected) << c.digits;
    }
}

TEST_F(PhonebookHex, UnitsComeBackFromTheirDigits) {
    Random random(62);
    for (u32 round = 0; round < 500; round++) {
        std::vector<u8> units = random.octets(2 * random.between(1, 50));
        for (std::size_t i = 0; i < units.size(); i += 2) { units[i] |= 1; } // no zero unit
        const i32 swap = static_cast<i32>(random.below(2));
        const GuardedBytes in = againstGuardPage(units);
        const Guarded<char> digits(2 * units.size() + 1);
        const i32 bound = static_cast<i32>(units.size());
        EXPECT_EQ(Ucs2StringToHexString(in.data(), digits.get(), bound, swap), bound / 2);
        const Guarded<u8> out(units.size());
        EXPECT_EQ(HexStrToDec(digits.get(), out.get(), swap), bound);
        EXPECT_EQ(std::vector<u8>(out.get(), out.get() + units.size()), units);
    }
}
