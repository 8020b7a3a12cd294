// What comes in parts, put together: the parts of a concatenated message, and anything alike as its
// parts arrive one by one. Pure: the caller says what time it is.
#ifndef SMSPB_TOOLS_JOINING_H
#define SMSPB_TOOLS_JOINING_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/stored.h"

namespace smspb::cli {

// The parts of one message that are there. Parts belong together when kind, number, reference and
// total agree, and no more than an hour lies between one and the next, since references come again.
class PartGroup {
public:
    using Item = Stored;

    explicit PartGroup(Stored first);
    bool takes(const Stored &part) const;
    void add(Stored part);
    bool isComplete() const { return joined_.isComplete(); }
    // The parts in order.
    Joined take();

private:
    Joined joined_;
    std::int64_t lastTime_ = 0;
};

// Keeps what is incomplete until it is complete, has waited too long, or there is too much of it;
// everything comes out once. A Group is made from its first item and says whether it takes another.
template <typename Group> class Joiner {
public:
    using Item = typename Group::Item;
    using Time = std::chrono::steady_clock::time_point;

    // A group waits `patience` for its next item.
    explicit Joiner(std::chrono::milliseconds patience) : patience_(patience) {}

    // The group that the item completes.
    std::optional<Group> add(Item item, Time now) {
        auto place =
            std::find_if(waiting_.begin(), waiting_.end(),
                         [&item](const Waiting &waiting) { return waiting.group.takes(item); });
        if (place == waiting_.end()) {
            waiting_.push_back({Group(std::move(item)), now});
            place = waiting_.end() - 1;
        } else {
            place->group.add(std::move(item));
            place->since = now;
        }
        if (!place->group.isComplete()) { return std::nullopt; }
        return takeOut(place);
    }

    // A group that is given up: call it again until there is none.
    std::optional<Group> takeOverdue(Time now) {
        const auto oldest = findOldest();
        if (oldest == waiting_.end()) { return std::nullopt; }
        const bool isOverdue = now - oldest->since >= patience_ || waiting_.size() > GROUPS_MAX;
        return isOverdue ? std::optional(takeOut(oldest)) : std::nullopt;
    }

    // Whatever is left.
    std::optional<Group> takeAny() {
        if (waiting_.empty()) { return std::nullopt; }
        return takeOut(waiting_.begin());
    }

    std::optional<Time> deadline() {
        const auto oldest = findOldest();
        return oldest == waiting_.end() ? std::nullopt : std::optional(oldest->since + patience_);
    }

    std::size_t size() const { return waiting_.size(); }

private:
    // Enough for every sender of a busy minute; a flood of parts that never end stays bounded.
    static constexpr std::size_t GROUPS_MAX = 256;

    struct Waiting {
        Group group;
        Time since;
    };
    using Place = typename std::vector<Waiting>::iterator;

    Place findOldest() {
        return std::min_element(
            waiting_.begin(), waiting_.end(),
            [](const Waiting &a, const Waiting &b) { return a.since < b.since; });
    }

    Group takeOut(Place place) {
        Group group = std::move(place->group);
        waiting_.erase(place);
        return group;
    }

    std::chrono::milliseconds patience_;
    std::vector<Waiting> waiting_;
};

} // namespace smspb::cli

#endif
