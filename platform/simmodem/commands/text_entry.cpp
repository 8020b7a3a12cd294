#include "platform/simmodem/commands/text_entry.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/text.h"

#include <algorithm>

namespace smspb::simmodem {
namespace {

constexpr std::size_t ENTRY_SEPTETS_MAX = 160; // TS 23.040, 9.2.3.16
constexpr std::uint8_t SEPTET_MAX = 0x7F;

// TS 23.040, 9.2.3.3: how TP-VP is written.
enum Validity : unsigned { NONE = 0x00, ENHANCED = 0x08, RELATIVE = 0x10, ABSOLUTE = 0x18 };
constexpr unsigned VALIDITY_FORMAT = 0x18;
constexpr std::size_t LONG_VALIDITY_OCTETS = 7;

struct UserData {
    std::uint8_t length; // TP-UDL
    Octets octets;
};

std::string withoutLineEnds(std::string_view text) {
    std::string out(text);
    std::erase_if(out, [](char c) { return c == '\r' || c == '\n'; });
    return out;
}

// Line ends are characters of the message where a character is not written as digits.
std::optional<Octets> septetsFrom(std::string_view charset, std::string_view text) {
    std::optional<Octets> septets;
    if (charset == "HEX") {
        septets = octetsFromHex(text);
    } else if (charset == "GSM") {
        septets = Octets(text.begin(), text.end());
    } else {
        const auto units =
            fromTerminal(charset, charset == "UCS2" ? withoutLineEnds(text) : std::string(text));
        septets = units ? toSeptets(*units) : std::nullopt;
    }
    const bool good = septets && std::all_of(septets->begin(), septets->end(),
                                             [](std::uint8_t c) { return c <= SEPTET_MAX; });
    return good ? septets : std::nullopt;
}

std::optional<UserData> characterData(std::string_view charset, std::string_view text) {
    const auto septets = septetsFrom(charset, text);
    if (!septets || septets->size() > ENTRY_SEPTETS_MAX) { return std::nullopt; }
    return UserData{static_cast<std::uint8_t>(septets->size()), packSeptets(*septets)};
}

// Behind a header TP-UDL counts septets where the coding scheme says so.
std::optional<UserData> octetData(const TpduFields &fields, std::string_view text) {
    auto octets = octetsFromHex(text);
    if (!octets || octets->size() > USER_DATA_OCTETS_MAX) { return std::nullopt; }
    const std::size_t length = countsSeptets(fields.dcs) ? octets->size() * 8 / 7 : octets->size();
    return UserData{static_cast<std::uint8_t>(length), std::move(*octets)};
}

} // namespace

std::optional<Octets> submitFromText(const Settings &settings, OctetView destination,
                                     std::string_view text) {
    const TextParameters &parameters = settings.textParameters;
    TpduFields fields;
    fields.first = parameters.first;
    fields.address = destination;
    fields.pid = parameters.pid;
    fields.dcs = parameters.dcs;
    if ((parameters.first & VALIDITY_FORMAT) != NONE) { fields.validity = parameters.validity; }
    const auto data =
        fields.hasSeptets() ? characterData(settings.charset, text) : octetData(fields, text);
    if (!data) { return std::nullopt; }
    fields.userDataLength = data->length;
    fields.userData = data->octets;
    Octets tpdu = submitTpdu(fields);
    return isTpdu(TpduType::submit, tpdu) ? std::optional(std::move(tpdu)) : std::nullopt;
}

std::optional<Octets> deliverFromText(const Settings &settings, OctetView originator,
                                      std::string_view text, const NetworkTime &now) {
    const auto tpdu = submitFromText(settings, originator, text);
    const auto submit = tpdu ? submitFromTpdu(*tpdu) : std::nullopt;
    if (!submit) { return std::nullopt; }
    const TextParameters &parameters = settings.textParameters;
    const bool timed = (parameters.first & VALIDITY_FORMAT) == ABSOLUTE;
    return deliverTpdu(*submit, originator, timed ? parameters.validity : timestamp(now));
}

std::string validityText(const TextParameters &parameters) {
    if (parameters.validity.size() == 1) { return std::to_string(parameters.validity.front()); }
    const bool enhanced = (parameters.first & VALIDITY_FORMAT) == ENHANCED;
    return inQuotes(enhanced ? toHex(parameters.validity) : timestampText(parameters.validity));
}

std::optional<Octets> validityFrom(std::uint8_t first, std::string_view text, bool isString) {
    static constexpr unsigned OCTET_MAX = 0xFF;
    const unsigned format = first & VALIDITY_FORMAT;
    if (isString && format == ENHANCED) {
        auto octets = octetsFromHex(text);
        return octets && octets->size() == LONG_VALIDITY_OCTETS ? octets : std::nullopt;
    }
    if (isString) { return format == ABSOLUTE ? timestampFromText(text) : std::nullopt; }
    const auto number = parseNumber(text);
    const bool fits = (format == RELATIVE || format == NONE) && number && *number <= OCTET_MAX;
    return fits ? std::optional(Octets{static_cast<std::uint8_t>(*number)}) : std::nullopt;
}

std::optional<Octets> keptValidity(const TextParameters &now, std::uint8_t first) {
    const unsigned format = first & VALIDITY_FORMAT;
    if (format == (now.first & VALIDITY_FORMAT)) { return now.validity; }
    if (format == ENHANCED || format == ABSOLUTE) { return std::nullopt; }
    return now.validity.size() == 1 ? now.validity : TextParameters().validity;
}

} // namespace smspb::simmodem
