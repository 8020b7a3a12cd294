#include "tools/compose.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include <fmt/format.h>

#include "tools/failure.h"
#include "tools/malloced.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t NUMBER_CHARACTERS_MAX = SMS_NUMBER_UNITS - 1;
constexpr std::size_t SEGMENTS_MAX = 255; // TS 23.040, 9.2.3.24.1

// TS 23.040, 9.2.3.24.1: characters of a message alone, and of a segment behind its header.
struct Capacity {
    std::size_t alone, segment;
};
constexpr Capacity GSM_CAPACITY = {160, 153}, UCS2_CAPACITY = {70, 67};

// Four octets a character, and room for a line end: what is longer cannot be sent anyway.
constexpr std::size_t TEXT_OCTETS_MAX = 4 * SEGMENTS_MAX * GSM_CAPACITY.segment + 2;

[[noreturn]] void misuse(const std::string &what, const std::string &hint) {
    throw Failure(Exit::USAGE, what, hint);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The number without what people write between digits; empty when that does not mend it.
std::string mended(const std::string &text) {
    static constexpr std::string_view SEPARATORS = " -/.()";
    std::string number;
    std::copy_if(text.begin(), text.end(), std::back_inserter(number),
                 [](char c) { return SEPARATORS.find(c) == SEPARATORS.npos; });
    const std::size_t first = number.starts_with('+') ? 1 : 0;
    const auto begin = number.begin() + static_cast<std::ptrdiff_t>(first);
    const bool good = number.size() > first && number.size() <= NUMBER_CHARACTERS_MAX &&
                      std::all_of(begin, number.end(), isDigit);
    return good ? number : "";
}

std::string nameOf(char32_t character) {
    if (character == ' ') { return "a blank"; }
    return "\"" + toUtf8(std::u32string(1, character)) + "\"";
}

[[noreturn]] void refuseNumber(const std::string &text, std::string_view name,
                               const std::string &why) {
    static constexpr const char *RULE = "an optional + and then digits, at most 20 characters";
    const std::string better = mended(text);
    misuse(fmt::format("{} \"{}\": {}", name, text, why),
           better.empty() ? fmt::format("write it as {}", RULE)
                          : fmt::format("write {}: {}", better, RULE));
}

std::string readInput() {
    std::string text;
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) { continue; }
        if (count < 0) {
            throw Failure(Exit::UNEXPECTED,
                          fmt::format("cannot read standard input: {}", std::strerror(errno)));
        }
        if (count == 0) { break; }
        text.append(chunk.data(), static_cast<std::size_t>(count));
        if (text.size() > TEXT_OCTETS_MAX) {
            misuse("standard input is too long for a message",
                   fmt::format("at most {} characters, or {} in UCS-2",
                               SEGMENTS_MAX * GSM_CAPACITY.segment,
                               SEGMENTS_MAX * UCS2_CAPACITY.segment));
        }
    }
    static constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
    if (text.starts_with(BYTE_ORDER_MARK)) { text.erase(0, BYTE_ORDER_MARK.size()); }
    if (text.ends_with('\n')) { text.pop_back(); }
    if (text.ends_with('\r')) { text.pop_back(); }
    if (text.empty()) { misuse("standard input is empty", "write the text to it"); }
    return text;
}

// What to write for a character that has no septet. Those of the extension table are here because a
// message that holds one goes as UCS-2.
struct Hint {
    std::u32string_view characters;
    std::string_view text;
};
constexpr Hint HINTS[] = {
    {                   U"€",     "EUR"},
    {                    U"[{",       "("},
    {                    U"]}",       ")"},
    {                   U"|\\",       "/"},
    {U"`‘’‚‛′‹›",       "'"},
    {   U"“”„‟″«»",      "\""},
    {      U"~–—‐‑−",       "-"},
    {                   U"…",     "..."},
    {                   U"•",       "*"},
    {                    U"·",       "."},
    {                    U"×",       "x"},
    {                    U"°", "degrees"},
    {                    U"©",     "(c)"},
    {                    U"®",     "(R)"},
    {                   U"™",    "(TM)"},
    {                    U"½",     "1/2"},
    {                    U"²",       "2"},
    {                    U"³",       "3"},
    {              U"ÀÁÂÃ",       "A"},
    {          U"áâãāăą",       "a"},
    {                U"Çćč",       "c"},
    {                U"ÈÊË",       "E"},
    {            U"êëēęě",       "e"},
    {                U"íîï",       "i"},
    {                    U"ł",       "l"},
    {                    U"ń",       "n"},
    {              U"óôõő",       "o"},
    {                  U"śš",       "s"},
    {                U"úûű",       "u"},
    {                U"źżž",       "z"},
    {        U"\t\u2009\u202F", "a blank"},
};

