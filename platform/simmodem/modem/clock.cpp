#include "platform/simmodem/modem/clock.h"

#include "platform/simmodem/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace smspb::simmodem {
namespace {

using std::chrono::milliseconds;

struct TimeUnit {
    std::string_view name;
    milliseconds length;
};

// "ms" stands before "m" and "s", which it begins or ends with.
constexpr std::array<TimeUnit, 6> TIME_UNITS{
    {
     {"ms", milliseconds(1)},
     {"s", std::chrono::seconds(1)},
     {"m", std::chrono::minutes(1)},
     {"h", std::chrono::hours(1)},
     {"d", std::chrono::hours(24)},
     {"", std::chrono::seconds(1)},
     }
};
// TP-SCTS (TS 23.040, 9.2.3.11) has two digits for the year.
constexpr Clock::WallTime CENTURY_END = std::chrono::sys_days(std::chrono::year(2100) / 1 / 1);
constexpr milliseconds DURATION_MAX = std::chrono::hours(24) * 366;

} // namespace

void Clock::drive(std::time_t wall) { drivenFrom_ = wall; }

Clock::Moment Clock::now() const {
    return isDriven() ? driven_ : Moment(std::chrono::steady_clock::now());
}

Clock::WallTime Clock::wallTime() const {
    const auto wall = isDriven() ? std::chrono::system_clock::from_time_t(*drivenFrom_) +
                                       driven_.time_since_epoch()
                                 : std::chrono::system_clock::now();
    return std::chrono::floor<milliseconds>(wall);
}

bool Clock::advance(Duration by) {
    if (!isDriven() || wallTime() + by >= CENTURY_END) { return false; }
    const Moment target = driven_ + by;
    while (nextEnd().value_or(target + Duration(1)) <= target) {
        driven_ = std::max(driven_, *nextEnd());
        endFirst();
    }
    driven_ = target;
    return true;
}

void Clock::endDue() {
    while (nextEnd().value_or(Moment::max()) <= now()) { endFirst(); }
    nextChanged_();
}

std::optional<Clock::Moment> Clock::nextEnd() const {
    return timers_.empty() ? std::nullopt : std::optional(timers_.begin()->first);
}

void Clock::observe(std::function<void()> nextChanged, std::function<void()> ended) {
    nextChanged_ = std::move(nextChanged);
    ended_ = std::move(ended);
}

// The timer may start itself anew, or go, in what it does.
void Clock::endFirst() {
    Timer &timer = *timers_.begin()->second;
    timers_.erase(timers_.begin());
    timer.place_.reset();
    const auto then = std::exchange(timer.then_, nullptr);
    then();
    ended_();
}

void Timer::start(Clock::Duration wait, std::function<void()> then) {
    cancel();
    then_ = std::move(then);
    place_ = clock_.timers_.emplace(clock_.now() + wait, this);
    if (*place_ == clock_.timers_.begin()) { clock_.nextChanged_(); }
}

void Timer::cancel() {
    if (!place_) { return; }
    clock_.timers_.erase(*place_);
    place_.reset();
    then_ = nullptr;
}

std::optional<std::time_t> localTime(std::string_view text) {
    std::tm clock{};
    const std::string whole(text);
    const char *const end = ::strptime(whole.c_str(), "%Y-%m-%d %H:%M:%S", &clock);
    if (end == nullptr || *end != '\0') { return std::nullopt; }
    std::tm normal = clock;
    normal.tm_isdst = -1;
    const std::time_t time = std::mktime(&normal);
    const bool isDate = time != -1 && normal.tm_mday == clock.tm_mday;
    return isDate ? std::optional(time) : std::nullopt;
}

std::string isoTime(Clock::WallTime time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto milli = (time.time_since_epoch() % std::chrono::seconds(1)).count();
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 32> date{}, zone{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone.data(), zone.size(), "%z", &local); // "+0100"
    return fmt::format("{}.{:03}{:.3}:{}", date.data(), milli, zone.data(), zone.data() + 3);
}

std::optional<milliseconds> parseDuration(std::string_view text) {
    const auto unit = std::find_if(TIME_UNITS.begin(), TIME_UNITS.end(),
                                   [text](const TimeUnit &u) { return text.ends_with(u.name); });
    text.remove_suffix(unit->name.size());
    const auto number = parseNumber(text);
    if (!number || *number > DURATION_MAX / unit->length) { return std::nullopt; }
    return *number * unit->length;
}

} // namespace smspb::simmodem
