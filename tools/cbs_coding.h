// The data coding of cell broadcast and USSD (3GPP TS 23.038, 5): what a coding octet says, and the
// text that the octets then hold. Pure.
#ifndef SMSPB_TOOLS_CBS_CODING_H
#define SMSPB_TOOLS_CBS_CODING_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace smspb::cli {

enum class Alphabet { SEPTETS, OCTETS, UCS2 };

struct CbsCoding {
    Alphabet alphabet = Alphabet::SEPTETS;
    std::string_view language;       // ISO 639; empty: not said
    bool startsWithLanguage = false; // the text does
    bool hasHeader = false;          // a user-data header stands before the text
    bool isCompressed = false;       // TS 23.042
    std::optional<u32> messageClass;
};

// What is reserved counts as the default alphabet, as the clause asks.
CbsCoding cbsCoding(u8 dcs);

// "GSM 7-bit", "8-bit data", "UCS-2"
std::string codingName(const CbsCoding &coding);

// All the septets that the octets have room for (6.1.2).
std::vector<u8> unpackSeptets(std::span<const u8> octets);

// Units, the high octet first; an odd last octet is left out.
std::u16string unitsFrom(std::span<const u8> octets);

// The octets of a hexadecimal text of either case; nothing for another text, or an odd number of
// digits.
std::optional<std::vector<u8>> octetsFrom(std::string_view hexadecimal);

struct CbsText {
    std::u16string text;
    std::vector<u8> data; // what is no text: 8-bit or compressed
    std::string language;
};

// The text without its language, header and padding. `coding.startsWithLanguage` is for a first
// page only.
CbsText cbsText(const CbsCoding &coding, std::span<const u8> octets);

} // namespace smspb::cli

#endif
