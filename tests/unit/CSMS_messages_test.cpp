// Sending and saving, reading and deleting messages.
#include "atlib/CSMS.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "support/library_test.h"
#include "support/reference_pdu.h"
#include "support/reference_text.h"
#include "support/sms_manager_test.h"

using namespace support;

namespace {

const char OK[] = "\r\nOK\r\n";
const char ERROR[] = "\r\nERROR\r\n";
const char SENT[] = "\r\n+CMGS: 5\r\n\r\nOK\r\n";
constexpr u32 COMPOSITION_FAILED = 0xFFFFFFFF; // -1 as it comes
constexpr u32 TO_BE_FILLED = 0xFFFFFFFF;
constexpr u8 UNTOUCHED = 0x77;

struct Free {
    void operator()(void *block) const { free(block); }
};
template <typename T> using Block = std::unique_ptr<T, Free>;

class Sending : public SmsManagerTest {};
class SendingASegment : public SmsManagerTest {};
class Saving : public SmsManagerTest {};
class SavingASegment : public SmsManagerTest {};
class SavedIndexReply : public LibraryVectorTest {};
class SavedIndex : public SmsManagerTest {};
class Reading : public SmsManagerTest {};
class GoodReadReply : public LibraryVectorTest {};
class ReadReply : public SmsManagerTest {};
class RecordTime : public SmsManagerTest {};
class NewMessageLine : public LibraryVectorTest {};
class NewMessageIndication : public SmsManagerTest {};
class Deleting : public SmsManagerTest {};

// The 42 octets of a number field against a guard page.
Guarded<u16> numberField(std::string_view number) {
    Guarded<u16> field(SMS_NUMBER_UNITS, Fill::Cleared);
    for (std::size_t i = 0; i < number.size(); i++) { field[i] = static_cast<u16>(number[i]); }
    return field;
}

Guarded<u16> myNumber() { return numberField("+4912345"); }

// The concatenation reference that the next message gets.
u8 nextReference() {
    const std::vector<u16> text = units(std::u16string(161, u'a'));
    SmsMessage request = {};
    request.text = const_cast<u16 *>(text.data());
    SmsSegment *segments = nullptr;
    u8 count = 0;
    EXPECT_EQ(sms_encode_pdu(&request, &segments, &count), 0);
    const Block<SmsSegment> owned(segments);
    SmsMessage decoded = {};
    EXPECT_EQ(sms_decode_pdu(owned->pdu, &decoded), 0);
    free(decoded.text);
    return static_cast<u8>(decoded.reference + 1);
}

// One exchange a segment; `replies` in order, "OK" behind their end.
std::vector<Exchange> exchanges(Ask ask, const std::u16string &text, bool ucs2,
                                const std::vector<Reply> &replies, std::size_t count) {
    const auto segments = reference::submits(text, ucs2, nextReference());
    clearLog();
    resetHeap();
    std::vector<Exchange> script;
    for (std::size_t i = 0; i < std::min(count, segments.size()); i++) {
        script.emplace_back(ask, segments[i].pdu, i < replies.size() ? replies[i] : Reply(OK));
    }
    return script;
}

constexpr std::size_t ALL = 1000;

std::vector<std::string> finishedLines(unsigned count) {
    std::vector<std::string> lines;
    for (unsigned i = 0; i < count; i++) {
        lines.push_back("send NO " + std::to_string(i) + " pdu finished\n\n");
    }
    return lines;
}

// ---- sending

TEST_F(Sending, ATextOfOneSegmentIsOneRequest) {
    const ScriptedModem modem(exchanges(Ask::Send, u"hello", false, {SENT}, ALL));
    const Guarded<u16> text(units(u"hello"));
    u8 sent = UNTOUCHED;
    EXPECT_EQ(SendSMS(myNumber().get(), text.get(), 0, &sent), 0U);
    EXPECT_EQ(sent, 1);
    EXPECT_EQ(logMessagesIn("atlib/CSMS.cpp"), finishedLines(1));
    EXPECT_EQ(logMessagesOf("SendSMS"), finishedLines(1));
    ASSERT_EQ(modem.requests().size(), 1U);
    EXPECT_EQ(modem.requests()[0].ipcTimeout, 35000U);
    EXPECT_EQ(modem.requests()[0].destination, 1U);
    EXPECT_EQ(allocationSizes(), (std::vector<std::size_t>{12, 404, std::strlen(SENT) + 1}));
}

TEST_F(Sending, TextsOfManySegmentsAreSentInOrder) {
    const struct {
        std::u16string text;
        bool ucs2;
        unsigned segments;
    } cases[] = {
        {      std::u16string(307,      u'a'), false,   3},
        {       std::u16string(71, u'\u0416'),  true,   2},
        {std::u16string(153 * 200,      u'b'), false, 200},
        {    std::u16string(17085, u'\u0416'),  true, 255},
        {                     u"",      false,     1    },
    };
    for (const auto &c : cases) {
        const ScriptedModem modem(exchanges(Ask::Send, c.text, c.ucs2, {}, ALL));
        const std::vector<u16> text = units(c.text);
        u8 sent = UNTOUCHED;
        EXPECT_EQ(SendSMS(myNumber().get(), text.data(), 0, &sent), 0U);
        EXPECT_EQ(sent, c.segments);
        EXPECT_EQ(modem.requests().size(), c.segments);
        EXPECT_EQ(logMessagesOf("SendSMS"), finishedLines(c.segments));
    }
}

TEST_F(Sending, StopsAtTheFirstSegmentThatFails) {
    const std::u16string text(307, u'a');
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {               ERROR, 26},
        {"+CMS ERROR: 38\r\n", 26},
        {    "+CMS ERROR: 38", 22},
        {            NO_REPLY, 25},
        {          refused(3), 25},
        {     "+CME ERROR: 1", 26}
    };
    for (const auto &c : cases) {
        for (unsigned good = 0; good < 3; good++) {
            std::vector<Reply> replies(good, Reply(SENT));
            replies.push_back(c.reply);
            const ScriptedModem modem(exchanges(Ask::Send, text, false, replies, good + 1));
            u8 sent = UNTOUCHED;
            EXPECT_EQ(SendSMS(myNumber().get(), units(text).data(), 0, &sent), c.status);
            EXPECT_EQ(sent, 0); // also when some went out
            EXPECT_EQ(logMessagesOf("SendSMS"), finishedLines(good));
        }
    }
}

