// Lets the decoder of received PDUs refuse one, which it never does by itself: what its callers
// would do then is asked of them all the same (--wrap).
#ifndef SMSPB_TESTS_FAILING_DECODE_H
#define SMSPB_TESTS_FAILING_DECODE_H

#include "comm/smspb_types.h"

namespace support {

// The next call of sms_decode_pdu gives `result` and decodes nothing.
void failDecode(i32 result);

} // namespace support

#endif
