// Which message got which reference: `send --report` writes it down, `listen` looks it up when the
// status report comes. In the runtime directory, since references are those of its modem.
#ifndef SMSPB_TOOLS_SENT_RECORD_H
#define SMSPB_TOOLS_SENT_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"

namespace smspb::cli {

// A segment that went out and asked for a report.
struct Sent {
    std::int64_t time = 0; // seconds since 1970
    u32 reference = 0;
    unsigned segment = 1, segments = 1;
    std::string number;
};

// Keeps the newest 256, one for each reference that can be open. Safe among processes. What cannot
// be written is not worth a failure: the report is then shown without its message.
void recordSent(const Sent &sent);

// The newest one of the reference whose number is the same, a country code or trunk prefix aside.
std::optional<Sent> findSent(u32 reference, std::string_view number);

// The file's lines, and back; a damaged line is left out.
std::string linesOf(const std::vector<Sent> &sent);
std::vector<Sent> sentFrom(std::string_view lines);

} // namespace smspb::cli

#endif
