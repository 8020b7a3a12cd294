#include "failing_decode.h"

#include <utility>

#include "atlib/SmsUtils.h"

namespace {
i32 g_result = 0;
}

void support::failDecode(i32 result) { g_result = result; }

extern "C" {
i32 __real_sms_decode_pdu(const char *pdu, SmsMessage *message);
i32 __wrap_sms_decode_pdu(const char *pdu, SmsMessage *message);

i32 __wrap_sms_decode_pdu(const char *pdu, SmsMessage *message) {
    const i32 result = std::exchange(g_result, 0);
    return result != 0 ? result : __real_sms_decode_pdu(pdu, message);
}
}
