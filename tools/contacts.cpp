// contacts list, show, find, add, edit, delete.
#include "tools/contacts.h"

#include <algorithm>
#include <cwctype>
#include <set>

#include <fmt/format.h>

#include "tools/progress.h"
#include "tools/stored.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

std::vector<u32> parseLocations(const std::string &text) {
    try {
        return parseIndexes(text);
    } catch (const Failure &) {
        throw Failure(Exit::USAGE, fmt::format("INDEX \"{}\" is not the index of a contact", text),
                      "give a number from 1, or several: 3 7 20-35");
    }
}

u32 singleLocation(const std::string &text) {
    const std::vector<u32> indexes = parseLocations(text);
    if (indexes.size() == 1) { return indexes.front(); }
    throw Failure(Exit::USAGE, fmt::format("INDEX \"{}\" names {} contacts", text, indexes.size()),
                  "give one");
}

Failure noContact(const Phonebook &phonebook, const std::string &indexes) {
    return {Exit::NO_MESSAGE,
            fmt::format("there is no contact {} in {}", indexes, phonebook.name()),
            "smspb contacts list shows which there are"};
}

Contact existing(Phonebook &phonebook, u32 index) {
    phonebook.checkIndex(index);
    if (auto contact = phonebook.read(index)) { return *std::move(contact); }
    throw noContact(phonebook, std::to_string(index));
}

Json located(const Phonebook &phonebook, const Contact &contact) {
    Json json = {
        {"storage", phonebook.name()}
    };
    json.update(toJson(contact));
    return json;
}

void showList(const Console &console, const Phonebook &phonebook,
              const std::vector<Contact> &contacts, const std::string &summary) {
    Table table{
        {"INDEX", "NAME", "NUMBER"},
        {        }
    };
    Json json = {
        { "storage",  phonebook.name()},
        {    "used",  phonebook.used()},
        {   "total", phonebook.total()},
        {"contacts",     Json::array()}
    };
    for (const Contact &contact : contacts) {
        table.rows.push_back({std::to_string(contact.index), contact.name, contact.number});
        json["contacts"].push_back(toJson(contact));
    }
    if (!contacts.empty()) { console.show(table); }
    console.say(fmt::format("{}{} in {}, {} of {} locations used", contacts.empty() ? "" : "\n",
                            summary, phonebook.name(), phonebook.used(), phonebook.total()));
    console.document(json);
}

std::string nameAndNumber(const Contact &contact) {
    return contact.name.empty() ? contact.number : nameFor(contact) + " " + contact.number;
}

std::u32string lowerCase(std::string_view text) {
    std::u32string characters = toCharacters(text);
    for (char32_t &c : characters) {
        c = static_cast<char32_t>(std::towlower(static_cast<wint_t>(c)));
    }
    return characters;
}

// Within the name, or within the number as the phonebook writes it.
class Search {
public:
    explicit Search(const std::string &text) : name_(lowerCase(text)) {
        try {
            number_ = toContactNumber(text);
        } catch (const Failure &) {} // a name
    }
    bool finds(const Contact &contact) const {
        return lowerCase(contact.name).find(name_) != std::u32string::npos ||
               (!number_.empty() && contact.number.find(number_) != std::string::npos);
    }

private:
    std::u32string name_;
    std::string number_;
};

u32 firstFree(const Console &console, Phonebook &phonebook) {
    if (phonebook.free() == 0) { throw noRoom(phonebook); }
    if (phonebook.used() == 0) { return 1; }
    Progress progress(console, "looking for a free location", phonebook.total());
    for (u32 index = 1; index <= phonebook.lastIndex(); index++) {
        progress.step(index);
        if (!phonebook.holds(index)) { return index; }
    }
    throw noRoom(phonebook);
}

// The location that is asked for, which has to be free, or the first free one.
u32 locationFor(const Console &console, Phonebook &phonebook, const ContactOptions &options) {
    if (options.indexes.empty()) { return firstFree(console, phonebook); }
    const u32 index = singleLocation(options.indexes.front());
    phonebook.checkIndex(index);
    if (!phonebook.holds(index)) { return index; }
    throw Failure(Exit::USAGE, fmt::format("location {} in {} is taken", index, phonebook.name()),
                  fmt::format("smspb contacts edit {} changes it; without --index the first free "
                              "location is taken",
                              index));
}

void eraseAll(const Console &console, Phonebook &phonebook, const std::vector<u32> &indexes) {
    Progress progress(console, "deleting contacts", indexes.size());
    for (std::size_t done = 0; done < indexes.size(); done += Phonebook::ERASED_MAX) {
        progress.step(done);
        const std::size_t count = std::min(indexes.size() - done, Phonebook::ERASED_MAX);
        try {
            phonebook.erase(std::span(indexes).subspan(done, count));
        } catch (Failure &failure) {
            failure.completed.insert(failure.completed.begin(), indexes.begin(),
                                     indexes.begin() + static_cast<std::ptrdiff_t>(done));
            if (!failure.completed.empty()) { failure.exit = Exit::IN_PART; }
            if (phonebook.isInterrupted()) {
                console.note(fmt::format("{} behind {} of {}", failure.what(), done,
                                         counted(indexes.size(), "location")));
            }
            throw;
        }
    }
}

} // namespace

Json toJson(const Contact &contact) {
    return {
        { "index",  contact.index},
        {  "name",   contact.name},
        {"number", contact.number}
    };
}

