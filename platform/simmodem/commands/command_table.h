// From a command to what carries it out. A row per command; a handler per form, null where the
// command does not have it.
#pragma once

#include "platform/simmodem/line/command.h"
#include "platform/simmodem/line/reply.h"
#include "platform/simmodem/modem/modem.h"

#include <array>
#include <span>

namespace smspb::simmodem {

// The maker's own command, which no fault acts on: AT^FAULT="..." adds one in the text form of
// faults.h, AT^FAULT? lists them, AT^FAULT forgets them all.
inline constexpr std::string_view FAULT_COMMAND = "^FAULT";

using Handler = Reply (*)(Modem &, const Command &);

// Whose rules an error follows: V.250 (ERROR), TS 27.007 (+CME ERROR) or TS 27.005 (+CMS ERROR).
enum class Family { basic, equipment, message };

struct CommandRow {
    std::string_view name;
    Family family = Family::equipment;
    unsigned highest = 0;      // of a basic command's number
    std::size_t arguments = 0; // that the set form takes at most
    bool takesData = false;    // the set form, or the one that executes, asks for data
    bool needsSim = false;
    std::string_view ranges = {}; // what the test form shows behind "NAME: "; empty for OK alone
    Handler execute = nullptr, read = nullptr, set = nullptr;
    Handler test = nullptr; // instead of `ranges`
};

std::span<const CommandRow> basicCommands();
std::span<const CommandRow> equipmentCommands();
std::span<const CommandRow> networkCommands();
std::span<const CommandRow> messageCommands();
std::span<const CommandRow> storeCommands();
std::span<const CommandRow> sendCommands();
std::span<const CommandRow> phonebookCommands();
std::span<const CommandRow> ussdCommands();
std::span<const CommandRow> settingCommands();

// All of them, in the order in which +CLAC lists them.
inline constexpr std::size_t COMMAND_TABLES = 9;
std::array<std::span<const CommandRow>, COMMAND_TABLES> commandTables();

// Null for an unknown command.
const CommandRow *findRow(std::string_view name);

// Carries out a command, or says with the right error that it cannot be.
Reply carryOut(Modem &modem, const Command &command);

// "NAME: values", the usual information line.
Reply shown(const Command &command, std::string_view values);

} // namespace smspb::simmodem
