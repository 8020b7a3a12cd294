// Random numbers that are the same on every machine: a fixed seed names the whole run.
#ifndef SMSPB_TESTS_RANDOM_H
#define SMSPB_TESTS_RANDOM_H

#include <random>
#include <vector>

#include "comm/smspb_types.h"

namespace support {

class Random {
public:
    explicit Random(u32 seed) : engine_(seed) {}
    u32 bits() { return static_cast<u32>(engine_()); }
    u32 below(u32 bound) { return bits() % bound; }
    u32 between(u32 first, u32 last) { return first + below(last - first + 1); }
    u8 octet() { return static_cast<u8>(bits() >> 8); }
    std::vector<u8> octets(std::size_t count) {
        std::vector<u8> result(count);
        for (u8 &o : result) { o = octet(); }
        return result;
    }

private:
    std::mt19937 engine_;
};

} // namespace support

#endif
