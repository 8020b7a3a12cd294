#include "platform/simmodem/network/ussd.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/text.h"

#include <array>

namespace smspb::simmodem {
namespace {

constexpr unsigned USSD_GSM = 15;  // TS 23.038, 5: GSM alphabet, language unspecified
constexpr unsigned USSD_UCS2 = 72; // general coding, UCS-2
constexpr unsigned DELAY_MAX_MS = 600000;
constexpr unsigned CME_MAX = 1000;

constexpr std::array<std::string_view, 10> BUILT_IN{
    "*100#=text:Your balance is 12.34 EUR.",
    "*101#=ucs2:Ваш баланс 12,34 €",
    "*102#=packed:Your balance is 12.34 EUR.",
    R"(*103#=menu text:1 Balance\n2 Top up)",
    "*103#/1=text:Your balance is 12.34 EUR.",
    R"(*103#/2=menu text:Amount?)",
    "*103#/2/?=text:Topped up.",
    "*104#=delay=1000 text:Thank you for waiting.",
    "*105#=error:100",
    "*106#=status:2",
};

bool takeWord(std::string_view &text, std::string_view word) {
    if (!text.starts_with(word)) { return false; }
    text.remove_prefix(word.size());
    return true;
}

std::string takeDelay(std::string_view &text, UssdAnswer &answer) {
    if (!takeWord(text, "delay=")) { return {}; }
    const std::size_t end = text.find(' ');
    const auto delay = parseNumber(text.substr(0, end));
    if (!delay || *delay > DELAY_MAX_MS || end == std::string_view::npos) {
        return "delay= wants milliseconds, 600000 at most, and an answer behind a blank";
    }
    answer.delay = std::chrono::milliseconds(*delay);
    text.remove_prefix(end + 1);
    return {};
}

std::string takeNumber(std::string_view text, unsigned max, unsigned &number) {
    const auto value = parseNumber(text);
    if (!value || *value > max) {
        return "\"" + std::string(text) + "\" is no number up to " + std::to_string(max);
    }
    number = *value;
    return {};
}

std::string takeText(std::string_view text, UssdAnswer::Form form, UssdAnswer &answer) {
    const auto units = fromUtf8(withLineEnds(text));
    if (!units) { return "the text is no UTF-8"; }
    if (form != UssdAnswer::Form::ucs2 && !toSeptets(*units)) {
        return "the text has characters that the GSM alphabet lacks; ucs2: takes them";
    }
    answer.form = form;
    answer.text = *units;
    return {};
}

std::string parseAnswer(std::string_view text, UssdAnswer &answer) {
    using Form = UssdAnswer::Form;
    constexpr unsigned STATUS_MAX = 5;
    if (takeWord(text, "menu ")) { answer.status = static_cast<unsigned>(UssdStatus::waits); }
    if (auto wrong = takeDelay(text, answer); !wrong.empty()) { return wrong; }
    if (takeWord(text, "text:")) { return takeText(text, Form::text, answer); }
    if (takeWord(text, "packed:")) { return takeText(text, Form::packed, answer); }
    if (takeWord(text, "ucs2:")) { return takeText(text, Form::ucs2, answer); }
    if (takeWord(text, "status:")) {
        answer.form = Form::none;
        return takeNumber(text, STATUS_MAX, answer.status);
    }
    if (takeWord(text, "error:")) {
        answer.form = Form::error;
        return takeNumber(text, CME_MAX, answer.errorCode);
    }
    return "the answer is one of text:, packed:, ucs2:, status: and error:";
}

// The sevenths that are left over are filled with CR (TS 23.038, 6.1.2.3.1).
Octets packForUssd(const std::u16string &text) {
    Octets septets = toSeptets(text).value_or(Octets());
    if (septets.size() % 8 == 7) { septets.push_back('\r'); }
    return packSeptets(septets);
}

} // namespace

UssdScript::UssdScript() {
    for (const std::string_view answer : BUILT_IN) { add(answer); }
}

std::string UssdScript::add(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string_view::npos) {
        return "\"" + std::string(text) + "\" is no CODE=ANSWER, as *100#=text:Hello";
    }
    UssdAnswer answer;
    std::string wrong = parseAnswer(text.substr(equals + 1), answer);
    if (wrong.empty()) { answers_.insert_or_assign(std::string(text.substr(0, equals)), answer); }
    return wrong;
}

const UssdAnswer *UssdScript::find(const std::string &path) const {
    auto found = answers_.find(path);
    if (found == answers_.end() && path.find('/') != std::string::npos) {
        found = answers_.find(path.substr(0, path.rfind('/')) + "/?");
    }
    return found != answers_.end() ? &found->second : nullptr;
}

std::string ussdLine(const UssdAnswer &answer, std::string_view charset) {
    using Form = UssdAnswer::Form;
    std::string line = "+CUSD: " + std::to_string(answer.status);
    if (answer.form == Form::none) { return line; }
    unsigned dcs = USSD_GSM;
    std::string text;
    if (answer.form == Form::ucs2) {
        dcs = USSD_UCS2;
        text = toHex(toUcs2Octets(answer.text));
    } else if (answer.form == Form::packed) {
        text = toHex(packForUssd(answer.text));
    } else {
        text = toTerminal(charset, answer.text);
    }
    return line + "," + inQuotes(text) + "," + std::to_string(dcs);
}

} // namespace smspb::simmodem
