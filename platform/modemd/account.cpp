#include "platform/modemd/account.h"

#include <spdlog/spdlog.h>

#include "platform/modemd/at_lines.h"
#include "platform/modemd/holder.h"

namespace smspb::modemd {
namespace {

double inMilliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

void logClosed(const Account &account, std::string_view result) {
    if (!spdlog::should_log(spdlog::level::debug)) { return; }
    const Clock::time_point now = Clock::now();
    const Clock::time_point begin = account.begin.value_or(now);
    spdlog::debug("account: {} {}, process {} ({}), user {}: {}; waited {:.3f} ms, ran {:.3f} ms",
                  nameOf(account.kind), account.details.empty() ? account.name : account.details,
                  account.asker.process, account.program, account.asker.user, result,
                  inMilliseconds(begin - account.arrival), inMilliseconds(now - begin));
}

} // namespace

std::string describe(const Asker &asker) { return describeProcess(asker.process); }

Account Ledger::open(const Asker &asker, Kind kind) {
    counters_.requests.at(static_cast<std::size_t>(kind))++;
    Account account;
    account.asker = asker;
    account.kind = kind;
    if (spdlog::should_log(spdlog::level::debug)) { account.program = programOf(asker.process); }
    return account;
}

void Ledger::close(const Account &account, const Answer &answer) {
    counters_.results.at(static_cast<std::size_t>(answer.result))++;
    const bool isDone = answer.result == Result::CARRIED_OUT && endsInOk(answer.text);
    if (account.kind == Kind::SEND && isDone) { counters_.textsSent++; }
    logClosed(account, describe(answer.result));
}

void Ledger::drop(const Account &account) {
    counters_.hungUp++;
    logClosed(account, "dropped, its asker hung up");
}

bool Ledger::mayLog(const Asker &asker) {
    using Limit = LogLimit<pid_t>;
    const Limit::Verdict verdict = aboutAskers_.judge(asker.process);
    if (verdict == Limit::Verdict::LAST) {
        spdlog::warn("{} fails again and again: not logged for {} s", describe(asker),
                     Limit::TIME.count());
    }
    return verdict == Limit::Verdict::LOG;
}

void Ledger::countReport(bool isTold, std::string_view name) {
    using Limit = LogLimit<std::string>;
    if (isTold) { counters_.reports++; }
    const Limit::Verdict verdict = aboutReports_.judge(std::string(name));
    if (verdict == Limit::Verdict::LAST) {
        spdlog::warn("report {} comes again and again: not logged for {} s", name,
                     Limit::TIME.count());
    }
    if (verdict != Limit::Verdict::LOG) { return; }
    if (isTold) {
        spdlog::info("report told: {}", name);
    } else {
        spdlog::error("report {} not told to everybody", name);
    }
}

} // namespace smspb::modemd
