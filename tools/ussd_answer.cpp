#include "tools/ussd_answer.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "atlib/SmsUtils.h"
#include "tools/cbs_coding.h"
#include "tools/received.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::string_view KEY = "+CUSD:";
constexpr std::string_view BLANKS = " \r\n";
constexpr u32 DEFAULT_ALPHABET = 15; // TS 23.038, 5, and what an answer without a coding means
constexpr u8 CARRIAGE_RETURN = 0x0D;

using Octets = std::vector<u8>;

std::optional<u32> takeNumber(std::string_view &text) {
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    u32 number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) { return std::nullopt; }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

// <m>[,"<string>"[,<dcs>]]. The string may hold quotes, commas and line ends.
bool takeFields(std::string_view text, UssdAnswer &answer) {
    const auto status = takeNumber(text);
    if (!status) { return false; }
    answer.status = static_cast<UssdStatus>(*status);
    const std::size_t open = text.find('"'), close = text.rfind('"');
    if (open == text.npos || close == open) { return true; }
    answer.string = text.substr(open + 1, close - open - 1);
    text.remove_prefix(close + 1);
    text.remove_prefix(std::min(text.find_first_not_of(" ,"), text.size()));
    answer.dcs = takeNumber(text);
    return true;
}

bool isPrintable(u8 octet) {
    return (octet >= 0x20 && octet < 0x7F) || octet == '\r' || octet == '\n';
}

bool isLetter(char16_t unit) {
    static constexpr char16_t LATIN_1 = 0xA1, LATIN_1_END = 0x100;
    return (unit < 0x80 && isPrintable(static_cast<u8>(unit))) ||
           (unit >= LATIN_1 && unit < LATIN_1_END) || unit == 0x20AC;
}

// Every unit of a text in the default alphabet has one of a few high octets, so no other coding
// looks like it.
bool looksLikeUnits(const Octets &octets) {
    if (octets.size() % 2 != 0) { return false; }
    const std::u16string units = unitsFrom(octets);
    return std::all_of(units.begin(), units.end(), [](char16_t unit) {
        return unit == 0x20AC || (unit != 0 && sms_IsUnicode(unit) == 0) ||
               (unit < 0x80 && isPrintable(static_cast<u8>(unit)));
    });
}

// The septets without the padding of the last octet (6.1.2.3.1).
Octets packedSeptets(const Octets &octets) {
    Octets septets = unpackSeptets(octets);
    const bool mayBePadded = octets.size() % 7 == 0 && !septets.empty();
    if (mayBePadded && septets.back() == CARRIAGE_RETURN) { septets.pop_back(); }
    return septets;
}

// Whether the bits that are left over behind the last septet are clear, as packing leaves them.
bool hasClearRest(const Octets &octets) {
    const std::size_t rest = octets.size() * 8 % 7;
    return octets.empty() || octets.back() >> (8 - rest) == 0;
}

bool looksLikeSeptets(const Octets &octets) {
    const Octets septets = packedSeptets(octets);
    const std::u16string text = fromSeptets(septets);
    const bool endsOpen = !septets.empty() && septets.back() == GSM_ESCAPE;
    return hasClearRest(octets) && !endsOpen && std::all_of(text.begin(), text.end(), isLetter);
}

void readAs(UssdAnswer &answer, std::u16string_view text, std::string_view coding) {
    answer.text = toUtf8(text);
    answer.coding = coding;
}

void readAsItStands(UssdAnswer &answer) {
    // Its line ends are the modem's.
    for (const char c : *answer.string) {
        if (c == '\n' && answer.text.ends_with('\r')) { answer.text.pop_back(); }
        answer.text += c;
    }
    answer.coding = "text";
}

