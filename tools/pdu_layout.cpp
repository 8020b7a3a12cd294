#include "tools/pdu_layout.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <span>

#include <fmt/format.h>

#include "atlib/SmsEncoding.h"
#include "atlib/SmsUtils.h"
#include "tools/failure.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t PDU_CHARACTERS_MAX = 510; // what wms_decode_at_cmd_pdu takes
constexpr std::size_t SERVICE_CENTRE_OCTETS_MAX = 11;
constexpr std::size_t TIME_OCTETS = 7;            // of a time stamp
constexpr u8 SEPTETS_MAX = 160, OCTETS_MAX = 140; // TS 23.040, 9.2.3.16

// TS 23.040, 9.2.2: first octet.
constexpr u8 TP_VPF = 0x18, TP_UDHI = 0x40;
constexpr u8 PI_NONE = 0xFF;

[[noreturn]] void refuse(const std::string &what, const std::string &hint = "") {
    throw Failure(Exit::BAD_PDU, "not a PDU: " + what, hint);
}

std::string withoutBlanks(std::string_view text) {
    std::string kept;
    std::copy_if(text.begin(), text.end(), std::back_inserter(kept),
                 [](char c) { return std::isspace(static_cast<unsigned char>(c)) == 0; });
    return kept;
}

void checkHexadecimal(const std::string &text) {
    if (text.empty()) { refuse("it is empty", "give the hexadecimal line below +CMGR: or +CMT:"); }
    const std::u32string characters = toCharacters(text);
    for (std::size_t i = 0; i < characters.size(); i++) {
        const char32_t c = characters[i];
        if (c < 0x80 && std::isxdigit(static_cast<int>(c)) != 0) { continue; }
        refuse(fmt::format("character {} is \"{}\"", i + 1, toUtf8(std::u32string(1, c))),
               "only the digits 0 to 9 and A to F belong there");
    }
    if (text.size() % 2 != 0) {
        refuse(fmt::format("it has {}, an odd number", counted(text.size(), "digit")),
               "two digits make an octet: one is missing or too many");
    }
    if (text.size() > PDU_CHARACTERS_MAX) {
        refuse(fmt::format("it has {} digits; at most {} are possible", text.size(),
                           PDU_CHARACTERS_MAX));
    }
}

std::vector<u8> octetsOf(const std::string &text) {
    std::vector<u8> octets(text.size() / 2);
    dsatetsismsi_encode_pdu(text.c_str(), octets.data(), static_cast<u32>(octets.size()));
    return octets;
}

// Steps through the fields of a TPDU; names the one that is cut short.
class Walker {
public:
    explicit Walker(std::span<const u8> tpdu) : tpdu_(tpdu) {}

    u8 take(std::string_view field) {
        skip(1, field);
        return tpdu_[pos_ - 1];
    }
    void skip(std::size_t octets, std::string_view field) {
        if (tpdu_.size() - pos_ < octets) {
            refuse(fmt::format("it ends within the {}, {} too early", field,
                               counted(octets - left(), "octet")));
        }
        pos_ += octets;
    }
    std::size_t position() const { return pos_; }
    std::size_t left() const { return tpdu_.size() - pos_; }

private:
    std::span<const u8> tpdu_;
    std::size_t pos_ = 0;
};

void walkAddress(Walker &walker, std::string_view field) {
    const u8 digits = walker.take(field);
    if (digits > SMS_MAX_ADDRESS_DIGITS) {
        refuse(fmt::format("its {} has {} digits; at most {} are possible", field, digits,
                           static_cast<unsigned>(SMS_MAX_ADDRESS_DIGITS)));
    }
    walker.skip(1 + (digits + 1u) / 2, field);
}

UserDataLayout walkUserData(Walker &walker, u8 codingScheme) {
    SmsDcs dcs = {};
    wms_ts_decode_dcs(&codingScheme, &dcs);
    UserDataLayout found;
    found.isPresent = true;
    found.length = walker.take("user data length");
    found.start = walker.position();
    found.isSeptets = dcs.alphabet == ALPHABET_GSM_7BIT;
    const u8 most = found.isSeptets ? SEPTETS_MAX : OCTETS_MAX;
    if (found.length > most) {
        refuse(fmt::format("its user data length is {}; at most {} {} are possible", found.length,
                           most, found.isSeptets ? "septets" : "octets"));
    }
    walker.skip(found.isSeptets ? (found.length * 7u + 7) / 8 : found.length, "user data");
    return found;
}

UserDataLayout walkDeliver(Walker &walker) {
    walker.skip(1, "first octet");
    walkAddress(walker, "originating address");
    walker.skip(1, "protocol identifier");
    const u8 dcs = walker.take("data coding scheme");
    walker.skip(TIME_OCTETS, "time stamp");
    return walkUserData(walker, dcs);
}

