// The commands of TS 27.007: identification, SIM, network, character set, and the faults.
#include "command_table.h"

#include "text.h"

#include <algorithm>
#include <array>

namespace smspb::simmodem {
namespace {

constexpr std::array<std::string_view, 3> CHARSETS = {"IRA", "GSM", "UCS2"};

Reply manufacturer(Modem & /*modem*/, const Command & /*command*/) { return done("smspb"); }
Reply model(Modem & /*modem*/, const Command & /*command*/) { return done("simulated modem"); }
Reply revision(Modem & /*modem*/, const Command & /*command*/) { return done(SMSPB_VERSION); }

// TS 23.003, 6.2.1 and 2.2: an IMEI with its check digit, an IMSI of the test network 001 01.
Reply serialNumber(Modem & /*modem*/, const Command & /*command*/) {
    return done("490154203237518");
}
Reply subscriber(Modem & /*modem*/, const Command & /*command*/) { return done("001010123456789"); }

Reply capabilities(Modem & /*modem*/, const Command &command) { return shown(command, "+CGSM"); }

Reply ownNumber(Modem &modem, const Command &command) {
    const bool international = modem.number.starts_with('+');
    return shown(command, "," + inQuotes(modem.number) + (international ? ",145" : ",129"));
}

Reply listCommands(Modem & /*modem*/, const Command & /*command*/) {
    std::string names;
    for (const auto table : commandTables()) {
        for (const CommandRow &row : table) {
            names += (names.empty() ? "AT" : "\nAT") + std::string(row.name);
        }
    }
    return done(std::move(names));
}

Reply readErrorReports(Modem &modem, const Command &command) {
    return shown(command, std::to_string(static_cast<unsigned>(modem.settings.errorReports)));
}

Reply setErrorReports(Modem &modem, const Command &command) {
    const auto value = numberAt(command, 0, 0, 2, 0);
    if (!value) { return badParameter(); }
    modem.settings.errorReports = static_cast<ErrorReports>(*value);
    return done();
}

Reply readCharset(Modem &modem, const Command &command) {
    return shown(command, inQuotes(modem.settings.charset));
}

Reply setCharset(Modem &modem, const Command &command) {
    const auto name = stringAt(command, 0);
    if (!name || std::find(CHARSETS.begin(), CHARSETS.end(), *name) == CHARSETS.end()) {
        return badParameter();
    }
    modem.settings.charset = *name;
    return done();
}

Reply readRegistration(Modem &modem, const Command &command) {
    static constexpr unsigned WITH_CELL = 2;
    const unsigned reports = modem.settings.registrationReports;
    const std::string cell = reports == WITH_CELL ? R"(,"00C3","000012AB")" : "";
    return shown(command, std::to_string(reports) + ",1" + cell); // registered, home network
}

Reply setRegistration(Modem &modem, const Command &command) {
    const auto reports = numberAt(command, 0, 0, 2, 0);
    if (!reports) { return badParameter(); }
    modem.settings.registrationReports = *reports;
    return done();
}

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

Reply signalQuality(Modem & /*modem*/, const Command &command) { return shown(command, "21,99"); }

Reply readPin(Modem & /*modem*/, const Command &command) { return shown(command, "READY"); }

// No PIN is asked for, so none can be given.
Reply setPin(Modem & /*modem*/, const Command & /*command*/) { return cmeError(CME_NOT_ALLOWED); }

Reply clearFaults(Modem &modem, const Command & /*command*/) {
    modem.faults.clear();
    return done();
}

Reply readFaults(Modem &modem, const Command &command) {
    std::string lines;
    for (const std::string &line : modem.faults.describe()) {
        lines += (lines.empty() ? "" : "\n") + command.name + ": " + line;
    }
    return done(std::move(lines));
}

Reply addFault(Modem &modem, const Command &command) {
    const auto text = stringAt(command, 0);
    return text && modem.faults.add(*text).empty() ? done() : badParameter();
}

// clang-format off
constexpr std::array EQUIPMENT_ROWS{
    CommandRow{.name = "+CGMI", .execute = manufacturer},
    CommandRow{.name = "+CGMM", .execute = model},
    CommandRow{.name = "+CGMR", .execute = revision},
    CommandRow{.name = "+CGSN", .execute = serialNumber},
    CommandRow{.name = "+GMI",  .execute = manufacturer},
    CommandRow{.name = "+GMM",  .execute = model},
    CommandRow{.name = "+GMR",  .execute = revision},
    CommandRow{.name = "+GSN",  .execute = serialNumber},
    CommandRow{.name = "+GCAP", .execute = capabilities},
    CommandRow{.name = "+CIMI", .needsSim = true, .execute = subscriber},
    CommandRow{.name = "+CNUM", .needsSim = true, .execute = ownNumber},
    CommandRow{.name = "+CLAC", .execute = listCommands},
    CommandRow{.name = "+CMEE", .arguments = 1, .ranges = "(0-2)",
               .read = readErrorReports, .set = setErrorReports},
    CommandRow{.name = "+CSCS", .arguments = 1, .ranges = R"(("IRA","GSM","UCS2"))",
               .read = readCharset, .set = setCharset},
    CommandRow{.name = "+CREG", .arguments = 1, .ranges = "(0-2)",
               .read = readRegistration, .set = setRegistration},
    CommandRow{.name = "+CLIP", .arguments = 1, .ranges = "(0,1)",
               .read = readCallerNumber, .set = setCallerNumber},
    CommandRow{.name = "+CSQ",  .ranges = "(0-31,99),(0-7,99)", .execute = signalQuality},
    CommandRow{.name = "+CPIN", .arguments = 2, .needsSim = true, .read = readPin, .set = setPin},
    CommandRow{.name = FAULT_COMMAND, .arguments = 1,
               .execute = clearFaults, .read = readFaults, .set = addFault},
};
// clang-format on

} // namespace

std::span<const CommandRow> equipmentCommands() { return EQUIPMENT_ROWS; }

} // namespace smspb::simmodem
