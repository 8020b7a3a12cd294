#include "platform/simmodem/options.h"

#include "platform/simmodem/control/faults.h"
#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/ussd.h"
#include "platform/simmodem/text.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace smspb::simmodem {
namespace {

constexpr unsigned PAUSE_MAX_MS = 600000;

std::string checkNumber(const std::string &text) {
    return isNumber(text) ? "" : "\"" + text + "\" is no number: \"+\" and digits, 20 at most";
}

std::string checkFault(const std::string &text) { return Faults().add(text); }

std::string checkUssd(const std::string &text) { return UssdScript().add(text); }

// "driven", or "driven=" and the time at which it begins.
std::string readClock(std::string_view text, Options &options) {
    static constexpr std::string_view DRIVEN = "driven", BEGIN = "2026-01-01 00:00:00";
    const std::string wrong =
        "\"" + std::string(text) + "\" is neither driven nor driven=\"2026-11-21 10:00:00\"";
    if (!text.starts_with(DRIVEN)) { return wrong; }
    text.remove_prefix(DRIVEN.size());
    if (!text.empty() && text.front() != '=') { return wrong; }
    options.drivenFrom = localTime(text.empty() ? BEGIN : text.substr(1));
    return options.drivenFrom ? "" : wrong;
}

// "3" or "3@20": octets, and milliseconds between the pieces.
std::string readPieces(std::string_view text, Pieces &pieces) {
    const std::size_t at = text.find('@');
    const auto octets = parseNumber(text.substr(0, at));
    const auto pause =
        at == std::string_view::npos ? std::optional(0U) : parseNumber(text.substr(at + 1));
    if (!octets || *octets == 0 || !pause || *pause > PAUSE_MAX_MS) {
        return "\"" + std::string(text) +
               "\" is no size of pieces: octets, and milliseconds between them, as 3 or 3@20";
    }
    pieces = {*octets, std::chrono::milliseconds(*pause)};
    return {};
}

// "IRA,UCS2": names that +CSCS offers instead of all it knows.
std::string readCharsets(std::string_view text, std::vector<std::string> &charsets) {
    charsets.clear();
    for (;;) {
        const std::string_view name = text.substr(0, text.find(','));
        if (std::find(CHARSETS.begin(), CHARSETS.end(), name) == CHARSETS.end()) {
            std::string known;
            for (const std::string_view each : CHARSETS) {
                known += (known.empty() ? "" : ", ") + std::string(each);
            }
            return "\"" + std::string(name) + "\" is no character set: " + known;
        }
        charsets.emplace_back(name);
        if (name.size() == text.size()) { return {}; }
        text.remove_prefix(name.size() + 1);
    }
}

std::string readEcho(std::string_view text, bool &always) {
    always = text == "always";
    return always ? "" : "\"" + std::string(text) + "\" is not \"always\"";
}

// An option whose text `read` takes apart; it returns what is wrong with it, empty for nothing.
template <typename Read>
void addText(CLI::App &app, const std::string &name, const std::string &form,
             const std::string &description, Read read) {
    app.add_option(name, description)
        ->check(CLI::Validator([read](std::string &text) { return read(text); }, ""))
        ->type_name(form);
}

void addSize(CLI::App &app, const std::string &name, std::size_t &size, std::size_t least,
             const std::string &description) {
    static constexpr std::size_t STORAGE_MAX = 10000;
    app.add_option(name, size, description)
        ->capture_default_str()
        ->check(CLI::Range(least, STORAGE_MAX))
        ->type_name("");
}

void addIdentity(CLI::App &app, ModemOptions &modem) {
    app.add_option("--number", modem.number, "Own number: messages to it come back")
        ->capture_default_str()
        ->check(CLI::Validator(checkNumber, "NUMBER"))
        ->type_name("");
    app.add_option("--smsc", modem.serviceCentre, "Address of the service centre")
        ->capture_default_str()
        ->check(CLI::Validator(checkNumber, "NUMBER"))
        ->type_name("");
}

void addStorages(CLI::App &app, ModemOptions &modem) {
    addSize(app, "--me-size", modem.meSize, 0, "Places of the storage ME");
    addSize(app, "--sm-size", modem.smSize, 0, "Places of the storage SM");
    app.add_option("--index-base", modem.indexes.base, "Index of the first message place")
        ->capture_default_str()
        ->check(CLI::Range(0, 1))
        ->type_name("");
    app.add_option("--index-step", modem.indexes.step, "Distance of the indexes of message places")
        ->capture_default_str()
        ->check(CLI::Range(1, 100))
        ->type_name("");
    addSize(app, "--pb-sm-size", modem.smPhonebookSize, 1, "Places of the phonebook SM");
    addSize(app, "--pb-me-size", modem.mePhonebookSize, 1, "Places of the phonebook ME");
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

void addScripts(CLI::App &app, Options &options) {
    app.add_option("--fault", options.faults,
                   "PATTERN=ACTION[:COUNT], as often as wanted; ACTION is silence, error, cms=N, "
                   "cme=N, drop[=MS], reset[=TEXT], half, hangup[=MS], garbage, delay=MS, "
                   "unsolicited=TEXT or no-prompt; COUNT is 3, 2-4, 2- or 10%")
        ->check(CLI::Validator(checkFault, ""))
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("FAULT");
    app.add_option("--faults", options.faultFiles,
                   "File of faults, one a line, \"#\" before a comment; as often as wanted")
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("FILE");
    app.add_option("--seed", options.seed, "What random faults and garbage come from")
        ->capture_default_str()
        ->type_name("N");
    app.add_option("--ussd", options.ussdAnswers,
                   "CODE=ANSWER, as often as wanted; ANSWER is text:TEXT, packed:TEXT, ucs2:TEXT, "
                   "status:N or error:N, behind \"menu \" and \"delay=MS \" where wanted")
        ->check(CLI::Validator(checkUssd, ""))
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("ANSWER");
}

// What makes a modem hard to live with, and standards do not forbid.
void addManners(CLI::App &app, Options &options) {
    ModemOptions &modem = options.modem;
    addText(app, "--charsets", "NAMES", "The character sets that +CSCS offers, as IRA,GSM",
            [&modem](std::string_view text) { return readCharsets(text, modem.charsets); });
    addText(app, "--echo", "always", "ATE0 is answered, and the echo stays",
            [&modem](std::string_view text) { return readEcho(text, modem.alwaysEchoes); });
    addText(app, "--chunk", "N[@MS]", "Writes N octets at a time, MS milliseconds between them",
            [&options](std::string_view text) { return readPieces(text, options.pieces); });
    app.add_flag("--interject", modem.interjects,
                 "Say unsolicited lines between a command and its reply, too");
    app.add_option("--latency", options.latencyMs, "Milliseconds before each reply")
        ->capture_default_str()
        ->check(CLI::Range(0U, PAUSE_MAX_MS))
        ->type_name("");
}

void addRecords(CLI::App &app, Options &options) {
    addText(app, "--clock", "driven[=TIME]", "The modem's time moves by \"ctl advance\" alone",
            [&options](std::string_view text) { return readClock(text, options); });
    app.add_option("--state", options.state,
                   "File that keeps over the end of the program what a modem keeps over power-off")
        ->type_name("FILE");
    CLI::Option *const log =
        app.add_option("--log", options.log, "File for what passes on the line; - for stderr")
            ->type_name("FILE");
    app.add_flag_callback(
           "--verbose", [&options] { options.log = "-"; }, "The same as --log -")
        ->excludes(log);
}

} // namespace

void addModemOptions(CLI::App &app, Options &options) {
    app.add_option("--link", options.link, "Symbolic link to the terminal, made when it is ready")
        ->type_name("PATH");
    app.add_option("--ctl", options.control, "Control socket, LINK.ctl if left out")
        ->type_name("PATH");
    addIdentity(app, options.modem);
    addStorages(app, options.modem);
    addScripts(app, options);
    addManners(app, options);
    addRecords(app, options);
    app.set_version_flag("--version", std::string("smspb-simmodem " SMSPB_VERSION));
    app.footer("Example: smspb-simmodem --link /tmp/modem --fault '+CMGS=cms=500:1'");
}

} // namespace smspb::simmodem
