// listen, ussd.
#include <charconv>

#include "tools/command_line.h"

namespace smspb::cli {

namespace {

// A time in seconds.
std::string problemOfSeconds(const std::string &text) {
    static constexpr double LEAST = 0.1, MOST = 31536000; // a year
    double seconds = 0;
    const char *const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, seconds);
    if (error == std::errc() && behind == end && seconds >= LEAST && seconds <= MOST) { return ""; }
    return "\"" + text + "\" is not a time: give seconds, from 0.1 to 31536000";
}
const CLI::Validator SECONDS(problemOfSeconds, "", "seconds");

void addListen(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<ListenOptions>();
    CLI::App *const command =
        addCommand(app, "listen", "Show messages, reports, pages, calls as they arrive",
                   "  smspb listen --init\n"
                   "  smspb listen --json | jq -r 'select(.kind == \"message\").text'\n"
                   "  smspb listen --exec ./on-message --delete\n"
                   "  smspb listen --once --timeout 60");
    command->add_flag("--init", options->init,
                      "Make the modem announce everything (AT+CNMI=2,1,2,1,0)");
    command
        ->add_option("--exec", options->program,
                     "Run this program for each event, which its environment tells")
        ->type_name("PROGRAM");
    command
        ->add_option("--exec-limit", options->programLimitSeconds,
                     "End a program that takes longer")
        ->capture_default_str()
        ->check(SECONDS)
        ->type_name("SECONDS");
    command->add_flag("--once", options->once, "End after the first event");
    command->add_option("--timeout", options->timeoutSeconds, "End after this time")
        ->check(SECONDS)
        ->type_name("SECONDS");
    command
        ->add_option("--parts-wait", options->partsWaitSeconds,
                     "Wait this long for the next part of a long message, then show it incomplete")
        ->capture_default_str()
        ->check(SECONDS)
        ->type_name("SECONDS");
    command->add_flag("--delete", options->remove,
                      "Delete stored messages once they are shown and their program ended well");
    command->callback([&line, options] { line.action = calls(listen, options); });
}

void addUssd(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<UssdOptions>();
    CLI::App *const command = addCommand(app, "ussd", "Ask the network by a USSD code",
                                         "  smspb ussd '*100#'\n"
                                         "  smspb ussd '*103#' --reply 1 --reply 2\n"
                                         "  smspb ussd '*104#' --wait 60 --json\n"
                                         "  smspb ussd --cancel");
    CLI::Option *const code =
        command->add_option("CODE", options->code, "The code, 29 characters at most")
            ->type_name("");
    command
        ->add_option("--reply", options->replies,
                     "Answer the network's question; once for each question")
        ->expected(1)
        ->take_all()
        ->type_name("TEXT");
    command->add_option("--wait", options->waitSeconds, "Wait this long for each answer")
        ->capture_default_str()
        ->check(SECONDS)
        ->type_name("SECONDS");
    command->add_flag("--cancel", options->cancel, "End a dialogue that was left open")
        ->excludes(code);
    command->callback([&line, options] { line.action = calls(ussd, options); });
}

} // namespace

void addEventCommands(CLI::App &app, CommandLine &line) {
    addListen(app, line);
    addUssd(app, line);
}

} // namespace smspb::cli
