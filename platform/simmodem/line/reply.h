// What a command gives back, before it is put into the form that V.250 asks for.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

struct Modem;
struct Settings;

struct Result {
    // `badParameter` is what the command's own standard says to one: ERROR, +CMS or +CME ERROR.
    enum class Kind { ok, error, noCarrier, cms, cme, badParameter };
    Kind kind = Kind::ok;
    unsigned code = 0; // of cms and cme
};

// TS 27.005, 3.2.5.
enum : unsigned {
    CMS_NOT_ALLOWED = 302,
    CMS_NOT_SUPPORTED = 303,
    CMS_INVALID_PDU_PARAMETER = 304,
    CMS_INVALID_TEXT_PARAMETER = 305,
    CMS_NO_SIM = 310,
    CMS_INVALID_INDEX = 321,
    CMS_MEMORY_FULL = 322,
    CMS_SERVICE_CENTRE_UNKNOWN = 330,
    CMS_NO_NETWORK = 331,
    CMS_NOTHING_TO_ACKNOWLEDGE = 340,
};

// TS 27.007, 9.2.
enum : unsigned {
    CME_NOT_ALLOWED = 3,
    CME_NOT_SUPPORTED = 4,
    CME_NO_SIM = 10,
    CME_MEMORY_FULL = 20,
    CME_INVALID_INDEX = 21,
    CME_NOT_FOUND = 22,
    CME_TEXT_TOO_LONG = 24,
    CME_INVALID_CHARACTERS_IN_TEXT = 25,
    CME_NUMBER_TOO_LONG = 26,
    CME_INVALID_CHARACTERS_IN_NUMBER = 27,
    CME_NO_NETWORK = 30,
    CME_INCORRECT_PARAMETERS = 50,
};

// Stands for a line feed that is part of a text and no end of a line. Nothing else looks like it:
// no character set gives the first octet to a character of a message, and quotes close every
// string.
inline constexpr std::string_view LITERAL_LINE_FEED = "\xFF\n";

struct Reply {
    // One information text, its lines separated by "\n"; empty for none.
    std::string information;
    Result result;
    // When set the command wants data behind the "> " prompt; the reply is what this gives then.
    std::function<Reply(Modem &, std::string_view data)> onData;
};

Reply done(std::string information = {});
Reply refused(Result::Kind kind, unsigned code = 0);
Reply badParameter();
Reply cmsError(unsigned code);
Reply cmeError(unsigned code);

// The code for a bad parameter of a message command in the present mode.
unsigned cmsParameterCode(const Settings &settings);

// V.250, 5.7.1 and 5.7.2: an information text, a result and an unsolicited one, verbose
// ("<CR><LF>text<CR><LF>") or short. ATQ1 takes away all results.
std::string informationText(const Settings &settings, std::string_view information);
std::string resultText(const Settings &settings, Result result);
std::string unsolicitedText(const Settings &settings, std::string_view text);

} // namespace smspb::simmodem
