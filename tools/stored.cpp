#include "tools/stored.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <tuple>

#include <fmt/format.h>

#include "tools/failure.h"
#include "tools/joining.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr u32 INDEX_MAX = 65535; // SmsRecord.index
constexpr std::string_view LINE_END = "\r\n";

// The line up to the next end, which is taken off the text.
std::string_view takeLine(std::string_view &text) {
    const std::size_t end = text.find_first_of(LINE_END);
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return line;
}

u32 lowestIndex(const Joined &joined) {
    return std::min_element(joined.parts.begin(), joined.parts.end(),
                            [](const Stored &a, const Stored &b) { return a.index < b.index; })
        ->index;
}

void place(Stored stored, std::vector<PartGroup> &groups) {
    const auto group = std::find_if(groups.begin(), groups.end(), [&](const PartGroup &candidate) {
        return candidate.takes(stored);
    });
    if (group != groups.end()) { return group->add(std::move(stored)); }
    groups.emplace_back(std::move(stored));
}

[[noreturn]] void refuseIndex(const std::string &text) {
    throw Failure(Exit::USAGE, fmt::format("INDEX \"{}\" is not the index of a message", text),
                  fmt::format("give a number from 0 to {}, or several: 3,5-7", INDEX_MAX));
}

} // namespace

std::string_view statusName(u32 status) {
    static constexpr std::array<std::string_view, 4> NAMES = {"new", "read", "unsent", "sent"};
    return status < NAMES.size() ? NAMES.at(status) : "unknown";
}

void decode(Stored &stored) {
    try {
        stored.message = interpret(stored.pdu);
    } catch (const Failure &failure) { stored.problem = failure.what(); }
}

std::optional<Stored> storedFrom(std::string_view reply, u32 index) {
    // +CMGR: <stat>,[<alpha>],<length>, and the PDU on the next line
    static constexpr std::string_view KEY = "+CMGR:";
    const std::size_t start = reply.find(KEY);
    if (start == reply.npos) { return std::nullopt; }
    reply.remove_prefix(start + KEY.size());
    std::string_view head = takeLine(reply);
    head.remove_prefix(std::min(head.find_first_not_of(' '), head.size()));
    Stored stored;
    stored.index = index;
    const auto [end, error] =
        std::from_chars(head.data(), head.data() + head.size(), stored.status);
    if (error != std::errc() || end == head.data() + head.size() || *end != ',') {
        throw Failure(
            Exit::BAD_REPLY,
            fmt::format("cannot read message {}: the modem gives it as text, not as PDU", index),
            "set PDU mode: smspb at 'AT+CMGF=0'");
    }
    while (!reply.empty() && stored.pdu.empty()) { stored.pdu = takeLine(reply); }
    // Some modems show an empty place as "+CMGR: 0,,0".
    if (stored.pdu.empty() || stored.pdu == "OK") { return std::nullopt; }
    decode(stored);
    return stored;
}

std::vector<Joined> join(std::vector<Stored> stored) {
    // Oldest first, so that of two messages with one reference the older one gets its parts.
    std::stable_sort(stored.begin(), stored.end(), [](const Stored &a, const Stored &b) {
        const auto time = [](const Stored &s) {
            return s.message ? s.message->seconds.value_or(0) : 0;
        };
        return std::tuple(time(a), a.index) < std::tuple(time(b), b.index);
    });
    std::vector<PartGroup> groups;
    for (Stored &one : stored) { place(std::move(one), groups); }
    std::vector<Joined> joined;
    for (PartGroup &group : groups) { joined.push_back(group.take()); }
    std::sort(joined.begin(), joined.end(),
              [](const Joined &a, const Joined &b) { return lowestIndex(a) < lowestIndex(b); });
    return joined;
}

std::string textOf(const Joined &joined) {
    const Stored &first = joined.parts.front();
    if (!first.message) { return first.problem; }
    if (!first.message->part) { return summaryOf(*first.message); }
    // Units are joined before they become characters: a pair may stand across two parts.
    std::u16string text;
    std::string data;
    unsigned next = 1;
    for (const Stored &part : joined.parts) {
        if (part.message->part->number != next) { text += u"[…]"; }
        next = part.message->part->number + 1;
        text += part.message->text;
        if (!part.message->data.empty()) { data += contentOf(*part.message); }
    }
    if (next != joined.total + 1) { text += u"[…]"; }
    return data.empty() ? toUtf8(text) : data;
}

std::string missingParts(const Joined &joined) {
    std::vector<unsigned> missing;
    for (unsigned number = 1; number <= joined.total; number++) {
        const bool there =
            std::any_of(joined.parts.begin(), joined.parts.end(), [number](const Stored &part) {
                return !part.message || !part.message->part || part.message->part->number == number;
            });
        if (!there) { missing.push_back(number); }
    }
    return fmt::format("{}", fmt::join(missing, ", "));
}

std::string indexRanges(std::vector<u32> indexes) {
    std::sort(indexes.begin(), indexes.end());
    std::string text;
    for (std::size_t first = 0; first < indexes.size();) {
        std::size_t last = first;
        while (last + 1 < indexes.size() && indexes[last + 1] == indexes[last] + 1) { last++; }
        text += fmt::format("{}{}", text.empty() ? "" : ",", indexes[first]);
        if (last != first) { text += fmt::format("-{}", indexes[last]); }
        first = last + 1;
    }
    return text;
}

std::vector<u32> parseIndexes(const std::string &text) {
    std::vector<u32> indexes;
    const auto takeNumber = [&text](const char *&at) {
        u32 number = 0;
        const auto [end, error] = std::from_chars(at, text.data() + text.size(), number);
        if (error != std::errc() || number > INDEX_MAX) { refuseIndex(text); }
        at = end;
        return number;
    };
    const char *at = text.data(), *const textEnd = at + text.size();
    for (;;) {
        const u32 first = takeNumber(at);
        u32 last = first;
        if (at != textEnd && *at == '-') { last = takeNumber(++at); }
        if (last < first) { refuseIndex(text); }
        for (u32 index = first; index <= last; index++) { indexes.push_back(index); }
        if (at == textEnd) { return indexes; }
        if (*at++ != ',') { refuseIndex(text); }
    }
}

} // namespace smspb::cli
