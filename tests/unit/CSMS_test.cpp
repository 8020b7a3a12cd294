// The modem's message settings: how replies are judged, storages, service centre, character set.
#include "atlib/CSMS.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "support/library_test.h"
#include "support/sms_manager_test.h"

using namespace support;

namespace {

class ReplyStatus : public LibraryVectorTest {};
class Substring : public LibraryTest {};
class SimpleCommand : public SmsManagerTest {};
class Initialisation : public SmsManagerTest {};
class StorageCounts : public LibraryVectorTest {};
class StorageSelection : public SmsManagerTest {};
class StorageInfoReply : public LibraryVectorTest {};
class StorageInfo : public SmsManagerTest {};
class ServiceCentreReply : public LibraryVectorTest {};
class ServiceCentre : public SmsManagerTest {};
class ServiceCentreCache : public SmsManagerTest {};
class CentreNumber : public SmsManagerTest {};
class CharacterSetReply : public LibraryVectorTest {};
class CharacterSet : public SmsManagerTest {};

const char OK[] = "\r\nOK\r\n";
const char ERROR[] = "\r\nERROR\r\n";

// ---- judging replies

TEST_P(ReplyStatus, IsAsStated) {
    const auto reply = guardedText(withCharacters(v().text("reply")));
    EXPECT_EQ(checkATStatus(reply.get()), v().number("status"));
    if (v().has("cms")) { EXPECT_EQ(checkCMSError(reply.get()), v().number("cms")); }
    EXPECT_TRUE(logMessages().empty());
}
SMSPB_VECTORS(ReplyStatus, "reply_status.txt");

TEST_F(Substring, OfAMissingReplyIsNoneAndItsStatus25) {
    EXPECT_EQ(checkATStatus(nullptr), SMS_NO_REPLY_TEXT);
    EXPECT_EQ(SMS_NO_REPLY_TEXT, 25U);
    EXPECT_EQ(HasSubStr(nullptr, nullptr), nullptr);
    EXPECT_EQ(HasSubStr("OK", nullptr), nullptr);
    EXPECT_EQ(HasSubStr(nullptr, "OK"), nullptr);
}

TEST_F(Substring, IsTheFirstPlaceOfThePattern) {
    const auto text = guardedText("+CMGW: 1 +CMGW: 2");
    EXPECT_EQ(HasSubStr(text.get(), "+CMGW"), text.get());
    EXPECT_EQ(HasSubStr(text.get(), "CMGW: 2"), text.get() + 10);
    EXPECT_EQ(HasSubStr(text.get(), "2"), text.get() + 16);
    EXPECT_EQ(HasSubStr(text.get(), "2+"), nullptr);
    EXPECT_EQ(HasSubStr(text.get(), "cmgw"), nullptr);
    EXPECT_EQ(HasSubStr("", "x"), nullptr);
}

TEST_F(Substring, TheStatusCodesAreTheInterfaces) {
    EXPECT_EQ(SMS_OK, 0U);
    EXPECT_EQ(SMS_NO_REPLY, 20U);
    EXPECT_EQ(SMS_INVALID_ARGUMENT, 21U);
    EXPECT_EQ(SMS_FIELD_MISSING, 22U);
    EXPECT_EQ(SMS_NO_MEMORY, 23U);
    EXPECT_EQ(SMS_BAD_PDU, 24U);
    EXPECT_EQ(SMS_MODEM_ERROR, 26U);
    EXPECT_EQ(SMS_STORAGE_ME, 1U);
    EXPECT_EQ(SMS_STORAGE_SM, 2U);
}

// ---- commands whose reply is judged and nothing else

struct Command {
    const char *text;
    std::function<u32()> run;
};

std::vector<Command> makeSimpleCommands() {
    std::vector<Command> commands;
    const auto add = [&](const char *text, std::function<u32()> run) {
        commands.push_back({text, std::move(run)});
    };
    add("AT+CNMI=2,1,0,0,0\r", [] { return setInformmode(); });
    add("AT+CNMI=1,2,3,4,5\r", [] { return setNewMessageIndication(1, 2, 3, 4, 5); });
    add("AT+CNMI=-1,0,2147483647,-2147483648,7\r",
        [] { return setNewMessageIndication(-1, 0, INT32_MAX, INT32_MIN, 7); });
    add("AT+CSCB=0\r", [] { return setNewMessageChanel(0); });
    add("AT+CSCB=-1\r", [] { return setNewMessageChanel(-1); });
    add("AT+CPMS=\"ME\",\"ME\",\"ME\"\r", [] { return setReceiveMemStore(1); });
    add("AT+CPMS=\"SM\",\"SM\",\"SM\"\r", [] { return setReceiveMemStore(2); });
    add("AT+CSCS=\"IRA\"\r", [] { return setEcodingFormat(1); });
    add("AT+CSCS=\"GSM\"\r", [] { return setEcodingFormat(2); });
    add("AT+CSCS=\"UCS2\"\r", [] { return setEcodingFormat(3); });
    return commands;
}

const std::vector<Command> &simpleCommands() {
    static const std::vector<Command> commands = makeSimpleCommands();
    return commands;
}

TEST_F(SimpleCommand, ReturnsTheStatusOfItsReply) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {                       OK,  0},
        {                    ERROR, 26},
        {"\r\n+CMS ERROR: 302\r\n", 26},
        {    "\r\n+CMS ERROR: 302", 22},
        { "\r\n+CME ERROR: 13\r\n", 26},
        {                   "\r\n",  0},
        {                       "",  0},
        {                 NO_REPLY, 20},
        {               refused(1), 20},
        {          throughFile(OK),  0},
        {       throughFile(ERROR), 26},
    };
    for (const Command &command : simpleCommands()) {
        for (const auto &c : cases) {
            const ScriptedModem modem({
                {command.text, c.reply}
            });
            EXPECT_EQ(command.run(), c.status) << command.text << c.reply.text;
        }
    }
}

