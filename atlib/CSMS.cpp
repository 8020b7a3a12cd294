// The SMS manager: AT commands out, replies judged and parsed. Asking and judging are apart; the
// function that asked frees the reply. The only state is the service-centre cache.
#include "CSMS.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "../comm/log_line.h"
#include "USBModem.h"
#include "at_cursor.h"

static const char LOG_SOURCE[] = "atlib/CSMS.cpp";

static const u32 COMMAND_WAIT = 3000;   // milliseconds
static const u32 TRANSFER_WAIT = 35000; // milliseconds, for one segment
static const u32 INIT_ATTEMPTS = 7;
static const u32 INDEX_UNSET = 0xFFFFFFFF;
static const u32 REPORT_MESSAGE = 1; // kinds of PopupSms
static const u32 REPORT_STATUS = 3;
static const i32 USSD_DEFAULT_ALPHABET = 15; // TS 23.038, 5

enum {
    COMMAND_ROOM = 64,
    CSCA_DIGITS = SMS_NUMBER_UNITS, // characters of a service-centre address
    SHORT_FIELD_ROOM = 10,          // a status or a length, its zero included
    COUNT_FIELD_ROOM = 100,
    TRANSFER_PDU_ROOM = 800,
    USSD_TEXT_MAX = 29,
    USSD_COMMAND_ROOM = 48
};

// The final results that end a reply, as the send and store requests pass them.
static const char FINAL_RESULTS[4][31] = {"OK", "ERROR", "+CMS ERROR:", "+CME ERROR:"};
static const u32 FINAL_RESULT_COUNT = 4;

u32 g_blInitCsca;
u16 g_wszCsca[SMS_NUMBER_UNITS];

// Asking and judging.

static char *askModem(const char *command) {
    return writeComm(command, COMMAND_WAIT, FINAL_RESULT_COUNT, FINAL_RESULTS[0], FINAL_RESULTS[1],
                     FINAL_RESULTS[2], FINAL_RESULTS[3]);
}

static u32 runCommand(const char *command) {
    char *reply = askModem(command);
    const u32 status = reply != nullptr ? checkATStatus(reply) : SMS_NO_REPLY;
    free(reply);
    return status;
}

const char *HasSubStr(const char *text, const char *pattern) {
    return text != nullptr && pattern != nullptr ? strstr(text, pattern) : nullptr;
}

u32 checkCMSError(const char *reply) {
    const char *key = HasSubStr(reply, "+CMS ERROR:");
    if (key == nullptr) { return 0; }
    // KEPT: the number is read behind "+CMS", where " ER" gives 0; callers rely on it.
    AtCursor at = {key + strlen("+CMS")};
    char number[4];
    if (!takeUntil(&at, "\n", number, sizeof(number))) { return SMS_FIELD_MISSING; }
    return static_cast<u32>(looseInt(number));
}

u32 checkATStatus(const char *reply) {
    if (reply == nullptr) { return SMS_NO_REPLY_TEXT; }
    // KEPT: "OK" anywhere wins over an error; callers rely on it.
    if (HasSubStr(reply, "OK") != nullptr) { return SMS_OK; }
    if (HasSubStr(reply, "+CME ERROR:") != nullptr) { return SMS_MODEM_ERROR; }
    const u32 error = checkCMSError(reply);
    if (error != 0) { return error; }
    return HasSubStr(reply, "ERROR") != nullptr ? SMS_MODEM_ERROR : SMS_OK;
}

// Settings: TS 27.005, 3.2 and 3.4.

u32 setInformmode(void) {
    char *reply = writeComm("AT+CNMI=2,1,0,0,0\r", COMMAND_WAIT, 3, FINAL_RESULTS[0],
                            FINAL_RESULTS[1], FINAL_RESULTS[2]);
    const u32 status = reply != nullptr ? checkATStatus(reply) : SMS_NO_REPLY;
    free(reply);
    return status;
}

u32 setNewMessageIndication(i32 mode, i32 mt, i32 bm, i32 ds, i32 bfr) {
    char command[COMMAND_ROOM + 16];
    snprintf(command, sizeof(command), "AT+CNMI=%d,%d,%d,%d,%d\r", mode, mt, bm, ds, bfr);
    return runCommand(command);
}

