#include <algorithm>
#include <cstring>
#include <map>

#include "atlib/CPbSIM.h"
#include "support/library_test.h"
#include "support/phonebook.h"
#include "support/random.h"
#include "support/reference_text.h"

using namespace support;

namespace {

const u32 NOT_FOUND = 27, UNREADABLE = 28, NO_ANSWER = 29, NO_MEMORY = 30, REFUSED = 33;
const std::string OK = "\r\nOK\r\n";
const std::string ERROR = "\r\n+CME ERROR: 10\r\n";

using Texts = std::vector<std::string>;

class Contact : public LibraryTest {};

Texts logged() { return logMessagesIn("atlib/CPbSIM.cpp"); }

pb_info_t contactOf(i32 index, const std::string &name, const std::string &number) {
    pb_info_t contact;
    std::memset(&contact, 0xA5, sizeof(contact));
    contact.index = index;
    std::memset(contact.name, 0, sizeof(contact.name));
    std::memset(contact.number, 0, sizeof(contact.number));
    std::memcpy(contact.name, name.data(), std::min(name.size(), sizeof(contact.name)));
    std::memcpy(contact.number, number.data(), std::min(number.size(), sizeof(contact.number)));
    return contact;
}

std::string textIn(const char (&field)[51]) { return {field, strnlen(field, sizeof(field))}; }

using WriteContact = u32 (*)(const pb_info_t *);
const struct {
    const char *name;
    WriteContact write;
} WRITERS[] = {
    { "add_new_contact",  add_new_contact},
    {"edit_sim_contact", edit_sim_contact}
};

std::string nameLine(const std::string &name) {
    return "pb_info_t->name: [" + name + "], len :51\n\n";
}
} // namespace

TEST_F(Contact, IsWrittenAtItsOwnIndex) {
    for (const auto &writer : WRITERS) {
        clearLog();
        ScriptedModem modem({
            {"AT+CPBW=12,\"+331234\",145,\"005A006F00EB65E5\"\r", OK}
        });
        const Guarded<pb_info_t> contact(
            std::vector<pb_info_t>{contactOf(12, "Zo\xC3\xAB\xE6\x97\xA5", "+331234")});
        const pb_info_t before = *contact;
        EXPECT_EQ(writer.write(contact.get()), 0U);
        EXPECT_EQ(std::memcmp(contact.get(), &before, sizeof(before)), 0) << "only read";
        EXPECT_EQ(logged(), Texts{nameLine("Zo\xC3\xAB\xE6\x97\xA5")});
        EXPECT_EQ(logMessagesOf(writer.name), logged());
        EXPECT_EQ(logMessages()[1], "unic count=4\n\n") << "the name line comes first";
        EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
    }
}

TEST_F(Contact, TypeIsChosenByThePlusSign) {
    for (const auto &writer : WRITERS) {
        ScriptedModem modem({
            {   "AT+CPBW=1,\"0612\",129,\"0041\"\r", OK},
            {"AT+CPBW=1,\"+331234\",145,\"0041\"\r", OK},
            {       "AT+CPBW=1,\"\",129,\"0041\"\r", OK}
        });
        for (const char *number : {"0612", "+331234", ""}) {
            const pb_info_t contact = contactOf(1, "A", number);
            EXPECT_EQ(writer.write(&contact), 0U);
        }
    }
}

TEST_F(Contact, StatusOfTheWriteIsPassedOn) {
    for (const auto &writer : WRITERS) {
        const std::string command = "AT+CPBW=1,\"1\",129,\"0041\"\r";
        ScriptedModem modem({
            {command, NO_REPLY},
            {command,    ERROR},
            {command,       OK}
        });
        const pb_info_t contact = contactOf(1, "A", "1");
        EXPECT_EQ(writer.write(&contact), NO_ANSWER);
        EXPECT_EQ(writer.write(&contact), REFUSED);
        failAllocation(1);
        EXPECT_EQ(writer.write(&contact), NO_ANSWER) << "no memory for the reply";
    }
}

TEST_F(Contact, NameKeepsAtMost50Units) {
    const struct {
        std::string name;
        std::u16string units;
    } cases[] = {
        {              "",               u"" },
        {  std::string(49,              'n'), std::u16string(49, u'n')},
        {  std::string(50,              'n'),                            std::u16string(50, u'n')},
        {  std::string(51,              'n'),std::u16string(50, u'n')}, // no zero
        {  std::string(49, 'n') + "\xC3\xAB",                  std::u16string(49, u'n') + u"\u00EB"},
        {  std::string(50,     'n') + "\xC3",            std::u16string(50, u'n')}, // cut short
        {  std::string(49, 'n') + "\xE6\x97", std::u16string(49, u'n')}, // cut short
        {"a\x80\xBF"
"b\xFE",             u"ab"                },
    };
    for (const auto &writer : WRITERS) {
        for (const auto &c : cases) {
            clearLog();
            ScriptedModem modem({
                {"AT+CPBW=1,\"1\",129,\"" + hex(nameOctets(c.units)) + "\"\r", OK}
            });
            const pb_info_t contact = contactOf(1, c.name, "1");
            EXPECT_EQ(writer.write(&contact), 0U);
            EXPECT_EQ(logged(), Texts{nameLine(c.name)});
        }
    }
}

