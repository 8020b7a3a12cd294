#include "tools/text.h"

#include <algorithm>
#include <array>
#include <cwchar>

#include <fmt/format.h>

namespace smspb::cli {

namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;
constexpr char32_t BASIC_PLANE_END = 0x10000;
constexpr char32_t UNICODE_END = 0x110000;
constexpr char32_t HIGH_SURROGATES = 0xD800, LOW_SURROGATES = 0xDC00, SURROGATES_END = 0xE000;

bool isSurrogate(char32_t c) { return c >= HIGH_SURROGATES && c < SURROGATES_END; }
bool isHighSurrogate(char32_t c) { return c >= HIGH_SURROGATES && c < LOW_SURROGATES; }
bool isLowSurrogate(char32_t c) { return c >= LOW_SURROGATES && c < SURROGATES_END; }

unsigned char octetAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// The lead octets of UTF-8 and the smallest character that each length may code.
struct Lead {
    unsigned char mask, bits;
    std::size_t length;
    char32_t smallest;
};
constexpr std::array LEADS = {
    Lead{0x80, 0x00, 1,     0x0},
    Lead{0xE0, 0xC0, 2,    0x80},
    Lead{0xF0, 0xE0, 3,   0x800},
    Lead{0xF8, 0xF0, 4, 0x10000},
};

struct Sequence {
    char32_t character = 0;
    std::size_t length = 0; // 0: not well-formed
};

// Shifts in the octets that follow a lead; false when one is missing or is none.
bool takeFollowing(std::string_view text, std::size_t at, std::size_t length, char32_t *character) {
    if (text.size() - at < length) { return false; }
    for (std::size_t i = 1; i < length; i++) {
        const unsigned char octet = octetAt(text, at + i);
        if ((octet & 0xC0) != 0x80) { return false; }
        *character = (*character << 6) | (octet & 0x3Fu);
    }
    return true;
}

Sequence sequenceAt(std::string_view text, std::size_t at) {
    const unsigned char first = octetAt(text, at);
    const auto *const lead = std::find_if(LEADS.begin(), LEADS.end(), [first](const Lead &row) {
        return (first & row.mask) == row.bits;
    });
    if (lead == LEADS.end()) { return {}; }
    char32_t character = first & static_cast<unsigned char>(~lead->mask);
    if (!takeFollowing(text, at, lead->length, &character)) { return {}; }
    if (character < lead->smallest || character >= UNICODE_END || isSurrogate(character)) {
        return {};
    }
    return {character, lead->length};
}

void append(std::string &text, char32_t c) {
    const auto octet = [&text](char32_t value) { text += static_cast<char>(value); };
    if (c < 0x80) { return octet(c); }
    if (c < 0x800) {
        octet(0xC0 | c >> 6);
    } else if (c < BASIC_PLANE_END) {
        octet(0xE0 | c >> 12);
        octet(0x80 | (c >> 6 & 0x3F));
    } else {
        octet(0xF0 | c >> 18);
        octet(0x80 | (c >> 12 & 0x3F));
        octet(0x80 | (c >> 6 & 0x3F));
    }
    octet(0x80 | (c & 0x3F));
}

struct Range {
    char32_t first, last;
};
bool isWithin(const Range &range, char32_t c) { return c >= range.first && c <= range.last; }

constexpr Range C0_CONTROLS = {0x00, 0x1F};
constexpr char32_t DELETE = 0x7F;
// Besides the two above: C1 controls, line and paragraph separators, direction embeddings,
// overrides and isolates, annotation and tag marks.
constexpr std::array DANGEROUS = {
    Range{   0x80,    0x9F},
    Range{ 0x2028,  0x202E},
    Range{ 0x2066,  0x2069},
    Range{ 0xFFF9,  0xFFFB},
    Range{0xE0001, 0xE0001},
};

// A control character as its picture (U+2400), another dangerous one by name.
std::string shown(char32_t c) {
    static constexpr char32_t PICTURES = 0x2400, DELETE_PICTURE = 0x2421;
    if (c == '\t') { return " "; }
    if (isWithin(C0_CONTROLS, c)) { return toUtf8(std::u32string(1, PICTURES + c)); }
    if (c == DELETE) { return toUtf8(std::u32string(1, DELETE_PICTURE)); }
    return isDangerous(c) ? "<" + codePointName(c) + ">" : toUtf8(std::u32string(1, c));
}

// How many characters fit into the columns, one at least.
std::size_t fittingCount(std::u32string_view line, std::size_t columns) {
    std::size_t count = 0, used = 0;
    while (count < line.size()) {
        used += columnsOf(line[count]);
        if (used > columns) { break; }
        count++;
    }
    return std::max<std::size_t>(count, 1);
}

// Where to cut a line of which `count` characters fit: behind the last blank, if there is one.
std::size_t cutPosition(std::u32string_view line, std::size_t count) {
    if (count >= line.size() || line[count] == ' ') { return std::min(count, line.size()); }
    const std::size_t blank = line.rfind(U' ', count - 1);
    return blank == line.npos ? count : blank + 1;
}

// One line of text into lines of at most `columns`.
void wrapLine(std::u32string_view line, std::size_t columns, std::vector<std::string> &lines) {
    do {
        const std::size_t cut = cutPosition(line, fittingCount(line, columns));
        lines.push_back(toUtf8(line.substr(0, cut)));
        line.remove_prefix(cut);
        line.remove_prefix(std::min(line.find_first_not_of(U' '), line.size()));
    } while (!line.empty());
}

} // namespace

