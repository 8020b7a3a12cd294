// Messages that are handed over while +CSMS is 1 (TS 27.005, 3.4.4): one at a time, each until the
// terminal acknowledges it by +CNMA, and with the network as long as that has not happened.
#pragma once

#include "platform/simmodem/modem/modem.h"

#include <chrono>

namespace smspb::simmodem {

// How long the network waits for an acknowledgement. After that nothing is handed over any more
// (+CNMI <mt> and <ds> become 0), and the message arrives by that.
constexpr std::chrono::seconds ACKNOWLEDGEMENT_TIME{60};

// True when a message may be handed over now.
bool mayHandOver(const Modem &modem);

// What was handed over has been put out by now: the network's time begins.
void startWaiting(Modem &modem);

bool isAcknowledgementExpected(const Modem &modem);

// Both false when there is nothing to acknowledge. A refused message stays with the network, which
// tries again after the next one.
bool acknowledge(Modem &modem);
bool refuse(Modem &modem);

// A message that waits counts as received once +CSMS is 0 again.
void settleUnacknowledged(Modem &modem);

} // namespace smspb::simmodem
