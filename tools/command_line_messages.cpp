// send, save, inbox, read, delete.
#include "tools/command_line.h"

namespace smspb::cli {

namespace {

constexpr const char *WHICH_STORAGE = "SIM (sm, the default) or modem memory (me)";

void addSend(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<ComposeOptions>();
    CLI::App *const command = addCommand(app, "send", "Send a text",
                                         "  smspb send +491701234567 'See you at 8'\n"
                                         "  smspb send --report +491701234567 - < letter.txt\n"
                                         "  smspb send --dry-run +491701234567 'Costs 5 €'\n"
                                         "  smspb send +491701234567 -- '-5 degrees'");
    addMessage(command, *options);
    command->add_flag("--dry-run", options->dryRun,
                      "Say coding, segments and what forces UCS-2; send nothing");
    command->callback([&line, options] {
        line.needsModem = !options->dryRun;
        line.action = calls(send, options);
    });
}

void addSave(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<ComposeOptions>();
    CLI::App *const command =
        addCommand(app, "save", "Store a text in the modem without sending it",
                   "  smspb save +491701234567 'For later'\n"
                   "  smspb save --sent +491701234567 'Went out already'");
    addMessage(command, *options);
    command->add_flag("--sent", options->markSent, "Mark it as sent instead of unsent");
    command->callback([&line, options] { line.action = calls(save, options); });
}

void addInbox(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<StorageOptions>();
    CLI::App *const command = addCommand(app, "inbox", "Show all stored messages, long ones joined",
                                         "  smspb inbox\n  smspb inbox --storage me\n"
                                         "  smspb inbox --json | jq -r '.messages[].text'");
    addStorage(command, options->storage, WHICH_STORAGE);
    command->callback([&line, options] { line.action = calls(inbox, options); });
}

void addRead(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<StorageOptions>();
    CLI::App *const command = addCommand(app, "read", "Show one stored message with its details",
                                         "  smspb read 3\n  smspb read 3 --storage me --json");
    command->add_option("INDEX", options->indexes, "Where it is stored, as inbox shows it")
        ->required()
        ->expected(1)
        ->type_name("");
    addStorage(command, options->storage, WHICH_STORAGE);
    command->callback([&line, options] { line.action = calls(read, options); });
}

void addDelete(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<StorageOptions>();
    CLI::App *const command = addCommand(app, "delete", "Delete stored messages",
                                         "  smspb delete 3\n  smspb delete 5-7,9 --storage me");
    command->add_option("INDEX", options->indexes, "One or several: 3, or 5-7,9")
        ->required()
        ->type_name("...");
    addStorage(command, options->storage, WHICH_STORAGE);
    command->callback([&line, options] { line.action = calls(remove, options); });
}

} // namespace

void addMessageCommands(CLI::App &app, CommandLine &line) {
    addSend(app, line);
    addSave(app, line);
    addInbox(app, line);
    addRead(app, line);
    addDelete(app, line);
}

} // namespace smspb::cli
