#include "reply.h"

#include "modem.h"

#include <algorithm>
#include <array>

namespace smspb::simmodem {
namespace {

struct ErrorText {
    unsigned code;
    std::string_view text;
};

// TS 27.007, 9.2.1.
constexpr std::array<ErrorText, 23> EQUIPMENT_ERRORS{
    {
     {0, "phone failure"},
     {3, "operation not allowed"},
     {4, "operation not supported"},
     {5, "PH-SIM PIN required"},
     {10, "SIM not inserted"},
     {11, "SIM PIN required"},
     {12, "SIM PUK required"},
     {13, "SIM failure"},
     {14, "SIM busy"},
     {15, "SIM wrong"},
     {16, "incorrect password"},
     {20, "memory full"},
     {21, "invalid index"},
     {22, "not found"},
     {23, "memory failure"},
     {24, "text string too long"},
     {25, "invalid characters in text string"},
     {26, "dial string too long"},
     {27, "invalid characters in dial string"},
     {30, "no network service"},
     {31, "network timeout"},
     {50, "incorrect parameters"},
     {100, "unknown"},
     }
};

std::string equipmentError(const Settings &settings, unsigned code) {
    const auto known = std::find_if(EQUIPMENT_ERRORS.begin(), EQUIPMENT_ERRORS.end(),
                                    [code](const auto &error) { return error.code == code; });
    const bool named =
        settings.errorReports == ErrorReports::text && known != EQUIPMENT_ERRORS.end();
    return "+CME ERROR: " + (named ? std::string(known->text) : std::to_string(code));
}

// V.250, table 1: the numeric form of a result; the extended ones have none.
struct ResultWord {
    std::string verbose, numeric;
};

ResultWord resultWord(const Settings &settings, Result result) {
    switch (result.kind) {
    case Result::Kind::ok: return {"OK", "0"};
    case Result::Kind::noCarrier: return {"NO CARRIER", "3"};
    case Result::Kind::cms: return {"+CMS ERROR: " + std::to_string(result.code), {}};
    case Result::Kind::cme:
        if (settings.errorReports != ErrorReports::off) {
            return {equipmentError(settings, result.code), {}};
        }
        break;
    case Result::Kind::error:
    case Result::Kind::badParameter: break;
    }
    return {"ERROR", "4"};
}

} // namespace

Reply done(std::string information) { return {std::move(information), {}, {}}; }
Reply refused(Result::Kind kind, unsigned code) {
    return {
        {        },
        {kind,     code},
        {         }
    };
}
Reply badParameter() { return refused(Result::Kind::badParameter); }
Reply cmsError(unsigned code) { return refused(Result::Kind::cms, code); }
Reply cmeError(unsigned code) { return refused(Result::Kind::cme, code); }

std::string informationText(const Settings &settings, std::string_view information) {
    const std::string lineEnd{settings.terminator(), settings.lineFeed()};
    std::string text = settings.verbose ? lineEnd : std::string();
    for (const char c : information) {
        if (c == '\n') {
            text += lineEnd;
        } else {
            text += c;
        }
    }
    return text + lineEnd;
}

std::string resultText(const Settings &settings, Result result) {
    if (settings.quiet) { return {}; }
    const ResultWord word = resultWord(settings, result);
    if (settings.verbose) { return informationText(settings, word.verbose); }
    return (word.numeric.empty() ? word.verbose : word.numeric) + settings.terminator();
}

} // namespace smspb::simmodem
