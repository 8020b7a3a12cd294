// Contacts as files: vCard (RFC 2426) and CSV (RFC 4180), both UTF-8 with CR LF. Reading goes on
// behind what is wrong, so that one look tells all of it; each problem names its line. Pure.
#ifndef SMSPB_TOOLS_CONTACT_FILE_H
#define SMSPB_TOOLS_CONTACT_FILE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/contact.h"

namespace smspb::cli {

// One number of the file, as it is written there.
struct FileEntry {
    std::size_t line = 0; // from 1
    std::string name, number;
};

struct FileProblem {
    std::size_t line = 0;
    std::string text;
};

struct ContactFile {
    std::vector<FileEntry> entries;
    std::vector<FileProblem> problems;
};

enum class FileFormat { VCARD, CSV };

// "vcard", "csv"
std::string_view formatName(FileFormat format);
FileFormat formatNamed(std::string_view name);

// By the extension of a file's name; vCard for one that tells nothing.
FileFormat formatOfName(std::string_view fileName);
// By what stands in it: a vCard begins with BEGIN:VCARD.
FileFormat formatOfContent(std::string_view text);

// A card with several numbers gives an entry for each. Versions 2.1 and 4.0 are read as far as they
// write names and numbers as 3.0 does; QUOTED-PRINTABLE and other character sets are problems.
ContactFile parseVcards(std::string_view text);
std::string formatVcards(const std::vector<Contact> &contacts);

// The first line names the columns; "name" and "number" are read, others left out. The separator is
// the comma, or what stands between the first two names: ";" or a tab.
ContactFile parseCsv(std::string_view text);
std::string formatCsv(const std::vector<Contact> &contacts);

ContactFile parseContacts(std::string_view text, FileFormat format);
std::string formatContacts(const std::vector<Contact> &contacts, FileFormat format);

// Without the mark that some programs put before UTF-8.
std::string_view withoutByteOrderMark(std::string_view text);

// What is wrong with text that is not UTF-8; empty when it is.
std::string utf8Problem(std::string_view text);

bool equalIgnoringCase(std::string_view one, std::string_view other); // ASCII

} // namespace smspb::cli

#endif
