// The commands of TS 27.007 about the radio and the network: registration, operator, signal,
// callers.
#include "command_table.h"

#include "network.h"
#include "text.h"

#include <array>

namespace smspb::simmodem {
namespace {

constexpr unsigned FORMAT_NUMERIC = 2; // +COPS <format>
constexpr std::array<std::string_view, 3> OPERATOR_NAMES = {"smspb test network", "smspb", "00101"};
constexpr unsigned RADIO_OFF = 4; // +CFUN <fun>, 0 being the least and 1 everything

// 7.2 of TS 27.007: in the home network, or not and not searching.
std::string registration(const Modem &modem, unsigned reports) {
    static constexpr unsigned WITH_CELL = 2;
    if (!modem.isRegistered()) { return std::to_string(reports) + ",0"; }
    return std::to_string(reports) + ",1" + (reports == WITH_CELL ? R"(,"00C3","000012AB")" : "");
}

Reply readRegistration(Modem &modem, const Command &command) {
    return shown(command, registration(modem, modem.settings.registrationReports));
}

Reply readPacketRegistration(Modem &modem, const Command &command) {
    return shown(command, registration(modem, modem.settings.packetReports));
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

Reply readOperator(Modem &modem, const Command &command) {
    if (!modem.isRegistered()) { return shown(command, "0"); }
    const unsigned format = modem.settings.operatorFormat;
    return shown(command,
                 "0," + std::to_string(format) + "," + inQuotes(OPERATOR_NAMES.at(format)));
}

// There is one network, so only how it is called can be chosen.
Reply setOperator(Modem &modem, const Command &command) {
    static constexpr unsigned MODE_MANUAL_OR_AUTOMATIC = 4;
    const auto mode = numberAt(command, 0, 0, MODE_MANUAL_OR_AUTOMATIC, 0);
    const auto format = numberAt(command, 1, 0, FORMAT_NUMERIC, modem.settings.operatorFormat);
    if (!mode || !format) { return badParameter(); }
    modem.settings.operatorFormat = *format;
    return done();
}

Reply listOperators(Modem & /*modem*/, const Command &command) {
    std::string names;
    for (const std::string_view name : OPERATOR_NAMES) { names += "," + inQuotes(name); }
    return shown(command, "(2" + names + "),,(0-4),(0-2)");
}

Reply readAttachment(Modem &modem, const Command &command) {
    return shown(command, modem.isRegistered() && modem.isAttached ? "1" : "0");
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

Reply setCallerNumber(Modem &modem, const Command &command) {
    const auto shows = numberAt(command, 0, 0, 1, 0);
    if (!shows) { return badParameter(); }
    modem.settings.callerNumber = *shows == 1;
    return done();
}

// clang-format off
constexpr std::array NETWORK_ROWS{
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
