#include "platform/modemd/request_queue.h"

#include <utility>

#include <spdlog/spdlog.h>

namespace smspb::modemd {

void RequestQueue::add(Job job) {
    if (isStopped_) {
        job.answer({Result::SHUTTING_DOWN, {}});
    } else if (jobs_.size() - (isRunning_ ? 1 : 0) >= JOBS_MAX) {
        job.answer({Result::TOO_MANY, {}});
    } else {
        jobs_.push_back(std::move(job));
        if (!isRunning_) { startNext(); }
    }
}

void RequestQueue::stop(std::function<void()> onIdle) {
    isStopped_ = true;
    onIdle_ = std::move(onIdle);
    std::deque<Job> waiting;
    while (jobs_.size() > (isRunning_ ? 1u : 0u)) {
        waiting.push_front(std::move(jobs_.back()));
        jobs_.pop_back();
    }
    for (const Job &job : waiting) { job.answer({Result::SHUTTING_DOWN, {}}); }
    if (!isRunning_ && onIdle_) { onIdle_(); }
}

void RequestQueue::startNext() {
    while (!jobs_.empty() && !jobs_.front().isWanted()) {
        spdlog::info("request dropped: its asker hung up before it started");
        jobs_.pop_front();
    }
    if (jobs_.empty()) { return; }
    isRunning_ = true;
    run_(jobs_.front().request, [this](const Answer &answer) { onAnswer(answer); });
}

void RequestQueue::onAnswer(const Answer &answer) {
    const bool isCutShort = isStopped_ && answer.result != Result::CARRIED_OUT;
    jobs_.front().answer(isCutShort ? Answer{Result::SHUTTING_DOWN, {}} : answer);
    jobs_.pop_front();
    isRunning_ = false;
    startNext();
    if (isStopped_ && onIdle_) { onIdle_(); }
}

} // namespace smspb::modemd
