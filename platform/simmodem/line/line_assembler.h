// The characters of the line put together to command lines (V.250, 5.2) and to the data behind a
// prompt (TS 27.005, 3.5.1). Knows nothing of commands.
#pragma once

#include <optional>
#include <string>

namespace smspb::simmodem {

struct Settings;

struct LineInput {
    enum class Kind {
        command,  // text: what stands between "AT" and the line's end
        tooLong,  // a command line beyond LINE_CHARACTERS_MAX
        dataLine, // a line of data entered in text mode ends; more may follow
        data,     // text: what came before Ctrl-Z
        cancelled // data ended by ESC
    };
    Kind kind;
    std::string text;
};

class LineAssembler {
public:
    enum : std::size_t { LINE_CHARACTERS_MAX = 2048, DATA_CHARACTERS_MAX = 2048 };

    // Takes one character by the line's present settings; gives what it completed.
    std::optional<LineInput> take(char c, const Settings &settings);

    // The characters from here to Ctrl-Z or ESC are data.
    void expectData();

    // Forgets what has come so far.
    void reset();

private:
    enum class State { idle, seenA, command, data };

    std::optional<LineInput> takePrefix(char c);
    std::optional<LineInput> takeCommand(char c, const Settings &settings);
    std::optional<LineInput> takeData(char c, const Settings &settings);
    bool isInGsmString(const Settings &settings) const;
    void erase();
    void append(char c, std::size_t limit);
    LineInput complete(LineInput::Kind kind);

    State state_ = State::idle;
    std::string text_;
    bool overflow_ = false;
    std::string last_; // for "A/"
};

} // namespace smspb::simmodem
