// What the tests of the phonebook share.
#ifndef SMSPB_TESTS_PHONEBOOK_H
#define SMSPB_TESTS_PHONEBOOK_H

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "atlib/CPbSIM.h"
#include "guard_page.h"

namespace support {

inline const std::vector<std::string> &phonebookMarkers() {
    static const std::vector<std::string> MARKERS = {"OK", "ERROR", "+CME"};
    return MARKERS;
}

// An item with its fields zero to their ends.
inline sm_item_t phonebookItem(i32 index, const std::string &number, i32 international,
                               const std::vector<u8> &name) {
    sm_item_t item = {};
    item.index = index;
    item.international = international;
    std::memcpy(item.number, number.data(), number.size());
    if (!name.empty()) { std::memcpy(item.name, name.data(), name.size()); }
    return item;
}

inline bool same(const sm_item_t &a, const sm_item_t &b) {
    return a.index == b.index && a.international == b.international &&
           std::memcmp(a.name, b.name, sizeof(a.name)) == 0 &&
           std::memcmp(a.number, b.number, sizeof(a.number)) == 0;
}

inline std::string numberOf(const sm_item_t &item) {
    return {item.number, strnlen(item.number, sizeof(item.number))};
}

inline std::vector<u8> nameOf(const sm_item_t &item) {
    return {item.name, item.name + sizeof(item.name)};
}

// Commands as the library sends them.
inline std::string readCommand(i32 index) { return "AT+CPBR=" + std::to_string(index) + "\r"; }
inline std::string deleteCommand(i32 index) { return "AT+CPBW=" + std::to_string(index) + "\r"; }

// A reply with the given lines behind "+CPBR: ".
inline std::string entries(const std::vector<std::string> &lines) {
    std::string reply = "\r\n";
    for (const std::string &line : lines) { reply += "+CPBR: " + line + "\r\n"; }
    return reply + "\r\nOK\r\n";
}

// What stands on standard output for a line that decoded with this status.
inline std::string printedFor(u32 status) {
    const std::string text = "come here!\nnErr = " + std::to_string(status) + "\n";
    return status == 0 ? text + "PB_SUCCESS!\n" : text;
}

// The units of a name, high octet first.
inline std::vector<u8> nameOctets(std::u16string_view name) {
    std::vector<u8> octets;
    for (const char16_t unit : name) {
        octets.push_back(static_cast<u8>(unit >> 8));
        octets.push_back(static_cast<u8>(unit & 0xFF));
    }
    return octets;
}

// The commands that delete the indexes: at most 40 a command, and none that is begun when its text
// has 501 characters.
inline std::vector<std::string> batchesOf(const std::vector<i32> &indexes) {
    std::vector<std::string> commands;
    std::string text = "AT";
    u32 count = 0;
    for (const i32 index : indexes) {
        text += "+CPBW=" + std::to_string(index) + ";";
        count++;
        if (text.size() < 501 && count < 40) { continue; }
        commands.push_back(text + "\r");
        text = "AT";
        count = 0;
    }
    if (text.size() >= 6) { commands.push_back(text + "\r"); }
    return commands;
}

inline std::vector<i32> indexesFrom(i32 first, i32 count) {
    std::vector<i32> indexes;
    for (i32 i = 0; i < count; i++) { indexes.push_back(first + i); }
    return indexes;
}

// Deletes them, the array against an unreadable page.
inline u32 deleteMany(const std::vector<i32> &indexes) {
    const Guarded<i32> guarded(indexes);
    return SM_DeleteMultiItems(guarded.get(), static_cast<i32>(indexes.size()));
}

} // namespace support

#endif
