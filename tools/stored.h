// Messages as a storage holds them: the modem's reply to a read, and the parts of concatenated
// messages put together. Pure.
#ifndef SMSPB_TOOLS_STORED_H
#define SMSPB_TOOLS_STORED_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"
#include "tools/received.h"

namespace smspb::cli {

// One place of a storage.
struct Stored {
    u32 index = 0;
    u32 status = 0; // TS 27.005, <stat>: 0 unread, 1 read, 2 unsent, 3 sent
    std::string pdu;
    std::optional<Message> message;           // nothing: the PDU does not decode
    std::string problem;                      // why
    std::string storage = {}, announced = {}; // listen: where it lies, and who told of it
};

// "new", "read", "unsent", "sent"
std::string_view statusName(u32 status);

// Takes the reply to AT+CMGR; nothing when there is no message in it. Throws a Failure for a reply
// in text mode.
std::optional<Stored> storedFrom(std::string_view reply, u32 index);

// Takes the PDU apart: fills in `message`, or `problem`.
void decode(Stored &stored);

// A message of one or more places.
struct Joined {
    unsigned total = 1;        // parts that it has
    std::vector<Stored> parts; // those that are there, in order; one at least

    bool isComplete() const { return parts.size() == total; }
};

// Puts the parts together, as joining.h says. In the order of the lowest indexes.
std::vector<Joined> join(std::vector<Stored> stored);

// The text; where a part is missing stands "[…]".
std::string textOf(const Joined &joined);

// The numbers of the missing parts: "2, 4".
std::string missingParts(const Joined &joined);

// "3-7,9", ascending, and back. The latter throws a Failure that says what is wrong.
std::string indexRanges(std::vector<u32> indexes);
std::vector<u32> parseIndexes(const std::string &text);

} // namespace smspb::cli

#endif