std::string_view hintFor(char32_t c) {
    for (const Hint &hint : HINTS) {
        if (hint.characters.find(c) != hint.characters.npos) { return hint.text; }
    }
    return "";
}

bool needsUcs2(char32_t c) { return c > 0xFFFF || sms_IsUnicode(static_cast<u16>(c)) != 0; }

std::vector<Forcing> forcingCharacters(std::u32string_view text) {
    std::vector<Forcing> found;
    for (std::size_t i = 0; i < text.size(); i++) {
        if (!needsUcs2(text[i])) { continue; }
        const auto known = std::find_if(found.begin(), found.end(), [&](const Forcing &forcing) {
            return forcing.character == text[i];
        });
        if (known != found.end()) {
            known->count++;
        } else {
            found.push_back({text[i], i + 1, 1, hintFor(text[i])});
        }
    }
    return found;
}

std::vector<std::size_t> split(std::size_t units, Capacity capacity) {
    if (units <= capacity.alone) { return {units}; }
    std::vector<std::size_t> sizes(units / capacity.segment, capacity.segment);
    if (units % capacity.segment != 0) { sizes.push_back(units % capacity.segment); }
    return sizes;
}

// In GSM 7-bit a no-break space goes out as the escape septet, which would join with the character
// behind it.
std::size_t replaceNoBreakSpaces(std::u32string &text) {
    const auto count = std::count(text.begin(), text.end(), U'\u00A0');
    std::replace(text.begin(), text.end(), U'\u00A0', U' ');
    return static_cast<std::size_t>(count);
}

// Puts the reference into a segment's concatenation header: 05 00 03, reference, total, number.
// Before it stand, as hexadecimal: no service centre, first octet, message reference, the
// destination (length, type, digits), protocol, coding, user data length.
void setReference(SmsSegment &segment, const Number &number, u8 reference) {
    static constexpr std::string_view HEADER = "050003";
    const std::size_t digits = number.text.size() - (number.text.starts_with('+') ? 1 : 0);
    const std::size_t before = 2 * (1 + 2 + 2 + (digits + 1) / 2 + 3);
    std::string pdu = segment.pdu;
    if (pdu.compare(before, HEADER.size(), HEADER) != 0) { return; }
    pdu.replace(before + HEADER.size(), 2, fmt::format("{:02X}", reference));
    pdu.copy(segment.pdu, pdu.size());
}

std::vector<SmsSegment> encode(const Number &number, std::u16string &units, bool reportRequested) {
    std::vector<u16> text(units.begin(), units.end());
    text.push_back(0);
    SmsMessage request = {};
    std::memcpy(request.peer_number, number.units, sizeof(request.peer_number));
    request.text = text.data();
    request.status_report = reportRequested ? 1 : 0;
    SmsSegment *block = nullptr;
    u8 count = 0;
    if (sms_encode_pdu(&request, &block, &count) != 0) { throw std::bad_alloc(); }
    const Malloced<SmsSegment> owner(block); // cppcheck-suppress unreadVariable ; it frees
    return {block, block + count};
}

} // namespace

Number parseNumber(const std::string &text, std::string_view name) {
    if (const auto bad = findInvalidUtf8(text)) {
        misuse(fmt::format("{} is not UTF-8: octet {} is 0x{:02X}", name, *bad + 1,
                           static_cast<unsigned char>(text[*bad])),
               "only an optional + and digits belong there");
    }
    const std::u32string characters = toCharacters(text);
    const std::size_t first = characters.starts_with(U'+') ? 1 : 0;
    if (characters.size() == first) { refuseNumber(text, name, "it has no digits"); }
    for (std::size_t i = first; i < characters.size(); i++) {
        if (characters[i] >= U'0' && characters[i] <= U'9') { continue; }
        refuseNumber(text, name, fmt::format("character {} is {}", i + 1, nameOf(characters[i])));
    }
    if (characters.size() > NUMBER_CHARACTERS_MAX) {
        refuseNumber(text, name, fmt::format("it has {} characters", characters.size()));
    }
    Number number{text, {}};
    std::copy(text.begin(), text.end(), number.units);
    return number;
}

std::u32string readText(const std::string &argument) {
    const std::string text = argument == "-" ? readInput() : argument;
    if (const auto bad = findInvalidUtf8(text)) {
        misuse(fmt::format("TEXT is not UTF-8: octet {} is 0x{:02X}", *bad + 1,
                           static_cast<unsigned char>(text[*bad])),
               "convert it: iconv -f ISO-8859-1 -t UTF-8");
    }
    std::u32string characters = toCharacters(text);
    if (const std::size_t zero = characters.find(U'\0'); zero != characters.npos) {
        misuse(fmt::format("TEXT holds U+0000 at character {}, which ends a text", zero + 1),
               "take it out");
    }
    return characters;
}

