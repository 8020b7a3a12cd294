// Octets read field by field.
#pragma once

#include "platform/simmodem/network/tpdu.h"

#include <algorithm>

namespace smspb::simmodem {

// Takes fields off the front. One that is not there reads as empty or 0 and is remembered, so one
// question after the last field answers for all of them.
class OctetReader {
public:
    explicit OctetReader(OctetView octets) : rest_(octets) {}

    OctetView octets(std::size_t count) {
        if (count > rest_.size()) {
            short_ = true;
            count = rest_.size();
        }
        const OctetView taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }

    std::uint8_t octet() {
        const OctetView taken = octets(1);
        return taken.empty() ? std::uint8_t{0} : taken.front();
    }

    // The length octet counts digits, two to an octet, behind the type.
    OctetView address() {
        const OctetView all = rest_;
        const std::size_t digits = octet();
        if (digits > NUMBER_DIGITS_MAX) { short_ = true; }
        const std::size_t size = 1 + octets(1 + (digits + 1) / 2).size();
        return all.first(std::min(size, all.size()));
    }

    bool whole() const { return !short_; }
    bool wholeAndUsedUp() const { return !short_ && rest_.empty(); }

private:
    OctetView rest_;
    bool short_ = false;
};

} // namespace smspb::simmodem
