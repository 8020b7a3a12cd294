// smspb: the command line tool. Here what all commands share: the general options, running the
// chosen command, and what a wrong command line is told.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>

#include <fmt/format.h>

#include "tools/command_line.h"
#include "tools/simulate.h"

namespace {

using namespace smspb::cli;

void describe(CLI::App &app, CommandLine &line) {
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("smspb " SMSPB_VERSION));
    app.add_flag("--json", line.json, "Print one JSON document instead of text");
    app.add_flag(
        "--simulate", line.simulate,
        "Use a simulated modem, started for this command only; its number is +15550001000");
    addMessageCommands(app, line);
    addContactCommands(app, line);
    addSettingCommands(app, line);
    addPduCommands(app, line);
    addEventCommands(app, line);
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
        "7 no such message, 8 done in part, 9 bad reply, 10 no simulation, 11 nothing came in "
        "time.");
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

// The arguments that are no options; the first ones name the command.
std::vector<std::string> wordsOf(int argc, char **argv) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; i++) {
        if (argv[i][0] != '-') { words.emplace_back(argv[i]); }
    }
    return words;
}

// Which commands were recognised before the error: none, "send", or "contacts" and "add".
std::vector<const CLI::App *> chosenCommands(const CLI::App &app) {
    std::vector<const CLI::App *> chosen;
    for (auto below = app.get_subcommands(); !below.empty();) {
        chosen.push_back(below.front());
        below = chosen.back()->get_subcommands();
    }
    return chosen;
}

Failure misuse(const CLI::App &app, const CLI::ParseError &error,
               const std::vector<std::string> &words) {
    std::string name = "smspb";
    const auto chosen = chosenCommands(app);
    for (const CLI::App *const command : chosen) { name += " " + command->get_name(); }
    const CLI::App &last = chosen.empty() ? app : *chosen.back();
    if (!last.get_subcommands({}).empty()) {
        const std::string what =
            words.size() <= chosen.size()
                ? error.what()
                : fmt::format("there is no command \"{}\"", words[chosen.size()]);
        return {Exit::USAGE, what, name + " --help lists the commands"};
    }
    const bool isExtra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    return {Exit::USAGE, error.what(),
            name + (isExtra ? " --help; a text with blanks goes between quotes, one that begins "
                              "with - behind --"
                            : " --help")};
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
        Console(line.json).fail(misuse(app, error, wordsOf(argc, argv)));
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
