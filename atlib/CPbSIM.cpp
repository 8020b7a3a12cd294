// The phonebook: entries as records, as AT text and as contacts (TS 27.007, 8.11 to 8.14).
#include "CPbSIM.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "../comm/log_line.h"
#include "SmsUtils.h"
#include "USBModem.h"
#include "at_cursor.h"
#include "octets.h"

static const char LOG_SOURCE[] = "atlib/CPbSIM.cpp";

static const u32 COMMAND_WAIT = 3000; // milliseconds
static const u32 STORAGE_QUERY_WAIT = 5000;
static const u32 BATCH_WAIT = 50000;

static const i32 INDEX_LIMIT = 501;  // the first that is refused
static const i32 NUMBER_LENGTH = 20; // what the decoder copies whole
static const i32 BATCH_ENTRIES_MAX = 40;
static const u32 BATCH_TEXT_LIMIT = 501; // characters that end a batch
static const u32 BATCH_TEXT_MIN = 6;     // characters of a batch that deletes something

enum {
    COMMAND_ROOM = 128,
    WRITE_COMMAND_ROOM = 320, // the longest entry
    BATCH_ROOM = 1024,
    LINE_ROOM = 1025, // a reply's longest line
    TYPE_DIGITS = 3,
    NAME_UNITS = PB_NAME_OCTETS / 2,
    NAME_DIGITS = PB_NAME_OCTETS * 2
};

// Asking and judging.

static char *askModem(const char *command, u32 wait_ms) {
    return writeComm(command, wait_ms, 3, "OK", "ERROR", "+CME");
}

static bool acknowledged(const char *reply) { return strstr(reply, "OK") != nullptr; }

// Runs a command of which only its "OK" matters; `refused` is the status without one.
static u32 runCommand(const char *command, u32 wait_ms, u32 refused) {
    char *reply = askModem(command, wait_ms);
    if (reply == nullptr) { return PB_NO_REPLY; }
    const u32 status = acknowledged(reply) ? PB_OK : refused;
    free(reply);
    return status;
}

// Hexadecimal.

char *byteToHex(u8 byte, char *out) {
    static const char DIGITS[] = "0123456789ABCDEF";
    out[0] = DIGITS[byte >> 4];
    out[1] = DIGITS[byte & 0x0F];
    out[2] = '\0';
    return out;
}

u8 hexToDec(char c) {
    if (c >= '0' && c <= '9') { return static_cast<u8>(c - '0'); }
    if (c >= 'A' && c <= 'F') { return static_cast<u8>(c - 'A' + 10); }
    return c >= 'a' && c <= 'f' ? static_cast<u8>(c - 'a' + 10) : u8{0};
}

i32 Ucs2StringToHexString(const u8 *ucs2, char *out, i32 max_bytes, i32 swap) {
    i32 units = 0;
    out[0] = '\0';
    for (i32 i = 0; i + 1 < max_bytes && (ucs2[i] != 0 || ucs2[i + 1] != 0); i += 2) {
        byteToHex(swap != 0 ? ucs2[i + 1] : ucs2[i], out);
        byteToHex(swap != 0 ? ucs2[i] : ucs2[i + 1], out + 2);
        out += 4;
        units++;
    }
    return units;
}

// The next digit; 0 at the end of the text, where the cursor stays.
static u32 takeHexDigit(AtCursor *at) {
    const u32 digit = hexToDec(*at->at);
    if (*at->at != '\0') { at->at++; }
    return digit;
}

static u8 takeHexOctet(AtCursor *at) {
    const u32 high = takeHexDigit(at);
    return low8(high << 4 | takeHexDigit(at));
}

i32 HexStrToDec(const char *hex, u8 *out, i32 swap) {
    AtCursor at = {hex};
    i32 octetCount = 0;
    for (; *at.at != '\0'; octetCount += 2) {
        const u8 first = takeHexOctet(&at);
        const u8 second = takeHexOctet(&at);
        out[octetCount] = swap != 0 ? second : first;
        out[octetCount + 1] = swap != 0 ? first : second;
    }
    return octetCount;
}

// Storage: TS 27.007, 8.11.

u32 SM_InitList(sm_item_t *items, u32 count) {
    for (u32 i = 0; i < count; i++) { memset(&items[i], 0, sizeof(items[i])); }
    return PB_OK;
}

