// A text as the network sends it: one user data, or the parts of a concatenated message (TS 23.040,
// 9.2.3.24.1).
#pragma once

#include "platform/simmodem/network/tpdu.h"

#include <optional>
#include <string>
#include <vector>

namespace smspb::simmodem {

enum class Coding { automatic, gsm, ucs2 };

// What the parts have in common but TP-OA and TP-SCTS, one for each. `reference` joins them.
// Nothing when the GSM alphabet is asked for and does not have the text; more than 255 parts are
// nothing as well.
std::optional<std::vector<Submit>> messageParts(std::u16string_view text, Coding coding,
                                                std::optional<int> messageClass,
                                                std::uint8_t reference);

// Septets in pieces of at most `size`, of which an escape and what stands behind it share one; and
// units, high octet first, of which a surrogate pair does. All in one piece when they are no more
// than `alone`.
std::vector<Octets> cutSeptets(const Octets &septets, std::size_t alone, std::size_t size);
std::vector<Octets> cutUnits(const Octets &octets, std::size_t alone, std::size_t size);

} // namespace smspb::simmodem
