#include "platform/simmodem/line/dialogue.h"

#include "platform/simmodem/commands/command_table.h"
#include "platform/simmodem/network/acknowledgement.h"

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

// The forms that ask for data, when the command takes any.
bool carriesOut(const CommandRow &row, Command::Form form) {
    return form == Command::Form::set || (form == Command::Form::execute && row.execute != nullptr);
}

} // namespace

Dialogue::Dialogue(Modem &modem, TrafficLog &log, Milliseconds latency, Surroundings surroundings)
    : modem_(modem), log_(log), latency_(latency), surroundings_(std::move(surroundings)),
      timer_(modem.clock) {}

void Dialogue::receive(std::string_view characters) {
    inbox_ += characters;
    pump();
}

void Dialogue::reset() {
    timer_.cancel();
    logReceived();
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
        if (modem_.echoes()) { echo += c; }
        received_ += c;
        const auto input = assembler_.take(c, modem_.settings);
        if (!input) { continue; }
        logReceived();
        if (!echo.empty()) { put(std::exchange(echo, {})); }
        inbox_.erase(0, std::exchange(used, 0));
        take(*input);
    }
    inbox_.erase(0, used);
    if (!echo.empty()) { put(std::move(echo)); }
}

void Dialogue::take(const LineInput &input) {
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
    const Fault acting = fault;
    log_.write(TrafficLog::Mark::fault, acting.source);
    switch (acting.action) {
    case Action::silence: endSilently(); break;
    case Action::drop:
        reset();
        surroundings_.drop(acting.time(), Hanging::atOnce);
        break;
    case Action::reset:
        modem_.forgetSettings(acting.text);
        flushUnsolicited();
        break;
    default: finish(resultOf(acting));
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
    if (run_.fault && run_.fault->action == Action::noPrompt) {
        log_.write(TrafficLog::Mark::fault, run_.fault->source);
        return endSilently();
    }
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
    surroundings_.keep();
    const bool spoils = run_.fault && !run_.fault->refuses();
    if (spoils) { log_.write(TrafficLog::Mark::fault, run_.fault->source); }
    const bool late = run_.fault && run_.fault->action == Action::delay;
    const Milliseconds wait = latency_ + (late ? run_.fault->time() : Milliseconds(0));
    std::string text = spoiled(std::move(run_.information), resultText(modem_.settings, result));
    after(wait, [this, text = std::move(text)]() mutable {
        if (modem_.interjects) { text = interjected(std::move(text)); }
        put(std::move(text));
        const bool hangsUp = run_.fault && run_.fault->action == Action::hangUp;
        return hangsUp ? hangUp(run_.fault->time()) : endSilently();
    });
}

void Dialogue::hangUp(Milliseconds away) {
    reset();
    surroundings_.drop(away, Hanging::onceRead);
}

std::string Dialogue::spoiled(std::string information, const std::string &result) {
    if (run_.fault && run_.fault->action == Action::unsolicited) {
        information += unsolicitedText(modem_.settings, run_.fault->text);
    }
    std::string text = std::move(information) + result;
    if (run_.fault && run_.fault->isHalf()) { text.resize(text.size() / 2); }
    if (run_.fault && run_.fault->action == Action::garbage) {
        text = modem_.faults.noise(text.size());
    }
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

void Dialogue::logReceived() {
    if (!received_.empty()) { log_.write(TrafficLog::Mark::received, received_); }
    received_.clear();
}

void Dialogue::flushUnsolicited() {
    if (std::exchange(modem_.hasLostLine, false)) { reset(); }
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
    log_.write(TrafficLog::Mark::sent, text);
    surroundings_.send(std::move(text));
}

} // namespace smspb::simmodem
