// The AT command channel: a request record out, the reply's text back. No state; the modem manager
// serialises the commands.
#include "USBModem.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "../comm/log_line.h"
#include "../comm/zeldcard_common.h"
#include "at_cursor.h"

static const char LOG_SOURCE[] = "atlib/USBModem.cpp";
static const char AUXILIARY_LOG[] = "/tmp/usbmodem_log";

static const u32 MODEM_MANAGER = 1; // IPC destination
static const u32 AT_REQUEST = 0x1040008f;
static const u32 SEND_REQUEST = 0x104000af;
static const u32 STORE_REQUEST = 0x104000b1;
static const u32 AT_IPC_WAIT = 20000; // milliseconds, whatever the command's own wait

enum {
    RECORD_SIZE = 1025, // octets of a request or response record
    REPLY_TEXT_MAX = 1024,

    // AT request: length, reserved, wait, marker count, marker slots, text.
    AT_WAIT = 8,
    AT_MARKER_COUNT = 12,
    AT_MARKERS = 16,
    AT_MARKER_SIZE = 16,
    AT_MARKERS_MAX = 5,
    AT_TEXT = 96,

    SEND_TEXT = 4, // send request: length, text

    STORE_PARAM = 4, // store request: length, parameter, text
    STORE_TEXT = 8,

    // Response: result, transfer flag, inline length, reply or path.
    RESPONSE_TRANSFER = 4,
    RESPONSE_LENGTH = 8,
    RESPONSE_TEXT = 12
};

struct Request {
    u8 record[RECORD_SIZE];
    u32 length; // octets to send; 0 when the text does not fit
};

struct Response {
    u8 record[RECORD_SIZE + 1]; // one more, so that a path always ends
    u32 length;
};

static void putWord(u8 *record, u32 offset, u32 value) {
    memcpy(record + offset, &value, sizeof(value));
}

static u32 wordAt(const u8 *record, u32 offset) {
    u32 value = 0;
    memcpy(&value, record + offset, sizeof(value));
    return value;
}

// Puts the text, its zero and its length into a cleared record.
static void putText(Request *request, u32 offset, const char *text) {
    if (text == nullptr) { return; }
    const size_t length = strlen(text);
    if (offset + length + 1 > RECORD_SIZE) { return; }
    putWord(request->record, 0, static_cast<u32>(length));
    memcpy(request->record + offset, text, length + 1);
    request->length = offset + static_cast<u32>(length) + 1;
}

// Sends the record and waits for the response; a record that did not fit is a failed send.
static u32 exchange(u32 msg_id, const Request *request, u32 wait_ms, Response *response) {
    memset(response, 0, sizeof(*response));
    if (request->length == 0) { return IPC_SEND_FAILED; }
    u32 length = RECORD_SIZE;
    const u32 status =
        zeldcard_send_request_sync(MODEM_MANAGER, msg_id, request->record, request->length,
                                   response->record, &length, wait_ms);
    response->length = length < RECORD_SIZE ? length : static_cast<u32>(RECORD_SIZE);
    return status;
}

static u32 resultWord(const Response *response) { return wordAt(response->record, 0); }

static bool readTransferFile(const char *path, char *text) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) { return false; }
    size_t length = 0;
    ssize_t got = 1;
    while (got > 0 && length < REPLY_TEXT_MAX) {
        got = read(file, text + length, REPLY_TEXT_MAX - length);
        if (got > 0) { length += static_cast<size_t>(got); }
    }
    text[length] = '\0';
    close(file);
    return true;
}

// The reply text of a response, inline or from its transfer file. False: the file does not open.
static bool takeReply(const Response *response, char text[REPLY_TEXT_MAX + 1]) {
    const u8 *reply = response->record + RESPONSE_TEXT;
    if (wordAt(response->record, RESPONSE_TRANSFER) == 1) {
        return readTransferFile(reinterpret_cast<const char *>(reply), text);
    }
    const u32 carried = response->length > RESPONSE_TEXT ? response->length - RESPONSE_TEXT : 0;
    const u32 announced = wordAt(response->record, RESPONSE_LENGTH);
    const u32 length = announced < carried ? announced : carried;
    memcpy(text, reply, length);
    text[length] = '\0';
    return true;
}

