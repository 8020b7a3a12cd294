#include "platform/simmodem/network/acknowledgement.h"

#include "platform/simmodem/network/network.h"

#include <utility>

namespace smspb::simmodem {
namespace {

Incoming takeUnacknowledged(Modem &modem) {
    modem.acknowledgementTimer.cancel();
    return *std::exchange(modem.unacknowledged, std::nullopt);
}

// Its report, when one was asked for, comes next.
void complete(Modem &modem) {
    const Incoming received = takeUnacknowledged(modem);
    if (!received.report) { return; }
    modem.pending.push_front({Incoming::Kind::report, *received.report, std::nullopt});
}

void expire(Modem &modem) {
    if (modem.settings.acknowledges) {
        modem.settings.indications.mt = 0;
        modem.settings.indications.ds = 0;
        modem.pending.push_front(takeUnacknowledged(modem));
    }
    receivePending(modem);
}

} // namespace

// Kept back here (+CNMI mode 0) it would be lost if it were never let out.
bool mayHandOver(const Modem &modem) {
    if (modem.settings.acknowledges) { return !modem.unacknowledged && !holdsBack(modem); }
    return !holdsBack(modem) || modem.held.size() < HELD_MAX;
}

void startWaiting(Modem &modem) {
    if (!modem.unacknowledged || modem.acknowledgementTimer.runs()) { return; }
    modem.acknowledgementTimer.start(ACKNOWLEDGEMENT_TIME, [&modem] { expire(modem); });
}

bool isAcknowledgementExpected(const Modem &modem) {
    return modem.settings.acknowledges && modem.acknowledgementTimer.runs();
}

bool acknowledge(Modem &modem) {
    if (!isAcknowledgementExpected(modem)) { return false; }
    complete(modem);
    receivePending(modem);
    return true;
}

bool refuse(Modem &modem) {
    if (!isAcknowledgementExpected(modem)) { return false; }
    Incoming refused = takeUnacknowledged(modem);
    receivePending(modem);
    modem.pending.push_back(std::move(refused));
    return true;
}

void settleUnacknowledged(Modem &modem) {
    if (!modem.settings.acknowledges && modem.unacknowledged) { complete(modem); }
}

} // namespace smspb::simmodem
