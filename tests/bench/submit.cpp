#include "submit.h"

extern "C" {
#include <osmocom/gsm/gsm_utils.h>
#include <osmocom/gsm/protocol/gsm_04_11.h> // the next needs its enumerations

#include <osmocom/core/utils.h>
#include <osmocom/gsm/gsm0411_utils.h>
#include <osmocom/gsm/protocol/gsm_03_40.h>
}

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

constexpr std::size_t SEGMENT_SEPTETS = 153; // behind a concatenation header of 6 octets
constexpr u8 SUBMIT = 0x01;                  // TS 23.040, 9.2.3.1
constexpr u8 SUBMIT_WITH_HEADER = 0x41;
constexpr u8 REFERENCE_OF_MODEM = 0xFF;
constexpr u8 UDH_OCTETS = 6;
constexpr u8 UDH_SEPTETS = 7;

// TP-MTI to TP-DCS behind an empty service-centre address. Returns the octets.
std::size_t putFrame(u8 first, u8 *octets) {
    octets[0] = 0;
    octets[1] = first;
    octets[2] = REFERENCE_OF_MODEM;
    const int address =
        gsm340_gen_oa(octets + 3, 12, GSM340_TYPE_INTERNATIONAL, GSM340_PLAN_ISDN, NUMBER_DIGITS);
    u8 *rest = octets + 3 + address;
    rest[0] = 0; // TP-PID
    rest[1] = 0; // TP-DCS
    return static_cast<std::size_t>(rest + 2 - octets);
}

} // namespace

SmsMessage requestFor(std::vector<u16> &text) {
    SmsMessage request = {};
    std::copy_n(NUMBER, std::strlen(NUMBER), request.peer_number);
    request.text = text.data();
    return request;
}

void compose(const SmsMessage &request) {
    SmsSegment *segments = nullptr;
    u8 count = 0;
    sms_encode_pdu(&request, &segments, &count);
    std::free(segments);
}

std::vector<std::string> composed(const SmsMessage &request) {
    SmsSegment *segments = nullptr;
    u8 count = 0;
    sms_encode_pdu(&request, &segments, &count);
    std::vector<std::string> pdus;
    for (u8 i = 0; i < count; i++) { pdus.emplace_back(segments[i].pdu); }
    std::free(segments);
    return pdus;
}

void composeByHand(const std::string &text, char *pdu, std::size_t room) {
    std::array<u8, 256> octets;
    const std::size_t frame = putFrame(SUBMIT, octets.data());
    int written = 0;
    const int septets = gsm_7bit_encode_n(octets.data() + frame + 1, octets.size() - frame - 1,
                                          text.c_str(), &written);
    octets[frame] = static_cast<u8>(septets);
    osmo_hexdump_buf(pdu, room, octets.data(), static_cast<int>(frame) + 1 + written, "", false);
}

void composeSegmentsByHand(const std::string &text, char *pdus, std::size_t room) {
    std::array<u8, 1024> septets;
    const auto total = static_cast<std::size_t>(gsm_septet_encode(septets.data(), text.c_str()));
    const std::size_t segments = (total + SEGMENT_SEPTETS - 1) / SEGMENT_SEPTETS;
    for (std::size_t i = 0; i < segments; i++) {
        std::array<u8, 256> octets;
        const std::size_t frame = putFrame(SUBMIT_WITH_HEADER, octets.data());
        const std::size_t count = std::min(SEGMENT_SEPTETS, total - i * SEGMENT_SEPTETS);
        const std::array<u8, UDH_OCTETS + 1> head = {static_cast<u8>(count + UDH_SEPTETS),
                                                     UDH_OCTETS - 1,
                                                     0,
                                                     3,
                                                     0,
                                                     static_cast<u8>(segments),
                                                     static_cast<u8>(i + 1)};
        std::memcpy(octets.data() + frame, head.data(), head.size());
        u8 *body = octets.data() + frame + head.size();
        const int written = gsm_septet_pack(body, septets.data() + i * SEGMENT_SEPTETS, count, 1);
        osmo_hexdump_buf(pdus + i * room, room, octets.data(),
                         static_cast<int>(frame + head.size()) + written, "", false);
    }
}

const char *otherThan(const std::vector<std::string> &wanted, const char *pdus, std::size_t room) {
    for (std::size_t i = 0; i < wanted.size(); i++) {
        if (strcasecmp(wanted[i].c_str(), pdus + i * room) != 0) { return "another PDU"; }
    }
    return nullptr;
}

} // namespace bench
