#include "tools/events.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <utility>

#include <fmt/format.h>

#include "tools/received.h"
#include "tools/text.h"
#include "tools/ussd_answer.h"

namespace smspb::cli {

namespace {

using What = Indication::What;

constexpr std::string_view USSD_KEY = "+CUSD:";
constexpr std::size_t STORAGE_NAME_MAX = 8;

struct Key {
    std::string_view text;
    What what;
};
constexpr std::array KEYS = {
    Key{ "+CMTI:",        What::STORED},
    Key{ "+CDSI:", What::STORED_REPORT},
    Key{  "+CMT:",        What::DIRECT},
    Key{  "+CDS:", What::DIRECT_REPORT},
    Key{  "+CBM:",          What::PAGE},
    Key{ USSD_KEY,          What::USSD},
    Key{"+CRING:",          What::RING},
    Key{ "+CLIP:",        What::CALLER},
};
constexpr std::string_view RING = "RING";

const Key *keyOf(std::string_view line) {
    const auto *const key = std::find_if(
        KEYS.begin(), KEYS.end(), [line](const Key &row) { return line.starts_with(row.text); });
    return key == KEYS.end() ? nullptr : key;
}

// Up to the next line end, which is taken off as well.
std::string_view takeLine(std::string_view &text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return line;
}

bool bringsPdu(What what) {
    return what == What::DIRECT || what == What::DIRECT_REPORT || what == What::PAGE;
}

// Takes the line behind a +CMT:, +CDS: or +CBM:, unless it begins a report of its own.
void takePduLine(std::string_view &rest, std::string &report) {
    std::string_view ahead = rest;
    std::string_view line;
    while (line.empty() && !ahead.empty()) { line = trimmed(takeLine(ahead)); }
    if (line.empty() || keyOf(line) != nullptr) { return; }
    (report += "\r\n") += line;
    rest = ahead;
}

// Whether the quoted text goes on: it ends with a quote and perhaps a number behind it, since it
// may hold quotes itself.
bool isQuoteOpen(std::string_view report) {
    const std::size_t open = report.find('"');
    if (open == report.npos) { return false; }
    std::string_view text = report.substr(open + 1);
    const std::size_t last = text.find_last_not_of("0123456789 ");
    text = text.substr(0, last + 1); // npos + 1 is 0
    return !text.ends_with('"') && !text.ends_with("\",");
}

// Takes the lines of a USSD text up to its end.
void takeQuotedLines(std::string_view &rest, std::string &report) {
    while (isQuoteOpen(report) && !rest.empty()) {
        std::string_view line = takeLine(rest);
        if (line.ends_with('\r')) { line.remove_suffix(1); }
        (report += "\r\n") += line;
    }
}

// "NAME",index
bool takePlace(std::string_view fields, Indication &indication) {
    if (!fields.starts_with('"')) { return false; }
    const std::size_t close = fields.find('"', 1);
    if (close == fields.npos || close == 1 || close > STORAGE_NAME_MAX + 1) { return false; }
    const std::string_view name = fields.substr(1, close - 1);
    const bool isName =
        std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) != 0; });
    const std::string_view number = trimmed(fields.substr(close + 1));
    if (!isName || !number.starts_with(',')) { return false; }
    const std::string_view digits = trimmed(number.substr(1));
    u32 index = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
    if (error != std::errc() || end != digits.data() + digits.size()) { return false; }
    indication.storage = name;
    indication.index = index;
    return true;
}

// <number>,<type>,... ; an empty number is a caller who withholds it.
bool takeCaller(std::string_view fields, Indication &indication) {
    if (!fields.starts_with('"')) { return false; }
    const std::size_t close = fields.find('"', 1);
    if (close == fields.npos) { return false; }
    indication.text = fields.substr(1, close - 1);
    return true;
}

bool takeFields(std::string_view fields, Indication &indication) {
    switch (indication.what) {
    case What::STORED:
    case What::STORED_REPORT: return takePlace(fields, indication);
    case What::CALLER: return takeCaller(fields, indication);
    case What::RING: indication.text = fields; return true;
    default: return true;
    }
}

EventKind kindOf(What what) {
    switch (what) {
    case What::STORED:
    case What::DIRECT: return EventKind::MESSAGE;
    case What::STORED_REPORT:
    case What::DIRECT_REPORT: return EventKind::REPORT;
    case What::PAGE: return EventKind::PAGE;
    case What::USSD: return EventKind::USSD;
    case What::RING:
    case What::CALLER: return EventKind::CALL;
    default: return EventKind::OTHER;
    }
}

Event begin(EventKind kind, const std::string &arrived, const std::string &from,
            const std::string &text) {
    Event event;
    event.kind = kind;
    event.json = {
        {"time",         arrived},
        {"kind", eventName(kind)},
        {"from",            from},
        {"text",            text}
    };
    return event;
}

// Octets that are no UTF-8 become visible, as JSON has to be.
std::string safe(std::string_view text) {
    return findInvalidUtf8(text) ? printable(text, LineEnds::KEPT) : std::string(text);
}

