#include "platform/simmodem/network/tpdu.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/octet_reader.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

namespace smspb::simmodem {
namespace {

// clang-format off
// TS 23.040, 9.2.3: first octet                     7 6 5 4 3 2 1 0
constexpr unsigned
    TP_MTI            = 0x03,  // message type       . . . . . . x x
    MTI_DELIVER       = 0x00,
    MTI_SUBMIT        = 0x01,
    MTI_STATUS_REPORT = 0x02,
    TP_MMS            = 0x04,  // 0 = more to follow . . . . . x . .  DELIVER, STATUS-REPORT
    TP_VPF            = 0x18,  // validity format    . . . x x . . .  SUBMIT
    TP_SRI            = 0x20,  // report asked for   . . x . . . . .  DELIVER
    TP_SRR            = 0x20,  // report asked for   . . x . . . . .  SUBMIT
    TP_UDHI           = 0x40,  // header present     . x . . . . . .
    TP_RP             = 0x80;  // reply path         x . . . . . . .

// TS 23.040, 9.1.2.5: type of address               7 6 5 4 3 2 1 0
constexpr unsigned
    TOA_ALWAYS        = 0x80,  //                    x . . . . . . .
    TOA_TYPE          = 0x70,  // type of number     . x x x . . . .
    TOA_INTERNATIONAL = 0x10,
    TOA_ALPHANUMERIC  = 0x50,
    TOA_TELEPHONE     = 0x01;  // numbering plan     . . . . x x x x
// clang-format on

constexpr std::uint8_t FILLER = 0x0F;
constexpr std::size_t TIMESTAMP_OCTETS = 7;       // TS 23.040, 9.2.3.11
constexpr unsigned ZONE_NEGATIVE = 0x08;          // in its last octet
constexpr std::size_t SERVICE_CENTRE_OCTETS = 11; // TS 24.011, 8.2.5.1: type and 20 digits

std::uint8_t low8(unsigned value) { return static_cast<std::uint8_t>(value & 0xFFU); }

unsigned flag(bool set, unsigned mask) { return set ? mask : 0U; }

Octets copyOf(OctetView octets) { return {octets.begin(), octets.end()}; }

void append(Octets &octets, OctetView more) {
    octets.insert(octets.end(), more.begin(), more.end());
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') { return c - '0'; }
    if (c >= 'A' && c <= 'F') { return c - 'A' + 10; }
    if (c >= 'a' && c <= 'f') { return c - 'a' + 10; }
    return -1;
}

void appendHex(std::string &text, OctetView octets) {
    static constexpr std::string_view DIGITS = "0123456789ABCDEF";
    for (const std::uint8_t octet : octets) {
        text += DIGITS[octet >> 4];
        text += DIGITS[octet & 0x0F];
    }
}

// TS 23.040, 9.1.2.3: the first digit in the low half.
Octets semiOctets(std::string_view digits) {
    Octets octets;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const unsigned first = static_cast<unsigned>(digits[i] - '0');
        const unsigned second =
            i + 1 < digits.size() ? static_cast<unsigned>(digits[i + 1] - '0') : FILLER;
        octets.push_back(low8(second << 4 | first));
    }
    return octets;
}

std::string_view digitsOf(std::string_view number) {
    return number.starts_with('+') ? number.substr(1) : number;
}

std::uint8_t typeOfAddress(std::string_view number) {
    return low8(TOA_ALWAYS | flag(number.starts_with('+'), TOA_INTERNATIONAL) | TOA_TELEPHONE);
}

// TS 23.038, 4: what TP-UDL counts, by the coding group in the high half of TP-DCS.
enum class Unit { septet, octet, byAlphabet, byAlphabetBit };
// clang-format off
constexpr std::array<Unit, 16> UNITS = {
    Unit::byAlphabet, Unit::byAlphabet, Unit::octet,  Unit::octet,  // 00..: general, compressed
    Unit::byAlphabet, Unit::byAlphabet, Unit::octet,  Unit::octet,  // 01..: deleted by itself, likewise
    Unit::septet,     Unit::septet,     Unit::septet, Unit::septet, // 10..: reserved
    Unit::septet,     Unit::septet,                                 // 1100, 1101: waiting, 7-bit
    Unit::octet,                                                    // 1110: waiting, UCS-2
    Unit::byAlphabetBit,                                            // 1111: class
};
// clang-format on

std::size_t userDataOctets(std::uint8_t dcs, std::uint8_t length) {
    return countsSeptets(dcs) ? (std::size_t{length} * 7 + 7) / 8 : length;
}

bool isUserData(OctetView userData, bool headerPresent) {
    if (userData.size() > USER_DATA_OCTETS_MAX) { return false; }
    return !headerPresent || (!userData.empty() && userData.front() < userData.size());
}

// TS 23.040, 9.2.3.3: octets of TP-VP.
std::size_t validityOctets(std::uint8_t firstOctet) {
    static constexpr std::array<std::size_t, 4> OCTETS = {0, 7, 1,
                                                          7}; // none enhanced relative absolute
    return OCTETS.at((firstOctet & TP_VPF) >> 3);
}

std::uint8_t swappedBcd(int value) {
    return low8(static_cast<unsigned>(value % 10) << 4 | static_cast<unsigned>(value / 10 % 10));
}

// Fields in the order of TS 23.040, 9.2.2.1, 9.2.2.2 and 9.2.2.3, behind the first octet.
void takeDeliver(OctetReader &in, TpduFields &fields) {
    fields.address = in.address();
    fields.pid = in.octet();
    fields.dcs = in.octet();
    fields.timestamp = in.octets(TIMESTAMP_OCTETS);
}

void takeSubmit(OctetReader &in, TpduFields &fields) {
    fields.reference = in.octet();
    fields.address = in.address();
    fields.pid = in.octet();
    fields.dcs = in.octet();
    fields.validity = in.octets(validityOctets(fields.first));
}

void takeStatusReport(OctetReader &in, TpduFields &fields) {
    fields.reference = in.octet();
    fields.address = in.address();
    fields.timestamp = in.octets(TIMESTAMP_OCTETS);
    fields.discharge = in.octets(TIMESTAMP_OCTETS);
    fields.status = in.octet();
}

bool takeUserData(OctetReader &in, TpduFields &fields) {
    fields.userDataLength = in.octet();
    fields.userData = in.octets(userDataOctets(fields.dcs, fields.userDataLength));
    return in.wholeAndUsedUp() && isUserData(fields.userData, fields.hasHeader());
}

} // namespace