TEST_F(Contact, NumberKeepsAtMost49Characters) {
    for (const auto &writer : WRITERS) {
        for (const std::size_t length : {1, 20, 21, 48, 49, 50, 51}) {
            const std::string number(length, '7');
            ScriptedModem modem({
                {"AT+CPBW=1,\"" + number.substr(0, 49) + "\",129,\"0041\"\r", OK}
            });
            const pb_info_t contact = contactOf(1, "A", number);
            EXPECT_EQ(writer.write(&contact), 0U);
        }
    }
}

namespace {

struct ReadContact {
    i32 status = 0;
    pb_info_t contact = {};
    std::string printed;
};

ReadContact readContactWith(const Reply &reply, i32 index = 7) {
    ScriptedModem modem({
        {readCommand(index), reply}
    });
    ReadContact read;
    const Guarded<pb_info_t> contact;
    testing::internal::CaptureStdout();
    read.status = read_contact(contact.get(), index);
    read.printed = testing::internal::GetCapturedStdout();
    read.contact = *contact;
    return read;
}

void expectEmpty(const pb_info_t &contact, i32 index) {
    pb_info_t expected = {};
    expected.index = index;
    EXPECT_EQ(std::memcmp(&contact, &expected, sizeof(expected)), 0);
}

} // namespace

TEST_F(Contact, IsReadWithItsNameInUtf8) {
    const ReadContact read = readContactWith(entries({"7,\"+331234\",145,\"005A006F00EB65E5\""}));
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(textIn(read.contact.name), "Zo\xC3\xAB\xE6\x97\xA5");
    EXPECT_EQ(textIn(read.contact.number), "+331234");
    pb_info_t expected = {};
    expected.index = 7;
    std::memcpy(expected.name, read.contact.name, sizeof(expected.name));
    std::memcpy(expected.number, read.contact.number, sizeof(expected.number));
    EXPECT_EQ(std::memcmp(&read.contact, &expected, sizeof(expected)), 0) << "the rest is cleared";
    EXPECT_EQ(read.printed, printedFor(0));
    EXPECT_EQ(logMessagesOf("read_contact"), Texts{});
}

TEST_F(Contact, IndexIsTheEntrysOwn) {
    EXPECT_EQ(readContactWith(entries({"9,\"1\",129,\"\""})).contact.index, 9);
}

TEST_F(Contact, FailedReadIsLoggedAndLeavesAClearedContact) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {      NO_REPLY,  NO_ANSWER},
        {         ERROR,    REFUSED},
        {            OK,  NOT_FOUND},
        {entries({"x"}), UNREADABLE}
    };
    for (const auto &c : cases) {
        clearLog();
        const ReadContact read = readContactWith(c.reply);
        EXPECT_EQ(read.status, static_cast<i32>(c.status));
        expectEmpty(read.contact, 0);
        EXPECT_EQ(logged(),
                  Texts{"read NO: 7 contact failure error:" + std::to_string(c.status) + "\n\n"});
        EXPECT_EQ(logMessagesOf("read_contact"), logged());
    }
}

TEST_F(Contact, IndexOutOfRangeIsReadFromNobody) {
    ScriptedModem modem({});
    for (const i32 index : {0, 501}) {
        clearLog();
        const Guarded<pb_info_t> contact;
        EXPECT_EQ(read_contact(contact.get(), index), 32);
        expectEmpty(*contact, 0);
        EXPECT_EQ(logMessages(),
                  Texts{"read NO: " + std::to_string(index) + " contact failure error:32\n\n"});
    }
}

TEST_F(Contact, FailedReadBehindAReadableLineKeepsThatLinesIndex) {
    const ReadContact read = readContactWith(entries({"9,\"1\",129,\"0041\"", "x"}));
    EXPECT_EQ(read.status, 28);
    expectEmpty(read.contact, 9);
}

