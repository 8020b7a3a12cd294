// What the manager tells of itself, as a JSON document: docs/modem-manager.md lists its members.
#ifndef SMSPB_PLATFORM_MODEMD_STATUS_H
#define SMSPB_PLATFORM_MODEMD_STATUS_H

#include <chrono>
#include <string>
#include <string_view>

#include "platform/modemd/account.h"
#include "platform/modemd/at_engine.h"
#include "platform/modemd/request_queue.h"

namespace smspb::modemd {

// Where the manager's figures are found.
struct StatusSources {
    std::string_view version;
    Clock::time_point started;
    const AtEngine &engine;
    const RequestQueue &queue;
    const Ledger &ledger;
};

std::string statusDocument(const StatusSources &sources);

// The text between double quotes, every octet that is no printable ASCII character escaped.
std::string jsonString(std::string_view text);

} // namespace smspb::modemd

#endif
