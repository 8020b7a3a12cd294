#include "tools/command_line.h"

namespace smspb::cli {

CLI::App *addCommand(CLI::App &app, const std::string &name, const std::string &description,
                     const std::string &examples) {
    CLI::App *const command = app.add_subcommand(name, description);
    command->footer("Also: --json, --simulate (see smspb --help)\n\nExamples:\n" + examples);
    return command;
}

void addMessage(CLI::App *command, ComposeOptions &options) {
    command->add_option("NUMBER", options.number, "Digits, \"+\" first if international")
        ->required()
        ->type_name("");
    command
        ->add_option("TEXT", options.text, "The text in UTF-8; \"-\" reads it from standard input")
        ->required()
        ->type_name("");
    command->add_flag("--report", options.report, "Ask for a delivery report");
}

void addStorage(CLI::App *command, std::string &storage, const std::string &description) {
    command->add_option("--storage", storage, description)
        ->transform(CLI::IsMember({"sm", "me"}, CLI::ignore_case))
        ->option_text("sm|me");
}

} // namespace smspb::cli
