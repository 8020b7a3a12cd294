#include <algorithm>
#include <cstring>

#include "atlib/CPbSIM.h"
#include "support/library_test.h"
#include "support/phonebook.h"
#include "support/random.h"

using namespace support;

namespace {

const u32 NOT_FOUND = 27, UNREADABLE = 28, NO_ANSWER = 29, NO_MEMORY = 30, OUT_OF_RANGE = 32,
          REFUSED = 33;
const std::string OK = "\r\nOK\r\n";
const std::string ERROR = "\r\n+CME ERROR: 10\r\n";
const i32 UNTOUCHED = -7;

using Texts = std::vector<std::string>;

class PhonebookWrite : public LibraryTest {};
class PhonebookRead : public LibraryTest {};
class PhonebookDelete : public LibraryTest {};

Texts logged() { return logMessagesIn("atlib/CPbSIM.cpp"); }

// The record is filled with 0xA5 beyond the item's fields too, so `same` looks at the fields.
sm_item_t garbage() {
    sm_item_t item;
    std::memset(&item, 0xA5, sizeof(item));
    return item;
}

struct Written {
    u32 status;
    i32 index;
};

// What one write says when the modem answers `reply` to `command`.
Written write(const std::string &command, const Reply &reply, i32 index, const sm_item_t &item) {
    ScriptedModem modem({
        {command, reply}
    });
    Written written = {0, UNTOUCHED};
    const Guarded<sm_item_t> guarded(std::vector<sm_item_t>{item});
    written.status = SM_WriteItem(index, guarded.get(), &written.index);
    EXPECT_TRUE(same(*guarded, item)) << "the item is only read";
    return written;
}

// Reads index 7 with the given reply; what stands on standard output comes along.
struct Read {
    u32 status = 0;
    sm_item_t item = garbage();
    std::string printed;
};

Read readWith(const Reply &reply, i32 index = 7) {
    ScriptedModem modem({
        {readCommand(index), reply}
    });
    Read read;
    const Guarded<sm_item_t> item;
    testing::internal::CaptureStdout();
    read.status = SM_ReadItem(index, item.get());
    read.printed = testing::internal::GetCapturedStdout();
    read.item = *item;
    return read;
}

} // namespace
// SM_WriteItem

TEST_F(PhonebookWrite, NumberTypeAndNameAreSent) {
    ScriptedModem modem({
        {"AT+CPBW=5,\"+4912345\",145,\"00410042\"\r", OK}
    });
    const sm_item_t item = phonebookItem(99, "+4912345", 0, nameOctets(u"AB"));
    i32 written = UNTOUCHED;
    EXPECT_EQ(SM_WriteItem(5, &item, &written), 0U);
    EXPECT_EQ(written, 5);
    ASSERT_EQ(modem.requests().size(), 1U);
    EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
    EXPECT_EQ(modem.requests()[0].markers, phonebookMarkers());
    EXPECT_EQ(modem.requests()[0].ipcTimeout, 20000U);
    EXPECT_EQ(logged(), Texts{});
}

TEST_F(PhonebookWrite, TypeIs145ForTheFlagOrAPlusSign) {
    const struct {
        const char *number;
        i32 flag;
        const char *type;
    } cases[] = {
        {"+331234",  0, "145"},
        {   "0612",  0, "129"},
        {   "0612",  1, "145"},
        {"+331234",  1, "145"},
        {   "0612",  2, "129"},
        {   "0612", -1, "129"},
        {"+331234",  2, "145"},
        {  "0+612",  0, "129"},
        {       "",  0, "129"},
        {       "",  1, "145"},
        {      "+",  0, "145"},
    };
    for (const auto &c : cases) {
        const std::string command =
            "AT+CPBW=1,\"" + std::string(c.number) + "\"," + c.type + ",\"\"\r";
        const Written written = write(command, OK, 1, phonebookItem(0, c.number, c.flag, {}));
        EXPECT_EQ(written.status, 0U);
    }
}

TEST_F(PhonebookWrite, NameEndsAtItsFirstZeroUnit) {
    EXPECT_EQ(write("AT+CPBW=1,\"1\",129,\"004141000101\"\r", OK, 1,
                    phonebookItem(0, "1", 0, octets("0041 4100 0101 0000 0042")))
                  .status,
              0U);
}

