// What +CPMS chooses by a name: a storage, or "MT", which is both of them. The indexes of AT
// commands are made here. "MT" counts through the places of its first storage and goes on with the
// second's.
#pragma once

#include "platform/simmodem/modem/storage.h"

namespace smspb::simmodem {

// The index of the first place of a storage and how far the next one is from it.
struct IndexScheme {
    std::size_t base = 1, step = 1;
};

class StorageView {
public:
    StorageView(std::string name, std::vector<Storage *> members, IndexScheme scheme)
        : name_(std::move(name)), members_(std::move(members)), scheme_(scheme) {}

    const std::string &name() const { return name_; }
    std::size_t size() const;
    std::size_t used() const;

    // Whether a place of that index exists.
    bool hasPlace(std::size_t index) const { return place(index).has_value(); }

    // The message at `index`; null for an empty place and for one that does not exist.
    StoredMessage *find(std::size_t index) const;

    // The indexes of the places that hold a message, ascending.
    std::vector<std::size_t> usedIndexes() const;

    // Puts a message in the first empty place and returns its index; nothing when full.
    std::optional<std::size_t> add(StoredMessage message) const;

    // Empties a place that exists.
    void remove(std::size_t index) const;

private:
    struct Place {
        Storage *storage;
        std::size_t number; // within it, from 1
    };
    std::optional<Place> place(std::size_t index) const;
    std::size_t indexOf(std::size_t placesBefore, std::size_t number) const {
        return scheme_.base + (placesBefore + number - 1) * scheme_.step;
    }

    std::string name_;
    std::vector<Storage *> members_;
    IndexScheme scheme_;
};

} // namespace smspb::simmodem
