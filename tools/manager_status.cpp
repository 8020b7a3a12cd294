#include "tools/manager_status.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "comm/zeldcard_common.h"

namespace smspb::cli {

namespace {

constexpr u32 MANAGER_DESTINATION = 1; // its IPC destination
constexpr u32 STATUS_REQUEST = 0x1040f001;
constexpr u32 STATUS_WAIT_MS = 3000;
constexpr u32 ANSWER_OCTETS_MAX = 64 * 1024;
// Of the response: result, transfer flag, length, then the document.
constexpr u32 RESULT = 0, LENGTH = 8, DOCUMENT = 12;

u32 wordAt(const std::vector<char> &octets, u32 offset) {
    u32 value = 0;
    std::memcpy(&value, octets.data() + offset, sizeof(value));
    return value;
}

std::string lapse(const Json &milliseconds) {
    const auto ms = milliseconds.get<long long>();
    const long long seconds = ms / 1000, minutes = seconds / 60, hours = minutes / 60;
    if (seconds < 60) { return fmt::format("{}.{} s", seconds, ms / 100 % 10); }
    if (hours < 1) { return fmt::format("{} min {} s", minutes, seconds % 60); }
    if (hours < 48) { return fmt::format("{} h {} min", hours, minutes % 60); }
    return fmt::format("{} d {} h", hours / 24, hours % 24);
}

std::string requestWords(const Json &request) {
    const auto command = request.at("command").get<std::string>();
    return fmt::format("{}{}{} of process {} ({}), user {}, for {}",
                       request.at("kind").get<std::string>(), command.empty() ? "" : " ", command,
                       request.at("process").get<long long>(),
                       request.at("program").get<std::string>(),
                       request.at("user").get<long long>(), lapse(request.at("ms")));
}

std::string ttyWords(const Json &tty) {
    const std::string trouble =
        tty.at("trouble").is_null() ? "" : ": " + tty.at("trouble").get<std::string>();
    return fmt::format("{} at {} baud, {}{}", tty.at("path").get<std::string>(),
                       tty.at("baud").get<long long>(), tty.at("state").get<std::string>(),
                       trouble);
}

// The counts that are not zero, each behind what it counts.
std::string countWords(const std::vector<std::pair<std::string, Json>> &all) {
    std::string text;
    for (const auto &[name, count] : all) {
        if (count == 0) { continue; }
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, count.get<long long>());
    }
    return text.empty() ? "none" : text;
}

std::string kindWords(const Json &counted) {
    std::vector<std::pair<std::string, Json>> all;
    for (const auto &[kind, count] : counted.items()) { all.emplace_back(kind, count); }
    return countWords(all);
}

std::string resultWords(const Json &counted) {
    static constexpr std::array<const char *, 9> RESULTS = {
        "carried out",  "malformed",      "no modem", "no final result in time",
        "no prompt",    "reply too long", "too many", "no transfer file",
        "shutting down"};
    std::vector<std::pair<std::string, Json>> all;
    for (std::size_t result = 0; result < counted.size(); result++) {
        const bool isKnown = result < RESULTS.size();
        all.emplace_back(isKnown ? RESULTS.at(result) : fmt::format("result {}", result),
                         counted.at(result));
    }
    return countWords(all);
}

std::string eventWords(const Json &counters) {
    return countWords({
        {         "texts sent", counters.at("texts_sent")},
        {       "reports told",    counters.at("reports")},
        {         "late lines", counters.at("late_lines")},
        {"askers that hung up",    counters.at("hung_up")},
        {         "modem lost",       counters.at("lost")},
        {         "modem back",       counters.at("back")}
    });
}

} // namespace

std::optional<Json> managerStatus() {
    std::vector<char> answer(ANSWER_OCTETS_MAX);
    u32 octets = ANSWER_OCTETS_MAX;
    const u32 status = zeldcard_send_request_sync(MANAGER_DESTINATION, STATUS_REQUEST, nullptr, 0,
                                                  answer.data(), &octets, STATUS_WAIT_MS);
    const bool isAnswer = status == IPC_OK && octets > DOCUMENT && wordAt(answer, RESULT) == 0 &&
                          wordAt(answer, LENGTH) == octets - DOCUMENT;
    if (!isAnswer) { return std::nullopt; }
    Json document = Json::parse(answer.data() + DOCUMENT, answer.data() + octets, nullptr, false);
    if (!document.is_object()) { return std::nullopt; }
    return document;
}

Fields describeManager(const Json &status) {
    const Json &waiting = status.at("waiting");
    const Json &counters = status.at("counters");
    Fields fields;
    fields.add("manager",
               fmt::format("{}, process {}, up {}", status.at("version").get<std::string>(),
                           status.at("process").get<long long>(), lapse(status.at("uptime_ms"))));
    fields.add("tty", ttyWords(status.at("tty")));
    fields.add("running",
               status.at("running").is_null() ? "nothing" : requestWords(status.at("running")));
    fields.add("waiting", waiting.empty() ? "nothing" : std::to_string(waiting.size()));
    for (const Json &one : waiting) { fields.add("", requestWords(one)); }
    fields.add("requests", kindWords(counters.at("requests")));
    fields.add("answers", resultWords(counters.at("results")));
    fields.add("counted", eventWords(counters));
    return fields;
}

} // namespace smspb::cli
