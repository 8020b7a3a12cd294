// Every call of the platform and every allocation is made to fail in turn, under every operation:
// the n-th, for n from 1 until the operation is through before it comes to that. Each time the
// stated status comes back, no heap block is left and every IPC block is given back.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "atlib/CPbSIM.h"
#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "comm/zeldcard_common.h"
#include "support/library_test.h"
#include "support/phonebook.h"

using namespace support;

namespace {

constexpr u32 MINUS_ONE = 0xFFFFFFFF;
constexpr u32 NULL_BLOCK = 1; // what an operation below gives for "nothing was handed out"
constexpr u32 CALLS_MAX = 1000;

using Statuses = std::vector<u32>;

// What becomes of an operation when one thing fails. The n-th entry belongs to the n-th failure
// that an undisturbed run would meet; without a failure `success` comes back.
struct Operation {
    const char *name;
    std::function<u32()> run; // frees what it is handed
    u32 success;
    Statuses exchanges;   // by exchange with the modem manager that fails
    Statuses allocations; // by heap block that is not there
};
void PrintTo(const Operation &operation, std::ostream *out) { *out << operation.name; }

// ---- the modem ----

const char PDU[] = "00040791942143F500003150709030008005E8329BFD06"; // "hello"
const char OK[] = "\r\nOK\r\n";

struct KnownReply {
    const char *command, *reply;
};
const KnownReply REPLIES[] = {
    {  "AT+CPMS",   "\r\n+CPMS: \"SM\",3,50,\"SM\",3,50\r\n\r\nOK\r\n"                 },
    { "AT+CSCA?",                           "\r\n+CSCA: \"+4912345\",145\r\n\r\nOK\r\n"},
    { "AT+CSCS?",                                   "\r\n+CSCS: \"UCS2\"\r\n\r\nOK\r\n"},
    { "AT+CPBS?",                               "\r\n+CPBS: \"SM\",3,250\r\n\r\nOK\r\n"},
    {"AT+CPBR=?",                              "\r\n+CPBR: (1-250),40,16\r\n\r\nOK\r\n"},
    { "AT+CPBR=",                "\r\n+CPBR: 7,\"0123\",129,\"00410042\"\r\n\r\nOK\r\n"},
    { "AT+CMGR=",
     "\r\n+CMGR: 1,,22\r\n00040791942143F500003150709030008005E8329BFD06\r\n\r\nOK\r\n"},
};

std::string replyTo(const Sent &sent) {
    constexpr std::size_t COMMAND_TEXT = 96;
    if (sent.messageId != 0x1040008f) { return "\r\n+CMGW: 7\r\n\r\nOK\r\n"; }
    const auto *text = reinterpret_cast<const char *>(sent.payload.data()) + COMMAND_TEXT;
    for (const KnownReply &known : REPLIES) {
        if (std::strncmp(text, known.command, std::strlen(known.command)) == 0) {
            return known.reply;
        }
    }
    return OK;
}

const Answer NOBODY_ANSWERS = {9, {}};

Answer answerWith(const std::string &text) {
    const u32 words[] = {0, 0, static_cast<u32>(text.size())};
    Answer answer;
    answer.payload.resize(sizeof(words) + text.size());
    std::memcpy(answer.payload.data(), words, sizeof(words));
    std::memcpy(answer.payload.data() + sizeof(words), text.data(), text.size());
    return answer;
}

// ---- the operations ----

const u16 NUMBER[SMS_NUMBER_UNITS] = {'+', '4', '9', '1', '2', '3', '4', '5'};
const u16 WHEN[6] = {2013, 5, 7, 9, 3, 0};
const char MESSAGE_LINE[] = "\r\n+CMT: ,22\r\n00040791942143F500003150709030008005E8329BFD06\r\n";
const char ENTRY_LINE[] = "7,\"0123\",129,\"00410042\"";

u32 freed(char *reply) {
    free(reply);
    return reply != nullptr ? 0 : NULL_BLOCK;
}

u32 send(std::size_t characters) {
    const std::vector<u16> text = units(std::u16string(characters, u'a'));
    u8 count = 0;
    const u32 status = SendSMS(NUMBER, text.data(), 0, &count);
    EXPECT_EQ(count != 0, status == SMS_OK);
    return status;
}

u32 save(std::size_t characters) {
    const std::vector<u16> text = units(std::u16string(characters, u'a'));
    u32 indexes[3] = {MINUS_ONE, MINUS_ONE, MINUS_ONE};
    return SaveSMS(NUMBER, text.data(), 2, indexes, WHEN);
}

u32 readMessage() {
    SmsRecord *record = nullptr;
    const u32 status = getSMSbyindex(&record, 1);
    EXPECT_EQ(record != nullptr, status == SMS_OK);
    if (record != nullptr) { free(record->message.text); }
    free(record);
    return status;
}

u32 readStoredText() {
    SmsRecord record = {};
    const std::string reply = std::string("+CMGR: 1,,22\r\n") + PDU + "\r\n\r\nOK\r\n";
    const u32 status = decodeCMGR(reply.c_str(), &record);
    free(record.message.text);
    return status;
}

u32 popUp() {
    SmsRecord *record = nullptr;
    u32 kind = 0;
    const u32 status = PopupSms(&record, MESSAGE_LINE, &kind);
    if (record != nullptr) { free(record->message.text); }
    free(record);
    return status;
}

u32 popUpInPlace() {
    SmsRecord record = {};
    const u32 status = decodePopupSms(MESSAGE_LINE, &record);
    free(record.message.text);
    return status;
}

u32 takePage() {
    u8 *octets = nullptr;
    u32 length = 0;
    const u32 status = decodeCBM("+CBM: 4\r\n00010203\r\n", &octets, &length);
    EXPECT_EQ(octets != nullptr, status == SMS_OK);
    free(octets);
    return status;
}

u32 takeAnswer(const char *line) {
    u8 *data = nullptr;
    u32 length = 0;
    u32 scheme = 0;
    u32 isText = 0;
    const u32 status = decodeCUSD(line, &data, &length, &scheme, &isText);
    EXPECT_EQ(data != nullptr, status == SMS_OK);
    free(data);
    return status;
}

// A list of two chunks; `NULL_BLOCK` when one of them is missing, and then the other stays whole.
u32 chunks() {
    RxDataNode *head = nullptr;
    const bool first = AddRxDataNode(&head, "+CLIP: ", 7) != nullptr;
    const bool second = AddRxDataNode(&head, "123", 3) != nullptr;
    u32 count = 0;
    for (const RxDataNode *node = head; node != nullptr; node = node->next) { count++; }
    EXPECT_EQ(count, static_cast<u32>(first) + static_cast<u32>(second));
    DelRxDataNodeLink(&head);
    return first && second ? 0 : NULL_BLOCK;
}

u32 joinChunks() {
    char text[] = "+CLIP: \"1\",";
    const RxDataNode node = {nullptr, sizeof(text) - 1, text, nullptr};
    DoReportData(6, &node);
    return 0;
}

u32 composeText(std::size_t characters) {
    std::vector<u16> text = units(std::u16string(characters, u'a'));
    SmsMessage request = {};
    request.text = text.data();
    SmsSegment *segments = nullptr;
    u8 count = 0;
    const i32 status = sms_encode_pdu(&request, &segments, &count);
    EXPECT_EQ(segments != nullptr, status == 0);
    free(segments);
    return static_cast<u32>(status);
}

u32 decodeText() {
    SmsMessage message = {};
    const i32 status = sms_decode_pdu(PDU, &message);
    free(message.text);
    return static_cast<u32>(status);
}

u32 bodyOf(u32 alphabet) {
    auto tpdu = std::make_unique<SmsTpdu>();
    tpdu->u.deliver.dcs.alphabet = alphabet;
    tpdu->u.deliver.user_data.sm_len = 4;
    u16 *text = nullptr;
    const u32 result = sms_decode_msg_body_text(tpdu.get(), &text);
    free(text);
    return result;
}

sm_item_t entry() { return phonebookItem(7, "0123", 0, nameOctets(u"AB")); }

u32 writeEntry(u32 (*write)(i32, const sm_item_t *, i32 *)) {
    const sm_item_t item = entry();
    i32 index = 0;
    return write(7, &item, &index);
}

u32 readEntry(u32 (*read)(i32, sm_item_t *)) {
    sm_item_t item;
    return read(7, &item);
}

u32 readContact() {
    pb_info_t contact;
    return static_cast<u32>(read_contact(&contact, 7));
}

u32 writeContact(u32 (*write)(const pb_info_t *)) {
    pb_info_t contact = {};
    contact.index = 7;
    std::memcpy(contact.name, "AB", 3);
    std::memcpy(contact.number, "0123", 5);
    return write(&contact);
}

u32 storageFill(u32 (*select)(u32, u16[2])) {
    u16 counts[2] = {};
    return select(SMS_STORAGE_SM, counts);
}

u32 centreAddress(u32 (*read)(u16 *)) {
    u16 number[SMS_NUMBER_UNITS] = {};
    return read(number);
}

u32 execute(u32 (*exec)(char **reply)) {
    char *reply = nullptr;
    exec(&reply);
    return freed(reply);
}

u32 execWithList(char **reply, ...) {
    va_list markers;
    va_start(markers, reply);
    const u32 length = ExecAT("AT\r", 3, reply, 3000, 0, markers);
    va_end(markers);
    return length;
}

u32 requestSync() {
    u8 room[16];
    u32 length = sizeof(room);
    return zeldcard_send_request_sync(1, 1, "x", 1, room, &length, 1000);
}

// One exchange, its reply on the heap: `lost` without either.
Operation asking(const char *name, std::function<u32()> run, u32 lost) {
    return {name, std::move(run), 0, {lost}, {lost}};
}

// One that meets several, or none.
Operation operation(const char *name, std::function<u32()> run, u32 success, Statuses exchanges,
                    Statuses allocations) {
    return {name, std::move(run), success, std::move(exchanges), std::move(allocations)};
}

// Statuses without a reply: the SMS manager's, the phonebook's, a sent message's.
constexpr u32 N = SMS_NO_REPLY;
constexpr u32 P = PB_NO_REPLY;
constexpr u32 R = SMS_NO_REPLY_TEXT;

std::vector<Operation> channelOperations() {
    static const char MARKERS[1][31] = {"OK"};
    return {
        asking(
            "writeComm", [] { return freed(writeComm("AT\r", 3000, 1, "OK")); }, NULL_BLOCK),
        asking(
            "ExecAT", [] { return execute([](char **r) { return execWithList(r); }); }, NULL_BLOCK),
        asking(
            "ExecAT2",
            [] { return execute([](char **r) { return ExecAT2(PDU, MARKERS, 1, r, 1); }); },
            NULL_BLOCK),
        asking(
            "ExecAT3",
            [] { return execute([](char **r) { return ExecAT3(PDU, 2, MARKERS, 1, r, 1); }); },
            NULL_BLOCK),
        operation("DoReportData", joinChunks, 0, {}, {0}),
    };
}

std::vector<Operation> settingOperations() {
    return {
        asking("setInformmode", setInformmode, N),
        asking(
            "setNewMessageIndication", [] { return setNewMessageIndication(2, 1, 0, 0, 0); }, N),
        asking(
            "setNewMessageChanel", [] { return setNewMessageChanel(0); }, N),
        operation("InitSMS_TriesAgain", InitSMS, 0, {0, 0}, {0, 0}),
        asking(
            "setReceiveMemStore", [] { return setReceiveMemStore(SMS_STORAGE_SM); }, N),
        asking(
            "setReadDeleteOpMemStore", [] { return storageFill(setReadDeleteOpMemStore); }, N),
        asking(
            "setWriteSendOpMemStore", [] { return storageFill(setWriteSendOpMemStore); }, N),
        operation(
            "SM_GetStorageInfo_Sms",
            [] { return storageFill([](u32 s, u16 c[2]) { return SM_GetStorageInfo_Sms(c, s); }); },
            0, {N, N}, {N, N}),
        asking(
            "readCSCA", [] { return centreAddress(readCSCA); }, N),
        asking(
            "GetCSCA", [] { return centreAddress(GetCSCA); }, N),
        // A lost switch of the character set is not looked at, a lost question is.
        operation("setCenterNumber", [] { return setCenterNumber(NUMBER); }, 0, {N, 0, N, 0},
                  {N, 0, N, 0}),
        operation("SetCSCA", [] { return SetCSCA(NUMBER); }, 0, {N, 0, N, 0}, {N, 0, N, 0}),
        asking(
            "getEcodingFormat",
            [] {
                u32 code = 0;
                return getEcodingFormat(&code);
            },
            N),
        asking(
            "setEcodingFormat", [] { return setEcodingFormat(CHARSET_GSM); }, N),
    };
}

std::vector<Operation> messageOperations() {
    return {
        asking(
            "handleSend", [] { return handleSend(22, PDU); }, R),
        asking(
            "handleSave",
            [] {
                i32 index = 0;
                return handleSave(22, PDU, 2, &index);
            },
            N),
        operation("SendSMS", [] { return send(5); }, 0, {R}, {SMS_NO_MEMORY, MINUS_ONE, R}),
        operation("SendSMS_ThreeSegments", [] { return send(400); }, 0, {R, R, R},
                  {SMS_NO_MEMORY, MINUS_ONE, R, R, R}),
        operation("SaveSMS", [] { return save(5); }, 0, {N}, {SMS_NO_MEMORY, MINUS_ONE, N}),
        operation("SaveSMS_ThreeSegments", [] { return save(400); }, 0, {N, N, N},
                  {SMS_NO_MEMORY, MINUS_ONE, N, N, N}),
        // The text's own block: the record comes without one.
        operation("getSMSbyindex", readMessage, 0, {N}, {N, N, 0}),
        operation("decodeCMGR", readStoredText, 0, {}, {0}),
        operation("deleteByStoreId", [] { return deleteByStoreId(3, SMS_STORAGE_SM); }, 0, {N, N},
                  {N, N}),
        operation("deleteSMSByID", [] { return deleteSMSByID(3); }, 0, {N, N}, {N, N}),
    };
}

std::vector<Operation> reportOperations() {
    return {
        operation("PopupSms", popUp, 0, {}, {SMS_NO_MEMORY, 0}),
        operation("decodePopupSms", popUpInPlace, 0, {}, {0}),
        operation("decodeCBM", takePage, 0, {}, {SMS_NO_MEMORY}),
        operation("decodeCUSD_Text", [] { return takeAnswer("+CUSD: 0,\"Balance 5\",15"); }, 0, {},
                  {SMS_NO_MEMORY}),
        operation("decodeCUSD_Octets", [] { return takeAnswer("+CUSD: 0,\"004F\",72"); }, 0, {},
                  {SMS_NO_MEMORY}),
        operation("sendUSSD", [] { return sendUSSD("*100#"); }, 0, {SMS_MODEM_ERROR, N},
                  {SMS_MODEM_ERROR, N}),
        operation("AddRxDataNode", chunks, 0, {}, {NULL_BLOCK, NULL_BLOCK, NULL_BLOCK, NULL_BLOCK}),
    };
}

std::vector<Operation> textOperations() {
    return {
        operation("sms_encode_pdu", [] { return composeText(5); }, 0, {}, {MINUS_ONE}),
        operation("sms_encode_pdu_ThreeSegments", [] { return composeText(400); }, 0, {},
                  {MINUS_ONE}),
        operation("sms_decode_pdu", decodeText, 0, {}, {0}),
        operation("sms_decode_msg_body_text_Gsm", [] { return bodyOf(ALPHABET_GSM_7BIT); }, 1, {},
                  {0}),
        operation("sms_decode_msg_body_text_Data", [] { return bodyOf(ALPHABET_8BIT); }, 1, {},
                  {0}),
        operation("sms_decode_msg_body_text_Ucs2", [] { return bodyOf(ALPHABET_UCS2); }, 1, {},
                  {0}),
    };
}

std::vector<Operation> phonebookOperations() {
    return {
        asking(
            "SM_SetStorage", [] { return SM_SetStorage(PB_STORAGE_SM); }, P),
        operation("SM_GetStorageInfo",
                  [] {
                      sm_storage_info_t info;
                      return SM_GetStorageInfo(&info, PB_STORAGE_SM);
                  },
                  0, {P, P}, {P, P}),
        operation("SM_GetRecordInfo",
                  [] {
                      sm_record_info_t info;
                      return SM_GetRecordInfo(&info, PB_STORAGE_SM);
                  },
                  0, {P, P}, {P, P}),
        asking(
            "SM_SetCodeDec", [] { return SM_SetCodeDec("UCS2"); }, P),
        operation("SM_DecodeItem",
                  [] {
                      sm_item_t item;
                      return SM_DecodeItem(ENTRY_LINE, &item);
                  },
                  0, {}, {PB_STORAGE_REFUSED, PB_STORAGE_REFUSED}),
        asking(
            "SM_WriteItem", [] { return writeEntry(SM_WriteItem); }, P),
        asking(
            "writePBSim", [] { return writeEntry(writePBSim); }, P),
        asking(
            "newPBSim",
            [] {
                return writeEntry(
                    [](i32, const sm_item_t *item, i32 *out) { return newPBSim(item, out); });
            },
            P),
        asking(
            "editPBSim",
            [] {
                return writeEntry(
                    [](i32 index, const sm_item_t *item, i32 *) { return editPBSim(index, item); });
            },
            P),
        operation("SM_ReadItem", [] { return readEntry(SM_ReadItem); }, 0, {P},
                  {P, PB_STORAGE_REFUSED, PB_STORAGE_REFUSED}),
        operation("readPBSim", [] { return readEntry(readPBSim); }, 0, {P},
                  {P, PB_STORAGE_REFUSED, PB_STORAGE_REFUSED}),
        asking(
            "SM_DeleteItem", [] { return SM_DeleteItem(7); }, P),
        asking(
            "deletePBSim", [] { return deletePBSim(7); }, P),
        operation("SM_DeleteMultiItems", [] { return deleteMany(indexesFrom(1, 45)); }, 0, {P, P},
                  {P, P}),
        asking(
            "add_new_contact", [] { return writeContact(add_new_contact); }, P),
        asking(
            "edit_sim_contact", [] { return writeContact(edit_sim_contact); }, P),
        operation("read_contact", readContact, 0, {P}, {P, PB_STORAGE_REFUSED, PB_STORAGE_REFUSED}),
    };
}

std::vector<Operation> operations() {
    std::vector<Operation> all;
    for (const auto &some : {channelOperations(), settingOperations(), messageOperations(),
                             reportOperations(), textOperations(), phonebookOperations()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::string operationName(const ::testing::TestParamInfo<Operation> &info) {
    return info.param.name;
}

class FailingCall : public ::testing::TestWithParam<Operation> {
protected:
    static void begin() {
        beginLibraryTest();
        g_blInitCsca = 0;
        answerRequests([](const Sent &sent) { return answerWith(replyTo(sent)); });
    }
    // Runs the operation with its output on standard output kept out of the test's.
    static u32 run() {
        testing::internal::CaptureStdout();
        const u32 status = GetParam().run();
        testing::internal::GetCapturedStdout();
        return status;
    }
    // The calls of the platform that fail an exchange, n-th call to n-th exchange.
    static void failInTurn(Call call, u32 callsPerExchange);
};

std::size_t callsOf(Call call) {
    return static_cast<std::size_t>(std::count(calls().begin(), calls().end(), call));
}

void FailingCall::failInTurn(Call call, u32 callsPerExchange) {
    const Statuses &expected = GetParam().exchanges;
    u32 failures = 0;
    for (u32 nth = 1; nth < CALLS_MAX; nth++) {
        begin();
        failCall(call, nth);
        const u32 status = run();
        const bool wasHit = callsOf(call) >= nth;
        endLibraryTest();
        if (!wasHit) {
            EXPECT_EQ(status, GetParam().success);
            break;
        }
        failures++;
        const std::size_t exchange = (nth - 1) / callsPerExchange;
        ASSERT_LT(exchange, expected.size()) << "one exchange more than the table knows";
        EXPECT_EQ(status, expected[exchange]) << "call " << nth << " failed";
    }
    EXPECT_EQ(failures, expected.size() * callsPerExchange);
}

} // namespace

TEST_P(FailingCall, NothingFailsWithoutAFailure) {
    begin();
    EXPECT_EQ(run(), GetParam().success);
    EXPECT_EQ(callsOf(Call::SendSyn), GetParam().exchanges.size());
    EXPECT_EQ(allocationSizes().size(), GetParam().allocations.size());
    endLibraryTest();
}

TEST_P(FailingCall, DestinationIsUnknown) { failInTurn(Call::GetAddress, 1); }

TEST_P(FailingCall, IpcBlockIsNotThere) { failInTurn(Call::MemoryAssign, 2); }

TEST_P(FailingCall, RequestIsNotAnswered) { failInTurn(Call::SendSyn, 1); }

TEST_P(FailingCall, ResultsThatNobodyNeedsAreNotLookedAt) {
    for (const Call call : {Call::GenSession, Call::MemFree}) {
        for (u32 nth = 1; nth < CALLS_MAX; nth++) {
            begin();
            failCall(call, nth);
            EXPECT_EQ(run(), GetParam().success);
            const bool wasHit = callsOf(call) >= nth;
            endLibraryTest();
            if (!wasHit) { break; }
        }
    }
}

TEST_P(FailingCall, HeapBlockIsNotThere) {
    const Statuses &expected = GetParam().allocations;
    u32 failures = 0;
    for (u32 nth = 1; nth < CALLS_MAX; nth++) {
        begin();
        failAllocation(nth);
        const u32 status = run();
        const bool wasHit = allocationSizes().size() >= nth;
        endLibraryTest();
        if (!wasHit) {
            EXPECT_EQ(status, GetParam().success);
            break;
        }
        failures++;
        ASSERT_LE(nth, expected.size()) << "one allocation more than the table knows";
        EXPECT_EQ(status, expected[nth - 1]) << "allocation " << nth << " failed";
    }
    EXPECT_EQ(failures, expected.size());
}

TEST_P(FailingCall, NothingIsLeftWhenTheHeapStaysEmpty) {
    for (u32 nth = 1; nth <= GetParam().allocations.size(); nth++) {
        begin();
        failAllocationsFrom(nth);
        run();
        endLibraryTest();
    }
}

TEST_P(FailingCall, NothingIsLeftWhenTheManagerStaysAway) {
    for (u32 nth = 1; nth <= GetParam().exchanges.size(); nth++) {
        begin();
        u32 asked = 0;
        answerRequests([&asked, nth](const Sent &sent) {
            return ++asked < nth ? answerWith(replyTo(sent)) : NOBODY_ANSWERS;
        });
        run();
        endLibraryTest();
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, FailingCall, ::testing::ValuesIn(operations()), operationName);

// The IPC messages themselves, call by call.
namespace {

struct Message {
    const char *name;
    std::function<u32()> run;
    std::vector<std::pair<Call, u32>> calls; // in order, with the status when it fails
};
void PrintTo(const Message &message, std::ostream *out) { *out << message.name; }

u32 respond() {
    const Guarded<u32> request(receivedRequest(1, 2, 3, {1, 2, 3}, addressOf(4)));
    return zeldcard_send_response(request.get(), 2, "x", 1);
}

using CallsAndStatuses = std::vector<std::pair<Call, u32>>;

Message message(const char *name, std::function<u32()> run, CallsAndStatuses calls) {
    return {name, std::move(run), std::move(calls)};
}

std::pair<Call, u32> failing(Call call, u32 status) { return {call, status}; }

const std::vector<Message> &messages() {
    static const std::vector<Message> MESSAGES = {
        message("Notification", [] { return zeldcard_send_notify(1, "x", 1); },
                {failing(Call::MemoryAssign, IPC_NO_MEMORY), failing(Call::GenSession, IPC_OK),
                 failing(Call::Notify, IPC_SEND_FAILED), failing(Call::MemFree, IPC_OK)}),
        message("Response", respond,
                {failing(Call::MemoryAssign, IPC_NO_RESPONSE_MEMORY),
                 failing(Call::SendAsy, IPC_SEND_FAILED), failing(Call::MemFree, IPC_OK)}),
        message("Request", [] { return zeldcard_send_request_asyn(1, 1, "x", 1); },
                {failing(Call::GetAddress, IPC_UNKNOWN_DESTINATION),
                 failing(Call::MemoryAssign, IPC_NO_MEMORY), failing(Call::GenSession, IPC_OK),
                 failing(Call::SendAsy, IPC_SEND_FAILED), failing(Call::MemFree, IPC_OK)}),
        message("RequestThatWaits", requestSync,
                {failing(Call::GetAddress, IPC_UNKNOWN_DESTINATION),
                 failing(Call::MemoryAssign, IPC_NO_MEMORY),
                 failing(Call::MemoryAssign, IPC_NO_MEMORY), failing(Call::GenSession, IPC_OK),
                 failing(Call::SendSyn, IPC_SEND_FAILED), failing(Call::MemFree, IPC_OK),
                 failing(Call::MemFree, IPC_OK)}),
        message(
            "QueueMessage", [] { return zeldcard_send_mq(1, 1, "x", 1); },
            {failing(Call::MemoryAssign, IPC_NO_MEMORY), failing(Call::MqSend, IPC_SEND_FAILED)}),
    };
    return MESSAGES;
}

class FailingMessage : public ::testing::TestWithParam<Message> {};

} // namespace

TEST_P(FailingMessage, EveryCallInTurn) {
    beginLibraryTest();
    EXPECT_EQ(GetParam().run(), IPC_OK);
    ASSERT_EQ(calls().size(), GetParam().calls.size());
    for (std::size_t i = 0; i < GetParam().calls.size(); i++) {
        EXPECT_EQ(calls()[i], GetParam().calls[i].first) << "call " << i + 1;
    }
    endLibraryTest();
    for (std::size_t i = 0; i < GetParam().calls.size(); i++) {
        const auto &[call, status] = GetParam().calls[i];
        const auto nth = std::count_if(
            GetParam().calls.begin(), GetParam().calls.begin() + static_cast<std::ptrdiff_t>(i) + 1,
            [which = call](const auto &c) { return c.first == which; });
        beginLibraryTest();
        failCall(call, static_cast<u32>(nth));
        EXPECT_EQ(GetParam().run(), status) << "call " << i + 1 << " failed";
        endLibraryTest();
    }
}

INSTANTIATE_TEST_SUITE_P(Messages, FailingMessage, ::testing::ValuesIn(messages()),
                         [](const auto &each) { return std::string(each.param.name); });