TEST_F(Sending, AsksForAReportWithAnyNonzeroFlag) {
    for (const u8 flag : {u8{0}, u8{1}, u8{2}, u8{0x80}, u8{255}}) {
        const std::string first = flag != 0 ? "21" : "01";
        const ScriptedModem modem({
            {Ask::Send, "00" + first + "FF0791942143F5000005E8329BFD06", OK}
        });
        u8 sent = 0;
        EXPECT_EQ(SendSMS(myNumber().get(), units(u"hello").data(), flag, &sent), 0U);
    }
}

TEST_F(Sending, NamesNoServiceCentreAndEmptiesTheCacheLeavingItsFlag) {
    for (const u32 flag : {0U, 1U}) {
        const ScriptedModem modem({
            {Ask::Send, "0001FF0791942143F5000005E8329BFD06", OK}
        });
        g_blInitCsca = flag;
        std::fill(std::begin(g_wszCsca), std::end(g_wszCsca), u16{'7'});
        u8 sent = 0;
        EXPECT_EQ(SendSMS(myNumber().get(), units(u"hello").data(), 0, &sent), 0U);
        EXPECT_EQ(std::count(std::begin(g_wszCsca), std::end(g_wszCsca), 0), 21);
        EXPECT_EQ(g_blInitCsca, flag);
    }
}

TEST_F(Sending, AfterwardsTheCacheGivesAnEmptyStringAndSavingNamesNoServiceCentre) {
    const std::string pdu = "0001FF0791942143F5000005E8329BFD06";
    const ScriptedModem modem({
        {"AT+CSCA?\r",   "+CSCA: \"+49171\",145 OK" },
        { Ask::Store, "04919471F1" + pdu.substr(2),"+CMGW: 1 OK"},
        { Ask::Send,                          pdu,           OK},
        { Ask::Store,                          pdu,"+CMGW: 2 OK"},
    });
    const std::vector<u16> text = units(u"hello");
    const u16 when[6] = {};
    u32 indexes[1] = {TO_BE_FILLED};
    u8 sent = 0;
    u16 centre[21];
    EXPECT_EQ(GetCSCA(centre), 0U);
    EXPECT_EQ(SaveSMS(myNumber().get(), text.data(), 0, indexes, when), 0U);
    EXPECT_EQ(SendSMS(myNumber().get(), text.data(), 0, &sent), 0U);
    EXPECT_EQ(GetCSCA(centre), 0U);
    EXPECT_EQ(centre[0], 0);
    EXPECT_EQ(SaveSMS(myNumber().get(), text.data(), 0, indexes, when), 0U);
}

TEST_F(Sending, ATextOfMoreThan255SegmentsSendsNothing) {
    const ScriptedModem modem({});
    u8 sent = UNTOUCHED;
    EXPECT_EQ(SendSMS(myNumber().get(), units(std::u16string(39016, u'a')).data(), 0, &sent),
              COMPOSITION_FAILED);
    EXPECT_EQ(sent, 0);
}

TEST_F(Sending, AReplyThroughATransferFileCounts) {
    const ScriptedModem modem(exchanges(Ask::Send, u"hello", false, {throughFile(SENT)}, ALL));
    u8 sent = 0;
    EXPECT_EQ(SendSMS(myNumber().get(), units(u"hello").data(), 0, &sent), 0U);
    EXPECT_EQ(sent, 1);
}

TEST_F(Sending, EachFailedAllocationHasItsStatus) {
    const std::u16string text(161, u'a'); // text copy, segments, two replies
    const struct {
        unsigned nth;
        std::size_t requests;
        u32 status;
    } cases[] = {
        {1, 0,                 23},
        {2, 0, COMPOSITION_FAILED},
        {3, 1,                 25},
        {4, 2,                 25},
        {5, 2,                  0}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem(exchanges(Ask::Send, text, false, {SENT, SENT}, c.requests));
        const std::vector<u16> source = units(text);
        g_wszCsca[0] = 'x';
        u8 sent = UNTOUCHED;
        failAllocation(c.nth);
        EXPECT_EQ(SendSMS(myNumber().get(), source.data(), 0, &sent), c.status) << c.nth;
        allowAllocations();
        EXPECT_EQ(sent, c.status == 0 ? 2 : 0);
        EXPECT_EQ(g_wszCsca[0], c.nth == 1 ? 'x' : 0); // emptied once the text is copied
        EXPECT_EQ(liveBlocks(), 0U);
        EXPECT_EQ(liveIpcBlocks(), 0U);
        if (c.nth == 1) {
            EXPECT_EQ(logMessagesOf("SendSMS"), std::vector<std::string>{"out of memory\n"});
        }
    }
}