TEST_F(SimpleCommand, WaitsThreeSecondsForFourMarkersButTheIndicationModeForThree) {
    for (const Command &command : simpleCommands()) {
        const ScriptedModem modem({
            {command.text, OK}
        });
        command.run();
        const bool informMode = &command == &simpleCommands().front();
        expectRequestForm(modem, informMode ? 3 : 4);
    }
}

TEST_F(SimpleCommand, WithoutMemoryForTheReplyIsNoReply) {
    for (const Command &command : simpleCommands()) {
        const ScriptedModem modem({
            {command.text, OK}
        });
        failAllocation(1);
        EXPECT_EQ(command.run(), 20U) << command.text;
        EXPECT_EQ(liveBlocks(), 0U);
    }
}

TEST_F(SimpleCommand, WithoutIpcIsNoReply) {
    for (const Call call : {Call::GetAddress, Call::MemoryAssign}) {
        for (const Command &command : simpleCommands()) {
            failCall(call, 1);
            EXPECT_EQ(command.run(), 20U) << command.text;
        }
    }
}

TEST_F(SimpleCommand, AnArgumentOutOfRangeIs21AndSendsNothing) {
    const ScriptedModem modem({});
    u16 counts[2] = {7, 8};
    for (const u32 storage : {0U, 3U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(setReceiveMemStore(storage), 21U);
        EXPECT_EQ(setReadDeleteOpMemStore(storage, counts), 21U);
        EXPECT_EQ(setWriteSendOpMemStore(storage, counts), 21U);
        EXPECT_EQ(SM_GetStorageInfo_Sms(counts, storage), 21U);
    }
    for (const u32 code : {0U, 4U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(setEcodingFormat(code), 21U);
    }
    EXPECT_EQ(counts[0], 7);
    EXPECT_EQ(counts[1], 8);
}

// ---- start-up

const char INFORM[] = "AT+CNMI=2,1,0,0,0\r";
const char ALL_SIM[] = "AT+CPMS=\"SM\",\"SM\",\"SM\"\r";

TEST_F(Initialisation, TriesEachSettingUpToSevenTimes) {
    static const struct {
        unsigned informFailures, storageFailures;
        u32 status;
    } CASES[] = {
        {0, 0,  0},
        {1, 0,  0},
        {6, 0,  0},
        {0, 6,  0},
        {6, 6,  0},
        {7, 0, 20},
        {7, 6, 20},
        {0, 7, 20},
        {3, 7, 20},
        {7, 7, 20},
    };
    for (const auto &c : CASES) {
        for (const Reply &failure : {Reply(ERROR), NO_REPLY, Reply("+CMS ERROR: 1")}) {
            std::vector<Exchange> script(c.informFailures, Exchange(INFORM, failure));
            if (c.informFailures < 7) { script.emplace_back(INFORM, OK); }
            script.insert(script.end(), c.storageFailures, Exchange(ALL_SIM, failure));
            if (c.storageFailures < 7) { script.emplace_back(ALL_SIM, OK); }
            const ScriptedModem modem(script);
            EXPECT_EQ(InitSMS(), c.status) << c.informFailures << " and " << c.storageFailures;
        }
    }
}

// ---- selecting a storage

const u16 KEPT = 0x7777;
const char SELECTED[] = "\r\n+CPMS: 3,50,4,60,5,70\r\n\r\nOK\r\n";

struct Selector {
    const char *command;
    u32 storage;
    u32 (*run)(u32, u16 *);
    bool reading;
};
const Selector SELECTORS[] = {
    { "AT+CPMS=\"ME\"\r", 1, setReadDeleteOpMemStore,  true},
    { "AT+CPMS=\"SM\"\r", 2, setReadDeleteOpMemStore,  true},
    {"AT+CPMS=,\"ME\"\r", 1,  setWriteSendOpMemStore, false},
    {"AT+CPMS=,\"SM\"\r", 2,  setWriteSendOpMemStore, false},
};

TEST_P(StorageCounts, AreStoredOfTheFirstStorage) {
    const std::string reply = withCharacters(v().text("reply"));
    const u32 statuses[] = {v().number("writing"), v().number("reading")};
    for (const Selector &selector : SELECTORS) {
        const ScriptedModem modem({
            {selector.command, reply}
        });
        const Guarded<u16> counts(std::vector<u16>{KEPT, KEPT});
        EXPECT_EQ(selector.run(selector.storage, counts.get()), statuses[selector.reading]);
        EXPECT_EQ(counts[0], v().number("used", KEPT)) << selector.command;
        EXPECT_EQ(counts[1], v().number("total", KEPT)) << selector.command;
        expectRequestForm(modem, 4);
    }
    const ScriptedModem modem({
        {SELECTORS[0].command, reply}
    }); // null counts: judged all the same
    EXPECT_EQ(setReadDeleteOpMemStore(1, nullptr), statuses[1]);
}
SMSPB_VECTORS(StorageCounts, "storage_counts.txt");

TEST_F(StorageSelection, ForReadingLogsTheCountsAndForWritingDoesNot) {
    for (const Selector &selector : SELECTORS) {
        clearLog();
        const ScriptedModem modem({
            {selector.command, SELECTED}
        });
        u16 counts[2];
        EXPECT_EQ(selector.run(selector.storage, counts), 0U);
        const std::vector<std::string> lines = {"sms used: 3\n\n", "sms total: 50\n\n"};
        EXPECT_EQ(logMessagesIn("atlib/CSMS.cpp"),
                  selector.reading ? lines : std::vector<std::string>());
        EXPECT_EQ(logMessagesOf("setReadDeleteOpMemStore").size(), selector.reading ? 2U : 0U);
    }
}

TEST_F(StorageSelection, ForReadingLogsTheWholeReplyThatHasNoCounts) {
    const ScriptedModem modem({
        { "AT+CPMS=\"ME\"\r", "\r\nOK\r\n"},
        {"AT+CPMS=,\"ME\"\r",           OK}
    });
    u16 counts[2];
    EXPECT_EQ(setReadDeleteOpMemStore(1, counts), 22U);
    EXPECT_EQ(setWriteSendOpMemStore(1, counts), 0U);
    EXPECT_EQ(logMessagesOf("setReadDeleteOpMemStore"),
              std::vector<std::string>{"AT+CPMS return error:\r\nOK\r\n \n"});
    EXPECT_EQ(logMessagesIn("atlib/CSMS.cpp").size(), 1U);
}

TEST_F(StorageSelection, WithNullCountsStoresAndLogsNothing) {
    const ScriptedModem modem({
        {"AT+CPMS=\"ME\"\r", SELECTED}
    });
    EXPECT_EQ(setReadDeleteOpMemStore(1, nullptr), 0U);
    EXPECT_TRUE(logMessagesIn("atlib/CSMS.cpp").empty());
}

TEST_F(StorageSelection, WithoutAReplyIs20) {
    for (const Selector &selector : SELECTORS) {
        const ScriptedModem modem({
            {selector.command, NO_REPLY}
        });
        u16 counts[2] = {KEPT, KEPT};
        EXPECT_EQ(selector.run(selector.storage, counts), 20U);
        EXPECT_EQ(counts[0], KEPT);
    }
}

TEST_F(StorageSelection, ACountOfMoreThan99CharactersIsCutTo99) {
    const std::string blanks(120, ' ');
    const std::string reply =
        "+CPMS:" + blanks + "7," + std::string(98, ' ') + "6" + blanks + ",OK";
    for (const Selector &selector : SELECTORS) {
        const ScriptedModem modem({
            {selector.command, reply}
        });
        u16 counts[2] = {KEPT, KEPT};
        EXPECT_EQ(selector.run(selector.storage, counts), 0U);
        EXPECT_EQ(counts[0], 0); // the 7 lies behind the cut
        EXPECT_EQ(counts[1], 6);
    }
}

TEST_F(StorageSelection, AnyCutOfAGoodReplyIsJudgedByWhatIsLeft) {
    const std::string good = "\r\n+CPMS: 3,50,4,60,5,70\r\n\r\nOK\r\n";
    for (const Selector &selector : SELECTORS) {
        for (std::size_t length = 0; length <= good.size(); length++) {
            const std::string cut = good.substr(0, length);
            const auto commas = std::count(cut.begin(), cut.end(), ',');
            const bool hasKey = cut.find("+CPMS:") != std::string::npos;
            const u32 withoutKey = selector.reading ? 22 : 0;
            const ScriptedModem modem({
                {selector.command, cut}
            });
            u16 counts[2] = {KEPT, KEPT};
            EXPECT_EQ(selector.run(selector.storage, counts),
                      hasKey ? (commas >= 2 ? 0 : 22) : withoutKey)
                << cut;
            EXPECT_EQ(counts[0], commas >= 2 ? 3 : KEPT) << cut;
            EXPECT_EQ(counts[1], commas >= 2 ? 50 : KEPT) << cut;
        }
    }
}

// ---- the counts of a storage

const char ALL_ME[] = "AT+CPMS=\"ME\",\"ME\",\"ME\"\r";

TEST_P(StorageInfoReply, IsReadBehindTheSelectionForEverything) {
    const std::string reply = withCharacters(v().text("reply"));
    const ScriptedModem modem({
        {      ALL_ME,    OK},
        {"AT+CPMS?\r", reply}
    });
    const Guarded<u16> counts(std::vector<u16>{KEPT, KEPT});
    EXPECT_EQ(SM_GetStorageInfo_Sms(counts.get(), 1), 0U); // whatever the reply
    EXPECT_EQ(counts[0], v().number("used", KEPT));
    EXPECT_EQ(counts[1], v().number("total", KEPT));
    expectRequestForm(modem, 4);
}
SMSPB_VECTORS(StorageInfoReply, "storage_info.txt");

TEST_F(StorageInfo, HasNoBoundOnNameAndRemainder) {
    const std::string reply = "+CPMS: " + std::string(300, 'n') + ",3,50," + std::string(500, 'r');
    const ScriptedModem modem({
        {      ALL_ME,    OK},
        {"AT+CPMS?\r", reply}
    });
    u16 counts[2];
    EXPECT_EQ(SM_GetStorageInfo_Sms(counts, 1), 0U);
    EXPECT_EQ(counts[0], 3);
    EXPECT_EQ(counts[1], 50);
}

TEST_F(StorageInfo, OfTheSim) {
    const ScriptedModem modem({
        {     ALL_SIM,                     OK},
        {"AT+CPMS?\r", "+CPMS: \"SM\",1,10,x"}
    });
    u16 counts[2];
    EXPECT_EQ(SM_GetStorageInfo_Sms(counts, 2), 0U);
    EXPECT_EQ(counts[1], 10);
}

TEST_F(StorageInfo, AFailedSelectionIsReturnedAndNothingElseSent) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {          ERROR, 26},
        {"+CMS ERROR: 1", 22},
        {       NO_REPLY, 20}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem({
            {ALL_ME, c.reply}
        });
        u16 counts[2] = {KEPT, KEPT};
        EXPECT_EQ(SM_GetStorageInfo_Sms(counts, 1), c.status);
        EXPECT_EQ(counts[0], KEPT);
    }
}

