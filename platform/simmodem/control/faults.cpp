#include "platform/simmodem/control/faults.h"

#include "platform/simmodem/state/file.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace smspb::simmodem {
namespace {

enum class Value { none, number, optionalNumber, text, optionalText };

struct ActionForm {
    std::string_view name;
    Action action;
    Value value;
};

constexpr std::array<ActionForm, 12> FORMS{
    {
     {"silence", Action::silence, Value::none},
     {"error", Action::error, Value::none},
     {"cms", Action::cms, Value::number},
     {"cme", Action::cme, Value::number},
     {"drop", Action::drop, Value::optionalNumber},
     {"reset", Action::reset, Value::optionalText},
     {"half", Action::half, Value::none},
     {"hangup", Action::hangUp, Value::optionalNumber},
     {"garbage", Action::garbage, Value::none},
     {"delay", Action::delay, Value::number},
     {"unsolicited", Action::unsolicited, Value::text},
     {"no-prompt", Action::noPrompt, Value::none},
     }
};

constexpr std::string_view USAGE =
    "PATTERN=ACTION[:COUNT] with an action of silence, error, cms=N, cme=N, drop[=MS], "
    "reset[=TEXT], half, hangup[=MS], garbage, delay=MS, unsolicited=TEXT, no-prompt and a COUNT "
    "such as 3, 2-4, 2- or 10%";

constexpr unsigned PERCENT = 100;
constexpr std::size_t FILE_OCTETS_MAX = 1048576;

// "3", "2-4", "2-" or "10%" behind the last colon; a text without one acts every time.
struct Turns {
    unsigned first = 1, last = std::numeric_limits<unsigned>::max(), percent = PERCENT;
};

std::optional<Turns> parseTurns(std::string_view text) {
    if (text.ends_with('%')) {
        const auto percent = parseNumber(text.substr(0, text.size() - 1));
        if (!percent || *percent == 0 || *percent > PERCENT) { return std::nullopt; }
        return Turns{1, Turns{}.last, *percent};
    }
    const std::size_t dash = text.find('-');
    const auto from = parseNumber(text.substr(0, dash));
    if (!from || *from == 0) { return std::nullopt; }
    if (dash == std::string_view::npos) { return Turns{1, *from, PERCENT}; }
    const std::string_view end = text.substr(dash + 1);
    if (end.empty()) { return Turns{*from, Turns{}.last, PERCENT}; }
    const auto to = parseNumber(end);
    if (!to || *to < *from) { return std::nullopt; }
    return Turns{*from, *to, PERCENT};
}

bool mayLackValue(Value value) {
    return value == Value::none || value == Value::optionalNumber || value == Value::optionalText;
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
    if (!hasValue) { return mayLackValue(form->value); }
    const std::string_view value = text.substr(equals + 1);
    if (form->value == Value::text || form->value == Value::optionalText) {
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

// What stands before a "#" that begins the line or a word, blanks around it dropped.
std::string_view withoutComment(std::string_view line) {
    static constexpr std::string_view BLANKS = " \t\r";
    std::size_t end = line.find('#');
    while (end != std::string_view::npos && end != 0 &&
           BLANKS.find(line[end - 1]) == std::string_view::npos) {
        end = line.find('#', end + 1);
    }
    line = line.substr(0, end);
    const std::size_t first = line.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) { return {}; }
    return line.substr(first, line.find_last_not_of(BLANKS) - first + 1);
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
        entry.percent = turns.percent;
        return true;
    }
    return false;
}

std::string Faults::add(std::string_view text) {
    Entry entry;
    entry.fault.source = text;
    if (!parseFault(text, entry)) {
        return "the fault \"" + entry.fault.source + "\" is not of the form " + std::string(USAGE);
    }
    entries_.push_back(std::move(entry));
    return {};
}

std::vector<Faults::Count> Faults::counts() const {
    std::vector<Count> counts;
    for (const Entry &entry : entries_) {
        counts.push_back({entry.fault.source, entry.met, entry.acted});
    }
    return counts;
}

// Chance is asked only where it decides, so that a fault without it changes nothing for the others.
bool Faults::isTurnOf(const Entry &entry) {
    if (entry.met < entry.first || entry.met > entry.last) { return false; }
    return entry.percent == PERCENT || random_() % PERCENT < entry.percent;
}

const Fault *Faults::match(std::string_view command) {
    Entry *acting = nullptr;
    for (Entry &entry : entries_) {
        if (!matches(entry.pattern, command)) { continue; }
        entry.met++;
        if (isTurnOf(entry) && acting == nullptr) { acting = &entry; }
    }
    if (acting == nullptr) { return nullptr; }
    acting->acted++;
    return &acting->fault;
}

// Control characters of either half of the code, but for the line ends and what ends data.
std::string Faults::noise(std::size_t length) {
    static constexpr unsigned CONTROLS = 0x9F, UPPER_HALF = 0x80;
    static constexpr std::string_view MEANT = "\r\n\x1A\x1B";
    std::string octets;
    while (octets.size() < length) {
        auto octet = static_cast<unsigned char>(random_() & CONTROLS);
        if (MEANT.find(static_cast<char>(octet)) != std::string_view::npos) { octet |= UPPER_HALF; }
        octets += static_cast<char>(octet);
    }
    return octets;
}

std::vector<std::string> readFaultFile(const std::string &path) {
    const std::string text = readFile(path, FILE_OCTETS_MAX);
    std::vector<std::string> faults;
    std::size_t number = 0;
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        number++;
        line = withoutComment(line);
        if (line.empty()) { continue; }
        const std::string wrong = Faults().add(line);
        if (!wrong.empty()) {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + wrong);
        }
        faults.emplace_back(line);
    }
    return faults;
}

} // namespace smspb::simmodem