TEST_F(Sending, WithoutIpcIsNoReply) {
    for (const Call call : {Call::GetAddress, Call::MemoryAssign}) {
        failCall(call, 1);
        u8 sent = UNTOUCHED;
        EXPECT_EQ(SendSMS(myNumber().get(), units(u"hello").data(), 0, &sent), 25U);
        EXPECT_EQ(sent, 0);
    }
}

// ---- sending and saving one segment

TEST_F(SendingASegment, WithoutAPduIs21) {
    const ScriptedModem modem({});
    EXPECT_EQ(handleSend(5, nullptr), 21U);
}

const struct SegmentCase {
    Reply reply;
    u32 sent, saved; // statuses
} SEGMENT_CASES[] = {
    {                     SENT,  0,  0},
    {                     "OK",  0,  0},
    {"\r\nOK\r\n\r\nERROR\r\n",  0,  0},
    {   "+CMS ERROR: 38\r\nOK",  0,  0},
    {                       "",  0,  0}, // neither OK nor an error
    {                 "\r\n> ",  0,  0},
    {                    ERROR, 26, 26},
    {"\r\n+CMS ERROR: 322\r\n", 26, 26},
    {    "\r\n+CMS ERROR: 322", 22, 22},
    { "\r\n+CME ERROR: 14\r\n", 26, 26},
    {                 NO_REPLY, 25, 20}, // not the same
    {               refused(7), 25, 20},
};

TEST_F(SendingASegment, ReturnsTheStatusOfItsReplyWhateverTheLength) {
    for (const SegmentCase &c : SEGMENT_CASES) {
        const ScriptedModem modem({
            {Ask::Send, "0001FF", c.reply}
        });
        EXPECT_EQ(handleSend(0xFFFFFFFF, guardedText("0001FF").get()), c.sent) << c.reply.text;
    }
}

TEST_F(SendingASegment, PassesAPduOf799CharactersAndNeverMore) {
    const std::string pdu(799, 'A');
    const ScriptedModem modem({
        {Ask::Send, pdu, OK}
    });
    EXPECT_EQ(handleSend(0, guardedText(pdu).get()), 0U);
}

TEST_F(SendingASegment, CutsALongerPduToItsBuffer) {
    for (const std::size_t length : {800U, 801U, 1100U, 5000U}) {
        const auto pdu = guardedText(std::string(length, 'A'));
        i32 index = 0;
        const ScriptedModem modem({
            { Ask::Send, std::string(799, 'A'), OK},
            {Ask::Store, std::string(799, 'A'), OK}
        });
        EXPECT_EQ(handleSend(0, pdu.get()), 0U);
        EXPECT_EQ(handleSave(0, pdu.get(), 0, &index), 0U);
    }
}

TEST_F(SavingASegment, WithoutAPduIs21) {
    const ScriptedModem modem({});
    i32 index = 77;
    EXPECT_EQ(handleSave(5, nullptr, 1, &index), 21U);
    EXPECT_EQ(index, 77);
}

TEST_F(SavingASegment, ReturnsTheStatusOfItsReplyAndPassesTheParameter) {
    for (const SegmentCase &c : SEGMENT_CASES) {
        for (const u32 param : {0U, 2U, 3U, 0xFFFFFFFFU, 0x01020304U}) {
            const ScriptedModem modem({
                {Ask::Store, "0001FF", c.reply}
            });
            i32 index = 77;
            EXPECT_EQ(handleSave(0, guardedText("0001FF").get(), param, &index), c.saved);
            const bool ok = c.reply.text.find("OK") != std::string::npos;
            EXPECT_EQ(index, ok ? -1 : 77) << c.reply.text; // stored behind an "OK" only
            EXPECT_EQ(modem.requests()[0].param, param);
            EXPECT_EQ(modem.requests()[0].ipcTimeout, 35000U);
        }
    }
}

TEST_F(SavingASegment, StoresTheIndexOfTheReply) {
    const ScriptedModem modem({
        {Ask::Store, "00", "\r\n+CMGW: 12\r\n\r\nOK\r\n"}
    });
    i32 index = -1;
    EXPECT_EQ(handleSave(0, "00", 0, &index), 0U);
    EXPECT_EQ(index, 12);
}

std::vector<std::string> loggedLines(const Vector &v) {
    std::vector<std::string> lines;
    for (const std::string &line : v.texts("log")) { lines.push_back(withCharacters(line)); }
    return lines;
}

TEST_P(SavedIndexReply, GivesTheNumberBehindTheKey) {
    const auto reply = guardedText(withCharacters(v().text("reply")));
    EXPECT_EQ(getCMGWindex(reply.get()), static_cast<i32>(v().number("index")));
    EXPECT_EQ(logMessagesOf("getCMGWindex"), loggedLines(v()));
}
SMSPB_VECTORS(SavedIndexReply, "saved_indexes.txt");

TEST_F(SavedIndex, OfAnyCutOfAGoodReply) {
    const std::string good = "\r\n+CMGW: 123\r\n\r\nOK\r\n";
    for (std::size_t length = 0; length <= good.size(); length++) {
        const std::string cut = good.substr(0, length);
        const i32 expected = length < 10 ? -1 : length == 10 ? 1 : length == 11 ? 12 : 123;
        EXPECT_EQ(getCMGWindex(guardedText(cut).get()), expected) << cut;
    }
}

