// smspb-modemd: the process that owns the modem's tty. The command line alone is read here.
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "platform/modemd/baud.h"
#include "platform/modemd/program.h"

namespace {

using namespace smspb::modemd;

enum ExitCode : int { DONE = 0, FAILED = 1, WRONG_USAGE = 2 };

std::string checkBaud(const std::string &text) {
    unsigned baud = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, baud);
    return error == std::errc() && stop == end && isBaudRate(baud)
               ? ""
               : "no rate of a serial line; 9600, 115200 and 921600 are";
}

void declare(CLI::App &app, Options *options) {
    app.description(
        "Modem manager: owns the modem's tty and runs the AT commands and messages that "
        "other processes ask for, one at a time.");
    app.add_option("--device", options->device, "The modem's AT port, such as /dev/ttyUSB2")
        ->required();
    app.add_option("--baud", options->baud, "Line rate; a USB modem ignores it")
        ->check(CLI::Validator(checkBaud, ""))
        ->capture_default_str();
    app.add_option("--group", options->group,
                   "Members of this group may ask too, not only our own user and root");
    app.add_option("--keep-transfers", options->keepTransfers,
                   "Seconds that the file of a long reply is kept")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    auto *level = app.add_option("--log-level", options->logLevel,
                                 "Log failures (warn), what comes and goes (info), an account of "
                                 "each request (debug), the AT traffic as well (trace)")
                      ->check(CLI::IsMember(LOG_LEVELS))
                      ->capture_default_str();
    app.add_flag_callback("--verbose", [options] { options->logLevel = LOG_LEVELS.back(); })
        ->description("The same as --log-level trace: message bodies and numbers included")
        ->excludes(level);
    app.add_flag("--syslog", options->toSyslog, "Log to syslog, not to standard error");
    app.add_flag("--foreground")->description("Stay in the foreground, as it always does");
    app.set_version_flag("--version", std::string("smspb-modemd " SMSPB_VERSION));
    app.footer("Prints \"ready\" once requests are taken; logs to standard error. SIGTERM, SIGINT "
               "and SIGHUP "
               "end it.\nExit status: 0 ended by a signal, 1 cannot run, 2 wrong usage.\n"
               "Example: smspb-modemd --device /dev/ttyUSB2");
}

} // namespace

int main(int argc, char **argv) {
    try {
        Options options;
        CLI::App app;
        declare(app, &options);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) { return app.exit(error) == 0 ? DONE : WRONG_USAGE; }
        serve(options);
        return DONE;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "smspb-modemd: %s\n", error.what());
        return FAILED;
    }
}
