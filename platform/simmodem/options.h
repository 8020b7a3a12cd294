// What the program is told on its command line.
#pragma once

#include "platform/simmodem/program.h"

#include <CLI/App.hpp>

namespace smspb::simmodem {

// Adds the options of a modem that serves; parsing fills `options`, which must live as long.
void addModemOptions(CLI::App &app, Options &options);

} // namespace smspb::simmodem