TEST_F(PhonebookWrite, LongestItemIsNotCut) {
    const std::string number(50, '8');
    std::vector<u8> name;
    for (u32 i = 0; i < 50; i++) {
        name.push_back(0x4E);
        name.push_back(static_cast<u8>(i + 1));
    }
    const std::string command =
        "AT+CPBW=-2147483648,\"" + number + "\",129,\"" + hex(name) + "\"\r";
    const Written written = write(command, OK, INT32_MIN, phonebookItem(0, number, 0, name));
    EXPECT_EQ(written.status, 0U);
    EXPECT_EQ(written.index, INT32_MIN);
}

TEST_F(PhonebookWrite, AnyIndexIsSentAsItIs) {
    for (const i32 index : {0, 1, -1, 250, 501, 100000}) {
        const std::string command = "AT+CPBW=" + std::to_string(index) + ",\"1\",129,\"\"\r";
        EXPECT_EQ(write(command, OK, index, phonebookItem(7, "1", 0, {})).index, index);
    }
}

TEST_F(PhonebookWrite, RefusalGives33AndSilence29AndNeitherStoresAnIndex) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {              NO_REPLY, NO_ANSWER},
        {            refused(2), NO_ANSWER},
        {                 ERROR,   REFUSED},
        {       "\r\nERROR\r\n",   REFUSED},
        {                    "",   REFUSED},
        {"\r\n+CPBW: 5\r\n\r\n",   REFUSED},
    };
    for (const auto &c : cases) {
        const Written written =
            write("AT+CPBW=5,\"1\",129,\"\"\r", c.reply, 5, phonebookItem(0, "1", 0, {}));
        EXPECT_EQ(written.status, c.status) << c.reply.text;
        EXPECT_EQ(written.index, UNTOUCHED);
    }
    failAllocation(1);
    EXPECT_EQ(write("AT+CPBW=5,\"1\",129,\"\"\r", OK, 5, phonebookItem(0, "1", 0, {})).status,
              NO_ANSWER)
        << "no memory for the reply";
}

TEST_F(PhonebookWrite, OtherNamesWriteTheSame) {
    const sm_item_t item = phonebookItem(12, "0612", 0, nameOctets(u"A"));
    const std::string rest = ",\"0612\",129,\"0041\"\r";
    {
        ScriptedModem modem({
            {"AT+CPBW=5" + rest,    OK},
            {"AT+CPBW=5" + rest, ERROR}
        });
        i32 index = UNTOUCHED;
        EXPECT_EQ(writePBSim(5, &item, &index), 0U);
        EXPECT_EQ(index, 5);
        EXPECT_EQ(writePBSim(5, &item, &index), REFUSED);
    }
    {
        ScriptedModem modem({
            {"AT+CPBW=12" + rest,    OK},
            {"AT+CPBW=12" + rest, ERROR}
        });
        i32 index = UNTOUCHED;
        EXPECT_EQ(newPBSim(&item, &index), 0U);
        EXPECT_EQ(index, 12) << "the item's own";
        EXPECT_EQ(newPBSim(&item, &index), REFUSED);
    }
    ScriptedModem modem({
        {"AT+CPBW=5" + rest,       OK},
        {"AT+CPBW=5" + rest, NO_REPLY}
    });
    EXPECT_EQ(editPBSim(5, &item), 0U);
    EXPECT_EQ(editPBSim(5, &item), NO_ANSWER);
}

// SM_ReadItem

TEST_F(PhonebookRead, EntryIsReadAndSaidOnStandardOutput) {
    const Read read = readWith("\r\n+CPBR: 7,\"+4912345\",145,\"00410042\"\r\n\r\nOK\r\n");
    EXPECT_EQ(read.status, 0U);
    EXPECT_TRUE(same(read.item, phonebookItem(7, "+4912345", 1, nameOctets(u"AB"))));
    EXPECT_EQ(read.printed, "come here!\nnErr = 0\nPB_SUCCESS!\n");
    EXPECT_EQ(logged(), Texts{"contact name len:8 hex len:4\n\n"});
}

TEST_F(PhonebookRead, CommandHasItsWaitAndMarkers) {
    ScriptedModem modem({
        {"AT+CPBR=7\r", ERROR}
    });
    sm_item_t item;
    EXPECT_EQ(SM_ReadItem(7, &item), REFUSED);
    EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
    EXPECT_EQ(modem.requests()[0].markers, phonebookMarkers());
}