TEST_F(StorageInfo, WithoutAReplyToTheQueryIs20) {
    const ScriptedModem modem({
        {      ALL_ME,       OK},
        {"AT+CPMS?\r", NO_REPLY}
    });
    u16 counts[2] = {KEPT, KEPT};
    EXPECT_EQ(SM_GetStorageInfo_Sms(counts, 1), 20U);
    EXPECT_EQ(counts[0], KEPT);
}

TEST_F(StorageInfo, WithoutMemoryForAReplyIs20) {
    for (const unsigned nth : {1U, 2U}) {
        ScriptedModem modem({
            {ALL_ME, OK}
        });
        modem.thenAlways("+CPMS: \"ME\",3,50,x");
        failAllocation(nth);
        u16 counts[2] = {KEPT, KEPT};
        EXPECT_EQ(SM_GetStorageInfo_Sms(counts, 1), 20U) << nth;
        EXPECT_EQ(counts[0], KEPT);
        allowAllocations();
    }
}

// ---- the service centre

const char ASK_CENTRE[] = "AT+CSCA?\r";
const char CENTRE[] = "\r\n+CSCA: \"+4912345\",145\r\n\r\nOK\r\n";

TEST_P(ServiceCentreReply, GivesTheTextBetweenTheFirstTwoQuotes) {
    const ScriptedModem modem({
        {ASK_CENTRE, withCharacters(v().text("reply"))}
    });
    Guarded<u16> out(21);
    EXPECT_EQ(readCSCA(out.get()), 0U);
    const std::string address = v().text("address");
    EXPECT_EQ(textOf(out.get()), std::u16string(address.begin(), address.end()));
    EXPECT_EQ(
        logMessagesOf("readCSCA"),
        (std::vector<std::string>{"check at status:0\n", "szcsca:" + v().text("logged") + "\n"}));
    expectRequestForm(modem, 4);
}
SMSPB_VECTORS(ServiceCentreReply, "centre_replies.txt");

