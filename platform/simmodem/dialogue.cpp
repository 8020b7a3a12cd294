#include "dialogue.h"

#include "acknowledgement.h"
#include "command_table.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <utility>

namespace smspb::simmodem {
namespace {

constexpr std::string_view PROMPT = "\r\n> "; // TS 27.005, 3.5.1

Result resultOf(const Fault &fault) {
    switch (fault.action) {
    case Action::cms: return {Result::Kind::cms, fault.number};
    case Action::cme: return {Result::Kind::cme, fault.number};
    default: return {Result::Kind::error, 0};
    }
}

// Octets of every kind that no reply has, the same each time.
std::string noise(std::size_t length) {
    static constexpr unsigned MULTIPLIER = 73, OFFSET = 41;
    std::string octets;
    for (unsigned value = 0; octets.size() < length; value = value * MULTIPLIER + OFFSET) {
        octets += static_cast<char>(static_cast<unsigned char>(value >> 8 | 0x80U));
        octets += '\0';
    }
    octets.resize(length);
    return octets;
}

// The forms that ask for data, when the command takes any.
bool carriesOut(const CommandRow &row, Command::Form form) {
    return form == Command::Form::set || (form == Command::Form::execute && row.execute != nullptr);
}

} // namespace

std::string visible(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (code < ' ' || code > '~') {
            out += fmt::format("\\x{:02X}", code);
        } else {
            out += c;
        }
    }
    return out;
}

Dialogue::Dialogue(Modem &modem, Milliseconds latency, Send send, Drop drop)
    : modem_(modem), latency_(latency), send_(std::move(send)), drop_(std::move(drop)),
      timer_(modem.clock) {}

void Dialogue::receive(std::string_view characters) {
    inbox_ += characters;
    pump();
}

void Dialogue::reset() {
    timer_.cancel();
    assembler_.reset();
    inbox_.clear();
    run_ = {};
    busy_ = false;
    inCommand_ = false;
}

// One character at a time: a line's end makes the rest wait until its reply is out.
void Dialogue::pump() {
    std::size_t used = 0;
    std::string echo;
    while (!busy_ && used < inbox_.size()) {
        const char c = inbox_[used++];
        if (modem_.settings.echo) { echo += c; }
        const auto input = assembler_.take(c, modem_.settings);
        if (!input) { continue; }
        if (!echo.empty()) { put(std::exchange(echo, {})); }
        inbox_.erase(0, std::exchange(used, 0));
        take(*input);
    }
    inbox_.erase(0, used);
    if (!echo.empty()) { put(std::move(echo)); }
}

void Dialogue::take(const LineInput &input) {
    spdlog::trace("< {}{}", input.kind == LineInput::Kind::command ? "AT" : "",
                  visible(input.text));
    switch (input.kind) {
    case LineInput::Kind::command: return startLine(input.text);
    case LineInput::Kind::tooLong: return finish({Result::Kind::error, 0});
    case LineInput::Kind::dataLine: return askForMoreData();
    case LineInput::Kind::data:
    case LineInput::Kind::cancelled: return takeData(input);
    }
}

// A bare "AT" is one command without a text, so that a fault can act on it.
void Dialogue::startLine(std::string_view body) {
    inCommand_ = true;
    run_ = {};
    run_.commands = parseCommandLine(body);
    const Fault *const fault = run_.commands.empty() ? modem_.faults.match("") : nullptr;
    if (fault != nullptr) {
        if (fault->refuses() && applyRefusal(*fault)) { return; }
        run_.fault = *fault;
    }
    runCommands();
}

void Dialogue::runCommands() {
    while (run_.next < run_.commands.size()) {
        if (!runCommand(run_.commands[run_.next++])) { return; }
    }
    finish({});
}

// False when the line does not go on now: it has ended, or waits for data.
bool Dialogue::runCommand(const Command &command) {
    const Fault *const fault =
        command.name == FAULT_COMMAND ? nullptr : modem_.faults.match(command.text);
    const CommandRow *const row = findRow(command.name);
    const bool asks = row != nullptr && row->takesData && carriesOut(*row, command.form);
    if (fault != nullptr) {
        if (fault->refuses() && !asks) { return !applyRefusal(*fault); }
        run_.fault = *fault;
    }
    return absorb(carryOut(modem_, command));
}

