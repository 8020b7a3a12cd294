// What stands behind "+CPBR: " (TS 27.007, 8.12).
#include "atlib/CPbSIM.h"
#include "fuzz.h"

void fuzz::examine(std::string_view input) {
    const Block<char> line = textOf(input);
    const Block<sm_item_t> item;
    const u32 status = SM_DecodeItem(line.get(), item.get());
    require(status == PB_OK || status == PB_UNREADABLE || status == PB_INVALID,
            "a status of the line");
}
