// Sixteen threads through everything that is not documented as for one thread at a time: the codec,
// the character sets, hexadecimal, PDU texts, the AT channel, the log. The platform has no lock, so
// that ThreadSanitizer sees what the library itself shares. Results are compared as well.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "atlib/CPbSIM.h"
#include "atlib/CSMS.h"
#include "atlib/SmsUtils.h"
#include "atlib/USBModem.h"
#include "comm/log_line.h"
#include "comm/zeldcard_common.h"
#include "support/plain/plain_platform.h"

namespace {

constexpr unsigned THREADS = 16;
constexpr unsigned TURNS = 60;

const char DELIVER[] = "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37";
const char STATUS_REPORT[] = "00062A0B912143658709F1427051210354804270512113008800";

// All threads begin together and do the work TURNS times; `work` gives false where a result
// differs.
void runEverywhere(const std::function<bool(unsigned thread)> &work) {
    std::atomic<unsigned> ready = 0;
    std::atomic<unsigned> wrong = 0;
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < THREADS; thread++) {
        threads.emplace_back([&, thread] {
            ready++;
            while (ready < THREADS) { std::this_thread::yield(); }
            for (unsigned turn = 0; turn < TURNS; turn++) { wrong += work(thread) ? 0 : 1; }
        });
    }
    for (std::thread &thread : threads) { thread.join(); }
    EXPECT_EQ(wrong, 0U);
}

// ---- the transfer layer ----

bool packSeptets(unsigned thread) {
    u8 septets[160];
    for (unsigned i = 0; i < sizeof(septets); i++) {
        septets[i] = static_cast<u8>((i + thread) % 127 + 1);
    }
    u8 packed[141] = {};
    u8 back[160] = {};
    const u16 octets = wms_ts_pack_gw_7_bit_chars(septets, 160, 0, 140, packed);
    wms_ts_unpack_gw_7_bit_chars(packed, static_cast<u8>(octets), 160, 0, back);
    return octets == 140 && std::memcmp(septets, back, sizeof(back)) == 0;
}

bool codeFields(unsigned thread) {
    u8 octets[64] = {};
    SmsAddress address = {};
    wms_number_to_address("+4912345", &address);
    SmsAddress addressBack = {};
    wms_ts_encode_address(&address, octets);
    wms_ts_decode_address(octets, &addressBack);
    const SmsTimestamp time = {0x13, 0x05, 0x07, 0x09, 0x03, static_cast<u8>(thread % 10), 4};
    SmsTimestamp timeBack = {};
    wms_ts_encode_timestamp(&time, octets);
    gw_ts_encode_timestamp(&time, octets);
    wms_ts_decode_timestamp(octets, &timeBack);
    SmsTimestamp duration = {};
    wms_ts_decode_relative_time(static_cast<u8>(thread), &duration);
    wms_ts_encode_relative_time(&duration);
    SmsDcs dcs = {};
    octets[0] = static_cast<u8>(thread * 16);
    wms_ts_decode_dcs(octets, &dcs);
    wms_ts_encode_dcs(&dcs, octets);
    return addressBack.number_of_digits == 7 && timeBack.second == time.second;
}

bool codeUserData(unsigned thread) {
    SmsUserData data = {};
    data.num_headers = 1;
    data.headers[0].header_id = UDH_CONCAT_8;
    data.headers[0].payload.concat8 = {static_cast<u8>(thread), 2, 1};
    data.sm_len = 100;
    std::memset(data.sm_data, 'a' + static_cast<int>(thread), data.sm_len);
    SmsDcs dcs = {};
    u8 octets[256] = {};
    wms_ts_encode_gw_user_data(&dcs, &data, octets);
    SmsUserData back = {};
    wms_ts_decode_gw_user_data(&dcs, octets[0], octets + 1, 1, &back);
    wms_ts_compute_gw_user_data_length(&dcs, &data);
    return back.num_headers == 1 && back.headers[0].payload.concat8.msg_ref == thread &&
           back.sm_len == 100 && std::memcmp(back.sm_data, data.sm_data, 100) == 0;
}

// ---- PDU texts ----

