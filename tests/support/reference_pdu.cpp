#include "reference_pdu.h"

#include <algorithm>

#include "reference_text.h"
#include "vectors.h"

namespace support::reference {
namespace {

struct Limits {
    std::size_t single, part;
};
constexpr Limits GSM = {160, 153}, UCS2 = {70, 67};
constexpr unsigned FILL_BEHIND_CONCATENATION = 1; // 6 octets of header are 48 bits, 49 with it

bool fitsDefaultAlphabet(std::u16string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char16_t c) { return defaultCode(static_cast<u16>(c)).has_value(); });
}

std::vector<std::u16string_view> split(std::u16string_view text, Limits limits) {
    if (text.size() <= limits.single) { return {text}; }
    std::vector<std::u16string_view> parts;
    for (std::size_t at = 0; at < text.size(); at += limits.part) {
        parts.push_back(text.substr(at, limits.part));
    }
    return parts;
}

std::vector<u8> codesOf(std::u16string_view text) {
    std::vector<u8> codes;
    for (const char16_t c : text) { codes.push_back(defaultCode(static_cast<u16>(c)).value()); }
    return codes;
}

// TP-UDL and TP-UD.
std::vector<u8> userData(std::u16string_view text, bool ucs2, const std::vector<u8> &header) {
    std::vector<u8> data = header;
    if (ucs2) {
        for (const char16_t c : text) {
            data.push_back(static_cast<u8>(c >> 8));
            data.push_back(static_cast<u8>(c & 0xFF));
        }
        data.insert(data.begin(), static_cast<u8>(data.size()));
        return data;
    }
    const unsigned fill = header.empty() ? 0 : FILL_BEHIND_CONCATENATION;
    const std::vector<u8> body = pack(codesOf(text), fill);
    data.insert(data.end(), body.begin(), body.end());
    const std::size_t septets = header.empty() ? text.size() : 7 + text.size();
    data.insert(data.begin(), static_cast<u8>(septets));
    return data;
}

} // namespace

std::vector<Segment> submits(std::u16string_view text, bool ucs2, u8 messageReference) {
    const auto parts = split(text, ucs2 ? UCS2 : GSM);
    std::vector<Segment> segments;
    for (std::size_t i = 0; i < parts.size(); i++) {
        const bool several = parts.size() > 1;
        std::vector<u8> header;
        if (several) {
            header = {
                5, 0, 3, messageReference, static_cast<u8>(parts.size()), static_cast<u8>(i + 1)};
        }
        std::vector<u8> tpdu = octets("01 FF 07 91 94 21 43 F5 00");
        if (several) { tpdu[0] = 0x41; }
        tpdu.push_back(ucs2 ? 0x08 : 0x00);
        const std::vector<u8> data = userData(parts[i], ucs2, header);
        tpdu.insert(tpdu.end(), data.begin(), data.end());
        segments.push_back({"00" + hex(tpdu), static_cast<u32>(tpdu.size())});
    }
    return segments;
}

std::u16string readBack(std::u16string_view text) {
    if (!fitsDefaultAlphabet(text)) { return std::u16string(text); }
    const auto parts = split(text, GSM);
    std::u16string result;
    for (const auto &part : parts) {
        const unsigned fill = parts.size() > 1 ? FILL_BEHIND_CONCATENATION : 0;
        for (const u8 code : zeroesReplaced(codesOf(part), fill)) {
            result += static_cast<char16_t>(defaultAlphabet()[code]);
        }
    }
    return result;
}

} // namespace support::reference