std::optional<std::size_t> findInvalidUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = sequenceAt(text, at).length;
        if (length == 0) { return at; }
        at += length;
    }
    return std::nullopt;
}

std::u32string toCharacters(std::string_view utf8) {
    std::u32string characters;
    for (std::size_t at = 0; at < utf8.size();) {
        const Sequence found = sequenceAt(utf8, at);
        characters += found.length != 0 ? found.character : REPLACEMENT;
        at += std::max<std::size_t>(found.length, 1);
    }
    return characters;
}

std::u32string toCharacters(std::u16string_view units) {
    std::u32string characters;
    for (std::size_t at = 0; at < units.size(); at++) {
        const char32_t unit = units[at];
        const char32_t next = at + 1 < units.size() ? units[at + 1] : 0;
        if (isHighSurrogate(unit) && isLowSurrogate(next)) {
            characters.push_back(BASIC_PLANE_END + ((unit - HIGH_SURROGATES) << 10) + next -
                                 LOW_SURROGATES);
            at++;
        } else {
            characters.push_back(isSurrogate(unit) ? REPLACEMENT : unit);
        }
    }
    return characters;
}

std::u16string toUnits(std::u32string_view characters) {
    std::u16string units;
    for (const char32_t c : characters) {
        if (c < BASIC_PLANE_END) {
            units += static_cast<char16_t>(c);
        } else {
            units += static_cast<char16_t>(HIGH_SURROGATES + ((c - BASIC_PLANE_END) >> 10));
            units += static_cast<char16_t>(LOW_SURROGATES + (c & 0x3FF));
        }
    }
    return units;
}

std::string toUtf8(std::u32string_view characters) {
    std::string text;
    for (const char32_t c : characters) { append(text, c); }
    return text;
}

std::string toUtf8(std::u16string_view units) { return toUtf8(toCharacters(units)); }

std::string codePointName(char32_t character) {
    return fmt::format("U+{:04X}", static_cast<unsigned>(character));
}

std::size_t columnsOf(char32_t character) {
    const int columns = wcwidth(static_cast<wchar_t>(character));
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

std::size_t columnsOf(std::string_view utf8) {
    std::size_t columns = 0;
    for (const char32_t c : toCharacters(utf8)) { columns += columnsOf(c); }
    return columns;
}

bool isDangerous(char32_t character) {
    return character == DELETE || isWithin(C0_CONTROLS, character) ||
           std::any_of(DANGEROUS.begin(), DANGEROUS.end(),
                       [character](const Range &range) { return isWithin(range, character); });
}

std::string printable(std::string_view utf8, LineEnds lineEnds) {
    const std::string_view lineEnd = lineEnds == LineEnds::KEPT ? "\n" : "⏎";
    std::string text;
    for (std::size_t at = 0; at < utf8.size();) {
        const Sequence found = sequenceAt(utf8, at);
        if (found.length == 0) {
            text += fmt::format("\\x{:02X}", octetAt(utf8, at));
        } else if (utf8.substr(at, 2) == "\r\n") {
            text += lineEnd;
            at++;
        } else if (found.character == '\r' || found.character == '\n') {
            text += lineEnd;
        } else {
            text += shown(found.character);
        }
        at += std::max<std::size_t>(found.length, 1);
    }
    return text;
}

std::vector<std::string> wrapped(std::string_view utf8, std::size_t columns) {
    std::vector<std::string> lines;
    const std::u32string characters = toCharacters(utf8);
    std::u32string_view rest = characters;
    for (std::size_t end = rest.find(U'\n'); end != rest.npos; end = rest.find(U'\n')) {
        wrapLine(rest.substr(0, end), columns, lines);
        rest.remove_prefix(end + 1);
    }
    wrapLine(rest, columns, lines);
    return lines;
}

std::string_view trimmed(std::string_view text) {
    static constexpr std::string_view BLANKS = " \t\r\n";
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == text.npos) { return {}; }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string counted(std::size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string padded(std::string text, std::size_t columns) {
    const std::size_t used = columnsOf(text);
    if (used < columns) { text.append(columns - used, ' '); }
    return text;
}

} // namespace smspb::cli
