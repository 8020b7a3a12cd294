#include "platform/simmodem/network/message_text.h"

#include "platform/simmodem/modem/charset.h"

#include <algorithm>

namespace smspb::simmodem {
namespace {

constexpr std::size_t PARTS_MAX = 255;
constexpr std::uint8_t DCS_UCS2 = 0x08, DCS_CLASS = 0x10; // TS 23.038, 4
constexpr std::uint8_t GSM_ESCAPE = 0x1B;
// Septets and octets behind a header of six octets.
constexpr std::size_t SEPTETS_ALONE = 160, SEPTETS_PART = 153;
constexpr std::size_t OCTETS_ALONE = 140, OCTETS_PART = 134;

Octets headerOf(std::uint8_t reference, std::size_t total, std::size_t number) {
    return {
        5, 0, 3, reference, static_cast<std::uint8_t>(total), static_cast<std::uint8_t>(number)};
}

// Cuts into pieces of at most `size`; `mayEnd` says whether a piece may end before an octet.
template <typename MayEnd>
std::vector<Octets> cut(const Octets &all, std::size_t alone, std::size_t size, MayEnd mayEnd) {
    std::vector<Octets> pieces;
    if (all.size() <= alone) { return {all}; }
    for (auto from = all.begin(); from != all.end();) {
        auto end = from + static_cast<std::ptrdiff_t>(
                              std::min(size, static_cast<std::size_t>(all.end() - from)));
        while (end != all.end() && !mayEnd(end)) { end--; }
        pieces.emplace_back(from, end);
        from = end;
    }
    return pieces;
}

Submit gsmPart(const Octets &septets, const Octets &header) {
    const unsigned fill = header.empty() ? 0 : 1; // from the 48 bits of the header to 49
    Submit part;
    part.userData = header;
    const Octets packed = packSeptets(septets, fill);
    part.userData.insert(part.userData.end(), packed.begin(), packed.end());
    part.userDataLength =
        static_cast<std::uint8_t>((header.size() * 8 + fill) / 7 + septets.size());
    return part;
}

Submit ucs2Part(const Octets &octets, const Octets &header) {
    Submit part;
    part.dcs = DCS_UCS2;
    part.userData = header;
    part.userData.insert(part.userData.end(), octets.begin(), octets.end());
    part.userDataLength = static_cast<std::uint8_t>(part.userData.size());
    return part;
}

} // namespace

std::vector<Octets> cutSeptets(const Octets &septets, std::size_t alone, std::size_t size) {
    return cut(septets, alone, size, [](auto end) { return *(end - 1) != GSM_ESCAPE; });
}

std::vector<Octets> cutUnits(const Octets &octets, std::size_t alone, std::size_t size) {
    return cut(octets, alone, size, [begin = octets.begin()](auto end) {
        return (end - begin) % 2 == 0 && (*end & 0xFC) != 0xDC;
    });
}

std::optional<std::vector<Submit>> messageParts(std::u16string_view text, Coding coding,
                                                std::optional<int> messageClass,
                                                std::uint8_t reference) {
    const auto septets = coding == Coding::ucs2 ? std::nullopt : toSeptets(text);
    if (coding == Coding::gsm && !septets) { return std::nullopt; }
    const auto pieces = septets ? cutSeptets(*septets, SEPTETS_ALONE, SEPTETS_PART)
                                : cutUnits(toUcs2Octets(text), OCTETS_ALONE, OCTETS_PART);
    if (pieces.size() > PARTS_MAX) { return std::nullopt; }
    std::vector<Submit> parts;
    for (std::size_t i = 0; i < pieces.size(); i++) {
        const Octets header =
            pieces.size() > 1 ? headerOf(reference, pieces.size(), i + 1) : Octets();
        Submit part = septets ? gsmPart(pieces[i], header) : ucs2Part(pieces[i], header);
        part.headerPresent = !header.empty();
        if (messageClass) {
            part.dcs = static_cast<std::uint8_t>(part.dcs | DCS_CLASS |
                                                 static_cast<unsigned>(*messageClass));
        }
        parts.push_back(std::move(part));
    }
    return parts;
}

} // namespace smspb::simmodem
