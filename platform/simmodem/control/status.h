// What a tester is shown of a running modem.
#pragma once

#include "platform/simmodem/modem/modem.h"

#include <nlohmann/json_fwd.hpp>

namespace smspb::simmodem {

// docs/simulated-modem.md says what is in it.
nlohmann::json statusOf(const Modem &modem);

} // namespace smspb::simmodem
