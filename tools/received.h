// A PDU as people read it: the library's decoded record with its time zone, its coding and its
// status in words, and the text as its sender wrote it.
#ifndef SMSPB_TOOLS_RECEIVED_H
#define SMSPB_TOOLS_RECEIVED_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"
#include "tools/output.h"
#include "tools/pdu_layout.h"

namespace smspb::cli {

enum class Kind { RECEIVED, SENT, REPORT }; // DELIVER, SUBMIT, STATUS-REPORT

// Which part of a concatenated message.
struct Part {
    u16 reference = 0;
    unsigned total = 0, number = 0; // from 1
};

struct Report {
    unsigned status = 0;    // TP-ST
    unsigned reference = 0; // of the message that it tells of
    std::string discharge;  // ISO 8601
};

struct Message {
    Kind kind = Kind::RECEIVED;
    std::string serviceCentre, number;   // empty for none
    std::string time;                    // ISO 8601 with its zone; empty for none
    std::optional<std::int64_t> seconds; // the same, since 1970
    std::string validity;                // "3 days", or a time
    std::string coding;                  // "GSM 7-bit", "8-bit data", "UCS-2"
    std::optional<u32> messageClass;
    std::string waiting; // a message-waiting indication in words
    u32 protocol = 0;    // TP-PID
    bool isReportRequested = false;
    std::optional<u32> reference; // TP-MR of a SUBMIT
    std::optional<Part> part;
    std::vector<HeaderElement> header;
    bool isHeaderRefused = false; // the text may begin with what it holds
    std::optional<Report> report;
    std::u16string text;
    std::vector<u8> data; // of 8-bit messages, instead of a text
    std::size_t surplus = 0;
};

// Decodes a PDU text. Throws a Failure that says what is wrong with it.
Message interpret(std::string_view pdu);

// The text of unpacked septets, with the escapes of the extension table (TS 23.038, 6.2.1).
std::u16string fromSeptets(std::span<const u8> septets);

// "0A1B"
std::string hexadecimal(std::span<const u8> octets);

// "received", "sent" (composed by a terminal), "report"
std::string_view kindName(Kind kind);

// TP-ST in words: TS 23.040, 9.2.3.15.
std::string statusWords(unsigned status);

// "2026-01-03 12:00:01 +01:00" from the form with "T".
std::string forPeople(std::string time);

// "2026-01-03 12:00"
std::string shortTime(const std::string &time);

// The text, or the data in hexadecimal; empty when there is neither.
std::string contentOf(const Message &message);

// The same, or a report in a sentence.
std::string summaryOf(const Message &message);

Fields fieldsOf(const Message &message);
Json toJson(const Message &message);

} // namespace smspb::cli

#endif
