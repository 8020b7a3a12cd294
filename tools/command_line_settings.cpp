// status, storage, smsc, init, at.
#include "tools/command_line.h"

namespace smspb::cli {

namespace {

void addStatus(CLI::App &app, CommandLine &line) {
    CLI::App *const command =
        addCommand(app, "status", "Show the modem, its SIM, the network and the storages",
                   "  smspb status\n  smspb status --json");
    command->callback(
        [&line] { line.action = [](const Console &console) { return showStatus(console); }; });
}

void addStorageCounts(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<StorageOptions>();
    CLI::App *const command = addCommand(app, "storage", "Show how full the storages are",
                                         "  smspb storage\n  smspb storage --storage sm --json");
    addStorage(command, options->storage, "Only the SIM (sm) or the modem memory (me)");
    command->callback([&line, options] { line.action = calls(showStorage, options); });
}

void addServiceCentre(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<ServiceCentreOptions>();
    CLI::App *const command = addCommand(app, "smsc", "Show or set the service centre's number",
                                         "  smspb smsc\n  smspb smsc +491710760000");
    command->add_option("NUMBER", options->number, "The number to set")->type_name("");
    command->callback([&line, options] { line.action = calls(serviceCentre, options); });
}

void addInit(CLI::App &app, CommandLine &line) {
    CLI::App *const command =
        addCommand(app, "init", "Make the modem announce new messages and keep them on the SIM",
                   "  smspb init");
    command->callback([&line] {
        line.action = [](const Console &console) {
            initialise(console);
            return Exit::OK;
        };
    });
}

void addAt(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<AtOptions>();
    CLI::App *const command = addCommand(app, "at", "Run one AT command and show the modem's reply",
                                         "  smspb at AT+CSQ\n  smspb at 'AT+COPS=?' --wait 19");
    command->add_option("COMMAND", options->command, "The command without its line end")
        ->required()
        ->type_name("");
    command->add_option("--wait", options->waitSeconds, "Seconds to wait for the reply")
        ->capture_default_str()
        ->check(CLI::Range(1, 19))
        ->type_name("SECONDS");
    command->callback([&line, options] { line.action = calls(at, options); });
}

} // namespace

void addSettingCommands(CLI::App &app, CommandLine &line) {
    addStatus(app, line);
    addStorageCounts(app, line);
    addServiceCentre(app, line);
    addInit(app, line);
    addAt(app, line);
}

} // namespace smspb::cli
