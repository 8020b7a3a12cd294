#include "tools/contact.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/failure.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t NAME_SHOWN_MAX = 20; // characters of a name within a message

constexpr std::u32string_view SEPARATORS = U" \t-./()\u00A0\u2010\u2011\u2013\u202F";
constexpr std::u32string_view DIALLED = U"0123456789*#pw";

// Fit for a message.
std::string shortened(std::string_view text) {
    const std::string shown = printable(text, LineEnds::MARKED);
    const std::u32string characters = toCharacters(shown);
    if (characters.size() <= NAME_SHOWN_MAX) { return shown; }
    return toUtf8(characters.substr(0, NAME_SHOWN_MAX)) + "…";
}

[[noreturn]] void refuseNumber(std::string_view text, const std::string &why) {
    throw Failure(Exit::USAGE, fmt::format("number \"{}\": {}", shortened(text), why),
                  "a number is digits, * and #, with + first if international; p or , pauses, w "
                  "or ; waits");
}

char32_t asDialled(char32_t c) {
    if (c == U',' || c == U'P') { return U'p'; }
    if (c == U';' || c == U'W') { return U'w'; }
    return c;
}

[[noreturn]] void refuseLength(const std::string &what, const std::string &length,
                               const ContactLimits &limits, std::size_t most) {
    throw Failure(Exit::USAGE,
                  fmt::format("{} has {}; {} takes {}", what, length, limits.where, most),
                  "shorten it");
}

} // namespace

std::string toContactNumber(std::string_view text) {
    if (findInvalidUtf8(text)) { refuseNumber(text, "it is not UTF-8"); }
    const std::u32string characters = toCharacters(text);
    std::string number;
    for (std::size_t i = 0; i < characters.size(); i++) {
        const char32_t c = asDialled(characters[i]);
        if (SEPARATORS.find(c) != SEPARATORS.npos) { continue; }
        const bool isPlus = c == U'+' && number.empty();
        if (!isPlus && DIALLED.find(c) == DIALLED.npos) {
            refuseNumber(text, fmt::format("character {} is {}", i + 1,
                                           isDangerous(c) ? codePointName(c)
                                                          : "\"" + toUtf8({&c, 1}) + "\""));
        }
        number += static_cast<char>(c);
    }
    if (number.find_first_of("0123456789*#") == number.npos) {
        refuseNumber(text, "it has no digits");
    }
    return number;
}

void checkName(std::string_view name) {
    if (const auto bad = findInvalidUtf8(name)) {
        throw Failure(Exit::USAGE,
                      fmt::format("name \"{}\" is not UTF-8: octet {} is 0x{:02X}", shortened(name),
                                  *bad + 1, static_cast<unsigned char>(name[*bad])),
                      "convert it: iconv -f ISO-8859-1 -t UTF-8");
    }
    const std::u32string characters = toCharacters(name);
    const auto control = std::find_if(characters.begin(), characters.end(),
                                      [](char32_t c) { return c < 0x20 || c == 0x7F; });
    if (control == characters.end()) { return; }
    throw Failure(Exit::USAGE,
                  fmt::format("name \"{}\" holds {} at character {}", shortened(name),
                              codePointName(*control), control - characters.begin() + 1),
                  "a name is one line of text");
}

void checkFits(const Contact &contact, const ContactLimits &limits) {
    const std::u32string characters = toCharacters(contact.name);
    const std::size_t units = toUnits(characters).size();
    if (units > limits.nameUnits) {
        refuseLength(nameFor(contact),
                     counted(units, "character") +
                         (units != characters.size() ? " (an emoji counts as two)" : ""),
                     limits, limits.nameUnits);
    }
    if (contact.number.size() > limits.numberCharacters) {
        refuseLength((contact.name.empty() ? "number " : nameFor(contact) + ": number ") +
                         contact.number,
                     counted(contact.number.size(), "character"), limits, limits.numberCharacters);
    }
}

bool isSame(const Contact &one, const Contact &other) {
    return one.name == other.name &&
           std::equal(one.number.begin(), one.number.end(), other.number.begin(),
                      other.number.end(), [](char a, char b) {
                          return asDialled(static_cast<char32_t>(a)) ==
                                 asDialled(static_cast<char32_t>(b));
                      });
}

std::string nameFor(const Contact &contact) {
    return contact.name.empty() ? contact.number : "\"" + shortened(contact.name) + "\"";
}

} // namespace smspb::cli
