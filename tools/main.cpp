// smspb: the command line tool. Here the command line only: what it takes and which function it
// means.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/output.h"
#include "tools/simulate.h"

namespace {

using namespace smspb::cli;

struct CommandLine {
    bool json = false, simulate = false;
    ComposeOptions compose;
    StorageOptions storage;
    ServiceCentreOptions serviceCentre;
    AtOptions at;
    DecodeOptions decode;
    bool needsModem = true;
    std::function<Exit(const Console &)> action;
};

template <typename Options>
std::function<Exit(const Console &)> calls(void (*command)(const Console &, const Options &),
                                           const Options &options) {
    return [command, &options](const Console &console) {
        command(console, options);
        return Exit::OK;
    };
}

CLI::App *addCommand(CLI::App &app, const std::string &name, const std::string &description,
                     const std::string &examples) {
    CLI::App *const command = app.add_subcommand(name, description);
    command->footer("Also: --json, --simulate (see smspb --help)\n\nExamples:\n" + examples);
    return command;
}

void addMessage(CLI::App *command, CommandLine &line) {
    command->add_option("NUMBER", line.compose.number, "Digits, \"+\" first if international")
        ->required()
        ->type_name("");
    command
        ->add_option("TEXT", line.compose.text,
                     "The text in UTF-8; \"-\" reads it from standard input")
        ->required()
        ->type_name("");
    command->add_flag("--report", line.compose.report, "Ask for a delivery report");
}

void addStorage(CLI::App *command, CommandLine &line, const std::string &description) {
    command->add_option("--storage", line.storage.storage, description)
        ->check(CLI::IsMember({"sm", "me"}, CLI::ignore_case))
        ->transform(CLI::IsMember({"sm", "me"}, CLI::ignore_case))
        ->type_name("sm|me");
}

void addSending(CLI::App &app, CommandLine &line) {
    CLI::App *send = addCommand(app, "send", "Send a text",
                                "  smspb send +491701234567 'See you at 8'\n"
                                "  smspb send --report +491701234567 - < letter.txt\n"
                                "  smspb send --dry-run +491701234567 'Costs 5 €'\n"
                                "  smspb send +491701234567 -- '-5 degrees'");
    addMessage(send, line);
    send->add_flag("--dry-run", line.compose.dryRun,
                   "Say coding, segments and what forces UCS-2; send nothing");
    send->callback([&line] {
        line.needsModem = !line.compose.dryRun;
        line.action = calls(smspb::cli::send, line.compose);
    });

    CLI::App *save = addCommand(app, "save", "Store a text in the modem without sending it",
                                "  smspb save +491701234567 'For later'\n"
                                "  smspb save --sent +491701234567 'Went out already'");
    addMessage(save, line);
    save->add_flag("--sent", line.compose.markSent, "Mark it as sent instead of unsent");
    save->callback([&line] { line.action = calls(smspb::cli::save, line.compose); });
}

void addStored(CLI::App &app, CommandLine &line) {
    static const std::string WHICH = "SIM (sm, the default) or modem memory (me)";
    CLI::App *inbox = addCommand(app, "inbox", "Show all stored messages, long ones joined",
                                 "  smspb inbox\n  smspb inbox --storage me\n"
                                 "  smspb inbox --json | jq -r '.messages[].text'");
    addStorage(inbox, line, WHICH);
    inbox->callback([&line] { line.action = calls(smspb::cli::inbox, line.storage); });

    CLI::App *read = addCommand(app, "read", "Show one stored message with its details",
                                "  smspb read 3\n  smspb read 3 --storage me --json");
    read->add_option("INDEX", line.storage.indexes, "Where it is stored, as inbox shows it")
        ->required()
        ->expected(1)
        ->type_name("");
    addStorage(read, line, WHICH);
    read->callback([&line] { line.action = calls(smspb::cli::read, line.storage); });

    CLI::App *remove = addCommand(app, "delete", "Delete stored messages",
                                  "  smspb delete 3\n  smspb delete 5-7,9 --storage me");
    remove->add_option("INDEX", line.storage.indexes, "One or several: 3, or 5-7,9")
        ->required()
        ->type_name("...");
    addStorage(remove, line, WHICH);
    remove->callback([&line] { line.action = calls(smspb::cli::remove, line.storage); });

    CLI::App *storage = addCommand(app, "storage", "Show how full the storages are",
                                   "  smspb storage\n  smspb storage --storage sm --json");
    addStorage(storage, line, "Only the SIM (sm) or the modem memory (me)");
    storage->callback([&line] { line.action = calls(smspb::cli::showStorage, line.storage); });
}

void addSettings(CLI::App &app, CommandLine &line) {
    CLI::App *centre = addCommand(app, "smsc", "Show or set the service centre's number",
                                  "  smspb smsc\n  smspb smsc +491710760000");
    centre->add_option("NUMBER", line.serviceCentre.number, "The number to set")->type_name("");
    centre->callback(
        [&line] { line.action = calls(smspb::cli::serviceCentre, line.serviceCentre); });

    CLI::App *init =
        addCommand(app, "init", "Make the modem announce new messages and keep them on the SIM",
                   "  smspb init");
    init->callback([&line] {
        line.action = [](const Console &console) {
            initialise(console);
            return Exit::OK;
        };
    });

    CLI::App *at = addCommand(app, "at", "Run one AT command and show the modem's reply",
                              "  smspb at AT+CSQ\n  smspb at 'AT+COPS=?' --wait 19");
    at->add_option("COMMAND", line.at.command, "The command without its line end")
        ->required()
        ->type_name("");
    at->add_option("--wait", line.at.waitSeconds, "Seconds to wait for the reply")
        ->capture_default_str()
        ->check(CLI::Range(1, 19))
        ->type_name("SECONDS");
    at->callback([&line] {
        line.action = [&line](const Console &console) { return smspb::cli::at(console, line.at); };
    });
}

void addPdus(CLI::App &app, CommandLine &line) {
    CLI::App *decode =
        addCommand(app, "decode", "Explain a PDU; needs no modem",
                   "  smspb decode 00040B917198210143F500006230018000000005E8329BFD06\n"
                   "  smspb decode - --json < pdu.txt");
    decode
        ->add_option("PDU", line.decode.pdu,
                     "Hexadecimal, with its service-centre part; \"-\" reads standard input")
        ->required()
        ->type_name("");
    decode->callback([&line] {
        line.needsModem = false;
        line.action = calls(smspb::cli::decode, line.decode);
    });

    CLI::App *encode = addCommand(app, "encode", "Compose the PDUs of a text; needs no modem",
                                  "  smspb encode +491701234567 hello\n"
                                  "  smspb encode --reference 7 +491701234567 - < letter.txt");
    addMessage(encode, line);
    encode->add_option("--reference", line.compose.reference, "Reference of a concatenated message")
        ->capture_default_str()
        ->check(CLI::Range(0, 255))
        ->type_name("0..255");
    encode->callback([&line] {
        line.needsModem = false;
        line.action = calls(smspb::cli::encode, line.compose);
    });
}

void describe(CLI::App &app, CommandLine &line) {
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("smspb " SMSPB_VERSION));
    app.add_flag("--json", line.json, "Print one JSON document instead of text");
    app.add_flag(
        "--simulate", line.simulate,
        "Use a simulated modem, started for this command only; its number is +15550001000");
    addSending(app, line);
    addStored(app, line);
    addSettings(app, line);
    addPdus(app, line);
    app.footer(
        "Examples:\n"
        "  smspb --simulate send +15550001000 'Hello world'\n"
        "  smspb send --report +491701234567 'See you at 8'\n"
        "  smspb inbox\n"
        "  smspb send --dry-run +491701234567 'Costs 5 €'\n"
        "  smspb at AT+CSQ\n"
        "\n"
        "smspb COMMAND --help explains a command. Exit codes: 0 done, 1 unexpected,\n"
        "2 wrong usage, 3 bad PDU, 4 no modem manager, 5 no answer, 6 refused by the modem,\n"
        "7 no such message, 8 done in part, 9 bad reply, 10 no simulation.");
}

