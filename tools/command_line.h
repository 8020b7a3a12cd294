// The description of the command line: each group of commands has a file of its own, which says
// what they take and which function they mean. main.cpp puts the groups together.
#ifndef SMSPB_TOOLS_COMMAND_LINE_H
#define SMSPB_TOOLS_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/output.h"

namespace smspb::cli {

using Action = std::function<Exit(const Console &)>;

// What the command line says. The callback of the chosen command fills in the last two.
struct CommandLine {
    bool json = false, simulate = false;
    bool needsModem = true;
    Action action;
};

// Options are shared by the command that fills them and the action that reads them.
template <typename Options>
Action calls(void (*command)(const Console &, const Options &), std::shared_ptr<Options> options) {
    return [command, options](const Console &console) {
        command(console, *options);
        return Exit::OK;
    };
}

// The same for a command that chooses its exit code.
template <typename Options>
Action calls(Exit (*command)(const Console &, const Options &), std::shared_ptr<Options> options) {
    return [command, options](const Console &console) { return command(console, *options); };
}

CLI::App *addCommand(CLI::App &app, const std::string &name, const std::string &description,
                     const std::string &examples);

// NUMBER TEXT [--report]
void addMessage(CLI::App *command, ComposeOptions &options);

// [--storage sm|me]
void addStorage(CLI::App *command, std::string &storage, const std::string &description);

void addMessageCommands(CLI::App &app, CommandLine &line); // send, save, inbox, read, delete
void addSettingCommands(CLI::App &app, CommandLine &line); // status, storage, smsc, init, at
void addPduCommands(CLI::App &app, CommandLine &line);     // decode, encode
void addEventCommands(CLI::App &app, CommandLine &line);   // listen, ussd
void addContactCommands(CLI::App &app, CommandLine &line); // contacts ...

} // namespace smspb::cli

#endif