u32 setNewMessageChanel(i32 mode) {
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CSCB=%d\r", mode);
    return runCommand(command);
}

static u32 tryRepeatedly(u32 (*operation)(void)) {
    for (u32 attempt = 0; attempt < INIT_ATTEMPTS; attempt++) {
        if (operation() == SMS_OK) { return SMS_OK; }
    }
    return SMS_NO_REPLY;
}

static u32 selectSim(void) { return setReceiveMemStore(SMS_STORAGE_SM); }

u32 InitSMS(void) {
    const u32 indication = tryRepeatedly(setInformmode);
    const u32 storage = tryRepeatedly(selectSim);
    return indication == SMS_OK && storage == SMS_OK ? SMS_OK : SMS_NO_REPLY;
}

// Storages: TS 27.005, 3.2.2.

static const char *storageName(u32 storage) {
    if (storage == SMS_STORAGE_ME) { return "ME"; }
    return storage == SMS_STORAGE_SM ? "SM" : nullptr;
}

u32 setReceiveMemStore(u32 storage) {
    const char *name = storageName(storage);
    if (name == nullptr) { return SMS_INVALID_ARGUMENT; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPMS=\"%s\",\"%s\",\"%s\"\r", name, name, name);
    return runCommand(command);
}

enum CountsLine { COUNTS_READ, COUNTS_ABSENT, COUNTS_CUT };

// +CPMS: <used>,<total>,...
static CountsLine readCounts(const char *reply, u16 counts[2]) {
    AtCursor at = {reply};
    char used[COUNT_FIELD_ROOM];
    char total[COUNT_FIELD_ROOM];
    if (!skipPast(&at, "+CPMS:")) { return COUNTS_ABSENT; }
    if (!takeUntil(&at, ",", used, sizeof(used)) || !takeUntil(&at, ",", total, sizeof(total))) {
        return COUNTS_CUT;
    }
    counts[0] = static_cast<u16>(looseInt(used));
    counts[1] = static_cast<u16>(looseInt(total));
    return COUNTS_READ;
}

u32 setReadDeleteOpMemStore(u32 storage, u16 counts[2]) {
    const char *name = storageName(storage);
    if (name == nullptr) { return SMS_INVALID_ARGUMENT; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPMS=\"%s\"\r", name);
    char *reply = askModem(command);
    if (reply == nullptr) { return SMS_NO_REPLY; }
    u16 read[2];
    const u32 status = checkATStatus(reply);
    const CountsLine line = readCounts(reply, read);
    if (status == SMS_OK && line == COUNTS_ABSENT) {
        LOG_LINE("AT+CPMS return error:%s \n", reply);
    }
    free(reply);
    if (status != SMS_OK) { return status; }
    if (line != COUNTS_READ) { return SMS_FIELD_MISSING; }
    if (counts == nullptr) { return SMS_OK; }
    memcpy(counts, read, sizeof(read));
    LOG_LINE("sms used: %d\n\n", counts[0]);
    LOG_LINE("sms total: %d\n\n", counts[1]);
    return SMS_OK;
}

u32 setWriteSendOpMemStore(u32 storage, u16 counts[2]) {
    const char *name = storageName(storage);
    if (name == nullptr) { return SMS_INVALID_ARGUMENT; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPMS=,\"%s\"\r", name);
    char *reply = askModem(command);
    if (reply == nullptr) { return SMS_NO_REPLY; }
    u16 read[2];
    const u32 status = checkATStatus(reply);
    const CountsLine line = readCounts(reply, read);
    free(reply);
    // KEPT: a reply without its line succeeds here, other than for reading; callers rely on it.
    if (status != SMS_OK || line == COUNTS_ABSENT) { return status; }
    if (line == COUNTS_CUT) { return SMS_FIELD_MISSING; }
    if (counts != nullptr) { memcpy(counts, read, sizeof(read)); }
    return SMS_OK;
}

