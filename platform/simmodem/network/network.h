// The network that the modem is attached to: it carries messages to the modem's own number back,
// lets all others vanish, and reports delivery when asked.
#pragma once

#include "platform/simmodem/modem/modem.h"

namespace smspb::simmodem {

// Sends a message through the service centre (an address field of the RP layer) and returns its
// reference. What comes back of it is received before this returns, or waits for room.
std::uint8_t sendMessage(Modem &modem, const Submit &submit, const Octets &serviceCentre);

// Receives what waited, in order of arrival, as far as there is room now. Called whenever a place
// became free or the receive storage or the routing changed.
void receivePending(Modem &modem);

// Puts out the USSD answer that is under way.
void receiveUssd(Modem &modem);

// Indications that +CNMI mode 0 keeps back at most; the oldest goes.
constexpr std::size_t HELD_MAX = 100;

// True when +CNMI mode 0 keeps back what goes out unasked.
bool holdsBack(const Modem &modem);

// Puts out an unsolicited result code, or keeps it back as +CNMI mode 0 asks.
void indicate(Modem &modem, std::string text);

// Puts out or forgets what was kept back, after +CNMI chose another mode.
void releaseHeld(Modem &modem);

// "1" and with `reports` 2 the cell behind it, or "0": what +CREG and +CGREG tell (TS 27.007, 7.2).
std::string registrationState(bool isRegistered, unsigned reports);

// Tells by +CREG and +CGREG, where that was asked for, what is no more as it was told last.
void reportRegistration(Modem &modem);

// True when both name one subscriber: the last nine digits are the same (seven at least), so that
// trunk and country prefixes do not matter.
bool isSameNumber(std::string_view digits, std::string_view otherDigits);

} // namespace smspb::simmodem