// Digits and the letters A to F under a 7-bit coding: packed septets by the standard, but modems
// also give the units or characters of their text, and a text may consist of digits alone.
void readHexSeptets(UssdAnswer &answer, const Octets &octets) {
    const std::string &string = *answer.string;
    const bool isNumber = string.find_first_not_of("0123456789") == std::string::npos;
    if (looksLikeUnits(octets)) { return readAs(answer, unitsFrom(octets), "UCS-2"); }
    if (isNumber) { return readAsItStands(answer); }
    if (looksLikeSeptets(octets)) {
        return readAs(answer, fromSeptets(packedSeptets(octets)), "GSM 7-bit");
    }
    if (std::all_of(octets.begin(), octets.end(), isPrintable)) {
        const std::u16string text(octets.begin(), octets.end());
        return readAs(answer, text, "8-bit characters");
    }
    if (!hasClearRest(octets)) { return readAsItStands(answer); }
    readAs(answer, fromSeptets(packedSeptets(octets)), "GSM 7-bit");
}

void readOctets(UssdAnswer &answer, const CbsCoding &coding, const Octets &octets) {
    CbsText content = cbsText(coding, octets);
    answer.coding = codingName(coding);
    answer.language = content.language;
    const bool isText = content.data.empty() ||
                        (!coding.isCompressed &&
                         std::all_of(content.data.begin(), content.data.end(), isPrintable));
    if (!isText) {
        answer.data = std::move(content.data);
        return;
    }
    if (!content.data.empty()) { content.text.assign(content.data.begin(), content.data.end()); }
    answer.text = toUtf8(content.text);
}

void readString(UssdAnswer &answer) {
    const CbsCoding coding =
        cbsCoding(static_cast<u8>(std::min<u32>(answer.dcs.value_or(DEFAULT_ALPHABET), 0xFF)));
    answer.language = coding.language;
    const auto octets = octetsFrom(*answer.string);
    if (!octets || octets->empty()) { return readAsItStands(answer); }
    const bool isPlainSeptets = coding.alphabet == Alphabet::SEPTETS && !coding.isCompressed &&
                                !coding.hasHeader && !coding.startsWithLanguage;
    if (isPlainSeptets) { return readHexSeptets(answer, *octets); }
    const bool isHalfUnit = coding.alphabet == Alphabet::UCS2 && octets->size() % 2 != 0;
    if (isHalfUnit) { return readAsItStands(answer); }
    readOctets(answer, coding, *octets);
}

} // namespace

std::optional<UssdAnswer> ussdAnswerFrom(std::string_view report) {
    const std::size_t start = report.find(KEY);
    if (start == report.npos) { return std::nullopt; }
    UssdAnswer answer;
    if (!takeFields(report.substr(start + KEY.size()), answer)) { return std::nullopt; }
    if (answer.string) { readString(answer); }
    return answer;
}

std::string_view statusWords(UssdStatus status) {
    switch (status) {
    case UssdStatus::DONE: return "";
    case UssdStatus::WAITS: return "waits for a reply";
    case UssdStatus::ENDED: return "ended by the network";
    case UssdStatus::TAKEN: return "answered by another client of the modem";
    case UssdStatus::NOT_SUPPORTED: return "not supported by the network";
    case UssdStatus::TIME_OUT: return "the network took too long";
    }
    return "unknown status";
}

std::string contentOf(const UssdAnswer &answer) {
    return answer.data.empty() ? answer.text : hexadecimal(answer.data);
}

Json toJson(const UssdAnswer &answer) {
    Json json;
    if (!answer.data.empty()) {
        json["data"] = hexadecimal(answer.data);
    } else if (answer.string) {
        json["text"] = answer.text;
    }
    json["status"] = static_cast<u32>(answer.status);
    if (answer.status != UssdStatus::DONE) { json["words"] = statusWords(answer.status); }
    if (answer.string) { json["string"] = *answer.string; }
    if (answer.dcs) { json["dcs"] = *answer.dcs; }
    if (!answer.coding.empty()) { json["coding"] = answer.coding; }
    if (!answer.language.empty()) { json["language"] = answer.language; }
    return json;
}

} // namespace smspb::cli
