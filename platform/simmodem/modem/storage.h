// One message storage of the modem: numbered places, from 1, each empty or with one message.
#pragma once

#include "platform/simmodem/network/tpdu.h"

#include <optional>
#include <string>
#include <vector>

namespace smspb::simmodem {

// TS 27.005, 3.1, <stat>.
enum class MessageStatus { unread = 0, read = 1, unsent = 2, sent = 3 };

struct StoredMessage {
    MessageStatus status;
    Pdu pdu;

    bool operator==(const StoredMessage &) const = default;
};

class Storage {
public:
    Storage(std::string name, std::size_t size) : name_(std::move(name)), places_(size) {}

    const std::string &name() const { return name_; }
    std::size_t size() const { return places_.size(); }
    std::size_t used() const;
    bool full() const { return used() == size(); }

    bool hasPlace(std::size_t index) const { return index >= 1 && index <= places_.size(); }

    // The message at `index`; null for an empty place and for one that does not exist.
    StoredMessage *find(std::size_t index);
    const StoredMessage *find(std::size_t index) const;

    // Puts a message in the first empty place and returns its index; nothing when full.
    std::optional<std::size_t> add(StoredMessage message);

    // Empties a place that exists.
    void remove(std::size_t index) { places_.at(index - 1).reset(); }

    // Into a place that exists, whatever it holds.
    void put(std::size_t index, StoredMessage message) {
        places_.at(index - 1) = std::move(message);
    }

    bool operator==(const Storage &) const = default;

private:
    std::string name_;
    std::vector<std::optional<StoredMessage>> places_;
};

} // namespace smspb::simmodem
