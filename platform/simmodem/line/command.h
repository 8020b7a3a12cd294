// A command line taken apart (V.250, 5.2 to 5.4): basic commands one behind the other, extended
// ones separated by ";".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::simmodem {

// A value of an extended command: text in double quotes, or bare. Left out: bare and empty.
struct Argument {
    std::string text;
    bool isString = false;

    bool omitted() const { return !isString && text.empty(); }
};

struct Command {
    enum class Form { execute, read, test, set, malformed };

    std::string name; // upper case, with its prefix: "+CMGS", "E", "&F"
    Form form = Form::execute;
    unsigned number = 0; // of a basic command, 0 when left out
    std::vector<Argument> arguments;
    std::string text; // as it stands in the line, blanks removed
};

// Takes apart what stands between "AT" and the line's end. Blanks outside strings mean nothing. A
// text that is no command gives one of the form `malformed`, the last of the line.
std::vector<Command> parseCommandLine(std::string_view body);

// V.250, 5.4: of a name behind "+" or a maker's own sign.
bool isExtended(const Command &command);

// The number at `index`: nothing unless it is bare, decimal and within [low, high].
std::optional<unsigned> numberAt(const Command &command, std::size_t index, unsigned low,
                                 unsigned high);

// The same with a value for an argument that was left out.
std::optional<unsigned> numberAt(const Command &command, std::size_t index, unsigned low,
                                 unsigned high, unsigned otherwise);

// The string at `index`; nothing for one that is bare or left out.
std::optional<std::string> stringAt(const Command &command, std::size_t index);

bool isOmitted(const Command &command, std::size_t index);

} // namespace smspb::simmodem