void noteUnread(const Console &console, const Phonebook &phonebook,
                const Phonebook::Entries &entries) {
    const std::size_t found = entries.contacts.size();
    if (found >= phonebook.used()) { return; }
    std::string why;
    if (!entries.unreadable.empty()) {
        why = fmt::format(": the modem's replies for {} make no sense",
                          indexRanges(entries.unreadable));
    } else if (phonebook.total() > phonebook.lastIndex()) {
        why = fmt::format(": only locations up to {} can be", phonebook.lastIndex());
    }
    console.note(fmt::format("{} of {} could not be read{}", phonebook.used() - found,
                             counted(phonebook.used(), "contact"), why));
}

Failure noRoom(const Phonebook &phonebook) {
    const std::string which =
        phonebook.total() > phonebook.lastIndex()
            ? fmt::format("no location up to {} is free", phonebook.lastIndex())
            : "";
    return {Exit::REFUSED,
            fmt::format("{} is full: {}", phonebook.name(),
                        which.empty() ? fmt::format("{} of {} locations are used", phonebook.used(),
                                                    phonebook.total())
                                      : which),
            "make room: smspb contacts list, then smspb contacts delete INDEX"};
}

void listContacts(const Console &console, const ContactOptions &options) {
    Phonebook phonebook(options.storage);
    const Phonebook::Entries entries = phonebook.readAll(console);
    noteUnread(console, phonebook, entries);
    showList(console, phonebook, entries.contacts, counted(entries.contacts.size(), "contact"));
}

void showContact(const Console &console, const ContactOptions &options) {
    const u32 index = singleLocation(options.indexes.front());
    Phonebook phonebook(options.storage);
    const Contact contact = existing(phonebook, index);
    Fields fields;
    fields.add("index", fmt::format("{} in {}", index, phonebook.name()));
    fields.add("name", contact.name);
    fields.add("number", contact.number);
    console.show(fields);
    console.document(located(phonebook, contact));
}

void findContacts(const Console &console, const ContactOptions &options) {
    if (options.text.empty() || findInvalidUtf8(options.text)) {
        throw Failure(Exit::USAGE, options.text.empty() ? "TEXT is empty" : "TEXT is not UTF-8",
                      "give a part of a name or of a number");
    }
    const Search search(options.text);
    Phonebook phonebook(options.storage);
    Phonebook::Entries entries = phonebook.readAll(console);
    noteUnread(console, phonebook, entries);
    std::erase_if(entries.contacts,
                  [&search](const Contact &contact) { return !search.finds(contact); });
    if (entries.contacts.empty()) {
        throw Failure(Exit::NO_MESSAGE,
                      fmt::format("no contact in {} has \"{}\" in its name or number",
                                  phonebook.name(), options.text),
                      "smspb contacts list shows all");
    }
    showList(console, phonebook, entries.contacts,
             fmt::format("{} found", counted(entries.contacts.size(), "contact")));
}

void addContact(const Console &console, const ContactOptions &options) {
    Contact contact{0, options.name.value_or(""), toContactNumber(options.number.value_or(""))};
    checkName(contact.name);
    Phonebook phonebook(options.storage);
    checkFits(contact, phonebook.limits());
    contact.index = locationFor(console, phonebook, options);
    phonebook.write(contact);
    console.say(fmt::format("added {} at {} in {}", nameAndNumber(contact), contact.index,
                            phonebook.name()));
    console.document(located(phonebook, contact));
}

void editContact(const Console &console, const ContactOptions &options) {
    const u32 index = singleLocation(options.indexes.front());
    if (!options.name && !options.number) {
        throw Failure(Exit::USAGE, "nothing to change is given", "give --name, --number or both");
    }
    const std::string number = options.number ? toContactNumber(*options.number) : "";
    if (options.name) { checkName(*options.name); }
    Phonebook phonebook(options.storage);
    Contact contact = existing(phonebook, index);
    // What stays is not judged again: the modem holds it.
    Contact changed{index, options.name.value_or(""), number};
    checkFits(changed, phonebook.limits());
    if (options.name) { contact.name = *options.name; }
    if (options.number) { contact.number = number; }
    phonebook.write(contact);
    console.say(
        fmt::format("changed {} in {}: {}", index, phonebook.name(), nameAndNumber(contact)));
    console.document(located(phonebook, contact));
}

void deleteContacts(const Console &console, const ContactOptions &options) {
    std::set<u32> wanted;
    for (const std::string &text : options.indexes) {
        const std::vector<u32> some = parseLocations(text);
        wanted.insert(some.begin(), some.end());
    }
    const std::vector<u32> indexes(wanted.begin(), wanted.end());
    Phonebook phonebook(options.storage);
    phonebook.checkIndex(indexes.front());
    phonebook.checkIndex(indexes.back());
    const u32 before = phonebook.used();
    eraseAll(console, phonebook, indexes);
    phonebook.measure();
    const u32 deleted = before - std::min(before, phonebook.used());
    if (deleted == 0) { throw noContact(phonebook, indexRanges(indexes)); }
    console.say(fmt::format("deleted {} from {}, {} of {} locations used",
                            counted(deleted, "contact"), phonebook.name(), phonebook.used(),
                            phonebook.total()));
    console.document({
        { "storage",  phonebook.name()},
        { "cleared",           indexes},
        {"contacts",           deleted},
        {    "used",  phonebook.used()},
        {   "total", phonebook.total()}
    });
}

} // namespace smspb::cli