Plan compose(const Number &number, std::u32string text, bool reportRequested, u8 reference) {
    Plan plan;
    plan.forcing = forcingCharacters(text);
    plan.isUcs2 = !plan.forcing.empty();
    if (!plan.isUcs2) { plan.blanksReplaced = replaceNoBreakSpaces(text); }
    plan.characters = text.size();
    std::u16string units = toUnits(text);
    plan.units = units.size();
    plan.segmentsAsGsm = split(plan.characters, GSM_CAPACITY).size();
    const Capacity capacity = plan.isUcs2 ? UCS2_CAPACITY : GSM_CAPACITY;
    plan.segmentUnits = split(plan.units, capacity);
    if (plan.segmentUnits.size() > SEGMENTS_MAX) {
        misuse(fmt::format("the text needs {} segments; a message has at most {}",
                           plan.segmentUnits.size(), SEGMENTS_MAX),
               fmt::format("cut it to {} characters, it has {}{}", SEGMENTS_MAX * capacity.segment,
                           plan.units, plan.isUcs2 ? " in UCS-2" : ""));
    }
    plan.segments = encode(number, units, reportRequested);
    if (plan.segments.size() > 1) {
        for (SmsSegment &segment : plan.segments) { setReference(segment, number, reference); }
    }
    return plan;
}

u8 drawReference() { return static_cast<u8>(std::random_device()() & 0xFF); }

std::string segmentSizes(const Plan &plan) {
    static constexpr std::size_t LISTED = 4;
    const std::size_t count = plan.segmentUnits.size();
    if (count == 1) { return ""; }
    if (count > LISTED && plan.segmentUnits.back() == plan.segmentUnits.front()) {
        return fmt::format(" (of {})", plan.segmentUnits.front());
    }
    if (count > LISTED) {
        return fmt::format(" ({} of {} and one of {})", count - 1, plan.segmentUnits.front(),
                           plan.segmentUnits.back());
    }
    return fmt::format(" ({})", fmt::join(plan.segmentUnits, " + "));
}

Fields fieldsOf(const Plan &plan) {
    static constexpr std::size_t NAMED = 5; // forcing characters
    Fields fields;
    fields.add("coding", plan.isUcs2 ? "UCS-2" : "GSM 7-bit");
    fields.add("characters",
               plan.units == plan.characters
                   ? std::to_string(plan.characters)
                   : fmt::format("{} ({} 16-bit units)", plan.characters, plan.units));
    fields.add("segments", std::to_string(plan.segmentUnits.size()) + segmentSizes(plan));
    for (std::size_t i = 0; i < std::min(plan.forcing.size(), NAMED); i++) {
        const Forcing &forcing = plan.forcing[i];
        const std::string times = forcing.count > 1 ? fmt::format(", {} times", forcing.count) : "";
        const std::string instead =
            forcing.hint.empty() ? "" : fmt::format("; write {} instead", forcing.hint);
        fields.add(i == 0 ? "why UCS-2" : "",
                   fmt::format("{} {} at character {}{}{}",
                               toUtf8(std::u32string(1, forcing.character)),
                               codePointName(forcing.character), forcing.position, times, instead));
    }
    if (plan.forcing.size() > NAMED) {
        fields.add("", fmt::format("and {} more", plan.forcing.size() - NAMED));
    }
    if (plan.isUcs2 && plan.segmentsAsGsm < plan.segmentUnits.size()) {
        fields.add("without them", counted(plan.segmentsAsGsm, "segment") + " of GSM 7-bit");
    }
    if (plan.blanksReplaced != 0) {
        fields.add("note", counted(plan.blanksReplaced, "no-break space") + " sent as blank");
    }
    return fields;
}

Json toJson(const Plan &plan) {
    Json json;
    json["coding"] = plan.isUcs2 ? "UCS-2" : "GSM 7-bit";
    json["characters"] = plan.characters;
    json["units"] = plan.units;
    json["segments"] = plan.segmentUnits.size();
    json["segment_units"] = plan.segmentUnits;
    json["forced_by"] = Json::array();
    for (const Forcing &forcing : plan.forcing) {
        json["forced_by"].push_back({
            { "character",          toUtf8(std::u32string(1, forcing.character))},
            {"code_point", codePointName(forcing.character)                    },
            {  "position",                 forcing.position                    },
            {     "count",                    forcing.count                    }
        });
        if (!forcing.hint.empty()) { json["forced_by"].back()["instead"] = forcing.hint; }
    }
    if (plan.isUcs2) { json["segments_as_gsm"] = plan.segmentsAsGsm; }
    if (plan.blanksReplaced != 0) { json["blanks_replaced"] = plan.blanksReplaced; }
    return json;
}

} // namespace smspb::cli
