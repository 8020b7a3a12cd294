// USSD (TS 27.007, 7.15) by script: which answer a code gets. Its text form is
//
//   PATH=[menu ][delay=MS ]ANSWER
//
// PATH     the code, and behind each "/" a reply to the menu before it: "*103#/1". "?" for a reply
//          means any other.
// menu     the answer waits for a reply ("+CUSD: 1"); without it the dialogue ends ("+CUSD: 0").
// delay    the answer comes MS milliseconds after OK.
// ANSWER   text:TEXT    the text, coding scheme 15
//          packed:TEXT  its septets packed, in hexadecimal, coding scheme 15
//          ucs2:TEXT    UCS-2 in hexadecimal, coding scheme 72
//          status:N     "+CUSD: N" alone
//          error:N      +CME ERROR: N instead of OK
//          TEXT is UTF-8; "\n" in it is a line end.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

// +CUSD <m>.
enum class UssdStatus : unsigned { ended = 0, waits = 1, terminated = 2, notSupported = 4 };

struct UssdAnswer {
    unsigned status = 0;
    enum class Form { text, packed, ucs2, none, error } form = Form::text;
    std::u16string text;
    unsigned errorCode = 0;
    std::chrono::milliseconds delay{0};
};

class UssdScript {
public:
    // The codes that every simulated modem knows: docs/simulated-modem.md lists them.
    UssdScript();

    // Takes one answer in its text form, instead of an earlier one. Returns what is wrong with it;
    // empty when it was taken.
    std::string add(std::string_view text);

    // Null for a path that leads nowhere.
    const UssdAnswer *find(const std::string &path) const;

private:
    std::map<std::string, UssdAnswer> answers_;
};

// The "+CUSD: " line of an answer, in the terminal's character set.
std::string ussdLine(const UssdAnswer &answer, std::string_view charset);

// What goes on between the modem and the network.
struct UssdDialogue {
    UssdScript script;
    std::string path;                 // of the menu that waits for a reply; empty for none
    std::optional<UssdAnswer> coming; // the answer that is not here yet

    void end() {
        path.clear();
        coming.reset();
    }
};

} // namespace smspb::simmodem
