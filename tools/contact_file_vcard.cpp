// vCard 3.0, RFC 2426.
#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "tools/contact_file.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t LINE_OCTETS_MAX = 75; // RFC 2426, 2.6

// A line put together from those it was folded into.
struct Line {
    std::size_t number = 0;
    std::string text;
};

std::vector<Line> unfolded(std::string_view text) {
    std::vector<Line> lines;
    for (std::size_t number = 1; !text.empty(); number++) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r')) { line.remove_suffix(1); }
        if (!lines.empty() && (line.starts_with(' ') || line.starts_with('\t'))) {
            lines.back().text += line.substr(1);
        } else {
            lines.push_back({number, std::string(line)});
        }
    }
    return lines;
}

// [group.]name[;parameters]:value
struct Property {
    std::string name;
    std::vector<std::string> parameters;
    std::string value;
};

// The end of what a quoted parameter may hide: the next of `ends` outside quotes.
std::size_t findUnquoted(std::string_view text, std::string_view ends, std::size_t at) {
    for (bool quoted = false; at < text.size(); at++) {
        if (text[at] == '"') { quoted = !quoted; }
        if (!quoted && ends.find(text[at]) != ends.npos) { return at; }
    }
    return text.npos;
}

std::optional<Property> propertyOf(std::string_view line) {
    const std::size_t colon = findUnquoted(line, ":", 0);
    if (colon == line.npos) { return std::nullopt; }
    Property property;
    property.value = line.substr(colon + 1);
    const std::string_view front = line.substr(0, colon);
    std::size_t end = std::min(front.find(';'), front.size());
    const std::string_view name = front.substr(0, end);
    property.name = name.substr(name.rfind('.') + 1); // npos + 1 is 0
    while (end < front.size()) {
        const std::size_t next = std::min(findUnquoted(front, ";", end + 1), front.size());
        property.parameters.emplace_back(front.substr(end + 1, next - end - 1));
        end = next;
    }
    return property;
}

// The value of a parameter; version 2.1 writes encodings without their name too.
bool hasParameter(const Property &property, std::string_view name, std::string_view value) {
    return std::any_of(property.parameters.begin(), property.parameters.end(),
                       [&](std::string_view parameter) {
                           const std::size_t equals = parameter.find('=');
                           if (equals == parameter.npos) {
                               return equalIgnoringCase(parameter, value);
                           }
                           return equalIgnoringCase(parameter.substr(0, equals), name) &&
                                  equalIgnoringCase(parameter.substr(equals + 1), value);
                       });
}

// A character set that is named and is not UTF-8; empty when there is none.
std::string otherCharset(const Property &property) {
    static constexpr std::string_view KEY = "CHARSET=";
    for (const std::string_view parameter : property.parameters) {
        if (!equalIgnoringCase(parameter.substr(0, KEY.size()), KEY)) { continue; }
        const std::string_view charset = parameter.substr(KEY.size());
        const bool isKnown =
            equalIgnoringCase(charset, "UTF-8") || equalIgnoringCase(charset, "US-ASCII");
        if (!isKnown) { return std::string(charset); }
    }
    return "";
}

// RFC 2426, 4: "\n" or "\N" is a line end; "\,", "\;" and "\\" are the character.
std::string unescaped(std::string_view value) {
    std::string text;
    for (std::size_t i = 0; i < value.size(); i++) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            text += value[i];
            continue;
        }
        const char escaped = value[++i];
        text += escaped == 'n' || escaped == 'N' ? '\n' : escaped;
    }
    return text;
}

std::string escaped(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); i++) {
        if (text.substr(i, 2) == "\r\n") { continue; }
        const char c = text[i];
        if (c == '\n' || c == '\r') {
            value += "\\n";
            continue;
        }
        if (c == '\\' || c == ',' || c == ';') { value += '\\'; }
        value += c;
    }
    return value;
}

// The components between unescaped semicolons.
std::vector<std::string> componentsOf(std::string_view value) {
    std::vector<std::string> components;
    std::size_t start = 0;
    for (std::size_t i = 0; i < value.size(); i++) {
        if (value[i] == '\\') {
            i++;
        } else if (value[i] == ';') {
            components.push_back(unescaped(value.substr(start, i - start)));
            start = i + 1;
        }
    }
    components.push_back(unescaped(value.substr(start)));
    return components;
}

// From family, given and additional names.
std::string nameFrom(const std::vector<std::string> &components) {
    static constexpr std::size_t SPOKEN_ORDER[] = {1, 2, 0};
    std::string name;
    for (const std::size_t i : SPOKEN_ORDER) {
        if (i >= components.size() || components[i].empty()) { continue; }
        name += (name.empty() ? "" : " ") + components[i];
    }
    return name;
}

// "tel:+49-170-1234567;ext=5", as version 4.0 may write a number.
std::string numberFrom(const std::string &value) {
    static constexpr std::string_view SCHEME = "tel:";
    const std::string_view text = value;
    if (!equalIgnoringCase(text.substr(0, SCHEME.size()), SCHEME)) { return unescaped(value); }
    return value.substr(SCHEME.size(), value.find(';') - SCHEME.size());
}

