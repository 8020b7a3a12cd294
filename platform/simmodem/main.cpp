// smspb-simmodem: a simulated modem on a pseudo-terminal. The command line alone is read here.
#include "clock.h"
#include "control_command.h"
#include "faults.h"
#include "program.h"
#include "text.h"
#include "ussd.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

namespace {

using namespace smspb::simmodem;

enum ExitCode : int { DONE = 0, FAILED = 1, WRONG_USAGE = 2 };

std::string checkNumber(const std::string &text) {
    return isNumber(text) ? "" : "\"" + text + "\" is no number: \"+\" and digits, 20 at most";
}

std::string checkFault(const std::string &text) { return Faults().add(text); }

// "driven", or "driven=" and the time at which it begins.
std::string readClock(const std::string &text, Options &options) {
    static constexpr std::string_view DRIVEN = "driven", BEGIN = "2026-01-01 00:00:00";
    const std::string_view behind =
        std::string_view(text).substr(std::min(text.size(), DRIVEN.size()));
    options.drivenFrom = localTime(behind.empty() ? BEGIN : behind.substr(1));
    const bool isForm = text.starts_with(DRIVEN) && (behind.empty() || behind.front() == '=');
    return isForm && options.drivenFrom
               ? ""
               : "\"" + text + "\" is neither driven nor driven=\"2026-11-21 10:00:00\"";
}

std::string checkUssd(const std::string &text) { return UssdScript().add(text); }

void addStorages(CLI::App &app, ModemOptions &modem) {
    static constexpr std::size_t STORAGE_MAX = 10000;
    app.add_option("--me-size", modem.meSize, "Places of the storage ME")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{0}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--sm-size", modem.smSize, "Places of the storage SM")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{0}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--index-base", modem.indexes.base, "Index of the first message place")
        ->capture_default_str()
        ->check(CLI::Range(0, 1))
        ->type_name("");
    app.add_option("--index-step", modem.indexes.step, "Distance of the indexes of message places")
        ->capture_default_str()
        ->check(CLI::Range(1, 100))
        ->type_name("");
    app.add_option("--pb-sm-size", modem.smPhonebookSize, "Places of the phonebook SM")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--pb-me-size", modem.mePhonebookSize, "Places of the phonebook ME")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--pb-number-max", modem.phonebookLimits.numberMax,
                   "Longest number of a phonebook entry, without \"+\"")
        ->capture_default_str()
        ->check(CLI::Range(1, 80))
        ->type_name("");
    app.add_option("--pb-name-max", modem.phonebookLimits.nameMax,
                   "Longest name of a phonebook entry")
        ->capture_default_str()
        ->check(CLI::Range(0, 240))
        ->type_name("");
}

void addOptions(CLI::App &app, Options &options) {
    static constexpr unsigned LATENCY_MAX = 600000;
    app.add_option("--link", options.link, "Symbolic link to the terminal, made when it is ready")
        ->type_name("PATH");
    app.add_option("--ctl", options.control, "Control socket, LINK.ctl if left out")
        ->type_name("PATH");
    app.add_option("--number", options.modem.number, "Own number: messages to it come back")
        ->capture_default_str()
        ->check(CLI::Validator(checkNumber, "NUMBER"))
        ->type_name("");
    app.add_option("--smsc", options.modem.serviceCentre, "Address of the service centre")
        ->capture_default_str()
        ->check(CLI::Validator(checkNumber, "NUMBER"))
        ->type_name("");
    addStorages(app, options.modem);
    app.add_option("--fault", options.faults,
                   "PATTERN=ACTION[:COUNT], as often as wanted; ACTION is silence, error, cms=N, "
                   "cme=N, drop[=MS], half, garbage, delay=MS, unsolicited=TEXT or no-prompt")
        ->check(CLI::Validator(checkFault, ""))
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("FAULT");
    app.add_option("--ussd", options.ussdAnswers,
                   "CODE=ANSWER, as often as wanted; ANSWER is text:TEXT, packed:TEXT, ucs2:TEXT, "
                   "status:N or error:N, behind \"menu \" and \"delay=MS \" where wanted")
        ->check(CLI::Validator(checkUssd, ""))
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("ANSWER");
    app.add_flag("--interject", options.modem.interjects,
                 "Say unsolicited lines between a command and its reply, too");
    app.add_option("--latency", options.latencyMs, "Milliseconds before each reply")
        ->capture_default_str()
        ->check(CLI::Range(0U, LATENCY_MAX))
        ->type_name("");
    app.add_option("--clock", "driven[=TIME]: the modem's time moves by \"ctl advance\" alone")
        ->check(
            CLI::Validator([&options](std::string &text) { return readClock(text, options); }, ""))
        ->type_name("CLOCK");
    app.add_flag("--verbose", options.verbose, "Trace every line on standard error");
    app.set_version_flag("--version", std::string("smspb-simmodem " SMSPB_VERSION));
    app.footer("Example: smspb-simmodem --link /tmp/modem --fault '+CMGS=cms=500:1'");
}

} // namespace

int main(int argc, char **argv) {
    try {
        CLI::App app("A simulated modem (3GPP TS 27.005, 27.007) on a pseudo-terminal.");
        Options options;
        std::function<int()> command;
        addOptions(app, options);
        addControlCommand(app, command);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) { return app.exit(error) == 0 ? DONE : WRONG_USAGE; }
        if (command) { return command(); }
        if (options.link.empty()) { throw std::runtime_error("--link is required"); }
        serve(options);
        return DONE;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "smspb-simmodem: %s\n", error.what());
        return FAILED;
    }
}
