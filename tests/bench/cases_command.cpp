// One AT command with the platform in the same process: what the library itself adds to it.
#include <cstdlib>
#include <cstring>

#include "atlib/USBModem.h"
#include "case.h"

namespace bench {
namespace {

char *reply;

const Register CASES([] {
    add(
        "writeComm/ours",
        [] {
            std::free(reply);
            reply = writeComm("AT+CSCS?\r", 3000, 4, "OK", "ERROR", "+CMS ERROR:", "+CME ERROR:");
        },
        [] {
            return reply != nullptr && std::strcmp(reply, "\r\nOK\r\n") == 0 ? nullptr
                                                                             : "another reply";
        },
        2);
});

} // namespace
} // namespace bench
