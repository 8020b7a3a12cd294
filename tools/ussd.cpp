// ussd: a dialogue with the network (3GPP TS 27.007, 7.15).
//
// sendUSSD says only that the modem refused. Here its two steps are taken one by one, so that a
// failure carries the modem's own error.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <deque>

#include <fmt/format.h>

#include "atlib/CSMS.h"
#include "platform/ipc/ipc_server.h"
#include "tools/commands.h"
#include "tools/events.h"
#include "tools/modem.h"
#include "tools/signals.h"
#include "tools/text.h"
#include "tools/ussd_answer.h"

namespace smspb::cli {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr u32 NOTIFICATION = 0x10400090;
constexpr std::size_t TEXT_CHARACTERS_MAX = 29; // as sendUSSD

// Why the text cannot be sent; empty when it can.
std::string problemOf(const std::string &text) {
    if (text.empty()) { return "is empty"; }
    const std::u32string characters = toCharacters(text);
    const auto odd = std::find_if(characters.begin(), characters.end(),
                                  [](char32_t c) { return c < 0x20 || c > 0x7E || c == U'"'; });
    if (odd != characters.end()) {
        return fmt::format("holds {} at character {}; ASCII without double quotes goes",
                           codePointName(*odd), odd - characters.begin() + 1);
    }
    if (text.size() <= TEXT_CHARACTERS_MAX) { return ""; }
    return fmt::format("has {} characters; at most {} go", text.size(), TEXT_CHARACTERS_MAX);
}

void checkText(std::string_view name, const std::string &text) {
    const std::string problem = problemOf(text);
    if (problem.empty()) { return; }
    throw Failure(Exit::USAGE, fmt::format("{} \"{}\" {}", name, text, problem),
                  "for example *100#, or a digit for a menu");
}

struct Answer {
    UssdAnswer content;
    std::string sent, raw;
};

class Dialogue {
public:
    Dialogue(const Console &console, const UssdOptions &options)
        : console_(console), options_(options), subscription_({NOTIFICATION}),
          replies_(options.replies.begin(), options.replies.end()) {}

    Exit run() {
        const KeptCharset charset;
        try {
            std::optional<std::string> text = options_.code;
            while (text) {
                send(*text);
                take(*text, await());
                text = isOpen_ ? nextReply() : std::nullopt;
            }
            if (isOpen_) { cancel(); }
            judge();
        } catch (const Failure &failure) {
            failure_ = failure;
            cancel();
        } catch (const Interrupted &) {
            cancel();
            throw;
        }
        report();
        return failure_ ? failure_->exit : Exit::OK;
    }

private:
    void send(const std::string &text) {
        const std::string what = "send " + text;
        if (const u32 status = setEcodingFormat(CHARSET_IRA); status != SMS_OK) {
            throw explained(status, what, "AT+CSCS=\"IRA\"");
        }
        isOpen_ = true; // whatever becomes of it
        const std::string reply = cli::run(fmt::format("AT+CUSD =1, \"{}\",15", text), what);
        if (const auto error = errorOf(reply)) {
            isOpen_ = !answers_.empty();
            throw refusal(*error, what);
        }
    }

    // The network's answer within the wait.
    Answer await() {
        const Clock::time_point deadline =
            Clock::now() +
            std::chrono::milliseconds(static_cast<std::int64_t>(options_.waitSeconds * 1000));
        while (Clock::now() < deadline) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            wait(false, std::min<std::chrono::milliseconds>(left, 1s));
            if (auto answer = takeAnswer()) { return *std::move(answer); }
            requireManager();
        }
        throw Failure(Exit::NOTHING_CAME,
                      fmt::format("the network gave no answer within {} s", options_.waitSeconds),
                      "try again, or wait longer with --wait SECONDS");
    }

    // Waits for a notification, or a line of input, and gives whether there is input.
    bool wait(bool forInput, std::chrono::milliseconds limit) {
        pollfd waits[] = {
            {               signals_.fd(), POLLIN, 0},
            {          subscription_.fd(), POLLIN, 0},
            {forInput ? STDIN_FILENO : -1, POLLIN, 0}
        };
        poll(waits, std::size(waits), static_cast<int>(limit.count()));
        const int signal = signals_.take();
        if (signal != 0 && signal != SIGCHLD) { throw Interrupted{signal}; }
        return forInput && waits[2].revents != 0;
    }

    std::optional<Answer> takeAnswer() {
        while (auto block = subscription_.receive(0ms)) {
            const auto payload = block->payload();
            const std::string_view text(reinterpret_cast<const char *>(payload.data()),
                                        payload.size());
            for (const std::string &report : splitReports(text.substr(0, text.find('\0')))) {
                if (auto answer = ussdAnswerFrom(report)) {
                    return Answer{*std::move(answer), "", report};
                }
            }
        }
        return std::nullopt;
    }

