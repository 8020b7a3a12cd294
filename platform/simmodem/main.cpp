// smspb-simmodem: a simulated modem on a pseudo-terminal, or, as "ctl", what lets something happen
// to one.
#include "platform/simmodem/control/control_command.h"
#include "platform/simmodem/options.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>

namespace {

using namespace smspb::simmodem;

enum ExitCode : int { DONE = 0, FAILED = 1, WRONG_USAGE = 2 };

} // namespace

int main(int argc, char **argv) {
    try {
        CLI::App app("A simulated modem (3GPP TS 27.005, 27.007) on a pseudo-terminal.");
        Options options;
        std::function<int()> command;
        addModemOptions(app, options);
        addControlCommand(app, options, command);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) { return app.exit(error) == 0 ? DONE : WRONG_USAGE; }
        if (command) { return command(); }
        if (options.link.empty()) {
            std::fputs("smspb-simmodem: --link is required: the PATH at which the terminal is to "
                       "be found\n",
                       stderr);
            return WRONG_USAGE;
        }
        serve(options);
        return DONE;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "smspb-simmodem: %s\n", error.what());
        return FAILED;
    }
}
