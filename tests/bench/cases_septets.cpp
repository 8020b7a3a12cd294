// Packing and unpacking septets, and the default alphabet (TS 23.038, 6.1.2.1 and 6.2.1).
extern "C" {
#include <osmocom/gsm/gsm_utils.h>
}

#include <cstring>

#include "atlib/SmsEncoding.h"
#include "atlib/SmsUtils.h"
#include "case.h"
#include "peers.h"
#include "texts.h"

namespace bench {
namespace {

constexpr std::size_t PACKED_OCTETS = MESSAGE_SEPTETS * 7 / 8;

const std::string TEXT = ascii(MESSAGE_SEPTETS);
const std::string MIXED = mixedLatin1(MESSAGE_SEPTETS);
const std::vector<u16> TEXT_UNITS = units(TEXT);
const std::vector<u16> MIXED_UNITS = units(MIXED);

// Packed bit by bit: what every packer must give.
std::vector<u8> packedSlowly(const std::string &septets) {
    std::vector<u8> octets((septets.size() * 7 + 7) / 8);
    for (std::size_t bit = 0; bit < septets.size() * 7; bit++) {
        const unsigned value = static_cast<u8>(septets[bit / 7]) >> bit % 7 & 1U;
        octets[bit / 8] = static_cast<u8>(octets[bit / 8] | value << bit % 8);
    }
    return octets;
}
const std::vector<u8> PACKED = packedSlowly(TEXT);

// Larger than any result: a peer may write behind what it was asked for.
u8 packed[512];
u8 septets[512];
u16 wide[512];
unsigned char gammuWide[1024];
long result;

const u8 *octetsOf(const std::string &text) { return reinterpret_cast<const u8 *>(text.data()); }

const char *packedWrong() {
    return std::memcmp(packed, PACKED.data(), PACKED_OCTETS) == 0 ? nullptr : "packed otherwise";
}
const char *septetsWrong() {
    return std::memcmp(septets, TEXT.data(), MESSAGE_SEPTETS) == 0 ? nullptr : "other septets";
}

// The septets of the mixed text, as read back by the other direction of gammu's table.
const char *mixedWrong() {
    DecodeDefault(gammuWide, septets, MESSAGE_SEPTETS, 1, nullptr);
    const std::vector<unsigned char> wanted = bigEndian(MIXED_UNITS);
    return std::memcmp(gammuWide, wanted.data(), wanted.size()) == 0 ? nullptr : "other septets";
}

const char *unitsWrong() {
    return std::memcmp(wide, TEXT_UNITS.data(), MESSAGE_SEPTETS * 2) == 0 ? nullptr : "other units";
}
const char *gammuUnitsWrong() {
    const std::vector<unsigned char> wanted = bigEndian(TEXT_UNITS);
    return std::memcmp(gammuWide, wanted.data(), wanted.size()) == 0 ? nullptr : "other units";
}

const Register PACKING([] {
    add(
        "pack 160 septets/ours",
        [] {
            result = wms_ts_pack_gw_7_bit_chars(octetsOf(TEXT), MESSAGE_SEPTETS, 0, PACKED_OCTETS,
                                                packed);
        },
        packedWrong);
    add(
        "pack 160 septets/osmocom",
        [] { result = gsm_septet_pack(packed, octetsOf(TEXT), MESSAGE_SEPTETS, 0); }, packedWrong);
    add(
        "pack 160 septets/gammu",
        [] { result = GSM_PackSevenBitsToEight(0, octetsOf(TEXT), packed, MESSAGE_SEPTETS); },
        packedWrong);
    add(
        "unpack 160 septets/ours",
        [] {
            result = wms_ts_unpack_gw_7_bit_chars(PACKED.data(), PACKED_OCTETS, MESSAGE_SEPTETS, 0,
                                                  septets);
        },
        septetsWrong);
    add(
        "unpack 160 septets/gammu",
        [] {
            result = GSM_UnpackEightBitsToSeven(0, PACKED_OCTETS, MESSAGE_SEPTETS, PACKED.data(),
                                                septets);
        },
        septetsWrong);
    // Maps to ISO 8859-1 as well, which osmocom does not separate from unpacking.
    add(
        "unpack 160 septets/osmocom",
        [] {
            result = gsm_7bit_decode_n(reinterpret_cast<char *>(septets), sizeof(septets),
                                       PACKED.data(), MESSAGE_SEPTETS);
        },
        septetsWrong);
});

const Register ALPHABET([] {
    add(
        "UCS-2 to GSM, ASCII/ours",
        [] { result = sms_WSTRToGSM(TEXT_UNITS.data(), MESSAGE_SEPTETS, septets, 161); },
        septetsWrong);
    add(
        "UCS-2 to GSM, ASCII/osmocom", [] { result = gsm_septet_encode(septets, TEXT.c_str()); },
        septetsWrong);
    add(
        "UCS-2 to GSM, mixed/ours",
        [] { result = sms_WSTRToGSM(MIXED_UNITS.data(), MESSAGE_SEPTETS, septets, 161); },
        mixedWrong);
    add(
        "UCS-2 to GSM, mixed/osmocom", [] { result = gsm_septet_encode(septets, MIXED.c_str()); },
        mixedWrong);
    add(
        "GSM to UCS-2/ours",
        [] { result = sms_GSMToWSTR(octetsOf(TEXT), MESSAGE_SEPTETS, wide, MESSAGE_SEPTETS); },
        unitsWrong);
    add(
        "GSM to UCS-2/gammu",
        [] { DecodeDefault(gammuWide, octetsOf(TEXT), MESSAGE_SEPTETS, 1, nullptr); },
        gammuUnitsWrong);
});
} // namespace
} // namespace bench
