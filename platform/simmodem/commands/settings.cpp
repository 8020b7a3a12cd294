// Commands whose values are kept and shown and change nothing here, where there is no serial line,
// no call and no fax; and some that have nothing to tell. Clients set them as they begin.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/text.h"

#include <algorithm>
#include <array>

namespace smspb::simmodem {
namespace {

struct KeptValue {
    std::string_view ranges; // "0-2,7"
    unsigned initial;
};

struct KeptSetting {
    std::string_view name;
    std::array<KeptValue, 2> values; // an empty range for one that there is not
};

constexpr std::string_view RATES = "0,300,600,1200,2400,4800,9600,19200,38400,57600,115200";

// V.250, 6.2.10 to 6.2.13; TS 27.007, 6.1, 6.11, 7.11, 8.40 and 8.41.
constexpr std::array<KeptSetting, 8> SETTINGS{
    {
     {"+IPR", {{{RATES, 0}, {{}, 0}}}},
     {"+ICF", {{{"0,3", 3}, {"0-3", 3}}}},
     {"+IFC", {{{"0-2", 2}, {"0-2", 2}}}},
     {"+ILRR", {{{"0,1", 0}, {{}, 0}}}},
     {"+CSTA", {{{"129,145", 129}, {{}, 0}}}},
     {"+CSSN", {{{"0,1", 0}, {"0,1", 0}}}},
     {"+CTZU", {{{"0,1", 0}, {{}, 0}}}},
     {"+CTZR", {{{"0,1", 0}, {{}, 0}}}},
     }
};

const KeptSetting &settingOf(const Command &command) {
    return *std::find_if(SETTINGS.begin(), SETTINGS.end(),
                         [&](const KeptSetting &each) { return each.name == command.name; });
}

std::size_t valueCount(const KeptSetting &setting) {
    return setting.values[1].ranges.empty() ? 1 : 2;
}

std::vector<unsigned> valuesOf(const Modem &modem, const KeptSetting &setting) {
    const auto kept = modem.settings.kept.find(std::string(setting.name));
    if (kept != modem.settings.kept.end()) { return kept->second; }
    return {setting.values[0].initial, setting.values[1].initial};
}

// Of "a-b" or "a".
bool isInSpan(std::string_view span, unsigned value) {
    const std::size_t dash = span.find('-');
    const auto low = parseNumber(span.substr(0, dash));
    const auto high = dash == std::string_view::npos ? low : parseNumber(span.substr(dash + 1));
    return low && high && value >= *low && value <= *high;
}

bool isInRanges(std::string_view ranges, unsigned value) {
    for (;;) {
        const std::size_t comma = ranges.find(',');
        if (isInSpan(ranges.substr(0, comma), value)) { return true; }
        if (comma == std::string_view::npos) { return false; }
        ranges.remove_prefix(comma + 1);
    }
}

Reply readKept(Modem &modem, const Command &command) {
    const KeptSetting &setting = settingOf(command);
    const std::vector<unsigned> values = valuesOf(modem, setting);
    std::string text;
    for (std::size_t i = 0; i < valueCount(setting); i++) {
        text += (i == 0 ? "" : ",") + std::to_string(values.at(i));
    }
    return shown(command, text);
}

Reply showKept(Modem & /*modem*/, const Command &command) {
    const KeptSetting &setting = settingOf(command);
    std::string text;
    for (std::size_t i = 0; i < valueCount(setting); i++) {
        text += (i == 0 ? "(" : ",(") + std::string(setting.values.at(i).ranges) + ")";
    }
    return shown(command, text);
}

// A value that is left out stays.
Reply setKept(Modem &modem, const Command &command) {
    static constexpr unsigned NUMBER_MAX = 1000000;
    const KeptSetting &setting = settingOf(command);
    std::vector<unsigned> values = valuesOf(modem, setting);
    if (command.arguments.size() > valueCount(setting)) { return badParameter(); }
    for (std::size_t i = 0; i < command.arguments.size(); i++) {
        const auto value = numberAt(command, i, 0, NUMBER_MAX, values.at(i));
        if (!value || !isInRanges(setting.values.at(i).ranges, *value)) { return badParameter(); }
        values.at(i) = *value;
    }
    modem.settings.kept.insert_or_assign(std::string(setting.name), std::move(values));
    return done();
}

// 5.9: the GSM radio alone, told without the command's name; the same way the service class of a
// modem without fax (T.31, 8.1).
constexpr std::string_view GSM_RADIO = "12", NO_FAX = "0";

Reply readRadio(Modem & /*modem*/, const Command & /*command*/) {
    return done(std::string(GSM_RADIO));
}
Reply listRadios(Modem & /*modem*/, const Command & /*command*/) {
    return done("(" + std::string(GSM_RADIO) + ")");
}
Reply setRadio(Modem & /*modem*/, const Command &command) {
    return numberAt(command, 0, 12, 12, 12) ? done() : badParameter();
}

Reply readFaxClass(Modem & /*modem*/, const Command & /*command*/) {
    return done(std::string(NO_FAX));
}
Reply listFaxClasses(Modem & /*modem*/, const Command & /*command*/) {
    return done(std::string(NO_FAX));
}
Reply setFaxClass(Modem & /*modem*/, const Command &command) {
    return numberAt(command, 0, 0, 0, 0) ? done() : badParameter();
}

// 7.11 and 7.12: neither is on for voice, data and fax (class 7), and only that can be chosen.
constexpr unsigned QUERY_SERVICE = 2, SERVICE_MODE_MAX = 4;

Reply serviceState(const Command &command, unsigned mode) {
    static constexpr unsigned DISABLE = 0, ERASE = 4;
    if (mode == QUERY_SERVICE) { return shown(command, "0,7"); }
    return mode == DISABLE || mode == ERASE ? done() : cmeError(CME_NOT_ALLOWED);
}

Reply setForwarding(Modem & /*modem*/, const Command &command) {
    static constexpr unsigned REASON_MAX = 5;
    const auto reason = numberAt(command, 0, 0, REASON_MAX);
    const auto mode = numberAt(command, 1, 0, SERVICE_MODE_MAX);
    return reason && mode ? serviceState(command, *mode) : badParameter();
}

Reply readWaiting(Modem &modem, const Command &command) {
    return shown(command, modem.settings.showsWaitingCalls ? "1" : "0");
}

Reply setWaiting(Modem &modem, const Command &command) {
    const auto shows = numberAt(command, 0, 0, 1, modem.settings.showsWaitingCalls ? 1 : 0);
    const auto mode = numberAt(command, 1, 0, QUERY_SERVICE, 0);
    if (!shows || !mode) { return badParameter(); }
    modem.settings.showsWaitingCalls = *shows == 1;
    return isOmitted(command, 1) ? done() : serviceState(command, *mode);
}

// 10.1.1: described, though no packet goes.
constexpr std::array<std::string_view, 2> PACKET_TYPES = {"IP", "IPV6"};

Reply readContexts(Modem &modem, const Command &command) {
    std::string lines;
    for (std::size_t i = 0; i < modem.contexts.size(); i++) {
        const PacketContext &context = modem.contexts.at(i);
        if (context.type.empty()) { continue; }
        lines += (lines.empty() ? "" : "\n") + command.name + ": " + std::to_string(i + 1) + "," +
                 inQuotes(context.type) + "," + inQuotes(context.accessPoint) + ",\"\",0,0";
    }
    return done(std::move(lines));
}

// The number alone takes the context away.
Reply setContext(Modem &modem, const Command &command) {
    const auto id = numberAt(command, 0, 1, static_cast<unsigned>(modem.contexts.size()));
    const auto type = stringAt(command, 1);
    const bool removes = command.arguments.size() == 1;
    const bool isKnown =
        std::find(PACKET_TYPES.begin(), PACKET_TYPES.end(), type) != PACKET_TYPES.end();
    const bool isText = isOmitted(command, 2) || stringAt(command, 2);
    if (!id || !(removes || isKnown) || !isText) { return badParameter(); }
    modem.contexts.at(*id - 1) = {type.value_or(""), stringAt(command, 2).value_or("")};
    return done();
}

Reply listContexts(Modem &modem, const Command &command) {
    std::string lines;
    for (const std::string_view type : PACKET_TYPES) {
        lines += (lines.empty() ? "" : "\n") + command.name + ": (1-" +
                 std::to_string(modem.contexts.size()) + ")," + inQuotes(type) + ",,,(0),(0)";
    }
    return done(std::move(lines));
}

// 7.18 and 6.5: there is no call to list or to end.
Reply nothing(Modem & /*modem*/, const Command & /*command*/) { return done(); }

// clang-format off
constexpr CommandRow kept(std::string_view name) {
    return {.name = name, .arguments = 2, .read = readKept, .set = setKept, .test = showKept};
}

constexpr std::array SETTING_ROWS{
    kept("+IPR"), kept("+ICF"), kept("+IFC"), kept("+ILRR"),
    kept("+CSTA"), kept("+CSSN"), kept("+CTZU"), kept("+CTZR"),
    CommandRow{.name = "+WS46", .arguments = 1, .read = readRadio, .set = setRadio, .test = listRadios},
    CommandRow{.name = "+FCLASS", .arguments = 1, .read = readFaxClass, .set = setFaxClass, .test = listFaxClasses},
    CommandRow{.name = "+CCFC", .arguments = 8, .needsSim = true, .ranges = "(0-5)", .set = setForwarding},
    CommandRow{.name = "+CCWA", .arguments = 3, .needsSim = true, .ranges = "(0,1)",
               .read = readWaiting, .set = setWaiting},
    CommandRow{.name = "+CGDCONT", .arguments = 6, .read = readContexts, .set = setContext, .test = listContexts},
    CommandRow{.name = "+CLCC", .execute = nothing},
    CommandRow{.name = "+CHUP", .execute = nothing},
};
// clang-format on

} // namespace

std::span<const CommandRow> settingCommands() { return SETTING_ROWS; }

} // namespace smspb::simmodem
