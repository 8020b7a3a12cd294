// From what the user typed to PDUs: the number and the text checked, the plan (coding, segments,
// what forces UCS-2), and the segments as the library composes them.
#ifndef SMSPB_TOOLS_COMPOSE_H
#define SMSPB_TOOLS_COMPOSE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "atlib/SmsUtils.h"
#include "comm/smspb_types.h"
#include "tools/output.h"

namespace smspb::cli {

// A number as the library takes it: 21 units, zero-terminated.
struct Number {
    std::string text;
    u16 units[SMS_NUMBER_UNITS] = {};
};

// Takes digits with an optional "+" before them, at most 20 characters. Throws a Failure that says
// what is wrong and what would be right; `name` is the argument's.
Number parseNumber(const std::string &text, std::string_view name);

// The characters of TEXT; "-" reads standard input and drops one line end at its end. Throws a
// Failure for what is not UTF-8, or too much.
std::u32string readText(const std::string &argument);

// A character that no septet codes, so that the whole text goes as UCS-2.
struct Forcing {
    char32_t character = 0;
    std::size_t position = 0; // of the first one, from 1
    std::size_t count = 0;
    std::string_view hint; // what to write instead
};

struct Plan {
    std::size_t characters = 0;
    std::size_t units = 0; // 16-bit; a character outside the basic plane takes two
    bool isUcs2 = false;
    std::vector<Forcing> forcing;  // in order of appearance
    std::size_t segmentsAsGsm = 0; // if the text had a septet for each character
    std::vector<std::size_t> segmentUnits;
    std::size_t blanksReplaced = 0;
    std::vector<SmsSegment> segments;
};

// `reference` is the one of a concatenated message. Throws a Failure for a text that is too long.
Plan compose(const Number &number, std::u32string text, bool reportRequested, u8 reference);

// A reference unlike those of the last messages: a process has no memory of them, so it is drawn.
u8 drawReference();

// How the text is cut: " (153 + 153 + 12)"; empty for one segment.
std::string segmentSizes(const Plan &plan);
Fields fieldsOf(const Plan &plan);
Json toJson(const Plan &plan);

} // namespace smspb::cli

#endif
