// Requests in order of arrival, one at a time. Knows neither IPC nor the modem.
//
// First come, first served, as long as a process has no more than ROW_PLACES_MAX requests waiting:
// what it asks beyond them joins the row, at its end, when one of its places is free. So whoever
// asks waits for a few requests of each other process, however many they send. Of all that wait a
// process can have SHARE_MAX, and the last places are kept for those that have nothing waiting.
#ifndef SMSPB_PLATFORM_MODEMD_REQUEST_QUEUE_H
#define SMSPB_PLATFORM_MODEMD_REQUEST_QUEUE_H

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "platform/modemd/account.h"
#include "platform/modemd/records.h"

namespace smspb::modemd {

class RequestQueue {
public:
    // Who asked.
    class Caller {
    public:
        virtual ~Caller() = default;
        virtual bool isWaiting() const = 0; // for the answer
        // One of these is called, once.
        virtual void answer(const Account &account, const Answer &answer) = 0;
        virtual void drop(const Account &account) = 0; // it hung up before its turn came
    };

    struct Job {
        Request request;
        Account account;
        std::unique_ptr<Caller> caller;
    };

    using OnAnswer = std::function<void(const Answer &)>;
    // Carries a request out and answers it later, not within the call.
    using Runner = std::function<void(const Job &, OnAnswer)>;
    // Asks for expire() at that time; replaces what it asked for before.
    using WakeAt = std::function<void(Clock::time_point)>;

    static constexpr std::size_t JOBS_MAX = 256; // that wait
    static constexpr std::size_t SHARE_MAX = 64;
    static constexpr std::size_t KEPT_PLACES = 64;
    static constexpr std::size_t ROW_PLACES_MAX = 8;
    // How long anybody waits for his turn. The library's callers give up a command after 20 s and a
    // message after 35 s: what begins later would be carried out for nobody.
    static constexpr std::chrono::seconds TURN_WAIT_MAX{15};

    RequestQueue(Runner run, WakeAt wakeAt) : run_(std::move(run)), wakeAt_(std::move(wakeAt)) {}

    // Starts the job when it is alone. One that nobody waits for is dropped when its turn comes;
    // one for which there is no room is answered TOO_MANY.
    void add(Job job);
    // Answers NO_ANSWER to whoever has waited for his turn for too long.
    void expire(Clock::time_point now);
    // While the modem does not even answer the manager, a request waits for its turn no longer than
    // it would for its reply.
    void setModemSilent(bool isSilent);
    // Answers all that wait, and all that come, with SHUTTING_DOWN; what runs keeps running, and
    // `onIdle` is called when it is done, at once when nothing runs.
    void stop(std::function<void()> onIdle = {});

    const Account *running() const { return running_ ? &running_->account : nullptr; }
    std::vector<const Account *> waiting() const; // in the order in which they would be served
    std::size_t waitingCount() const { return row_.size() + later_.size(); }

private:
    bool hasRoomFor(const Asker &asker) const;
    void turnAway(Job job);
    void startNext();
    void start(Job job);
    void fillRow();
    void onAnswer(const Answer &answer);
    Clock::time_point expiryOf(const Job &job) const;
    void expireIn(std::deque<Job> *jobs, Clock::time_point now);
    void wakeBy(Clock::time_point expiry);

    Runner run_;
    WakeAt wakeAt_;
    std::optional<Job> running_;
    std::deque<Job> row_;
    std::deque<Job> later_;      // of processes that have all their places in the row
    std::set<pid_t> turnedAway_; // logged once, until they are let in again
    std::optional<Clock::time_point> wake_;
    bool isModemSilent_ = false;
    bool isStopped_ = false;
    std::function<void()> onIdle_;
};

} // namespace smspb::modemd

#endif
