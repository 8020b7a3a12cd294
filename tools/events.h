// What the modem says of its own accord: its lines told apart, and each event as people, programs
// and --json get it. Pure.
#ifndef SMSPB_TOOLS_EVENTS_H
#define SMSPB_TOOLS_EVENTS_H

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cell_broadcast.h"
#include "tools/output.h"
#include "tools/sent_record.h"
#include "tools/stored.h"

namespace smspb::cli {

// One report of the modem (3GPP TS 27.005, 3.4.1; TS 27.007, 7.2, 7.6, 7.15; V.250, 6.3.4).
struct Indication {
    enum class What {
        STORED,        // +CMTI: a message came and lies at storage, index
        STORED_REPORT, // +CDSI: the same for a status report
        DIRECT,        // +CMT: a message by its PDU
        DIRECT_REPORT, // +CDS: a status report by its PDU
        PAGE,          // +CBM: a cell broadcast page
        USSD,          // +CUSD:
        RING,          // RING, +CRING:
        CALLER,        // +CLIP:
        OTHER,
    };
    What what = What::OTHER;
    std::string raw; // its lines, without the last line end
    std::string storage;
    u32 index = 0;
    std::string pdu;  // of DIRECT, DIRECT_REPORT and PAGE
    std::string text; // RING: the kind of call; CALLER: the number, empty when it is withheld
};

// The reports of a notification: most often one. Those that bring a PDU on the next line keep it,
// and the text of a +CUSD: keeps its line ends.
std::vector<std::string> splitReports(std::string_view payload);

// What lacks a part of its form is OTHER, so that nothing is lost.
Indication classify(std::string report);

enum class EventKind { MESSAGE, FLASH, REPORT, PAGE, USSD, CALL, OTHER };
std::string_view eventName(EventKind kind);

// Where a message lies, and its PDU, so that no other one is deleted in its stead.
struct Place {
    std::string storage;
    u32 index = 0;
    std::string pdu;
};

// NOLINTNEXTLINE(bugprone-exception-escape): of the JSON object, whose moving throws nothing
struct Event {
    EventKind kind = EventKind::OTHER;
    Json json; // "time", "kind", "from" and "text" first, "raw" last
    std::vector<Place> places;
};

// `arrived` in the local zone, ISO 8601.
std::string localTime(std::time_t arrived);

// All parts are decoded.
Event messageEvent(const Joined &joined, const std::string &arrived);
Event reportEvent(const Stored &report, const std::optional<Sent> &sent,
                  const std::string &arrived);
Event pageEvent(const PageGroup &group, const std::string &arrived);
// A message, report or page that could not be read or decoded, and why.
Event brokenEvent(const Indication &indication, const std::string &problem,
                  const std::string &arrived);
// USSD, RING, CALLER, OTHER, which say everything themselves.
Event plainEvent(const Indication &indication, const std::string &arrived);

// One line: time, kind, from, text.
std::string lineOf(const Event &event);

// "SMSPB_KIND=message" and so on: every field of the JSON object that is no object, lists separated
// by blanks ("raw" by line ends).
std::vector<std::string> environmentOf(const Event &event);

} // namespace smspb::cli

#endif
