// The simulated modem as a program: terminal, dialogue and control socket on one event loop.
#pragma once

#include "platform/simmodem/line/terminal.h"
#include "platform/simmodem/modem/modem.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace smspb::simmodem {

struct Options {
    std::string link, control;
    ModemOptions modem;
    std::vector<std::string> faults, faultFiles, ussdAnswers;
    unsigned seed = 0;
    unsigned latencyMs = 0;
    Pieces pieces;
    std::string state;                     // file, empty for none
    std::string log;                       // "-" for standard error, empty for none
    std::optional<std::time_t> drivenFrom; // the clock stands there until it is driven
};

// Runs until SIGINT, SIGTERM or SIGHUP. Prints "ready: LINK" once a client may open the link.
// Throws std::exception when it cannot begin.
void serve(const Options &options);

} // namespace smspb::simmodem
