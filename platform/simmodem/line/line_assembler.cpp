#include "platform/simmodem/line/line_assembler.h"

#include "platform/simmodem/modem/modem.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <utility>

namespace smspb::simmodem {
namespace {

constexpr char CTRL_Z = 0x1A;
constexpr char ESC = 0x1B;
constexpr char BLANK = ' ';

bool isControl(char c) { return static_cast<unsigned char>(c) < BLANK; }

// V.250, 5.1: the eighth bit has no part in what a command is.
char withoutParity(char c) { return static_cast<char>(static_cast<unsigned char>(c) & 0x7FU); }

} // namespace

std::optional<LineInput> LineAssembler::take(char c, const Settings &settings) {
    switch (state_) {
    case State::idle:
    case State::seenA: return takePrefix(withoutParity(c));
    case State::command: return takeCommand(c, settings);
    case State::data: return takeData(c, settings);
    }
    return std::nullopt;
}

void LineAssembler::expectData() {
    reset();
    state_ = State::data;
}

void LineAssembler::reset() {
    state_ = State::idle;
    text_.clear();
    overflow_ = false;
}

// V.250, 5.2.1: whatever stands before "AT" is skipped; "A/" repeats the last line at once.
std::optional<LineInput> LineAssembler::takePrefix(char c) {
    if (upper(c) == 'A') {
        state_ = State::seenA;
        return std::nullopt;
    }
    const bool behindA = std::exchange(state_, State::idle) == State::seenA;
    if (behindA && upper(c) == 'T') { state_ = State::command; }
    if (behindA && c == '/') { return LineInput{LineInput::Kind::command, last_}; }
    return std::nullopt;
}

// V.250, 5.2.2 and 5.2.3: S5 takes back a character, other control characters mean nothing.
std::optional<LineInput> LineAssembler::takeCommand(char c, const Settings &settings) {
    if (c == settings.terminator()) {
        if (overflow_) { return complete(LineInput::Kind::tooLong); }
        last_ = text_;
        return complete(LineInput::Kind::command);
    }
    if (c == settings.eraser()) {
        erase();
    } else if (!isControl(c) || isInGsmString(settings)) {
        append(c, LINE_CHARACTERS_MAX);
    }
    return std::nullopt;
}

// The GSM alphabet has characters below the blank, too (TS 23.038, 6.2.1).
bool LineAssembler::isInGsmString(const Settings &settings) const {
    return settings.charset == "GSM" && std::count(text_.begin(), text_.end(), '"') % 2 == 1;
}

// A line feed behind the command's end is part of that end. In text mode each line is asked for
// by a prompt of its own (TS 27.005, 3.5.1).
std::optional<LineInput> LineAssembler::takeData(char c, const Settings &settings) {
    if (c == CTRL_Z) { return complete(LineInput::Kind::data); }
    if (c == ESC) { return complete(LineInput::Kind::cancelled); }
    if (c == settings.eraser()) {
        erase();
    } else if (c != '\n' || !text_.empty()) {
        append(c, DATA_CHARACTERS_MAX);
    }
    if (c == '\r' && settings.textMode) { return LineInput{LineInput::Kind::dataLine, {}}; }
    return std::nullopt;
}

void LineAssembler::erase() {
    if (!text_.empty()) { text_.pop_back(); }
}

void LineAssembler::append(char c, std::size_t limit) {
    if (text_.size() < limit) {
        text_ += c;
    } else {
        overflow_ = true;
    }
}

// Data that overflowed stays what it is: cut off, it has another length than announced.
LineInput LineAssembler::complete(LineInput::Kind kind) {
    LineInput input{kind, std::move(text_)};
    reset();
    return input;
}

} // namespace smspb::simmodem
