// "smspb-simmodem ctl": lets something happen to a running simulated modem.
#pragma once

#include "platform/simmodem/program.h"

#include <CLI/App.hpp>

#include <functional>

namespace smspb::simmodem {

// Adds the subcommand; a --link or --ctl of `options` will do where it has none of its own. `run`
// becomes what it does when it is chosen; it returns the exit status: 0 done, 1 refused or nobody
// there.
void addControlCommand(CLI::App &app, const Options &options, std::function<int()> &run);

} // namespace smspb::simmodem
