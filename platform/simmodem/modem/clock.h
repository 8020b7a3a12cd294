// The time of the modem, which all of it asks: time stamps, +CCLK, and everything that waits. It
// runs with the machine's, or stands still until it is driven forward, so that a test sees a day go
// by without waiting for it. Knows no event loop; program.cpp wakes it up.
#pragma once

#include <chrono>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace smspb::simmodem {

class Timer;

class Clock {
public:
    using Duration = std::chrono::nanoseconds;
    using Moment = std::chrono::time_point<std::chrono::steady_clock, Duration>;
    using WallTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds>;

    Clock() = default;
    Clock(const Clock &) = delete;
    Clock &operator=(const Clock &) = delete;

    // From here on the time is `wall` and moves by advance() alone. Before the first timer starts.
    void drive(std::time_t wall);
    bool isDriven() const { return drivenFrom_.has_value(); }

    Moment now() const;        // for what waits
    WallTime wallTime() const; // for who looks at it, UTC
    std::time_t wallSeconds() const { return std::chrono::system_clock::to_time_t(wallTime()); }

    // Lets so much time go by on a driven clock: timers that end within it end one after the other,
    // each at its own moment. False, and nothing happens, when the clock runs by itself or the year
    // would be beyond 2099.
    bool advance(Duration by);

    // Ends the timers whose moment has come.
    void endDue();

    // The moment at which the next timer ends; nothing while none runs.
    std::optional<Moment> nextEnd() const;
    std::size_t timersRunning() const { return timers_.size(); }

    // `nextChanged` is called when another timer became the next one, `ended` after each that
    // ended.
    void observe(std::function<void()> nextChanged, std::function<void()> ended);

private:
    friend class Timer;
    using Timers = std::multimap<Moment, Timer *>; // of one moment: in the order they were started

    void endFirst();

    Timers timers_;
    std::optional<std::time_t> drivenFrom_;
    Moment driven_{};
    std::function<void()> nextChanged_ = [] {}, ended_ = [] {};
};

// Does something once, a while from now. Must not outlive its clock.
class Timer {
public:
    explicit Timer(Clock &clock) : clock_(clock) {}
    ~Timer() { cancel(); }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    // Forgets what an earlier start asked for. Never calls `then` before it returns.
    void start(Clock::Duration wait, std::function<void()> then);
    void cancel();
    bool runs() const { return place_.has_value(); }

private:
    friend class Clock;
    Clock &clock_;
    std::optional<Clock::Timers::iterator> place_;
    std::function<void()> then_;
};

// A time as people write it on this machine: "2026-11-21 10:00:00", in the local zone. Nothing for
// another text, or a day that there is not.
std::optional<std::time_t> localTime(std::string_view text);

// A time in the local zone as ISO 8601 has it: "2026-11-21T10:00:00.000+01:00".
std::string isoTime(Clock::WallTime time);

// "90", "90s", "250ms", "5m", "1h" or "1d", a year at most; seconds without a unit.
std::optional<std::chrono::milliseconds> parseDuration(std::string_view text);

} // namespace smspb::simmodem