TEST_F(ServiceCentre, WithFewerThanTwoQuotesIs22) {
    for (const char *reply : {"\r\nOK\r\n", "+CSCA: \"+49", "+CSCA: +49,145\r\nOK\r\n", ""}) {
        const ScriptedModem modem({
            {ASK_CENTRE, reply}
        });
        Guarded<u16> out(21, Fill::Cleared);
        EXPECT_EQ(readCSCA(out.get()), 22U) << reply;
    }
}

TEST_F(ServiceCentre, AnyFailedCommandIs20AndItsStatusIsLogged) {
    const struct {
        const char *reply, *logged;
    } cases[] = {
        {            ERROR, "check at status:26\n"},
        {"+CMS ERROR: 330", "check at status:22\n"}
    };
    for (const auto &c : cases) {
        clearLog();
        const ScriptedModem modem({
            {ASK_CENTRE, c.reply}
        });
        Guarded<u16> out(21);
        EXPECT_EQ(readCSCA(out.get()), 20U);
        EXPECT_EQ(logMessagesOf("readCSCA"), std::vector<std::string>{c.logged});
    }
    const ScriptedModem modem({
        {ASK_CENTRE, NO_REPLY}
    });
    Guarded<u16> out(21);
    EXPECT_EQ(readCSCA(out.get()), 20U);
}