// ---- saving

const u16 NO_TIME[6] = {};

TEST_F(Saving, ATextOfOneSegmentGivesItsIndex) {
    const ScriptedModem modem(
        exchanges(Ask::Store, u"hello", false, {"\r\n+CMGW: 7\r\n\r\nOK\r\n"}, ALL));
    const Guarded<u16> text(units(u"hello"));
    const Guarded<u32> indexes(std::vector<u32>{TO_BE_FILLED});
    const Guarded<u16> when(std::vector<u16>(6, 0));
    EXPECT_EQ(SaveSMS(myNumber().get(), text.get(), 3, indexes.get(), when.get()), 0U);
    EXPECT_EQ(indexes[0], 7U);
    EXPECT_EQ(logMessagesOf("SaveSMS"),
              (std::vector<std::string>{"save NO 0 pdu of 1 ok\n\n",
                                        "get saved sms index:7 in location:0\n\n",
                                        "save pdu finished\n\n"}));
    EXPECT_EQ(modem.requests()[0].param, 3U);
    EXPECT_EQ(modem.requests()[0].ipcTimeout, 35000U);
    EXPECT_EQ(allocationSizes().size(), 3U);
    EXPECT_EQ(allocationSizes()[0], 12U);
    EXPECT_EQ(allocationSizes()[1], 404U);
}

TEST_F(Saving, EverySegmentGivesItsIndex) {
    const std::u16string text(307, u'a');
    const ScriptedModem modem(
        exchanges(Ask::Store, text, false, {"+CMGW: 7 OK", "+CMGW: 9 OK", "+CMGW: 11 OK"}, ALL));
    u32 indexes[4] = {TO_BE_FILLED, TO_BE_FILLED, TO_BE_FILLED, 77};
    EXPECT_EQ(SaveSMS(myNumber().get(), units(text).data(), 2, indexes, NO_TIME), 0U);
    EXPECT_EQ(indexes[0], 7U);
    EXPECT_EQ(indexes[1], 9U);
    EXPECT_EQ(indexes[2], 11U);
    EXPECT_EQ(indexes[3], 77U);
    EXPECT_EQ(logMessagesOf("SaveSMS"),
              (std::vector<std::string>{
                  "save NO 0 pdu of 3 ok\n\n", "get saved sms index:7 in location:0\n\n",
                  "save NO 1 pdu of 3 ok\n\n", "get saved sms index:9 in location:1\n\n",
                  "save NO 2 pdu of 3 ok\n\n", "get saved sms index:11 in location:2\n\n",
                  "save pdu finished\n\n"}));
    for (const Request &request : modem.requests()) { EXPECT_EQ(request.param, 2U); }
}

TEST_F(Saving, AnIndexThatWasNotPresetIsLeftAlone) {
    const std::u16string text(307, u'a');
    const ScriptedModem modem(
        exchanges(Ask::Store, text, false, {"+CMGW: 7 OK", "+CMGW: 9 OK", "+CMGW: 11 OK"}, ALL));
    u32 indexes[3] = {0, TO_BE_FILLED, 0xFFFFFFFE};
    EXPECT_EQ(SaveSMS(myNumber().get(), units(text).data(), 2, indexes, NO_TIME), 0U);
    EXPECT_EQ(indexes[0], 0U);
    EXPECT_EQ(indexes[1], 9U);
    EXPECT_EQ(indexes[2], 0xFFFFFFFEU);
    EXPECT_EQ(logMessagesOf("SaveSMS"),
              (std::vector<std::string>{"save NO 0 pdu of 3 ok\n\n", "save NO 1 pdu of 3 ok\n\n",
                                        "get saved sms index:9 in location:1\n\n",
                                        "save NO 2 pdu of 3 ok\n\n", "save pdu finished\n\n"}));
}

TEST_F(Saving, AReplyWithoutAnIndexLeavesTheEntryAsPreset) {
    const ScriptedModem modem(exchanges(Ask::Store, u"hello", false, {OK}, ALL));
    u32 indexes[1] = {TO_BE_FILLED};
    EXPECT_EQ(SaveSMS(myNumber().get(), units(u"hello").data(), 0, indexes, NO_TIME), 0U);
    EXPECT_EQ(indexes[0], TO_BE_FILLED);
    EXPECT_EQ(logMessagesOf("SaveSMS"),
              (std::vector<std::string>{"save NO 0 pdu of 1 ok\n\n",
                                        "get saved sms index:-1 in location:0\n\n",
                                        "save pdu finished\n\n"}));
}

TEST_F(Saving, AReplyWithNeitherOkNorErrorKeepsTheIndexOfTheSegmentBefore) {
    const std::u16string text(161, u'a');
    const ScriptedModem modem(exchanges(Ask::Store, text, false, {"+CMGW: 7 OK", ""}, ALL));
    u32 indexes[2] = {TO_BE_FILLED, TO_BE_FILLED};
    EXPECT_EQ(SaveSMS(myNumber().get(), units(text).data(), 0, indexes, NO_TIME), 0U);
    EXPECT_EQ(indexes[0], 7U);
    EXPECT_EQ(indexes[1], 7U);
}

TEST_F(Saving, TheTimeIsTheValidityAndNoReportIsAskedFor) {
    const u16 when[6] = {2013, 5, 7, 9, 3, 0};
    const ScriptedModem modem({
        {Ask::Store, "0019FF0791942143F500003150709030000005E8329BFD06", OK}
    });
    u32 indexes[1] = {TO_BE_FILLED};
    EXPECT_EQ(SaveSMS(myNumber().get(), units(u"hello").data(), 0, indexes, when), 0U);
}