void addPlaces(const std::vector<Stored> &parts, Event &event) {
    Json indexes = Json::array(), pdus = Json::array(), raw = Json::array();
    for (const Stored &part : parts) {
        pdus.push_back(safe(part.pdu));
        raw.push_back(safe(part.announced));
        if (part.storage.empty()) { continue; }
        indexes.push_back(part.index);
        event.places.push_back({part.storage, part.index, part.pdu});
    }
    if (!event.places.empty()) {
        event.json["storage"] = event.places.front().storage;
        event.json["indexes"] = indexes;
    }
    event.json["pdus"] = pdus;
    event.json["raw"] = raw;
}

void addPresence(Event &event, bool isComplete, unsigned total, const std::string &name,
                 const std::vector<unsigned> &present) {
    event.json["complete"] = isComplete;
    if (total == 1) { return; }
    event.json[name] = {
        {  "total",   total},
        {"present", present}
    };
}

void addDetails(const Joined &joined, Event &event) {
    const Message &message = *joined.parts.front().message;
    if (!message.data.empty()) { event.json["data"] = event.json["text"]; }
    event.json["sent"] = message.time;
    if (!message.serviceCentre.empty()) { event.json["service_centre"] = message.serviceCentre; }
    event.json["coding"] = message.coding;
    if (message.messageClass) { event.json["class"] = *message.messageClass; }
    if (!message.waiting.empty()) { event.json["indication"] = message.waiting; }
    std::vector<unsigned> present;
    for (const Stored &part : joined.parts) {
        present.push_back(part.message->part ? part.message->part->number : 1);
    }
    addPresence(event, joined.isComplete(), joined.total, "parts", present);
}

// "delivered (message 12, segment 2 of 3, sent 2026-01-03 12:00:01)"
std::string reportText(const Report &report, const std::optional<Sent> &sent) {
    std::string text = fmt::format("{} (message {}", statusWords(report.status), report.reference);
    if (sent && sent->segments > 1) {
        text += fmt::format(", segment {} of {}", sent->segment, sent->segments);
    }
    if (sent) {
        static constexpr std::size_t SECONDS_END = 19;
        text += ", sent " + forPeople(localTime(sent->time)).substr(0, SECONDS_END);
    }
    return text + ")";
}

// What stands in brackets before or behind the text.
std::string markOf(const Event &event) {
    if (!event.json.value("complete", true)) {
        const bool isPage = event.kind == EventKind::PAGE;
        const Json &parts = event.json.at(isPage ? "pages" : "parts");
        return fmt::format("[incomplete, {} of {} {}] ", parts.at("present").size(),
                           parts.at("total").get<unsigned>(), isPage ? "pages" : "parts");
    }
    if (event.json.contains("error")) {
        return fmt::format("[{}] ", event.json.at("error").get<std::string>());
    }
    return "";
}

std::string shownText(const Event &event) {
    std::string text = markOf(event) + event.json.at("text").get<std::string>();
    if (event.kind == EventKind::USSD && event.json.contains("words")) {
        text += fmt::format("{}[{}]", text.empty() ? "" : " ",
                            event.json.at("words").get<std::string>());
    }
    return text;
}

std::string plainValue(const Json &value) {
    if (value.is_string()) { return value.get<std::string>(); }
    if (value.is_boolean()) { return value.get<bool>() ? "1" : "0"; }
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string variableValue(const std::string &name, const Json &value) {
    if (!value.is_array()) { return plainValue(value); }
    std::string text;
    for (const Json &one : value) {
        if (!text.empty()) { text += name == "raw" ? "\n" : " "; }
        text += plainValue(one);
    }
    return text;
}

} // namespace

std::vector<std::string> splitReports(std::string_view payload) {
    std::vector<std::string> reports;
    while (!payload.empty()) {
        const std::string_view line = trimmed(takeLine(payload));
        if (line.empty()) { continue; }
        std::string report(line);
        const Key *const key = keyOf(line);
        if (key != nullptr && bringsPdu(key->what)) { takePduLine(payload, report); }
        if (key != nullptr && key->what == What::USSD) { takeQuotedLines(payload, report); }
        reports.push_back(std::move(report));
    }
    return reports;
}

Indication classify(std::string report) {
    Indication indication;
    indication.raw = std::move(report);
    std::string_view rest = indication.raw;
    const std::string_view line = trimmed(takeLine(rest));
    if (line == RING) {
        indication.what = What::RING;
        return indication;
    }
    const Key *const key = keyOf(line);
    if (key == nullptr) { return indication; }
    indication.what = key->what;
    indication.pdu = bringsPdu(key->what) ? trimmed(rest) : std::string_view();
    const bool isWhole = takeFields(trimmed(line.substr(key->text.size())), indication) &&
                         (!bringsPdu(key->what) || !indication.pdu.empty());
    const bool isAnswer = key->what != What::USSD || ussdAnswerFrom(indication.raw);
    if (!isWhole || !isAnswer) { indication.what = What::OTHER; }
    return indication;
}

std::string_view eventName(EventKind kind) {
    static constexpr std::array<std::string_view, 7> NAMES = {"message", "flash", "report", "page",
                                                              "ussd",    "call",  "other"};
    return NAMES.at(static_cast<std::size_t>(kind));
}