    void take(const std::string &sent, Answer answer) {
        answer.sent = sent;
        isOpen_ = answer.content.status == UssdStatus::WAITS;
        console_.progress("");
        const std::string text = contentOf(answer.content);
        if (!text.empty()) { console_.say(text); }
        std::fflush(stdout);
        answers_.push_back(std::move(answer));
    }

    // The next --reply, or what the user types; nothing ends the dialogue.
    std::optional<std::string> nextReply() {
        if (!replies_.empty()) {
            std::string reply = std::move(replies_.front());
            replies_.pop_front();
            return reply;
        }
        const bool canAsk =
            !console_.json() && isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
        if (canAsk) { return promptForReply(); }
        console_.note("the network waits for a reply: give it with --reply TEXT");
        return std::nullopt;
    }

    std::optional<std::string> promptForReply() {
        for (;;) {
            std::fputs("reply (empty ends the dialogue): ", stderr);
            const std::optional<std::string> line = readLine();
            if (!line || line->empty()) { return std::nullopt; }
            const std::string problem = problemOf(*line);
            if (problem.empty()) { return line; }
            console_.note("the reply " + problem);
        }
    }

    // Nothing when the input ends, or the network ends the dialogue.
    std::optional<std::string> readLine() {
        while (!wait(true, 1s)) {
            if (auto answer = takeAnswer()) {
                std::fputs("\n", stderr);
                take("", *std::move(answer));
                if (!isOpen_) { return std::nullopt; }
            }
        }
        // The terminal gives whole lines.
        std::array<char, 256> line{};
        const ssize_t size = ::read(STDIN_FILENO, line.data(), line.size());
        if (size <= 0) { return std::nullopt; }
        std::string text(line.data(), static_cast<std::size_t>(size));
        text.erase(text.find_last_not_of("\r\n") + 1);
        return text;
    }

    // Whatever the modem says to it: there may be nothing left to end.
    void cancel() {
        if (!isOpen_ || isModemSilent() || !hasManager()) { return; }
        try {
            wasCancelled_ = !errorOf(cli::run("AT+CUSD=2", "end the dialogue"));
        } catch (const Failure &) { wasCancelled_ = false; }
        isOpen_ = !wasCancelled_;
        if (wasCancelled_) {
            console_.note("the dialogue was ended");
        } else {
            console_.note("the dialogue may still be open: smspb ussd --cancel ends it");
        }
    }

    // What the last answer means for the whole.
    void judge() {
        const UssdAnswer &last = answers_.back().content;
        const std::string words(statusWords(last.status));
        switch (last.status) {
        case UssdStatus::TIME_OUT:
            throw Failure(Exit::NOTHING_CAME, "no answer: " + words, "try again");
        case UssdStatus::TAKEN:
        case UssdStatus::NOT_SUPPORTED:
            throw Failure(Exit::REFUSED, fmt::format("{}: {}", options_.code, words),
                          "the operator tells which codes there are");
        case UssdStatus::ENDED:
            if (last.string || answers_.size() > 1) { break; }
            throw Failure(Exit::REFUSED,
                          fmt::format("{}: ended by the network without an answer", options_.code),
                          "try again; the operator tells which codes there are");
        default: break;
        }
        if (replies_.empty()) { return; }
        throw Failure(Exit::IN_PART,
                      fmt::format("the dialogue ended before the reply \"{}\"", replies_.front()));
    }

    void report() const {
        if (failure_) { console_.complain(*failure_); }
        Json json = {
            {   "code", options_.code},
            {"answers", Json::array()}
        };
        for (const Answer &answer : answers_) {
            Json one = {
                {"sent", answer.sent}
            };
            one.update(toJson(answer.content));
            one["raw"] = answer.raw;
            json["answers"].push_back(one);
        }
        json["cancelled"] = wasCancelled_;
        if (failure_) { json["error"] = toJson(*failure_); }
        console_.document(json);
    }

    const Console &console_;
    const UssdOptions &options_;
    SignalWatch signals_;
    ipc::Subscription subscription_;
    std::deque<std::string> replies_;
    std::vector<Answer> answers_;
    std::optional<Failure> failure_;
    bool isOpen_ = false;
    bool wasCancelled_ = false;
};

Exit endDialogue(const Console &console) {
    ask("AT+CUSD=2", "end the dialogue");
    console.say("the dialogue is ended");
    console.document({
        {"cancelled", true}
    });
    return Exit::OK;
}

} // namespace

Exit ussd(const Console &console, const UssdOptions &options) {
    if (!options.cancel) { checkText("CODE", options.code); }
    for (const std::string &reply : options.replies) { checkText("--reply", reply); }
    requireManager();
    if (options.cancel) { return endDialogue(console); }
    int signal = 0;
    try {
        return Dialogue(console, options).run();
    } catch (const Interrupted &interrupted) { signal = interrupted.signal; }
    // Only now, when everything is given back, does it end us as it would have.
    std::signal(signal, SIG_DFL);
    raise(signal);
    return Exit::UNEXPECTED;
}

} // namespace smspb::cli