bool countsSeptets(std::uint8_t dcs) {
    const unsigned alphabet = dcs >> 2 & 3U; // 0 seven bits, 1 octets, 2 UCS-2; 3 reserved, as 0
    switch (UNITS.at(dcs >> 4)) {
    case Unit::septet: return true;
    case Unit::octet: return false;
    case Unit::byAlphabet: return alphabet == 0 || alphabet == 3;
    case Unit::byAlphabetBit: return (alphabet & 1U) == 0;
    }
    return true;
}

NetworkTime NetworkTime::local(std::time_t time) {
    static constexpr long QUARTER_HOUR = 15L * 60;
    NetworkTime local;
    ::localtime_r(&time, &local.clock);
    local.quarterHours = static_cast<int>(local.clock.tm_gmtoff / QUARTER_HOUR);
    return local;
}

Octets timestamp(const NetworkTime &time) {
    const std::uint8_t zone = swappedBcd(std::abs(time.quarterHours));
    return {swappedBcd(time.clock.tm_year % 100),
            swappedBcd(time.clock.tm_mon + 1),
            swappedBcd(time.clock.tm_mday),
            swappedBcd(time.clock.tm_hour),
            swappedBcd(time.clock.tm_min),
            swappedBcd(time.clock.tm_sec),
            low8(zone | flag(time.quarterHours < 0, ZONE_NEGATIVE))};
}

std::optional<Octets> octetsFromHex(std::string_view text) {
    Octets octets;
    unsigned high = 0;
    bool half = false;
    for (const char c : text) {
        if (c == '\r' || c == '\n' || c == ' ') { continue; }
        const int digit = hexDigit(c);
        if (digit < 0) { return std::nullopt; }
        if (half) { octets.push_back(low8(high << 4 | static_cast<unsigned>(digit))); }
        high = static_cast<unsigned>(digit);
        half = !half;
    }
    if (half) { return std::nullopt; }
    return octets;
}

namespace {

std::string digitPair(std::uint8_t swapped) {
    const unsigned tens = swapped & 0x0FU;
    const unsigned ones = swapped >> 4;
    if (tens > 9 || ones > 9) { return "??"; }
    return std::to_string(tens) + std::to_string(ones);
}

} // namespace

std::string timestampText(OctetView timestamp) {
    static constexpr std::string_view SEPARATORS = "//,::";
    std::string text;
    for (std::size_t i = 0; i + 1 < timestamp.size(); i++) {
        if (i > 0) { text += SEPARATORS.at(i - 1); }
        text += digitPair(timestamp[i]);
    }
    const std::uint8_t zone = timestamp.back();
    text += (zone & ZONE_NEGATIVE) != 0 ? '-' : '+';
    return text + digitPair(low8(zone & ~ZONE_NEGATIVE));
}

