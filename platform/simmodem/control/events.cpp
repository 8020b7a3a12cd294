#include "platform/simmodem/control/events.h"

#include "platform/simmodem/control/status.h"
#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/broadcast.h"
#include "platform/simmodem/network/message_text.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/text.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace smspb::simmodem {
namespace {

using Json = nlohmann::json;

[[noreturn]] void refuse(const std::string &what) { throw std::invalid_argument(what); }

std::string textOf(const Json &event, const char *name, const std::string &otherwise) {
    const auto found = event.find(name);
    if (found == event.end()) { return otherwise; }
    if (!found->is_string()) { refuse(std::string("\"") + name + "\" is no text"); }
    return found->get<std::string>();
}

std::string textOf(const Json &event, const char *name) {
    if (!event.contains(name)) { refuse(std::string("\"") + name + "\" is missing"); }
    return textOf(event, name, "");
}

unsigned numberOf(const Json &event, const char *name, unsigned max, unsigned otherwise) {
    const auto found = event.find(name);
    if (found == event.end()) { return otherwise; }
    if (!found->is_number_unsigned() || found->get<std::uint64_t>() > max) {
        refuse(std::string("\"") + name + "\" is a number from 0 to " + std::to_string(max));
    }
    return found->get<unsigned>();
}

std::u16string unitsOf(const Json &event, const char *name) {
    auto units = fromUtf8(textOf(event, name));
    if (!units) { refuse(std::string("\"") + name + "\" is no UTF-8"); }
    return std::move(*units);
}

Coding codingOf(const Json &event) {
    const std::string coding = textOf(event, "coding", "auto");
    if (coding == "auto") { return Coding::automatic; }
    if (coding == "gsm") { return Coding::gsm; }
    if (coding == "ucs2") { return Coding::ucs2; }
    refuse("\"" + coding + "\" is no coding: auto, gsm or ucs2");
}

Octets originator(const std::string &from) {
    constexpr std::size_t SENDER_CHARACTERS_MAX = 11;
    if (isNumber(from)) { return addressField(from); }
    const auto units = fromUtf8(from);
    const auto septets = units ? toSeptets(*units) : std::nullopt;
    if (!septets || septets->empty() || septets->size() > SENDER_CHARACTERS_MAX) {
        refuse("\"" + from + "\" is no sender: a number, or 11 characters of the GSM alphabet");
    }
    return alphanumericField(*septets);
}

// "+05:45" in quarter hours.
int quarterHours(const std::string &zone) {
    constexpr int QUARTERS_MAX = 79; // what TP-SCTS can hold
    int hours = 0;
    int minutes = 0;
    char sign = 0;
    const int fields = std::sscanf(zone.c_str(), "%c%2d:%2d", &sign, &hours, &minutes);
    const int quarters = hours * 4 + minutes / 15;
    const bool digits = zone.find_first_not_of("0123456789", 1) == 3 && zone.size() == 6 &&
                        isDigit(zone[4]) && isDigit(zone[5]);
    if (fields != 3 || !digits || (sign != '+' && sign != '-') || minutes % 15 != 0 ||
        minutes > 45 || quarters > QUARTERS_MAX) {
        refuse("\"" + zone + "\" is no zone: +01:00, in quarter hours, 19:45 at most");
    }
    return sign == '-' ? -quarters : quarters;
}

// The clock as it stands there: "2026-11-21 10:00:00".
std::tm clockOf(const std::string &text) {
    std::tm clock{};
    const char *const end = ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &clock);
    std::tm asIs = clock;
    const bool isDate = ::timegm(&asIs) != -1 && asIs.tm_mday == clock.tm_mday &&
                        asIs.tm_sec == clock.tm_sec && clock.tm_year >= 100 && clock.tm_year < 200;
    if (end == nullptr || *end != '\0' || !isDate) {
        refuse("\"" + text + "\" is no time: 2026-11-21 10:00:00");
    }
    return clock;
}

NetworkTime timeOf(const Modem &modem, const Json &event) {
    constexpr long QUARTER_HOUR = 15L * 60;
    const std::time_t now = modem.clock.wallSeconds();
    NetworkTime time = NetworkTime::local(now);
    if (event.contains("zone")) {
        time.quarterHours = quarterHours(textOf(event, "zone"));
        const std::time_t there = now + time.quarterHours * QUARTER_HOUR;
        ::gmtime_r(&there, &time.clock);
    }
    if (event.contains("time")) { time.clock = clockOf(textOf(event, "time")); }
    return time;
}

void arrive(Modem &modem, Incoming::Kind kind, Octets tpdu) {
    modem.pending.push_back({
        kind, {serviceCentreField(modem.serviceCentre), std::move(tpdu)},
         std::nullopt
    });
    receivePending(modem);
}

