#include "platform/modemd/status.h"

#include <unistd.h>

#include <fmt/format.h>

#include "platform/modemd/holder.h"

namespace smspb::modemd {
namespace {

long long millisecondsSince(Clock::time_point then) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - then).count();
}

std::string quotedOrNull(std::string_view text) { return text.empty() ? "null" : jsonString(text); }

std::string ttyMember(const AtEngine &engine) {
    const Tty &tty = engine.tty();
    return fmt::format(R"({{"path":{},"baud":{},"open":{},"state":{},"trouble":{},"holder":{}}})",
                       jsonString(tty.path()), tty.baud(), tty.isOpen(), jsonString(engine.state()),
                       quotedOrNull(engine.trouble()), quotedOrNull(engine.holder()));
}

std::string requestMember(const Account &account, Clock::time_point since) {
    const Asker &asker = account.asker;
    return fmt::format(R"({{"process":{},"program":{},"user":{},"kind":{},"command":{},"ms":{}}})",
                       asker.process, jsonString(programOf(asker.process)), asker.user,
                       jsonString(nameOf(account.kind)), jsonString(account.name),
                       millisecondsSince(since));
}

std::string runningMember(const Account *running) {
    return running != nullptr ? requestMember(*running, *running->begin) : "null";
}

std::string waitingMember(const RequestQueue &queue) {
    std::string list;
    for (const Account *account : queue.waiting()) {
        if (!list.empty()) { list += ','; }
        list += requestMember(*account, account->arrival);
    }
    return "[" + list + "]";
}

std::string requestCounts(const Counters &counters) {
    std::string members;
    for (std::size_t kind = 0; kind < KIND_COUNT; kind++) {
        members +=
            fmt::format("{}{}:{}", kind == 0 ? "" : ",",
                        jsonString(nameOf(static_cast<Kind>(kind))), counters.requests.at(kind));
    }
    return "{" + members + "}";
}

std::string countersMember(const Counters &counters, const Happenings &happenings) {
    constexpr auto TIMED_OUT = static_cast<std::size_t>(Result::NO_ANSWER);
    return fmt::format(R"({{"requests":{},"results":[{}],"time_outs":{},"hung_up":{},)"
                       R"("texts_sent":{},"reports":{},"late_lines":{},"lost":{},"back":{}}})",
                       requestCounts(counters), fmt::join(counters.results, ","),
                       counters.results.at(TIMED_OUT), counters.hungUp, counters.textsSent,
                       counters.reports, happenings.lateLines, happenings.lost, happenings.back);
}

} // namespace

std::string jsonString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet < 0x20 || octet >= 0x7f) {
            out += fmt::format("\\u{:04x}", octet);
        } else {
            if (c == '"' || c == '\\') { out += '\\'; }
            out += c;
        }
    }
    return out + "\"";
}

std::string statusDocument(const StatusSources &sources) {
    return fmt::format(
        R"({{"version":{},"process":{},"uptime_ms":{},"tty":{},"running":{},"waiting":{},)"
        R"("counters":{}}})",
        jsonString(sources.version), ::getpid(), millisecondsSince(sources.started),
        ttyMember(sources.engine), runningMember(sources.queue.running()),
        waitingMember(sources.queue),
        countersMember(sources.ledger.counters(), sources.engine.happenings()));
}

} // namespace smspb::modemd