TEST_F(Saving, NamesTheCachedServiceCentreAndKeepsIt) {
    const ScriptedModem modem({
        {Ask::Store, "0591942143F501FF0791942143F5000005E8329BFD06", OK}
    });
    const std::vector<u16> centre = units(u"+4912345");
    std::copy(centre.begin(), centre.end(), g_wszCsca);
    u32 indexes[1] = {TO_BE_FILLED};
    EXPECT_EQ(SaveSMS(myNumber().get(), units(u"hello").data(), 0, indexes, NO_TIME), 0U);
    EXPECT_EQ(textOf(g_wszCsca), u"+4912345");
    EXPECT_EQ(g_blInitCsca, 0U);
}

TEST_F(Saving, StopsAtTheFirstSegmentThatFails) {
    const std::u16string text(307, u'a');
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {                ERROR, 26},
        {"+CMS ERROR: 322\r\n", 26},
        {    "+CMS ERROR: 322", 22},
        {             NO_REPLY, 20}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem(exchanges(Ask::Store, text, false, {"+CMGW: 7 OK", c.reply}, 2));
        u32 indexes[3] = {TO_BE_FILLED, TO_BE_FILLED, TO_BE_FILLED};
        EXPECT_EQ(SaveSMS(myNumber().get(), units(text).data(), 0, indexes, NO_TIME), c.status);
        EXPECT_EQ(indexes[0], 7U);
        EXPECT_EQ(indexes[1], TO_BE_FILLED);
        EXPECT_EQ(logMessagesOf("SaveSMS"),
                  (std::vector<std::string>{"save NO 0 pdu of 3 ok\n\n",
                                            "get saved sms index:7 in location:0\n\n"}));
    }
}

TEST_F(Saving, ATextOfMoreThan255SegmentsSavesNothingAndFinishes) {
    const ScriptedModem modem({});
    u32 indexes[1] = {TO_BE_FILLED};
    EXPECT_EQ(
        SaveSMS(myNumber().get(), units(std::u16string(39016, u'a')).data(), 0, indexes, NO_TIME),
        COMPOSITION_FAILED);
    EXPECT_EQ(indexes[0], TO_BE_FILLED);
    EXPECT_EQ(logMessagesOf("SaveSMS"), std::vector<std::string>{"save pdu finished\n\n"});
}

TEST_F(Saving, EachFailedAllocationHasItsStatus) {
    const std::u16string text(161, u'a'); // text copy, segments, two replies
    const std::vector<std::string> firstSaved = {"save NO 0 pdu of 2 ok\n\n",
                                                 "get saved sms index:7 in location:0\n\n"};
    const std::vector<std::string> nothing, outOfMemory = {"out of memory\n"},
                                            finished = {"save pdu finished\n\n"};
    const struct {
        unsigned nth;
        std::size_t requests;
        u32 status;
        const std::vector<std::string> &lines;
    } cases[] = {
        {1, 0,                 23, outOfMemory},
        {2, 0, COMPOSITION_FAILED,    finished},
        {3, 1,                 20,     nothing},
        {4, 2,                 20,  firstSaved},
    };
    for (const auto &c : cases) {
        const ScriptedModem modem(
            exchanges(Ask::Store, text, false, {"+CMGW: 7 OK", "+CMGW: 8 OK"}, c.requests));
        const std::vector<u16> source = units(text);
        u32 indexes[2] = {TO_BE_FILLED, TO_BE_FILLED};
        failAllocation(c.nth);
        EXPECT_EQ(SaveSMS(myNumber().get(), source.data(), 0, indexes, NO_TIME), c.status);
        allowAllocations();
        EXPECT_EQ(logMessagesOf("SaveSMS"), c.lines) << c.nth;
        EXPECT_EQ(liveBlocks(), 0U);
        EXPECT_EQ(liveIpcBlocks(), 0U);
    }
}

// ---- reading

const std::string DELIVER = "00040791942143F500003150709030008005E8329BFD06";

std::string readReply(const std::string &head, const std::string &pdu) {
    return "\r\n+CMGR: " + head + "\r\n" + pdu + "\r\n\r\nOK\r\n";
}

void expectHello(const SmsMessage &message) {
    EXPECT_EQ(message.kind, MESSAGE_DELIVER);
    EXPECT_EQ(textOf(message.peer_number), u"+4912345");
    EXPECT_EQ(message.year, 2013);
    ASSERT_NE(message.text, nullptr);
    EXPECT_EQ(textOf(message.text), u"hello");
}

bool isZero(const SmsMessage &message) {
    return message.kind == 0 && message.sc_number[0] == 0 && message.peer_number[0] == 0 &&
           message.text == nullptr && message.msg_class == 0 && message.year == 0 &&
           message.month == 0 && message.day == 0 && message.hour == 0 && message.minute == 0 &&
           message.second == 0 && message.status_report == 0 && message.total_segments == 0 &&
           message.segment_number == 0 && message.reference == 0;
}

