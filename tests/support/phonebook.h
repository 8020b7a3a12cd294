// What the tests of the phonebook share.
#ifndef SMSPB_TESTS_PHONEBOOK_H
#define SMSPB_TESTS_PHONEBOOK_H

#include <cstring>
#include <string>
#include <vector>

#include "atlib/CPbSIM.h"

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

} // namespace support

#endif