TEST_F(Contact, NameLongerThanItsFieldInUtf8GivesMinus1) {
    const struct {
        std::u16string name;
        i32 error; // 0: it fits
    } cases[] = {
        {std::u16string(50,                                 u'a'),  0},
        {std::u16string(25,                            u'\u00E9'),  0},
        {std::u16string(16,                            u'\u20AC'),  0},
        {std::u16string(25,                     u'\u00E9') + u'a', -1},
        {std::u16string(26,                            u'\u00E9'), -2},
        {std::u16string(48, u'a') + static_cast<char16_t>(0xD901), -3},
        {std::u16string(17,                            u'\u20AC'), -4},
        {std::u16string(50,                            u'\uFFFD'), -4},
    };
    for (const auto &c : cases) {
        clearLog();
        const ReadContact read =
            readContactWith(entries({"7,\"0612\",129,\"" + hex(nameOctets(c.name)) + "\""}));
        EXPECT_EQ(read.status, c.error == 0 ? 0 : -1);
        EXPECT_EQ(read.contact.index, 7);
        if (c.error == 0) {
            EXPECT_EQ(textIn(read.contact.name), reference::utf8(c.name));
            EXPECT_EQ(textIn(read.contact.number), "0612");
            EXPECT_EQ(logMessagesOf("read_contact"), Texts{});
        } else {
            EXPECT_EQ(textIn(read.contact.number), "") << "not copied any more";
            EXPECT_EQ(logMessagesOf("read_contact"),
                      Texts{"error, errno:" + std::to_string(c.error) + "\n\n"});
        }
    }
}

TEST_F(Contact, NameEndsAtItsFirstZeroUnit) {
    const ReadContact read = readContactWith(entries({"7,\"1\",129,\"004100000042\""}));
    EXPECT_EQ(textIn(read.contact.name), "A");
    EXPECT_EQ(textIn(readContactWith(entries({"7,\"1\",129,\"\""})).contact.name), "");
}

TEST_F(Contact, OverlongNumberFillsItsFiftyOctets) {
    const std::string rest = std::string(30, '3') + "\",129,\"004100420043004400450046\"";
    const ReadContact read = readContactWith(entries({"7,\"" + rest}));
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(textIn(read.contact.number), rest.substr(0, 50));
    EXPECT_EQ(textIn(read.contact.name), "ABCDEF");
}

TEST_F(Contact, WithoutMemoryGivesTheItemsStatus) {
    const std::string reply = entries({"7,\"1\",129,\"0041\""});
    for (const auto &[nth, status] : {
             std::pair{1U, NO_ANSWER},
             {2U, NO_MEMORY},
             {3U, NO_MEMORY}
    }) {
        failAllocation(nth);
        const ReadContact read = readContactWith(reply);
        EXPECT_EQ(read.status, static_cast<i32>(status)) << nth;
        expectEmpty(read.contact, 0);
        EXPECT_EQ(liveBlocks(), 0U);
    }
}

