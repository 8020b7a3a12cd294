// The phonebook commands of TS 27.007, 8.11 to 8.14. Names follow +CSCS; numbers stand as they are.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <limits>

namespace smspb::simmodem {
namespace {

constexpr unsigned ANY = std::numeric_limits<unsigned>::max();
enum : unsigned { TYPE_MIN = 128, TYPE_MAX = 255 };

Reply readStorage(Modem &modem, const Command &command) {
    const Phonebook &book = modem.phonebook();
    return shown(command, inQuotes(book.name()) + "," + std::to_string(book.used()) + "," +
                              std::to_string(book.size()));
}

Reply setStorage(Modem &modem, const Command &command) {
    const auto name = stringAt(command, 0);
    const bool hasPassword = !isOmitted(command, 1); // no book asks for one
    for (std::size_t i = 0; i < modem.phonebooks.size() && !hasPassword; i++) {
        if (name == modem.phonebooks.at(i).name()) {
            modem.selectedPhonebook = i;
            return done();
        }
    }
    return badParameter();
}

Reply listStorages(Modem &modem, const Command &command) {
    std::string names;
    for (const Phonebook &book : modem.phonebooks) {
        names += (names.empty() ? "" : ",") + inQuotes(book.name());
    }
    return shown(command, "(" + names + ")");
}

std::string range(const Modem &modem) {
    const std::size_t size = modem.phonebooks.at(modem.selectedPhonebook).size();
    return "(1-" + std::to_string(size) + "),";
}

Reply readRanges(Modem &modem, const Command &command) {
    const PhonebookLimits &limits = modem.phonebookLimits;
    return shown(command, range(modem) + std::to_string(limits.numberMax) + "," +
                              std::to_string(limits.nameMax));
}

Reply writeRanges(Modem &modem, const Command &command) {
    const PhonebookLimits &limits = modem.phonebookLimits;
    return shown(command, range(modem) + std::to_string(limits.numberMax) + ",(129,145)," +
                              std::to_string(limits.nameMax));
}

std::string entryLine(const Modem &modem, std::string_view command, std::size_t index,
                      const Contact &contact) {
    return std::string(command) + ": " + std::to_string(index) + "," + inQuotes(contact.number) +
           "," + std::to_string(contact.type) + "," +
           inQuotes(toTerminal(modem.settings.charset, contact.name));
}

void addLine(std::string &lines, const std::string &line) {
    lines += (lines.empty() ? "" : "\n") + line;
}

// A place that is empty gives no line.
Reply readEntries(Modem &modem, const Command &command) {
    const Phonebook &book = modem.phonebook();
    const auto first = numberAt(command, 0, 0, ANY);
    const auto last = numberAt(command, 1, 0, ANY, first.value_or(0));
    if (!first || !last) { return badParameter(); }
    if (!book.hasPlace(*first) || !book.hasPlace(*last) || *last < *first) {
        return cmeError(CME_INVALID_INDEX);
    }
    std::string lines;
    for (std::size_t i = *first; i <= *last; i++) {
        const Contact *const contact = book.find(i);
        if (contact != nullptr) { addLine(lines, entryLine(modem, command.name, i, *contact)); }
    }
    return done(std::move(lines));
}

char16_t lowerCase(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
}

bool contains(std::u16string_view name, std::u16string_view part) {
    return std::search(name.begin(), name.end(), part.begin(), part.end(),
                       [](char16_t a, char16_t b) { return lowerCase(a) == lowerCase(b); }) !=
           name.end();
}

Reply findEntries(Modem &modem, const Command &command) {
    const auto text = stringAt(command, 0);
    const auto part = text ? fromTerminal(modem.settings.charset, *text) : std::nullopt;
    if (!part) { return badParameter(); }
    const Phonebook &book = modem.phonebook();
    std::string lines;
    for (std::size_t i = 1; i <= book.size(); i++) {
        const Contact *const contact = book.find(i);
        if (contact != nullptr && (part->empty() || contains(contact->name, *part))) {
            addLine(lines, entryLine(modem, command.name, i, *contact));
        }
    }
    return lines.empty() ? cmeError(CME_NOT_FOUND) : done(std::move(lines));
}

Reply findRanges(Modem &modem, const Command &command) {
    const PhonebookLimits &limits = modem.phonebookLimits;
    return shown(command, std::to_string(limits.numberMax) + "," + std::to_string(limits.nameMax));
}

// TS 22.101, A.20 in ASCII: what may be dialled, pauses and wild cards included.
bool isDialString(std::string_view number) {
    const std::string_view digits = number.substr(number.starts_with('+') ? 1 : 0);
    return digits.find_first_not_of("0123456789*#PWpw,?") == std::string_view::npos;
}

std::size_t digitCount(std::string_view number) {
    return number.size() - (number.starts_with('+') ? 1 : 0);
}

Reply putEntry(Modem &modem, std::size_t index, const Command &command) {
    const std::string number = stringAt(command, 1).value_or("");
    const auto type = numberAt(command, 2, TYPE_MIN, TYPE_MAX, typeOfNumber(number));
    const bool strings = (isOmitted(command, 1) || command.arguments[1].isString) &&
                         (isOmitted(command, 3) || command.arguments[3].isString);
    if (!type || !strings) { return badParameter(); }
    const auto name = fromTerminal(modem.settings.charset, stringAt(command, 3).value_or(""));
    if (!name) { return cmeError(CME_INVALID_CHARACTERS_IN_TEXT); }
    if (!isDialString(number)) { return cmeError(CME_INVALID_CHARACTERS_IN_NUMBER); }
    if (digitCount(number) > modem.phonebookLimits.numberMax) {
        return cmeError(CME_NUMBER_TOO_LONG);
    }
    if (name->size() > modem.phonebookLimits.nameMax) { return cmeError(CME_TEXT_TOO_LONG); }
    modem.phonebook().put(index, Contact{number, *type, *name});
    return done();
}

// The index alone empties the place; without an index the first empty one is taken.
Reply writeEntry(Modem &modem, const Command &command) {
    Phonebook &book = modem.phonebook();
    if (!book.isWritable()) { return cmeError(CME_NOT_ALLOWED); }
    if (isOmitted(command, 0) && command.arguments.size() < 2) { return badParameter(); }
    const auto free = book.freePlace();
    if (isOmitted(command, 0) && !free) { return cmeError(CME_MEMORY_FULL); }
    const auto index = numberAt(command, 0, 0, ANY, static_cast<unsigned>(free.value_or(0)));
    if (!index) { return badParameter(); }
    if (!book.hasPlace(*index)) { return cmeError(CME_INVALID_INDEX); }
    if (command.arguments.size() > 1) { return putEntry(modem, *index, command); }
    book.put(*index, std::nullopt);
    return done();
}

// clang-format off
constexpr std::array PHONEBOOK_ROWS{
    CommandRow{.name = "+CPBS", .arguments = 2, .needsSim = true,
               .read = readStorage, .set = setStorage, .test = listStorages},
    CommandRow{.name = "+CPBR", .arguments = 2, .needsSim = true, .set = readEntries, .test = readRanges},
    CommandRow{.name = "+CPBF", .arguments = 1, .needsSim = true, .set = findEntries, .test = findRanges},
    CommandRow{.name = "+CPBW", .arguments = 4, .needsSim = true, .set = writeEntry, .test = writeRanges},
};
// clang-format on

} // namespace

std::span<const CommandRow> phonebookCommands() { return PHONEBOOK_ROWS; }

} // namespace smspb::simmodem
