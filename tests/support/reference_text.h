// The character sets, slowly and obviously: what the library's conversions are swept against. The
// alphabet comes from tests/vectors/alphabet.txt.
#ifndef SMSPB_TESTS_REFERENCE_TEXT_H
#define SMSPB_TESTS_REFERENCE_TEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace support::reference {

struct Extension {
    u8 code;
    u16 unit;
};

const std::vector<u16> &defaultAlphabet(); // 128 units, by code
const std::vector<Extension> &extensionTable();

// The code of a unit in one of the tables.
std::optional<u8> defaultCode(u16 unit);
std::optional<u8> extensionCode(u16 unit);

// UCS-2 to septets within `capacity`: a space for what has no code, the escape alone for an
// extension character, and one octet to spare behind a character that has a code.
std::vector<u8> toSeptets(std::u16string_view text, std::size_t capacity);
// `count` septets to at most `capacity` units; `septets` may hold one more, which a last escape
// takes.
std::u16string fromSeptets(const std::vector<u8> &septets, std::size_t count, std::size_t capacity);

// UTF-8 of one unit as UTF-8 should be, surrogates like any other unit.
std::string utf8(u16 unit);
std::string utf8(std::u16string_view text);
// UTF-8 of well-formed text in the basic plane, for expected values.
std::u16string fromUtf8(std::string_view text);

// Septets as octets behind `fillBits` zero bits, bit by bit (TS 23.038, 6.1.2.1).
std::vector<u8> pack(const std::vector<u8> &septets, unsigned fillBits);
// The first `count` septets behind `fillBits` bits; octets beyond the end are 0.
std::vector<u8> unpack(const std::vector<u8> &octets, std::size_t count, unsigned fillBits);
// What the library makes of them: a septet 0 reads 0x40, except where a septet fills the top of its
// octet.
std::vector<u8> zeroesReplaced(std::vector<u8> septets, unsigned fillBits);

} // namespace support::reference

#endif
