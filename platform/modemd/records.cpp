// The IPC records of the modem manager, taken apart and put together word by word.
#include "platform/modemd/records.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>

namespace smspb::modemd {
namespace {

using std::chrono::milliseconds;
using u64 = std::uint64_t;

constexpr std::size_t MARKER_COUNT_MAX = 5;
constexpr std::size_t MARKER_SLOT_OCTETS = 16;
constexpr milliseconds WAIT_DEFAULT{3000}; // for a request that names none
constexpr milliseconds WAIT_MAX{60000};    // above every wait that a caller has a use for

// A read past the end gives zeros; `pos` counts on, so `atEnd` answers for all reads at once.
class RecordReader {
public:
    explicit RecordReader(std::span<const std::byte> record) : record_(record) {}

    u32 word() {
        u32 value = 0;
        const std::string_view octets = take(sizeof(value));
        if (octets.size() == sizeof(value)) { std::memcpy(&value, octets.data(), sizeof(value)); }
        return value;
    }
    std::string_view take(std::size_t count) {
        const std::size_t from = std::min(pos_, record_.size());
        const std::size_t size = std::min(count, record_.size() - from);
        pos_ += count;
        return {reinterpret_cast<const char *>(record_.data()) + from, size};
    }
    std::size_t pos() const { return pos_; }
    std::size_t size() const { return record_.size(); }

private:
    std::span<const std::byte> record_;
    std::size_t pos_ = 0;
};

// The zero-terminated text of `octetCount` octets that ends the record.
std::string_view takeText(RecordReader *in, u32 octetCount) {
    const u64 expected = u64{in->pos()} + octetCount + 1;
    if (expected != in->size()) {
        throw MalformedRequest(
            fmt::format("the record has {} octets where its text length of {} makes it {}",
                        in->size(), octetCount, expected));
    }
    const std::string_view text = in->take(octetCount);
    if (in->take(1) != std::string_view("\0", 1)) {
        throw MalformedRequest("the text is not zero-terminated");
    }
    return text;
}

std::vector<std::string> takeMarkers(RecordReader *in, u32 count) {
    if (count > MARKER_COUNT_MAX) {
        throw MalformedRequest(
            fmt::format("{} final-result markers; at most {} fit", count, MARKER_COUNT_MAX));
    }
    std::vector<std::string> markers;
    for (std::size_t i = 0; i < MARKER_COUNT_MAX; i++) {
        const std::string_view slot = in->take(MARKER_SLOT_OCTETS);
        if (i >= count) { continue; }
        const std::size_t end = slot.find('\0');
        if (end == std::string_view::npos || end == 0) {
            throw MalformedRequest(
                fmt::format("final-result marker {} must be 1 to {} characters and a zero", i + 1,
                            MARKER_SLOT_OCTETS - 1));
        }
        markers.emplace_back(slot.substr(0, end));
    }
    return markers;
}

bool isControl(char c) {
    const auto octet = static_cast<unsigned char>(c);
    return octet < 0x20 || octet == 0x7f;
}

// V.250, 5.2.1: one command line, ended by <CR>. Anything behind it would be a second command,
// whose reply would be taken for the next caller's.
void checkCommand(std::string_view text) {
    if (!text.ends_with('\r')) {
        throw MalformedRequest(
            "the command does not end in \"\\r\", so the modem would not run it");
    }
    const auto *bad = std::find_if(text.begin(), text.end() - 1, isControl);
    if (bad != text.end() - 1) {
        throw MalformedRequest(fmt::format(
            "octet 0x{:02x} at position {} of the command; a command is one line of printable "
            "characters with one \"\\r\" at its end",
            static_cast<unsigned char>(*bad), bad - text.begin()));
    }
}

milliseconds boundedWait(u32 wait) {
    return wait == 0 ? WAIT_DEFAULT : std::min(milliseconds(wait), WAIT_MAX);
}

Request parseCommand(RecordReader in) {
    const u32 octetCount = in.word();
    in.word(); // reserved
    const u32 wait = in.word();
    const u32 markerCount = in.word();
    std::vector<std::string> markers = takeMarkers(&in, markerCount);
    const std::string_view text = takeText(&in, octetCount);
    checkCommand(text);
    return CommandRequest{std::string(text), std::move(markers), boundedWait(wait)};
}

Request parseSend(RecordReader in) {
    const u32 octetCount = in.word();
    const std::string_view pdu = takeText(&in, octetCount);
    return MessageRequest{fmt::format("AT+CMGS={}\r", tpduOctets(pdu)), std::string(pdu)};
}

// TS 27.005, 4.4: <stat> 2 "stored unsent", 3 "stored sent"; without it the modem decides.
std::string storeStatus(u32 status) {
    switch (status) {
    case 0: return "";
    case 2: return ",2";
    case 3: return ",3";
    default:
        throw MalformedRequest(fmt::format("message status {}; 2 stores as unsent, 3 as sent, 0 as "
                                           "the modem does by itself",
                                           status));
    }
}

Request parseStore(RecordReader in) {
    const u32 octetCount = in.word();
    const u32 status = in.word();
    const std::string_view pdu = takeText(&in, octetCount);
    return MessageRequest{fmt::format("AT+CMGW={}{}\r", tpduOctets(pdu), storeStatus(status)),
                          std::string(pdu)};
}

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

std::size_t hexValue(char c) {
    return static_cast<std::size_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
}

void putWord(std::vector<std::byte> *out, std::size_t value) {
    const u32 word = static_cast<u32>(value);
    const auto *octets = reinterpret_cast<const std::byte *>(&word);
    out->insert(out->end(), octets, octets + sizeof(word));
}

void putText(std::vector<std::byte> *out, std::string_view text) {
    const auto *octets = reinterpret_cast<const std::byte *>(text.data());
    out->insert(out->end(), octets, octets + text.size());
}

} // namespace

std::size_t tpduOctets(std::string_view pdu) {
    if (!std::all_of(pdu.begin(), pdu.end(), isHexDigit) || pdu.size() % 2 != 0) {
        throw MalformedRequest(fmt::format(
            "the PDU text of {} characters is not a row of hexadecimal pairs", pdu.size()));
    }
    const std::size_t octetCount = pdu.size() / 2;
    const std::size_t centreOctets =
        pdu.empty() ? 0 : 1 + (hexValue(pdu[0]) << 4) + hexValue(pdu[1]);
    if (octetCount <= centreOctets) {
        throw MalformedRequest(
            fmt::format("the PDU of {} octets ends in its service-centre part of {}", octetCount,
                        centreOctets));
    }
    return octetCount - centreOctets;
}

std::string_view commandName(std::string_view command) {
    const bool isBasic = command.size() > 2 && std::isalpha(static_cast<unsigned char>(command[2]));
    return command.substr(0, isBasic ? 3 : command.find_first_of("=?; \r"));
}

std::string nameOf(const Request &request) {
    if (const auto *command = std::get_if<CommandRequest>(&request)) {
        return std::string(commandName(command->text));
    }
    return std::string(commandName(std::get<MessageRequest>(request).command));
}

std::string textOf(const Request &request) {
    if (const auto *command = std::get_if<CommandRequest>(&request)) {
        return command->text.substr(0, command->text.size() - 1);
    }
    const auto &message = std::get<MessageRequest>(request);
    return message.command.substr(0, message.command.size() - 1) + " " + message.pdu;
}

Kind kindOf(u32 messageId) {
    switch (messageId) {
    case COMMAND_REQUEST: return Kind::COMMAND;
    case SEND_REQUEST: return Kind::SEND;
    case STORE_REQUEST: return Kind::STORE;
    case STATUS_REQUEST: return Kind::STATUS;
    default: return Kind::UNKNOWN;
    }
}

const char *nameOf(Kind kind) {
    switch (kind) {
    case Kind::COMMAND: return "command";
    case Kind::SEND: return "send";
    case Kind::STORE: return "store";
    case Kind::STATUS: return "status";
    case Kind::UNKNOWN: break;
    }
    return "unknown";
}

const char *describe(Result result) {
    switch (result) {
    case Result::CARRIED_OUT: return "carried out";
    case Result::MALFORMED: return "malformed request";
    case Result::NO_MODEM: return "no modem";
    case Result::NO_ANSWER: return "no final result in time";
    case Result::NO_PROMPT: return "no prompt, or one that only send and store requests can answer";
    case Result::TOO_LONG: return "reply too long";
    case Result::TOO_MANY: return "too many requests wait";
    case Result::NO_TRANSFER: return "no transfer file";
    case Result::SHUTTING_DOWN: return "shutting down";
    }
    return "unknown result";
}

Request parseRequest(u32 messageId, std::span<const std::byte> record) {
    if (record.size() > RECORD_OCTETS_MAX) {
        throw MalformedRequest(fmt::format("the record has {} octets; at most {} are taken",
                                           record.size(), RECORD_OCTETS_MAX));
    }
    switch (messageId) {
    case COMMAND_REQUEST: return parseCommand(RecordReader(record));
    case SEND_REQUEST: return parseSend(RecordReader(record));
    case STORE_REQUEST: return parseStore(RecordReader(record));
    default:
        throw MalformedRequest(fmt::format("message id 0x{:08x} is no request of the modem "
                                           "manager: 0x{:08x} runs a command, 0x{:08x} sends, "
                                           "0x{:08x} stores, 0x{:08x} asks for the status",
                                           messageId, COMMAND_REQUEST, SEND_REQUEST, STORE_REQUEST,
                                           STATUS_REQUEST));
    }
}

std::vector<std::byte> inlineResponse(Result result, std::string_view reply) {
    std::vector<std::byte> response;
    putWord(&response, static_cast<u32>(result));
    putWord(&response, 0);
    putWord(&response, reply.size());
    putText(&response, reply);
    return response;
}

std::vector<std::byte> transferResponse(std::string_view path) {
    std::vector<std::byte> response;
    putWord(&response, static_cast<u32>(Result::CARRIED_OUT));
    putWord(&response, 1);
    putWord(&response, 0);
    putText(&response, path);
    response.push_back(std::byte{0});
    return response;
}

} // namespace smspb::modemd
