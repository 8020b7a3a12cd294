#include "faults.h"

#include "text.h"

#include <algorithm>
#include <array>

namespace smspb::simmodem {
namespace {

enum class Value { none, number, optionalNumber, text };

struct ActionForm {
    std::string_view name;
    Action action;
    Value value;
};

constexpr std::array<ActionForm, 10> FORMS{
    {
     {"silence", Action::silence, Value::none},
     {"error", Action::error, Value::none},
     {"cms", Action::cms, Value::number},
     {"cme", Action::cme, Value::number},
     {"drop", Action::drop, Value::optionalNumber},
     {"half", Action::half, Value::none},
     {"garbage", Action::garbage, Value::none},
     {"delay", Action::delay, Value::number},
     {"unsolicited", Action::unsolicited, Value::text},
     {"no-prompt", Action::noPrompt, Value::none},
     }
};

constexpr std::string_view USAGE =
    "PATTERN=ACTION[:COUNT] with an action of silence, error, cms=N, cme=N, drop[=MS], half, "
    "garbage, delay=MS, unsolicited=TEXT, no-prompt and a COUNT such as 3, 2-4 or 2-";

// "3", "2-4" or "2-" behind the last colon; a text without one acts every time.
struct Turns {
    unsigned first = 1, last = std::numeric_limits<unsigned>::max();
};

std::optional<Turns> parseTurns(std::string_view text) {
    const std::size_t dash = text.find('-');
    const auto from = parseNumber(text.substr(0, dash));
    if (!from || *from == 0) { return std::nullopt; }
    if (dash == std::string_view::npos) { return Turns{1, *from}; }
    const std::string_view end = text.substr(dash + 1);
    if (end.empty()) { return Turns{*from, Turns{}.last}; }
    const auto to = parseNumber(end);
    if (!to || *to < *from) { return std::nullopt; }
    return Turns{*from, *to};
}

std::string withLineEnds(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); i++) {
        const bool escaped = text.substr(i).starts_with("\\n");
        out += escaped ? '\n' : text[i];
        i += escaped ? 1 : 0;
    }
    return out;
}

// `text` is an action as a whole.
bool parseAction(std::string_view text, Fault &fault) {
    const std::size_t equals = text.find('=');
    const bool hasValue = equals != std::string_view::npos;
    const std::string_view name = text.substr(0, equals);
    const auto form =
        std::find_if(FORMS.begin(), FORMS.end(), [&](const auto &f) { return f.name == name; });
    if (form == FORMS.end()) { return false; }
    fault.action = form->action;
    if (!hasValue) { return form->value == Value::none || form->value == Value::optionalNumber; }
    const std::string_view value = text.substr(equals + 1);
    if (form->value == Value::text) {
        fault.text = withLineEnds(value);
        return true;
    }
    const auto number = parseNumber(value);
    fault.number = number.value_or(0);
    return number && form->value != Value::none;
}

bool sameLetter(char a, char b) { return upper(a) == upper(b); }

bool startsWith(std::string_view text, std::string_view beginning) {
    return text.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), text.begin(), sameLetter);
}

// The pieces between the stars must come one after the other, the first at the beginning.
bool matches(std::string_view pattern, std::string_view command) {
    const std::string_view beginning = pattern.substr(0, pattern.find('*'));
    if (!startsWith(command, beginning)) { return false; }
    command.remove_prefix(beginning.size());
    pattern.remove_prefix(beginning.size());
    while (!pattern.empty()) {
        pattern.remove_prefix(1);
        const std::string_view piece = pattern.substr(0, pattern.find('*'));
        const auto at =
            std::search(command.begin(), command.end(), piece.begin(), piece.end(), sameLetter);
        if (at == command.end() && !piece.empty()) { return false; }
        command.remove_prefix(static_cast<std::size_t>(at - command.begin()) + piece.size());
        pattern.remove_prefix(piece.size());
    }
    return true;
}

} // namespace

// Tries each "=" as the end of the pattern, and a colon behind it as the beginning of the count.
bool Faults::parseFault(std::string_view text, Entry &entry) {
    for (std::size_t equals = text.find('='); equals != std::string_view::npos;
         equals = text.find('=', equals + 1)) {
        std::string_view action = text.substr(equals + 1);
        Turns turns;
        const std::size_t colon = action.rfind(':');
        if (colon != std::string_view::npos) {
            if (const auto counted = parseTurns(action.substr(colon + 1))) {
                turns = *counted;
                action = action.substr(0, colon);
            }
        }
        if (!parseAction(action, entry.fault)) { continue; }
        entry.pattern =
            text.substr(startsWith(text, "AT") ? 2 : 0, equals - (startsWith(text, "AT") ? 2 : 0));
        entry.first = turns.first;
        entry.last = turns.last;
        return true;
    }
    return false;
}

std::string Faults::add(std::string_view text) {
    Entry entry;
    entry.source = text;
    if (!parseFault(text, entry)) {
        return "the fault \"" + entry.source + "\" is not of the form " + std::string(USAGE);
    }
    entries_.push_back(std::move(entry));
    return {};
}

std::vector<std::string> Faults::describe() const {
    std::vector<std::string> lines;
    for (const Entry &entry : entries_) {
        lines.push_back("\"" + entry.source + "\"," + std::to_string(entry.seen));
    }
    return lines;
}

const Fault *Faults::match(std::string_view command) {
    const Fault *acting = nullptr;
    for (Entry &entry : entries_) {
        if (!matches(entry.pattern, command)) { continue; }
        entry.seen++;
        const bool turn = entry.seen >= entry.first && entry.seen <= entry.last;
        if (acting == nullptr && turn) { acting = &entry.fault; }
    }
    return acting;
}

} // namespace smspb::simmodem