TEST_F(Reading, GivesARecordWithIndexStatusAndMessage) {
    const std::string reply = readReply("1,,22", DELIVER);
    const ScriptedModem modem({
        {"AT+CMGR=5\r", reply}
    });
    SmsRecord *record = nullptr;
    ASSERT_EQ(getSMSbyindex(&record, 5), 0U);
    const Block<SmsRecord> owned(record);
    ASSERT_NE(record, nullptr);
    const Block<u16> text(record->message.text);
    EXPECT_EQ(record->reserved, 0U);
    EXPECT_EQ(record->index, 5);
    EXPECT_EQ(record->status, 1U);
    expectHello(record->message);
    expectRequestForm(modem, 4);
    EXPECT_EQ(allocationSizes(),
              (std::vector<std::size_t>{reply.size() + 1, sizeof(SmsRecord), 4 * 5 + 2}));
}

TEST_F(Reading, PrintsTheIndexSignedAndKeepsItsLow16Bits) {
    const struct {
        u32 index;
        const char *command;
        u16 kept;
    } cases[] = {
        {         0,     "AT+CMGR=0\r",     0},
        {     65535, "AT+CMGR=65535\r", 65535},
        {     65541, "AT+CMGR=65541\r",     5},
        {0xFFFFFFFF,    "AT+CMGR=-1\r", 65535}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem({
            {c.command, OK}
        });
        SmsRecord *record = nullptr;
        EXPECT_EQ(getSMSbyindex(&record, c.index), 0U);
        const Block<SmsRecord> owned(record);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->index, c.kept);
    }
}

TEST_F(Reading, AnEmptyLocationGivesARecordOfZeroesWithItsIndex) {
    for (const char *reply : {"\r\nOK\r\n", "", "\r\n", "+CMGR: OK"}) {
        const ScriptedModem modem({
            {"AT+CMGR=9\r", reply}
        });
        SmsRecord *record = nullptr;
        EXPECT_EQ(getSMSbyindex(&record, 9), 0U);
        const Block<SmsRecord> owned(record);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->index, 9);
        EXPECT_EQ(record->status, 0U);
        EXPECT_EQ(record->reserved, 0U);
        EXPECT_TRUE(isZero(record->message));
    }
}

TEST_F(Reading, AMessageThatDoesNotDecodeGivesAnEmptyRecordAndSuccess) {
    const ScriptedModem modem({
        {"AT+CMGR=9\r", readReply("1,,22", "0003xx--")}
    });
    SmsRecord *record = nullptr;
    EXPECT_EQ(getSMSbyindex(&record, 9), 0U);
    const Block<SmsRecord> owned(record);
    EXPECT_EQ(record->status, 1U);
    EXPECT_TRUE(isZero(record->message));
}

TEST_F(Reading, ARefusalLeavesTheRecordPointerAndIsLogged) {
    const struct {
        Reply reply;
        u32 status;
        std::vector<std::string> lines;
    } cases[] = {
        {"\r\n+CMS ERROR: 321\r\n", 26, {"at reply status error:26\n\n"}},
        {                    ERROR, 26, {"at reply status error:26\n\n"}},
        {        "+CMS ERROR: 321", 22, {"at reply status error:22\n\n"}},
        {                 NO_REPLY, 20,                               {}},
        {               refused(1), 20,                               {}},
    };
    for (const auto &c : cases) {
        clearLog();
        const ScriptedModem modem({
            {"AT+CMGR=1\r", c.reply}
        });
        SmsRecord mine = {}, *record = &mine;
        EXPECT_EQ(getSMSbyindex(&record, 1), c.status);
        EXPECT_EQ(record, &mine);
        EXPECT_EQ(logMessagesOf("getSMSbyindex"), c.lines);
    }
}

TEST_F(Reading, EachFailedAllocationHasItsStatus) {
    for (const unsigned nth : {1U, 2U, 3U}) { // the reply, the record, the text
        clearLog();
        const ScriptedModem modem({
            {"AT+CMGR=1\r", readReply("1,,22", DELIVER)}
        });
        SmsRecord *record = nullptr;
        failAllocation(nth);
        EXPECT_EQ(getSMSbyindex(&record, 1), nth == 3 ? 0U : 20U) << nth;
        allowAllocations();
        const Block<SmsRecord> owned(record);
        EXPECT_EQ(record != nullptr, nth == 3);
        if (record != nullptr) { EXPECT_EQ(record->message.text, nullptr); }
        EXPECT_EQ(logMessagesOf("getSMSbyindex"),
                  std::vector<std::string>(nth == 2 ? 1 : 0, "malloc sms pdu failure\n\n"));
    }
}

TEST_F(Reading, AReplyThroughATransferFileCounts) {
    const ScriptedModem modem({
        {"AT+CMGR=1\r", throughFile(readReply("0,,22", DELIVER))}
    });
    SmsRecord *record = nullptr;
    ASSERT_EQ(getSMSbyindex(&record, 1), 0U);
    const Block<SmsRecord> owned(record);
    const Block<u16> text(record->message.text);
    expectHello(record->message);
}

// ---- the reply to a read command

TEST_P(GoodReadReply, FillsTheRecord) {
    const auto reply = guardedText(readReply(v().text("head"), v().text("pdu")));
    Guarded<SmsRecord> record; // 0xA5 throughout: it is cleared
    EXPECT_EQ(decodeCMGR(reply.get(), record.get()), 0U);
    const Block<u16> text(record->message.text);
    EXPECT_EQ(record->reserved, 0U);
    EXPECT_EQ(record->index, 0);
    EXPECT_EQ(record->status, v().number("status"));
    if (v().number("hello") == 1) { expectHello(record->message); }
}
SMSPB_VECTORS(GoodReadReply, "read_replies.txt");

