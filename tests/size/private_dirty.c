/*
 * Prints the private dirty memory of its own process, in KiB. Built twice: with WITH_LIBRARY it is
 * linked with the library and has used it once. Both bring the platform's functions.
 */
#include <stdio.h>
#include <stdlib.h>

#include "atlib/CSMS.h"
#include "comm/platform_ipc.h"

void *ipc_memory_assign(u32 size, u32 type) {
    (void)type;
    return malloc(size + 16);
}
u32 mem_free_ex(u32 thread_id, u32 line, u32 zero, void *block) {
    (void)thread_id, (void)line, (void)zero;
    free(block);
    return 0;
}
u32 ipc_gen_seesion_id(void *block) { return block == NULL; }
u32 ipc_get_addr_by_id(u32 dest_id, u32 zero, void *address) {
    (void)dest_id, (void)zero;
    return address == NULL;
}
u32 ipc_msg_notify(void *block, u32 len) {
    (void)len;
    return block == NULL;
}
u32 ipc_msg_send_asy(const void *address, void *block, u32 len) {
    (void)address, (void)len;
    return block == NULL;
}
u32 ipc_msg_send_syn(const void *address, void *request, u32 len, u32 timeout_ms, void *response,
                     u32 *response_len) {
    (void)address, (void)request, (void)len, (void)timeout_ms, (void)response;
    *response_len = 0;
    return 1;
}
u32 ipc_mq_send(u32 mq, void *block, u32 zero1, u32 zero2) {
    (void)mq, (void)zero1, (void)zero2;
    free(block);
    return 0;
}

int main(void) {
#ifdef WITH_LIBRARY
    if (sms_IsUnicode('a') != 0 || InitSMS() == SMS_OK) { return 1; }
#endif
    char line[256];
    unsigned long kib = 0;
    FILE *rollup = fopen("/proc/self/smaps_rollup", "r");
    if (rollup == NULL) { return 1; }
    while (fgets(line, sizeof(line), rollup) != NULL) {
        if (sscanf(line, "Private_Dirty: %lu kB", &kib) == 1) { printf("%lu\n", kib); }
    }
    fclose(rollup);
    return 0;
}
