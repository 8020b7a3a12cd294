// The commands of V.250: the line itself, identification, and what a modem without calls answers.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/text.h"

#include <algorithm>
#include <array>

namespace smspb::simmodem {
namespace {

constexpr unsigned REGISTER_MAX = 255;

// V.250, 6.2.1 to 6.2.3 and 6.3.8 to 6.3.12.
struct RegisterRange {
    unsigned number, low, high;
};
constexpr std::array<RegisterRange, 8> REGISTERS{
    {{0, 0, 255},
     {3, 0, 127},
     {4, 0, 127},
     {5, 0, 127},
     {6, 2, 10},
     {7, 1, 255},
     {8, 0, 255},
     {10, 1, 254}}
};

Reply setEcho(Modem &modem, const Command &command) {
    modem.settings.echo = command.number != 0;
    return done();
}

Reply setQuiet(Modem &modem, const Command &command) {
    modem.settings.quiet = command.number != 0;
    return done();
}

Reply setVerbose(Modem &modem, const Command &command) {
    modem.settings.verbose = command.number != 0;
    return done();
}

Reply restoreProfile(Modem &modem, const Command & /*command*/) {
    modem.settings = modem.profile;
    return done();
}

Reply restoreFactory(Modem &modem, const Command & /*command*/) {
    modem.settings = modem.factorySettings();
    return done();
}

Reply storeProfile(Modem &modem, const Command & /*command*/) {
    modem.profile = modem.settings;
    return done();
}

Reply readRegister(Modem &modem, const Command &command) {
    const auto found = modem.settings.registers.find(command.number);
    if (found == modem.settings.registers.end()) { return badParameter(); }
    std::string digits = std::to_string(found->second); // V.250, 5.3.2: three digits
    return done(digits.insert(0, 3 - digits.size(), '0'));
}

Reply setRegister(Modem &modem, const Command &command) {
    const auto range = std::find_if(REGISTERS.begin(), REGISTERS.end(), [&](const auto &each) {
        return each.number == command.number;
    });
    if (range == REGISTERS.end()) { return badParameter(); }
    const auto value = numberAt(command, 0, range->low, range->high);
    if (!value) { return badParameter(); }
    modem.settings.registers[range->number] = static_cast<unsigned char>(*value);
    return done();
}

// Selecting a register for a later "=" is not supported; naming a known one is harmless.
Reply nameRegister(Modem &modem, const Command &command) {
    return modem.settings.registers.contains(command.number) ? done() : badParameter();
}

Reply identify(Modem & /*modem*/, const Command & /*command*/) {
    return done("Manufacturer: smspb\nModel: simulated modem\nRevision: " SMSPB_VERSION);
}

Reply accept(Modem & /*modem*/, const Command & /*command*/) { return done(); }

Reply noCarrier(Modem & /*modem*/, const Command & /*command*/) {
    return refused(Result::Kind::noCarrier);
}

// clang-format off
constexpr std::array BASIC_ROWS{
    CommandRow{.name = "E",  .family = Family::basic, .highest = 1, .execute = setEcho},
    CommandRow{.name = "Q",  .family = Family::basic, .highest = 1, .execute = setQuiet},
    CommandRow{.name = "V",  .family = Family::basic, .highest = 1, .execute = setVerbose},
    CommandRow{.name = "Z",  .family = Family::basic, .highest = 1, .execute = restoreProfile},
    CommandRow{.name = "&F", .family = Family::basic, .highest = 0, .execute = restoreFactory},
    CommandRow{.name = "&W", .family = Family::basic, .highest = 1, .execute = storeProfile},
    CommandRow{.name = "S",  .family = Family::basic, .highest = REGISTER_MAX, .arguments = 1,
               .execute = nameRegister, .read = readRegister, .set = setRegister},
    CommandRow{.name = "I",  .family = Family::basic, .highest = 9, .execute = identify},
    CommandRow{.name = "L",  .family = Family::basic, .highest = 3, .execute = accept},
    CommandRow{.name = "M",  .family = Family::basic, .highest = 2, .execute = accept},
    CommandRow{.name = "T",  .family = Family::basic, .highest = 0, .execute = accept},
    CommandRow{.name = "P",  .family = Family::basic, .highest = 0, .execute = accept},
    CommandRow{.name = "X",  .family = Family::basic, .highest = 4, .execute = accept},
    CommandRow{.name = "&C", .family = Family::basic, .highest = 1, .execute = accept},
    CommandRow{.name = "&D", .family = Family::basic, .highest = 2, .execute = accept},
    CommandRow{.name = "&K", .family = Family::basic, .highest = 6, .execute = accept},
    CommandRow{.name = "H",  .family = Family::basic, .highest = 1, .execute = accept},
    CommandRow{.name = "A",  .family = Family::basic, .highest = 0, .execute = noCarrier},
    CommandRow{.name = "D",  .family = Family::basic, .highest = 0, .execute = noCarrier},
    CommandRow{.name = "O",  .family = Family::basic, .highest = 1, .execute = noCarrier},
};
// clang-format on

} // namespace

std::span<const CommandRow> basicCommands() { return BASIC_ROWS; }

} // namespace smspb::simmodem
