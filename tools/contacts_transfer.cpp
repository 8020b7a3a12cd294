// contacts export, import.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fmt/format.h>

#include "tools/contact_file.h"
#include "tools/contacts.h"
#include "tools/progress.h"
#include "tools/stored.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t FILE_OCTETS_MAX = 64u << 20; // photographs make cards large

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void failWriting(const std::string &name) {
    throw Failure(Exit::UNEXPECTED, fmt::format("cannot write {}: {}", name, std::strerror(errno)));
}

[[noreturn]] void failReading(const std::string &name) {
    throw Failure(Exit::USAGE, fmt::format("cannot read {}: {}", name, std::strerror(errno)),
                  "FILE is a vCard or CSV file; - is the standard input");
}

std::string readWhole(std::FILE *file, const std::string &name) {
    std::string text;
    char chunk[16384];
    for (std::size_t size = 0; (size = std::fread(chunk, 1, sizeof(chunk), file)) > 0;) {
        text.append(chunk, size);
        if (text.size() > FILE_OCTETS_MAX) {
            throw Failure(Exit::USAGE,
                          fmt::format("{} has more than {} MiB", name, FILE_OCTETS_MAX >> 20),
                          "a phonebook holds some hundred contacts; cut it");
        }
    }
    if (std::ferror(file) != 0) { failReading(name); }
    return text;
}

std::string readFile(const std::string &name) {
    if (name == "-") { return readWhole(stdin, "the standard input"); }
    const File file(std::fopen(name.c_str(), "rb"));
    if (!file) { failReading(name); }
    return readWhole(file.get(), name);
}

void writeFile(const std::string &name, const std::string &text) {
    File file(std::fopen(name.c_str(), "wb"));
    if (!file) { failWriting(name); }
    const bool isWhole = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    if (!isWhole || std::fclose(file.release()) != 0) { failWriting(name); }
}

