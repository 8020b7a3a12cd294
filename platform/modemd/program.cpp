#include "platform/modemd/program.h"

#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <utility>

#include <grp.h>

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>

#include "platform/ipc/ipc_server.h"
#include "platform/modemd/account.h"
#include "platform/modemd/alarm.h"
#include "platform/modemd/at_engine.h"
#include "platform/modemd/ipc_face.h"
#include "platform/modemd/modem_service.h"
#include "platform/modemd/request_queue.h"
#include "platform/modemd/service_manager.h"
#include "platform/modemd/status.h"

namespace smspb::modemd {
namespace {

void openLog(const Options &options) {
    if (options.toSyslog) {
        spdlog::set_default_logger(
            spdlog::syslog_logger_st("smspb-modemd", "smspb-modemd", LOG_PID, LOG_DAEMON));
        spdlog::set_pattern("%v");
    } else {
        spdlog::set_default_logger(spdlog::stderr_color_st("smspb-modemd"));
        spdlog::set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$: %v");
    }
    spdlog::set_level(spdlog::level::from_str(options.logLevel));
}

// Nothing for an empty name. A number that no group has is taken as it is.
std::optional<gid_t> groupNamed(const std::string &name) {
    if (name.empty()) { return std::nullopt; }
    if (const group *found = getgrnam(name.c_str()); found != nullptr) { return found->gr_gid; }
    gid_t number = 0;
    const char *end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    if (error == std::errc() && stop == end) { return number; }
    throw std::runtime_error("--group " + name +
                             ": no group of that name; \"getent group\" lists them");
}

// The parts, joined. Each may be called by those below it.
class Manager {
public:
    explicit Manager(const Options &options)
        : face_(loop_, std::chrono::seconds(options.keepTransfers), ledger_),
          engine_(
              loop_, options.device, options.baud,
              [this](std::string_view lines) { notifyReport(lines, ledger_); },
              [this](bool isSilent) { queue_.setModemSilent(isSilent); }),
          service_(engine_),
          queue_(
              [this](const RequestQueue::Job &job, RequestQueue::OnAnswer onAnswer) {
                  service_.carryOut(job.request, job.account.arrival, std::move(onAnswer));
              },
              [this](Clock::time_point at) {
                  expiry_.set(at, [this] { queue_.expire(Clock::now()); });
              }) {}

    void begin() {
        engine_.start();
        face_.listen(queue_, [this] {
            return statusDocument({SMSPB_VERSION, started_, engine_, queue_, ledger_});
        });
    }
    void run() {
        signals_.async_wait([this](asio::error_code, int number) { onSignal(number); });
        loop_.run();
    }

private:
    // The command that runs is finished first; who waits, or comes meanwhile, is turned away.
    void onSignal(int number) {
        spdlog::info("ending on signal {}", number);
        tellServiceManager("STOPPING=1");
        signals_.async_wait([this](asio::error_code error, int again) {
            if (error) { return; }
            spdlog::warn("ending on a second signal, {}: what runs is cut short", again);
            end();
        });
        queue_.stop([this] { end(); });
    }

    void end() {
        signals_.cancel();
        face_.stop();
        engine_.stop();
        expiry_.stop();
    }

    const Clock::time_point started_ = Clock::now();
    asio::io_context loop_{1};
    Ledger ledger_;
    Alarm expiry_{loop_}; // of those who wait in the queue
    IpcFace face_;
    AtEngine engine_;
    ModemService service_;
    RequestQueue queue_;
    asio::signal_set signals_{loop_, SIGINT, SIGTERM, SIGHUP};
};

} // namespace

void serve(const Options &options) {
    openLog(options);
    std::signal(SIGPIPE, SIG_IGN); // whoever reads our log or an answer may go at any time
    ipc::setRuntimeGroup(groupNamed(options.group));
    Manager manager(options);
    manager.begin();
    std::puts("ready");
    std::fflush(stdout);
    tellServiceManager("READY=1");
    manager.run();
}

} // namespace smspb::modemd
