#include "platform/simmodem/network/network.h"

#include "platform/simmodem/commands/message_show.h"
#include "platform/simmodem/network/acknowledgement.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <utility>

namespace smspb::simmodem {
namespace {

enum : unsigned { MODE_HOLD = 0 }; // +CNMI <mode>
enum : unsigned { MT_SILENT = 0, MT_INDICATE = 1, MT_ROUTE = 2, MT_ROUTE_CLASS_3 = 3 }; // <mt>
enum : unsigned { DS_SILENT = 0, DS_ROUTE = 1, DS_STORE = 2 };                          // <ds>
enum : unsigned { BFR_FLUSH = 0 };                                                      // <bfr>
enum : int { CLASS_DISPLAY = 0, CLASS_SIM = 2, CLASS_TERMINAL = 3 }; // TS 23.038, 4

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

enum class Outcome { waits, received, awaitsAcknowledgement };

// Shows a message and has no more to do with it, unless the terminal is to acknowledge it.
Outcome handOver(Modem &modem, const Incoming &incoming) {
    if (!mayHandOver(modem)) { return Outcome::waits; }
    indicate(modem, incoming.kind == Incoming::Kind::message
                        ? messageIndication(modem, incoming.pdu)
                        : reportIndication(modem, incoming.pdu));
    if (!modem.settings.acknowledges) { return Outcome::received; }
    modem.unacknowledged = incoming;
    return Outcome::awaitsAcknowledgement;
}

// The storages that +CPMS <mem3> stands for, by their index, in the order in which they are filled.
std::vector<std::size_t> receiveStorages(const Modem &modem) {
    const std::size_t chosen = modem.selected.at(USE_RECEIVE);
    if (chosen < modem.storages.size()) { return {chosen}; }
    return {0, 1};
}

// Into the first that has room. The announcement names the storage itself, so that a program that
// knows no "MT" finds the message.
Outcome store(Modem &modem, const std::vector<std::size_t> &storages, const Pdu &pdu,
              std::string_view announcement) {
    for (const std::size_t named : storages) {
        const StorageView storage = modem.view(named);
        const auto index = storage.add({MessageStatus::unread, pdu});
        if (!index) { continue; }
        if (!announcement.empty()) {
            indicate(modem, std::string(announcement) + inQuotes(storage.name()) + "," +
                                std::to_string(*index));
        }
        return Outcome::received;
    }
    return Outcome::waits;
}

Outcome receiveMessage(Modem &modem, const Incoming &incoming) {
    static constexpr std::size_t SIM = 1; // in Modem::storages
    const unsigned mt = modem.settings.indications.mt;
    const auto fields = fieldsOf(incoming.pdu.tpdu);
    const std::uint8_t dcs = fields ? fields->dcs : std::uint8_t{0};
    if (isRouted(mt, dcs)) { return handOver(modem, incoming); }
    return store(modem, messageClass(dcs) == CLASS_SIM ? std::vector{SIM} : receiveStorages(modem),
                 incoming.pdu, mt == MT_SILENT ? "" : "+CMTI: ");
}

Outcome receiveReport(Modem &modem, const Incoming &incoming) {
    switch (modem.settings.indications.ds) {
    case DS_ROUTE: return handOver(modem, incoming);
    case DS_STORE: return store(modem, receiveStorages(modem), incoming.pdu, "+CDSI: ");
    default: return Outcome::received;
    }
}

Outcome receive(Modem &modem, const Incoming &incoming) {
    return incoming.kind == Incoming::Kind::message ? receiveMessage(modem, incoming)
                                                    : receiveReport(modem, incoming);
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
    settleUnacknowledged(modem);
    if (!modem.isRegistered()) { return; }
    std::deque<Incoming> waiting;
    waiting.swap(modem.pending);
    for (; !waiting.empty(); waiting.pop_front()) {
        Incoming &incoming = waiting.front();
        const Outcome outcome = receive(modem, incoming);
        if (outcome == Outcome::waits) {
            modem.pending.push_back(std::move(incoming));
        } else if (outcome == Outcome::received && incoming.report) {
            const Incoming report{Incoming::Kind::report, *incoming.report, std::nullopt};
            if (receive(modem, report) == Outcome::waits) { modem.pending.push_back(report); }
        }
    }
}

void receiveUssd(Modem &modem) {
    const auto coming = std::exchange(modem.ussd.coming, std::nullopt);
    if (coming && modem.settings.ussdPresentation != 0) {
        modem.unsolicited.push_back(ussdLine(*coming, modem.settings.charset));
    }
}

bool holdsBack(const Modem &modem) { return modem.settings.indications.mode == MODE_HOLD; }

std::string registrationState(bool isRegistered, unsigned reports) {
    static constexpr unsigned WITH_CELL = 2;
    if (!isRegistered) { return "0"; }
    return reports == WITH_CELL ? R"(1,"00C3","000012AB")" : "1";
}

void reportRegistration(Modem &modem) {
    const auto report = [&](bool &shown, bool isNow, unsigned reports, std::string_view name) {
        if (std::exchange(shown, isNow) == isNow || reports == 0) { return; }
        modem.unsolicited.push_back(std::string(name) + registrationState(isNow, reports));
    };
    const Settings &settings = modem.settings;
    report(modem.isShownRegistered, modem.isRegistered(), settings.registrationReports, "+CREG: ");
    report(modem.isShownAttached, modem.isPacketRegistered(), settings.packetReports, "+CGREG: ");
}

void indicate(Modem &modem, std::string text) {
    if (!holdsBack(modem)) {
        modem.unsolicited.push_back(std::move(text));
        return;
    }
    if (modem.held.size() == HELD_MAX) { modem.held.pop_front(); }
    modem.held.push_back(std::move(text));
}

void releaseHeld(Modem &modem) {
    if (holdsBack(modem)) { return; }
    if (modem.settings.indications.bfr == BFR_FLUSH) {
        for (std::string &text : modem.held) { modem.unsolicited.push_back(std::move(text)); }
    }
    modem.held.clear();
}

} // namespace smspb::simmodem
