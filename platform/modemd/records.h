// The request records that arrive by IPC and the response record that answers them: octets in,
// checked requests out. Words are 32 bits in host order. Nothing here touches the modem.
#ifndef SMSPB_PLATFORM_MODEMD_RECORDS_H
#define SMSPB_PLATFORM_MODEMD_RECORDS_H

#include <chrono>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "comm/smspb_types.h"

namespace smspb::modemd {

inline constexpr u32 MODEM_MANAGER_ID = 1; // IPC destination
inline constexpr u32 COMMAND_REQUEST = 0x1040008f;
inline constexpr u32 SEND_REQUEST = 0x104000af;
inline constexpr u32 STORE_REQUEST = 0x104000b1;
inline constexpr u32 STATUS_REQUEST = 0x1040f001;      // answered by the manager, no record
inline constexpr u32 REPORT_NOTIFICATION = 0x10400090; // payload: unsolicited lines

enum class Kind { COMMAND, SEND, STORE, STATUS, UNKNOWN };
inline constexpr std::size_t KIND_COUNT = 5;
Kind kindOf(u32 messageId);
const char *nameOf(Kind kind);

inline constexpr std::size_t RECORD_OCTETS_MAX = 1025; // of a request and of a response
inline constexpr std::size_t RESPONSE_HEADER_OCTETS = 12;
inline constexpr std::size_t INLINE_REPLY_MAX = RECORD_OCTETS_MAX - RESPONSE_HEADER_OCTETS;

// The result word of a response. Anything but CARRIED_OUT means that no reply follows.
enum class Result : u32 {
    CARRIED_OUT = 0,
    MALFORMED = 1,     // the request record or its text
    NO_MODEM = 2,      // the tty cannot be opened, or went away
    NO_ANSWER = 3,     // no final result within the wait
    NO_PROMPT = 4,     // no "> " where there had to be one, or one that nobody asked for
    TOO_LONG = 5,      // a line or reply beyond the manager's bounds
    TOO_MANY = 6,      // the queue is full
    NO_TRANSFER = 7,   // the transfer file could not be written
    SHUTTING_DOWN = 8, // the manager ends
};
inline constexpr std::size_t RESULT_COUNT = 9;
const char *describe(Result result);

// An AT command, its "\r" included, and the line beginnings that end its reply.
struct CommandRequest {
    std::string text;
    std::vector<std::string> markers;
    std::chrono::milliseconds wait; // bounded
};

// A message for the PDU-mode exchange: AT+CMGS or AT+CMGW with its length, and the PDU text.
struct MessageRequest {
    std::string command;
    std::string pdu;
};

using Request = std::variant<CommandRequest, MessageRequest>;

struct Answer {
    Result result;
    std::string text; // the reply, when carried out
};

// Says what is wrong with a record and what would be right.
struct MalformedRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Reads the record of `messageId`; throws MalformedRequest.
Request parseRequest(u32 messageId, std::span<const std::byte> record);

// TS 27.005, 3.5.1 and 4.3: the octets of the TPDU in a PDU text, that is without the
// service-centre part that the first octet measures. Throws MalformedRequest.
std::size_t tpduOctets(std::string_view pdu);

// The command's name for the log, without the parameters that may hold numbers and texts.
std::string_view commandName(std::string_view command);
std::string nameOf(const Request &request);
// All of it, for a log that may hold texts.
std::string textOf(const Request &request);

// A reply of any length, as long as its asker has the room.
std::vector<std::byte> inlineResponse(Result result, std::string_view reply);
std::vector<std::byte> transferResponse(std::string_view path);

} // namespace smspb::modemd

#endif
