// Cell broadcast (TS 23.041): a text as pages, and what the terminal wants of them.
#pragma once

#include "platform/simmodem/network/tpdu.h"

#include <optional>
#include <string_view>
#include <vector>

namespace smspb::simmodem {

struct BroadcastSettings;
struct Modem;

struct Broadcast {
    std::uint16_t serialNumber = 0; // TS 23.041, 9.4.1.2.1
    std::uint16_t identifier = 0;   // 9.4.1.2.2
    bool ucs2 = false;
};

// The pages of 88 octets; nothing for a text that needs more than 15, or that the GSM alphabet
// lacks while `ucs2` is not set.
std::optional<std::vector<Octets>> broadcastPages(const Broadcast &broadcast,
                                                  std::u16string_view text);

// True when the coding scheme of a page says that it holds characters of the GSM alphabet alone.
bool isBroadcastText(std::uint8_t dcs);

// True when +CSCB (TS 27.005, 3.3.4) lets the identifier through. No list means all of them.
bool isAccepted(const BroadcastSettings &settings, std::uint16_t identifier);

// Hands a page over as +CNMI <bm> asks. False when nobody wants it.
bool receivePage(Modem &modem, const Octets &page);

} // namespace smspb::simmodem