u32 SM_SetStorage(u32 storage) {
    if (storage != PB_STORAGE_SM && storage != PB_STORAGE_ME) { return PB_INVALID; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPBS=\"%s\"\r", storage == PB_STORAGE_SM ? "SM" : "ME");
    return runCommand(command, COMMAND_WAIT, PB_STORAGE_REFUSED);
}

// <key> ...,<first>,<second>
static bool readNumbers(const char *reply, const char *key, i32 *first, i32 *second) {
    AtCursor at = {reply};
    return skipPast(&at, key) && skipPast(&at, ",") && takeInt(&at, first) && skipPast(&at, ",") &&
           takeInt(&at, second);
}

static u32 askNumbers(const char *command, u32 wait_ms, const char *key, i32 *first, i32 *second) {
    char *reply = askModem(command, wait_ms);
    if (reply == nullptr) { return PB_NO_REPLY; }
    const u32 status = readNumbers(reply, key, first, second) ? PB_OK : PB_UNREADABLE;
    free(reply);
    return status;
}

// +CPBS: <storage>,<used>,<total>
u32 SM_GetStorageInfo(sm_storage_info_t *info, u32 storage) {
    const u32 status = SM_SetStorage(storage);
    if (status != PB_OK) { return status; }
    return askNumbers("AT+CPBS?\r", STORAGE_QUERY_WAIT, "+CPBS:", &info->used, &info->total);
}

// +CPBR: (<range>),<number length>,<name length>
u32 SM_GetRecordInfo(sm_record_info_t *info, u32 storage) {
    u32 status = SM_SetStorage(storage);
    if (status != PB_OK) { return status; }
    status =
        askNumbers("AT+CPBR=?\r", COMMAND_WAIT, "+CPBR:", &info->number_length, &info->name_length);
    // KEPT: 20 whatever the modem says, the decoder's limit; callers rely on it.
    if (status == PB_OK) { info->number_length = i32{NUMBER_LENGTH}; }
    return status;
}

u32 SM_SetCodeDec(const char *charset) {
    char command[COMMAND_ROOM];
    const int length = snprintf(command, sizeof(command), "AT+CSCS=\"%s\"\r", charset);
    if (length < 0 || length >= COMMAND_ROOM) { return PB_NOT_FOUND; }
    char *reply = writeComm(command, COMMAND_WAIT, 2, "OK", "ERROR");
    if (reply == nullptr) { return PB_NO_REPLY; }
    const u32 status = acknowledged(reply) ? PB_OK : PB_NOT_FOUND;
    free(reply);
    return status;
}

// Entries: TS 27.007, 8.12.

i32 DecodeName(const u8 *bytes, i32 count, u8 *name, i32 *length) {
    if (bytes == nullptr || count <= 0) { return -1; }
    memcpy(name, bytes, static_cast<size_t>(count));
    *length = count;
    return 0;
}

// Moves on by `count` characters. False: the line ends before.
static bool skipCount(AtCursor *at, size_t count) {
    if (strnlen(at->at, count) < count) { return false; }
    at->at += count;
    return true;
}

// KEPT: the columns before the number are counted from the index's value; callers rely on it.
static size_t numberColumn(i32 index) {
    if (index < 10) { return 3; }
    return index < 100 ? 4 : 5;
}

static bool takeNumber(AtCursor *at, char *number) {
    const char *end = strchr(at->at, '"');
    if (end == nullptr) { return false; }
    const size_t length = static_cast<size_t>(end - at->at);
    // KEPT: an overlong number fills the field with what follows it in the line; callers rely on
    // it.
    const size_t copied = length > NUMBER_LENGTH ? size_t{PB_NUMBER_ROOM} : length;
    memcpy(number, at->at, strnlen(at->at, copied));
    at->at = end;
    return true;
}

// The type of address and its flag. Its working copy comes from the heap: 30 when there is none.
static u32 takeType(AtCursor *at, i32 *international) {
    if (!skipCount(at, strlen("\",")) || strnlen(at->at, TYPE_DIGITS) < TYPE_DIGITS) {
        return PB_UNREADABLE;
    }
    char *type = static_cast<char *>(malloc(TYPE_DIGITS + 1));
    if (type == nullptr) { return PB_STORAGE_REFUSED; }
    memcpy(type, at->at, TYPE_DIGITS);
    type[TYPE_DIGITS] = '\0';
    if (strcmp(type, "145") == 0) { *international = 1; }
    free(type);
    return skipCount(at, TYPE_DIGITS + strlen(",\"")) ? PB_OK : PB_UNREADABLE;
}

