#include "tools/joining.h"

#include <string_view>
#include <tuple>

namespace smspb::cli {

namespace {

constexpr std::int64_t PART_GAP_SECONDS = 3600;

auto keyOf(const Message &message) {
    return std::tuple(message.kind, std::string_view(message.number), message.part->reference,
                      message.part->total);
}

bool isPart(const Stored &stored) { return stored.message && stored.message->part; }

std::int64_t timeOf(const Stored &stored) {
    return stored.message ? stored.message->seconds.value_or(0) : 0;
}

} // namespace

PartGroup::PartGroup(Stored first) : lastTime_(timeOf(first)) {
    joined_.total = isPart(first) ? first.message->part->total : 1;
    joined_.parts.push_back(std::move(first));
}

bool PartGroup::takes(const Stored &part) const {
    const Stored &first = joined_.parts.front();
    if (!isPart(part) || !isPart(first) || keyOf(*first.message) != keyOf(*part.message)) {
        return false;
    }
    if (part.message->seconds && *part.message->seconds - lastTime_ > PART_GAP_SECONDS) {
        return false;
    }
    return std::none_of(joined_.parts.begin(), joined_.parts.end(), [&part](const Stored &other) {
        return other.message->part->number == part.message->part->number;
    });
}

void PartGroup::add(Stored part) {
    lastTime_ = timeOf(part);
    joined_.parts.push_back(std::move(part));
}

Joined PartGroup::take() {
    if (joined_.parts.size() > 1) {
        std::sort(joined_.parts.begin(), joined_.parts.end(), [](const Stored &a, const Stored &b) {
            return a.message->part->number < b.message->part->number;
        });
    }
    return std::move(joined_);
}

} // namespace smspb::cli
