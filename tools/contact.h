// A phonebook entry as people know it, and what a phonebook takes: the checks before one is
// written. Pure.
#ifndef SMSPB_TOOLS_CONTACT_H
#define SMSPB_TOOLS_CONTACT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "comm/smspb_types.h"

namespace smspb::cli {

struct Contact {
    u32 index = 0;
    std::string name;   // UTF-8
    std::string number; // digits, *, #, p (pause), w (wait); "+" first if international
};

struct ContactLimits {
    std::string_view where = "this SIM";
    std::size_t nameUnits = 0; // 16-bit; a character outside the basic plane takes two
    std::size_t numberCharacters = 0;
};

// The number as a phonebook takes it (TS 27.007, 8.14; TS 31.102, 4.4.2.3). What people write
// between digits is left out (blanks, "-", ".", "/", parentheses); "," is p and ";" is w, as
// phones write them. Throws a Failure for anything else.
std::string toContactNumber(std::string_view text);

// Throw a Failure: for a name that is not UTF-8 or holds control characters; for a contact that is
// too long.
void checkName(std::string_view name);
void checkFits(const Contact &contact, const ContactLimits &limits);

// Whether they are the same entry, wherever they lie.
bool isSame(const Contact &one, const Contact &other);

// The name between quotes, shortened; the number when there is no name.
std::string nameFor(const Contact &contact);

} // namespace smspb::cli

#endif
