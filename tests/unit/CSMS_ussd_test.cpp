#include <cstdlib>
#include <map>
#include <memory>
#include <optional>

#include "atlib/CSMS.h"
#include "support/library_test.h"
#include "support/random.h"

using namespace support;

namespace {

const u32 NO_ANSWER = 20, NO_FIELD = 22, NO_MEMORY = 23, BAD_TEXT = 24, REFUSED = 26;
const u32 UNTOUCHED = 0xA5A5A5A5;

using Texts = std::vector<std::string>;

struct Free {
    void operator()(u8 *octets) const { std::free(octets); }
};
using Octets = std::unique_ptr<u8, Free>;
u8 *const NO_OCTETS = reinterpret_cast<u8 *>(16);

Texts logged() { return logMessagesIn("atlib/CSMS.cpp"); }

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

SMSPB_VECTORS(UssdAnswerVector, "ussd_answers.txt");

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
        EXPECT_EQ(sendUSSD("*100#"), NO_ANSWER);
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
    EXPECT_EQ(sendUSSD("*100#"), NO_ANSWER);
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
        EXPECT_EQ(answer.readable, std::string(text).find("Menu") != std::string::npos ? 1U : 0U)
            << "told before the block is asked for";
    }
}

TEST_F(UssdAnswer, NullIsNoAnswer) {
    u8 *data = nullptr;
    u32 length = 0, scheme = 0, isText = 0;
    EXPECT_EQ(decodeCUSD(nullptr, &data, &length, &scheme, &isText), 22U);
    EXPECT_EQ(data, nullptr);
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