std::string localTime(std::time_t arrived) {
    std::tm parts{};
    localtime_r(&arrived, &parts);
    std::array<char, 40> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &parts);
    std::string time(text.data(), size);
    static constexpr std::size_t ZONE_MINUTES = 2;
    return time.insert(time.size() - ZONE_MINUTES, ":");
}

Event messageEvent(const Joined &joined, const std::string &arrived) {
    const Message &message = *joined.parts.front().message;
    const bool isFlash = message.messageClass == 0U;
    Event event = begin(isFlash ? EventKind::FLASH : EventKind::MESSAGE, arrived, message.number,
                        safe(textOf(joined)));
    addDetails(joined, event);
    addPlaces(joined.parts, event);
    return event;
}

Event reportEvent(const Stored &stored, const std::optional<Sent> &sent,
                  const std::string &arrived) {
    const Message &message = *stored.message;
    const Report &report = *message.report;
    Event event = begin(EventKind::REPORT, arrived, message.number, reportText(report, sent));
    event.json["sent"] = message.time;
    event.json["reference"] = report.reference;
    event.json["status"] = report.status;
    event.json["words"] = statusWords(report.status);
    event.json["discharge_time"] = report.discharge;
    event.json["matched"] = sent.has_value();
    if (sent) {
        event.json["message"] = {
            {  "number",          sent->number},
            {    "time", localTime(sent->time)},
            { "segment",         sent->segment},
            {"segments",        sent->segments}
        };
    }
    addPlaces({stored}, event);
    return event;
}

Event pageEvent(const PageGroup &group, const std::string &arrived) {
    const Page &first = group.pages().front();
    const PageText content = textOf(group);
    Event event =
        begin(EventKind::PAGE, arrived, std::to_string(first.channel), safe(content.text));
    if (content.isData) { event.json["data"] = content.text; }
    event.json["channel"] = first.channel;
    event.json["serial"] = first.serial;
    event.json["dcs"] = first.dcs;
    event.json["coding"] = codingName(cbsCoding(first.dcs));
    if (!content.language.empty()) { event.json["language"] = content.language; }
    std::vector<unsigned> present;
    Json raw = Json::array();
    for (const Page &page : group.pages()) {
        present.push_back(page.number);
        raw.push_back(safe(page.raw));
    }
    addPresence(event, group.isComplete(), group.total(), "pages", present);
    event.json["raw"] = raw;
    return event;
}

Event brokenEvent(const Indication &indication, const std::string &problem,
                  const std::string &arrived) {
    Event event = begin(kindOf(indication.what), arrived, "", "");
    event.json["error"] = safe(problem);
    if (!indication.storage.empty()) {
        event.json["storage"] = indication.storage;
        event.json["indexes"] = {indication.index};
    }
    if (!indication.pdu.empty()) { event.json["pdus"] = {safe(indication.pdu)}; }
    event.json["raw"] = {safe(indication.raw)};
    return event;
}

Event plainEvent(const Indication &indication, const std::string &arrived) {
    const EventKind kind = kindOf(indication.what);
    Event event;
    if (indication.what == What::USSD) {
        const UssdAnswer answer = *ussdAnswerFrom(indication.raw);
        event = begin(kind, arrived, "", safe(contentOf(answer)));
        Json details = toJson(answer);
        details["text"] = event.json["text"];
        if (answer.string) { details["string"] = safe(*answer.string); }
        event.json.update(details);
    } else if (kind == EventKind::CALL) {
        const bool isCaller = indication.what == What::CALLER;
        const std::string text = isCaller ? "calling" : "ring";
        event = begin(kind, arrived, isCaller ? safe(indication.text) : "", text);
        if (!isCaller && !indication.text.empty()) { event.json["call"] = safe(indication.text); }
    } else {
        event = begin(kind, arrived, "", safe(indication.raw));
    }
    event.json["raw"] = {safe(indication.raw)};
    return event;
}

std::string lineOf(const Event &event) {
    static constexpr std::size_t SECONDS_END = 19, KIND_COLUMNS = 9, FROM_COLUMNS = 17;
    const std::string from = event.json.at("from").get<std::string>();
    const std::string sender = event.kind == EventKind::PAGE ? "channel " + from : from;
    const std::string front =
        forPeople(event.json.at("time").get<std::string>()).substr(0, SECONDS_END) + "  " +
        padded(std::string(eventName(event.kind)), KIND_COLUMNS) +
        padded(printable(sender, LineEnds::MARKED), FROM_COLUMNS - 1) + " ";
    std::string line = front + printable(shownText(event), LineEnds::MARKED);
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

std::vector<std::string> environmentOf(const Event &event) {
    std::vector<std::string> variables;
    for (const auto &[name, value] : event.json.items()) {
        if (value.is_object()) { continue; }
        std::string variable = "SMSPB_";
        for (const char c : name) {
            variable += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
        variable += "=" + variableValue(name, value);
        // A variable ends at its first zero.
        std::replace(variable.begin(), variable.end(), '\0', ' ');
        variables.push_back(std::move(variable));
    }
    return variables;
}

} // namespace smspb::cli
