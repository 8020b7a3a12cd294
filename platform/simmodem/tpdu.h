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

// Nothing for another type, or when the fields do not add up to the octets.
std::optional<Submit> submitFromTpdu(OctetView tpdu);

// True when the octets are a whole TPDU of that type.
bool isTpdu(TpduType type, OctetView tpdu);

// TP-SCTS (TS 23.040, 9.2.3.11): the clock as it stands somewhere, and how far that is from GMT.
struct NetworkTime {
    std::tm clock{};
    int quarterHours = 0;

    static NetworkTime local(std::time_t time);
};
Octets timestamp(const NetworkTime &time);

// The DELIVER that `submit` becomes, from `originator` (an address field) at `time`.
Octets deliverTpdu(const Submit &submit, OctetView originator, const NetworkTime &time);

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

// The service-centre part of a PDU text: the length counts octets here, not digits.
Octets serviceCentreField(std::string_view number);

// "+" and digits, or digits, 20 at most.
bool isNumber(std::string_view text);

// TP-DCS (TS 23.038, 4): the message class, nothing without one.
std::optional<int> messageClass(std::uint8_t dcs);

// A message-waiting indication that is to be stored (TS 23.038, 4: groups 1101 and 1110).
bool isStoredIndication(std::uint8_t dcs);

// TP-DCS of a DELIVER; 0 for octets that are none.
std::uint8_t deliverCoding(OctetView tpdu);

} // namespace smspb::simmodem
