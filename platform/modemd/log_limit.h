// Keeps whoever does one thing again and again from filling the log.
#ifndef SMSPB_PLATFORM_MODEMD_LOG_LIMIT_H
#define SMSPB_PLATFORM_MODEMD_LOG_LIMIT_H

#include <chrono>
#include <map>
#include <utility>

namespace smspb::modemd {

template <typename Key> class LogLimit {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned LINES_MAX = 64; // about each within the time
    static constexpr std::chrono::seconds TIME{10};

    enum class Verdict {
        LOG,
        LAST, // it is one too many: to be said, and nothing more for a while
        LEAVE_OUT,
    };

    Verdict judge(const Key &key) {
        const Clock::time_point now = Clock::now();
        if (now - since_ >= TIME) {
            lines_.clear();
            since_ = now;
        }
        const unsigned count = ++lines_[key];
        if (count > LINES_MAX + 1) { return Verdict::LEAVE_OUT; }
        return count > LINES_MAX ? Verdict::LAST : Verdict::LOG;
    }

private:
    std::map<Key, unsigned> lines_;
    Clock::time_point since_{};
};

} // namespace smspb::modemd

#endif