TEST_F(PhonebookRead, IndexOf0Or501OrMoreGives32AndSendsNothing) {
    ScriptedModem modem({});
    for (const i32 index : {0, 501, 502, 100000, INT32_MAX}) {
        sm_item_t item = garbage();
        EXPECT_EQ(SM_ReadItem(index, &item), OUT_OF_RANGE) << index;
        EXPECT_EQ(readPBSim(index, &item), OUT_OF_RANGE) << index;
    }
}

TEST_F(PhonebookRead, IndexOf500IsSentAndANegativeOneToo) {
    for (const i32 index : {1, 500, -1, -501, INT32_MIN}) {
        EXPECT_EQ(readWith(OK, index).status, NOT_FOUND) << index;
    }
}

TEST_F(PhonebookRead, EmptyLocationGives27AndAClearedItem) {
    const Read read = readWith(OK);
    EXPECT_EQ(read.status, NOT_FOUND);
    EXPECT_TRUE(same(read.item, phonebookItem(0, "", 0, {})));
    EXPECT_EQ(read.printed, "");
}

TEST_F(PhonebookRead, ItemIsClearedBeforeTheCommandIsSent) {
    for (const Reply &reply : {NO_REPLY, Reply(ERROR)}) {
        EXPECT_TRUE(same(readWith(reply).item, phonebookItem(0, "", 0, {})));
    }
}

TEST_F(PhonebookRead, SilenceGives29AndAReplyWithoutOk33) {
    EXPECT_EQ(readWith(NO_REPLY).status, NO_ANSWER);
    EXPECT_EQ(readWith(refused(1)).status, NO_ANSWER);
    for (const char *reply :
         {"", "\r\nERROR\r\n", "\r\n+CME ERROR: 22\r\n", "+CPBR: 7,\"1\",129,\"0041\"\r\n"}) {
        const Read read = readWith(reply);
        EXPECT_EQ(read.status, REFUSED) << reply;
        EXPECT_EQ(read.printed, "");
    }
}

TEST_F(PhonebookRead, LastReadableLineIsLeftAndTheLastLineGivesTheStatus) {
    const std::string first = "7,\"1\",129,\"0041\"", second = "8,\"2\",145,\"0042\"", bad = "9";
    const sm_item_t one = phonebookItem(7, "1", 0, nameOctets(u"A")),
                    two = phonebookItem(8, "2", 1, nameOctets(u"B")),
                    none = phonebookItem(0, "", 0, {});
    const struct {
        Texts lines;
        u32 status;
        sm_item_t item;
        std::string printed;
    } cases[] = {
        {     {first, second},          0,  two,                  printedFor(0) + printedFor(0)},
        {     {second, first},          0,  one,                  printedFor(0) + printedFor(0)},
        {        {first, bad}, UNREADABLE,  one,                 printedFor(0) + printedFor(28)},
        {        {bad, first},          0,  one,                 printedFor(28) + printedFor(0)},
        {          {bad, bad}, UNREADABLE, none,                printedFor(28) + printedFor(28)},
        {{first, bad, second},          0,  two, printedFor(0) + printedFor(28) + printedFor(0)},
    };
    for (const auto &c : cases) {
        const Read read = readWith(entries(c.lines));
        EXPECT_EQ(read.status, c.status);
        EXPECT_TRUE(same(read.item, c.item));
        EXPECT_EQ(read.printed, c.printed);
    }
}

TEST_F(PhonebookRead, ReplyOfAsManyLinesAsItHoldsIsReadToItsEnd) {
    Texts lines;
    for (i32 i = 1; i <= 39; i++) { lines.push_back(std::to_string(i) + ",\"1\",129,\"0041\""); }
    std::string printed;
    for (std::size_t i = 0; i < lines.size(); i++) { printed += printedFor(0); }
    const std::string reply = entries(lines);
    ASSERT_GT(reply.size(), 900U);
    ASSERT_LT(reply.size(), 1024U);
    const Read read = readWith(throughFile(reply));
    EXPECT_EQ(read.status, 0U);
    EXPECT_EQ(read.item.index, 39);
    EXPECT_EQ(read.printed, printed);
}

