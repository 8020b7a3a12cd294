#include "tools/stored.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <tuple>

#include <fmt/format.h>

#include "tools/failure.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr u32 INDEX_MAX = 65535; // SmsRecord.index
constexpr std::int64_t PART_GAP_SECONDS = 3600;
constexpr std::string_view LINE_END = "\r\n";

// The line up to the next end, which is taken off the text.
std::string_view takeLine(std::string_view &text) {
    const std::size_t end = text.find_first_of(LINE_END);
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return line;
}

void decode(Stored &stored) {
    try {
        stored.message = interpret(stored.pdu);
    } catch (const Failure &failure) { stored.problem = failure.what(); }
}

auto keyOf(const Message &message) {
    return std::tuple(message.kind, std::string_view(message.number), message.part->reference,
                      message.part->total);
}

// A message that is being put together.
struct Group {
    Joined joined;
    std::int64_t lastTime = 0;

    bool takes(const Message &message) const {
        const Message &first = *joined.parts.front().message;
        if (!first.part || keyOf(first) != keyOf(message)) { return false; }
        if (message.seconds && *message.seconds - lastTime > PART_GAP_SECONDS) { return false; }
        return std::none_of(joined.parts.begin(), joined.parts.end(), [&](const Stored &part) {
            return part.message->part->number == message.part->number;
        });
    }
};

u32 lowestIndex(const Joined &joined) {
    return std::min_element(joined.parts.begin(), joined.parts.end(),
                            [](const Stored &a, const Stored &b) { return a.index < b.index; })
        ->index;
}

void place(Stored stored, std::vector<Group> &groups) {
    const bool isPart = stored.message && stored.message->part;
    const auto group = std::find_if(groups.begin(), groups.end(), [&](const Group &candidate) {
        return isPart && candidate.joined.parts.front().message && candidate.takes(*stored.message);
    });
    const std::int64_t time = stored.message ? stored.message->seconds.value_or(0) : 0;
    if (group != groups.end()) {
        group->lastTime = time;
        group->joined.parts.push_back(std::move(stored));
        return;
    }
    const unsigned total = isPart ? stored.message->part->total : 1;
    groups.push_back({
        Joined{total, {std::move(stored)}},
        time
    });
}

void sortParts(Joined &joined) {
    if (joined.parts.size() < 2) { return; }
    std::sort(joined.parts.begin(), joined.parts.end(), [](const Stored &a, const Stored &b) {
        return a.message->part->number < b.message->part->number;
    });
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
    std::vector<Group> groups;
    for (Stored &one : stored) { place(std::move(one), groups); }
    std::vector<Joined> joined;
    for (Group &group : groups) {
        sortParts(group.joined);
        joined.push_back(std::move(group.joined));
    }
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
