#include "reference_septets.h"

namespace support::reference {
namespace {

const std::size_t OCTET = 8, SEPTET = 7;

bool bitAt(const std::vector<u8> &octets, std::size_t position) {
    return (octets[position / OCTET] >> position % OCTET & 1) != 0;
}

void setBit(std::vector<u8> *octets, std::size_t position) {
    u8 &octet = (*octets)[position / OCTET];
    octet = static_cast<u8>(octet | 1 << position % OCTET);
}

} // namespace

std::vector<u8> packSeptets(const std::vector<u8> &characters, unsigned fill) {
    std::vector<u8> octets((fill + SEPTET * characters.size() + OCTET - 1) / OCTET);
    for (std::size_t i = 0; i < characters.size(); i++) {
        const std::size_t start = fill + SEPTET * i;
        for (std::size_t bit = 0; bit < OCTET; bit++) {
            const bool set = (characters[i] >> bit & 1) != 0;
            const bool septet = bit < SEPTET;
            const bool sameOctet = (start + bit) % OCTET != 0;
            if (set && (septet || sameOctet)) { setBit(&octets, start + bit); }
        }
    }
    return octets;
}

Unpacked unpackSeptets(const std::vector<u8> &octets, std::size_t octetBound, std::size_t charLimit,
                       unsigned fill) {
    Unpacked result{{}, fill != 0 ? 1U : 0U, false};
    while (result.characters.size() < charLimit) {
        const std::size_t start = fill + SEPTET * result.characters.size();
        const std::size_t lastOctet = (start + SEPTET - 1) / OCTET;
        const bool upperSeven = start % OCTET == 1;
        if (lastOctet >= octetBound) { return result; }
        unsigned character = 0;
        for (std::size_t bit = 0; bit < SEPTET; bit++) {
            if (bitAt(octets, start + bit)) { character |= 1U << bit; }
        }
        if (character == 0 && !upperSeven) { character = 0x40; }
        result.characters.push_back(static_cast<u8>(character));
        // An octet counts as consumed once the character in its upper seven bits is read too.
        const bool octetHoldsAnother = (start + SEPTET) % OCTET == 1;
        result.octetsConsumed = octetHoldsAnother ? lastOctet : lastOctet + 1;
        result.ranOutOfRoom = octetHoldsAnother && result.characters.size() == charLimit;
    }
    return result;
}

} // namespace support::reference