Json message(Modem &modem, const Json &event) {
    constexpr unsigned CLASS_MAX = 3;
    const Octets from = originator(textOf(event, "from"));
    const std::optional<int> messageClass =
        event.contains("class")
            ? std::optional(static_cast<int>(numberOf(event, "class", CLASS_MAX, 0)))
            : std::nullopt;
    const NetworkTime time = timeOf(modem, event);
    const auto parts = messageParts(unitsOf(event, "text"), codingOf(event), messageClass,
                                    modem.nextConcatenation);
    if (!parts) {
        refuse("the text does not fit: 255 parts at most, and the GSM alphabet for gsm");
    }
    if (parts->size() > 1) { modem.nextConcatenation++; }
    for (const Submit &part : *parts) {
        arrive(modem, Incoming::Kind::message, deliverTpdu(part, from, time));
    }
    return {
        {"parts", parts->size()}
    };
}

Json pdu(Modem &modem, const Json &event) {
    const std::string hex = textOf(event, "pdu");
    const auto octets = pduFromText("00" + hex, hex.size() / 2);
    if (!octets) { refuse("\"" + hex + "\" is no TPDU in hexadecimal, without a service centre"); }
    if (isTpdu(TpduType::deliver, octets->tpdu)) {
        arrive(modem, Incoming::Kind::message, octets->tpdu);
    } else if (isTpdu(TpduType::statusReport, octets->tpdu)) {
        arrive(modem, Incoming::Kind::report, octets->tpdu);
    } else {
        refuse("the TPDU is neither a whole DELIVER nor a whole STATUS-REPORT");
    }
    return Json::object();
}

Json report(Modem &modem, const Json &event) {
    constexpr unsigned OCTET_MAX = 255;
    if (!event.contains("reference")) { refuse("\"reference\" is missing"); }
    const std::string to = textOf(event, "to", modem.number);
    if (!isNumber(to)) { refuse("\"" + to + "\" is no number"); }
    const auto reference = static_cast<std::uint8_t>(numberOf(event, "reference", OCTET_MAX, 0));
    const auto status = static_cast<std::uint8_t>(numberOf(event, "status", OCTET_MAX, 0));
    arrive(modem, Incoming::Kind::report,
           statusReportTpdu(addressField(to), reference, timeOf(modem, event), status));
    return Json::object();
}

Json page(Modem &modem, const Json &event) {
    constexpr unsigned WORD_MAX = 0xFFFF;
    const std::u16string text = unitsOf(event, "text");
    const Coding coding = codingOf(event);
    Broadcast broadcast;
    broadcast.identifier = static_cast<std::uint16_t>(numberOf(event, "id", WORD_MAX, 50));
    broadcast.serialNumber =
        static_cast<std::uint16_t>(numberOf(event, "serial", WORD_MAX, modem.nextSerialNumber));
    broadcast.ucs2 = coding == Coding::ucs2 || (coding == Coding::automatic && !toSeptets(text));
    const auto pages = broadcastPages(broadcast, text);
    if (!pages) { refuse("the text does not fit: 15 pages at most, and the GSM alphabet for gsm"); }
    if (!event.contains("serial")) { modem.nextSerialNumber++; }
    std::size_t received = 0;
    for (const Octets &octets : *pages) { received += receivePage(modem, octets) ? 1 : 0; }
    return {
        {   "pages", pages->size()},
        {"received",      received}
    };
}

Json ring(Modem &modem, const Json &event) {
    const std::string number = textOf(event, "number", "");
    if (!number.empty() && !isNumber(number)) { refuse("\"" + number + "\" is no number"); }
    modem.unsolicited.push_back(modem.settings.extendedRing ? "+CRING: VOICE" : "RING");
    if (modem.settings.callerNumber) {
        const bool international = number.starts_with('+');
        const std::string type = number.empty() ? ",128" : international ? ",145" : ",129";
        modem.unsolicited.push_back("+CLIP: " + inQuotes(std::string_view(number)) + type);
    }
    return Json::object();
}

Json ussd(Modem &modem, const Json &event) {
    constexpr unsigned STATUS_MAX = 5;
    constexpr unsigned DCS_DEFAULT = 15, DCS_UCS2 = 72;
    UssdAnswer answer;
    answer.status = numberOf(event, "status", STATUS_MAX, 0);
    answer.form = event.contains("text") ? UssdAnswer::Form::text : UssdAnswer::Form::none;
    if (event.contains("text")) { answer.text = unitsOf(event, "text"); }
    const unsigned dcs = numberOf(event, "dcs", 255, DCS_DEFAULT);
    if (dcs != DCS_DEFAULT && dcs != DCS_UCS2) { refuse("\"dcs\" is 15, or 72 for UCS-2"); }
    if (dcs == DCS_UCS2 && event.contains("text")) { answer.form = UssdAnswer::Form::ucs2; }
    if (answer.form == UssdAnswer::Form::text && !toSeptets(answer.text)) {
        answer.form = UssdAnswer::Form::ucs2;
    }
    const std::string code = textOf(event, "code", "network"); // the replies stand behind it
    if (code.empty()) {
        refuse("\"code\" is empty: the code that the script has before the \"/\"");
    }
    if (modem.settings.ussdPresentation == 0) {
        return {
            {"shown", false}
        };
    }
    const bool waits = answer.status == static_cast<unsigned>(UssdStatus::waits);
    modem.ussd.path = waits ? code : std::string();
    modem.unsolicited.push_back(ussdLine(answer, modem.settings.charset));
    return {
        {"shown", true}
    };
}