// Whole phonebooks: a card that keeps what was written as the text it came in.
namespace {

class Card {
public:
    Card() {
        answerRequests([this](const Sent &sent) { return answer(sent); });
    }
    Card(const Card &) = delete;
    Card &operator=(const Card &) = delete;
    ~Card() { answerRequests(nullptr); }
    std::map<i32, std::string> entries; // behind the index's comma
    Texts commands;

private:
    // One command without "AT" and its end; false: not understood.
    bool run(const std::string &command, std::string *reply) {
        const auto comma = command.find(',');
        const i32 index = std::atoi(command.c_str() + std::strlen("+CPBW="));
        if (command.rfind("+CPBR=", 0) == 0) {
            if (entries.count(index) != 0) {
                *reply += "\r\n+CPBR: " + std::to_string(index) + "," + entries[index] + "\r\n";
            }
            return true;
        }
        if (command.rfind("+CPBW=", 0) != 0) { return false; }
        if (comma == std::string::npos) { return entries.erase(index) == 1; }
        entries[index] = command.substr(comma + 1);
        return true;
    }
    Answer answer(const Sent &sent) {
        const std::string text(reinterpret_cast<const char *>(sent.payload.data()) + 96);
        commands.push_back(text);
        std::string reply;
        bool understood = text.rfind("AT", 0) == 0 && text.back() == '\r';
        std::string rest = text.substr(2, text.size() - 3);
        while (understood && !rest.empty()) {
            // A name is hexadecimal and a number has no semicolon here, so ";" separates.
            const auto end = rest.find(';');
            understood = run(rest.substr(0, end), &reply);
            rest = end == std::string::npos ? "" : rest.substr(end + 1);
        }
        reply += understood ? "\r\nOK\r\n" : "\r\n+CME ERROR: 21\r\n";
        const u32 words[] = {0, 0, static_cast<u32>(reply.size())};
        Answer answer;
        answer.payload.resize(sizeof(words));
        std::memcpy(answer.payload.data(), words, sizeof(words));
        answer.payload.insert(answer.payload.end(), reply.begin(), reply.end());
        return answer;
    }
};

std::string randomNumber(Random *random, u32 most) {
    std::string number = random->below(2) == 0 ? "+" : "";
    const u32 length = random->between(1, most - static_cast<u32>(number.size()));
    for (u32 i = 0; i < length; i++) { number.push_back("0123456789*#pW"[random->below(14)]); }
    return number;
}

// A unit that UTF-8 carries there and back: no zero, no surrogate.
char16_t randomUnit(Random *random) {
    const u32 ranges[][2] = {
        {  0x20,   0x7E},
        {  0x80,  0x7FF},
        { 0x800, 0xD7FF},
        {0xE000, 0xFFFF}
    };
    const auto &range = ranges[random->below(4)];
    return static_cast<char16_t>(random->between(range[0], range[1]));
}

std::string randomName(Random *random) {
    std::u16string name;
    const u32 most = random->between(0, 50); // octets
    while (true) {
        const char16_t unit = randomUnit(random);
        if (reference::utf8(name + unit).size() > most) { break; }
        name.push_back(unit);
    }
    return reference::utf8(name);
}

// A contact as reading gives it: the rest cleared.
pb_info_t clearedContact(i32 index, const std::string &name, const std::string &number) {
    pb_info_t contact = contactOf(index, name, number);
    contact.reserved = 0;
    std::memset(contact.rest, 0, sizeof(contact.rest));
    return contact;
}

void expectReadBack(const pb_info_t &expected) {
    const Guarded<pb_info_t> contact;
    testing::internal::CaptureStdout();
    EXPECT_EQ(read_contact(contact.get(), expected.index), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printedFor(0));
    EXPECT_EQ(std::memcmp(contact.get(), &expected, sizeof(expected)), 0)
        << expected.index << ": " << textIn(expected.name) << " " << textIn(expected.number)
        << " came back as " << textIn(contact->name) << " " << textIn(contact->number);
}

} // namespace

TEST_F(Contact, WhateverIsWrittenIsReadBack) {
    Card card;
    Random random(64);
    for (u32 round = 0; round < 500; round++) {
        const pb_info_t contact = clearedContact(static_cast<i32>(random.between(1, 500)),
                                                 randomName(&random), randomNumber(&random, 20));
        EXPECT_EQ(WRITERS[round % 2].write(&contact), 0U);
        expectReadBack(contact);
    }
}

TEST_F(Contact, ItemWrittenIsDecodedAgain) {
    Card card;
    Random random(65);
    for (u32 round = 0; round < 500; round++) {
        std::u16string name;
        for (u32 i = random.below(51); i > 0; i--) {
            name.push_back(static_cast<char16_t>(random.between(1, 0xFFFF)));
        }
        const std::string number = randomNumber(&random, 20);
        const i32 international = static_cast<i32>(random.below(2));
        const i32 index = static_cast<i32>(random.between(1, 500));
        const sm_item_t item = phonebookItem(index, number, international, nameOctets(name));
        i32 written = 0;
        EXPECT_EQ(SM_WriteItem(index, &item, &written), 0U);
        sm_item_t expected = item;
        if (number[0] == '+') { expected.international = 1; }
        sm_item_t read;
        testing::internal::CaptureStdout();
        EXPECT_EQ(SM_ReadItem(index, &read), 0U);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), printedFor(0));
        EXPECT_TRUE(same(read, expected)) << index << " " << number;
    }
}

TEST_F(Contact, TwoHundredFiftyAreWrittenReadEditedAndDeleted) {
    Card card;
    Random random(66);
    std::vector<i32> indexes = indexesFrom(1, 250);
    for (const WriteContact write : {add_new_contact, edit_sim_contact}) {
        std::vector<pb_info_t> contacts;
        for (const i32 index : indexes) {
            contacts.push_back(
                clearedContact(index, randomName(&random), randomNumber(&random, 20)));
            EXPECT_EQ(write(&contacts.back()), 0U);
        }
        EXPECT_EQ(card.entries.size(), 250U);
        for (const pb_info_t &contact : contacts) { expectReadBack(contact); }
    }
    card.commands.clear();
    EXPECT_EQ(deleteMany(indexes), 0U);
    EXPECT_TRUE(card.entries.empty()) << "each was there, and once";
    EXPECT_EQ(card.commands, batchesOf(indexes));
    for (const i32 index : {1, 125, 250}) {
        const Guarded<pb_info_t> contact;
        EXPECT_EQ(read_contact(contact.get(), index), static_cast<i32>(NOT_FOUND));
    }
    EXPECT_EQ(liveBlocks(), 0U);
}
