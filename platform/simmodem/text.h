// Small text steps that several files share.
#pragma once

#include <charconv>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

// ASCII alone: AT commands know no locale.
constexpr char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

// A decimal number that takes up the whole text.
inline std::optional<unsigned> parseNumber(std::string_view text) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) { return std::nullopt; }
    return value;
}

// With commas between them.
inline std::string joined(std::initializer_list<std::string> values) {
    std::string text;
    for (const std::string &value : values) {
        if (&value != values.begin()) { text += ','; }
        text += value;
    }
    return text;
}

inline bool isHexDigit(char c) { return isDigit(c) || (upper(c) >= 'A' && upper(c) <= 'F'); }

// A string constant (V.250, 5.4.2.2): what would end it, or be taken for an escape, is escaped.
inline std::string inQuotes(std::string_view text) {
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size(); i++) {
        const char c = text[i];
        const bool escapes =
            c == '\\' && i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2]);
        if (c == '"') {
            out += "\\22";
        } else if (c == '\r') {
            out += "\\0D";
        } else if (escapes) {
            out += "\\5C";
        } else {
            out += c;
        }
    }
    out += '"';
    return out;
}

// ("a","b"): how a test form lists strings.
template <typename Texts> std::string listOf(const Texts &texts) {
    std::string list;
    for (const auto &text : texts) { list += (list.empty() ? "(" : ",") + inQuotes(text); }
    return list + ")";
}

// "\n", "\r" and "\r\n", as they are typed, are a line end.
inline std::string withLineEnds(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        std::size_t taken = 1;
        for (const std::string_view end : {"\\r\\n", "\\n", "\\r"}) {
            if (text.starts_with(end) && taken == 1) { taken = end.size(); }
        }
        out += taken > 1 ? '\n' : text.front();
        text.remove_prefix(taken);
    }
    return out;
}

} // namespace smspb::simmodem