TEST_F(PhonebookRead, FewerThanEightCharactersEndTheReading) {
    const std::string entry = "+CPBR: 7,\"1\",129,\"0041\"\r\n";
    for (const char *end : {"+CPBR:", "+CPBR: ", "+CPBR:x"}) {
        EXPECT_EQ(readWith("OK\r\n" + std::string(end)).status, NOT_FOUND) << end;
        const Read read = readWith("OK\r\n" + entry + end);
        EXPECT_EQ(read.status, 0U) << end;
        EXPECT_EQ(read.printed, printedFor(0));
    }
}

TEST_F(PhonebookRead, LineWithoutItsEndGives28) {
    const std::string entry = "+CPBR: 7,\"1\",129,\"0041\"";
    for (const char *end : {"", "\r", "\n", "\n\r"}) {
        const Read read = readWith("OK\r" + entry + end);
        EXPECT_EQ(read.status, UNREADABLE);
        EXPECT_EQ(read.printed, "") << "not even tried";
    }
    const Read read = readWith("OK\r\n" + entry + "\r\n" + "+CPBR: 8");
    EXPECT_EQ(read.status, UNREADABLE);
    EXPECT_EQ(read.item.index, 7) << "the line before it is left";
    EXPECT_EQ(read.printed, printedFor(0));
}

TEST_F(PhonebookRead, CharacterBehindTheColonIsSkippedWhateverItIs) {
    EXPECT_EQ(readWith("+CPBR:x7,\"1\",129,\"0041\"\r\nOK\r\n").item.index, 7);
    const Read read = readWith("+CPBR:7,\"1\",129,\"0041\"\r\nOK\r\n");
    EXPECT_EQ(read.status, UNREADABLE) << "the index was the blank";
    EXPECT_EQ(read.printed, printedFor(28));
}

TEST_F(PhonebookRead, ReplyCutAnywhereIsReadWithinItsEnd) {
    const std::string whole = "OK\r\n+CPBR: 7,\"1\",129,\"0041\"\r\n";
    const std::size_t key = whole.find("+CPBR:");
    for (std::size_t kept = 0; kept <= whole.size(); kept++) {
        const u32 status = readWith(whole.substr(0, kept)).status;
        if (kept < 2) {
            EXPECT_EQ(status, REFUSED) << kept;
        } else if (kept < key + 8) {
            EXPECT_EQ(status, NOT_FOUND) << kept;
        } else {
            EXPECT_EQ(status, kept < whole.size() ? UNREADABLE : 0U) << kept;
        }
    }
}

TEST_F(PhonebookRead, LongestLineIsWhole) {
    const std::string line = "7,\"1\",129,\"" + std::string(980, '0') + "\"";
    const Read read = readWith(throughFile("OK\r\n+CPBR: " + line + "\r\n"));
    EXPECT_EQ(read.status, 0U);
    EXPECT_EQ(read.item.index, 7);
    EXPECT_EQ(readWith(throughFile("OK\r\n+CPBR: " + std::string(1009, '7') + "\r\n")).status,
              UNREADABLE);
}

TEST_F(PhonebookRead, WithoutMemoryGives29ForTheReplyAnd30ForALine) {
    const std::string reply = entries({"7,\"1\",129,\"0041\"", "8,\"2\",129,\"0042\""});
    const struct {
        unsigned nth;
        u32 status;
        i32 index;
        std::string printed;
    } cases[] = {
        {1, NO_ANSWER, 0,                             ""},
        {2,         0, 8, printedFor(30) + printedFor(0)},
        {3,         0, 8, printedFor(30) + printedFor(0)},
        {4, NO_MEMORY, 7, printedFor(0) + printedFor(30)},
        {5, NO_MEMORY, 7, printedFor(0) + printedFor(30)},
        {6,         0, 8,  printedFor(0) + printedFor(0)},
    };
    for (const auto &c : cases) {
        failAllocation(c.nth);
        const Read read = readWith(reply);
        EXPECT_EQ(read.status, c.status) << c.nth;
        EXPECT_EQ(read.item.index, c.index) << c.nth;
        EXPECT_EQ(read.printed, c.printed) << c.nth;
        EXPECT_EQ(liveBlocks(), 0U);
    }
}

TEST_F(PhonebookRead, OtherNameReadsTheSame) {
    ScriptedModem modem({
        {"AT+CPBR=7\r", entries({"7,\"1\",129,\"0041\""})}
    });
    sm_item_t item = garbage();
    testing::internal::CaptureStdout();
    EXPECT_EQ(readPBSim(7, &item), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printedFor(0));
    EXPECT_TRUE(same(item, phonebookItem(7, "1", 0, nameOctets(u"A"))));
}

