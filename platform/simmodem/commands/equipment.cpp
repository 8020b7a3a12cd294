// The commands of TS 27.007 about the equipment: identification, SIM, character set, clock,
// battery, and the faults.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace smspb::simmodem {
namespace {

Reply manufacturer(Modem & /*modem*/, const Command & /*command*/) { return done("smspb"); }
Reply model(Modem & /*modem*/, const Command & /*command*/) { return done("simulated modem"); }
Reply revision(Modem & /*modem*/, const Command & /*command*/) { return done(SMSPB_VERSION); }

// TS 23.003, 6.2.1 and 2.2: an IMEI with its check digit, an IMSI of the test network 001 01.
Reply serialNumber(Modem & /*modem*/, const Command & /*command*/) {
    return done("490154203237518");
}
Reply subscriber(Modem & /*modem*/, const Command & /*command*/) { return done("001010123456789"); }

Reply capabilities(Modem & /*modem*/, const Command &command) { return shown(command, "+CGSM"); }

// 7.1: the entries of the phonebook "ON".
Reply ownNumber(Modem &modem, const Command &command) {
    const auto book = std::find_if(modem.phonebooks.begin(), modem.phonebooks.end(),
                                   [](const Phonebook &each) { return each.name() == "ON"; });
    std::string lines;
    for (std::size_t i = 1; i <= book->size(); i++) {
        const Contact *const contact = book->find(i);
        if (contact == nullptr) { continue; }
        const std::string name = toTerminal(modem.settings.charset, contact->name);
        lines += (lines.empty() ? "" : "\n") + command.name + ": " +
                 (name.empty() ? "" : inQuotes(name)) + "," + inQuotes(contact->number) + "," +
                 std::to_string(contact->type);
    }
    return done(std::move(lines));
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

Reply listCharsets(Modem &modem, const Command &command) {
    return shown(command, listOf(modem.charsets));
}

Reply setCharset(Modem &modem, const Command &command) {
    const auto name = stringAt(command, 0);
    if (!name || !modem.offers(*name)) { return badParameter(); }
    modem.settings.charset = *name;
    return done();
}

Reply readPin(Modem & /*modem*/, const Command &command) { return shown(command, "READY"); }

// No PIN is asked for, so none can be given.
Reply setPin(Modem & /*modem*/, const Command & /*command*/) { return cmeError(CME_NOT_ALLOWED); }

// 7.4: the SIM's PIN, fixed dialling, the network's lock and the barrings of calls. None is on, and
// that cannot be changed.
constexpr std::array<std::string_view, 8> FACILITIES = {"SC", "FD", "PN", "AO",
                                                        "OI", "OX", "AI", "IR"};

Reply listLocks(Modem & /*modem*/, const Command &command) {
    return shown(command, listOf(FACILITIES));
}

Reply queryLock(Modem & /*modem*/, const Command &command) {
    static constexpr unsigned QUERY = 2;
    const auto mode = numberAt(command, 1, 0, QUERY);
    const auto facility = stringAt(command, 0);
    if (std::find(FACILITIES.begin(), FACILITIES.end(), facility) == FACILITIES.end() || !mode) {
        return badParameter();
    }
    return *mode == QUERY ? shown(command, "0") : cmeError(CME_NOT_ALLOWED);
}

// TS 31.102, 4.2, by their identifiers.
struct SimFile {
    unsigned identifier;
    std::string_view octets; // in hexadecimal
};
constexpr std::array<SimFile, 4> SIM_FILES{
    {
     {0x2FE2, "98000101000000000081"}, // ICCID
 {0x6F07, "080910101032547698"}, // the IMSI of +CIMI
 {0x6F46, "01736D737062FFFFFFFFFFFFFFFFFFFFFF"},                                      // service provider: "smspb"
                                      {0x6FAD, "00000002"}, // the network's number has two digits
    }
};

// 8.18: <sw1>,<sw2> as TS 102 221, 10.2.1, has them.
constexpr std::string_view SIM_DONE = "144,0,", SIM_NO_FILE = "106,130", SIM_BAD_OFFSET = "107,0",
                           SIM_NO_COMMAND = "109,0";

// READ BINARY alone; <P1> and <P2> are the offset, <P3> the octets wanted, 0 for all.
Reply accessSim(Modem & /*modem*/, const Command &command) {
    static constexpr unsigned READ_BINARY = 176, OCTET_MAX = 255, FILE_MAX = 0xFFFF;
    const auto instruction = numberAt(command, 0, 0, OCTET_MAX);
    const auto identifier = numberAt(command, 1, 0, FILE_MAX, 0);
    const auto high = numberAt(command, 2, 0, OCTET_MAX, 0);
    const auto low = numberAt(command, 3, 0, OCTET_MAX, 0);
    const auto count = numberAt(command, 4, 0, OCTET_MAX, 0);
    if (!instruction || !identifier || !high || !low || !count) { return badParameter(); }
    if (*instruction != READ_BINARY) { return shown(command, SIM_NO_COMMAND); }
    const auto file = std::find_if(SIM_FILES.begin(), SIM_FILES.end(), [&](const SimFile &each) {
        return each.identifier == *identifier;
    });
    if (file == SIM_FILES.end()) { return shown(command, SIM_NO_FILE); }
    const std::size_t from = 2 * (*high * std::size_t{256} + *low);
    if (from >= file->octets.size()) { return shown(command, SIM_BAD_OFFSET); }
    const std::size_t digits = *count == 0 ? std::string_view::npos : 2 * std::size_t{*count};
    return shown(command, std::string(SIM_DONE) + inQuotes(file->octets.substr(from, digits)));
}

// No password is asked for, so none can be changed.
Reply setPassword(Modem & /*modem*/, const Command & /*command*/) {
    return cmeError(CME_NOT_ALLOWED);
}

// 8.3: "yy/MM/dd,hh:mm:ss+zz", zz in quarter hours from UTC.
Reply readClock(Modem &modem, const Command &command) {
    const NetworkTime now = NetworkTime::local(modem.clock.wallSeconds() + modem.clockAhead);
    std::array<char, 32> text{};
    const std::size_t length =
        std::strftime(text.data(), text.size(), "%y/%m/%d,%H:%M:%S", &now.clock);
    std::snprintf(text.data() + length, text.size() - length, "%+03d", now.quarterHours);
    return shown(command, inQuotes(text.data()));
}

// The moment of a "yy/MM/dd,hh:mm:ss" with its zone in quarters of an hour, or without one in the
// machine's, which is the zone that the clock is shown in.
std::optional<std::time_t> clockFrom(const std::string &text) {
    std::tm clock{};
    const char *const rest = ::strptime(text.c_str(), "%y/%m/%d,%H:%M:%S", &clock);
    if (rest == nullptr) { return std::nullopt; }
    const std::string_view zone = rest;
    const bool hasSign = zone.starts_with('+') || zone.starts_with('-');
    if (!zone.empty() && (!hasSign || zone.size() != 3 || !parseNumber(zone.substr(1)))) {
        return std::nullopt;
    }
    static constexpr std::time_t QUARTER_HOUR = 900;
    std::tm normal = clock;
    normal.tm_isdst = -1;
    std::time_t time = zone.empty() ? std::mktime(&normal) : ::timegm(&normal);
    if (hasSign) {
        const std::time_t offset = *parseNumber(zone.substr(1)) * QUARTER_HOUR;
        time -= zone.front() == '+' ? offset : -offset;
    }
    return time != -1 && normal.tm_mday == clock.tm_mday ? std::optional(time) : std::nullopt;
}

Reply setClock(Modem &modem, const Command &command) {
    const auto time = clockFrom(stringAt(command, 0).value_or(""));
    if (!time) { return badParameter(); }
    modem.clockAhead = *time - modem.clock.wallSeconds();
    return done();
}

// 8.4: on its battery, which is full.
Reply batteryCharge(Modem & /*modem*/, const Command &command) { return shown(command, "0,100"); }

Reply clearFaults(Modem &modem, const Command & /*command*/) {
    modem.faults.clear();
    return done();
}

Reply readFaults(Modem &modem, const Command &command) {
    std::string lines;
    for (const Faults::Count &each : modem.faults.counts()) {
        lines += (lines.empty() ? "" : "\n") + command.name + ": \"" + each.source + "\"," +
                 std::to_string(each.met);
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
    CommandRow{.name = "+CSCS", .arguments = 1, .read = readCharset, .set = setCharset, .test = listCharsets},
    CommandRow{.name = "+CPIN", .arguments = 2, .needsSim = true, .read = readPin, .set = setPin},
    CommandRow{.name = "+CLCK", .arguments = 4, .needsSim = true, .set = queryLock,
               .test = listLocks},
    CommandRow{.name = "+CRSM", .arguments = 7, .needsSim = true, .set = accessSim},
    CommandRow{.name = "+CPWD", .arguments = 3, .needsSim = true, .ranges = R"(("SC",8))",
               .set = setPassword},
    CommandRow{.name = "+CCLK", .arguments = 1, .read = readClock, .set = setClock},
    CommandRow{.name = "+CBC",  .ranges = "(0),(0-100)", .execute = batteryCharge},
    CommandRow{.name = FAULT_COMMAND, .arguments = 1,
               .execute = clearFaults, .read = readFaults, .set = addFault},
};
// clang-format on

} // namespace

std::span<const CommandRow> equipmentCommands() { return EQUIPMENT_ROWS; }

} // namespace smspb::simmodem