// Hands the text over as a heap block, null when memory is out. Returns its length.
static u32 handOver(const char *text, char **reply_out) {
    const size_t length = strlen(text);
    char *block = static_cast<char *>(malloc(length + 1));
    if (block != nullptr) { memcpy(block, text, length + 1); }
    *reply_out = block;
    return static_cast<u32>(length);
}

int usbmodem_log(const char *format, ...) {
    const int log = openLogFile(AUXILIARY_LOG);
    if (log < 0) { return -1; }
    va_list values;
    va_start(values, format);
    vdprintf(log, format, values);
    va_end(values);
    return close(log);
}

u32 ExecAT(const char *cmd, u32 cmd_len, char **reply_out, u32 wait_ms, int count,
           va_list markers) {
    (void)cmd_len; // the text is measured instead
    Request request = {};
    const u32 sent = count < 0                ? 0u
                     : count < AT_MARKERS_MAX ? static_cast<u32>(count)
                                              : static_cast<u32>(AT_MARKERS_MAX);
    putText(&request, AT_TEXT, cmd);
    putWord(request.record, AT_WAIT, wait_ms);
    putWord(request.record, AT_MARKER_COUNT, sent);
    for (u32 i = 0; i < sent; i++) {
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started the list
        const char *marker = va_arg(markers, const char *);
        if (marker == nullptr) { continue; }
        u8 *slot = request.record + AT_MARKERS + i * AT_MARKER_SIZE;
        memcpy(slot, marker, strnlen(marker, AT_MARKER_SIZE - 1));
    }
    Response response;
    const u32 status = exchange(AT_REQUEST, &request, AT_IPC_WAIT, &response);
    if (status != IPC_OK || resultWord(&response) != 0) {
        LOG_LINE("call WM_MSG_MODEM_AT_REQ failed.\n\n");
        return 0;
    }
    char text[REPLY_TEXT_MAX + 1];
    if (!takeReply(&response, text)) {
        LOG_LINE("open RPC transfor file failed.\n\n");
        return 0;
    }
    return handOver(text, reply_out);
}

u32 ExecAT2(const char *cmd, const char (*markers)[31], u32 count, char **reply_out,
            u32 timeout_ms) {
    (void)markers; // the manager knows how a send ends
    (void)count;
    LOG_LINE("REQUEST data:%s\n\n", cmd != nullptr ? cmd : "");
    Request request = {};
    putText(&request, SEND_TEXT, cmd);
    Response response;
    const u32 status = exchange(SEND_REQUEST, &request, timeout_ms, &response);
    if (status != IPC_OK || resultWord(&response) != 0) {
        LOG_LINE("call WM_MSG_MODEM_AT_REQ failed:%d errcode:%d\n\n", static_cast<int>(status),
                 static_cast<int>(resultWord(&response)));
        return 0;
    }
    char text[REPLY_TEXT_MAX + 1];
    if (!takeReply(&response, text)) {
        LOG_LINE("open RPC transfor file failed.\n\n");
        return 0;
    }
    LOG_LINE("RESPONSE data:%s RESPONSE length:%d\n\n", text, static_cast<int>(strlen(text)));
    return handOver(text, reply_out);
}

