// Unsolicited reports: the key of a line, and chunks (between zero octets) joined and examined.
#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "fuzz.h"

namespace {

void examineChunks(const std::vector<std::string> &parts, u8 choice) {
    RxDataNode *head = nullptr;
    for (const std::string &part : parts) {
        const fuzz::Block<u8> chunk = fuzz::copyOf(part);
        const RxDataNode *node = AddRxDataNode(&head, chunk.get(), static_cast<u32>(part.size()));
        fuzz::require(node != nullptr && node->data[node->length] == '\0', "a zero behind a chunk");
    }
    for (u32 key = 0; key < 12; key++) { DoReportData(key, head); }
    RxDataNode *second = head->next;
    if (choice % 2 != 0 && second != nullptr) { DelRxDataNode(&second); }
    DelRxDataNodeLink(&head);
    fuzz::require(head == nullptr, "nothing is left of the list");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 choice = takeOctet(&input);
    const int key = checkReportKey(textOf(input).get());
    require(key >= -1 && key < 11, "a key or none");
    const Block<char> text = copyOf<char>(input); // without a zero
    for (u32 each = 0; each < 12; each++) {
        FindReportNode(each, text.get(), static_cast<u32>(text.size()));
    }
    examineChunks(partsOf(input), choice);
}
