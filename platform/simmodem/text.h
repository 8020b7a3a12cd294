// Small text steps that several files share.
#pragma once

#include <charconv>
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

inline std::string inQuotes(std::string_view text) {
    std::string out = "\"";
    out += text;
    out += '"';
    return out;
}

} // namespace smspb::simmodem
