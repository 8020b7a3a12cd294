/* A C program that links the shared library, as the router's processes do: the public headers are
 * C, the names have C linkage, and the log goes to its fixed file. It brings its own platform, on
 * which nothing can be sent. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "atlib/CSMS.h"
#include "atlib/SmsEncoding.h"
#include "atlib/SmsUtils.h"
#include "atlib/USBModem.h"
#include "comm/platform_ipc.h"
#include "comm/zeldcard_common.h"

void *ipc_memory_assign(u32 size, u32 type) {
    u32 *block = calloc(1, 16 + (size_t)size);
    if (block != NULL) { block[0] = type == 3 ? 3 : 0; }
    return block;
}
u32 mem_free_ex(u32 thread_id, u32 line, u32 zero, void *block) {
    (void)thread_id, (void)line, (void)zero;
    free(block);
    return 0;
}
u32 ipc_gen_seesion_id(void *block) { return (void)block, 0; }
u32 ipc_get_addr_by_id(u32 dest_id, u32 zero, void *address) {
    (void)dest_id, (void)zero, (void)address;
    return 0;
}
u32 ipc_msg_notify(void *block, u32 len) { return (void)block, (void)len, 0; }
u32 ipc_msg_send_asy(const void *address, void *block, u32 len) {
    return (void)address, (void)block, (void)len, 0;
}
u32 ipc_msg_send_syn(const void *address, void *request, u32 len, u32 timeout_ms, void *response,
                     u32 *response_len) {
    (void)address, (void)request, (void)len, (void)timeout_ms, (void)response, (void)response_len;
    return 1;
}
u32 ipc_mq_send(u32 mq, void *block, u32 zero1, u32 zero2) {
    (void)mq, (void)zero1, (void)zero2;
    free(block);
    return 0;
}

static int failures = 0;

static void expect(int holds, const char *what) {
    if (holds) { return; }
    fprintf(stderr, "not so: %s\n", what);
    failures++;
}

/* Whether a log file holds the text. */
static int logHolds(const char *path, const char *text) {
    FILE *file = fopen(path, "r");
    char line[2048];
    int found = 0;
    if (file == NULL) { return 0; }
    while (!found && fgets(line, sizeof(line), file) != NULL) {
        found = strstr(line, text) != NULL;
    }
    fclose(file);
    return found;
}

static void ask(void) {
    char command[64], line[128];
    snprintf(command, sizeof(command), "AT+HEADERS=%ld\r", (long)getpid());
    expect(writeComm(command, 3000, 2, "OK", "ERROR") == NULL, "a silent platform gives no reply");
    snprintf(line, sizeof(line), "]send at comand:AT+HEADERS=%ld\r", (long)getpid());
    expect(logHolds("/tmp/smspblog.1", line) || logHolds("/tmp/smspblog.2", line),
           "the log is /tmp/smspblog.1");
    expect(usbmodem_log("headers_c11 %ld\n", (long)getpid()) == 0, "usbmodem_log writes");
    snprintf(line, sizeof(line), "headers_c11 %ld\n", (long)getpid());
    expect(logHolds("/tmp/usbmodem_log", line), "its log is /tmp/usbmodem_log");
}

static void encode(void) {
    SmsSubmit submit;
    SmsRawTpdu raw;
    memset(&submit, 0, sizeof(submit));
    submit.dcs.msg_class = MSG_CLASS_NONE;
    expect(wms_ts_encode_submit(&submit, &raw) == TS_OK, "an empty SUBMIT encodes");
    expect(raw.tpdu_type == TPDU_SUBMIT && raw.len == 7, "it is of 7 octets");
}

int main(void) {
    u16 text[] = {'S', 'M', 'S', 0};
    expect(sms_wstrlen(text) == 3, "a UCS-2 string is measured");
    expect(zeldcard_vote_sleep() == 0, "the vote is 0");
    expect(zeldcard_send_notify(1, "x", 1) == IPC_OK, "a notification goes out");
    expect(g_wszCsca[0] == 0 && g_blInitCsca == 0, "the address cache is empty");
    encode();
    ask();
    return failures != 0;
}