TEST_F(ServiceCentre, AnyCutOfAGoodReplyIsJudgedByItsQuotes) {
    const std::string good = CENTRE;
    for (std::size_t length = 0; length <= good.size(); length++) {
        const std::string cut = good.substr(0, length);
        const bool complete = std::count(cut.begin(), cut.end(), '"') == 2;
        const ScriptedModem modem({
            {ASK_CENTRE, cut}
        });
        Guarded<u16> out(21, Fill::Cleared);
        EXPECT_EQ(readCSCA(out.get()), complete ? 0U : 22U) << cut;
        EXPECT_EQ(textOf(out.get()), complete ? u"+4912345" : u"") << cut;
    }
}

TEST_F(ServiceCentreCache, TheFirstCallGivesTheAddressAndTheSecondAnEmptyString) {
    const ScriptedModem modem({
        {ASK_CENTRE, CENTRE}
    });
    Guarded<u16> out(21);
    EXPECT_EQ(GetCSCA(out.get()), 0U);
    EXPECT_EQ(textOf(out.get()), u"+4912345");
    EXPECT_EQ(std::count(out.get() + 8, out.get() + 21, 0), 13);
    EXPECT_EQ(textOf(g_wszCsca), u"+4912345");
    EXPECT_EQ(g_blInitCsca, 1U);
    Guarded<u16> again(21);
    EXPECT_EQ(GetCSCA(again.get()), 0U);
    EXPECT_EQ(std::count(again.get(), again.get() + 21, 0), 21);
    EXPECT_EQ(textOf(g_wszCsca), u"+4912345");
}