Json sim(Modem &modem, const Json &event) {
    const std::string action = textOf(event, "action");
    if (action != "remove" && action != "insert") {
        refuse("\"" + action + "\" is neither remove nor insert");
    }
    const bool wasPresent = std::exchange(modem.simPresent, action == "insert");
    if (wasPresent && !modem.simPresent) { modem.unsolicited.push_back("Sim card removed"); }
    if (!wasPresent && modem.simPresent) {
        modem.unsolicited.push_back("+CPIN: READY");
        receivePending(modem);
    }
    reportRegistration(modem);
    return Json::object();
}

StoredMessage filler(const Modem &modem) {
    const auto parts = messageParts(u"Filled.", Coding::gsm, std::nullopt, 0);
    const Octets tpdu = deliverTpdu(parts->front(), addressField(modem.number),
                                    NetworkTime::local(modem.clock.wallSeconds()));
    return {
        MessageStatus::read, {serviceCentreField(modem.serviceCentre), tpdu}
    };
}

Json storage(Modem &modem, const Json &event) {
    const std::string action = textOf(event, "action");
    std::string name = textOf(event, "name");
    for (char &c : name) { c = upper(c); }
    Storage *const found = modem.findStorage(name);
    if (found == nullptr) { refuse("\"" + name + "\" is no storage: SM or ME"); }
    if (action == "fill") {
        while (found->add(filler(modem))) {}
    } else if (action == "clear") {
        for (std::size_t i = 1; i <= found->size(); i++) { found->remove(i); }
        receivePending(modem);
    } else {
        refuse("\"" + action + "\" is neither fill nor clear");
    }
    return {
        {"used", found->used()},
        {"size", found->size()}
    };
}

Json fault(Modem &modem, const Json &event) {
    const std::string text = textOf(event, "fault");
    if (text == "clear") {
        modem.faults.clear();
        return Json::object();
    }
    const std::string wrong = modem.faults.add(text);
    if (!wrong.empty()) { refuse(wrong); }
    return Json::object();
}

// All of them or none.
Json faults(Modem &modem, const Json &event) {
    const auto texts = event.find("faults");
    if (texts == event.end() || !texts->is_array()) { refuse("\"faults\" is no list of faults"); }
    for (const Json &text : *texts) {
        if (!text.is_string()) { refuse("\"faults\" has what is no text"); }
        const std::string wrong = Faults().add(text.get<std::string>());
        if (!wrong.empty()) { refuse(wrong); }
    }
    for (const Json &text : *texts) { modem.faults.add(text.get<std::string>()); }
    return {
        {"faults", texts->size()}
    };
}

Json reset(Modem &modem, const Json &event) {
    modem.forgetSettings(withLineEnds(textOf(event, "text", "")));
    receivePending(modem);
    return Json::object();
}

Json raw(Modem &modem, const Json &event) {
    modem.unsolicited.push_back(withLineEnds(textOf(event, "line")));
    return Json::object();
}

Json advance(Modem &modem, const Json &event) {
    const std::string text = textOf(event, "by");
    const auto by = parseDuration(text);
    if (!by) {
        refuse("\"" + text + "\" is no time: 90 or 90s, 250ms, 5m, 1h, 1d, a year at most");
    }
    if (!modem.clock.isDriven()) {
        refuse("the clock runs by itself: start the modem with --clock driven");
    }
    if (!modem.clock.advance(*by)) { refuse("the modem's time ends with the year 2099"); }
    return {
        {"now", isoTime(modem.clock.wallTime())}
    };
}

Json status(Modem &modem, const Json & /*event*/) { return statusOf(modem); }

struct Row {
    const char *name;
    Json (*carryOut)(Modem &, const Json &);
};

constexpr std::array<Row, 14> EVENTS{
    {
     {"text", message},
     {"pdu", pdu},
     {"report", report},
     {"page", page},
     {"ring", ring},
     {"ussd", ussd},
     {"sim", sim},
     {"storage", storage},
     {"fault", fault},
     {"faults", faults},
     {"reset", reset},
     {"raw", raw},
     {"advance", advance},
     {"status", status},
     }
};

} // namespace

nlohmann::json carryOutEvent(Modem &modem, const nlohmann::json &event) {
    if (!event.is_object()) { refuse("an event is a JSON object with its name under \"event\""); }
    const std::string name = textOf(event, "event");
    for (const Row &row : EVENTS) {
        if (name == row.name) { return row.carryOut(modem, event); }
    }
    refuse("there is no event \"" + name + "\"");
}

} // namespace smspb::simmodem
