#include "platform/simmodem/control/control_command.h"

#include "platform/simmodem/control/control.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace smspb::simmodem {
namespace {

using Json = nlohmann::json;

// What the command line asks for.
// NOLINTNEXTLINE(bugprone-exception-escape): only assertions in the move of nlohmann's type
struct Asked {
    std::string link, path, faultFile;
    Json event;
};

int ask(const Asked &asked) {
    const std::filesystem::path path =
        asked.path.empty() ? controlPathOf(asked.link) : std::filesystem::path(asked.path);
    Json event = asked.event;
    if (!asked.faultFile.empty()) { event["faults"] = readFaultFile(asked.faultFile); }
    std::string line;
    try {
        line = event.dump();
    } catch (const Json::type_error &) {
        std::fputs("smspb-simmodem ctl: a text of the event is no UTF-8\n", stderr);
        return 1;
    }
    const Json answer = Json::parse(askControl(path, line), nullptr, false);
    const std::string error =
        answer.is_object() ? answer.value("error", "") : "the answer is no JSON object";
    if (!error.empty()) {
        std::fprintf(stderr, "smspb-simmodem ctl: %s\n", error.c_str());
        return 1;
    }
    if (!answer.empty()) { std::printf("%s\n", answer.dump().c_str()); }
    return 0;
}

// An option or argument that goes into the event as it is, under its own name.
void addText(CLI::App &command, Asked &asked, const std::string &option, const std::string &name,
             const std::string &description, bool required = false) {
    command
        .add_option_function<std::string>(
            option, [&asked, name](const std::string &text) { asked.event[name] = text; },
            description)
        ->required(required)
        ->type_name("");
}

void addNumber(CLI::App &command, Asked &asked, const std::string &option, const std::string &name,
               const std::string &description, bool required = false) {
    command
        .add_option_function<unsigned>(
            option, [&asked, name](const unsigned &number) { asked.event[name] = number; },
            description)
        ->required(required)
        ->type_name("N");
}

CLI::App &addEvent(CLI::App &ctl, Asked &asked, const std::string &name,
                   const std::string &description) {
    CLI::App &command = *ctl.add_subcommand(name, description);
    command.preparse_callback([&asked, name](std::size_t) { asked.event["event"] = name; });
    return command;
}

void addTime(CLI::App &command, Asked &asked) {
    addText(command, asked, "--time", "time", "The clock there: \"2026-11-21 10:00:00\"");
    addText(command, asked, "--zone", "zone", "Its distance from GMT: +05:45");
}

void addMessages(CLI::App &ctl, Asked &asked) {
    CLI::App &text = addEvent(ctl, asked, "text", "A message comes in, in parts when it is long");
    addText(text, asked, "FROM", "from", "A number, or a name of 11 characters at most", true);
    addText(text, asked, "TEXT", "text", "The text in UTF-8", true);
    addNumber(text, asked, "--class", "class", "0 for the display, 1, 2 for the SIM, 3");
    addText(text, asked, "--coding", "coding", "auto, gsm or ucs2");
    addTime(text, asked);

    CLI::App &pdu = addEvent(ctl, asked, "pdu", "A DELIVER or STATUS-REPORT comes in");
    addText(pdu, asked, "HEX", "pdu", "The TPDU, without a service centre", true);

    CLI::App &report = addEvent(ctl, asked, "report", "A status report comes in");
    addNumber(report, asked, "REFERENCE", "reference", "What the message was sent under", true);
    addText(report, asked, "--to", "to", "The number that it was sent to; the own one if left out");
    addNumber(report, asked, "--status", "status", "TP-ST: 0 received, 48 and above not");
    addTime(report, asked);

    CLI::App &page = addEvent(ctl, asked, "page", "Cell broadcast: a text in one or more pages");
    addText(page, asked, "TEXT", "text", "The text in UTF-8", true);
    addNumber(page, asked, "--id", "id", "Message identifier, 50 if left out");
    addNumber(page, asked, "--serial", "serial", "Serial number; the next one if left out");
    addText(page, asked, "--coding", "coding", "auto, gsm or ucs2");
}

void addOthers(CLI::App &ctl, Asked &asked) {
    CLI::App &ring = addEvent(ctl, asked, "ring", "Somebody calls");
    addText(ring, asked, "NUMBER", "number", "The caller's number, for AT+CLIP=1");

    CLI::App &ussd = addEvent(ctl, asked, "ussd", "The network speaks USSD unasked");
    addText(ussd, asked, "TEXT", "text", "The text in UTF-8; none for the status alone");
    addNumber(ussd, asked, "--status", "status", "+CUSD <m>: 0 ended, 1 waits for a reply, 2 to 5");
    addNumber(ussd, asked, "--dcs", "dcs", "15, or 72 for UCS-2");
    addText(ussd, asked, "--code", "code", "Whose replies the script has, with --status 1");

    CLI::App &sim = addEvent(ctl, asked, "sim", "The SIM is taken out or put in");
    addText(sim, asked, "ACTION", "action", "remove or insert", true);

    CLI::App &storage = addEvent(ctl, asked, "storage", "A storage is filled or emptied");
    addText(storage, asked, "ACTION", "action", "fill or clear", true);
    addText(storage, asked, "NAME", "name", "sm or me", true);

    CLI::App &fault = addEvent(ctl, asked, "fault", "Adds a fault, or forgets them all");
    addText(fault, asked, "FAULT", "fault", "As --fault takes it, or clear", true);

    CLI::App &faults = addEvent(ctl, asked, "faults", "Adds the faults of a file");
    faults
        .add_option_function<std::string>(
            "FILE", [&asked](const std::string &path) { asked.faultFile = path; },
            "One fault a line, \"#\" before a comment")
        ->required()
        ->type_name("");

    CLI::App &reset =
        addEvent(ctl, asked, "reset", "The modem forgets all settings, as in a brown-out");
    addText(reset, asked, "TEXT", "text", "What it says then of its own accord");

    CLI::App &raw = addEvent(ctl, asked, "raw", "The modem says a line of its own accord");
    addText(raw, asked, "LINE", "line", "The line; \\n or \\r in it is a line end", true);

    CLI::App &advance = addEvent(ctl, asked, "advance", "Time goes by on a driven clock");
    addText(advance, asked, "TIME", "by", "90 or 90s, 250ms, 5m, 1h, 1d", true);

    addEvent(ctl, asked, "status", "Shows what the modem holds, as JSON");
}

} // namespace

void addControlCommand(CLI::App &app, const Options &options, std::function<int()> &run) {
    const auto asked = std::make_shared<Asked>();
    CLI::App &ctl = *app.add_subcommand("ctl", "Let something happen to a running simulated modem");
    ctl.require_subcommand(1);
    ctl.fallthrough();
    ctl.add_option("--link", asked->link, "The modem's link; its socket is LINK.ctl")
        ->type_name("PATH");
    ctl.add_option("--ctl", asked->path, "The modem's control socket")->type_name("PATH");
    addMessages(ctl, *asked);
    addOthers(ctl, *asked);
    ctl.footer("Example: smspb-simmodem ctl --link /tmp/modem text +4917012345 'Hello'");
    ctl.callback([asked, &run, &options] {
        if (asked->link.empty() && asked->path.empty()) {
            asked->link = options.link;
            asked->path = options.control;
        }
        if (asked->link.empty() && asked->path.empty()) {
            throw CLI::RequiredError("--link or --ctl");
        }
        run = [asked] { return ask(*asked); };
    });
}

} // namespace smspb::simmodem