// A card while its lines are read.
struct Card {
    std::size_t line = 0; // of its BEGIN
    std::string formattedName, structuredName, organisation;
    std::vector<FileEntry> numbers;
    std::optional<FileProblem> problem; // the first one

    void refuse(std::size_t at, const std::string &why) {
        if (!problem) { problem = FileProblem{at, why}; }
    }

    std::string name() const {
        if (!formattedName.empty()) { return formattedName; }
        return structuredName.empty() ? organisation : structuredName;
    }
};

void takeValue(Card &card, const Property &property, std::size_t line) {
    if (equalIgnoringCase(property.name, "FN")) {
        card.formattedName = unescaped(property.value);
    } else if (equalIgnoringCase(property.name, "N")) {
        card.structuredName = nameFrom(componentsOf(property.value));
    } else if (equalIgnoringCase(property.name, "ORG")) {
        card.organisation = componentsOf(property.value).front();
    } else if (equalIgnoringCase(property.name, "TEL")) {
        const std::string number = numberFrom(property.value);
        if (!number.empty()) { card.numbers.push_back({line, "", number}); }
    }
}

bool isRead(const Property &property) {
    static constexpr std::string_view READ[] = {"FN", "N", "ORG", "TEL"};
    return std::any_of(std::begin(READ), std::end(READ), [&property](std::string_view name) {
        return equalIgnoringCase(property.name, name);
    });
}

void takeLine(Card &card, const Line &line) {
    if (line.text.empty()) { return; }
    const auto property = propertyOf(line.text);
    if (!property) { return card.refuse(line.number, "it has no \":\""); }
    // Its lines are folded in another way, so what follows cannot be told apart.
    if (hasParameter(*property, "ENCODING", "QUOTED-PRINTABLE")) {
        return card.refuse(line.number, "QUOTED-PRINTABLE (of vCard 2.1) is not read; export the "
                                        "contacts as vCard 3.0");
    }
    if (!isRead(*property)) { return; }
    if (const std::string problem = utf8Problem(line.text); !problem.empty()) {
        return card.refuse(line.number, problem);
    }
    if (const std::string charset = otherCharset(*property); !charset.empty()) {
        return card.refuse(line.number, fmt::format("CHARSET={} is not read; UTF-8 is", charset));
    }
    if (hasParameter(*property, "ENCODING", "B") || hasParameter(*property, "ENCODING", "BASE64")) {
        return card.refuse(line.number, fmt::format("{} in BASE64 is not read", property->name));
    }
    takeValue(card, *property, line.number);
}

void finish(Card card, ContactFile &file) {
    const std::string name = card.name();
    if (!card.problem && card.numbers.empty()) {
        card.refuse(card.line, fmt::format("\"{}\" has no number (TEL)", name));
    }
    if (card.problem) {
        file.problems.push_back(*card.problem);
        return;
    }
    for (FileEntry &number : card.numbers) {
        number.name = name;
        file.entries.push_back(std::move(number));
    }
}

void finishOpen(std::optional<Card> &card, ContactFile &file) {
    if (!card) { return; }
    card->refuse(card->line, "the card that begins here has no END:VCARD");
    finish(*std::exchange(card, std::nullopt), file);
}

void appendFolded(std::string &text, std::string_view line) {
    std::size_t room = LINE_OCTETS_MAX;
    while (line.size() > room) {
        std::size_t cut = room;
        // Not within a character.
        while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) { cut--; }
        text.append(line.substr(0, cut)).append("\r\n ");
        line.remove_prefix(cut);
        room = LINE_OCTETS_MAX - 1;
    }
    text.append(line).append("\r\n");
}

} // namespace

ContactFile parseVcards(std::string_view text) {
    ContactFile file;
    std::optional<Card> card;
    bool isLost = false; // between cards, the first line of what is none is told
    for (const Line &line : unfolded(withoutByteOrderMark(text))) {
        const std::string_view word =
            std::string_view(line.text).substr(0, line.text.find_last_not_of(" \t") + 1);
        if (equalIgnoringCase(word, "BEGIN:VCARD")) {
            finishOpen(card, file);
            card = Card{line.number, "", "", "", {}, std::nullopt};
            isLost = false;
        } else if (card && equalIgnoringCase(word, "END:VCARD")) {
            finish(*std::exchange(card, std::nullopt), file);
        } else if (card) {
            takeLine(*card, line);
        } else if (!word.empty() && !std::exchange(isLost, true)) {
            file.problems.push_back({line.number, "a card begins with BEGIN:VCARD"});
        }
    }
    finishOpen(card, file);
    return file;
}

std::string formatVcards(const std::vector<Contact> &contacts) {
    std::string text;
    for (const Contact &contact : contacts) {
        const std::string name = escaped(contact.name);
        text += "BEGIN:VCARD\r\nVERSION:3.0\r\n";
        appendFolded(text, "N:" + name + ";;;;");
        appendFolded(text, "FN:" + name);
        if (!contact.number.empty()) { appendFolded(text, "TEL:" + contact.number); }
        text += "END:VCARD\r\n";
    }
    return text;
}

} // namespace smspb::cli