// The name's hexadecimal text up to its quote, cut to what the field holds.
static char *copyNameDigits(const AtCursor *at, const char *end) {
    const size_t length = static_cast<size_t>(end - at->at);
    const size_t kept = length < NAME_DIGITS ? length : static_cast<size_t>(NAME_DIGITS);
    char *digits = static_cast<char *>(calloc(1, kept + 4));
    if (digits != nullptr) { memcpy(digits, at->at, kept); }
    return digits;
}

u32 SM_DecodeItem(const char *line, sm_item_t *item) {
    memset(item, 0, sizeof(*item));
    AtCursor index = {line};
    if (!takeInt(&index, &item->index)) { return PB_UNREADABLE; }
    AtCursor at = {line};
    if (!skipCount(&at, numberColumn(item->index)) || !takeNumber(&at, item->number)) {
        return PB_UNREADABLE;
    }
    const u32 status = takeType(&at, &item->international);
    if (status != PB_OK) { return status; }
    const char *end = strchr(at.at, '"');
    if (end == nullptr) { return PB_UNREADABLE; }
    if (end == at.at) { return PB_OK; }
    char *digits = copyNameDigits(&at, end);
    if (digits == nullptr) { return PB_STORAGE_REFUSED; }
    u8 name[PB_NAME_OCTETS];
    const i32 octetCount = HexStrToDec(digits, name, 0);
    LOG_LINE("contact name len:%d hex len:%d\n\n", static_cast<int>(strlen(digits)), octetCount);
    free(digits);
    i32 length = 0;
    // KEPT: the name is looked at though it is never refused here; the interface promises it.
    return DecodeName(name, octetCount, item->name, &length) < 0 ? PB_INVALID : PB_OK;
}

u32 SM_WriteItem(i32 index, const sm_item_t *item, i32 *index_out) {
    char digits[NAME_DIGITS + 1];
    Ucs2StringToHexString(item->name, digits, PB_NAME_OCTETS, 0);
    const bool international = item->international == 1 || item->number[0] == '+';
    char command[WRITE_COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPBW=%d,\"%.*s\",%s,\"%s\"\r", index, PB_NUMBER_ROOM,
             item->number, international ? "145" : "129", digits);
    const u32 status = runCommand(command, COMMAND_WAIT, PB_REFUSED);
    if (status == PB_OK) { *index_out = index; }
    return status;
}

// KEPT: each line is told on standard output, not in the log; callers rely on it.
static u32 readLine(const char *line, sm_item_t *item) {
    puts("come here!");
    sm_item_t decoded;
    const u32 status = SM_DecodeItem(line, &decoded);
    printf("nErr = %d\n", static_cast<int>(status));
    if (status == PB_OK) {
        puts("PB_SUCCESS!");
        *item = decoded;
    }
    return status;
}

// +CPBR: <line>\r\n, any number of them
static u32 readLines(const char *reply, sm_item_t *item) {
    u32 status = PB_NOT_FOUND;
    AtCursor at = {reply};
    while (skipPast(&at, "+CPBR:")) {
        if (!skipCount(&at, 1) || *at.at == '\0') { break; } // its blank, and something behind
        char line[LINE_ROOM];
        if (!takeUntil(&at, "\r\n", line, sizeof(line))) { return PB_UNREADABLE; }
        status = readLine(line, item);
    }
    return status;
}

u32 SM_ReadItem(i32 index, sm_item_t *item) {
    // KEPT: a negative index is sent as it is; callers rely on it.
    if (index == 0 || index >= INDEX_LIMIT) { return PB_INDEX_RANGE; }
    memset(item, 0, sizeof(*item));
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPBR=%d\r", index);
    char *reply = askModem(command, COMMAND_WAIT);
    if (reply == nullptr) { return PB_NO_REPLY; }
    const u32 status = acknowledged(reply) ? readLines(reply, item) : PB_REFUSED;
    free(reply);
    return status;
}

u32 SM_DeleteItem(i32 index) {
    if (index == 0) { return PB_UNREADABLE; }
    char command[COMMAND_ROOM];
    snprintf(command, sizeof(command), "AT+CPBW=%d\r", index);
    return runCommand(command, COMMAND_WAIT, PB_REFUSED);
}

// Deletions that travel in one command.
struct Batch {
    char text[BATCH_ROOM];
    u32 length;
    i32 entries;
};

