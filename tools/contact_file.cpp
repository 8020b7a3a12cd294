#include "tools/contact_file.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/text.h"

namespace smspb::cli {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

} // namespace

std::string_view formatName(FileFormat format) {
    return format == FileFormat::CSV ? "csv" : "vcard";
}

FileFormat formatNamed(std::string_view name) {
    return name == "csv" ? FileFormat::CSV : FileFormat::VCARD;
}

FileFormat formatOfName(std::string_view fileName) {
    const std::size_t dot = fileName.rfind('.');
    const bool isCsv = dot != fileName.npos && equalIgnoringCase(fileName.substr(dot), ".csv");
    return isCsv ? FileFormat::CSV : FileFormat::VCARD;
}

FileFormat formatOfContent(std::string_view text) {
    static constexpr std::string_view BEGIN = "BEGIN:VCARD";
    text = withoutByteOrderMark(text);
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    return equalIgnoringCase(text.substr(0, BEGIN.size()), BEGIN) ? FileFormat::VCARD
                                                                  : FileFormat::CSV;
}

ContactFile parseContacts(std::string_view text, FileFormat format) {
    return format == FileFormat::CSV ? parseCsv(text) : parseVcards(text);
}

std::string formatContacts(const std::vector<Contact> &contacts, FileFormat format) {
    return format == FileFormat::CSV ? formatCsv(contacts) : formatVcards(contacts);
}

std::string_view withoutByteOrderMark(std::string_view text) {
    static constexpr std::string_view MARK = "\xEF\xBB\xBF";
    if (text.starts_with(MARK)) { text.remove_prefix(MARK.size()); }
    return text;
}

std::string utf8Problem(std::string_view text) {
    const auto bad = findInvalidUtf8(text);
    if (!bad) { return ""; }
    return fmt::format("not UTF-8: octet {} is 0x{:02X}", *bad + 1,
                       static_cast<unsigned char>(text[*bad]));
}

bool equalIgnoringCase(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

} // namespace smspb::cli
