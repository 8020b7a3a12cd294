#include "reference_text.h"

#include <cstdlib>
#include <sstream>

#include "vectors.h"

namespace support::reference {
namespace {

constexpr u8 ESCAPE = 0x1B;

u16 hexNumber(const std::string &text) {
    return static_cast<u16>(std::strtoul(text.c_str(), nullptr, 16));
}

std::vector<u16> readDefaultAlphabet() {
    static const char DIGITS[] = "0123456789ABCDEF";
    const Vector table = readVectors("alphabet.txt").at(0);
    std::vector<u16> units;
    for (unsigned code = 0; code < 128; code += 8) {
        std::istringstream row(table.text(std::string{DIGITS[code / 16], DIGITS[code % 16]}));
        for (std::string word; row >> word;) { units.push_back(hexNumber(word)); }
    }
    EXPECT_EQ(units.size(), 128U);
    return units;
}

std::vector<Extension> readExtensions() {
    const Vector table = readVectors("alphabet.txt").at(1);
    std::vector<Extension> entries;
    for (const char *code : {"0A", "14", "28", "29", "2F", "3C", "3D", "3E", "40"}) {
        entries.push_back({static_cast<u8>(hexNumber(code)), hexNumber(table.text(code))});
    }
    return entries;
}

} // namespace

const std::vector<u16> &defaultAlphabet() {
    static const std::vector<u16> table = readDefaultAlphabet();
    return table;
}

const std::vector<Extension> &extensionTable() {
    static const std::vector<Extension> table = readExtensions();
    return table;
}

std::optional<u8> defaultCode(u16 unit) {
    for (u8 code = 0; code < 128; code++) {
        if (defaultAlphabet()[code] == unit) { return code; }
    }
    return std::nullopt;
}

std::optional<u8> extensionCode(u16 unit) {
    for (const Extension &entry : extensionTable()) {
        if (entry.unit == unit) { return entry.code; }
    }
    return std::nullopt;
}

std::vector<u8> toSeptets(std::u16string_view text, std::size_t capacity) {
    std::vector<u8> septets;
    for (const char16_t c : text) {
        const auto unit = static_cast<u16>(c);
        const auto code = defaultCode(unit);
        const bool mapped = code.has_value() || extensionCode(unit).has_value();
        if (septets.size() + (mapped ? 1 : 0) >= capacity) { break; }
        septets.push_back(code ? *code : (mapped ? ESCAPE : u8{' '}));
    }
    return septets;
}

std::u16string fromSeptets(const std::vector<u8> &septets, std::size_t count,
                           std::size_t capacity) {
    std::u16string text;
    for (std::size_t i = 0; i < count && text.size() < capacity; i++) {
        u16 unit = septets[i] < 128 ? defaultAlphabet()[septets[i]] : u16{' '};
        if (septets[i] == ESCAPE) {
            i++;
            for (const Extension &entry : extensionTable()) {
                if (entry.code == septets.at(i)) { unit = entry.unit; }
            }
        }
        text += static_cast<char16_t>(unit);
    }
    return text;
}

std::string utf8(u16 unit) {
    std::string text;
    const auto add = [&text](unsigned octet) { text += static_cast<char>(octet); };
    if (unit < 0x80) {
        add(unit);
    } else if (unit < 0x800) {
        add(0xC0 + unit / 64);
        add(0x80 + unit % 64);
    } else {
        add(0xE0 + unit / 4096);
        add(0x80 + unit / 64 % 64);
        add(0x80 + unit % 64);
    }
    return text;
}

std::string utf8(std::u16string_view text) {
    std::string octets;
    for (const char16_t unit : text) { octets += utf8(static_cast<u16>(unit)); }
    return octets;
}

std::u16string fromUtf8(std::string_view text) {
    std::u16string units;
    for (std::size_t i = 0; i < text.size();) {
        const auto octet = [&](std::size_t k) { return static_cast<u8>(text.at(i + k)); };
        if (octet(0) < 0x80) {
            units += static_cast<char16_t>(octet(0));
            i += 1;
        } else if (octet(0) < 0xE0) {
            units += static_cast<char16_t>((octet(0) - 0xC0) * 64 + (octet(1) - 0x80));
            i += 2;
        } else {
            units += static_cast<char16_t>((octet(0) - 0xE0) * 4096 + (octet(1) - 0x80) * 64 +
                                           (octet(2) - 0x80));
            i += 3;
        }
    }
    return units;
}

std::vector<u8> pack(const std::vector<u8> &septets, unsigned fillBits) {
    std::vector<bool> bits(fillBits, false);
    for (const u8 septet : septets) {
        for (unsigned bit = 0; bit < 7; bit++) { bits.push_back((septet >> bit & 1) != 0); }
    }
    std::vector<u8> octets((bits.size() + 7) / 8);
    for (std::size_t i = 0; i < bits.size(); i++) {
        if (bits[i]) { octets[i / 8] = static_cast<u8>(octets[i / 8] | 1U << i % 8); }
    }
    return octets;
}

std::vector<u8> unpack(const std::vector<u8> &octets, std::size_t count, unsigned fillBits) {
    std::vector<u8> septets(count);
    for (std::size_t i = 0; i < count * 7; i++) {
        const std::size_t bit = fillBits + i;
        const unsigned value = bit / 8 < octets.size() ? octets[bit / 8] >> bit % 8 & 1U : 0U;
        septets[i / 7] = static_cast<u8>(septets[i / 7] | value << i % 7);
    }
    return septets;
}

std::vector<u8> zeroesReplaced(std::vector<u8> septets, unsigned fillBits) {
    for (std::size_t i = 0; i < septets.size(); i++) {
        const bool fillsTop = (fillBits + 7 * (i + 1)) % 8 == 0;
        if (septets[i] == 0 && !fillsTop) { septets[i] = 0x40; }
    }
    return septets;
}

} // namespace support::reference
