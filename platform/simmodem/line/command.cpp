#include "platform/simmodem/line/command.h"

#include "platform/simmodem/text.h"

#include <algorithm>

namespace smspb::simmodem {
namespace {

bool isLetter(char c) { return upper(c) >= 'A' && upper(c) <= 'Z'; }

// V.250, 5.4.1 has "+" alone; makers use the others.
bool startsExtended(char c) { return std::string_view("+^$%*#").find(c) != std::string_view::npos; }

// V.250, 5.4.1: characters of a command's name.
bool belongsToName(char c) {
    return isLetter(c) || isDigit(c) ||
           std::string_view("!%-./:_").find(c) != std::string_view::npos;
}

// V.250, 5.1: outside strings blanks and the eighth bit of a character mean nothing.
std::string withoutBlanks(std::string_view body) {
    std::string out;
    bool inString = false;
    for (const char c : body) {
        const char seven = static_cast<char>(static_cast<unsigned char>(c) & 0x7FU);
        if (c == '"') { inString = !inString; }
        if (inString || seven != ' ') { out += inString ? c : seven; }
    }
    return out;
}

std::string upperCase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), upper);
    return out;
}

// The place of the first of `stops` outside strings; the end without one.
std::size_t findOutsideStrings(std::string_view text, char stop) {
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); i++) {
        if (text[i] == '"') { inString = !inString; }
        if (text[i] == stop && !inString) { return i; }
    }
    return text.size();
}

int hexValue(std::string_view pair) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), value, 16);
    const bool whole = pair.size() == 2 && error == std::errc() && end == pair.data() + 2;
    return whole ? static_cast<int>(value) : -1;
}

// V.250, 5.4.2.2: "\22" stands for the character of that hexadecimal code.
std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); i++) {
        const int code = text[i] == '\\' ? hexValue(text.substr(i + 1, 2)) : -1;
        out += code >= 0 ? static_cast<char>(static_cast<unsigned char>(code)) : text[i];
        i += code >= 0 ? 2 : 0;
    }
    return out;
}

// Nothing when quotes stand anywhere but at both ends.
std::optional<Argument> parseArgument(std::string_view text) {
    const auto quotes = std::count(text.begin(), text.end(), '"');
    if (quotes == 0) { return Argument{std::string(text), false}; }
    if (quotes != 2 || text.front() != '"' || text.back() != '"') { return std::nullopt; }
    return Argument{unescaped(text.substr(1, text.size() - 2)), true};
}

bool parseArguments(std::string_view text, std::vector<Argument> &arguments) {
    for (;;) {
        const std::size_t comma = findOutsideStrings(text, ',');
        auto argument = parseArgument(text.substr(0, comma));
        if (!argument) { return false; }
        arguments.push_back(std::move(*argument));
        if (comma == text.size()) { return true; }
        text.remove_prefix(comma + 1);
    }
}

// What stands behind a name: nothing, "?", "=?" or "=" and values.
void parseForm(std::string_view rest, Command &command) {
    using Form = Command::Form;
    if (rest.empty()) {
        command.form = Form::execute;
    } else if (rest == "?") {
        command.form = Form::read;
    } else if (rest == "=?") {
        command.form = Form::test;
    } else {
        const bool good = rest.front() == '=' && parseArguments(rest.substr(1), command.arguments);
        command.form = good ? Form::set : Form::malformed;
    }
}

// Each takes one command off the front of `line`.
Command takeExtended(std::string_view &line) {
    const std::string_view text = line.substr(0, findOutsideStrings(line, ';'));
    line.remove_prefix(text.size());
    Command command;
    command.text = text;
    const auto nameEnd = std::find_if_not(text.begin() + 1, text.end(), belongsToName);
    const auto nameLength = static_cast<std::size_t>(nameEnd - text.begin());
    command.name = upperCase(text.substr(0, nameLength));
    parseForm(text.substr(nameLength), command);
    return command;
}

std::string_view takeDigits(std::string_view &line) {
    const auto end = std::find_if_not(line.begin(), line.end(), isDigit);
    const std::string_view digits = line.substr(0, static_cast<std::size_t>(end - line.begin()));
    line.remove_prefix(digits.size());
    return digits;
}

// V.250, 5.3.1: a letter, "&" and a letter, or S with the number of a register.
Command takeBasic(std::string_view &line) {
    Command command;
    const std::string_view whole = line;
    const std::size_t nameLength = line.front() == '&' || line.front() == '\\' ? 2 : 1;
    command.name = upperCase(line.substr(0, nameLength));
    line.remove_prefix(std::min(nameLength, line.size()));
    if (command.name == "D") { line = {}; } // the rest is what to dial
    const std::string_view digits = takeDigits(line);
    command.number = parseNumber(digits).value_or(0);
    const bool tooLarge = !digits.empty() && !parseNumber(digits);
    if (command.name == "S" && !line.empty() && (line.front() == '?' || line.front() == '=')) {
        command.form = line.front() == '?' ? Command::Form::read : Command::Form::set;
        line.remove_prefix(1);
        if (command.form == Command::Form::set) {
            command.arguments.push_back({std::string(takeDigits(line)), false});
        }
    }
    command.text = whole.substr(0, whole.size() - line.size());
    const bool named = command.name.size() == nameLength && isLetter(command.name.back());
    if (!named || tooLarge) { command.form = Command::Form::malformed; }
    return command;
}

} // namespace

std::vector<Command> parseCommandLine(std::string_view body) {
    const std::string text = withoutBlanks(body);
    std::string_view line = text;
    std::vector<Command> commands;
    while (!line.empty()) {
        if (line.front() == ';') {
            line.remove_prefix(1);
            continue;
        }
        commands.push_back(startsExtended(line.front()) ? takeExtended(line) : takeBasic(line));
        if (commands.back().form == Command::Form::malformed) { break; }
    }
    return commands;
}

bool isExtended(const Command &command) {
    return !command.name.empty() && startsExtended(command.name.front());
}

bool isOmitted(const Command &command, std::size_t index) {
    return index >= command.arguments.size() || command.arguments[index].omitted();
}

std::optional<unsigned> numberAt(const Command &command, std::size_t index, unsigned low,
                                 unsigned high) {
    if (isOmitted(command, index) || command.arguments[index].isString) { return std::nullopt; }
    const auto number = parseNumber(command.arguments[index].text);
    if (!number || *number < low || *number > high) { return std::nullopt; }
    return number;
}

std::optional<unsigned> numberAt(const Command &command, std::size_t index, unsigned low,
                                 unsigned high, unsigned otherwise) {
    if (isOmitted(command, index)) { return otherwise; }
    return numberAt(command, index, low, high);
}

std::optional<std::string> stringAt(const Command &command, std::size_t index) {
    if (index >= command.arguments.size() || !command.arguments[index].isString) {
        return std::nullopt;
    }
    return command.arguments[index].text;
}

} // namespace smspb::simmodem
