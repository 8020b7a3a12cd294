// contacts list, show, find, add, edit, delete, export, import.
#include "tools/command_line.h"
#include "tools/contacts.h"

namespace smspb::cli {

namespace {

constexpr const char *WHICH_PHONEBOOK = "Of the SIM (sm, the default) or of the modem (me)";

void addIndex(CLI::App *command, ContactOptions &options) {
    command->add_option("INDEX", options.indexes, "Where it is, as contacts list shows it")
        ->required()
        ->expected(1)
        ->type_name("");
}

void addFormat(CLI::App *command, ContactFileOptions &options, const std::string &description) {
    command->add_option("--format", options.format, description)
        ->transform(CLI::IsMember({"vcard", "csv"}, CLI::ignore_case))
        ->option_text("vcard|csv");
}

void addReading(CLI::App &app, CommandLine &line) {
    const auto list = std::make_shared<ContactOptions>();
    CLI::App *command = addCommand(app, "list", "Show all contacts",
                                   "  smspb contacts list\n"
                                   "  smspb contacts list --json | jq '.contacts[].name'");
    addStorage(command, list->storage, WHICH_PHONEBOOK);
    command->callback([&line, list] { line.action = calls(listContacts, list); });

    const auto show = std::make_shared<ContactOptions>();
    command = addCommand(app, "show", "Show one contact", "  smspb contacts show 3");
    addIndex(command, *show);
    addStorage(command, show->storage, WHICH_PHONEBOOK);
    command->callback([&line, show] { line.action = calls(showContact, show); });

    const auto find = std::make_shared<ContactOptions>();
    command = addCommand(app, "find", "Show the contacts with a text in name or number",
                         "  smspb contacts find anna\n  smspb contacts find 0170");
    command
        ->add_option("TEXT", find->text,
                     "A part of the name or of the number; case does not matter")
        ->required()
        ->type_name("");
    addStorage(command, find->storage, WHICH_PHONEBOOK);
    command->callback([&line, find] { line.action = calls(findContacts, find); });
}

void addAdding(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<ContactOptions>();
    CLI::App *const command = addCommand(app, "add", "Add a contact",
                                         "  smspb contacts add 'Anna Müller' +491701234567\n"
                                         "  smspb contacts add Mailbox 3311 --index 1");
    command->add_option("NAME", options->name, "Its name in UTF-8")->required()->type_name("");
    command
        ->add_option("NUMBER", options->number,
                     "Digits, * and #, \"+\" first if international; p pauses, w waits")
        ->required()
        ->type_name("");
    command->add_option("--index", options->indexes, "A free location instead of the first one")
        ->expected(1)
        ->type_name("N");
    addStorage(command, options->storage, WHICH_PHONEBOOK);
    command->callback([&line, options] { line.action = calls(addContact, options); });
}

void addChanging(CLI::App &app, CommandLine &line) {
    const auto edit = std::make_shared<ContactOptions>();
    CLI::App *command = addCommand(app, "edit", "Change a contact's name, number or both",
                                   "  smspb contacts edit 3 --number +491709876543\n"
                                   "  smspb contacts edit 3 --name 'Anna Schmidt'");
    addIndex(command, *edit);
    command->add_option("--name", edit->name, "The new name")->type_name("NAME");
    command->add_option("--number", edit->number, "The new number")->type_name("NUMBER");
    addStorage(command, edit->storage, WHICH_PHONEBOOK);
    command->callback([&line, edit] { line.action = calls(editContact, edit); });

    const auto remove = std::make_shared<ContactOptions>();
    command = addCommand(app, "delete", "Delete contacts", "  smspb contacts delete 3 7 20-35");
    command->add_option("INDEX", remove->indexes, "One or several: 3, or 5-7,9")
        ->required()
        ->type_name("...");
    addStorage(command, remove->storage, WHICH_PHONEBOOK);
    command->callback([&line, remove] { line.action = calls(deleteContacts, remove); });
}

void addFiles(CLI::App &app, CommandLine &line) {
    const auto target = std::make_shared<ContactFileOptions>();
    CLI::App *command = addCommand(app, "export", "Write all contacts to a file",
                                   "  smspb contacts export contacts.vcf\n"
                                   "  smspb contacts export --format csv > contacts.csv");
    command->add_option("FILE", target->file, "The file; \"-\", the default, is standard output")
        ->type_name("");
    addFormat(command, *target, "By FILE's extension, else vcard");
    addStorage(command, target->storage, WHICH_PHONEBOOK);
    command->callback([&line, target] { line.action = calls(exportContacts, target); });

    const auto source = std::make_shared<ContactFileOptions>();
    command = addCommand(app, "import", "Add the contacts of a file, all of them or none",
                         "  smspb contacts import --dry-run contacts.vcf\n"
                         "  smspb contacts import --partial contacts.csv");
    command->add_option("FILE", source->file, "vCard or CSV in UTF-8; \"-\" is standard input")
        ->required()
        ->type_name("");
    addFormat(command, *source, "By what FILE holds");
    command->add_flag("--partial", source->partial, "Write what fits and list the rest");
    command->add_flag("--dry-run", source->dryRun, "Check everything; write nothing");
    addStorage(command, source->storage, WHICH_PHONEBOOK);
    command->callback([&line, source] { line.action = calls(importContacts, source); });
}

} // namespace

void addContactCommands(CLI::App &app, CommandLine &line) {
    CLI::App *const contacts = app.add_subcommand("contacts", "Keep the phonebook");
    contacts->require_subcommand(1);
    contacts->footer("smspb contacts COMMAND --help explains a command.");
    addReading(*contacts, line);
    addAdding(*contacts, line);
    addChanging(*contacts, line);
    addFiles(*contacts, line);
}

} // namespace smspb::cli
