// The commands of TS 27.005 that set how messages are sent, shown and received.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/commands/terminal_number.h"
#include "platform/simmodem/commands/text_entry.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/text.h"

#include <array>

namespace smspb::simmodem {
namespace {

Reply readFormat(Modem &modem, const Command &command) {
    return shown(command, modem.settings.textMode ? "1" : "0");
}

Reply setFormat(Modem &modem, const Command &command) {
    const auto format = numberAt(command, 0, 0, 1, 0);
    if (!format) { return badParameter(); }
    modem.settings.textMode = *format == 1;
    return done();
}

// 3.2.1: messages, both ways, and cell broadcast are supported whatever the service.
Reply readService(Modem &modem, const Command &command) {
    return shown(command, joined({modem.settings.acknowledges ? "1" : "0", "1,1,1"}));
}

Reply setService(Modem &modem, const Command &command) {
    const auto service = numberAt(command, 0, 0, 1);
    if (!service) { return badParameter(); }
    modem.settings.acknowledges = *service == 1;
    receivePending(modem);
    return shown(command, "1,1,1");
}

Reply readServiceCentre(Modem &modem, const Command &command) {
    return shown(command, quotedNumber(modem.settings, modem.serviceCentre));
}

// An empty string takes the address away.
Reply setServiceCentre(Modem &modem, const Command &command) {
    const bool empty = stringAt(command, 0) == "";
    const auto number = empty ? std::string() : dialledNumber(modem, command, 0);
    if (!number) { return badParameter(); }
    modem.serviceCentre = *number;
    return done();
}

Reply readIndications(Modem &modem, const Command &command) {
    const IndicationSettings &now = modem.settings.indications;
    return shown(command,
                 joined({std::to_string(now.mode), std::to_string(now.mt), std::to_string(now.bm),
                         std::to_string(now.ds), std::to_string(now.bfr)}));
}

// A value that is left out stays.
Reply setIndications(Modem &modem, const Command &command) {
    const IndicationSettings &now = modem.settings.indications;
    const auto mode = numberAt(command, 0, 0, 3, now.mode);
    const auto mt = numberAt(command, 1, 0, 3, now.mt);
    const auto bm = numberAt(command, 2, 0, 3, now.bm);
    const auto ds = numberAt(command, 3, 0, 2, now.ds);
    const auto bfr = numberAt(command, 4, 0, 1, now.bfr);
    const bool storesPages = bm && *bm % 2 == 1; // 1 and 3, and there is no storage for them
    if (!mode || !mt || !bm || storesPages || !ds || !bfr) { return badParameter(); }
    modem.settings.indications = {*mode, *mt, *bm, *ds, *bfr};
    releaseHeld(modem);
    receivePending(modem);
    return done();
}

Reply readBroadcasts(Modem &modem, const Command &command) {
    const BroadcastSettings &now = modem.settings.broadcasts;
    return shown(command, joined({std::to_string(now.mode), inQuotes(now.identifiers),
                                  inQuotes(now.codings)}));
}

Reply setBroadcasts(Modem &modem, const Command &command) {
    const auto mode = numberAt(command, 0, 0, 1, 0);
    const bool strings = (isOmitted(command, 1) || command.arguments[1].isString) &&
                         (isOmitted(command, 2) || command.arguments[2].isString);
    if (!mode || !strings) { return badParameter(); }
    modem.settings.broadcasts = {*mode, stringAt(command, 1).value_or(""),
                                 stringAt(command, 2).value_or("")};
    return done();
}

// 3.5.6: whether the link to the network is kept between messages, which makes no difference here.
Reply readMoreMessages(Modem &modem, const Command &command) {
    return shown(command, std::to_string(modem.settings.moreMessages));
}

Reply setMoreMessages(Modem &modem, const Command &command) {
    const auto keeps = numberAt(command, 0, 0, 2, 0);
    if (!keeps) { return badParameter(); }
    modem.settings.moreMessages = *keeps;
    return done();
}

Reply readTextParameters(Modem &modem, const Command &command) {
    const TextParameters &now = modem.settings.textParameters;
    return shown(command, joined({std::to_string(now.first), validityText(now),
                                  std::to_string(now.pid), std::to_string(now.dcs)}));
}

std::optional<Octets> chosenValidity(const TextParameters &now, const Command &command,
                                     std::uint8_t first) {
    if (isOmitted(command, 1)) { return keptValidity(now, first); }
    const Argument &value = command.arguments[1];
    return validityFrom(first, value.text, value.isString);
}

// A value that is left out stays. What is entered becomes a SUBMIT, so <fo> says that it is one.
Reply setTextParameters(Modem &modem, const Command &command) {
    static constexpr unsigned OCTET_MAX = 255;
    static constexpr unsigned TYPE = 0x03, SUBMIT = 0x01; // TS 23.040, 9.2.3.1
    const TextParameters &now = modem.settings.textParameters;
    const auto first = numberAt(command, 0, 0, OCTET_MAX, now.first);
    const auto pid = numberAt(command, 2, 0, OCTET_MAX, now.pid);
    const auto dcs = numberAt(command, 3, 0, OCTET_MAX, now.dcs);
    if (!first || (*first & TYPE) != SUBMIT || !pid || !dcs) { return badParameter(); }
    const auto firstOctet = static_cast<std::uint8_t>(*first);
    auto validity = chosenValidity(now, command, firstOctet);
    if (!validity) { return badParameter(); }
    modem.settings.textParameters = {firstOctet, std::move(*validity),
                                     static_cast<std::uint8_t>(*pid),
                                     static_cast<std::uint8_t>(*dcs)};
    return done();
}

Reply readTextDetails(Modem &modem, const Command &command) {
    return shown(command, modem.settings.showsTextDetails ? "1" : "0");
}

Reply setTextDetails(Modem &modem, const Command &command) {
    const auto shows = numberAt(command, 0, 0, 1, 0);
    if (!shows) { return badParameter(); }
    modem.settings.showsTextDetails = *shows == 1;
    return done();
}

constexpr unsigned PROFILE_HIGHEST = 1;

// 3.3.5 and 3.3.6: service centre, text parameters and broadcast settings, kept in two profiles.
Reply saveSettings(Modem &modem, const Command &command) {
    const auto profile = numberAt(command, 0, 0, PROFILE_HIGHEST, 0);
    if (!profile) { return badParameter(); }
    modem.messageProfiles.at(*profile) = {modem.serviceCentre, modem.settings.textParameters,
                                          modem.settings.broadcasts};
    return done();
}

Reply restoreSettings(Modem &modem, const Command &command) {
    const auto profile = numberAt(command, 0, 0, PROFILE_HIGHEST, 0);
    if (!profile) { return badParameter(); }
    const MessageProfile &saved = modem.messageProfiles.at(*profile);
    modem.serviceCentre = saved.serviceCentre;
    modem.settings.textParameters = saved.textParameters;
    modem.settings.broadcasts = saved.broadcasts;
    return done();
}

// clang-format off
constexpr std::array MESSAGE_ROWS{
    CommandRow{.name = "+CSMS", .family = Family::message, .arguments = 1, .ranges = "(0,1)",
               .read = readService, .set = setService},
    CommandRow{.name = "+CMGF", .family = Family::message, .arguments = 1, .ranges = "(0,1)",
               .read = readFormat, .set = setFormat},
    CommandRow{.name = "+CSCA", .family = Family::message, .arguments = 2, .needsSim = true,
               .read = readServiceCentre, .set = setServiceCentre},
    CommandRow{.name = "+CNMI", .family = Family::message, .arguments = 5,
               .ranges = "(0-3),(0-3),(0,2),(0-2),(0,1)",
               .read = readIndications, .set = setIndications},
    CommandRow{.name = "+CSCB", .family = Family::message, .arguments = 3, .ranges = "(0,1)",
               .read = readBroadcasts, .set = setBroadcasts},
    CommandRow{.name = "+CMMS", .family = Family::message, .arguments = 1, .ranges = "(0-2)",
               .read = readMoreMessages, .set = setMoreMessages},
    CommandRow{.name = "+CSMP", .family = Family::message, .arguments = 4,
               .read = readTextParameters, .set = setTextParameters},
    CommandRow{.name = "+CSDH", .family = Family::message, .arguments = 1, .ranges = "(0,1)",
               .read = readTextDetails, .set = setTextDetails},
    CommandRow{.name = "+CSAS", .family = Family::message, .arguments = 1, .ranges = "(0,1)",
               .execute = saveSettings, .set = saveSettings},
    CommandRow{.name = "+CRES", .family = Family::message, .arguments = 1, .ranges = "(0,1)",
               .execute = restoreSettings, .set = restoreSettings},
};
// clang-format on

} // namespace

std::span<const CommandRow> messageCommands() { return MESSAGE_ROWS; }

} // namespace smspb::simmodem
