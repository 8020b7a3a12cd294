#include "platform/simmodem/line/reply.h"

#include "platform/simmodem/modem/modem.h"

#include <algorithm>
#include <array>

namespace smspb::simmodem {
namespace {

struct ErrorText {
    unsigned code;
    std::string_view text;
};

// clang-format off
// TS 27.007, 9.2.1 and 9.2.2: the texts of +CMEE=2.
constexpr std::array EQUIPMENT_ERRORS{
    ErrorText{0, "phone failure"},
    ErrorText{1, "no connection to phone"},
    ErrorText{2, "phone-adaptor link reserved"},
    ErrorText{3, "operation not allowed"},
    ErrorText{4, "operation not supported"},
    ErrorText{5, "PH-SIM PIN required"},
    ErrorText{6, "PH-FSIM PIN required"},
    ErrorText{7, "PH-FSIM PUK required"},
    ErrorText{10, "SIM not inserted"},
    ErrorText{11, "SIM PIN required"},
    ErrorText{12, "SIM PUK required"},
    ErrorText{13, "SIM failure"},
    ErrorText{14, "SIM busy"},
    ErrorText{15, "SIM wrong"},
    ErrorText{16, "incorrect password"},
    ErrorText{17, "SIM PIN2 required"},
    ErrorText{18, "SIM PUK2 required"},
    ErrorText{20, "memory full"},
    ErrorText{21, "invalid index"},
    ErrorText{22, "not found"},
    ErrorText{23, "memory failure"},
    ErrorText{24, "text string too long"},
    ErrorText{25, "invalid characters in text string"},
    ErrorText{26, "dial string too long"},
    ErrorText{27, "invalid characters in dial string"},
    ErrorText{30, "no network service"},
    ErrorText{31, "network timeout"},
    ErrorText{32, "network not allowed - emergency calls only"},
    ErrorText{40, "network personalization PIN required"},
    ErrorText{41, "network personalization PUK required"},
    ErrorText{42, "network subset personalization PIN required"},
    ErrorText{43, "network subset personalization PUK required"},
    ErrorText{44, "service provider personalization PIN required"},
    ErrorText{45, "service provider personalization PUK required"},
    ErrorText{46, "corporate personalization PIN required"},
    ErrorText{47, "corporate personalization PUK required"},
    ErrorText{48, "hidden key required"},
    ErrorText{49, "EAP method not supported"},
    ErrorText{50, "Incorrect parameters"},
    ErrorText{51, "command implemented but currently disabled"},
    ErrorText{52, "command aborted by user"},
    ErrorText{53, "not attached to network due to MT functionality restrictions"},
    ErrorText{54, "modem not allowed - MT restricted to emergency calls only"},
    ErrorText{55, "operation not allowed because of MT functionality restrictions"},
    ErrorText{56, "fixed dial number only allowed - called number is not a fixed dial number"},
    ErrorText{57, "temporarily out of service due to other MT usage"},
    ErrorText{58, "language/alphabet not supported"},
    ErrorText{59, "unexpected data value"},
    ErrorText{60, "system failure"},
    ErrorText{61, "data missing"},
    ErrorText{62, "call barred"},
    ErrorText{63, "message waiting indication subscription failure"},
    ErrorText{100, "unknown"},
    ErrorText{103, "Illegal MS"},
    ErrorText{106, "Illegal ME"},
    ErrorText{107, "GPRS services not allowed"},
    ErrorText{111, "PLMN not allowed"},
    ErrorText{112, "Location area not allowed"},
    ErrorText{113, "Roaming not allowed in this location area"},
    ErrorText{132, "service option not supported"},
    ErrorText{133, "requested service option not subscribed"},
    ErrorText{134, "service option temporarily out of order"},
    ErrorText{148, "unspecified GPRS error"},
    ErrorText{149, "PDP authentication failure"},
    ErrorText{150, "invalid mobile class"},
};
// clang-format on

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

unsigned cmsParameterCode(const Settings &settings) {
    return settings.textMode ? CMS_INVALID_TEXT_PARAMETER : CMS_INVALID_PDU_PARAMETER;
}

std::string informationText(const Settings &settings, std::string_view information) {
    const std::string lineEnd{settings.terminator(), settings.lineFeed()};
    std::string text = settings.verbose ? lineEnd : std::string();
    for (std::size_t i = 0; i < information.size(); i++) {
        if (information.substr(i).starts_with(LITERAL_LINE_FEED)) {
            text += information[++i];
        } else if (information[i] == '\n') {
            text += lineEnd;
        } else {
            text += information[i];
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

std::string unsolicitedText(const Settings &settings, std::string_view text) {
    if (settings.quiet) { return {}; }
    if (!settings.verbose && text == "RING") { return std::string("2") + settings.terminator(); }
    std::string framed = informationText(settings, text);
    if (!settings.verbose) { framed.pop_back(); } // short results end without S4
    return framed;
}

} // namespace smspb::simmodem
