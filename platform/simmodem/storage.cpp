#include "storage.h"

#include <algorithm>

namespace smspb::simmodem {

std::size_t Storage::used() const {
    return static_cast<std::size_t>(std::count_if(
        places_.begin(), places_.end(), [](const auto &place) { return place.has_value(); }));
}

StoredMessage *Storage::find(std::size_t index) {
    if (!hasPlace(index) || !places_[index - 1]) { return nullptr; }
    return &*places_[index - 1];
}

std::optional<std::size_t> Storage::add(StoredMessage message) {
    const auto place = std::find(places_.begin(), places_.end(), std::nullopt);
    if (place == places_.end()) { return std::nullopt; }
    *place = std::move(message);
    return static_cast<std::size_t>(place - places_.begin()) + 1;
}

} // namespace smspb::simmodem
