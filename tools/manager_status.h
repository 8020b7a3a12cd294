// What the modem manager tells of itself: its queue, its tty, its counters.
#ifndef SMSPB_TOOLS_MANAGER_STATUS_H
#define SMSPB_TOOLS_MANAGER_STATUS_H

#include <optional>

#include "tools/output.h"

namespace smspb::cli {

// The document of docs/modem-manager.md; nothing from a manager that does not tell.
std::optional<Json> managerStatus();

Fields describeManager(const Json &managerStatus);

} // namespace smspb::cli

#endif
