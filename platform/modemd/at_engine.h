// The dialogue with the modem: one command at a time, its reply kept apart from what the modem says
// of its own accord, and the two sides kept in step.
//
// In step means that the modem owes no final result. After a command without one, and when the tty
// has just been opened, the engine sends "ATE0Q0V1\r" and waits until the late output is over
// before it sends anything else; late lines are logged and dropped, late reports are told like any
// other.
//
// A modem that comes back is set up as it was before anything else is sent to it, and both its
// going and its coming are told as reports.
//
// The wait of a command begins when it is given, so getting in step and setting up are part of it.
#ifndef SMSPB_PLATFORM_MODEMD_AT_ENGINE_H
#define SMSPB_PLATFORM_MODEMD_AT_ENGINE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <asio/io_context.hpp>

#include "platform/modemd/alarm.h"
#include "platform/modemd/at_lines.h"
#include "platform/modemd/log_limit.h"
#include "platform/modemd/settings_memory.h"
#include "platform/modemd/tty.h"

namespace smspb::modemd {

// What is sent, and what ends the reply besides a final result that is an error.
struct Command {
    std::string text; // its last octet is the terminator: "\r", or Ctrl-Z behind a PDU
    std::vector<std::string> markers;
    std::chrono::milliseconds wait;
    bool wantsPrompt = false; // "> " ends it, and the next command answers the prompt
};

enum class Ending {
    RESULT,   // a marker or an error result
    PROMPT,   // "> "
    SILENCE,  // none of them within the wait
    OVERFLOW, // the reply broke LINE_OCTETS_MAX or REPLY_OCTETS_MAX
    NO_MODEM, // the tty cannot be opened, or went away
};

struct Reply {
    Ending ending;
    std::string text; // as the modem gave it, without the echo
};

// What has happened since the start.
struct Happenings {
    std::uint64_t lateLines = 0; // dropped, final results aside
    std::uint64_t lost = 0, back = 0;
};

class AtEngine {
public:
    using OnReply = std::function<void(const Reply &)>;
    using OnReport = std::function<void(std::string_view lines)>; // each ended by "\r\n"
    // Whether the modem leaves the manager's own question unanswered.
    using OnSilence = std::function<void(bool isSilent)>;

    AtEngine(asio::io_context &loop, std::string path, unsigned baud, OnReport onReport,
             OnSilence onSilence = {});

    // Opens the tty, and again and again while that fails or when it is lost. Throws NotATty when
    // the path names something else at this moment.
    void start();

    // Runs a command; `onReply` is called from the event loop, once, at the end of the wait at the
    // latest. The next command may be given when it has been. Without a tty it fails at once, after
    // one attempt to open it.
    void run(Command command, OnReply onReply);

    // Leaves a prompt that is open, closes the tty and fails the command that runs.
    void stop();

    const Tty &tty() const { return tty_; }
    const char *state() const;
    // Why the tty is not open, and who has it, as far as that is known.
    const std::string &trouble() const { return trouble_; }
    const std::string &holder() const { return holder_; }
    const Happenings &happenings() const { return happenings_; }

private:
    enum class State {
        CLOSED,
        OUT_OF_STEP,   // silent; the next command begins with another attempt
        SYNCHRONISING, // sorting out late output
        READY,
        RUNNING,
    };
    struct Exchange {
        Command command;
        OnReply onReply;
    };
    struct Given {
        OnReply onReply;
        Reply reply;
    };

    bool open();
    void openOnce(); // throws
    void onTrouble(const std::string &trouble);
    void onLost(const std::string &why);
    void retryLater();

    void synchronise(bool escape, std::chrono::milliseconds settle);
    void probe(bool escape);
    void onProbeTimeout();
    void onSettled();
    void setSilent(bool isSilent);

    void startExchange();
    void failAll();
    void setUpNext();
    void begin();
    void onReplyTimeout();
    void onTooLate();
    void finish(Ending ending);
    void give(OnReply onReply, Reply reply);
    void handOutReplies();

    void onOctets(std::string_view octets);
    void onLine(std::string_view raw);
    void onReplyLine(std::string_view raw);
    void onLateLine(std::string_view line);
    void onIdleLine(std::string_view line);
    void onPrompt();
    void onOverlong();
    void complain(const char *what, const std::string &which);
    void report(std::string_view line);
    void tell(std::optional<std::string> lines);
    void dropReport();

    void send(std::string_view octets);
    void arm(std::chrono::milliseconds wait, void (AtEngine::*then)());
    void takeOctets(std::string_view octets);

    asio::io_context &loop_;
    Tty tty_;
    OnReport onReport_;
    OnSilence onSilence_;
    Alarm step_;     // the end of what goes on
    Alarm deadline_; // of the caller's command, until it is sent
    Alarm reopen_;
    Alarm::Clock::time_point callersDeadline_;
    State state_ = State::CLOSED;
    bool stopped_ = false;
    std::string trouble_; // as last logged
    std::string holder_;
    Happenings happenings_;
    LogLimit<std::string> complaints_; // about what the modem says, by kind

    LineAssembler lines_;
    ReportAssembler reports_;
    ReplyCollector reply_;             // of the last command: also tells what late lines answer
    std::optional<Exchange> exchange_; // runs, or waits until both sides are in step
    SettingsMemory settings_;
    std::deque<std::string> setUp_;   // commands still to be sent to a modem that came back
    bool settingUp_ = false;          // the exchange that runs is one of them
    std::optional<Exchange> waiting_; // the caller's, until the modem is set up
    bool wasLost_ = false;
    bool lineIsOlder_ = false; // the line under way began before the command was sent
    unsigned owed_ = 0;        // final results that the modem may still give
    std::uint64_t lateLinesLogged_ = 0;
    bool probedTwice_ = false;
    bool isSilent_ = false;
    std::deque<Given> replies_; // for the callers, from the event loop
    bool takesOctets_ = false;
    std::chrono::milliseconds settle_{0};
};

} // namespace smspb::modemd

#endif
