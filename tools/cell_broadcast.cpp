#include "tools/cell_broadcast.h"

#include <algorithm>

#include "tools/received.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t HEADER_OCTETS = 6;
constexpr std::u16string_view MISSING = u"[…]";

u16 wordAt(std::span<const u8> octets, std::size_t at) {
    return static_cast<u16>(octets[at] << 8 | octets[at + 1]);
}

} // namespace

std::optional<Page> pageFrom(std::span<const u8> octets) {
    if (octets.size() < HEADER_OCTETS) { return std::nullopt; }
    Page page;
    page.serial = wordAt(octets, 0);
    page.channel = wordAt(octets, 2);
    page.dcs = octets[4];
    const unsigned number = octets[5] >> 4, total = octets[5] & 0x0F;
    if (number != 0 && number <= total) {
        page.number = number;
        page.total = total;
    }
    const auto content = octets.subspan(HEADER_OCTETS);
    page.content.assign(content.begin(), content.end());
    return page;
}

PageGroup::PageGroup(Page first) { pages_.push_back(std::move(first)); }

bool PageGroup::takes(const Page &page) const {
    const Page &first = pages_.front();
    if (first.serial != page.serial || first.channel != page.channel || first.dcs != page.dcs ||
        first.total != page.total) {
        return false;
    }
    return std::all_of(pages_.begin(), pages_.end(), [&page](const Page &other) {
        return other.number != page.number || other.content == page.content;
    });
}

void PageGroup::add(Page page) {
    const auto place =
        std::lower_bound(pages_.begin(), pages_.end(), page.number,
                         [](const Page &other, unsigned number) { return other.number < number; });
    if (place != pages_.end() && place->number == page.number) { return; }
    pages_.insert(place, std::move(page));
}

PageText textOf(const PageGroup &group) {
    std::u16string text;
    PageText whole;
    std::string data;
    unsigned next = 1;
    for (const Page &page : group.pages()) {
        if (page.number != next) { text += MISSING; }
        next = page.number + 1;
        CbsCoding coding = cbsCoding(page.dcs);
        coding.startsWithLanguage = coding.startsWithLanguage && page.number == 1;
        const CbsText part = cbsText(coding, page.content);
        text += part.text;
        data += hexadecimal(part.data);
        if (whole.language.empty()) { whole.language = part.language; }
    }
    if (next != group.total() + 1) { text += MISSING; }
    whole.isData = !data.empty();
    whole.text = whole.isData ? data : toUtf8(text);
    return whole;
}

} // namespace smspb::cli