u32 ExecAT3(const char *cmd, u32 param, const char (*markers)[31], u32 count, char **reply_out,
            u32 timeout_ms) {
    (void)markers; // the manager knows how a store ends
    (void)count;
    LOG_LINE("REQUEST data:%s\n\n", cmd != nullptr ? cmd : "");
    Request request = {};
    putText(&request, STORE_TEXT, cmd);
    putWord(request.record, STORE_PARAM, param);
    Response response;
    const u32 status = exchange(STORE_REQUEST, &request, timeout_ms, &response);
    LOG_LINE("send REQUEST DATA result:%d %d\n\n", static_cast<int>(status),
             static_cast<int>(resultWord(&response)));
    if (status != IPC_OK || resultWord(&response) != 0) {
        LOG_LINE("call WM_MSG_MODEM_AT_REQ failed.\n\n");
        return 0;
    }
    char text[REPLY_TEXT_MAX + 1];
    if (!takeReply(&response, text)) {
        LOG_LINE("open RPC transfor file failed.\n\n");
        return 0;
    }
    LOG_LINE("RESPONSE data:%s RESPONSE length:%d\n\n", text, static_cast<int>(strlen(text)));
    return handOver(text, reply_out);
}

char *writeComm(const char *cmd, u32 wait_ms, u32 count, ...) {
    LOG_LINE("send at comand:%s\n\n", cmd != nullptr ? cmd : "");
    char *reply = nullptr;
    va_list markers;
    va_start(markers, count);
    ExecAT(cmd, 0, &reply, wait_ms, static_cast<int>(count), markers);
    va_end(markers);
    if (reply == nullptr) {
        LOG_LINE("callback of at command error\n");
        return nullptr;
    }
    LOG_LINE("callback of at command is %s\n", reply);
    return reply;
}

// Unsolicited reports.

enum { REPORT_KEYS = 11, REPORT_CLIP = 6, REPORT_DISC = 8 };

const char *const g_pReportKeyData[REPORT_KEYS] = {
    "+CMTI:",           "+CDSI:",      "DIAL CONNECT REQUEST",
    "Sim card removed", "RING_BACK",   "CONNECT",
    "+CLIP:",           "RING",        "+DISC:",
    "+URCIND:5",        "+VOICEMAIL:",
};

// KEPT: three entries more than there are keys; callers rely on it.
const i32 g_nReportNodeNum[REPORT_KEYS + 3] = {1, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

int checkReportKey(const char *line) {
    if (line == nullptr) { return -1; }
    for (int key = 0; key < REPORT_KEYS; key++) {
        const char *prefix = g_pReportKeyData[key];
        if (strncmp(line, prefix, strlen(prefix)) == 0) { return key; }
    }
    return -1;
}

// "+CLIP: <number>,...": the place of its colon.
static const char *callersColon(const char *text, u32 length) {
    const void *key = memmem(text, length, "+CLIP: ", strlen("+CLIP: "));
    return key != nullptr ? static_cast<const char *>(key) + strlen("+CLIP") : nullptr;
}

// "+DISC: a,b,c,<cause>,...": the cause, 0 without one.
static int disconnectCause(const char *text, u32 length) {
    const char *end = text + length;
    const char *field = text;
    for (u32 comma = 0; comma < 3; comma++) {
        field = static_cast<const char *>(memchr(field, ',', static_cast<size_t>(end - field)));
        if (field == nullptr) { return 0; }
        field++;
    }
    char cause[10] = {0};
    size_t kept = 0;
    for (; field < end && *field != ',' && kept < sizeof(cause) - 1; field++) {
        cause[kept++] = *field;
    }
    return looseInt(cause);
}

void FindReportNode(u32 key, const char *text, u32 length) {
    if (text == nullptr) { return; }
    const u32 held = static_cast<u32>(strnlen(text, length));
    if (key == REPORT_CLIP) { (void)callersColon(text, held); }
    if (key == REPORT_DISC) { (void)disconnectCause(text, held); }
}

void DoReportData(u32 key, const RxDataNode *first) {
    size_t total = 0;
    for (const RxDataNode *node = first; node != nullptr; node = node->next) {
        total += node->length;
    }
    char *text = static_cast<char *>(malloc(total + 1));
    if (text == nullptr) { return; }
    size_t joined = 0;
    for (const RxDataNode *node = first; node != nullptr; node = node->next) {
        if (node->length > 0) { memcpy(text + joined, node->data, node->length); }
        joined += node->length;
    }
    text[joined] = '\0';
    FindReportNode(key, text, static_cast<u32>(joined));
    free(text);
}
