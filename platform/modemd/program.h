// The modem manager as a program: tty and IPC on one event loop.
#ifndef SMSPB_MODEMD_PROGRAM_H
#define SMSPB_MODEMD_PROGRAM_H

#include <string>
#include <vector>

namespace smspb::modemd {

// What each adds: failures; what comes and goes; an account of each request; the AT traffic, bodies
// and numbers included.
inline const std::vector<std::string> LOG_LEVELS = {"warn", "info", "debug", "trace"};

struct Options {
    std::string device;
    unsigned baud = 115200;
    unsigned keepTransfers = 60;
    std::string group; // whose members may ask, besides our own user and root; empty for none
    std::string logLevel = "info"; // of LOG_LEVELS
    bool toSyslog = false;         // the log, in place of standard error
};

// Runs until SIGINT, SIGTERM or SIGHUP. Prints "ready" once requests are taken. Throws
// std::exception when it cannot begin.
void serve(const Options &options);

} // namespace smspb::modemd

#endif
