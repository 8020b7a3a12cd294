#include "platform/simmodem/commands/message_show.h"

#include "platform/simmodem/commands/terminal_number.h"
#include "platform/simmodem/line/reply.h"
#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/broadcast.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/text.h"

namespace smspb::simmodem {
namespace {

// TS 23.041, 9.4.1.
constexpr std::size_t PAGE_HEADER_OCTETS = 6, PAGE_SEPTETS = 93;

std::string withPdu(std::string header, const Pdu &pdu) {
    return std::move(header) + std::to_string(pdu.tpdu.size()) + "\n" + pdu.text();
}

// A line feed of the message is one on the line too, and no end of an information line.
std::string literal(std::string_view text) {
    std::string out;
    for (const char c : text) { out += c == '\n' ? LITERAL_LINE_FEED : std::string_view(&c, 1); }
    return out;
}

// <data> of characters (3.1), each in the terminal's set.
std::string characters(const Settings &settings, OctetView septets) {
    if (settings.charset == "HEX") { return toHex(septets); }
    if (settings.charset == "GSM") { return literal(std::string(septets.begin(), septets.end())); }
    return literal(toTerminal(settings.charset, fromSeptets(septets)));
}

// <data> and <cdata>: characters of the GSM alphabet, otherwise octets in hexadecimal.
std::string bodyOf(const Settings &settings, const TpduFields &fields) {
    if (!fields.hasSeptets()) { return toHex(fields.userData); }
    return characters(settings, unpackSeptets(fields.userData, fields.userDataLength));
}

struct Address {
    std::u16string text;
    unsigned type = TYPE_OF_NATIONAL;
};

Address addressOf(OctetView field) {
    Address address;
    if (field.size() < 2) { return address; }
    address.type = field[1];
    if (isAlphanumeric(field[1])) {
        address.text = fromSeptets(addressSeptets(field));
        return address;
    }
    const std::string digits = addressDigits(field);
    if (isInternational(field[1]) && !digits.empty()) { address.text = u"+"; }
    address.text.append(digits.begin(), digits.end());
    return address;
}

// The service centre as an address field: the length counts octets there.
Address centreOf(OctetView centre) {
    if (centre.size() < 2) { return {}; }
    Octets field(centre.begin(), centre.end());
    field.front() = static_cast<std::uint8_t>((centre.size() - 2) * 2);
    return addressOf(field);
}

// <alpha>: the name in the phonebook, of which the chosen one comes first; empty without one.
std::string nameOf(const Modem &modem, OctetView field) {
    const std::string digits = addressDigits(field);
    for (std::size_t i = 0; i < modem.phonebooks.size(); i++) {
        const Phonebook &book =
            modem.phonebooks.at((modem.selectedPhonebook + i) % modem.phonebooks.size());
        for (std::size_t index = 1; index <= book.size(); index++) {
            const Contact *const contact = book.find(index);
            if (contact == nullptr || contact->name.empty()) { continue; }
            const std::string_view number = contact->number;
            const bool signedNumber = number.starts_with('+');
            if (isSameNumber(digits, number.substr(signedNumber ? 1 : 0))) {
                return quotedText(modem.settings, contact->name);
            }
        }
    }
    return {};
}

std::string number(std::size_t value) { return std::to_string(value); }

// <vp>: by the octets of TP-VP. An enhanced one is hexadecimal.
std::string validityOf(const TpduFields &fields) {
    static constexpr unsigned FORMAT = 0x18, ABSOLUTE = 0x18; // TS 23.040, 9.2.3.3
    if (fields.validity.empty()) { return {}; }
    if (fields.validity.size() == 1) { return number(fields.validity.front()); }
    return inQuotes((fields.first & FORMAT) == ABSOLUTE ? timestampText(fields.validity)
                                                        : toHex(fields.validity));
}

// What +CSDH 1 adds to one message: type of address, first octet, protocol, coding, validity of a
// SUBMIT, service centre with its type, length as TP-UDL counts it.
std::string details(const Modem &modem, const Pdu &pdu, const TpduFields &fields) {
    if (!modem.settings.showsTextDetails) { return {}; }
    const Address centre = centreOf(pdu.serviceCentre);
    std::string text = "," + number(addressOf(fields.address).type) + "," + number(fields.first) +
                       "," + number(fields.pid) + "," + number(fields.dcs);
    if (fields.type == TpduType::submit) { text += "," + validityOf(fields); }
    return text + "," + quotedText(modem.settings, centre.text) + "," + number(centre.type) + "," +
           number(fields.userDataLength);
}

std::string addressAndName(const Modem &modem, const TpduFields &fields) {
    return quotedText(modem.settings, addressOf(fields.address).text) + "," +
           nameOf(modem, fields.address);
}

// <fo>,<mr>,[<ra>],[<tora>],<scts>,<dt>,<st>
std::string reportLine(const Modem &modem, const TpduFields &fields) {
    const Address address = addressOf(fields.address);
    return number(fields.first) + "," + number(fields.reference) + "," +
           quotedText(modem.settings, address.text) + "," + number(address.type) + "," +
           inQuotes(timestampText(fields.timestamp)) + "," +
           inQuotes(timestampText(fields.discharge)) + "," + number(fields.status);
}

// <oa>,[<alpha>],<scts> with details, and <data>
std::string deliverLines(const Modem &modem, const Pdu &pdu, const TpduFields &fields) {
    return addressAndName(modem, fields) + "," + inQuotes(timestampText(fields.timestamp)) +
           details(modem, pdu, fields) + "\n" + bodyOf(modem.settings, fields);
}

std::string textRead(const Modem &modem, const Pdu &pdu, const TpduFields &fields) {
    switch (fields.type) {
    case TpduType::statusReport: return reportLine(modem, fields);
    case TpduType::deliver: return deliverLines(modem, pdu, fields);
    case TpduType::submit: break;
    }
    return addressAndName(modem, fields) + details(modem, pdu, fields) + "\n" +
           bodyOf(modem.settings, fields);
}

// <oa/da>,[<alpha>],[<scts>][,<tooa/toda>,<length>], and <data>
std::string textListed(const Modem &modem, const TpduFields &fields) {
    if (fields.type == TpduType::statusReport) { return reportLine(modem, fields); }
    std::string text = addressAndName(modem, fields) + ",";
    if (fields.type == TpduType::deliver) { text += inQuotes(timestampText(fields.timestamp)); }
    if (modem.settings.showsTextDetails) {
        text += "," + number(addressOf(fields.address).type) + "," + number(fields.userDataLength);
    }
    return text + "\n" + bodyOf(modem.settings, fields);
}

// Everything that is stored or received has been looked through.
TpduFields knownFields(const Pdu &pdu) { return fieldsOf(pdu.tpdu).value_or(TpduFields()); }

std::string pduStatus(const StoredMessage &message) {
    return number(static_cast<std::size_t>(message.status)) + ",,"; // no name
}

std::string textStatus(const StoredMessage &message) {
    return inQuotes(statusName(message.status)) + ",";
}

} // namespace

std::string shownMessage(const Modem &modem, const StoredMessage &message) {
    if (!modem.settings.textMode) { return withPdu(pduStatus(message), message.pdu); }
    return textStatus(message) + textRead(modem, message.pdu, knownFields(message.pdu));
}

std::string listedMessage(const Modem &modem, const StoredMessage &message) {
    if (!modem.settings.textMode) { return withPdu(pduStatus(message), message.pdu); }
    return textStatus(message) + textListed(modem, knownFields(message.pdu));
}

std::string messageIndication(const Modem &modem, const Pdu &pdu) {
    if (!modem.settings.textMode) { return withPdu("+CMT: ,", pdu); }
    return "+CMT: " + deliverLines(modem, pdu, knownFields(pdu));
}

std::string reportIndication(const Modem &modem, const Pdu &pdu) {
    if (!modem.settings.textMode) { return withPdu("+CDS: ", pdu); }
    return "+CDS: " + reportLine(modem, knownFields(pdu));
}

// <sn>,<mid>,<dcs>,<page>,<pages>, and <data>
std::string pageIndication(const Settings &settings, const Octets &page) {
    if (!settings.textMode) { return "+CBM: " + number(page.size()) + "\n" + toHex(page); }
    const OctetView content = OctetView(page).subspan(PAGE_HEADER_OCTETS);
    const std::uint8_t dcs = page[4];
    const std::uint8_t parameter = page[5]; // of, in the low half, pages
    const std::string body = isBroadcastText(dcs)
                                 ? characters(settings, unpackSeptets(content, PAGE_SEPTETS))
                                 : toHex(content);
    return "+CBM: " + number(std::size_t{page[0]} << 8U | page[1]) + "," +
           number(std::size_t{page[2]} << 8U | page[3]) + "," + number(dcs) + "," +
           number(parameter >> 4U) + "," + number(parameter & 0x0FU) + "\n" + body;
}

std::string_view statusName(MessageStatus status) {
    switch (status) {
    case MessageStatus::unread: return "REC UNREAD";
    case MessageStatus::read: return "REC READ";
    case MessageStatus::unsent: return "STO UNSENT";
    case MessageStatus::sent: return "STO SENT";
    }
    return {};
}

std::optional<MessageStatus> statusFromName(std::string_view name) {
    for (const MessageStatus status :
         {MessageStatus::unread, MessageStatus::read, MessageStatus::unsent, MessageStatus::sent}) {
        if (name == statusName(status)) { return status; }
    }
    return std::nullopt;
}

} // namespace smspb::simmodem
