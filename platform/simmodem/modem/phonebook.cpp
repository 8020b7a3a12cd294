#include "platform/simmodem/modem/phonebook.h"

#include <algorithm>

namespace smspb::simmodem {

std::size_t Phonebook::used() const {
    return static_cast<std::size_t>(std::count_if(
        places_.begin(), places_.end(), [](const auto &place) { return place.has_value(); }));
}

const Contact *Phonebook::find(std::size_t index) const {
    return hasPlace(index) && places_[index - 1] ? &*places_[index - 1] : nullptr;
}

std::optional<std::size_t> Phonebook::freePlace() const {
    const auto place = std::find(places_.begin(), places_.end(), std::nullopt);
    if (place == places_.end()) { return std::nullopt; }
    return static_cast<std::size_t>(place - places_.begin()) + 1;
}

std::vector<Phonebook> makePhonebooks(std::size_t smSize, std::size_t meSize,
                                      const std::string &ownNumber) {
    static constexpr std::size_t OWN_NUMBERS = 2, CALLS = 10;
    std::vector<Phonebook> books;
    books.emplace_back("SM", smSize);
    books.emplace_back("ME", meSize);
    books.emplace_back("ON", OWN_NUMBERS).put(1, Contact{ownNumber, typeOfNumber(ownNumber), {}});
    books.emplace_back("EN", 1, false).put(1, Contact{"112", typeOfNumber("112"), u"SOS"});
    for (const char *calls : {"FD", "DC", "LD", "MC", "RC"}) {
        books.emplace_back(calls, CALLS, false);
    }
    return books;
}

unsigned typeOfNumber(std::string_view number) {
    static constexpr unsigned NATIONAL = 129, INTERNATIONAL = 145;
    return number.starts_with('+') ? INTERNATIONAL : NATIONAL;
}

} // namespace smspb::simmodem
