#include "tools/progress.h"

#include <fmt/format.h>

namespace smspb::cli {

namespace {

constexpr std::chrono::seconds SHOWN_AFTER{1};
constexpr std::chrono::milliseconds SHOWN_EVERY{100};

} // namespace

Progress::Progress(const Console &console, std::string deed, std::size_t total)
    : console_(console), deed_(std::move(deed)), total_(total), next_(Clock::now() + SHOWN_AFTER) {}

Progress::~Progress() { console_.progress(""); }

void Progress::step(std::size_t done) {
    if (console_.json() || Clock::now() < next_) { return; }
    next_ = Clock::now() + SHOWN_EVERY;
    console_.progress(fmt::format("{}, {} of {}", deed_, done, total_));
}

} // namespace smspb::cli
