// Strings in the terminal's character set (+CSCS, TS 27.007, 5.5), and the GSM alphabet (TS 23.038,
// 6.2). Inside the modem a text is UCS-2.
#pragma once

#include "tpdu.h"

#include <optional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

// What `text` means in `charset` ("IRA", "GSM", "UCS2"): ASCII, an octet a septet, or four
// hexadecimal digits a unit. Nothing for what the set does not have.
std::optional<std::u16string> fromTerminal(std::string_view charset, std::string_view text);

// The same back; "?" stands for what the set does not have, and for a double quote.
std::string toTerminal(std::string_view charset, std::u16string_view text);

// One octet a septet, the extension table behind the escape. Nothing for a text with a character
// that neither has.
std::optional<Octets> toSeptets(std::u16string_view text);

// Septets packed into octets (TS 23.038, 6.1.2.1), `fillBits` before the first; unused bits are 0.
Octets packSeptets(OctetView septets, unsigned fillBits = 0);

std::optional<std::u16string> fromUtf8(std::string_view text);

// High octet first.
Octets toUcs2Octets(std::u16string_view text);

std::string toHex(OctetView octets);

} // namespace smspb::simmodem
