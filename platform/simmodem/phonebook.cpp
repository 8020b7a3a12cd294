#include "phonebook.h"

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

} // namespace smspb::simmodem
