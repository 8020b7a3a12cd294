// State machine of the dialogue with the modem. Every wait is a timer, every step a function.
#include "platform/modemd/at_engine.h"

#include <algorithm>
#include <utility>

#include <asio/post.hpp>
#include <spdlog/spdlog.h>

namespace smspb::modemd {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds REOPEN_INTERVAL{500};
constexpr milliseconds PROBE_WAIT{1000}; // twice, then the modem counts as silent
// How long a second final result may take behind the first late one.
constexpr milliseconds SETTLE_AFTER_OPEN{100};
constexpr milliseconds SETTLE_AFTER_TIMEOUT{250};

constexpr milliseconds SET_UP_WAIT{3000}; // for each command

// What the manager itself has to report.
constexpr std::string_view MODEM_LOST = "^SMSPB: \"modem lost\"\r\n";
constexpr std::string_view MODEM_BACK = "^SMSPB: \"modem back\"\r\n";

// V.250, 6.2.4 to 6.2.6: no echo, and results in words, whatever a caller or an earlier owner left.
constexpr std::string_view PROBE = "ATE0Q0V1\r";
constexpr std::string_view ESCAPE = "\x1b"; // TS 27.005, 3.5.1: ends a message unsent

// Octets for the log.
std::string printable(std::string_view octets) {
    std::string text;
    for (const char c : octets) {
        const auto octet = static_cast<unsigned char>(c);
        if (c == '\r') {
            text += "\\r";
        } else if (c == '\n') {
            text += "\\n";
        } else if (octet < 0x20 || octet >= 0x7f) {
            text += fmt::format("\\x{:02x}", octet);
        } else {
            text += c;
        }
    }
    return text;
}

void traceTraffic(const char *direction, std::string_view octets) {
    if (spdlog::should_log(spdlog::level::trace)) {
        spdlog::trace("{} {}", direction, printable(octets));
    }
}

// A PDU is sent in answer to a prompt, and a modem that wants more of it prompts again.
bool mayPrompt(const Command &command) {
    return command.wantsPrompt || !command.text.ends_with('\r') || promptsForText(command.text);
}

bool isPlainText(std::string_view line) {
    return std::all_of(line.begin(), line.end(),
                       [](char c) { return (c >= ' ' && c <= '~') || c == '\t'; });
}

} // namespace

AtEngine::AtEngine(asio::io_context &loop, std::string path, unsigned baud, OnReport onReport,
                   OnSilence onSilence)
    : loop_(loop), tty_(loop, std::move(path), baud,
                        {[this](std::string_view octets) { onOctets(octets); },
                         [this](const std::string &why) { onLost(why); }}),
      onReport_(std::move(onReport)), onSilence_(std::move(onSilence)), step_(loop),
      deadline_(loop), reopen_(loop) {}

const char *AtEngine::state() const {
    if (state_ == State::CLOSED) { return "closed"; }
    if (isSilent_) { return "silent"; }
    if (settingUp_) { return "being set up"; }
    return state_ == State::SYNCHRONISING ? "getting in step" : "in step";
}

void AtEngine::start() {
    try {
        openOnce();
    } catch (const NotATty &) { throw; } catch (const std::runtime_error &error) {
        onTrouble(error.what());
    }
}

void AtEngine::run(Command command, OnReply onReply) {
    callersDeadline_ = Alarm::Clock::now() + command.wait;
    if (settingUp_) {
        waiting_ = Exchange{std::move(command), std::move(onReply)};
    } else {
        exchange_ = Exchange{std::move(command), std::move(onReply)};
        startExchange();
    }
    const bool mustWait = waiting_ || (exchange_ && state_ != State::RUNNING);
    if (mustWait) {
        deadline_.set(callersDeadline_, [this] { onTooLate(); });
    }
}

// The caller's command, which could not even be sent; getting in step, or setting up, goes on.
void AtEngine::onTooLate() {
    std::optional<Exchange> &late = settingUp_ ? waiting_ : exchange_;
    if (!late || (!settingUp_ && state_ == State::RUNNING)) { return; }
    spdlog::info("not in step with the modem within {} ms", late->command.wait.count());
    Exchange exchange = std::move(*late);
    late.reset();
    give(std::move(exchange.onReply), {Ending::SILENCE, {}});
}

