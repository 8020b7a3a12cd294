#include "platform/simmodem/network/broadcast.h"

#include "platform/simmodem/commands/message_show.h"
#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/modem/modem.h"
#include "platform/simmodem/network/message_text.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/text.h"

namespace smspb::simmodem {
namespace {

// TS 23.041, 9.4.1.
constexpr std::size_t CONTENT_OCTETS = 82, CONTENT_SEPTETS = 93, PAGES_MAX = 15;
constexpr std::uint8_t PAGE_GSM = 0x0F, PAGE_UCS2 = 0x48; // TS 23.038, 5
constexpr unsigned ROUTE = 2;                             // +CNMI <bm>

std::uint8_t octet(std::size_t value) { return static_cast<std::uint8_t>(value & 0xFF); }

// The rest of a page is CR.
std::vector<Octets> contents(std::u16string_view text, bool ucs2) {
    const std::size_t size = ucs2 ? CONTENT_OCTETS : CONTENT_SEPTETS;
    std::vector<Octets> pages = ucs2 ? cutUnits(toUcs2Octets(text), size, size)
                                     : cutSeptets(toSeptets(text).value_or(Octets()), size, size);
    for (Octets &page : pages) {
        while (page.size() < size) {
            if (ucs2) { page.push_back(0); }
            page.push_back('\r');
        }
        if (!ucs2) { page = packSeptets(page); }
    }
    return pages;
}

bool isInRange(std::string_view range, unsigned identifier) {
    const std::size_t dash = range.find('-');
    const auto low = parseNumber(range.substr(0, dash));
    const auto high = dash == std::string_view::npos ? low : parseNumber(range.substr(dash + 1));
    return low && high && *low <= identifier && identifier <= *high;
}

} // namespace

// TS 23.038, 5: the groups of languages are text but for 0001 0001, which is UCS-2 behind one.
bool isBroadcastText(std::uint8_t dcs) {
    static constexpr std::uint8_t LANGUAGE_UCS2 = 0x11;
    const unsigned group = dcs >> 4;
    const unsigned alphabet = dcs >> 2 & 3U; // 1 octets, 2 UCS-2
    const bool compressed = (dcs & 0x20U) != 0;
    switch (group) {
    case 0x1: return dcs != LANGUAGE_UCS2;
    case 0x4:
    case 0x5:
    case 0x6:
    case 0x7: return !compressed && alphabet != 1 && alphabet != 2;
    case 0x9: return false; // with a header
    case 0xF: return (alphabet & 1U) == 0;
    default: return true;
    }
}

std::optional<std::vector<Octets>> broadcastPages(const Broadcast &broadcast,
                                                  std::u16string_view text) {
    if (!broadcast.ucs2 && !toSeptets(text)) { return std::nullopt; }
    std::vector<Octets> pages = contents(text, broadcast.ucs2);
    if (pages.size() > PAGES_MAX) { return std::nullopt; }
    for (std::size_t i = 0; i < pages.size(); i++) {
        const Octets head{
            octet(broadcast.serialNumber >> 8U),   octet(broadcast.serialNumber),
            octet(broadcast.identifier >> 8U),     octet(broadcast.identifier),
            broadcast.ucs2 ? PAGE_UCS2 : PAGE_GSM, octet((i + 1) << 4U | pages.size())};
        pages[i].insert(pages[i].begin(), head.begin(), head.end());
    }
    return pages;
}

bool isAccepted(const BroadcastSettings &settings, std::uint16_t identifier) {
    std::string_view rest = settings.identifiers;
    bool listed = rest.empty();
    while (!rest.empty() && !listed) {
        const std::string_view range = rest.substr(0, rest.find(','));
        listed = isInRange(range, identifier);
        rest.remove_prefix(std::min(rest.size(), range.size() + 1));
    }
    return listed == (settings.mode == 0);
}

bool receivePage(Modem &modem, const Octets &page) {
    const auto identifier = static_cast<std::uint16_t>(page.at(2) << 8U | page.at(3));
    if (modem.settings.indications.bm != ROUTE ||
        !isAccepted(modem.settings.broadcasts, identifier)) {
        return false;
    }
    indicate(modem, pageIndication(modem.settings, page));
    return true;
}

} // namespace smspb::simmodem
