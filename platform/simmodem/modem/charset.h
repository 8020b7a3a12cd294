// Strings in the terminal's character set (+CSCS, TS 27.007, 5.5), and the GSM alphabet (TS 23.038,
// 6.2). Inside the modem a text is UCS-2.
#pragma once

#include "platform/simmodem/network/tpdu.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

// The sets by the names that +CSCS has for them: an octet a septet ("GSM"), two hexadecimal digits
// a septet ("HEX"), four a unit ("UCS2"); "IRA" is ASCII, the others are what they are called.
inline constexpr std::array<std::string_view, 6> CHARSETS = {"IRA", "GSM",    "UCS2",
                                                             "HEX", "8859-1", "PCCP437"};

// What `text` means in `charset`. Nothing for what the set does not have.
std::optional<std::u16string> fromTerminal(std::string_view charset, std::string_view text);

// The same back; "?" stands for what the set does not have.
std::string toTerminal(std::string_view charset, std::u16string_view text);

// Units of as many hexadecimal digits each as `width` says.
std::optional<std::u16string> fromHexUnits(std::string_view text, std::size_t width);

// One octet a septet, the extension table behind the escape. Nothing for a text with a character
// that neither has.
std::optional<Octets> toSeptets(std::u16string_view text);

// Septets packed into octets (TS 23.038, 6.1.2.1), `fillBits` before the first; unused bits are 0.
Octets packSeptets(OctetView septets, unsigned fillBits = 0);

// The characters of septets. An escape and what the extension table lacks behind it read as the
// alphabet has the latter (TS 23.038, 6.2.1.1); an escape at the end, or two, as a blank.
std::u16string fromSeptets(OctetView septets);

// The first `count` septets of packed octets, or as many as they hold.
Octets unpackSeptets(OctetView octets, std::size_t count);

std::optional<std::u16string> fromUtf8(std::string_view text);

// High octet first.
Octets toUcs2Octets(std::u16string_view text);

std::string toHex(OctetView octets);

} // namespace smspb::simmodem