static void startBatch(Batch *batch) {
    snprintf(batch->text, sizeof(batch->text), "AT");
    batch->length = 2;
    batch->entries = 0;
}

// KEPT: a ";" behind the last deletion too; modems rely on it.
static void addToBatch(Batch *batch, i32 index) {
    const int length = snprintf(batch->text + batch->length, sizeof(batch->text) - batch->length,
                                "+CPBW=%d;", index);
    batch->length += static_cast<u32>(length);
    batch->entries++;
}

static u32 sendBatch(Batch *batch) {
    snprintf(batch->text + batch->length, sizeof(batch->text) - batch->length, "\r");
    return runCommand(batch->text, BATCH_WAIT, PB_REFUSED);
}

u32 SM_DeleteMultiItems(const i32 *indexes, i32 count) {
    Batch batch = {};
    startBatch(&batch);
    for (i32 i = 0; i < count; i++) {
        if (indexes[i] == 0) { return PB_UNREADABLE; }
        addToBatch(&batch, indexes[i]);
        if (batch.length < BATCH_TEXT_LIMIT && batch.entries < BATCH_ENTRIES_MAX) { continue; }
        const u32 status = sendBatch(&batch);
        if (status != PB_OK) { return status; }
        startBatch(&batch);
    }
    return batch.length >= BATCH_TEXT_MIN ? sendBatch(&batch) : PB_OK;
}

u32 writePBSim(i32 index, const sm_item_t *item, i32 *index_out) {
    return SM_WriteItem(index, item, index_out);
}

u32 newPBSim(const sm_item_t *item, i32 *index_out) {
    return writePBSim(item->index, item, index_out);
}

u32 editPBSim(i32 index, const sm_item_t *item) {
    i32 written = 0;
    return writePBSim(index, item, &written);
}

u32 readPBSim(i32 index, sm_item_t *item) { return SM_ReadItem(index, item); }

u32 deletePBSim(i32 index) { return SM_DeleteItem(index); }

// Contacts.

static sm_item_t itemOf(const pb_info_t *contact) {
    sm_item_t item = {};
    item.index = contact->index;
    memcpy(item.number, contact->number, strnlen(contact->number, PB_NUMBER_ROOM - 1));
    const u32 octetCount = static_cast<u32>(strnlen(contact->name, PB_CONTACT_ROOM));
    const u16 *units = UTF2Uni(reinterpret_cast<const u8 *>(contact->name), octetCount);
    const u32 unitCount = mywcslen(units);
    sms_ToUnicodeNetwork(units, unitCount < NAME_UNITS ? unitCount : u32{NAME_UNITS}, item.name);
    return item;
}

u32 add_new_contact(const pb_info_t *contact) {
    LOG_LINE("pb_info_t->name: [%.*s], len :%d\n\n", PB_CONTACT_ROOM, contact->name,
             PB_CONTACT_ROOM);
    const sm_item_t item = itemOf(contact);
    i32 written = 0;
    return newPBSim(&item, &written);
}

u32 edit_sim_contact(const pb_info_t *contact) {
    LOG_LINE("pb_info_t->name: [%.*s], len :%d\n\n", PB_CONTACT_ROOM, contact->name,
             PB_CONTACT_ROOM);
    const sm_item_t item = itemOf(contact);
    return editPBSim(contact->index, &item);
}

// The units of a name, high octet first. Returns their count.
static u32 unitsOf(const u8 *name, u16 *units) {
    u32 count = 0;
    for (; count < NAME_UNITS; count++) {
        units[count] = static_cast<u16>(name[2 * count] << 8 | name[2 * count + 1]);
        if (units[count] == 0) { break; }
    }
    return count;
}

i32 read_contact(pb_info_t *contact, i32 index) {
    memset(contact, 0, sizeof(*contact));
    sm_item_t item = {};
    const u32 status = readPBSim(index, &item);
    contact->index = item.index;
    if (status != PB_OK) {
        LOG_LINE("read NO: %d contact failure error:%d\n\n", index, static_cast<int>(status));
        return static_cast<i32>(status);
    }
    u16 units[NAME_UNITS];
    const u32 unitCount = unitsOf(item.name, units);
    const i32 converted = UnicodeToUTF8(units, unitCount, reinterpret_cast<u8 *>(contact->name),
                                        sizeof(contact->name));
    if (converted < 0) {
        LOG_LINE("error, errno:%d\n\n", converted);
        return -1;
    }
    memcpy(contact->number, item.number, sizeof(item.number));
    return PB_OK;
}
