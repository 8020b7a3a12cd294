// The TPDUs of TS 23.040 as the network behind the modem sees them: a SUBMIT comes in, a DELIVER
// and a STATUS-REPORT go out. User data travels octet by octet, header included, so nothing here
// knows characters. Written apart from the library's own coders on purpose: what one side gets
// wrong the other does not undo.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::simmodem {

using Octets = std::vector<std::uint8_t>;
using OctetView = std::span<const std::uint8_t>;

enum : std::size_t {
    TPDU_OCTETS_MAX = 164,      // a SUBMIT with the longest address, validity and user data
    USER_DATA_OCTETS_MAX = 140, // TS 23.040, 9.2.3.24
    NUMBER_DIGITS_MAX = 20
};

// What TP-MTI says of a TPDU that is sent (SUBMIT) or received (the others).
enum class TpduType { deliver, submit, statusReport };

// A message as the AT interface carries it (TS 27.005, 3.1, <pdu>).
struct Pdu {
    Octets serviceCentre; // with its length octet; {0} for none
    Octets tpdu;

    std::string text() const; // upper-case hexadecimal

    bool operator==(const Pdu &) const = default;
};

// SMS-SUBMIT, TS 23.040, 9.2.2.2.
struct Submit {
    bool replyPath = false, headerPresent = false, reportRequested = false;
    Octets destination; // TP-DA, from its length octet on
    std::uint8_t pid = 0, dcs = 0;
    std::uint8_t userDataLength = 0; // TP-UDL: septets or octets, by the coding scheme
    Octets userData;
};

// Reads hexadecimal text, line ends and blanks skipped. Nothing unless it is whole octets that hold
// a service-centre address and exactly `tpduLength` octets behind it.
std::optional<Pdu> pduFromText(std::string_view text, std::size_t tpduLength);

// Octets from hexadecimal digits; blanks and line ends mean nothing. Nothing for other characters
// and half an octet.
std::optional<Octets> octetsFromHex(std::string_view text);

// The fields of a TPDU where they stand in its octets. A type without a field has it empty or 0.
struct TpduFields {
    TpduType type = TpduType::deliver;
    std::uint8_t first = 0;     // TP-MTI and the flags
    std::uint8_t reference = 0; // TP-MR
    OctetView address;          // TP-OA, TP-DA or TP-RA
    std::uint8_t pid = 0, dcs = 0;
    OctetView validity;             // TP-VP: none, 1 or 7 octets
    OctetView timestamp, discharge; // TP-SCTS, TP-DT
    std::uint8_t status = 0;        // TP-ST
    std::uint8_t userDataLength = 0;
    OctetView userData;

    bool hasHeader() const;  // TP-UDHI
    bool hasSeptets() const; // the user data is nothing but characters of the GSM alphabet
};

// Nothing for octets that are no whole TPDU of one of the types.
std::optional<TpduFields> fieldsOf(OctetView tpdu);

// Nothing for another type, or when the fields do not add up to the octets.
std::optional<Submit> submitFromTpdu(OctetView tpdu);

// True when the octets are a whole TPDU of that type.
bool isTpdu(TpduType type, OctetView tpdu);

// True for a whole SMS-DELIVER-REPORT (TS 23.040, 9.2.2.1a), of an error or without one.
bool isDeliverReport(OctetView tpdu, bool ofError);

// TP-SCTS (TS 23.040, 9.2.3.11): the clock as it stands somewhere, and how far that is from GMT.
struct NetworkTime {
    std::tm clock{};
    int quarterHours = 0;

    static NetworkTime local(std::time_t time);
};
Octets timestamp(const NetworkTime &time);

// Both ways: "yy/MM/dd,hh:mm:ss+zz" (TS 27.005, 3.1, <dt>), the zone in quarter hours, and the
// seven octets of it. An octet that is no number shows as "??"; a text that is no time gives
// nothing.
std::string timestampText(OctetView timestamp);
std::optional<Octets> timestampFromText(std::string_view text);

// The SUBMIT of these fields; TP-MR is 0.
Octets submitTpdu(const TpduFields &fields);

// The DELIVER that `submit` becomes, from `originator` (an address field) at `time`.
Octets deliverTpdu(const Submit &submit, OctetView originator, const NetworkTime &time);
Octets deliverTpdu(const Submit &submit, OctetView originator, OctetView time);

// The report that what was sent to `destination` (an address field) under `reference` came to an
// end at `time`. `status` is TP-ST (9.2.3.15): 0 for received.
Octets statusReportTpdu(OctetView destination, std::uint8_t reference, const NetworkTime &time,
                        std::uint8_t status = 0);

// TP-OA, TP-DA, TP-RA (TS 23.040, 9.1.2.5) of a number of digits, "+" first when international.
Octets addressField(std::string_view number);

// TP-OA of a sender who has a name instead of a number: 11 characters at most of the GSM alphabet,
// as septets.
Octets alphanumericField(OctetView septets);

// The digits of an address field; empty for an alphanumeric one.
std::string addressDigits(OctetView field);

// The septets of the name in an alphanumeric address field.
Octets addressSeptets(OctetView field);

// Type-of-address octets (TS 24.011, 8.2.5.2).
bool isInternational(std::uint8_t type);
bool isAlphanumeric(std::uint8_t type);

// The service-centre part of a PDU text: the length counts octets here, not digits.
Octets serviceCentreField(std::string_view number);

// "+" and digits, or digits, 20 at most.
bool isNumber(std::string_view text);

// TP-DCS (TS 23.038, 4): the message class, nothing without one.
std::optional<int> messageClass(std::uint8_t dcs);

// True when TP-UDL counts septets of the GSM alphabet, false when it counts octets.
bool countsSeptets(std::uint8_t dcs);

// A message-waiting indication that is to be stored (TS 23.038, 4: groups 1101 and 1110).
bool isStoredIndication(std::uint8_t dcs);

} // namespace smspb::simmodem
