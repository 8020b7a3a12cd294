// Faults that the modem plays on demand: what to spoil, how, and which time. Their text form is
//
//   PATTERN=ACTION[:COUNT]
//
// PATTERN  the beginning of the commands meant, as the modem understands them: without "AT" (a
//          leading "AT" is dropped), without blanks, letters of either case. "*" stands for any
//          run of characters; alone it means every command.
// ACTION   see `Action`; TEXT may hold "\n" for a line end.
// COUNT    "3" the first three commands that match, "2-4" the second to the fourth, "2-" from the
//          second on. Without it: every one.
//
// PATTERN ends at the first "=" behind which an action begins. Of several faults that match a
// command and whose turn it is, the one added first acts; all of them count the command.
#pragma once

#include <chrono>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::simmodem {

enum class Action {
    // The command is not carried out.
    silence, // no reply
    error,   // ERROR
    cms,     // cms=N: +CMS ERROR: N
    cme,     // cme=N: +CME ERROR: N
    drop, // drop[=MS]: the terminal goes away and comes back after MS milliseconds, settings reset
    // The command is carried out, its reply is spoiled.
    half,        // the first half of the reply, then nothing
    garbage,     // noise of the reply's length
    delay,       // delay=MS: the reply is late
    unsolicited, // unsolicited=TEXT: a line right before the final result
    noPrompt     // no-prompt: no "> "; back to commands
};

struct Fault {
    Action action = Action::silence;
    unsigned number = 0; // N or MS
    std::string text;    // TEXT

    bool refuses() const { return action <= Action::drop; }
    std::chrono::milliseconds time() const { return std::chrono::milliseconds(number); }
};

class Faults {
public:
    // Takes one fault in its text form. Returns what is wrong with the text; empty when it was
    // taken.
    std::string add(std::string_view text);
    void clear() { entries_.clear(); }

    // One line each: the text and how many commands have matched it.
    std::vector<std::string> describe() const;

    // The fault that acts on this command, null for none. Counts the command.
    const Fault *match(std::string_view command);

private:
    struct Entry {
        std::string source, pattern;
        Fault fault;
        unsigned first = 1, last = std::numeric_limits<unsigned>::max(), seen = 0;
    };
    static bool parseFault(std::string_view text, Entry &entry);
    std::vector<Entry> entries_;
};

} // namespace smspb::simmodem