std::optional<Octets> timestampFromText(std::string_view text) {
    static constexpr std::string_view FORM = "nn/nn/nn,nn:nn:nn+nn";
    static constexpr std::array<unsigned, TIMESTAMP_OCTETS> MIN = {0, 1, 1, 0, 0, 0, 0};
    static constexpr std::array<unsigned, TIMESTAMP_OCTETS> MAX = {99, 12, 31, 23, 59, 59, 79};
    if (text.size() != FORM.size()) { return std::nullopt; }
    Octets octets;
    for (std::size_t i = 0; i < text.size(); i += 3) {
        const auto value = parseNumber(text.substr(i, 2));
        const std::size_t field = octets.size();
        if (!value || *value < MIN.at(field) || *value > MAX.at(field)) { return std::nullopt; }
        octets.push_back(swappedBcd(static_cast<int>(*value)));
        const bool separated = i + 2 == text.size() || text[i + 2] == FORM[i + 2] ||
                               (FORM[i + 2] == '+' && text[i + 2] == '-');
        if (!separated) { return std::nullopt; }
    }
    if (text[text.size() - 3] == '-') { octets.back() = low8(octets.back() | ZONE_NEGATIVE); }
    return octets;
}

std::string Pdu::text() const {
    std::string text;
    appendHex(text, serviceCentre);
    appendHex(text, tpdu);
    return text;
}

std::optional<Pdu> pduFromText(std::string_view text, std::size_t tpduLength) {
    const std::optional<Octets> octets = octetsFromHex(text);
    if (!octets) { return std::nullopt; }
    OctetReader in(*octets);
    const std::size_t serviceCentreLength = in.octet();
    in.octets(serviceCentreLength);
    const OctetView tpdu = in.octets(tpduLength);
    if (!in.wholeAndUsedUp() || serviceCentreLength > SERVICE_CENTRE_OCTETS) {
        return std::nullopt;
    }
    return Pdu{copyOf(OctetView(*octets).first(1 + serviceCentreLength)), copyOf(tpdu)};
}

std::optional<TpduFields> fieldsOf(OctetView tpdu) {
    OctetReader in(tpdu);
    TpduFields fields;
    fields.first = in.octet();
    switch (fields.first & TP_MTI) {
    case MTI_DELIVER:
        fields.type = TpduType::deliver;
        takeDeliver(in, fields);
        break;
    case MTI_SUBMIT:
        fields.type = TpduType::submit;
        takeSubmit(in, fields);
        break;
    case MTI_STATUS_REPORT: // what TP-PI announces behind TP-ST is not looked into
        fields.type = TpduType::statusReport;
        takeStatusReport(in, fields);
        return in.whole() ? std::optional(fields) : std::nullopt;
    default: return std::nullopt;
    }
    return takeUserData(in, fields) ? std::optional(fields) : std::nullopt;
}

bool TpduFields::hasHeader() const { return (first & TP_UDHI) != 0; }
bool TpduFields::hasSeptets() const { return countsSeptets(dcs) && !hasHeader(); }

std::optional<Submit> submitFromTpdu(OctetView tpdu) {
    const auto fields = fieldsOf(tpdu);
    if (!fields || fields->type != TpduType::submit) { return std::nullopt; }
    Submit submit; // TP-MR is left: the modem numbers what it sends itself
    submit.replyPath = (fields->first & TP_RP) != 0;
    submit.headerPresent = fields->hasHeader();
    submit.reportRequested = (fields->first & TP_SRR) != 0;
    submit.destination = copyOf(fields->address);
    submit.pid = fields->pid;
    submit.dcs = fields->dcs;
    submit.userDataLength = fields->userDataLength;
    submit.userData = copyOf(fields->userData);
    return submit;
}

bool isTpdu(TpduType type, OctetView tpdu) {
    const auto fields = fieldsOf(tpdu);
    return fields && fields->type == type;
}

bool isDeliverReport(OctetView tpdu, bool ofError) {
    static constexpr std::uint8_t CAUSE_LOWEST = 0x80;            // TP-FCS, 9.2.3.22
    static constexpr unsigned PID = 0x01, DCS = 0x02, UDL = 0x04; // TP-PI, 9.2.3.27
    OctetReader in(tpdu);
    TpduFields fields;
    fields.first = in.octet();
    if (ofError && in.octet() < CAUSE_LOWEST) { return false; }
    const std::uint8_t parameters = in.octet();
    if ((parameters & PID) != 0) { fields.pid = in.octet(); }
    if ((parameters & DCS) != 0) { fields.dcs = in.octet(); }
    const bool complete = (parameters & UDL) != 0 ? takeUserData(in, fields) : in.wholeAndUsedUp();
    return complete && (fields.first & TP_MTI) == MTI_DELIVER;
}

