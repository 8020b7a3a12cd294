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
#include "platform/modemd/at_engine.h"
#include "platform/modemd/ipc_face.h"
#include "platform/modemd/modem_service.h"
#include "platform/modemd/request_queue.h"
#include "platform/modemd/service_manager.h"

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
    spdlog::set_level(options.verbose ? spdlog::level::debug : spdlog::level::info);
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

} // namespace

void serve(const Options &options) {
    openLog(options);
    std::signal(SIGPIPE, SIG_IGN); // whoever reads our log or an answer may go at any time
    ipc::setRuntimeGroup(groupNamed(options.group));
    asio::io_context loop(1);
    IpcFace face(loop, std::chrono::seconds(options.keepTransfers));
    AtEngine engine(loop, options.device, options.baud, notifyReport);
    ModemService service(engine);
    RequestQueue queue([&service](const Request &request, RequestQueue::OnAnswer onAnswer) {
        service.carryOut(request, std::move(onAnswer));
    });
    engine.start();
    face.listen(queue);
    std::puts("ready");
    std::fflush(stdout);
    tellServiceManager("READY=1");

    // The command that runs is finished first; who waits, or comes meanwhile, is turned away.
    asio::signal_set signals(loop, SIGINT, SIGTERM, SIGHUP);
    const auto end = [&] {
        signals.cancel();
        face.stop();
        engine.stop();
    };
    signals.async_wait([&](asio::error_code, int number) {
        spdlog::info("ending on signal {}", number);
        tellServiceManager("STOPPING=1");
        signals.async_wait([&](asio::error_code error, int again) {
            if (error) { return; }
            spdlog::warn("ending on a second signal, {}: what runs is cut short", again);
            end();
        });
        queue.stop(end);
    });
    loop.run();
}

} // namespace smspb::modemd
