#include "platform/simmodem/program.h"

#include "platform/simmodem/control/control.h"
#include "platform/simmodem/control/events.h"
#include "platform/simmodem/line/dialogue.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/state/state.h"

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
          alarm_(io_), reading_(io_), comeback_(modem_.clock), log_(modem_.clock),
          dialogue_(modem_, log_, std::chrono::milliseconds(options.latencyMs), surroundings()),
          control_(io_, controlSocket(options),
                   [this](std::string_view line) { return answerEvent(line); }) {
        if (options.drivenFrom) { modem_.clock.drive(*options.drivenFrom); }
        if (!options.log.empty()) { log_.open(options.log); }
        takeScripts();
        if (!options.state.empty()) { state_.emplace(options.state, modem_); }
        modem_.clock.observe([this] { setAlarm(); },
                             [this] {
                                 keepState();
                                 dialogue_.flushUnsolicited();
                             });
        signals_.async_wait([this](const std::error_code &, int) { io_.stop(); });
        appear();
    }

    void run() {
        io_.run();
        keepState();
    }

private:
    void takeScripts() {
        modem_.faults.seed(options_.seed);
        for (const std::string &fault : options_.faults) { modem_.faults.add(fault); }
        for (const std::string &file : options_.faultFiles) {
            for (const std::string &fault : readFaultFile(file)) { modem_.faults.add(fault); }
        }
        for (const std::string &answer : options_.ussdAnswers) { modem_.ussd.script.add(answer); }
    }

    Dialogue::Surroundings surroundings() {
        return {[this](const std::string &text) { terminal_->write(text); },
                [this](std::chrono::milliseconds away, Dialogue::Hanging hanging) {
                    isLeaving_ = true;
                    hanging == Dialogue::Hanging::atOnce ? vanish(away)
                                                         : vanishOnceRead(away, READ_TRIES);
                },
                [this] { keepState(); }};
    }

    // Before anybody is told of what has changed.
    void keepState() {
        if (state_) { state_->keep(); }
    }

    // What the control socket asks for; what goes out waits while a command runs.
    std::string answerEvent(std::string_view line) {
        nlohmann::json answer;
        terminal_->readAll(); // what was sent before the event comes before it
        log_.write(TrafficLog::Mark::event, line);
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
        keepState();
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
        terminal_ = std::make_shared<Terminal>(io_, modem_.clock, options_.pieces);
        terminal_->start([this](std::string_view characters) {
            if (!isLeaving_) { dialogue_.receive(characters); }
        });
        link_ = std::make_unique<TerminalLink>(options_.link, terminal_->name());
        isLeaving_ = false;
        log_.write(TrafficLog::Mark::event, "the terminal is there");
        receivePending(modem_);
        keepState();
    }

    // A hang-up takes away what the other side has not read, so that is given a moment to.
    void vanishOnceRead(std::chrono::milliseconds away, unsigned tries) {
        if (tries == 0 || terminal_->isRead()) { return vanish(away); }
        reading_.expires_after(std::chrono::milliseconds(1));
        reading_.async_wait([this, away, tries](const std::error_code &error) {
            if (!error) { vanishOnceRead(away, tries - 1); }
        });
    }

    void vanish(std::chrono::milliseconds away) {
        link_.reset();
        terminal_->close();
        log_.write(TrafficLog::Mark::event, "the terminal is gone");
        modem_.restart();
        comeback_.start(away, [this] { appear(); });
    }

    static constexpr unsigned READ_TRIES = 1000;

    const Options &options_;
    Modem modem_;
    asio::io_context io_{1}; // holds what uses the modem's clock
    asio::signal_set signals_;
    asio::steady_timer alarm_; // for the next timer of a clock that runs
    asio::steady_timer reading_;
    Timer comeback_;
    bool isLeaving_ = false; // nothing is taken from the terminal any more
    TrafficLog log_;
    std::optional<StateFile> state_;
    std::shared_ptr<Terminal> terminal_;
    std::unique_ptr<TerminalLink> link_;
    Dialogue dialogue_;
    Control control_;
};

} // namespace

void serve(const Options &options) {
    auto log = std::make_shared<spdlog::logger>("simmodem",
                                                std::make_shared<spdlog::sinks::stderr_sink_st>());
    log->set_level(spdlog::level::warn);
    log->set_pattern("%H:%M:%S.%e smspb-simmodem: %v");
    spdlog::set_default_logger(std::move(log));
    Program program(options);
    std::printf("ready: %s\n", options.link.c_str());
    std::fflush(stdout);
    program.run();
}

} // namespace smspb::simmodem