// +CPMS: <name>,<used>,<total>,<rest>: stored only when all four are there.
static void readStorageInfo(const char *reply, u16 counts[2]) {
    AtCursor at = {reply};
    char name[SHORT_FIELD_ROOM];
    u32 used = 0;
    u32 total = 0;
    if (!skipPast(&at, "+CPMS:") || *at.at == ',' || !takeUntil(&at, ",", name, sizeof(name)) ||
        !takeUnsigned(&at, &used) || !takeKey(&at, ",") || !takeUnsigned(&at, &total) ||
        !takeKey(&at, ",")) {
        return;
    }
    while (isBlank(*at.at)) { at.at++; }
    if (*at.at == '\0') { return; }
    counts[0] = static_cast<u16>(used);
    counts[1] = static_cast<u16>(total);
}

u32 SM_GetStorageInfo_Sms(u16 counts[2], u32 storage) {
    const u32 status = setReceiveMemStore(storage);
    if (status != SMS_OK) { return status; }
    char *reply = askModem("AT+CPMS?\r");
    if (reply == nullptr) { return SMS_NO_REPLY; }
    // KEPT: a reply that cannot be read leaves the counts and succeeds; callers rely on it.
    readStorageInfo(reply, counts);
    free(reply);
    return SMS_OK;
}

// Service-centre address: TS 27.005, 3.3.1.

// The text between the first two quotes.
static bool readQuoted(const char *reply, char *text, size_t size) {
    AtCursor at = {reply};
    return skipPast(&at, "\"") && takeUntil(&at, "\"", text, size);
}

u32 readCSCA(u16 *out) {
    char *reply = askModem("AT+CSCA?\r");
    if (reply == nullptr) { return SMS_NO_REPLY; }
    const u32 status = checkATStatus(reply);
    LOG_LINE("check at status:%d\n", static_cast<int>(status));
    char address[CSCA_DIGITS + 1];
    const bool found = readQuoted(reply, address, sizeof(address));
    free(reply);
    if (status != SMS_OK) { return SMS_NO_REPLY; }
    if (!found) { return SMS_FIELD_MISSING; }
    LOG_LINE("szcsca:%s\n", address);
    address[SMS_NUMBER_UNITS - 1] = '\0'; // what the caller's field holds
    sms_strtowstr(address, out);
    return SMS_OK;
}

u32 GetCSCA(u16 *out) {
    memset(out, 0, sizeof(g_wszCsca));
    // KEPT: once cached, the address is not handed out again; callers rely on it.
    if (g_blInitCsca != 0) { return SMS_OK; }
    const u32 status = readCSCA(out);
    if (status != SMS_OK) {
        memset(out, 0, sizeof(g_wszCsca));
        return status;
    }
    memcpy(g_wszCsca, out, sizeof(g_wszCsca));
    g_blInitCsca = 1;
    return SMS_OK;
}

static u32 sendCenterNumber(const char *address) {
    char command[COMMAND_ROOM];
    // KEPT: a blank on each side of the equals sign; modems rely on it.
    snprintf(command, sizeof(command), "AT+CSCA = \"%s\"\r", address);
    return runCommand(command);
}

u32 setCenterNumber(const u16 *number) {
    if (number == nullptr) { return SMS_INVALID_ARGUMENT; }
    u16 cut[SMS_NUMBER_UNITS + 1] = {0};
    const u32 length = sms_wstrlen(number);
    memcpy(cut, number,
           (length < SMS_NUMBER_UNITS ? length : static_cast<u32>(SMS_NUMBER_UNITS)) *
               sizeof(*number));
    char address[CSCA_DIGITS + 1];
    sms_wstrtostr(cut, address);
    u32 charset = CHARSET_UNKNOWN;
    if (getEcodingFormat(&charset) != SMS_OK) { return SMS_NO_REPLY; }
    if (charset != CHARSET_UCS2) { return sendCenterNumber(address); }
    setEcodingFormat(CHARSET_IRA);
    const u32 status = sendCenterNumber(address);
    // KEPT: without a reply the character set stays switched; callers rely on it.
    if (status != SMS_NO_REPLY) { setEcodingFormat(CHARSET_UCS2); }
    return status;
}

