// What a modem says, line by line: octets become lines, lines are told apart as final results,
// reports (unsolicited result codes) and the rest, and a reply is collected from what is left.
// Pure: no tty, no clock. V.250, 5.7; 3GPP TS 27.005 and 27.007 for the result codes.
#ifndef SMSPB_PLATFORM_MODEMD_AT_LINES_H
#define SMSPB_PLATFORM_MODEMD_AT_LINES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::modemd {

inline constexpr std::size_t LINE_OCTETS_MAX = 4096;
inline constexpr std::size_t REPLY_OCTETS_MAX = 256 * 1024;

// ASCII alone: AT commands know no locale.
std::string upperCase(std::string_view text);

// A line without its line ends.
std::string_view lineText(std::string_view raw);

// Whether the line is the last of a command's reply by the standard: then the modem takes the next
// command. The call results ("NO CARRIER", "CONNECT" and so on) are final only for a command that
// deals with a call; otherwise they report the end of one.
bool isFinalResult(std::string_view line, std::string_view command);

// A final result behind which nothing else of the reply can come, asked for or not.
bool isErrorResult(std::string_view line, std::string_view command);

// Whether the reply's last line is "OK".
bool endsInOk(std::string_view reply);

// Whether the caller's marker is this line: "OK" and "ERROR" are whole lines, other markers the
// beginning of one.
bool matchesMarker(std::string_view line, std::string_view marker);

// Whether the line is a report, known by its beginning, and not what `command` asks for: the
// "+CREG: 0,1" that answers AT+CREG? is none.
bool isReport(std::string_view line, std::string_view command);

// Whether the modem answers the command with a prompt and waits for a text (TS 27.005, 3.5 and 4).
bool promptsForText(std::string_view command);

// Cuts the octets of the tty into lines.
class LineAssembler {
public:
    enum class Event {
        NONE,
        LINE,     // take() gives it, line end included
        PROMPT,   // the line begins with "> " (TS 27.005, 3.5.1); take() it or let it grow
        OVERLONG, // a line of more than LINE_OCTETS_MAX was dropped
    };

    // Zero octets are dropped: they belong to no reply and would cut the text short.
    Event put(char octet);
    std::string take();
    // Whether a line has begun.
    bool inLine() const { return overlong_ || !lineText(line_).empty(); }
    bool isAtPrompt() const;

private:
    std::string line_;
    bool overlong_ = false;
};

// Puts a report together that takes more than one line: "+CMT:", "+CDS:" and "+CBM:" bring the
// message on the next line, the text of a "+CUSD:" may hold line ends.
class ReportAssembler {
public:
    // Takes a line that isReport(). Gives the report, each line ended by "\r\n", or waits for more.
    std::optional<std::string> begin(std::string_view line);
    bool isWaiting() const { return !report_.empty(); }
    // While waiting, takes the next raw line. The message follows at once; behind a blank line only
    // what cannot be anything else is taken, otherwise the report is given as it is and `*taken` is
    // false: the line is still to be judged.
    std::optional<std::string> proceed(std::string_view raw, bool *taken);
    // What there is of an unfinished report; empty when there is none.
    std::string abandon();

private:
    std::string report_;
    bool gap_ = false; // the line before was blank
};

// Collects the reply to one command, exactly as the modem gave it without the echo.
class ReplyCollector {
public:
    enum class Verdict {
        TAKEN,  // the line is part of the reply, or blank
        ENDED,  // it ended the reply
        REPORT, // it is a report and no part of the reply
    };

    ReplyCollector() = default;
    // `sent` is what went to the modem, its terminator included; `markers` end the reply.
    ReplyCollector(std::string sent, std::vector<std::string> markers)
        : sent_(std::move(sent)), markers_(std::move(markers)) {}

    Verdict put(std::string_view raw);
    // A line of the reply was lost.
    void spoil() { spoilt_ = true; }

    const std::string &text() const { return text_; }
    const std::string &sent() const { return sent_; }
    bool isSpoilt() const { return spoilt_; }
    // Whether the modem is done with the command by the standard, the caller's markers aside.
    bool isSettled() const { return settled_; }

private:
    std::string_view behindEcho(std::string_view raw) const;
    void append(std::string_view raw);

    std::string sent_;
    std::vector<std::string> markers_;
    std::string text_;
    std::string blanks_; // line ends that belong to the line behind them
    bool spoilt_ = false;
    bool settled_ = false;
};

} // namespace smspb::modemd

#endif
