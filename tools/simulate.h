// --simulate: a private modem manager and a simulated modem around one command, in a runtime
// directory of their own. Nothing of them is left behind, also when the command is interrupted.
#ifndef SMSPB_TOOLS_SIMULATE_H
#define SMSPB_TOOLS_SIMULATE_H

#include <functional>
#include <string>
#include <vector>

namespace smspb::cli {

// Runs `command` in a child process with the simulation around it, and returns its exit code. A
// signal that ends the command, or this process while it waits, is raised again once everything is
// cleaned up. Throws a Failure when the simulation does not start.
int simulated(const std::function<int()> &command);

} // namespace smspb::cli

#endif
