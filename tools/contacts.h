// contacts list, show, find, add, edit, delete, export, import: one function each, as the commands
// of commands.h.
#ifndef SMSPB_TOOLS_CONTACTS_H
#define SMSPB_TOOLS_CONTACTS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/contact.h"
#include "tools/failure.h"
#include "tools/output.h"
#include "tools/phonebook.h"

namespace smspb::cli {

struct ContactOptions {
    std::string storage;                     // "sm", "me"; empty for the SIM's
    std::vector<std::string> indexes;        // show, edit: one; add: one or none
    std::optional<std::string> name, number; // add: both; edit: one at least
    std::string text;                        // find
};

struct ContactFileOptions {
    std::string storage;
    std::string file = "-"; // standard input or output
    std::string format;     // "vcard", "csv"; empty: by the file's name or content
    bool partial = false;   // import: what fits, instead of nothing
    bool dryRun = false;    // import: check only
};

// contacts.cpp
void listContacts(const Console &console, const ContactOptions &options);
void showContact(const Console &console, const ContactOptions &options);
void findContacts(const Console &console, const ContactOptions &options);
void addContact(const Console &console, const ContactOptions &options);
void editContact(const Console &console, const ContactOptions &options);
void deleteContacts(const Console &console, const ContactOptions &options);

// contacts_transfer.cpp
Exit exportContacts(const Console &console, const ContactFileOptions &options);
Exit importContacts(const Console &console, const ContactFileOptions &options);

// {"index", "name", "number"}
Json toJson(const Contact &contact);

// A remark when some of the entries could not be read.
void noteUnread(const Console &console, const Phonebook &phonebook,
                const Phonebook::Entries &entries);

// The Failure for a phonebook without a free location.
Failure noRoom(const Phonebook &phonebook);

} // namespace smspb::cli

#endif
