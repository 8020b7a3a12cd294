#include "network.h"

#include "text.h"

#include <algorithm>
#include <utility>

namespace smspb::simmodem {
namespace {

enum : unsigned { MODE_HOLD = 0 }; // +CNMI <mode>
enum : unsigned { MT_SILENT = 0, MT_INDICATE = 1, MT_ROUTE = 2, MT_ROUTE_CLASS_3 = 3 }; // <mt>
enum : unsigned { DS_SILENT = 0, DS_ROUTE = 1, DS_STORE = 2 };                          // <ds>
enum : unsigned { BFR_FLUSH = 0 };                                                      // <bfr>
enum : int { CLASS_DISPLAY = 0, CLASS_SIM = 2, CLASS_TERMINAL = 3 }; // TS 23.038, 4

constexpr std::size_t HELD_MAX = 100;

// TS 27.005, 3.4.1, <mt>. A class 0 message is for the display; a modem has none and hands it over.
bool isRouted(unsigned mt, std::uint8_t dcs) {
    const std::optional<int> type = messageClass(dcs);
    switch (mt) {
    case MT_SILENT: return false;
    case MT_ROUTE: return type != CLASS_SIM && !isStoredIndication(dcs);
    case MT_ROUTE_CLASS_3: return type == CLASS_DISPLAY || type == CLASS_TERMINAL;
    default: return type == CLASS_DISPLAY;
    }
}

std::string withPdu(std::string header, const Pdu &pdu) {
    return std::move(header) + std::to_string(pdu.tpdu.size()) + "\n" + pdu.text();
}

// False when the storage has no room.
bool storeIncoming(Modem &modem, Storage &storage, const Pdu &pdu, std::string_view announcement) {
    const auto index = storage.add({MessageStatus::unread, pdu});
    if (!index) { return false; }
    if (!announcement.empty()) {
        indicate(modem, std::string(announcement) + inQuotes(storage.name()) + "," +
                            std::to_string(*index));
    }
    return true;
}

bool receiveMessage(Modem &modem, const Pdu &pdu) {
    const unsigned mt = modem.settings.indications.mt;
    const std::uint8_t dcs = deliverCoding(pdu.tpdu);
    if (isRouted(mt, dcs)) {
        indicate(modem, withPdu("+CMT: ,", pdu));
        return true;
    }
    Storage &storage =
        messageClass(dcs) == CLASS_SIM ? *modem.findStorage("SM") : modem.storage(USE_RECEIVE);
    return storeIncoming(modem, storage, pdu, mt == MT_SILENT ? "" : "+CMTI: ");
}

bool receiveReport(Modem &modem, const Pdu &pdu) {
    switch (modem.settings.indications.ds) {
    case DS_ROUTE: indicate(modem, withPdu("+CDS: ", pdu)); return true;
    case DS_STORE: return storeIncoming(modem, modem.storage(USE_RECEIVE), pdu, "+CDSI: ");
    default: return true;
    }
}

bool receive(Modem &modem, const Incoming &incoming) {
    return incoming.kind == Incoming::Kind::message ? receiveMessage(modem, incoming.pdu)
                                                    : receiveReport(modem, incoming.pdu);
}

bool isOwnNumber(const Modem &modem, OctetView destination) {
    const std::string digits = addressDigits(destination);
    const std::string own = addressDigits(addressField(modem.number));
    return isSameNumber(digits, own);
}

} // namespace

bool isSameNumber(std::string_view digits, std::string_view otherDigits) {
    static constexpr std::size_t COMPARED = 9, NEEDED = 7;
    if (digits == otherDigits) { return !digits.empty(); }
    const std::size_t count = std::min({COMPARED, digits.size(), otherDigits.size()});
    return count >= NEEDED &&
           digits.substr(digits.size() - count) == otherDigits.substr(otherDigits.size() - count);
}

std::uint8_t sendMessage(Modem &modem, const Submit &submit, const Octets &serviceCentre) {
    const NetworkTime now = NetworkTime::local(modem.clock.wallSeconds());
    modem.lastReference++;
    std::optional<Pdu> report;
    if (submit.reportRequested) {
        report = Pdu{serviceCentre, statusReportTpdu(submit.destination, modem.lastReference, now)};
    }
    if (isOwnNumber(modem, submit.destination)) {
        const Octets tpdu = deliverTpdu(submit, addressField(modem.number), now);
        modem.pending.push_back({
            Incoming::Kind::message, {serviceCentre, tpdu},
             report
        });
    } else if (report) {
        modem.pending.push_back({Incoming::Kind::report, *report, std::nullopt});
    }
    receivePending(modem);
    return modem.lastReference;
}

void receivePending(Modem &modem) {
    if (!modem.isRegistered()) { return; }
    std::deque<Incoming> waiting;
    waiting.swap(modem.pending);
    for (; !waiting.empty(); waiting.pop_front()) {
        Incoming &incoming = waiting.front();
        if (!receive(modem, incoming)) {
            modem.pending.push_back(std::move(incoming));
        } else if (incoming.report) {
            const Incoming report{Incoming::Kind::report, *incoming.report, std::nullopt};
            if (!receive(modem, report)) { modem.pending.push_back(report); }
        }
    }
}

void receiveUssd(Modem &modem) {
    const auto coming = std::exchange(modem.ussd.coming, std::nullopt);
    if (coming && modem.settings.ussdPresentation != 0) {
        modem.unsolicited.push_back(ussdLine(*coming, modem.settings.charset));
    }
}

void indicate(Modem &modem, std::string text) {
    if (modem.settings.indications.mode != MODE_HOLD) {
        modem.unsolicited.push_back(std::move(text));
        return;
    }
    if (modem.held.size() == HELD_MAX) { modem.held.pop_front(); }
    modem.held.push_back(std::move(text));
}

void releaseHeld(Modem &modem) {
    if (modem.settings.indications.mode == MODE_HOLD) { return; }
    if (modem.settings.indications.bfr == BFR_FLUSH) {
        for (std::string &text : modem.held) { modem.unsolicited.push_back(std::move(text)); }
    }
    modem.held.clear();
}

} // namespace smspb::simmodem
