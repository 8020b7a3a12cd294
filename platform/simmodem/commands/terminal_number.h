// Numbers as AT commands carry them: a string in the terminal's character set, and its type of
// address (TS 27.005, 3.1, <da>, <toda> and their like).
#pragma once

#include "platform/simmodem/line/command.h"
#include "platform/simmodem/modem/modem.h"

#include <optional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

enum : unsigned { TYPE_OF_NATIONAL = 129, TYPE_OF_INTERNATIONAL = 145 };

// A text in quotes, in the terminal's character set.
std::string quotedText(const Settings &settings, std::u16string_view text);

// "+15550001000",145 of a number; "",129 without one.
std::string quotedNumber(const Settings &settings, std::string_view number);

// The number in argument `index`, with the type of address behind it when that is given: "+" stands
// before it when it is international. Nothing for what is none.
std::optional<std::string> dialledNumber(const Modem &modem, const Command &command,
                                         std::size_t index);

// The same as TP-DA or TP-OA, its type of address as it was given.
std::optional<Octets> dialledAddress(const Modem &modem, const Command &command, std::size_t index);

} // namespace smspb::simmodem