bool decodePdus(unsigned thread) {
    SmsMessage message = {};
    sms_decode_pdu(thread % 2 == 0 ? DELIVER : STATUS_REPORT, &message);
    const bool right = thread % 2 == 0
                           ? message.kind == MESSAGE_DELIVER && sms_wstrlen(message.text) == 10
                           : message.kind == MESSAGE_STATUS_REPORT && message.text == nullptr;
    free(message.text);
    return right;
}

bool codePdus(unsigned thread) {
    SmsAtMessage record = {};
    wms_number_to_address("+4912345", &record.service_centre);
    record.tpdu.tpdu_type = TPDU_SUBMIT;
    SmsSubmit *submit = &record.tpdu.u.submit;
    wms_number_to_address("017123", &submit->address);
    submit->dcs.msg_class = MSG_CLASS_NONE;
    submit->user_data.sm_len = 160;
    std::memset(submit->user_data.sm_data, 'A' + static_cast<int>(thread), 160);
    char text[76 + 510 + 1] = {};
    u32 length = 0;
    if (wms_encode_at_cmd_pdu(&record, text, &length) != 0) { return false; }
    SmsAtMessage back = {};
    return wms_decode_at_cmd_pdu(text, &back) == 0 &&
           back.tpdu.u.submit.user_data.sm_data[159] == 'A' + static_cast<int>(thread);
}

// ---- character sets, hexadecimal, numbers ----

bool convertTexts(unsigned thread) {
    u16 units[65] = {};
    for (unsigned i = 0; i < 64; i++) { units[i] = static_cast<u16>('0' + (i + thread) % 64); }
    u8 octets[256] = {};
    u16 back[256] = {};
    const i32 octetCount = UnicodeToUTF8(units, 64, octets, sizeof(octets));
    if (UTF8ToUnicode(octets, static_cast<u32>(octetCount), back, 256) != 64) { return false; }
    sms_GetEncodeType(units);
    const u32 septetCount = sms_WSTRToGSM(units, 64, octets, sizeof(octets));
    sms_GSMToWSTR(octets, septetCount, back, 256);
    sms_ToUnicodeNetwork(units, 64, octets);
    sms_FromUnicodeNetwork(units, 64, back);
    char narrow[65];
    sms_wstrtostr(units, narrow);
    sms_strtowstr(narrow, back);
    return std::memcmp(units, back, sizeof(units)) == 0;
}

bool convertHexadecimal(unsigned thread) {
    u8 name[8] = {0, static_cast<u8>('A' + thread), 4, 0x16, 0, 0x62, 0, 0};
    char digits[17];
    u8 back[8] = {};
    Ucs2StringToHexString(name, digits, sizeof(name), 0);
    const bool same = HexStrToDec(digits, back, 0) == 6 && std::memcmp(name, back, 6) == 0;
    u32 value = 0;
    char text[12];
    sms_utils_itoa(thread, text, 0);
    return same && dsatetsismsi_encode_pdu(digits, back, 6) == 0 &&
           sms_utils_atoi(text, &value, 0) == 1 && value == thread;
}

bool decodeEntries(unsigned thread) {
    const std::string index = std::to_string(thread % 9 + 1);
    const std::string line = index + ",\"0123\",129,\"00410042\"";
    sm_item_t item;
    return SM_DecodeItem(line.c_str(), &item) == PB_OK &&
           item.index == static_cast<i32>(thread % 9 + 1) && item.name[3] == 'B';
}

// ---- reports ----

bool decodeReports(unsigned thread) {
    const std::string line = "+CMTI: \"SM\"," + std::to_string(thread);
    char memory[32] = {};
    if (getCMTIindex(line.c_str(), memory) != static_cast<i32>(thread)) { return false; }
    u8 *octets = nullptr;
    u32 length = 0;
    u32 scheme = 0;
    u32 isText = 0;
    if (decodeCBM("+CBM: 4\r\n00010203\r\n", &octets, &length) != SMS_OK) { return false; }
    free(octets);
    if (decodeCUSD("+CUSD: 0,\"Balance 5\",15", &octets, &length, &scheme, &isText) != SMS_OK) {
        return false;
    }
    free(octets);
    RxDataNode *chunks = nullptr;
    AddRxDataNode(&chunks, "+CLIP: ", 7);
    AddRxDataNode(&chunks, "\"1\",", 4);
    DoReportData(6, chunks);
    DelRxDataNodeLink(&chunks);
    const std::string popUp = "\r\n+CMT: ,22\r\n" + std::string(DELIVER) + "\r\n";
    SmsRecord *record = nullptr;
    u32 kind = 0;
    if (PopupSms(&record, popUp.c_str(), &kind) != SMS_OK) { return false; }
    const bool right = sms_wstrlen(record->message.text) == 10;
    free(record->message.text);
    free(record);
    return right && checkReportKey("RING") == 7;
}

