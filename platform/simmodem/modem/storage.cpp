#include "platform/simmodem/modem/storage.h"

#include <algorithm>
#include <utility>

namespace smspb::simmodem {

std::size_t Storage::used() const {
    return static_cast<std::size_t>(std::count_if(
        places_.begin(), places_.end(), [](const auto &place) { return place.has_value(); }));
}

const StoredMessage *Storage::find(std::size_t index) const {
    if (!hasPlace(index) || !places_[index - 1]) { return nullptr; }
    return &*places_[index - 1];
}

StoredMessage *Storage::find(std::size_t index) {
    return const_cast<StoredMessage *>(std::as_const(*this).find(index));
}

std::optional<std::size_t> Storage::add(StoredMessage message) {
    const auto place = std::find(places_.begin(), places_.end(), std::nullopt);
    if (place == places_.end()) { return std::nullopt; }
    *place = std::move(message);
    return static_cast<std::size_t>(place - places_.begin()) + 1;
}

} // namespace smspb::simmodem
