// The commands of TS 27.007 about the radio and the network: registration, operator, signal,
// callers.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/text.h"

#include <array>

namespace smspb::simmodem {
namespace {

constexpr unsigned FORMAT_NUMERIC = 2; // +COPS <format>
enum : unsigned {                      // +COPS <mode>
    MODE_AUTOMATIC = 0,
    MODE_MANUAL = 1,
    MODE_FORMAT = 3,
    MODE_MANUAL_OR_AUTOMATIC = 4
};
// By <format>: at most 16 characters, 8, and the numbers of country and network.
constexpr std::array<std::string_view, 3> OPERATOR_NAMES = {"smspb network", "smspb", "00101"};
constexpr unsigned RADIO_OFF = 4; // +CFUN <fun>, 0 being the least and 1 everything

std::string registration(bool isRegistered, unsigned reports) {
    return std::to_string(reports) + "," + registrationState(isRegistered, reports);
}

Reply readRegistration(Modem &modem, const Command &command) {
    return shown(command, registration(modem.isRegistered(), modem.settings.registrationReports));
}

Reply readPacketRegistration(Modem &modem, const Command &command) {
    return shown(command, registration(modem.isPacketRegistered(), modem.settings.packetReports));
}

Reply setReports(unsigned &reports, const Command &command) {
    const auto value = numberAt(command, 0, 0, 2, 0);
    if (!value) { return badParameter(); }
    reports = *value;
    return done();
}

Reply setRegistration(Modem &modem, const Command &command) {
    return setReports(modem.settings.registrationReports, command);
}

Reply setPacketRegistration(Modem &modem, const Command &command) {
    return setReports(modem.settings.packetReports, command);
}

// Names are text in the terminal's character set, the number is digits in any.
std::string operatorName(const Modem &modem, unsigned format) {
    const std::string_view name = OPERATOR_NAMES.at(format);
    if (format == FORMAT_NUMERIC) { return inQuotes(name); }
    return inQuotes(toTerminal(modem.settings.charset, std::u16string(name.begin(), name.end())));
}

Reply readOperator(Modem &modem, const Command &command) {
    const std::string mode = std::to_string(modem.operatorMode);
    if (!modem.isRegistered()) { return shown(command, mode); }
    const unsigned format = modem.settings.operatorFormat;
    return shown(command, mode + "," + std::to_string(format) + "," + operatorName(modem, format));
}

// There is one network; its number may be written in the terminal's character set, too.
bool isTheOperator(const Modem &modem, const Command &command, unsigned format) {
    const auto text = stringAt(command, 2);
    const auto units = text ? fromTerminal(modem.settings.charset, *text) : std::nullopt;
    const std::string_view name = OPERATOR_NAMES.at(format);
    const std::u16string wanted(name.begin(), name.end());
    return units == wanted || (format == FORMAT_NUMERIC && text == name);
}

// <mode> 1 and 4 name the network, which must be there; <AcT> is GSM.
Reply selectOperator(Modem &modem, const Command &command, unsigned mode, unsigned format) {
    static constexpr unsigned ACCESS_MAX = 7, ACCESS_GSM = 0;
    const auto access = numberAt(command, 3, 0, ACCESS_MAX, ACCESS_GSM);
    const bool isNamed = mode == MODE_MANUAL || mode == MODE_MANUAL_OR_AUTOMATIC;
    if (!access || (isNamed && !stringAt(command, 2))) { return badParameter(); }
    const bool isThere = isTheOperator(modem, command, format) && *access == ACCESS_GSM;
    if (mode == MODE_MANUAL && !isThere) { return cmeError(CME_NO_NETWORK); }
    modem.operatorMode = isNamed && !isThere ? unsigned{MODE_AUTOMATIC} : mode;
    receivePending(modem);
    return done();
}

Reply setOperator(Modem &modem, const Command &command) {
    const auto mode = numberAt(command, 0, 0, MODE_MANUAL_OR_AUTOMATIC, MODE_AUTOMATIC);
    const auto format = numberAt(command, 1, 0, FORMAT_NUMERIC, modem.settings.operatorFormat);
    if (!mode || !format) { return badParameter(); }
    const Reply reply =
        *mode == MODE_FORMAT ? done() : selectOperator(modem, command, *mode, *format);
    if (reply.result.kind == Result::Kind::ok) { modem.settings.operatorFormat = *format; }
    return reply;
}

// 7.3: <stat> 2 is the one in use, <AcT> 0 GSM.
Reply listOperators(Modem &modem, const Command &command) {
    std::string names;
    for (unsigned format = 0; format < OPERATOR_NAMES.size(); format++) {
        names += "," + operatorName(modem, format);
    }
    return shown(command, (modem.isRegistered() ? "(2" : "(1") + names + ",0),,(0-4),(0-2)");
}

Reply readAttachment(Modem &modem, const Command &command) {
    return shown(command, modem.isPacketRegistered() ? "1" : "0");
}

Reply setAttachment(Modem &modem, const Command &command) {
    const auto attached = numberAt(command, 0, 0, 1, 0);
    if (!attached) { return badParameter(); }
    modem.isAttached = *attached == 1;
    return done();
}

Reply readFunctionality(Modem &modem, const Command &command) {
    return shown(command, std::to_string(modem.functionality));
}

// What the network has waits until the radio is on again. A reset forgets the settings.
Reply setFunctionality(Modem &modem, const Command &command) {
    const auto level = numberAt(command, 0, 0, RADIO_OFF, 1);
    const auto reset = numberAt(command, 1, 0, 1, 0);
    const bool known = level && (*level <= 1 || *level == RADIO_OFF);
    if (!known || !reset) { return badParameter(); }
    if (*reset == 1) { modem.restart(); }
    modem.functionality = *level;
    receivePending(modem);
    return done();
}

Reply signalQuality(Modem &modem, const Command &command) {
    return shown(command, modem.isRegistered() ? "21,99" : "99,99");
}

Reply activity(Modem & /*modem*/, const Command &command) { return shown(command, "0"); }

// Shown, and provisioned by the network.
Reply readCallerNumber(Modem &modem, const Command &command) {
    return shown(command, modem.settings.callerNumber ? "1,1" : "0,1");
}

Reply setFlag(bool &flag, const Command &command) {
    const auto value = numberAt(command, 0, 0, 1, 0);
    if (!value) { return badParameter(); }
    flag = *value == 1;
    return done();
}

Reply setCallerNumber(Modem &modem, const Command &command) {
    return setFlag(modem.settings.callerNumber, command);
}

Reply readExtendedRing(Modem &modem, const Command &command) {
    return shown(command, modem.settings.extendedRing ? "1" : "0");
}

Reply setExtendedRing(Modem &modem, const Command &command) {
    return setFlag(modem.settings.extendedRing, command);
}

// clang-format off
constexpr std::array NETWORK_ROWS{
    CommandRow{.name = "+CRC", .arguments = 1, .ranges = "(0,1)",
               .read = readExtendedRing, .set = setExtendedRing},
    CommandRow{.name = "+CFUN", .arguments = 2, .ranges = "(0,1,4),(0,1)",
               .read = readFunctionality, .set = setFunctionality},
    CommandRow{.name = "+CREG", .arguments = 1, .ranges = "(0-2)",
               .read = readRegistration, .set = setRegistration},
    CommandRow{.name = "+CGREG", .arguments = 1, .ranges = "(0-2)",
               .read = readPacketRegistration, .set = setPacketRegistration},
    CommandRow{.name = "+CGATT", .arguments = 1, .ranges = "(0,1)",
               .read = readAttachment, .set = setAttachment},
    CommandRow{.name = "+COPS", .arguments = 4, .needsSim = true,
               .read = readOperator, .set = setOperator, .test = listOperators},
    CommandRow{.name = "+CSQ",  .ranges = "(0-31,99),(0-7,99)", .execute = signalQuality},
    CommandRow{.name = "+CPAS", .ranges = "(0,3,4)", .execute = activity},
    CommandRow{.name = "+CLIP", .arguments = 1, .ranges = "(0,1)",
               .read = readCallerNumber, .set = setCallerNumber},
};
// clang-format on

} // namespace

std::span<const CommandRow> networkCommands() { return NETWORK_ROWS; }

} // namespace smspb::simmodem
