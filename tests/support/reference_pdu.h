// SUBMIT texts put together slowly and obviously, for texts too long to write down.
#ifndef SMSPB_TESTS_REFERENCE_PDU_H
#define SMSPB_TESTS_REFERENCE_PDU_H

#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace support::reference {

struct Segment {
    std::string pdu;
    u32 length; // octets of the TPDU
};

// The segments of a text to +4912345, without service centre, validity or report.
// `messageReference` is that of the concatenation, when there is one.
std::vector<Segment> submits(std::u16string_view text, bool ucs2, u8 messageReference);

// The text as the library reads it back: a septet 0 of a GSM text comes out as 0x40 but where it
// fills the top of an octet.
std::u16string readBack(std::u16string_view text);

} // namespace support::reference

#endif
