// The USSD command of TS 27.007, 7.15.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/network.h"

namespace smspb::simmodem {
namespace {

enum : unsigned { PRESENT_OFF = 0, PRESENT_ON = 1, CANCEL = 2 }; // <n>

Reply readUssd(Modem &modem, const Command &command) {
    return shown(command, std::to_string(modem.settings.ussdPresentation));
}

// Where the request leads: a reply to the menu that waits, or a code of its own.
const UssdAnswer *answerTo(Modem &modem, const std::string &request) {
    const std::string path = modem.ussd.path.empty() ? request : modem.ussd.path + "/" + request;
    const UssdAnswer *const answer = modem.ussd.script.find(path);
    const bool waits =
        answer != nullptr && answer->status == static_cast<unsigned>(UssdStatus::waits);
    modem.ussd.path = waits ? path : std::string();
    return answer;
}

UssdAnswer unknownCode() {
    UssdAnswer answer;
    answer.status = static_cast<unsigned>(UssdStatus::notSupported);
    answer.form = UssdAnswer::Form::none;
    return answer;
}

Reply request(Modem &modem, const std::string &text) {
    if (modem.ussd.coming) { return cmeError(CME_NOT_ALLOWED); } // one at a time
    const UssdAnswer *const answer = answerTo(modem, text);
    if (answer != nullptr && answer->form == UssdAnswer::Form::error) {
        return cmeError(answer->errorCode);
    }
    const UssdAnswer coming = answer != nullptr ? *answer : unknownCode();
    modem.ussd.coming = coming;
    if (coming.delay.count() > 0) {
        modem.ussdTimer.start(coming.delay, [&modem] { receiveUssd(modem); });
    } else {
        receiveUssd(modem);
    }
    return done();
}

std::string requestText(const std::u16string &units) {
    std::string text;
    for (const char16_t unit : units) { text += unit <= '~' ? static_cast<char>(unit) : '?'; }
    return text;
}

// 7.15: text in the terminal's character set, or hexadecimal where the coding scheme (TS 23.038, 5)
// says octets or UCS-2.
std::optional<std::u16string> unitsOf(const Settings &settings, const std::string &text,
                                      unsigned dcs) {
    static constexpr std::size_t DIGITS_OF_OCTET = 2, DIGITS_OF_UNIT = 4;
    static constexpr unsigned GENERAL = 1, OCTETS = 1, UCS2 = 2; // bits 7 and 6; bits 3 and 2
    const unsigned alphabet = dcs >> 6 == GENERAL ? dcs >> 2 & 3U : 0U;
    if (alphabet == OCTETS) { return fromHexUnits(text, DIGITS_OF_OCTET); }
    if (alphabet == UCS2) { return fromHexUnits(text, DIGITS_OF_UNIT); }
    return fromTerminal(settings.charset, text);
}

Reply setUssd(Modem &modem, const Command &command) {
    constexpr unsigned DCS_MAX = 255;
    constexpr unsigned DCS_DEFAULT = 15;
    const auto n = numberAt(command, 0, PRESENT_OFF, CANCEL, PRESENT_OFF);
    const auto dcs = numberAt(command, 2, 0, DCS_MAX, DCS_DEFAULT);
    if (!n || !dcs) { return badParameter(); }
    if (*n == CANCEL) {
        if (command.arguments.size() > 1) { return badParameter(); }
        modem.ussd.end();
        return done();
    }
    const auto text = stringAt(command, 1);
    const auto units = text ? unitsOf(modem.settings, *text, *dcs) : std::nullopt;
    const bool asks = command.arguments.size() > 1;
    if (asks && (!units || units->empty())) { return badParameter(); }
    modem.settings.ussdPresentation = *n;
    return asks ? request(modem, requestText(*units)) : done();
}

constexpr std::array USSD_ROWS{
    CommandRow{.name = "+CUSD",
               .arguments = 3,
               .needsSim = true,
               .ranges = "(0-2)",
               .read = readUssd,
               .set = setUssd},
};

} // namespace

std::span<const CommandRow> ussdCommands() { return USSD_ROWS; }

} // namespace smspb::simmodem
