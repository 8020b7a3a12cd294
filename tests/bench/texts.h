// The texts that several cases work on, in the form that each side takes.
#ifndef SMSPB_TESTS_BENCH_TEXTS_H
#define SMSPB_TESTS_BENCH_TEXTS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace bench {

inline constexpr std::size_t MESSAGE_SEPTETS = 160; // TS 23.040, 9.2.3.24.1
inline constexpr std::size_t MESSAGE_UNITS = 70;

// Prose without the characters that the default alphabet has at another code than ASCII.
inline std::string ascii(std::size_t count) {
    static constexpr std::string_view PROSE =
        "The quick brown fox jumps over the lazy dog, then rests: 12 of 34 hares (and 5 owls) "
        "watched it from the hill; none moved. What a day, said one, 67 percent fog. ";
    std::string text;
    while (text.size() < count) { text += PROSE[text.size() % PROSE.size()]; }
    return text;
}

// The same with one character in four from outside ASCII, all of them in the default alphabet
// (TS 23.038, 6.2.1) as well as in ISO 8859-1.
inline std::string mixedLatin1(std::size_t count) {
    static constexpr std::string_view OTHERS =
        "\xA3\xA5\xE8\xE9\xF9\xEC\xF2\xD8\xF8\xC5\xE5\xC6\xE6\xDF\xC9\xC4\xD6\xD1\xDC"
        "\xE4\xF6\xF1\xFC\xE0\xA1";
    std::string text = ascii(count);
    for (std::size_t i = 3; i < count; i += 4) { text[i] = OTHERS[i / 4 % OTHERS.size()]; }
    return text;
}

// Units in host order with a zero behind them, from ISO 8859-1.
inline std::vector<u16> units(std::string_view latin1) {
    std::vector<u16> all;
    for (const char c : latin1) { all.push_back(static_cast<u8>(c)); }
    all.push_back(0);
    return all;
}

// Units that need UCS-2: Cyrillic with blanks and digits, `count` of them and a zero.
inline std::vector<u16> cyrillic(std::size_t count) {
    static constexpr std::u16string_view PROSE =
        u"Съешь же ещё этих мягких французских булок, да выпей 2 чашки чаю. ";
    std::vector<u16> all;
    while (all.size() < count) { all.push_back(PROSE[all.size() % PROSE.size()]); }
    all.push_back(0);
    return all;
}

// Units as gammu holds them: two octets each, high octet first, two zero octets at the end.
inline std::vector<unsigned char> bigEndian(const std::vector<u16> &all) {
    std::vector<unsigned char> octets;
    for (const u16 unit : all) {
        octets.push_back(static_cast<unsigned char>(unit >> 8));
        octets.push_back(static_cast<unsigned char>(unit & 0xFF));
    }
    return octets;
}

} // namespace bench

#endif