// To a terminal what it may show, elsewhere every octet.
void writeOutput(const Console &console, const std::string &text) {
    if (console.json()) { return; }
    if (isatty(STDOUT_FILENO) != 0) {
        console.say(text.substr(0, text.find_last_not_of("\r\n") + 1));
    } else {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
}

// What cannot be imported, and why.
struct Refused {
    std::size_t line = 0;
    std::string reason;
    bool forLackOfRoom = false;
};

struct Planned {
    std::size_t line = 0;
    Contact contact;
};

struct ImportPlan {
    FileFormat format = FileFormat::VCARD;
    std::vector<Planned> contacts;
    std::vector<Refused> refused;
    std::size_t present = 0; // there already, or twice in the file
    std::size_t total() const { return contacts.size() + refused.size() + present; }
};

// A file of which nothing can be read at all is refused before the modem is asked.
ContactFile parseFile(const ContactFileOptions &options, FileFormat &format) {
    const std::string text = readFile(options.file);
    format = options.format.empty() ? formatOfContent(text) : formatNamed(options.format);
    ContactFile file = parseContacts(text, format);
    const std::size_t problems = file.problems.size();
    if (!file.entries.empty() || problems > 1) { return file; }
    throw Failure(Exit::USAGE,
                  problems == 0 ? fmt::format("{} holds no contact", options.file)
                                : fmt::format("{}, line {}: {}", options.file,
                                              file.problems[0].line, file.problems[0].text),
                  "a vCard file begins with BEGIN:VCARD, a CSV file with the columns' names: "
                  "name,number");
}

// Checks each entry by itself.
ImportPlan checked(const ContactFile &file, const ContactLimits &limits) {
    ImportPlan plan;
    for (const FileProblem &problem : file.problems) {
        plan.refused.push_back({problem.line, problem.text});
    }
    for (const FileEntry &entry : file.entries) {
        try {
            const Contact contact{0, entry.name, toContactNumber(entry.number)};
            checkName(contact.name);
            checkFits(contact, limits);
            plan.contacts.push_back({entry.line, contact});
        } catch (const Failure &failure) { plan.refused.push_back({entry.line, failure.what()}); }
    }
    return plan;
}

// Drops what is there already, or for the second time in the file.
void dropPresent(ImportPlan &plan, const std::vector<Contact> &existing) {
    std::vector<Planned> kept;
    for (Planned &planned : plan.contacts) {
        const auto isIt = [&planned](const Contact &other) {
            return isSame(planned.contact, other);
        };
        const bool isPresent = std::any_of(existing.begin(), existing.end(), isIt) ||
                               std::any_of(kept.begin(), kept.end(), [&isIt](const Planned &other) {
                                   return isIt(other.contact);
                               });
        if (isPresent) {
            plan.present++;
        } else {
            kept.push_back(std::move(planned));
        }
    }
    plan.contacts = std::move(kept);
}

std::vector<u32> freeLocations(const Phonebook &phonebook, const Phonebook::Entries &entries) {
    std::vector<bool> taken(phonebook.lastIndex() + 1, false);
    for (const Contact &contact : entries.contacts) { taken[contact.index] = true; }
    for (const u32 index : entries.unreadable) { taken[index] = true; }
    std::vector<u32> free;
    for (u32 index = 1; index <= phonebook.lastIndex(); index++) {
        if (!taken[index]) { free.push_back(index); }
    }
    // The modem may count entries that it does not show.
    free.resize(std::min<std::size_t>(free.size(), phonebook.free()));
    return free;
}

// Gives every contact its location; those without one are refused.
void place(ImportPlan &plan, const std::vector<u32> &free) {
    for (std::size_t i = 0; i < plan.contacts.size(); i++) {
        Planned &planned = plan.contacts[i];
        if (i < free.size()) {
            planned.contact.index = free[i];
        } else {
            plan.refused.push_back(
                {planned.line, nameFor(planned.contact) + " finds no free location", true});
        }
    }
    plan.contacts.resize(std::min(plan.contacts.size(), free.size()));
    std::stable_sort(plan.refused.begin(), plan.refused.end(),
                     [](const Refused &a, const Refused &b) { return a.line < b.line; });
}

std::size_t countWithoutRoom(const ImportPlan &plan) {
    return static_cast<std::size_t>(
        std::count_if(plan.refused.begin(), plan.refused.end(),
                      [](const Refused &refused) { return refused.forLackOfRoom; }));
}

Json toJson(const ImportPlan &plan, const Phonebook &phonebook, bool dryRun, std::size_t written) {
    Json json = {
        {      "storage",        phonebook.name()},
        {       "format", formatName(plan.format)},
        {      "dry_run",                  dryRun},
        {      "written",                 written},
        {     "contacts",           Json::array()},
        {"already_there",            plan.present},
        {      "refused",           Json::array()}
    };
    for (const Planned &planned : plan.contacts) {
        json["contacts"].push_back(cli::toJson(planned.contact));
    }
    for (const Refused &refused : plan.refused) {
        json["refused"].push_back({
            {  "line",   refused.line},
            {"reason", refused.reason}
        });
    }
    return json;
}

// Those without room are the last ones of the file; one line tells them all.
void noteRefused(const Console &console, const ImportPlan &plan) {
    if (console.json()) { return; }
    bool isRoomTold = false;
    for (const Refused &refused : plan.refused) {
        const bool tellsRoom = refused.forLackOfRoom && !isRoomTold;
        if (tellsRoom) {
            console.note(fmt::format("from line {} on: no free location for {}", refused.line,
                                     counted(countWithoutRoom(plan), "contact")));
        } else if (!refused.forLackOfRoom) {
            console.note(fmt::format("line {}: {}", refused.line, refused.reason));
        }
        isRoomTold = isRoomTold || tellsRoom;
    }
}

// TS 27.007, 9.2: the text or the number is too long, or holds what the modem does not take. The
// next entry may fare better.
bool concernsEntryOnly(const Failure &failure) {
    static constexpr u32 TEXT_TOO_LONG = 24, NUMBER_INVALID = 27;
    return failure.modem && !failure.modem->isMessageService && failure.modem->number &&
           *failure.modem->number >= TEXT_TOO_LONG && *failure.modem->number <= NUMBER_INVALID;
}

Failure partly(const Failure &failure, const std::vector<Planned> &written, std::size_t total) {
    if (written.empty()) { return failure; }
    Failure whole(Exit::IN_PART,
                  fmt::format("{} ({} of {} written)", failure.what(), written.size(),
                              counted(total, "contact")),
                  "import it again when that is mended: what is there already is not written "
                  "twice");
    whole.status = failure.status;
    whole.modem = failure.modem;
    for (const Planned &planned : written) { whole.completed.emplace_back(planned.contact.index); }
    return whole;
}

// Writes the planned contacts; the plan keeps those that were written.
void writePlanned(const Console &console, Phonebook &phonebook, ImportPlan &plan, bool partial) {
    std::vector<Planned> written;
    Progress progress(console, "writing contacts", plan.contacts.size());
    for (const Planned &planned : plan.contacts) {
        progress.step(written.size());
        try {
            phonebook.write(planned.contact);
            written.push_back(planned);
        } catch (const Failure &failure) {
            if (!partial || !concernsEntryOnly(failure)) {
                const Failure whole = partly(failure, written, plan.contacts.size());
                if (phonebook.isInterrupted()) { console.complain(whole); }
                throw whole;
            }
            plan.refused.push_back({planned.line, failure.what()});
        }
    }
    plan.contacts = std::move(written);
}

// Nothing is written because of what is refused.
Exit refuse(const Console &console, const ImportPlan &plan, const Phonebook &phonebook,
            bool dryRun) {
    const bool onlyRoomLacks = countWithoutRoom(plan) == plan.refused.size();
    const Failure failure(
        onlyRoomLacks ? Exit::REFUSED : Exit::USAGE,
        fmt::format("{} of {} cannot be imported; nothing was written", plan.refused.size(),
                    counted(plan.total(), "contact")),
        onlyRoomLacks ? "make room with smspb contacts delete, or write what fits with --partial"
        : plan.contacts.empty() ? "mend what is wrong"
                                : "mend what is wrong, or write the others with --partial");
    console.complain(failure);
    Json json = toJson(plan, phonebook, dryRun, 0);
    json["error"] = cli::toJson(failure);
    console.document(json);
    return failure.exit;
}

Exit report(const Console &console, const ImportPlan &plan, const Phonebook &phonebook,
            bool dryRun) {
    std::vector<u32> indexes;
    for (const Planned &planned : plan.contacts) { indexes.push_back(planned.contact.index); }
    std::string text = fmt::format("{} {} to {}", dryRun ? "would write" : "wrote",
                                   counted(indexes.size(), "contact"), phonebook.name());
    if (!indexes.empty()) { text += " at " + indexRanges(indexes); }
    if (plan.present != 0) { text += fmt::format("; {} there already", plan.present); }
    if (!plan.refused.empty()) { text += fmt::format("; {} left out", plan.refused.size()); }
    console.say(text);
    console.document(toJson(plan, phonebook, dryRun, dryRun ? 0 : indexes.size()));
    return plan.refused.empty() ? Exit::OK : Exit::IN_PART;
}

} // namespace

