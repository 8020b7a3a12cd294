// The rates of serial lines.
#ifndef SMSPB_MODEMD_BAUD_H
#define SMSPB_MODEMD_BAUD_H

#include <termios.h>

namespace smspb::modemd {

// termios' name for the rate; B0 for one that is none.
speed_t speedOf(unsigned baud);

// Whether this is a line rate, 300 to 4,000,000 bit/s, that the system knows.
bool isBaudRate(unsigned baud);

} // namespace smspb::modemd

#endif