u32 SetCSCA(const u16 *number) {
    const u32 status = setCenterNumber(number);
    if (status != SMS_OK) { return status; }
    // KEPT: only two units reach the cache; callers rely on it.
    g_wszCsca[0] = number[0];
    g_wszCsca[1] = number[0] != 0 ? number[1] : u16{0};
    return SMS_OK;
}

// Terminal character set: TS 27.007, 5.5.

static u32 charsetOf(const char *reply) {
    if (HasSubStr(reply, "UCS2") != nullptr) { return CHARSET_UCS2; }
    if (HasSubStr(reply, "IRA") != nullptr) { return CHARSET_IRA; }
    return HasSubStr(reply, "GSM") != nullptr ? CHARSET_GSM : CHARSET_UNKNOWN;
}

u32 getEcodingFormat(u32 *code) {
    char *reply = askModem("AT+CSCS?\r");
    if (reply == nullptr) { return SMS_NO_REPLY; }
    const u32 status = checkATStatus(reply);
    if (status == SMS_OK) { *code = charsetOf(reply); }
    free(reply);
    return status;
}

u32 setEcodingFormat(u32 code) {
    static const char *const NAMES[] = {nullptr, "IRA", "GSM", "UCS2"}; // CHARSET_...
    if (code == CHARSET_UNKNOWN || code > CHARSET_UCS2) { return SMS_INVALID_ARGUMENT; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CSCS=\"%s\"\r", NAMES[code]);
    return runCommand(command);
}

// Sending and saving: TS 27.005, 3.5.

// The caller's text on the heap; null when memory is out.
static u16 *copyText(const u16 *text, u32 length) {
    u16 *copy = static_cast<u16 *>(malloc((size_t{length} + 1) * sizeof(u16)));
    if (copy == nullptr) { return nullptr; }
    if (length > 0) { memcpy(copy, text, length * sizeof(u16)); }
    copy[length] = 0;
    return copy;
}

static bool holdsOk(const char *reply) { return HasSubStr(reply, "OK") != nullptr; }

u32 handleSend(u32 length, const char *pdu) {
    (void)length; // the manager counts the octets itself
    if (pdu == nullptr) { return SMS_INVALID_ARGUMENT; }
    char text[TRANSFER_PDU_ROOM];
    snprintf(text, sizeof(text), "%s", pdu);
    char *reply = nullptr;
    ExecAT2(text, FINAL_RESULTS, FINAL_RESULT_COUNT, &reply, TRANSFER_WAIT);
    // KEPT: no reply is 25 here and 20 when saving; callers rely on it.
    const u32 status = checkATStatus(reply);
    free(reply);
    return status;
}

i32 getCMGWindex(const char *reply) {
    AtCursor at = {reply};
    if (!skipPast(&at, "+CMGW: ")) { return -1; }
    i32 index = 0;
    if (!takeInt(&at, &index)) {
        LOG_LINE("received CMGW index error\n");
        return -1;
    }
    LOG_LINE("received CMGW index :%d\n\n", index);
    return index;
}

u32 handleSave(u32 length, const char *pdu, u32 saveParam, i32 *index) {
    (void)length; // the manager counts the octets itself
    if (pdu == nullptr) { return SMS_INVALID_ARGUMENT; }
    char text[TRANSFER_PDU_ROOM];
    snprintf(text, sizeof(text), "%s", pdu);
    char *reply = nullptr;
    ExecAT3(text, saveParam, FINAL_RESULTS, FINAL_RESULT_COUNT, &reply, TRANSFER_WAIT);
    if (reply == nullptr) { return SMS_NO_REPLY; }
    const u32 status = checkATStatus(reply);
    if (holdsOk(reply)) { *index = getCMGWindex(reply); }
    free(reply);
    return status;
}

