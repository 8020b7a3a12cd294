#include "platform/simmodem/modem/storage_view.h"

#include <numeric>

namespace smspb::simmodem {

std::size_t StorageView::size() const {
    return std::accumulate(members_.begin(), members_.end(), std::size_t{0},
                           [](std::size_t sum, const Storage *each) { return sum + each->size(); });
}

std::size_t StorageView::used() const {
    return std::accumulate(members_.begin(), members_.end(), std::size_t{0},
                           [](std::size_t sum, const Storage *each) { return sum + each->used(); });
}

std::optional<StorageView::Place> StorageView::place(std::size_t index) const {
    if (index < scheme_.base || (index - scheme_.base) % scheme_.step != 0) { return std::nullopt; }
    std::size_t number = (index - scheme_.base) / scheme_.step + 1;
    for (Storage *const each : members_) {
        if (each->hasPlace(number)) { return Place{each, number}; }
        number -= each->size();
    }
    return std::nullopt;
}

StoredMessage *StorageView::find(std::size_t index) const {
    const auto found = place(index);
    return found ? found->storage->find(found->number) : nullptr;
}

std::vector<std::size_t> StorageView::usedIndexes() const {
    std::vector<std::size_t> indexes;
    std::size_t before = 0;
    for (Storage *const each : members_) {
        for (std::size_t number = 1; number <= each->size(); number++) {
            if (each->find(number) != nullptr) { indexes.push_back(indexOf(before, number)); }
        }
        before += each->size();
    }
    return indexes;
}

std::optional<std::size_t> StorageView::add(StoredMessage message) const {
    std::size_t before = 0;
    for (Storage *const each : members_) {
        if (!each->full()) { return indexOf(before, *each->add(std::move(message))); }
        before += each->size();
    }
    return std::nullopt;
}

void StorageView::remove(std::size_t index) const {
    const auto found = place(index);
    if (found) { found->storage->remove(found->number); }
}

} // namespace smspb::simmodem