// Ends the line as the fault says, the command not carried out.
bool Dialogue::applyRefusal(const Fault &fault) {
    if (fault.action == Action::silence) {
        endSilently();
    } else if (fault.action == Action::drop) {
        const Milliseconds away = fault.time();
        reset();
        drop_(away);
    } else {
        finish(resultOf(fault));
    }
    return true;
}

bool Dialogue::absorb(Reply reply) {
    if (reply.onData) {
        run_.onData = std::move(reply.onData);
        askForData();
        return false;
    }
    if (!reply.information.empty()) {
        run_.information += informationText(modem_.settings, reply.information);
    }
    if (reply.result.kind == Result::Kind::ok) { return true; }
    finish(reply.result);
    return false;
}

void Dialogue::askForData() {
    if (run_.fault && run_.fault->action == Action::noPrompt) { return endSilently(); }
    assembler_.expectData();
    askForMoreData();
}

void Dialogue::askForMoreData() {
    after(latency_, [this] { put(std::string(PROMPT)); });
}

// TS 27.005, 3.5.1: ESC ends the command with OK, nothing carried out.
void Dialogue::takeData(const LineInput &input) {
    const auto onData = std::exchange(run_.onData, nullptr);
    if (input.kind == LineInput::Kind::cancelled) { return finish({}); }
    if (run_.fault && run_.fault->refuses()) {
        const Fault fault = *run_.fault;
        run_.fault.reset();
        applyRefusal(fault);
        return;
    }
    if (absorb(onData(modem_, input.text))) { runCommands(); }
}

void Dialogue::endSilently() {
    run_ = {};
    inCommand_ = false;
    flushUnsolicited();
}

void Dialogue::finish(Result result) {
    const bool late = run_.fault && run_.fault->action == Action::delay;
    const Milliseconds wait = latency_ + (late ? run_.fault->time() : Milliseconds(0));
    std::string text = spoiled(std::move(run_.information), resultText(modem_.settings, result));
    after(wait, [this, text = std::move(text)]() mutable {
        if (modem_.interjects) { text = interjected(std::move(text)); }
        put(std::move(text));
        endSilently();
    });
}

std::string Dialogue::spoiled(std::string information, const std::string &result) const {
    if (run_.fault && run_.fault->action == Action::unsolicited) {
        information += unsolicitedText(modem_.settings, run_.fault->text);
    }
    std::string text = std::move(information) + result;
    if (run_.fault && run_.fault->action == Action::half) { text.resize(text.size() / 2); }
    if (run_.fault && run_.fault->action == Action::garbage) { text = noise(text.size()); }
    return text;
}

// At once when there is nothing to wait for: an answer costs no turn of the event loop.
void Dialogue::after(Milliseconds wait, std::function<void()> then) {
    if (wait == Milliseconds(0)) { return then(); }
    busy_ = true;
    timer_.start(wait, [this, then = std::move(then)] {
        busy_ = false;
        then();
        pump();
    });
}

void Dialogue::flushUnsolicited() {
    if (!inCommand_) { putUnsolicited(); }
}

// What waits stands behind the first line of the reply's information, or before its result.
std::string Dialogue::interjected(std::string text) {
    const std::string lineEnd{modem_.settings.terminator(), modem_.settings.lineFeed()};
    const std::size_t first = text.find(lineEnd, lineEnd.size());
    const bool isLast = first == std::string::npos || first + lineEnd.size() == text.size();
    std::size_t at = isLast ? 0 : first + lineEnd.size();
    while (!modem_.unsolicited.empty()) {
        const std::string line = unsolicitedText(modem_.settings, modem_.unsolicited.front());
        modem_.unsolicited.pop_front();
        text.insert(at, line);
        at += line.size();
    }
    return text;
}

void Dialogue::putUnsolicited() {
    while (!modem_.unsolicited.empty()) {
        put(unsolicitedText(modem_.settings, modem_.unsolicited.front()));
        modem_.unsolicited.pop_front();
    }
    startWaiting(modem_);
}

void Dialogue::put(std::string text) {
    if (text.empty()) { return; }
    spdlog::trace("> {}", visible(text));
    send_(std::move(text));
}

} // namespace smspb::simmodem