TEST_F(ServiceCentreCache, AFailureClearsTheOutputAndLeavesTheCacheUnset) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {        ERROR, 20},
        {     NO_REPLY, 20},
        {           OK, 22},
        {"+CSCA: \"12", 22}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem({
            {ASK_CENTRE, c.reply},
            {ASK_CENTRE, c.reply}
        });
        for (int call = 0; call < 2; call++) { // it asks anew
            Guarded<u16> out(21);
            EXPECT_EQ(GetCSCA(out.get()), c.status);
            EXPECT_EQ(std::count(out.get(), out.get() + 21, 0), 21);
            EXPECT_EQ(g_blInitCsca, 0U);
            EXPECT_EQ(g_wszCsca[0], 0);
        }
    }
}

TEST_F(ServiceCentreCache, ASuccessAfterAFailureFillsIt) {
    const ScriptedModem modem({
        {ASK_CENTRE,  ERROR},
        {ASK_CENTRE, CENTRE}
    });
    u16 out[21];
    EXPECT_EQ(GetCSCA(out), 20U);
    EXPECT_EQ(GetCSCA(out), 0U);
    EXPECT_EQ(textOf(out), u"+4912345");
}

TEST_F(ServiceCentreCache, HoldsTheWholeAddressOfTwentyDigits) {
    const ScriptedModem modem({
        {ASK_CENTRE, "\"1234567890123456789012\" OK"}
    });
    Guarded<u16> out(21);
    EXPECT_EQ(GetCSCA(out.get()), 0U);
    EXPECT_EQ(textOf(g_wszCsca), u"12345678901234567890");
}