// ---- the AT channel and IPC ----

bool askModem(unsigned thread) {
    const std::string reply = "\r\n+CSQ: " + std::to_string(thread) + ",99\r\n\r\nOK\r\n";
    support::plain::answerWithTexts({reply});
    char *got = writeComm("AT+CSQ\r", 3000, 2, "OK", "ERROR");
    const bool right = got != nullptr && reply == got && checkATStatus(got) == SMS_OK;
    free(got);
    return right;
}

bool transferPdus(unsigned thread) {
    static const char MARKERS[1][31] = {"OK"};
    const std::string reply = "\r\n+CMGW: " + std::to_string(thread) + "\r\n\r\nOK\r\n";
    support::plain::answerWithTexts({reply});
    char *got = nullptr;
    ExecAT2(DELIVER, MARKERS, 1, &got, 35000);
    free(got);
    i32 index = -1;
    return handleSave(0, DELIVER, 2, &index) == SMS_OK && index == static_cast<i32>(thread);
}

bool sendMessages(unsigned thread) {
    u32 request[(16 + 4 + IPC_ADDRESS_SIZE) / 4] = {1, 2, 4, thread};
    return zeldcard_send_notify(thread, &thread, sizeof(thread)) == IPC_OK &&
           zeldcard_send_request_asyn(1, thread, &thread, sizeof(thread)) == IPC_OK &&
           zeldcard_send_response(request, thread, &thread, sizeof(thread)) == IPC_OK &&
           zeldcard_send_mq(1, thread, &thread, sizeof(thread)) == IPC_OK;
}

bool readStorage(unsigned) {
    support::plain::answerWithTexts({"\r\n+CPMS: 3,50,3,50,3,50\r\n\r\nOK\r\n"});
    u16 counts[2] = {};
    u32 charset = 0;
    return setReadDeleteOpMemStore(SMS_STORAGE_SM, counts) == SMS_OK && counts[1] == 50 &&
           getEcodingFormat(&charset) == SMS_OK;
}

bool writeLog(unsigned thread) {
    logLine("comm/source.cpp", "function", static_cast<int>(thread), "thread %u\n", thread);
    return usbmodem_log("thread %u\n", thread) == 0;
}

struct Work {
    const char *name;
    bool (*run)(unsigned thread);
};
void PrintTo(const Work &work, std::ostream *out) { *out << work.name; }

const Work WORKS[] = {
    {       "packSeptets",        packSeptets},
    {        "codeFields",         codeFields},
    {      "codeUserData",       codeUserData},
    {        "decodePdus",         decodePdus},
    {          "codePdus",           codePdus},
    {      "convertTexts",       convertTexts},
    {"convertHexadecimal", convertHexadecimal},
    {     "decodeEntries",      decodeEntries},
    {     "decodeReports",      decodeReports},
    {          "askModem",           askModem},
    {      "transferPdus",       transferPdus},
    {      "sendMessages",       sendMessages},
    {       "readStorage",        readStorage},
    {          "writeLog",           writeLog},
};

class SixteenThreads : public ::testing::TestWithParam<Work> {};

} // namespace

TEST_P(SixteenThreads, DoTheSameAtOnce) { runEverywhere(GetParam().run); }

INSTANTIATE_TEST_SUITE_P(Works, SixteenThreads, ::testing::ValuesIn(WORKS),
                         [](const auto &each) { return std::string(each.param.name); });

TEST(SixteenThreadsTogether, DoEverythingAtOnce) {
    runEverywhere([](unsigned thread) { return WORKS[thread % std::size(WORKS)].run(thread); });
}
