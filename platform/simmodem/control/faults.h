// Faults that the modem plays on demand: what to spoil, how, and which time. Their text form is
//
//   PATTERN=ACTION[:COUNT]
//
// PATTERN  the beginning of the commands meant, as the modem understands them: without "AT" (a
//          leading "AT" is dropped), without blanks, letters of either case. "*" stands for any
//          run of characters; alone it means every command.
// ACTION   see `Action`; "\n" or "\r" in TEXT is a line end.
// COUNT    "3" the first three commands that match, "2-4" the second to the fourth, "2-" from the
//          second on, "10%" one in ten, by chance. Without it: every one.
//
// PATTERN ends at the first "=" behind which an action begins. Of several faults that match a
// command and whose turn it is, the one added first acts; all of them count the command.
#pragma once

#include <chrono>
#include <limits>
#include <random>
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
    drop,  // drop[=MS]: the terminal goes away and comes back after MS milliseconds, settings reset
    reset, // reset[=TEXT]: no reply, all settings are forgotten; TEXT is said unasked
    // The command is carried out, its reply is spoiled.
    half,        // the first half of the reply, then nothing
    hangUp,      // hangup[=MS]: the first half of the reply, then as drop
    garbage,     // noise of the reply's length
    delay,       // delay=MS: the reply is late
    unsolicited, // unsolicited=TEXT: a line right before the final result
    noPrompt     // no-prompt: no "> "; back to commands
};

struct Fault {
    std::string source; // as it was given
    Action action = Action::silence;
    unsigned number = 0; // N or MS
    std::string text;    // TEXT

    bool refuses() const { return action <= Action::reset; }
    bool isHalf() const { return action == Action::half || action == Action::hangUp; }
    std::chrono::milliseconds time() const { return std::chrono::milliseconds(number); }
};

class Faults {
public:
    struct Count {
        std::string source;
        unsigned met = 0, acted = 0;
    };

    // Takes one fault in its text form. Returns what is wrong with the text; empty when it was
    // taken.
    std::string add(std::string_view text);
    void clear() { entries_.clear(); }

    // What chance is made of: the same seed and the same commands make the same faults and noise.
    void seed(unsigned seed) { random_.seed(seed); }

    // How many commands each has matched, and on how many it acted.
    std::vector<Count> counts() const;

    // The fault that acts on this command, null for none. Counts the command.
    const Fault *match(std::string_view command);

    // Octets that stand in no reply, other ones each time.
    std::string noise(std::size_t length);

private:
    struct Entry {
        std::string pattern;
        Fault fault;
        unsigned first = 1, last = std::numeric_limits<unsigned>::max(), percent = 100;
        unsigned met = 0, acted = 0;
    };
    static bool parseFault(std::string_view text, Entry &entry);
    bool isTurnOf(const Entry &entry);
    std::vector<Entry> entries_;
    std::mt19937 random_{0}; // its numbers are the same everywhere, those of distributions are not
};

// The faults of a file, one a line; "#" begins a comment where a line or a word does. Throws
// std::runtime_error with FILE:LINE and what is wrong.
std::vector<std::string> readFaultFile(const std::string &path);

} // namespace smspb::simmodem