// ---- setting the service centre

const char ASK_CHARSET[] = "AT+CSCS?\r";
const char IRA[] = "\r\n+CSCS: \"IRA\"\r\n\r\nOK\r\n";
const char UCS2[] = "\r\n+CSCS: \"UCS2\"\r\n\r\nOK\r\n";
const char SET_CENTRE[] = "AT+CSCA = \"+4912345\"\r";

struct CentreCase {
    std::vector<Exchange> script;
    u32 status;
};

std::vector<CentreCase> centreCases() {
    const auto ask = [](Reply reply) { return Exchange(ASK_CHARSET, std::move(reply)); };
    const auto set = [](Reply reply) { return Exchange(SET_CENTRE, std::move(reply)); };
    const auto toIra = [](Reply reply) { return Exchange("AT+CSCS=\"IRA\"\r", std::move(reply)); };
    const auto back = [](Reply reply) { return Exchange("AT+CSCS=\"UCS2\"\r", std::move(reply)); };
    std::vector<CentreCase> cases;
    const auto add = [&](u32 status, std::vector<Exchange> script) {
        cases.push_back({std::move(script), status});
    };
    add(0, {ask(IRA), set(OK)});
    add(0, {ask("+CSCS: \"GSM\" OK"), set(OK)});
    add(0, {ask("+CSCS: \"8859-1\" OK"), set(OK)});
    add(26, {ask(IRA), set(ERROR)});
    add(22, {ask(IRA), set("+CMS ERROR: 3")});
    add(20, {ask(IRA), set(NO_REPLY)});
    // Asking for the character set fails: nothing is set.
    add(20, {ask(ERROR)});
    add(20, {ask("+CMS ERROR: 3")});
    add(20, {ask(NO_REPLY)});
    // UCS2 is switched to IRA and back, whatever becomes of the switches.
    add(0, {ask(UCS2), toIra(OK), set(OK), back(OK)});
    add(0, {ask(UCS2), toIra(ERROR), set(OK), back(NO_REPLY)});
    add(26, {ask(UCS2), toIra(NO_REPLY), set(ERROR), back(ERROR)});
    // Without a reply it stays switched.
    add(20, {ask(UCS2), toIra(OK), set(NO_REPLY)});
    return cases;
}

TEST_F(CentreNumber, IsSetInAnyCharacterSetButUcs2) {
    const Guarded<u16> number(units(u"+4912345"));
    for (const CentreCase &c : centreCases()) {
        const ScriptedModem modem(c.script);
        EXPECT_EQ(setCenterNumber(number.get()), c.status);
        expectRequestForm(modem, 4);
    }
}

TEST_F(CentreNumber, OfUpTo21UnitsIsSentWholeAndALongerOneIsCutTo21) {
    for (const std::size_t length : {0U, 1U, 20U, 21U, 22U, 23U, 43U, 44U, 500U}) {
        std::u16string number;
        for (std::size_t i = 0; i < length; i++) { number += static_cast<char16_t>(u'0' + i % 10); }
        const std::string kept = std::string("012345678901234567890").substr(0, length);
        const ScriptedModem modem({
            {                   ASK_CHARSET, IRA},
            {"AT+CSCA = \"" + kept + "\"\r",  OK}
        });
        EXPECT_EQ(setCenterNumber(Guarded<u16>(units(number)).get()), 0U) << length;
    }
}

TEST_F(CentreNumber, ThatIsMissingIs21AndSendsNothing) {
    const ScriptedModem modem({});
    EXPECT_EQ(setCenterNumber(nullptr), 21U);
    EXPECT_EQ(SetCSCA(nullptr), 21U);
}