TEST_F(ReadReply, MayHoldItsOkInFrontAndNoBlankBehindTheKey) {
    Guarded<SmsRecord> record;
    const auto reply = guardedText("OK+CMGR:2,,1\r\n" + DELIVER + "\r\n");
    EXPECT_EQ(decodeCMGR(reply.get(), record.get()), 0U);
    const Block<u16> text(record->message.text);
    EXPECT_EQ(record->status, 2U);
    expectHello(record->message);
}

TEST_F(ReadReply, WithoutOkOrKeyLeavesTheRecordUntouched) {
    for (const std::string &reply :
         {std::string("\r\n+CMGR: 1,,22\r\n") + DELIVER + "\r\n", std::string("\r\nOK\r\n"),
          std::string(""), "+CMGR 1,,22\r\n" + DELIVER + "\r\nOK", std::string("ERROR")}) {
        Guarded<SmsRecord> record;
        const std::vector<u8> before(sizeof(SmsRecord), 0xA5);
        EXPECT_EQ(decodeCMGR(guardedText(reply).get(), record.get()), 0U);
        EXPECT_EQ(std::memcmp(record.get(), before.data(), before.size()), 0) << reply;
    }
}

TEST_F(ReadReply, AMissingDelimiterLeavesTheRecordCleared) {
    for (const std::string &reply :
         {std::string("OK +CMGR:"), std::string("OK +CMGR: 1"), std::string("OK +CMGR: 1,"),
          std::string("OK +CMGR: 1,,"), std::string("OK +CMGR: 1,,22\r"),
          std::string("OK +CMGR: 1,,22\r\n"), "OK +CMGR: 1,,22\r\n" + DELIVER,
          "OK +CMGR: 1,,22\r\n" + DELIVER + "\n", "OK +CMGR: 1,22\r\n" + DELIVER + "\r\n"}) {
        Guarded<SmsRecord> record;
        EXPECT_EQ(decodeCMGR(guardedText(reply).get(), record.get()), 0U);
        EXPECT_EQ(record->reserved, 0U) << reply;
        EXPECT_EQ(record->index, 0) << reply;
        EXPECT_EQ(record->status, 0U) << reply;
        EXPECT_TRUE(isZero(record->message)) << reply;
    }
}

TEST_F(ReadReply, AnyCutOfAGoodOneIsRead) {
    const std::string good = "OK" + readReply("1,\"Bob\",22", DELIVER);
    const std::size_t complete = good.find(DELIVER) + DELIVER.size() + 2;
    for (std::size_t length = 0; length <= good.size(); length++) {
        Guarded<SmsRecord> record(1, Fill::Cleared);
        const auto reply = guardedText(good.substr(0, length));
        EXPECT_EQ(decodeCMGR(reply.get(), record.get()), 0U);
        const Block<u16> text(record->message.text);
        if (length >= complete) {
            expectHello(record->message);
        } else {
            EXPECT_TRUE(isZero(record->message)) << length;
        }
    }
}

TEST_F(ReadReply, OfAStoredSubmitAndAStatusReport) {
    Guarded<SmsRecord> record;
    EXPECT_EQ(decodeCMGR(readReply("2,,17", "0011170791942143F50000A705E8329BFD06").c_str(),
                         record.get()),
              0U);
    const Block<u16> text(record->message.text);
    EXPECT_EQ(record->message.kind, MESSAGE_SUBMIT);
    EXPECT_EQ(
        decodeCMGR(readReply("0,,23", "00062A0791942143F5315070903000803150709040038000").c_str(),
                   record.get()),
        0U);
    EXPECT_EQ(record->message.kind, MESSAGE_STATUS_REPORT);
    EXPECT_EQ(record->message.text, nullptr);
}

// ---- the time of a record

TEST_F(RecordTime, IsWrittenWithAYearThatIsNotPadded) {
    static const struct {
        u16 fields[6];
        const char *text;
    } CASES[] = {
        {                     {2013, 5, 7, 9, 3, 0},                 "2013-05-07 09:03:00"},
        {                {1999, 12, 31, 23, 59, 59},                 "1999-12-31 23:59:59"},
        {                        {0, 0, 0, 0, 0, 0},                    "0-00-00 00:00:00"},
        {                       {85, 1, 1, 1, 1, 1},                   "85-01-01 01:01:01"},
        {{65535, 65535, 65535, 65535, 65535, 65535}, "65535-65535-65535 65535:65535:65535"},
    };
    for (const auto &c : CASES) {
        SmsRecord record = {};
        record.message.year = c.fields[0];
        record.message.month = c.fields[1];
        record.message.day = c.fields[2];
        record.message.hour = c.fields[3];
        record.message.minute = c.fields[4];
        record.message.second = c.fields[5];
        Guarded<char> out(std::strlen(c.text) + 1);
        EXPECT_EQ(get_date_t_of_sms(&record, out.get()), static_cast<i32>(std::strlen(c.text)));
        EXPECT_STREQ(out.get(), c.text);
    }
}

// ---- the indication of a new message

TEST_P(NewMessageLine, GivesStorageAndIndex) {
    const auto line = guardedText(withCharacters(v().text("line")));
    const std::string storage = v().text("storage");
    const Guarded<char> memory(storage.size() + 1, Fill::Cleared);
    EXPECT_EQ(getCMTIindex(line.get(), memory.get()), static_cast<i32>(v().number("index")));
    EXPECT_EQ(memory.get(), storage);
    EXPECT_EQ(logMessagesOf("getCMTIindex"), loggedLines(v()));
}
SMSPB_VECTORS(NewMessageLine, "new_messages.txt");

