// smspb-simmodem: a simulated modem on a pseudo-terminal.
#include "control.h"
#include "control_command.h"
#include "dialogue.h"
#include "events.h"
#include "terminal.h"

#include <CLI/CLI.hpp>
#include <asio/signal_set.hpp>
#include <nlohmann/json.hpp>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>

namespace {

using namespace smspb::simmodem;

struct Options {
    std::string link, control;
    ModemOptions modem;
    std::vector<std::string> faults, ussdAnswers;
    unsigned latencyMs = 0;
    bool verbose = false;
};

std::filesystem::path controlSocket(const Options &options) {
    if (options.control.empty()) { return controlPathOf(options.link); }
    return options.control;
}

class Program {
public:
    explicit Program(const Options &options)
        : options_(options), modem_(options.modem), signals_(io_, SIGINT, SIGTERM, SIGHUP),
          comeback_(io_), dialogue_(
                              io_, modem_, std::chrono::milliseconds(options.latencyMs),
                              [this](std::string text) { terminal_->write(text); },
                              [this](std::chrono::milliseconds away) { vanish(away); }),
          control_(io_, controlSocket(options),
                   [this](std::string_view line) { return answerEvent(line); }) {
        for (const std::string &fault : options.faults) { modem_.faults.add(fault); }
        for (const std::string &answer : options.ussdAnswers) { modem_.ussd.script.add(answer); }
        signals_.async_wait([this](const std::error_code &, int) { io_.stop(); });
        appear();
    }

    void run() { io_.run(); }

private:
    // What the control socket asks for; what goes out waits while a command runs.
    std::string answerEvent(std::string_view line) {
        nlohmann::json answer;
        try {
            answer = carryOutEvent(modem_, nlohmann::json::parse(line));
        } catch (const nlohmann::json::exception &error) {
            answer = {
                {"error", std::string("not a line of JSON: ") + error.what()}
            };
        } catch (const std::invalid_argument &error) {
            answer = {
                {"error", error.what()}
            };
        }
        dialogue_.flushUnsolicited();
        return answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }

    void appear() {
        terminal_ = std::make_shared<Terminal>(io_);
        terminal_->start([this](std::string_view characters) { dialogue_.receive(characters); });
        link_ = std::make_unique<TerminalLink>(options_.link, terminal_->name());
        spdlog::debug("{} is {}", options_.link, terminal_->name());
    }

    void vanish(std::chrono::milliseconds away) {
        link_.reset();
        terminal_->close();
        modem_.restart();
        comeback_.expires_after(away);
        comeback_.async_wait([this](const std::error_code &error) {
            if (!error) { appear(); }
        });
    }

    const Options &options_;
    asio::io_context io_{1};
    Modem modem_;
    asio::signal_set signals_;
    asio::steady_timer comeback_;
    std::shared_ptr<Terminal> terminal_;
    std::unique_ptr<TerminalLink> link_;
    Dialogue dialogue_;
    Control control_;
};

std::string checkNumber(const std::string &text) {
    return isNumber(text) ? "" : "\"" + text + "\" is no number: \"+\" and digits, 20 at most";
}

std::string checkFault(const std::string &text) { return Faults().add(text); }

std::string checkUssd(const std::string &text) { return UssdScript().add(text); }

void addOptions(CLI::App &app, Options &options) {
    static constexpr std::size_t STORAGE_MAX = 10000;
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
    app.add_option("--me-size", options.modem.meSize, "Places of the storage ME")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{0}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--sm-size", options.modem.smSize, "Places of the storage SM")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{0}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--pb-sm-size", options.modem.smPhonebookSize, "Places of the phonebook SM")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--pb-me-size", options.modem.mePhonebookSize, "Places of the phonebook ME")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, STORAGE_MAX))
        ->type_name("");
    app.add_option("--pb-number-max", options.modem.phonebookLimits.numberMax,
                   "Longest number of a phonebook entry, without \"+\"")
        ->capture_default_str()
        ->check(CLI::Range(1, 80))
        ->type_name("");
    app.add_option("--pb-name-max", options.modem.phonebookLimits.nameMax,
                   "Longest name of a phonebook entry")
        ->capture_default_str()
        ->check(CLI::Range(0, 240))
        ->type_name("");
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
    app.add_flag("--verbose", options.verbose, "Trace every line on standard error");
    app.set_version_flag("--version", std::string("smspb-simmodem " SMSPB_VERSION));
    app.footer("Example: smspb-simmodem --link /tmp/modem --fault '+CMGS=cms=500:1'");
}

int serve(const Options &options) {
    auto log = std::make_shared<spdlog::logger>("simmodem",
                                                std::make_shared<spdlog::sinks::stderr_sink_st>());
    log->set_level(options.verbose ? spdlog::level::trace : spdlog::level::warn);
    log->set_pattern("%H:%M:%S.%e smspb-simmodem: %v");
    spdlog::set_default_logger(std::move(log));
    Program program(options);
    std::printf("ready: %s\n", options.link.c_str());
    std::fflush(stdout);
    program.run();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    try {
        CLI::App app("A simulated modem (3GPP TS 27.005, 27.007) on a pseudo-terminal.");
        Options options;
        std::function<int()> command;
        addOptions(app, options);
        addControlCommand(app, command);
        CLI11_PARSE(app, argc, argv);
        if (command) { return command(); }
        if (options.link.empty()) { throw std::runtime_error("--link is required"); }
        return serve(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "smspb-simmodem: %s\n", error.what());
        return 1;
    }
}