Octets submitTpdu(const TpduFields &fields) {
    Octets tpdu{fields.first, 0};
    append(tpdu, fields.address);
    tpdu.push_back(fields.pid);
    tpdu.push_back(fields.dcs);
    append(tpdu, fields.validity);
    tpdu.push_back(fields.userDataLength);
    append(tpdu, fields.userData);
    return tpdu;
}

Octets deliverTpdu(const Submit &submit, OctetView originator, const NetworkTime &time) {
    return deliverTpdu(submit, originator, timestamp(time));
}

Octets deliverTpdu(const Submit &submit, OctetView originator, OctetView time) {
    // cppcheck-suppress badBitmaskCheck ; the type is named though it is 0
    Octets tpdu{low8(MTI_DELIVER | TP_MMS | flag(submit.reportRequested, TP_SRI) |
                     flag(submit.headerPresent, TP_UDHI) | flag(submit.replyPath, TP_RP))};
    append(tpdu, originator);
    tpdu.push_back(submit.pid);
    tpdu.push_back(submit.dcs);
    append(tpdu, time);
    tpdu.push_back(submit.userDataLength);
    append(tpdu, submit.userData);
    return tpdu;
}

Octets statusReportTpdu(OctetView destination, std::uint8_t reference, const NetworkTime &time,
                        std::uint8_t status) {
    Octets tpdu{low8(MTI_STATUS_REPORT | TP_MMS), reference};
    append(tpdu, destination);
    append(tpdu, timestamp(time)); // TP-SCTS
    append(tpdu, timestamp(time)); // TP-DT
    tpdu.push_back(status);
    return tpdu;
}

Octets addressField(std::string_view number) {
    const std::string_view digits = digitsOf(number);
    Octets field{low8(static_cast<unsigned>(digits.size())), typeOfAddress(number)};
    append(field, semiOctets(digits));
    return field;
}

Octets alphanumericField(OctetView septets) {
    const std::size_t semiOctetCount = (septets.size() * 7 + 3) / 4;
    Octets field{low8(static_cast<unsigned>(semiOctetCount)), low8(TOA_ALWAYS | TOA_ALPHANUMERIC)};
    append(field, packSeptets(septets));
    return field;
}

bool isInternational(std::uint8_t type) { return (type & TOA_TYPE) == TOA_INTERNATIONAL; }
bool isAlphanumeric(std::uint8_t type) { return (type & TOA_TYPE) == TOA_ALPHANUMERIC; }

Octets addressSeptets(OctetView field) {
    OctetReader in(field);
    const std::size_t semiOctetCount = in.octet();
    in.octet(); // type of address
    return unpackSeptets(in.octets((semiOctetCount + 1) / 2), semiOctetCount * 4 / 7);
}

std::string addressDigits(OctetView field) {
    OctetReader in(field);
    const std::size_t count = in.octet();
    if (isAlphanumeric(in.octet())) { return {}; }
    static constexpr std::string_view DIGITS = "0123456789*#abc";
    std::string digits;
    for (const std::uint8_t octet : in.octets((count + 1) / 2)) {
        for (const unsigned value : {octet & 0x0FU, octet >> 4 & 0x0FU}) {
            if (value != FILLER) { digits += DIGITS[value]; }
        }
    }
    return digits;
}

Octets serviceCentreField(std::string_view number) {
    const std::string_view digits = digitsOf(number);
    if (digits.empty()) { return {0}; }
    const Octets packed = semiOctets(digits);
    Octets field{low8(static_cast<unsigned>(1 + packed.size())), typeOfAddress(number)};
    append(field, packed);
    return field;
}

bool isNumber(std::string_view text) {
    const std::string_view digits = digitsOf(text);
    return !digits.empty() && digits.size() <= NUMBER_DIGITS_MAX &&
           std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<int> messageClass(std::uint8_t dcs) {
    static constexpr unsigned CLASS_PRESENT = 0x10; // groups 00xx and 01xx
    const bool general = dcs < 0x80;
    if ((general && (dcs & CLASS_PRESENT) != 0) || dcs >> 4 == 0xF) { return dcs & 3; }
    return std::nullopt;
}

bool isStoredIndication(std::uint8_t dcs) { return dcs >> 4 == 0xD || dcs >> 4 == 0xE; }

} // namespace smspb::simmodem