Exit perform(const CommandLine &line, const Console &console) {
    Failure unexpected(Exit::UNEXPECTED, "");
    try {
        const Exit code = line.action(console);
        if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) { return code; }
        unexpected = Failure(Exit::UNEXPECTED,
                             fmt::format("cannot write the result: {}", std::strerror(errno)));
    } catch (const Failure &failure) {
        console.fail(failure);
        return failure.exit;
    } catch (const std::exception &error) { unexpected = Failure(Exit::UNEXPECTED, error.what()); }
    console.fail(unexpected);
    return unexpected.exit;
}

int runCommand(const CommandLine &line) {
    const Console console(line.json);
    const auto command = [&] { return static_cast<int>(perform(line, console)); };
    if (!line.simulate || !line.needsModem) { return command(); }
    try {
        return simulated(command);
    } catch (const Failure &failure) {
        console.fail(failure);
        return static_cast<int>(failure.exit);
    }
}

// The first argument that is no option, which has to be a command.
std::string firstWord(int argc, char **argv) {
    for (int i = 1; i < argc; i++) {
        if (argv[i][0] != '-') { return argv[i]; }
    }
    return "";
}

Failure misuse(const CLI::App &app, const CLI::ParseError &error, const std::string &word) {
    const auto chosen = app.get_subcommands();
    if (chosen.empty()) {
        const std::string what =
            word.empty() ? error.what() : fmt::format("there is no command \"{}\"", word);
        return {Exit::USAGE, what, "smspb --help lists the commands"};
    }
    const std::string help = fmt::format("smspb {} --help", chosen.front()->get_name());
    const bool isExtra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    return {Exit::USAGE, error.what(),
            isExtra ? help + "; a text with blanks goes between quotes, one that begins with - "
                             "behind --"
                    : help};
}

int runTool(int argc, char **argv) {
    CommandLine line;
    CLI::App app("Send, read and manage the SMS messages of a USB cellular modem.", "smspb");
    describe(app, line);
    if (argc < 2) {
        std::fputs(app.help().c_str(), stderr);
        return static_cast<int>(Exit::USAGE);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError &error) {
        Console(line.json).fail(misuse(app, error, firstWord(argc, argv)));
        return static_cast<int>(Exit::USAGE);
    }
    return runCommand(line);
}

} // namespace

int main(int argc, char **argv) {
    // For the width of characters; the language of messages stays.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        return runTool(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "smspb: %s\n", error.what());
        return static_cast<int>(Exit::UNEXPECTED);
    }
}
