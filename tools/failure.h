// Why a command could not do its work: the exit code of its family, what went wrong, the numbers
// that the library and the modem gave, and what to do next.
#ifndef SMSPB_TOOLS_FAILURE_H
#define SMSPB_TOOLS_FAILURE_H

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "comm/smspb_types.h"

namespace smspb::cli {

// The tool's exit codes. docs/smspb.md lists them for users.
enum class Exit : int {
    OK = 0,
    UNEXPECTED = 1, // none of the others: a full disk, a lack of memory
    USAGE = 2,      // the command line, a number or a text is not right
    BAD_PDU = 3,    // a PDU does not decode, or one of a text cannot be made
    NO_MANAGER = 4, // nobody serves the modem
    NO_ANSWER = 5,  // the modem manager runs, the modem is silent
    REFUSED = 6,    // the modem answered with an error
    NO_MESSAGE = 7, // nothing is stored at the index
    IN_PART = 8,    // some segments are sent or saved, not all
    BAD_REPLY = 9,  // the modem's reply lacks what it must have
    NO_SIMULATION = 10,
    NOTHING_CAME = 11, // no event, or no answer of the network, within the wait
};

// A final result that is an error: "ERROR", "+CME ERROR: n" (TS 27.007, 9.2), "+CMS ERROR: n"
// (TS 27.005, 3.2.5) or another line that ends a command without success.
struct ModemError {
    std::string line;              // as the modem gave it
    std::optional<u32> number;     // of a CME or CMS error
    bool isMessageService = false; // CMS
    std::string words;             // the number in words; empty when it has none
};

struct Failure : std::runtime_error {
    Failure(Exit exitCode, const std::string &what, std::string next = "")
        : std::runtime_error(what), exit(exitCode), hint(std::move(next)) {}

    Exit exit;
    std::string hint;          // what to do next, without full stop
    std::optional<u32> status; // of the library (SMS_... of atlib/CSMS.h)
    std::optional<ModemError> modem;
    // What was done before: message references or indexes, null for one that the modem did not
    // give.
    std::vector<std::optional<u32>> completed;
};

// The error that ends a modem's reply; nothing when it ends well.
std::optional<ModemError> errorOf(std::string_view reply);

// What to do about it; empty when there is nothing to say.
std::string hintFor(const ModemError &error);

// "memory full (+CMS ERROR: 322)"
std::string describe(const ModemError &error);

nlohmann::ordered_json toJson(const Failure &failure);

} // namespace smspb::cli

#endif
