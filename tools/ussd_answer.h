// A network's USSD answer as people read it (3GPP TS 27.007, 7.15): the coding decides first, then
// what the octets can be, since modems differ in how they hand them on. Pure.
#ifndef SMSPB_TOOLS_USSD_ANSWER_H
#define SMSPB_TOOLS_USSD_ANSWER_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"
#include "tools/output.h"

namespace smspb::cli {

// <m>: what becomes of the dialogue.
enum class UssdStatus : u32 {
    DONE = 0,
    WAITS = 1, // for a reply
    ENDED = 2, // by the network
    TAKEN = 3, // another client of the modem has answered
    NOT_SUPPORTED = 4,
    TIME_OUT = 5,
};

struct UssdAnswer {
    UssdStatus status = UssdStatus::DONE;
    std::optional<std::string> string; // as the modem gave it; nothing for an answer without one
    std::optional<u32> dcs;
    std::string text;     // in UTF-8
    std::vector<u8> data; // instead of a text
    std::string coding;   // what the string was read as
    std::string language;
};

// Takes the line (with the lines of its text) from "+CUSD:" on. Nothing for another line, or one
// without its number.
std::optional<UssdAnswer> ussdAnswerFrom(std::string_view report);

// "waits for a reply"; empty for DONE.
std::string_view statusWords(UssdStatus status);

// The text, or the data in hexadecimal.
std::string contentOf(const UssdAnswer &answer);

Json toJson(const UssdAnswer &answer);

} // namespace smspb::cli

#endif
