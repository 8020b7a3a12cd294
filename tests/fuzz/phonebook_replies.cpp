// Replies to the commands of the phonebook, one after the other between zero octets. The first
// octet names the operation that asks.
#include "atlib/CPbSIM.h"
#include "fuzz.h"
#include "support/plain/plain_platform.h"

namespace {

// An entry is told on standard output as well.
[[maybe_unused]] const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;

void ask(u8 operation) {
    const fuzz::Block<sm_item_t> item;
    const fuzz::Block<i32> index;
    const fuzz::Block<sm_storage_info_t> storage;
    const fuzz::Block<sm_record_info_t> records;
    const fuzz::Block<pb_info_t> contact;
    switch (operation) {
    case 'a': SM_SetStorage(PB_STORAGE_SM); break;
    case 'b': SM_GetStorageInfo(storage.get(), PB_STORAGE_ME); break;
    case 'c': SM_GetRecordInfo(records.get(), PB_STORAGE_SM); break;
    case 'd': SM_SetCodeDec("UCS2"); break;
    case 'e': SM_WriteItem(7, item.get(), index.get()); break;
    case 'f': SM_DeleteItem(7); break;
    case 'g': SM_ReadItem(7, item.get()); break;
    default:
        read_contact(contact.get(), 7);
        fuzz::require(std::memchr(contact->name, 0, sizeof(contact->name)) != nullptr &&
                          std::memchr(contact->number, 0, sizeof(contact->number)) != nullptr,
                      "a contact's texts end");
    }
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 operation = takeOctet(&input);
    support::plain::answerWithTexts(partsOf(input));
    ask(operation);
}
