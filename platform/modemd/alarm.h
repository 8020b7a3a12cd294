// A time that something has to be done at.
#ifndef SMSPB_PLATFORM_MODEMD_ALARM_H
#define SMSPB_PLATFORM_MODEMD_ALARM_H

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

namespace smspb::modemd {

// Calls `then` from the event loop at the time that was set last; what was set before, or cleared,
// is never called. Most times are cleared before they come, so the system's timer is left running
// and looked at when it ends: setting and clearing cost nothing then.
class Alarm {
public:
    using Clock = std::chrono::steady_clock;

    explicit Alarm(asio::io_context &loop) : timer_(loop) {}

    void set(Clock::time_point at, std::function<void()> then) {
        at_ = at;
        then_ = std::move(then);
        if (!runsUntil_ || at < *runsUntil_) { start(at); }
    }
    void clear() { at_.reset(); }
    // Lets the event loop end.
    void stop() {
        clear();
        runsUntil_.reset();
        number_++;
        timer_.cancel();
    }

private:
    // A wait that is over, but not yet handled, can no longer be cancelled: it is told by its
    // number.
    void start(Clock::time_point until) {
        runsUntil_ = until;
        timer_.expires_at(until);
        timer_.async_wait([this, number = ++number_](asio::error_code error) {
            if (!error && number == number_) { onEnd(); }
        });
    }

    void onEnd() {
        runsUntil_.reset();
        if (!at_) { return; }
        if (Clock::now() < *at_) {
            start(*at_);
            return;
        }
        at_.reset();
        std::exchange(then_, nullptr)();
    }

    asio::steady_timer timer_;
    std::optional<Clock::time_point> at_, runsUntil_;
    std::function<void()> then_;
    unsigned number_ = 0;
};

} // namespace smspb::modemd

#endif
