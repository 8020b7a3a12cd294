#include "platform/simmodem/commands/terminal_number.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/text.h"

namespace smspb::simmodem {
namespace {

constexpr unsigned TYPE_LOWEST = 128, TYPE_HIGHEST = 255; // bit 7 is always set

std::optional<std::string> numberFromTerminal(const Settings &settings, std::string_view text) {
    const auto units = fromTerminal(settings.charset, text);
    if (!units) { return std::nullopt; }
    std::string number;
    for (const char16_t unit : *units) { number += unit <= '~' ? static_cast<char>(unit) : '?'; }
    return number;
}

} // namespace

std::string quotedText(const Settings &settings, std::u16string_view text) {
    return inQuotes(toTerminal(settings.charset, text));
}

std::string quotedNumber(const Settings &settings, std::string_view number) {
    const unsigned type = number.starts_with('+') ? TYPE_OF_INTERNATIONAL : TYPE_OF_NATIONAL;
    return quotedText(settings, std::u16string(number.begin(), number.end())) + "," +
           std::to_string(type);
}

std::optional<std::string> dialledNumber(const Modem &modem, const Command &command,
                                         std::size_t index) {
    const auto text = stringAt(command, index);
    auto number = text ? numberFromTerminal(modem.settings, *text) : std::nullopt;
    const auto type = numberAt(command, index + 1, TYPE_LOWEST, TYPE_HIGHEST, TYPE_OF_NATIONAL);
    if (!number || !isNumber(*number) || !type) { return std::nullopt; }
    if (isInternational(static_cast<std::uint8_t>(*type)) && !number->starts_with('+')) {
        number->insert(0, "+");
    }
    return number;
}

std::optional<Octets> dialledAddress(const Modem &modem, const Command &command,
                                     std::size_t index) {
    const auto number = dialledNumber(modem, command, index);
    if (!number) { return std::nullopt; }
    Octets field = addressField(*number);
    if (!isOmitted(command, index + 1)) {
        field.at(1) =
            static_cast<std::uint8_t>(*numberAt(command, index + 1, TYPE_LOWEST, TYPE_HIGHEST));
    }
    return field;
}

} // namespace smspb::simmodem
