#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/network/network.h"

#include <algorithm>

namespace smspb::simmodem {
namespace {

Reply unsupportedForm(Family family) {
    switch (family) {
    case Family::equipment: return cmeError(CME_NOT_SUPPORTED);
    case Family::message: return cmsError(CMS_NOT_SUPPORTED);
    case Family::basic: break;
    }
    return refused(Result::Kind::error);
}

Reply wrongParameter(const Modem &modem, Family family) {
    switch (family) {
    case Family::equipment: return cmeError(CME_INCORRECT_PARAMETERS);
    case Family::message: return cmsError(cmsParameterCode(modem.settings));
    case Family::basic: break;
    }
    return refused(Result::Kind::error);
}

Reply showRanges(const CommandRow &row, Modem &modem, const Command &command) {
    if (row.test != nullptr) { return row.test(modem, command); }
    return row.ranges.empty() ? done() : shown(command, row.ranges);
}

Handler handlerOf(const CommandRow &row, Command::Form form) {
    switch (form) {
    case Command::Form::execute: return row.execute;
    case Command::Form::read: return row.read;
    case Command::Form::set: return row.set;
    case Command::Form::test:
    case Command::Form::malformed: break;
    }
    return nullptr;
}

Reply carryOutRow(const CommandRow &row, Modem &modem, const Command &command) {
    if (command.form == Command::Form::test) { return showRanges(row, modem, command); }
    const Handler handler = handlerOf(row, command.form);
    if (handler == nullptr) { return unsupportedForm(row.family); }
    if (row.needsSim && !modem.simPresent) {
        return row.family == Family::message ? cmsError(CMS_NO_SIM) : cmeError(CME_NO_SIM);
    }
    if (command.number > row.highest && row.family == Family::basic) { return badParameter(); }
    if (command.arguments.size() > row.arguments) { return badParameter(); }
    return handler(modem, command);
}

} // namespace

std::array<std::span<const CommandRow>, COMMAND_TABLES> commandTables() {
    return {basicCommands(),     equipmentCommands(), networkCommands(),
            messageCommands(),   storeCommands(),     sendCommands(),
            phonebookCommands(), ussdCommands(),      settingCommands()};
}

const CommandRow *findRow(std::string_view name) {
    for (const auto table : commandTables()) {
        const auto row = std::find_if(table.begin(), table.end(),
                                      [name](const CommandRow &r) { return r.name == name; });
        if (row != table.end()) { return &*row; }
    }
    return nullptr;
}

Reply carryOut(Modem &modem, const Command &command) {
    if (command.form == Command::Form::malformed) { return refused(Result::Kind::error); }
    const CommandRow *const row = findRow(command.name);
    if (row == nullptr) {
        return isExtended(command) ? cmeError(CME_NOT_SUPPORTED) : refused(Result::Kind::error);
    }
    Reply reply = carryOutRow(*row, modem, command);
    reportRegistration(modem);
    if (reply.result.kind == Result::Kind::badParameter) {
        return wrongParameter(modem, row->family);
    }
    return reply;
}

Reply shown(const Command &command, std::string_view values) {
    return done(command.name + ": " + std::string(values));
}

} // namespace smspb::simmodem
