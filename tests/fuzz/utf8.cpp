// UTF-8 to units, from any octets, and a contact's name.
#include "atlib/CPbSIM.h"
#include "atlib/SmsUtils.h"
#include "fuzz.h"
#include "support/plain/plain_platform.h"

namespace {

void writeContact(std::string_view input) {
    support::plain::answerWithTexts({"\r\nOK\r\n"});
    const fuzz::Block<pb_info_t> contact;
    contact->index = 7;
    std::copy_n(input.begin(), std::min<std::size_t>(input.size(), PB_CONTACT_ROOM), contact->name);
    std::copy_n(input.rbegin(), std::min<std::size_t>(input.size(), PB_CONTACT_ROOM),
                contact->number);
    fuzz::require(add_new_contact(contact.get()) == PB_OK, "a contact is written");
    fuzz::require(edit_sim_contact(contact.get()) == PB_OK, "a contact is written");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 capacity = takeOctet(&input);
    const Block<u8> octets = copyOf(input);
    const auto octetCount = static_cast<u32>(octets.size());
    const Block<u16> units(capacity);
    const i32 converted = UTF8ToUnicode(octets.get(), octetCount, units.get(), capacity);
    require(converted >= 0 && (converted == 0 || converted < capacity), "room for the zero");
    if (converted > 0) {
        require(units[static_cast<std::size_t>(converted)] == 0, "a zero behind the units");
    }
    require(ends(UTF2Uni(octets.get(), octetCount), 1024), "the static buffer ends");
    for (std::size_t i = 0; i < octets.size(); i++) {
        const int length = getCntBits(octets[i]);
        require(length >= -1 && length <= 6 && length != 1, "the length of a sequence");
    }
    writeContact(input);
}
