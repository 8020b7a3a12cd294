// Septets in octets (TS 23.038, 6.1.2.1), bit by bit: slow, and obvious enough to judge the
// library's packer and unpacker.
#ifndef SMSPB_TESTS_REFERENCE_SEPTETS_H
#define SMSPB_TESTS_REFERENCE_SEPTETS_H

#include <cstddef>
#include <vector>

#include "comm/smspb_types.h"

namespace support::reference {

// The octets of `characters` behind `fill` (0 to 6) zero bits. An eighth bit is not masked: it
// shows where its character's last octet has room for it.
std::vector<u8> packSeptets(const std::vector<u8> &characters, unsigned fill);

struct Unpacked {
    std::vector<u8> characters;
    std::size_t octetsConsumed;
    bool ranOutOfRoom; // as the unpacker reports it in the log
};
// The first `charLimit` characters that lie whole within the first `octetBound` octets, behind
// `fill` (0 to 7) bits. A zero character reads as 0x40, unless it fills the upper seven bits of its
// octet.
Unpacked unpackSeptets(const std::vector<u8> &octets, std::size_t octetBound, std::size_t charLimit,
                       unsigned fill);

} // namespace support::reference

#endif