void AtEngine::startExchange() {
    if (state_ == State::CLOSED && (stopped_ || !open())) {
        finish(Ending::NO_MODEM);
    } else if (state_ == State::READY) {
        begin();
    } else if (state_ == State::OUT_OF_STEP) {
        synchronise(true, SETTLE_AFTER_TIMEOUT);
    } else {
        probedTwice_ = false; // one whole attempt for this command
    }
}

void AtEngine::stop() {
    stopped_ = true;
    // A modem left at its prompt would take the next command for text.
    if (owed_ > 0) { tty_.writeNow(ESCAPE); }
    tty_.close();
    state_ = State::CLOSED;
    failAll();
    step_.stop();
    deadline_.stop();
    reopen_.stop();
}

bool AtEngine::open() {
    try {
        openOnce();
        return true;
    } catch (const std::runtime_error &error) {
        onTrouble(error.what());
        return false;
    }
}

void AtEngine::openOnce() {
    reopen_.clear();
    try {
        tty_.open();
    } catch (const InUse &error) {
        holder_ = error.holder;
        throw;
    }
    trouble_.clear();
    holder_.clear();
    spdlog::info("{} is open", tty_.path());
    lines_ = {};
    reports_ = {};
    reply_ = {};
    owed_ = 1; // whoever had the tty before may have left before an answer came
    synchronise(false, SETTLE_AFTER_OPEN);
}

// Logged when it is news, not at every attempt.
void AtEngine::onTrouble(const std::string &trouble) {
    if (trouble_ != trouble) {
        spdlog::error("{}; trying again every {} ms", trouble, REOPEN_INTERVAL.count());
    }
    trouble_ = trouble;
    retryLater();
}

void AtEngine::onLost(const std::string &why) {
    spdlog::error("{} is lost: {}", tty_.path(), why);
    step_.clear();
    dropReport();
    state_ = State::CLOSED;
    setSilent(false); // who asks now fails at once
    if (!std::exchange(wasLost_, true)) {
        happenings_.lost++;
        onReport_(MODEM_LOST);
    }
    failAll();
    retryLater();
}

// The caller's command, and one of the manager's own before it.
void AtEngine::failAll() {
    settingUp_ = false;
    setUp_.clear();
    if (exchange_) { finish(Ending::NO_MODEM); }
    if (waiting_) {
        exchange_ = std::exchange(waiting_, std::nullopt);
        finish(Ending::NO_MODEM);
    }
}

void AtEngine::retryLater() {
    if (stopped_) { return; }
    reopen_.set(Alarm::Clock::now() + REOPEN_INTERVAL, [this] {
        if (state_ == State::CLOSED) { open(); }
    });
}

void AtEngine::synchronise(bool escape, milliseconds settle) {
    state_ = State::SYNCHRONISING;
    probedTwice_ = false;
    settle_ = settle;
    probe(escape);
}

void AtEngine::probe(bool escape) {
    owed_++;
    if (escape) { send(ESCAPE); }
    send(PROBE);
    arm(PROBE_WAIT, &AtEngine::onProbeTimeout);
}

void AtEngine::onProbeTimeout() {
    if (tty_.isWriting()) {
        tty_.close();
        onLost("it takes no octets");
        return;
    }
    if (!probedTwice_) {
        probedTwice_ = true;
        probe(true);
        return;
    }
    if (!isSilent_) { spdlog::error("the modem on {} does not answer", tty_.path()); }
    setSilent(true);
    if (exchange_) {
        probe(true); // as long as somebody waits
    } else {
        state_ = State::OUT_OF_STEP;
    }
}

void AtEngine::setSilent(bool isSilent) {
    if (std::exchange(isSilent_, isSilent) != isSilent && onSilence_) { onSilence_(isSilent); }
}

