// Cell broadcast pages (3GPP TS 23.041, 9.4.1.2): their header, and a message's pages put together.
#ifndef SMSPB_TOOLS_CELL_BROADCAST_H
#define SMSPB_TOOLS_CELL_BROADCAST_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/cbs_coding.h"

namespace smspb::cli {

struct Page {
    u16 serial = 0;  // 9.4.1.2.1
    u16 channel = 0; // the message identifier, 9.4.1.2.2
    u8 dcs = 0;
    unsigned number = 1, total = 1;
    std::vector<u8> content; // 82 octets, or fewer from a modem that drops padding
    std::string raw;         // the lines that brought it
};

// Nothing for less than a header. A page number of 0, or above the total, is page 1 of 1, as
// 9.4.1.2.4 asks.
std::optional<Page> pageFrom(std::span<const u8> octets);

// The pages of one message that are there.
class PageGroup {
public:
    using Item = Page;

    explicit PageGroup(Page first);
    // Whether the page is one of this message. A page that is there already is: a repetition.
    bool takes(const Page &page) const;
    void add(Page page);
    bool isComplete() const { return pages_.size() == total(); }

    unsigned total() const { return pages_.front().total; }
    // In order, one at least.
    const std::vector<Page> &pages() const { return pages_; }

private:
    std::vector<Page> pages_;
};

// The whole text, "[…]" where a page is missing; data in hexadecimal.
struct PageText {
    std::string text, language;
    bool isData = false;
};
PageText textOf(const PageGroup &group);

} // namespace smspb::cli

#endif
