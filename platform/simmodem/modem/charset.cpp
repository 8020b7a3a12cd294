#include "platform/simmodem/modem/charset.h"

#include <algorithm>
#include <charconv>

namespace smspb::simmodem {
namespace {

constexpr char16_t ESCAPE = 0x1B;

// TS 23.038, 6.2.1: the character of each septet.
constexpr std::u16string_view ALPHABET =
    u"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\x1BÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
    u"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
static_assert(ALPHABET.size() == 128);

// TS 23.038, 6.2.1.1: what stands behind the escape, and its code.
constexpr std::u16string_view EXTENSIONS = u"\f^{}\\[~]|€";
constexpr std::string_view EXTENSION_CODES = "\x0A\x14\x28\x29\x2F\x3C\x3D\x3E\x40\x65";
static_assert(EXTENSIONS.size() == EXTENSION_CODES.size());

constexpr std::size_t ASCII_SIZE = 0x80;

// The upper half of the code page 437.
constexpr std::u16string_view PC_437 =
    u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒáíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐└┴┬├─┼╞╟╚╔╩╦╠═╬╧"
    u"╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0";
static_assert(PC_437.size() == ASCII_SIZE);

// Nothing for what the alphabet lacks.
std::optional<char> gsmCode(char16_t unit) {
    const std::size_t code = ALPHABET.find(unit);
    if (code == std::u16string_view::npos || unit == ESCAPE) { return std::nullopt; }
    return static_cast<char>(code);
}

// An octet from 0x80 on of a set that has one for each character; nothing for one it lacks.
std::optional<char16_t> fromUpperHalf(std::string_view charset, unsigned char octet) {
    static constexpr unsigned char LATIN_FIRST = 0xA0;
    if (charset == "PCCP437") { return PC_437[octet - ASCII_SIZE]; }
    if (charset == "8859-1" && octet >= LATIN_FIRST) { return octet; }
    return std::nullopt;
}

std::optional<std::u16string> fromOctets(std::string_view charset, std::string_view text) {
    std::u16string out;
    for (const char c : text) {
        const auto octet = static_cast<unsigned char>(c);
        const auto unit = octet < ASCII_SIZE ? octet : fromUpperHalf(charset, octet);
        if (!unit) { return std::nullopt; }
        out += *unit;
    }
    return out;
}

std::string toOctets(std::string_view charset, std::u16string_view text) {
    static constexpr char16_t LATIN_FIRST = 0xA0, LATIN_LAST = 0xFF;
    std::string out;
    for (const char16_t unit : text) {
        const std::size_t upperHalf =
            charset == "PCCP437" ? PC_437.find(unit) : std::u16string_view::npos;
        const bool isLatin = charset == "8859-1" && unit >= LATIN_FIRST && unit <= LATIN_LAST;
        if (unit < ASCII_SIZE || isLatin) {
            out += static_cast<char>(static_cast<unsigned char>(unit));
        } else if (upperHalf != std::u16string_view::npos) {
            out += static_cast<char>(static_cast<unsigned char>(ASCII_SIZE + upperHalf));
        } else {
            out += '?';
        }
    }
    return out;
}

// A unit a septet.
std::optional<std::u16string> fromGsm(std::u16string_view units) {
    Octets septets;
    for (const char16_t unit : units) {
        if (unit >= ALPHABET.size()) { return std::nullopt; }
        septets.push_back(static_cast<std::uint8_t>(unit));
    }
    return fromSeptets(septets);
}

Octets toGsm(std::u16string_view text) {
    Octets out;
    for (const char16_t unit : text) {
        const Octets septets = toSeptets({&unit, 1}).value_or(Octets{'?'});
        out.insert(out.end(), septets.begin(), septets.end());
    }
    return out;
}

// Octets of the UTF-8 sequence that begins so; 0 for none.
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) { return 1; }
    if (lead < 0xC2 || lead > 0xF4) { return 0; }
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// Whether the character takes so many octets, and is one at all.
bool isCharacter(char32_t value, std::size_t length) {
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    const bool surrogate = value >= 0xD800 && value < 0xE000;
    return !overlong && !surrogate && value <= 0x10FFFF;
}

// The code point of the sequence that `text` begins with, taken off it; nothing for a malformed
// one.
std::optional<char32_t> takeCodePoint(std::string_view &text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = sequenceLength(lead);
    if (length == 0 || text.size() < length) { return std::nullopt; }
    char32_t value = length == 1 ? lead : lead & (0x7FU >> length);
    for (const char c : text.substr(1, length - 1)) {
        const auto octet = static_cast<unsigned char>(c);
        if ((octet & 0xC0U) != 0x80) { return std::nullopt; }
        value = value << 6 | (octet & 0x3FU);
    }
    if (!isCharacter(value, length)) { return std::nullopt; }
    text.remove_prefix(length);
    return value;
}

} // namespace