// SM_DeleteItem and SM_DeleteMultiItems

TEST_F(PhonebookDelete, OneEntryIsWrittenWithNothing) {
    for (const i32 index : {1, 7, 250, 501, -1}) {
        ScriptedModem modem({
            {deleteCommand(index), OK},
            {deleteCommand(index), OK}
        });
        EXPECT_EQ(SM_DeleteItem(index), 0U);
        EXPECT_EQ(deletePBSim(index), 0U);
        EXPECT_EQ(modem.requests()[0].waitMs, 3000U);
        EXPECT_EQ(modem.requests()[0].markers, phonebookMarkers());
    }
}

TEST_F(PhonebookDelete, IndexOf0Gives28AndSendsNothing) {
    ScriptedModem modem({});
    EXPECT_EQ(SM_DeleteItem(0), UNREADABLE);
    EXPECT_EQ(deletePBSim(0), UNREADABLE);
    const i32 indexes[] = {0, 1};
    EXPECT_EQ(SM_DeleteMultiItems(indexes, 2), UNREADABLE);
}

TEST_F(PhonebookDelete, SilenceGives29AndRefusal33) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {  NO_REPLY, NO_ANSWER},
        {refused(1), NO_ANSWER},
        {     ERROR,   REFUSED},
        {        "",   REFUSED}
    };
    for (const auto &c : cases) {
        ScriptedModem modem({
            {deleteCommand(3), c.reply},
            {deleteCommand(3), c.reply}
        });
        EXPECT_EQ(SM_DeleteItem(3), c.status);
        EXPECT_EQ(deletePBSim(3), c.status);
    }
    ScriptedModem modem({
        {deleteCommand(3), OK}
    });
    failAllocation(1);
    EXPECT_EQ(SM_DeleteItem(3), NO_ANSWER) << "no memory for the reply";
}

namespace {

u32 entriesIn(const std::string &command) {
    return static_cast<u32>(std::count(command.begin(), command.end(), ';'));
}

// The commands that deleting sends when every one is acknowledged.
Texts deletionsOf(const std::vector<i32> &indexes) {
    ScriptedModem modem({});
    modem.thenAlways(OK);
    EXPECT_EQ(deleteMany(indexes), 0U);
    for (const Request &request : modem.requests()) {
        EXPECT_EQ(request.waitMs, 50000U);
        EXPECT_EQ(request.markers, phonebookMarkers());
        EXPECT_EQ(request.ipcTimeout, 20000U) << "the channel's wait stays";
    }
    return modem.commands();
}

} // namespace

TEST_F(PhonebookDelete, SeveralEntriesTravelInOneCommand) {
    EXPECT_EQ(deletionsOf({3, 4, 9}), Texts{"AT+CPBW=3;+CPBW=4;+CPBW=9;\r"});
    EXPECT_EQ(deletionsOf({3}), Texts{"AT+CPBW=3;\r"});
    EXPECT_EQ(deletionsOf({-3}), Texts{"AT+CPBW=-3;\r"});
    EXPECT_EQ(deletionsOf({3, 3}), Texts{"AT+CPBW=3;+CPBW=3;\r"});
}

TEST_F(PhonebookDelete, NoEntriesSendNothing) {
    ScriptedModem modem({});
    EXPECT_EQ(SM_DeleteMultiItems(nullptr, 0), 0U);
    EXPECT_EQ(SM_DeleteMultiItems(nullptr, -1), 0U);
}

TEST_F(PhonebookDelete, FortyEntriesAreOneCommandAndFortyOneTwo) {
    const Texts one = deletionsOf(indexesFrom(1, 40));
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(entriesIn(one[0]), 40U);
    const Texts two = deletionsOf(indexesFrom(1, 41));
    ASSERT_EQ(two.size(), 2U);
    EXPECT_EQ(two[0], one[0]);
    EXPECT_EQ(two[1], "AT+CPBW=41;\r");
    EXPECT_EQ(deletionsOf(indexesFrom(1, 80)).size(), 2U);
    EXPECT_EQ(deletionsOf(indexesFrom(1, 81)).size(), 3U);
}

