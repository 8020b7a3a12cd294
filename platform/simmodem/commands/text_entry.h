// A message entered in text mode (TS 27.005, 3.1, <data>, and 3.3.3, +CSMP) as a TPDU.
#pragma once

#include "platform/simmodem/modem/modem.h"

#include <optional>
#include <string_view>

namespace smspb::simmodem {

// The SUBMIT to `destination` with what +CSMP chose. `text` is in the terminal's character set, or
// hexadecimal where +CSMP asks for another alphabet or a header. Nothing for a text that the
// character set or the GSM alphabet lacks, that is longer than a message, or no whole header.
std::optional<Octets> submitFromText(const Settings &settings, OctetView destination,
                                     std::string_view text);

// The DELIVER of the same, from `originator` and at the time of +CSMP's absolute validity, `now`
// without one.
std::optional<Octets> deliverFromText(const Settings &settings, OctetView originator,
                                      std::string_view text, const NetworkTime &now);

// <vp> as +CSMP shows it.
std::string validityText(const TextParameters &parameters);

// <vp> of `text` in the format that `first` says; nothing for one of another. `isString` tells
// which of the two kinds of value it is.
std::optional<Octets> validityFrom(std::uint8_t first, std::string_view text, bool isString);

// The validity of `now` when `first` comes to stand instead of its first octet: that of an octet,
// or the usual one instead of a longer one. A longer one must be given anew: nothing.
std::optional<Octets> keptValidity(const TextParameters &now, std::uint8_t first);

} // namespace smspb::simmodem
