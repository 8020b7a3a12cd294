#include "program.h"

#include "control.h"
#include "dialogue.h"
#include "events.h"
#include "terminal.h"

#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <nlohmann/json.hpp>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace smspb::simmodem {
namespace {

std::filesystem::path controlSocket(const Options &options) {
    if (options.control.empty()) { return controlPathOf(options.link); }
    return options.control;
}

class Program {
public:
    explicit Program(const Options &options)
        : options_(options), modem_(options.modem), signals_(io_, SIGINT, SIGTERM, SIGHUP),
          alarm_(io_), comeback_(modem_.clock),
          dialogue_(
              modem_, std::chrono::milliseconds(options.latencyMs),
              [this](std::string text) { terminal_->write(text); },
              [this](std::chrono::milliseconds away) { vanish(away); }),
          control_(io_, controlSocket(options),
                   [this](std::string_view line) { return answerEvent(line); }) {
        for (const std::string &fault : options.faults) { modem_.faults.add(fault); }
        for (const std::string &answer : options.ussdAnswers) { modem_.ussd.script.add(answer); }
        if (options.drivenFrom) { modem_.clock.drive(*options.drivenFrom); }
        modem_.clock.observe([this] { setAlarm(); }, [this] { dialogue_.flushUnsolicited(); });
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

    // A driven clock ends its timers as it is driven; those whose moment has come already, at once.
    void setAlarm() {
        const Clock &clock = modem_.clock;
        const auto next = clock.nextEnd();
        if (!next || (clock.isDriven() && *next > clock.now())) { return; }
        alarm_.expires_after(std::max(*next - clock.now(), Clock::Duration(0)));
        alarm_.async_wait([this](const std::error_code &error) {
            if (!error) { modem_.clock.endDue(); }
        });
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
        comeback_.start(away, [this] { appear(); });
    }

    const Options &options_;
    asio::io_context io_{1};
    Modem modem_;
    asio::signal_set signals_;
    asio::steady_timer alarm_; // for the next timer of a clock that runs
    Timer comeback_;
    std::shared_ptr<Terminal> terminal_;
    std::unique_ptr<TerminalLink> link_;
    Dialogue dialogue_;
    Control control_;
};

} // namespace

void serve(const Options &options) {
    auto log = std::make_shared<spdlog::logger>("simmodem",
                                                std::make_shared<spdlog::sinks::stderr_sink_st>());
    log->set_level(options.verbose ? spdlog::level::trace : spdlog::level::warn);
    log->set_pattern("%H:%M:%S.%e smspb-simmodem: %v");
    spdlog::set_default_logger(std::move(log));
    Program program(options);
    std::printf("ready: %s\n", options.link.c_str());
    std::fflush(stdout);
    program.run();
}

} // namespace smspb::simmodem