void AtEngine::onSettled() {
    step_.clear();
    spdlog::debug("in step with the modem");
    const std::uint64_t lateLines = happenings_.lateLines - lateLinesLogged_;
    if (lateLines > 0) { spdlog::warn("{} late lines of the modem dropped", lateLines); }
    lateLinesLogged_ = happenings_.lateLines;
    setSilent(false);
    owed_ = 0;
    state_ = State::READY;
    if (std::exchange(wasLost_, false)) {
        const std::vector<std::string> commands = settings_.commands();
        setUp_.assign(commands.begin(), commands.end());
        waiting_ = std::exchange(exchange_, std::nullopt);
        happenings_.back++;
        onReport_(MODEM_BACK);
        setUpNext();
    } else if (exchange_) {
        begin();
    }
}

// One command after the other, then the caller's. What the modem refuses is logged, and no more: it
// may be another modem by now.
void AtEngine::setUpNext() {
    settingUp_ = !setUp_.empty();
    if (!settingUp_) {
        exchange_ = std::exchange(waiting_, std::nullopt);
        if (exchange_) { startExchange(); }
        return;
    }
    Command command{std::move(setUp_.front()), {"OK"}, SET_UP_WAIT, false};
    setUp_.pop_front();
    const std::string name = command.text.substr(0, command.text.find('='));
    exchange_ = Exchange{std::move(command), [this, name](const Reply &reply) {
                             if (reply.ending == Ending::SILENCE) { setUp_.clear(); }
                             if (reply.ending != Ending::RESULT ||
                                 reply.text.find("OK") == std::string::npos) {
                                 spdlog::warn("{} could not be set again", name);
                             }
                             if (settingUp_) { setUpNext(); }
                         }};
    startExchange();
}

void AtEngine::begin() {
    state_ = State::RUNNING;
    owed_ = 1;
    lineIsOlder_ = lines_.inLine();
    reply_ = ReplyCollector(exchange_->command.text, exchange_->command.markers);
    send(exchange_->command.text);
    if (settingUp_) {
        arm(SET_UP_WAIT, &AtEngine::onReplyTimeout);
    } else {
        deadline_.clear();
        step_.set(callersDeadline_, [this] { onReplyTimeout(); });
    }
}

void AtEngine::onReplyTimeout() {
    if (tty_.isWriting()) {
        tty_.close();
        onLost("it takes no octets");
        return;
    }
    spdlog::info("no final result within {} ms, {} octets of a reply until then",
                 exchange_->command.wait.count(), reply_.text().size());
    finish(Ending::SILENCE);
}

void AtEngine::finish(Ending ending) {
    const bool wasRunning = state_ == State::RUNNING;
    give(std::move(exchange_->onReply), {ending, wasRunning ? reply_.text() : std::string()});
    const Command command = std::move(exchange_->command);
    exchange_.reset();
    if (!wasRunning) { return; }
    const bool atWantedPrompt = ending == Ending::PROMPT && command.wantsPrompt;
    const bool mayBeAtPrompt =
        ending == Ending::PROMPT || mayPrompt(command) || lines_.isAtPrompt();
    step_.clear();
    state_ = State::READY;
    if (owed_ > 0 && !atWantedPrompt) { synchronise(mayBeAtPrompt, SETTLE_AFTER_TIMEOUT); }
}

// The caller hears of it from the event loop, when the octets that came with the end are through.
void AtEngine::give(OnReply onReply, Reply reply) {
    replies_.push_back({std::move(onReply), std::move(reply)});
    if (takesOctets_ || replies_.size() > 1) { return; }
    asio::post(loop_, [this] { handOutReplies(); });
}

void AtEngine::handOutReplies() {
    while (!replies_.empty()) {
        const Given given = std::move(replies_.front());
        replies_.pop_front();
        given.onReply(given.reply);
    }
}

void AtEngine::onOctets(std::string_view octets) {
    takesOctets_ = true;
    takeOctets(octets);
    takesOctets_ = false;
    handOutReplies();
}

void AtEngine::takeOctets(std::string_view octets) {
    traceTraffic("<-", octets);
    for (const char octet : octets) {
        switch (lines_.put(octet)) {
        case LineAssembler::Event::NONE: break;
        case LineAssembler::Event::LINE: onLine(lines_.take()); break;
        case LineAssembler::Event::PROMPT: onPrompt(); break;
        case LineAssembler::Event::OVERLONG: onOverlong(); break;
        }
    }
}