u32 SendSMS(const u16 *number, const u16 *text, u8 statusReport, u8 *sentCount) {
    *sentCount = 0;
    SmsMessage request = {};
    request.status_report = statusReport != 0 ? 1 : 0;
    memcpy(request.peer_number, number, sizeof(request.peer_number));
    request.text = copyText(text, sms_wstrlen(text));
    if (request.text == nullptr) {
        LOG_LINE("out of memory\n");
        return SMS_NO_MEMORY;
    }
    // KEPT: the cached service centre is emptied, so a message names none; callers rely on it.
    memset(g_wszCsca, 0, sizeof(g_wszCsca));
    memcpy(request.sc_number, g_wszCsca, sizeof(request.sc_number));
    SmsSegment *segments = nullptr;
    u8 count = 0;
    u32 status = static_cast<u32>(sms_encode_pdu(&request, &segments, &count));
    for (u32 i = 0; status == SMS_OK && i < count; i++) {
        status = handleSend(segments[i].tpdu_length, segments[i].pdu);
        if (status == SMS_OK) { LOG_LINE("send NO %d pdu finished\n\n", static_cast<int>(i)); }
    }
    free(request.text);
    free(segments);
    // KEPT: the count stays 0 also when some segments went out; callers rely on it.
    if (status == SMS_OK) { *sentCount = count; }
    return status;
}

u32 SaveSMS(const u16 *number, const u16 *text, u32 saveParam, u32 *indexes, const u16 when[6]) {
    i32 saved = -1;
    SmsMessage request = {};
    memcpy(request.peer_number, number, sizeof(request.peer_number));
    memcpy(request.sc_number, g_wszCsca, sizeof(request.sc_number));
    request.year = when[0];
    request.month = when[1];
    request.day = when[2];
    request.hour = when[3];
    request.minute = when[4];
    request.second = when[5];
    request.text = copyText(text, mywcslen(text));
    if (request.text == nullptr) {
        LOG_LINE("out of memory\n");
        return SMS_NO_MEMORY;
    }
    SmsSegment *segments = nullptr;
    u8 count = 0;
    const u32 composed = static_cast<u32>(sms_encode_pdu(&request, &segments, &count));
    u32 status = composed;
    for (u32 i = 0; status == SMS_OK && i < count; i++) {
        status = handleSave(segments[i].tpdu_length, segments[i].pdu, saveParam, &saved);
        if (status != SMS_OK) { break; }
        LOG_LINE("save NO %d pdu of %d ok\n\n", static_cast<int>(i), count);
        if (indexes[i] == INDEX_UNSET) {
            LOG_LINE("get saved sms index:%d in location:%d\n\n", saved, static_cast<int>(i));
            indexes[i] = static_cast<u32>(saved);
        }
    }
    free(request.text);
    free(segments);
    const bool stopped = composed == SMS_OK && status != SMS_OK;
    if (!stopped) { LOG_LINE("save pdu finished\n\n"); }
    return status;
}

// Reading: TS 27.005, 4.2.

u32 getSMSbyindex(SmsRecord **record, u32 index) {
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CMGR=%d\r", static_cast<int>(index));
    char *reply = askModem(command);
    if (reply == nullptr) { return SMS_NO_REPLY; }
    const u32 status = checkATStatus(reply);
    if (status != SMS_OK) {
        LOG_LINE("at reply status error:%d\n\n", static_cast<int>(status));
        free(reply);
        return status;
    }
    SmsRecord *message = static_cast<SmsRecord *>(malloc(sizeof(SmsRecord)));
    if (message == nullptr) {
        LOG_LINE("malloc sms pdu failure\n\n");
        free(reply);
        return SMS_NO_REPLY;
    }
    memset(message, 0, sizeof(*message));
    decodeCMGR(reply, message); // KEPT: its result is not looked at; callers judge by the record.
    message->index = static_cast<u16>(index);
    free(reply);
    *record = message;
    return SMS_OK;
}