Exit exportContacts(const Console &console, const ContactFileOptions &options) {
    const FileFormat format =
        options.format.empty() ? formatOfName(options.file) : formatNamed(options.format);
    Phonebook phonebook(options.storage);
    const Phonebook::Entries entries = phonebook.readAll(console);
    const std::string text = formatContacts(entries.contacts, format);
    Json json = {
        { "storage",        phonebook.name()},
        {  "format",      formatName(format)},
        {"contacts", entries.contacts.size()}
    };
    if (options.file == "-") {
        writeOutput(console, text);
        json["text"] = text;
    } else {
        writeFile(options.file, text);
        console.say(fmt::format("wrote {} of {} to {}", counted(entries.contacts.size(), "contact"),
                                phonebook.name(), options.file));
        json["file"] = options.file;
    }
    noteUnread(console, phonebook, entries);
    console.document(json);
    return entries.contacts.size() < phonebook.used() ? Exit::IN_PART : Exit::OK;
}

Exit importContacts(const Console &console, const ContactFileOptions &options) {
    FileFormat format = FileFormat::VCARD;
    const ContactFile file = parseFile(options, format);
    Phonebook phonebook(options.storage);
    ImportPlan plan = checked(file, phonebook.limits());
    plan.format = format;
    const Phonebook::Entries entries = phonebook.readAll(console);
    noteUnread(console, phonebook, entries);
    dropPresent(plan, entries.contacts);
    const std::vector<u32> free = freeLocations(phonebook, entries);
    const std::size_t wanted = plan.contacts.size();
    place(plan, free);
    if (plan.contacts.empty() && wanted != 0) { throw noRoom(phonebook); }
    const bool isNothingFit = plan.contacts.empty() && plan.present == 0;
    if (!plan.refused.empty() && (!options.partial || isNothingFit)) {
        noteRefused(console, plan);
        return refuse(console, plan, phonebook, options.dryRun);
    }
    if (!options.dryRun) { writePlanned(console, phonebook, plan, options.partial); }
    noteRefused(console, plan);
    return report(console, plan, phonebook, options.dryRun);
}

} // namespace smspb::cli