TEST_F(NewMessageIndication, WritesNoTerminatorBehindTheStorage) {
    char memory[] = "12345";
    EXPECT_EQ(getCMTIindex("+CMTI: \"SM\",5", memory), 5);
    EXPECT_STREQ(memory, "SM345");
}

TEST_F(NewMessageIndication, HasNoBoundOnTheStoragesName) {
    const std::string name(500, 'n');
    Guarded<char> memory(name.size() + 1, Fill::Cleared);
    EXPECT_EQ(getCMTIindex(guardedText("+CMTI: \"" + name + "\",5").get(), memory.get()), 5);
    EXPECT_EQ(memory.get(), name);
}

TEST_F(NewMessageIndication, AnyCutOfAGoodOneStaysWithinTheLine) {
    const std::string good = "\r\n+CMTI: \"SM\",57\r\n";
    const std::size_t firstDigit = good.find('5');
    for (std::size_t length = 0; length <= good.size(); length++) {
        Guarded<char> memory(good.size(), Fill::Cleared);
        const i32 expected = length <= firstDigit ? -1 : length == firstDigit + 1 ? 5 : 57;
        EXPECT_EQ(getCMTIindex(guardedText(good.substr(0, length)).get(), memory.get()), expected)
            << length;
    }
}

// ---- deleting

const char SELECTED[] = "\r\n+CPMS: 3,50,4,60,5,70\r\n\r\nOK\r\n";

TEST_F(Deleting, SelectsTheStorageFirst) {
    const struct {
        u32 index, storage;
        const char *select, *command;
    } cases[] = {
        {         3, 1, "AT+CPMS=\"ME\"\r",     "AT+CMGD=3\r"},
        {         0, 2, "AT+CPMS=\"SM\"\r",     "AT+CMGD=0\r"},
        {     70000, 2, "AT+CPMS=\"SM\"\r", "AT+CMGD=70000\r"},
        {0xFFFFFFFF, 1, "AT+CPMS=\"ME\"\r",    "AT+CMGD=-1\r"},
    };
    for (const auto &c : cases) {
        const ScriptedModem modem({
            { c.select, SELECTED},
            {c.command,       OK}
        });
        EXPECT_EQ(deleteByStoreId(c.index, c.storage), 0U);
        expectRequestForm(modem, 4);
    }
}

TEST_F(Deleting, LogsTheCountsOfTheSelection) {
    const ScriptedModem modem({
        {"AT+CPMS=\"ME\"\r", SELECTED},
        {     "AT+CMGD=3\r",       OK}
    });
    EXPECT_EQ(deleteByStoreId(3, 1), 0U);
    EXPECT_EQ(logMessagesOf("setReadDeleteOpMemStore"),
              (std::vector<std::string>{"sms used: 3\n\n", "sms total: 50\n\n"}));
}

TEST_F(Deleting, ByIdTakesItsLow16BitsAndTheModemsOwnStorage) {
    for (const u32 id : {3U, 0xABCD0003U, 0xFFFF0003U}) {
        const ScriptedModem modem({
            {"AT+CPMS=\"ME\"\r", SELECTED},
            {     "AT+CMGD=3\r",       OK}
        });
        EXPECT_EQ(deleteSMSByID(id), 0U);
    }
    const ScriptedModem modem({
        {"AT+CPMS=\"ME\"\r", SELECTED},
        { "AT+CMGD=65535\r",       OK}
    });
    EXPECT_EQ(deleteSMSByID(0xFFFFFFFF), 0U);
}

TEST_F(Deleting, AnyFailedSelectionIs20AndDeletesNothing) {
    for (const Reply &reply : {Reply(ERROR), NO_REPLY, Reply(OK), Reply("+CPMS: 3,50 OK"),
                               Reply("+CMS ERROR: 310"), refused(1)}) {
        const ScriptedModem modem({
            {"AT+CPMS=\"ME\"\r", reply}
        });
        EXPECT_EQ(deleteByStoreId(3, 1), 20U) << reply.text;
    }
    const ScriptedModem modem({});
    EXPECT_EQ(deleteByStoreId(3, 0), 20U);
    EXPECT_EQ(deleteByStoreId(3, 3), 20U);
}

TEST_F(Deleting, ReturnsTheStatusOfTheDeletion) {
    const struct {
        Reply reply;
        u32 status;
    } cases[] = {
        {                   OK,  0},
        {                ERROR, 26},
        {"+CMS ERROR: 321\r\n", 26},
        {             NO_REPLY, 20},
        {      "+CMS ERROR: 3", 22},
        {                   "",  0}
    };
    for (const auto &c : cases) {
        const ScriptedModem modem({
            {"AT+CPMS=\"ME\"\r", SELECTED},
            {     "AT+CMGD=3\r",  c.reply}
        });
        EXPECT_EQ(deleteByStoreId(3, 1), c.status) << c.reply.text;
    }
}

TEST_F(Deleting, WithoutMemoryForAReplyIs20) {
    for (const unsigned nth : {1U, 2U}) {
        ScriptedModem modem({
            {"AT+CPMS=\"ME\"\r", SELECTED}
        });
        modem.thenAlways(OK);
        failAllocation(nth);
        EXPECT_EQ(deleteByStoreId(3, 1), 20U) << nth;
        allowAllocations();
        EXPECT_EQ(modem.requests().size(), nth);
    }
}

} // namespace