// +CMGR: <stat>,<alpha>,<length>\r\n<pdu>\r\n
u32 decodeCMGR(const char *reply, SmsRecord *record) {
    AtCursor at = {reply};
    if (!holdsOk(reply) || !skipPast(&at, "+CMGR:")) { return SMS_OK; }
    memset(record, 0, sizeof(*record));
    char status[SHORT_FIELD_ROOM];
    char length[SHORT_FIELD_ROOM];
    char pdu[SMS_PDU_TEXT_ROOM];
    if (!takeUntil(&at, ",", status, sizeof(status)) || !skipPast(&at, ",") ||
        !takeUntil(&at, "\r\n", length, sizeof(length)) ||
        !takeUntil(&at, "\r\n", pdu, sizeof(pdu))) {
        return SMS_OK;
    }
    const i32 result = sms_decode_pdu(pdu, &record->message);
    record->status = static_cast<u32>(looseInt(status));
    return result != 0 ? SMS_BAD_PDU : SMS_OK;
}

i32 get_date_t_of_sms(const SmsRecord *record, char *text) {
    enum { DATE_ROOM = 36 }; // six numbers of 16 bits, five separators, a zero
    const SmsMessage *message = &record->message;
    return snprintf(text, DATE_ROOM, "%u-%02u-%02u %02u:%02u:%02u", message->year, message->month,
                    message->day, message->hour, message->minute, message->second);
}

// +CMTI: "<memory>",<index>
i32 getCMTIindex(const char *line, char *memory) {
    AtCursor at = {line};
    if (!skipPast(&at, "+CMTI: ") || !skipPast(&at, "\"")) { return -1; }
    const char *name = at.at;
    if (!skipPast(&at, "\"")) { return -1; }
    const size_t length = static_cast<size_t>(at.at - 1 - name);
    memcpy(memory, name, length);
    LOG_LINE("received sms location:%.*s\n\n", static_cast<int>(length), name);
    i32 index = 0;
    if (!skipPast(&at, ",") || !takeInt(&at, &index)) { return -1; }
    LOG_LINE("received sms index :%d\n\n", index);
    return index;
}

// Deleting: TS 27.005, 3.5.4.

