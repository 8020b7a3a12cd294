// Texts and numbers as the library's callers give them.
#ifndef SMSPB_TESTS_SUPPORT_LIBRARY_TEXTS_H
#define SMSPB_TESTS_SUPPORT_LIBRARY_TEXTS_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "comm/smspb_types.h"

namespace support {

// The units with a zero behind them, in a field of at least `room`.
inline std::vector<u16> callersText(const std::u16string &text, std::size_t room = 0) {
    std::vector<u16> copy(text.begin(), text.end());
    copy.resize(std::max(room, copy.size() + 1));
    return copy;
}

inline std::vector<u16> callersNumber(const std::u16string &digits) {
    return callersText(digits, 21);
}

} // namespace support

#endif