TEST_F(PhonebookDelete, TextOf501CharactersIsSentBeforeFortyEntries) {
    // "+CPBW=123456;" has 13 characters, "+CPBW=12345;" 12 and "+CPBW=1234;" 11.
    std::vector<i32> indexes(31, 123456);
    indexes.insert(indexes.end(), 8, 12345); // 2 + 31 * 13 + 8 * 12 = 501
    indexes.push_back(7);
    const Texts reached = deletionsOf(indexes);
    ASSERT_EQ(reached.size(), 2U);
    EXPECT_EQ(reached[0].size(), 501U + 1);
    EXPECT_EQ(entriesIn(reached[0]), 39U);
    EXPECT_EQ(reached[1], "AT+CPBW=7;\r");

    indexes[30] = 12345; // one character less
    const Texts below = deletionsOf(indexes);
    ASSERT_EQ(below.size(), 1U);
    EXPECT_EQ(entriesIn(below[0]), 40U);
}

TEST_F(PhonebookDelete, LargeIndexesNeverOutgrowTheirText) {
    for (const i32 index : {INT32_MAX, INT32_MIN, 1000000, -99999, 100000}) {
        const std::vector<i32> indexes(250, index);
        const Texts commands = deletionsOf(indexes);
        EXPECT_EQ(commands, batchesOf(indexes)) << index;
        for (const std::string &command : commands) { EXPECT_LT(command.size(), 501U + 18 + 1); }
    }
}

TEST_F(PhonebookDelete, TwoHundredFiftyEntriesAreSevenCommands) {
    const std::vector<i32> indexes = indexesFrom(1, 250);
    const Texts commands = deletionsOf(indexes);
    EXPECT_EQ(commands, batchesOf(indexes));
    ASSERT_EQ(commands.size(), 7U);
    std::string all;
    for (const std::string &command : commands) {
        EXPECT_EQ(command.substr(0, 2), "AT");
        EXPECT_EQ(command.back(), '\r');
        EXPECT_LE(entriesIn(command), 40U);
        EXPECT_LE(command.size(), 501U);
        all += command.substr(2, command.size() - 3);
    }
    std::string expected;
    for (const i32 index : indexes) { expected += "+CPBW=" + std::to_string(index) + ";"; }
    EXPECT_EQ(all, expected) << "each once, in order";
}

TEST_F(PhonebookDelete, RandomIndexesAreBatchedWithinBothLimits) {
    Random random(63);
    for (u32 round = 0; round < 200; round++) {
        std::vector<i32> indexes;
        for (u32 i = random.below(300); i > 0; i--) {
            const u32 shift = random.below(31);
            const i32 index = static_cast<i32>(random.bits() >> 1 >> shift);
            indexes.push_back(index == 0 ? 1 : random.below(4) == 0 ? -index : index);
        }
        const Texts commands = deletionsOf(indexes);
        EXPECT_EQ(commands, batchesOf(indexes));
        for (const std::string &command : commands) {
            const std::size_t last = command.rfind('+');
            EXPECT_LE(entriesIn(command), 40U);
            EXPECT_LT(last, 501U) << "no entry begun behind the limit";
        }
    }
}

TEST_F(PhonebookDelete, ZeroStopsBeforeItsBatchAndBatchesSentStaySent) {
    std::vector<i32> indexes = indexesFrom(1, 45);
    indexes[43] = 0;
    ScriptedModem modem({
        {batchesOf(indexesFrom(1, 40))[0], OK}
    });
    EXPECT_EQ(deleteMany(indexes), UNREADABLE);
}

TEST_F(PhonebookDelete, FirstFailureStopsTheBatches) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {NO_REPLY, NO_ANSWER},
        {   ERROR,   REFUSED}
    };
    const std::vector<i32> indexes = indexesFrom(1, 100);
    const Texts batches = batchesOf(indexes);
    ASSERT_EQ(batches.size(), 3U);
    for (const auto &c : cases) {
        for (std::size_t failing = 0; failing < batches.size(); failing++) {
            std::vector<Exchange> script;
            for (std::size_t i = 0; i < failing; i++) { script.emplace_back(batches[i], OK); }
            script.emplace_back(batches[failing], c.reply);
            ScriptedModem modem(script);
            EXPECT_EQ(deleteMany(indexes), c.status) << failing;
        }
    }
    ScriptedModem modem({
        {batches[0], OK},
        {batches[1], OK}
    });
    failAllocation(2);
    EXPECT_EQ(deleteMany(indexes), NO_ANSWER) << "no memory for the second reply";
}
