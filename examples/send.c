/* Sends a text: send NUMBER TEXT */
#include <stdio.h>
#include <string.h>

#include "atlib/CSMS.h"

int main(int argc, char **argv) {
    u16 number[21] = {0}, text[1024] = {0};
    u8 segments = 0;
    if (argc != 3 || strlen(argv[1]) > 20) { return fputs("send NUMBER TEXT\n", stderr), 2; }
    sms_strtowstr(argv[1], number);
    UTF8ToUnicode((const u8 *)argv[2], (u32)strlen(argv[2]), text, 1024);
    const u32 status = SendSMS(number, text, 0, &segments);
    printf("status %u, %u segments\n", (unsigned)status, (unsigned)segments);
    return status == SMS_OK ? 0 : 1;
}