UserDataLayout walkSubmit(Walker &walker) {
    const u8 format = static_cast<u8>((walker.take("first octet") & TP_VPF) >> 3);
    walker.skip(1, "message reference");
    walkAddress(walker, "destination address");
    walker.skip(1, "protocol identifier");
    const u8 dcs = walker.take("data coding scheme");
    if (format == VALIDITY_ENHANCED) { refuse("its validity period is in the enhanced format"); }
    if (format == VALIDITY_RELATIVE) { walker.skip(1, "validity period"); }
    if (format == VALIDITY_ABSOLUTE) { walker.skip(TIME_OCTETS, "validity period"); }
    return walkUserData(walker, dcs);
}

UserDataLayout walkStatusReport(Walker &walker) {
    walker.skip(1, "first octet");
    walker.skip(1, "message reference");
    walkAddress(walker, "recipient address");
    walker.skip(TIME_OCTETS, "time stamp");
    walker.skip(TIME_OCTETS, "discharge time");
    walker.skip(1, "status");
    // Service centres are careless with what follows: parameters that are not there are absent.
    if (walker.left() == 0) { return {}; }
    const u8 parameters = walker.take("parameter indicator");
    const int announced = std::popcount(static_cast<u8>(parameters & (PI_PID | PI_DCS | PI_UDL)));
    if (parameters == PI_NONE || walker.left() < static_cast<std::size_t>(announced)) { return {}; }
    if ((parameters & PI_PID) != 0) { walker.skip(1, "protocol identifier"); }
    const u8 dcs = (parameters & PI_DCS) != 0 ? walker.take("data coding scheme") : u8{0};
    if ((parameters & PI_UDL) == 0) { return {}; }
    return walkUserData(walker, dcs);
}

UserDataLayout walkTpdu(Walker &walker, u8 firstOctet) {
    switch (dsatetsismsi_get_tpdu_type(firstOctet)) {
    case TPDU_DELIVER: return walkDeliver(walker);
    case TPDU_SUBMIT: return walkSubmit(walker);
    case TPDU_STATUS_REPORT: return walkStatusReport(walker);
    default:
        refuse(fmt::format("its first octet {:02X} names no type of message", firstOctet),
               "a PDU begins with the service-centre address, 00 for none");
    }
}

} // namespace

PduLayout layOutPdu(std::string_view text) {
    PduLayout pdu;
    pdu.text = withoutBlanks(text);
    checkHexadecimal(pdu.text);
    const std::vector<u8> octets = octetsOf(pdu.text);
    const std::size_t centre = octets[0];
    if (centre > SERVICE_CENTRE_OCTETS_MAX) {
        refuse(fmt::format("its service-centre address has {} octets; at most {} are possible",
                           centre, SERVICE_CENTRE_OCTETS_MAX),
               "a PDU begins with the service-centre address, 00 for none");
    }
    if (octets.size() <= 1 + centre) {
        refuse(fmt::format("it ends {} the service-centre address of {}",
                           octets.size() == 1 + centre ? "behind" : "within",
                           counted(centre, "octet")));
    }
    pdu.tpdu.assign(octets.begin() + 1 + static_cast<std::ptrdiff_t>(centre), octets.end());
    Walker walker(pdu.tpdu);
    pdu.userData = walkTpdu(walker, pdu.tpdu[0]);
    pdu.surplus = walker.left();
    return pdu;
}

u8 septetAt(const PduLayout &pdu, std::size_t index) {
    const std::size_t bit = index * 7, octet = pdu.userData.start + bit / 8;
    const auto at = [&pdu](std::size_t i) { return i < pdu.tpdu.size() ? pdu.tpdu[i] : 0u; };
    const unsigned pair = at(octet) | at(octet + 1) << 8;
    return static_cast<u8>(pair >> bit % 8 & 0x7F);
}

std::vector<HeaderElement> headerElements(const PduLayout &pdu) {
    std::vector<HeaderElement> elements;
    if (!pdu.userData.isPresent || pdu.userData.length == 0 || (pdu.tpdu[0] & TP_UDHI) == 0) {
        return elements;
    }
    std::span<const u8> rest = std::span(pdu.tpdu).subspan(pdu.userData.start);
    rest = rest.subspan(1, std::min<std::size_t>(rest[0], rest.size() - 1));
    while (rest.size() >= 2) {
        const std::size_t length = std::min<std::size_t>(rest[1], rest.size() - 2);
        const std::span<const u8> data = rest.subspan(2, length);
        elements.push_back({
            rest[0], {data.begin(), data.end()}
        });
        rest = rest.subspan(2 + length);
    }
    return elements;
}

} // namespace smspb::cli
