// Runs a program for each event, one after the other in the order of events, while the caller goes
// on listening. Never through a shell: the program gets no arguments, the event is its environment.
#ifndef SMSPB_TOOLS_HOOK_H
#define SMSPB_TOOLS_HOOK_H

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tools/events.h"

namespace smspb::cli {

class Hook {
public:
    using Clock = std::chrono::steady_clock;

    // An event whose program is over, or could not run.
    struct Done {
        Event event;
        std::string problem; // empty: it ended with 0
    };

    // `program` is a path, or a name to be found on PATH; throws a Failure when it cannot be run.
    // A run that takes longer than `limit` is ended. `mask` is the signal mask that programs get.
    Hook(const std::string &program, std::chrono::milliseconds limit, const sigset_t &mask);
    ~Hook(); // ends the program that runs
    Hook(const Hook &) = delete;
    Hook &operator=(const Hook &) = delete;

    // False when too many events wait already.
    bool add(Event event);
    // To be called when a child may have ended (SIGCHLD) or at the deadline, until there is
    // nothing: reaps the program, ends one that takes too long, starts the next one.
    std::optional<Done> proceed(Clock::time_point now);
    // Ends the program that runs.
    void interrupt();

    bool isIdle() const { return pid_ <= 0 && waiting_.empty(); }
    std::size_t waitingCount() const { return waiting_.size(); }
    std::optional<Clock::time_point> deadline() const;

private:
    std::string start(Clock::time_point now);
    std::optional<int> reap();

    std::string program_;
    std::chrono::milliseconds limit_;
    sigset_t mask_;
    std::deque<Event> waiting_; // the first one's program runs when pid_ is set
    pid_t pid_ = -1;
    Clock::time_point deadline_;
    bool isOverdue_ = false;
};

} // namespace smspb::cli

#endif
