// Where the parts of a PDU text stand: checks what the library's decoder takes on trust, so that a
// wrong PDU gets told what is wrong with it, and finds the user data (3GPP TS 23.040, 9.2.2).
#ifndef SMSPB_TOOLS_PDU_LAYOUT_H
#define SMSPB_TOOLS_PDU_LAYOUT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace smspb::cli {

// TP-PI: what a report has of the optional fields (9.2.3.27).
inline constexpr u8 PI_PID = 0x01, PI_DCS = 0x02, PI_UDL = 0x04;

// TP-UD.
struct UserDataLayout {
    bool isPresent = false;
    std::size_t start = 0; // in the TPDU, behind TP-UDL
    u8 length = 0;         // TP-UDL: septets or octets
    bool isSeptets = false;
};

struct PduLayout {
    std::string text;     // hexadecimal, without blanks
    std::vector<u8> tpdu; // without the service-centre part
    UserDataLayout userData;
    std::size_t surplus = 0; // octets behind the message
};

// Throws a Failure that says what is wrong and where.
PduLayout layOutPdu(std::string_view text);

// The septet of a 7-bit TP-UD that stands at `index`, as the octets have it.
u8 septetAt(const PduLayout &pdu, std::size_t index);

// An information element of the user-data header as it stands there (9.2.3.24).
struct HeaderElement {
    u8 id;
    std::vector<u8> data;
};
std::vector<HeaderElement> headerElements(const PduLayout &pdu);

} // namespace smspb::cli

#endif