TEST_F(CentreNumber, WithoutMemoryForAReplyIs20) {
    const Guarded<u16> number(units(u"+4912345"));
    for (const unsigned nth : {1U, 2U}) {
        ScriptedModem modem({
            {ASK_CHARSET, IRA}
        });
        modem.thenAlways(OK);
        failAllocation(nth);
        EXPECT_EQ(setCenterNumber(number.get()), 20U);
        allowAllocations();
    }
}

TEST_F(CentreNumber, ReachesTheCacheWithItsFirstTwoUnitsOnly) {
    for (const u32 flag : {0U, 1U}) {
        const ScriptedModem modem({
            {ASK_CHARSET, IRA},
            { SET_CENTRE,  OK}
        });
        std::fill(std::begin(g_wszCsca), std::end(g_wszCsca), u16{'x'});
        g_blInitCsca = flag;
        EXPECT_EQ(SetCSCA(units(u"+4912345").data()), 0U);
        EXPECT_EQ(g_blInitCsca, flag);
        EXPECT_EQ(g_wszCsca[0], '+');
        EXPECT_EQ(g_wszCsca[1], '4');
        EXPECT_EQ(std::count(g_wszCsca + 2, g_wszCsca + 21, u16{'x'}), 19);
    }
}

TEST_F(CentreNumber, OfOneUnitReachesTheCacheWithItsZero) {
    const ScriptedModem modem({
        {        ASK_CHARSET, IRA},
        {"AT+CSCA = \"7\"\r",  OK}
    });
    g_wszCsca[1] = 'x';
    EXPECT_EQ(SetCSCA(Guarded<u16>(units(u"7")).get()), 0U);
    EXPECT_EQ(textOf(g_wszCsca), u"7");
}

TEST_F(CentreNumber, ThatIsRefusedLeavesTheCacheAlone) {
    const std::vector<u16> number = units(u"+4912345");
    for (const CentreCase &c : centreCases()) {
        const ScriptedModem modem(c.script);
        for (u16 &unit : g_wszCsca) { unit = 'x'; }
        EXPECT_EQ(SetCSCA(number.data()), c.status);
        EXPECT_EQ(g_wszCsca[0], c.status == 0 ? '+' : 'x');
    }
}

// ---- the character set

TEST_P(CharacterSetReply, GivesItsCode) {
    const ScriptedModem modem({
        {ASK_CHARSET, withCharacters(v().text("reply"))}
    });
    u32 code = 77;
    EXPECT_EQ(getEcodingFormat(&code), 0U);
    EXPECT_EQ(code, v().number("code"));
    expectRequestForm(modem, 4);
}
SMSPB_VECTORS(CharacterSetReply, "charset_replies.txt");

TEST_F(CharacterSet, CodesAreTheInterfaces) {
    EXPECT_EQ(CHARSET_UNKNOWN, 0U);
    EXPECT_EQ(CHARSET_IRA, 1U);
    EXPECT_EQ(CHARSET_GSM, 2U);
    EXPECT_EQ(CHARSET_UCS2, 3U);
}

TEST_F(CharacterSet, IsLeftAloneByAFailure) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {"UCS2\r\nERROR\r\n", 26},
        { "+CMS ERROR: UCS2", 22},
        {           NO_REPLY, 20}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem({
            {ASK_CHARSET, c.reply}
        });
        u32 code = 77;
        EXPECT_EQ(getEcodingFormat(&code), c.status);
        EXPECT_EQ(code, 77U);
    }
}

TEST_F(CharacterSet, WithoutMemoryForTheReplyIs20) {
    const ScriptedModem modem({
        {ASK_CHARSET, IRA}
    });
    failAllocation(1);
    u32 code = 77;
    EXPECT_EQ(getEcodingFormat(&code), 20U);
    EXPECT_EQ(code, 77U);
}

} // namespace