void AtEngine::onLine(std::string_view raw) {
    const bool isOlder = std::exchange(lineIsOlder_, false);
    if (reports_.isWaiting()) {
        bool taken = false;
        tell(reports_.proceed(raw, &taken));
        if (taken) { return; }
    }
    if (state_ == State::RUNNING && !isOlder) {
        onReplyLine(raw);
        return;
    }
    const std::string_view line = lineText(raw);
    if (line.empty()) { return; }
    if (isReport(line, reply_.sent())) {
        report(line);
    } else if (state_ == State::READY || state_ == State::RUNNING) {
        onIdleLine(line);
    } else {
        onLateLine(line);
    }
}

void AtEngine::onReplyLine(std::string_view raw) {
    const ReplyCollector::Verdict verdict = reply_.put(raw);
    if (reply_.isSettled()) { owed_ = 0; }
    if (verdict == ReplyCollector::Verdict::REPORT) { report(lineText(raw)); }
    if (verdict == ReplyCollector::Verdict::ENDED) {
        if (!isErrorResult(lineText(raw), reply_.sent())) { settings_.learn(reply_.sent()); }
        finish(reply_.isSpoilt() ? Ending::OVERFLOW : Ending::RESULT);
    }
}

// Of a command that timed out, or the answer to the probe.
void AtEngine::onLateLine(std::string_view line) {
    if (spdlog::should_log(spdlog::level::trace)) {
        spdlog::trace("late line dropped: {}", printable(line));
    }
    if (PROBE.starts_with(line)) { return; } // its echo
    if (!isFinalResult(line, reply_.sent())) {
        happenings_.lateLines++;
        return;
    }
    owed_ = owed_ > 0 ? owed_ - 1 : 0;
    if (state_ != State::SYNCHRONISING) { return; }
    if (owed_ == 0) {
        onSettled();
    } else {
        arm(settle_, &AtEngine::onSettled);
    }
}

// Nobody asked, so it is a report, whatever it begins with.
void AtEngine::onIdleLine(std::string_view line) {
    if (isFinalResult(line, {})) {
        complain("final result without a command", printable(line));
    } else if (!isPlainText(line)) {
        complain("line that is no text", fmt::format("{} octets", line.size()));
    } else {
        report(line);
    }
}

void AtEngine::onPrompt() {
    const bool isText = state_ == State::RUNNING && !mayPrompt(exchange_->command);
    if (isText) { return; }
    lines_.take();
    if (state_ == State::SYNCHRONISING) {
        // The probe went into a message text. Leave the prompt and ask again, once.
        if (!std::exchange(probedTwice_, true)) { probe(true); }
        return;
    }
    if (state_ == State::RUNNING) {
        finish(Ending::PROMPT);
        return;
    }
    synchronise(true, SETTLE_AFTER_TIMEOUT);
}

void AtEngine::onOverlong() {
    complain("line that is too long", fmt::format("more than {} octets", LINE_OCTETS_MAX));
    if (state_ == State::RUNNING && !lineIsOlder_) { reply_.spoil(); }
    lineIsOlder_ = false;
}

// A modem that says such things without end must not fill the log.
void AtEngine::complain(const char *what, const std::string &which) {
    using Limit = LogLimit<std::string>;
    const Limit::Verdict verdict = complaints_.judge(what);
    if (verdict == Limit::Verdict::LOG) { spdlog::warn("{} dropped: {}", what, which); }
    if (verdict == Limit::Verdict::LAST) {
        spdlog::warn("{} again and again: not logged for the next {} s", what, Limit::TIME.count());
    }
}

void AtEngine::report(std::string_view line) { tell(reports_.begin(line)); }

void AtEngine::tell(std::optional<std::string> lines) {
    if (lines) { onReport_(*lines); }
}

void AtEngine::dropReport() {
    const std::string rest = reports_.abandon();
    if (!rest.empty()) {
        spdlog::warn("report without its second line dropped: {}",
                     rest.substr(0, rest.find(':') + 1));
    }
}

void AtEngine::send(std::string_view octets) {
    traceTraffic("->", octets);
    tty_.write(octets);
}

void AtEngine::arm(milliseconds wait, void (AtEngine::*then)()) {
    step_.set(Alarm::Clock::now() + wait, [this, then] { (this->*then)(); });
}

} // namespace smspb::modemd
