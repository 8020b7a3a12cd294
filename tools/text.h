// Texts between the terminal (UTF-8), the library (16-bit units) and the eye: conversion, display
// width, and making received text harmless. Pure: no state, no input or output.
//
// A character outside the basic plane is a pair of surrogate units, so that it survives the way
// through UCS-2 messages; half a pair becomes U+FFFD on the way back.
#ifndef SMSPB_TOOLS_TEXT_H
#define SMSPB_TOOLS_TEXT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::cli {

// The septet that leads to the extension table (TS 23.038, 6.2.1).
constexpr unsigned char GSM_ESCAPE = 0x1B;

// Where the first octet stands that is not part of well-formed UTF-8 (no overlong forms, no
// surrogates, nothing above U+10FFFF); nothing for a good text.
std::optional<std::size_t> findInvalidUtf8(std::string_view text);

// The characters of a text; what is not well-formed becomes U+FFFD, one for each octet.
std::u32string toCharacters(std::string_view utf8);
std::u32string toCharacters(std::u16string_view units);

std::u16string toUnits(std::u32string_view characters);

std::string toUtf8(std::u32string_view characters);
std::string toUtf8(std::u16string_view units);

// "U+20AC"
std::string codePointName(char32_t character);

// Columns of a terminal: 0 for combining characters, 2 for wide ones. Needs a UTF-8 LC_CTYPE.
std::size_t columnsOf(char32_t character);
std::size_t columnsOf(std::string_view utf8);

// Whether a terminal may obey the character, or show what stands around it in another order.
bool isDangerous(char32_t character);

// How a line end within a text is shown.
enum class LineEnds { KEPT, MARKED };

// The text as it may go to a terminal: line ends as "\n" or "⏎", a tab as a blank, other control
// characters as their pictures, what would turn the line around by name, malformed octets as
// "\x9B".
std::string printable(std::string_view utf8, LineEnds lineEnds);

// The text in lines of at most `columns`, broken at blanks where there are any, and at "\n".
std::vector<std::string> wrapped(std::string_view utf8, std::size_t columns);

// The text without blanks and line ends around it.
std::string_view trimmed(std::string_view text);

// "1 octet", "2 octets"
std::string counted(std::size_t count, std::string_view noun);

// The text with blanks up to `columns`.
std::string padded(std::string text, std::size_t columns);

} // namespace smspb::cli

#endif
