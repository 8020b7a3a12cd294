// What a tester lets happen to a running modem. An event is a JSON object with its name under
// "event"; docs/simulated-modem.md lists them.
#pragma once

#include "platform/simmodem/modem/modem.h"

#include <nlohmann/json_fwd.hpp>

namespace smspb::simmodem {

// Lets it happen and returns what came of it. Throws std::invalid_argument with what is wrong with
// the event, and what would be right.
nlohmann::json carryOutEvent(Modem &modem, const nlohmann::json &event);

} // namespace smspb::simmodem