std::optional<std::u16string> fromHexUnits(std::string_view text, std::size_t width) {
    std::u16string out;
    for (; !text.empty(); text.remove_prefix(width)) {
        const std::string_view digits = text.substr(0, width);
        unsigned unit = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
        if (digits.size() != width || error != std::errc() || end != digits.data() + width) {
            return std::nullopt;
        }
        out += static_cast<char16_t>(unit);
    }
    return out;
}

std::optional<std::u16string> fromTerminal(std::string_view charset, std::string_view text) {
    static constexpr std::size_t DIGITS_OF_UNIT = 4, DIGITS_OF_SEPTET = 2;
    if (charset == "UCS2") { return fromHexUnits(text, DIGITS_OF_UNIT); }
    if (charset == "HEX") {
        const auto septets = fromHexUnits(text, DIGITS_OF_SEPTET);
        return septets ? fromGsm(*septets) : std::nullopt;
    }
    if (charset == "GSM") {
        const auto *const octets = reinterpret_cast<const unsigned char *>(text.data());
        return fromGsm(std::u16string(octets, octets + text.size()));
    }
    return fromOctets(charset, text);
}

std::string toTerminal(std::string_view charset, std::u16string_view text) {
    if (charset == "UCS2") { return toHex(toUcs2Octets(text)); }
    if (charset == "HEX") { return toHex(toGsm(text)); }
    if (charset != "GSM") { return toOctets(charset, text); }
    const Octets septets = toGsm(text);
    return {septets.begin(), septets.end()};
}

std::optional<Octets> toSeptets(std::u16string_view text) {
    Octets out;
    for (const char16_t unit : text) {
        const std::size_t extension = EXTENSIONS.find(unit);
        const std::optional<char> code = gsmCode(unit);
        if (!code && extension == std::u16string_view::npos) { return std::nullopt; }
        if (!code) { out.push_back(ESCAPE); }
        out.push_back(static_cast<std::uint8_t>(code ? *code : EXTENSION_CODES[extension]));
    }
    return out;
}

Octets packSeptets(OctetView septets, unsigned fillBits) {
    Octets out((septets.size() * 7 + fillBits + 7) / 8);
    std::size_t bit = fillBits;
    for (const std::uint8_t septet : septets) {
        const unsigned shifted = static_cast<unsigned>(septet) << (bit % 8);
        out[bit / 8] = static_cast<std::uint8_t>(out[bit / 8] | (shifted & 0xFF));
        if (shifted > 0xFF) { out[bit / 8 + 1] = static_cast<std::uint8_t>(shifted >> 8); }
        bit += 7;
    }
    return out;
}

std::u16string fromSeptets(OctetView septets) {
    std::u16string out;
    bool escaped = false;
    for (const std::uint8_t septet : septets) {
        const std::size_t extension =
            escaped ? EXTENSION_CODES.find(static_cast<char>(septet)) : std::string_view::npos;
        const bool escapes = septet == ESCAPE && !escaped;
        if (!escapes && septet == ESCAPE) { out += u' '; }
        if (septet != ESCAPE) {
            out += extension != std::string_view::npos ? EXTENSIONS[extension] : ALPHABET[septet];
        }
        escaped = escapes;
    }
    return escaped ? out + u' ' : out;
}

Octets unpackSeptets(OctetView octets, std::size_t count) {
    Octets out(std::min(count, octets.size() * 8 / 7));
    for (std::size_t i = 0; i < out.size(); i++) {
        const std::size_t bit = i * 7;
        const unsigned low = octets[bit / 8];
        const unsigned high = bit / 8 + 1 < octets.size() ? octets[bit / 8 + 1] : 0U;
        out[i] = static_cast<std::uint8_t>((high << 8 | low) >> (bit % 8) & 0x7F);
    }
    return out;
}

std::optional<std::u16string> fromUtf8(std::string_view text) {
    std::u16string out;
    while (!text.empty()) {
        const auto point = takeCodePoint(text);
        if (!point) { return std::nullopt; }
        if (*point < 0x10000) {
            out += static_cast<char16_t>(*point);
        } else {
            out += static_cast<char16_t>(0xD800 + ((*point - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + (*point & 0x3FF));
        }
    }
    return out;
}

Octets toUcs2Octets(std::u16string_view text) {
    Octets out;
    for (const char16_t unit : text) {
        out.push_back(static_cast<std::uint8_t>(unit >> 8));
        out.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    }
    return out;
}

std::string toHex(OctetView octets) {
    static constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string out;
    for (const std::uint8_t octet : octets) { out += {DIGITS[octet >> 4], DIGITS[octet & 0x0F]}; }
    return out;
}

} // namespace smspb::simmodem