u32 deleteByStoreId(u32 index, u32 storage) {
    u16 counts[2];
    if (setReadDeleteOpMemStore(storage, counts) != SMS_OK) { return SMS_NO_REPLY; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CMGD=%d\r", static_cast<int>(index));
    return runCommand(command);
}

u32 deleteSMSByID(u32 id) {
    // KEPT: only the low 16 bits count, and the storage is always "ME"; callers rely on it.
    return deleteByStoreId(id & 0xFFFF, SMS_STORAGE_ME);
}

// Reports that come without storage: TS 27.005, 3.4.1.

// KEPT: a blank behind this key, none where it is decoded; callers rely on both.
static bool holdsMessage(const char *line) {
    AtCursor at = {line};
    return skipPast(&at, "+CMT: ") && skipPast(&at, ",");
}

u32 PopupSms(SmsRecord **record, const char *line, u32 *kind) {
    if (holdsMessage(line)) {
        *kind = REPORT_MESSAGE;
    } else if (HasSubStr(line, "+CDS: ") != nullptr) {
        *kind = REPORT_STATUS;
    } else {
        return SMS_NO_REPLY;
    }
    SmsRecord *message = static_cast<SmsRecord *>(malloc(sizeof(SmsRecord)));
    if (message == nullptr) {
        LOG_LINE("malloc sms pdu failure\n\n");
        return SMS_NO_MEMORY;
    }
    memset(message, 0, sizeof(*message));
    *record = message;
    return decodePopupSms(line, message);
}

// The PDU of a report, as its own line. Returns the decoder's result.
// KEPT: it is looked at though the decoder never refuses; the interface promises it.
static i32 decodeReportPdu(const char *pdu, SmsRecord *record) {
    memset(&record->message, 0, sizeof(record->message));
    return sms_decode_pdu(pdu, &record->message);
}

u32 decodePopupSms(const char *line, SmsRecord *record) {
    AtCursor at = {line};
    char length[SHORT_FIELD_ROOM];
    char pdu[SMS_PDU_TEXT_ROOM];
    // +CMT: <alpha>,<length>\r\n<pdu>\r\n
    if (skipPast(&at, "+CMT:")) {
        LOG_LINE("deliver class 0 sms\n\n");
        memset(record, 0, sizeof(*record));
        if (!skipPast(&at, ",") || !takeUntil(&at, "\r\n", length, sizeof(length))) {
            return SMS_INVALID_ARGUMENT;
        }
        LOG_LINE("deliver sms pdu size=%d\n\n", looseInt(length));
        if (!takeUntil(&at, "\r\n", pdu, sizeof(pdu))) { return SMS_INVALID_ARGUMENT; }
        LOG_LINE("deliver sms pdu data=%s\n\n", pdu);
        return decodeReportPdu(pdu, record) != 0 ? SMS_BAD_PDU : SMS_OK;
    }
    // +CDS: <length>\r\n<pdu>\r\n
    if (skipPast(&at, "+CDS: ")) {
        LOG_LINE("report status sms\n\n");
        memset(record, 0, sizeof(*record));
        if (!takeUntil(&at, "\r\n", length, sizeof(length))) { return SMS_INVALID_ARGUMENT; }
        LOG_LINE("report sms pdu size=%d\n\n", looseInt(length));
        if (!takeUntil(&at, "\r\n", pdu, sizeof(pdu))) { return SMS_INVALID_ARGUMENT; }
        LOG_LINE("report sms pdu data=%s\n\n", pdu);
        const i32 result = decodeReportPdu(pdu, record);
        if (result == 0) { return SMS_OK; }
        LOG_LINE("decode pdu error:%d\n\n", result);
        return SMS_BAD_PDU;
    }
    LOG_LINE("invalid pop up msg:%s\n\n", line);
    return SMS_FIELD_MISSING;
}

i32 getCBMindex(const char *line) { return HasSubStr(line, "+CBM: ") != nullptr ? 0 : -1; }

// Octets and a zero behind them as a heap block, null when memory is out.
static u8 *copyOctets(const void *octets, u32 octetCount) {
    u8 *block = static_cast<u8 *>(malloc(size_t{octetCount} + 1));
    if (block == nullptr) { return nullptr; }
    if (octetCount > 0) { memcpy(block, octets, octetCount); }
    block[octetCount] = 0;
    return block;
}

// +CBM: <length>\r\n<page>\r\n
u32 decodeCBM(const char *line, u8 **octets, u32 *length) {
    AtCursor at = {line};
    char size[SHORT_FIELD_ROOM];
    char page[SMS_PDU_TEXT_ROOM];
    if (!skipPast(&at, "+CBM: ") || !takeUntil(&at, "\r\n", size, sizeof(size))) {
        return SMS_FIELD_MISSING;
    }
    *length = static_cast<u32>(looseInt(size));
    LOG_LINE("cbm pdu size:%d\n\n", looseInt(size));
    if (!takeUntil(&at, "\r\n", page, sizeof(page))) { return SMS_FIELD_MISSING; }
    const u32 digitCount = static_cast<u32>(strlen(page));
    LOG_LINE("cbm pdu:%s strlen(pdu):%d\n\n", page, static_cast<int>(digitCount));
    u8 converted[SMS_PDU_TEXT_ROOM / 2];
    if (dsatetsismsi_encode_pdu(page, converted, digitCount / 2) != 0) {
        LOG_LINE("convert Hex stream to stream of octets failure\n");
        return SMS_BAD_PDU;
    }
    u8 *block = copyOctets(converted, digitCount / 2);
    if (block == nullptr) { return SMS_NO_MEMORY; }
    *octets = block;
    return SMS_OK;
}

// The list of received chunks.

RxDataNode *AddRxDataNode(RxDataNode **head, const void *data, u32 length) {
    if (length == UINT32_MAX) { return nullptr; } // no room for the zero behind it
    RxDataNode *node = static_cast<RxDataNode *>(malloc(sizeof(RxDataNode)));
    if (node == nullptr) { return nullptr; }
    *node = {nullptr, length, reinterpret_cast<char *>(copyOctets(data, length)), nullptr};
    if (node->data == nullptr) {
        free(node);
        return nullptr;
    }
    RxDataNode **link = head;
    while (*link != nullptr) {
        node->prev = *link;
        link = &(*link)->next;
    }
    *link = node;
    return node;
}

static void freeNode(RxDataNode *node) {
    free(node->data);
    free(node);
}

void DelRxDataNodeLink(RxDataNode **head) {
    RxDataNode *node = *head;
    *head = nullptr;
    while (node != nullptr) {
        RxDataNode *next = node->next;
        freeNode(node);
        node = next;
    }
}

void DelRxDataNode(RxDataNode **node) {
    if (*node == nullptr) { return; }
    // KEPT: the successor's `prev` stays, and a head leaves the list alone; callers rely on it.
    if ((*node)->prev != nullptr) { (*node)->prev->next = (*node)->next; }
    freeNode(*node);
    *node = nullptr;
}

// USSD: TS 27.007, 7.15.

// KEPT: the character set stays at "IRA" afterwards; callers rely on it.
u32 sendUSSD(const char *text) {
    if (setEcodingFormat(CHARSET_IRA) != SMS_OK) {
        LOG_LINE("set ussd encode error\n\n");
        return SMS_MODEM_ERROR;
    }
    char command[USSD_COMMAND_ROOM];
    // KEPT: blanks before the equals sign and behind the first comma; modems rely on it.
    snprintf(command, sizeof(command), "AT+CUSD =1, \"%.*s\",15\r", USSD_TEXT_MAX, text);
    char *reply = askModem(command);
    if (reply == nullptr) { return SMS_NO_REPLY; }
    const u32 status = checkATStatus(reply);
    free(reply);
    if (status != SMS_OK) { LOG_LINE("send ussd error\n\n"); }
    return status;
}

// KEPT: a blank behind this key, none where it is decoded; callers rely on both.
i32 getCUSDindex(const char *line) { return HasSubStr(line, "+CUSD: ") != nullptr ? 0 : -1; }

i32 str_all_capital(const char *text) {
    if (text == nullptr) { return -1; }
    return text[strspn(text, "0123456789ABCDEF")] == '\0' ? 0 : -1;
}

// The number that the rest of a line begins with, read within a short field.
static i32 restAsInt(const AtCursor *at) {
    char rest[SHORT_FIELD_ROOM];
    snprintf(rest, sizeof(rest), "%s", at->at);
    return looseInt(rest);
}

// +CUSD: <session>,"<answer>",<coding scheme>
u32 decodeCUSD(const char *line, u8 **data, u32 *length, u32 *dcs, u32 *isText) {
    AtCursor at = {line};
    char session[SHORT_FIELD_ROOM];
    char answer[SMS_PDU_TEXT_ROOM];
    if (!skipPast(&at, "+CUSD:") || !takeUntil(&at, ",", session, sizeof(session)) ||
        !skipPast(&at, "\"") || !takeUntil(&at, "\"", answer, sizeof(answer))) {
        return SMS_FIELD_MISSING;
    }
    u32 octetCount = static_cast<u32>(strlen(answer));
    LOG_LINE("ussd pdu:%s strlen(pdu):%d\n\n", answer, static_cast<int>(octetCount));
    if (!skipPast(&at, ",")) { return SMS_FIELD_MISSING; }
    const i32 scheme = restAsInt(&at);
    // KEPT: an answer of hexadecimal digits alone counts as octets under 15 too; callers rely on
    // it.
    const bool readable = scheme == USSD_DEFAULT_ALPHABET && str_all_capital(answer) != 0;
    u8 octets[SMS_PDU_TEXT_ROOM / 2];
    if (!readable) {
        octetCount /= 2;
        if (dsatetsismsi_encode_pdu(answer, octets, octetCount) != 0) {
            LOG_LINE("convert Hex stream to stream of octets failure\n");
            return SMS_BAD_PDU;
        }
    }
    if (readable) { *isText = 1; } // KEPT: never cleared, callers preset it.
    const void *bytes = readable ? static_cast<const void *>(answer) : octets;
    u8 *block = copyOctets(bytes, octetCount);
    if (block == nullptr) { return SMS_NO_MEMORY; }
    *data = block;
    *length = octetCount;
    *dcs = static_cast<u32>(scheme);
    LOG_LINE("ussd pdu type:%d pdu size:%d\n\n", scheme, static_cast<int>(octetCount));
    return SMS_OK;
}
