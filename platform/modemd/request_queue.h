// Requests in strict order of arrival, one at a time. Knows neither IPC nor the modem.
#ifndef SMSPB_PLATFORM_MODEMD_REQUEST_QUEUE_H
#define SMSPB_PLATFORM_MODEMD_REQUEST_QUEUE_H

#include <cstddef>
#include <deque>
#include <functional>

#include "platform/modemd/records.h"

namespace smspb::modemd {

class RequestQueue {
public:
    using OnAnswer = std::function<void(const Answer &)>;
    // Carries a request out and answers it later, not within the call.
    using Runner = std::function<void(const Request &, OnAnswer)>;

    struct Job {
        Request request;
        std::function<bool()> isWanted; // false: nobody waits for the answer any more
        OnAnswer answer;
    };

    static constexpr std::size_t JOBS_MAX = 256; // that wait

    explicit RequestQueue(Runner run) : run_(std::move(run)) {}

    // Starts the job when it is alone. One that is not wanted when its turn comes is dropped; one
    // that finds the queue full is answered TOO_MANY.
    void add(Job job);
    // Answers all that wait, and all that come, with SHUTTING_DOWN; what runs keeps running, and
    // `onIdle` is called when it is done, at once when nothing runs.
    void stop(std::function<void()> onIdle = {});

private:
    void startNext();
    void onAnswer(const Answer &answer);

    Runner run_;
    std::deque<Job> jobs_; // the first one runs while `isRunning_`
    bool isRunning_ = false;
    bool isStopped_ = false;
    std::function<void()> onIdle_;
};

} // namespace smspb::modemd

#endif
