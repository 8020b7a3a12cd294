#include "tools/cbs_coding.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "tools/received.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

// clang-format off
// TS 23.038, 5: the coding octet        7 6 5 4 3 2 1 0
enum : u8 {
    GROUP               = 0xF0, //       x x x x . . . .
    COMPRESSED          = 0x20, //       0 1 x . . . . .
    HAS_CLASS           = 0x10, //       0 1 . x . . . .
    ALPHABET            = 0x0C, //       . . . . x x . .
    CLASS               = 0x03, //       . . . . . . x x
    DATA_BIT            = 0x04, //       1 1 1 1 . x . .
    WITH_LANGUAGE_7_BIT = 0x10, //       0 0 0 1 0 0 0 0
    WITH_LANGUAGE_UCS2  = 0x11, //       0 0 0 1 0 0 0 1
};
// clang-format on

// Groups 0000 and 0010.
constexpr std::array<std::string_view, 16> LANGUAGES = {
    "de", "en", "it", "fr", "es", "nl", "sv", "da", "pt", "fi", "no", "el", "tr", "hu", "pl", ""};
constexpr std::array<std::string_view, 5> MORE_LANGUAGES = {"cs", "he", "ar", "ru", "is"};

constexpr std::size_t LANGUAGE_SEPTETS = 3; // two letters and CR
constexpr std::size_t LANGUAGE_OCTETS = 2;  // two letters as septets
constexpr char16_t PADDING = u'\r';

Alphabet alphabetOf(u8 dcs) {
    static constexpr std::array ALPHABETS = {Alphabet::SEPTETS, Alphabet::OCTETS, Alphabet::UCS2,
                                             Alphabet::SEPTETS};
    return ALPHABETS.at((dcs & ALPHABET) >> 2);
}

CbsCoding generalCoding(u8 dcs) {
    CbsCoding coding;
    coding.alphabet = alphabetOf(dcs);
    coding.isCompressed = (dcs & COMPRESSED) != 0;
    if ((dcs & HAS_CLASS) != 0) { coding.messageClass = dcs & CLASS; }
    return coding;
}

bool isLanguage(std::u16string_view text) {
    return text.size() >= 2 && std::all_of(text.begin(), text.begin() + 2, [](char16_t c) {
               return c < 0x80 && std::isalpha(static_cast<int>(c)) != 0;
           });
}

void takeLanguageOff(CbsText &text) {
    if (!isLanguage(text.text) || text.text.size() < LANGUAGE_SEPTETS || text.text[2] != PADDING) {
        return;
    }
    text.language = toUtf8(text.text.substr(0, 2));
    text.text.erase(0, LANGUAGE_SEPTETS);
}

// The header's octets with its length octet.
std::size_t headerOctets(const CbsCoding &coding, std::span<const u8> octets) {
    if (!coding.hasHeader || octets.empty()) { return 0; }
    return std::min<std::size_t>(octets.front() + std::size_t{1}, octets.size());
}

std::u16string septetText(std::span<const u8> octets, std::size_t headerSize) {
    const std::vector<u8> septets = unpackSeptets(octets);
    // Fill bits lead from the header's end to the next septet.
    const std::size_t first = (headerSize * 8 + 6) / 7;
    return fromSeptets(std::span(septets).subspan(std::min(first, septets.size())));
}

std::u16string unitText(const CbsCoding &coding, std::span<const u8> octets,
                        std::string &language) {
    if (coding.startsWithLanguage && octets.size() >= LANGUAGE_OCTETS) {
        const std::u16string letters = fromSeptets(unpackSeptets(octets.first(LANGUAGE_OCTETS)));
        if (isLanguage(letters)) {
            language = toUtf8(letters.substr(0, 2));
            octets = octets.subspan(LANGUAGE_OCTETS);
        }
    }
    return unitsFrom(octets);
}

} // namespace

CbsCoding cbsCoding(u8 dcs) {
    CbsCoding coding;
    const u8 low = dcs & static_cast<u8>(~GROUP);
    switch (dcs & GROUP) {
    case 0x00: coding.language = LANGUAGES.at(low); break;
    case 0x10:
        coding.startsWithLanguage = dcs == WITH_LANGUAGE_7_BIT || dcs == WITH_LANGUAGE_UCS2;
        if (dcs == WITH_LANGUAGE_UCS2) { coding.alphabet = Alphabet::UCS2; }
        break;
    case 0x20:
        if (low < MORE_LANGUAGES.size()) { coding.language = MORE_LANGUAGES.at(low); }
        break;
    case 0x40:
    case 0x50:
    case 0x60:
    case 0x70: return generalCoding(dcs);
    case 0x90:
        coding.alphabet = alphabetOf(dcs);
        coding.hasHeader = true;
        coding.messageClass = dcs & CLASS;
        break;
    case 0xF0:
        if ((dcs & DATA_BIT) != 0) { coding.alphabet = Alphabet::OCTETS; }
        coding.messageClass = dcs & CLASS;
        break;
    default: break;
    }
    return coding;
}

std::string codingName(const CbsCoding &coding) {
    std::string name = coding.alphabet == Alphabet::UCS2     ? "UCS-2"
                       : coding.alphabet == Alphabet::OCTETS ? "8-bit data"
                                                             : "GSM 7-bit";
    return coding.isCompressed ? name + ", compressed" : name;
}

std::vector<u8> unpackSeptets(std::span<const u8> octets) {
    std::vector<u8> septets;
    septets.reserve(octets.size() * 8 / 7);
    unsigned bits = 0, count = 0;
    for (const u8 octet : octets) {
        bits |= unsigned{octet} << count;
        for (count += 8; count >= 7; count -= 7) {
            septets.push_back(static_cast<u8>(bits & 0x7F));
            bits >>= 7;
        }
    }
    return septets;
}

std::u16string unitsFrom(std::span<const u8> octets) {
    std::u16string units;
    for (std::size_t i = 0; i + 1 < octets.size(); i += 2) {
        units += static_cast<char16_t>(octets[i] << 8 | octets[i + 1]);
    }
    return units;
}

std::optional<std::vector<u8>> octetsFrom(std::string_view hexadecimal) {
    if (hexadecimal.size() % 2 != 0) { return std::nullopt; }
    std::vector<u8> octets;
    for (std::size_t i = 0; i < hexadecimal.size(); i += 2) {
        u8 octet = 0;
        const char *const pair = hexadecimal.data() + i;
        const auto [end, error] = std::from_chars(pair, pair + 2, octet, 16);
        if (error != std::errc() || end != pair + 2) { return std::nullopt; }
        octets.push_back(octet);
    }
    return octets;
}

CbsText cbsText(const CbsCoding &coding, std::span<const u8> octets) {
    CbsText text;
    text.language = coding.language;
    const std::size_t headerSize = headerOctets(coding, octets);
    if (coding.alphabet == Alphabet::OCTETS || coding.isCompressed) {
        const auto body = octets.subspan(headerSize);
        text.data.assign(body.begin(), body.end());
        return text;
    }
    if (coding.alphabet == Alphabet::UCS2) {
        text.text = unitText(coding, octets.subspan(headerSize), text.language);
    } else {
        text.text = septetText(octets, headerSize);
        if (coding.startsWithLanguage) { takeLanguageOff(text); }
    }
    text.text.erase(text.text.find_last_not_of(PADDING) + 1);
    return text;
}

} // namespace smspb::cli
