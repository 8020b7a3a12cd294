#include "platform/modemd/request_queue.h"

#include <algorithm>
#include <utility>

#include <spdlog/spdlog.h>

namespace smspb::modemd {
namespace {

using Jobs = std::deque<RequestQueue::Job>;

std::size_t countOf(const Jobs &jobs, const Asker &asker) {
    return static_cast<std::size_t>(
        std::count_if(jobs.begin(), jobs.end(), [&asker](const RequestQueue::Job &job) {
            return job.account.asker.process == asker.process;
        }));
}

void answerJob(const RequestQueue::Job &job, Result result) {
    job.caller->answer(job.account, {result, {}});
}

// For a message the exchange has bounds of its own, from its arrival on.
Clock::duration patienceOf(const Request &request) {
    const auto *command = std::get_if<CommandRequest>(&request);
    const Clock::duration longest = RequestQueue::TURN_WAIT_MAX;
    return command != nullptr ? std::min<Clock::duration>(command->wait, longest) : longest;
}

} // namespace

void RequestQueue::add(Job job) {
    if (isStopped_) {
        answerJob(job, Result::SHUTTING_DOWN);
        return;
    }
    if (!hasRoomFor(job.account.asker)) {
        turnAway(std::move(job));
        return;
    }
    if (!turnedAway_.empty()) { turnedAway_.erase(job.account.asker.process); }
    const Clock::time_point expiry = expiryOf(job);
    later_.push_back(std::move(job));
    fillRow();
    startNext();
    if (waitingCount() > 0) { wakeBy(expiry); }
}

bool RequestQueue::hasRoomFor(const Asker &asker) const {
    const std::size_t all = waitingCount();
    if (all == 0) { return true; }
    const std::size_t own = countOf(row_, asker) + countOf(later_, asker);
    const bool mayTakeKeptPlaces = own == 0;
    return own < SHARE_MAX && all < (mayTakeKeptPlaces ? JOBS_MAX : JOBS_MAX - KEPT_PLACES);
}

void RequestQueue::turnAway(Job job) {
    if (turnedAway_.insert(job.account.asker.process).second) {
        const Asker &asker = job.account.asker;
        spdlog::warn("{} is turned away until there is room: {} of its requests wait, {} in all",
                     describe(asker), countOf(row_, asker) + countOf(later_, asker),
                     waitingCount());
    }
    if (turnedAway_.size() > JOBS_MAX) { turnedAway_.clear(); } // the processes may be long gone
    answerJob(job, Result::TOO_MANY);
}

// Who waits outside joins at the end, in order of arrival, as far as his process has a place.
void RequestQueue::fillRow() {
    for (auto job = later_.begin(); job != later_.end();) {
        if (countOf(row_, job->account.asker) < ROW_PLACES_MAX) {
            row_.push_back(std::move(*job));
            job = later_.erase(job);
        } else {
            ++job;
        }
    }
}

void RequestQueue::startNext() {
    while (!running_ && !row_.empty()) {
        Job job = std::move(row_.front());
        row_.pop_front();
        fillRow();
        if (job.caller->isWaiting()) {
            start(std::move(job));
        } else {
            job.caller->drop(job.account);
        }
    }
}

void RequestQueue::start(Job job) {
    running_ = std::move(job);
    running_->account.begin = Clock::now();
    run_(*running_, [this](const Answer &answer) { onAnswer(answer); });
}

void RequestQueue::onAnswer(const Answer &answer) {
    const bool isCutShort = isStopped_ && answer.result != Result::CARRIED_OUT;
    const Job job = std::move(*running_);
    running_.reset();
    job.caller->answer(job.account, isCutShort ? Answer{Result::SHUTTING_DOWN, {}} : answer);
    startNext();
    if (isStopped_ && onIdle_) { onIdle_(); }
}

void RequestQueue::stop(std::function<void()> onIdle) {
    isStopped_ = true;
    onIdle_ = std::move(onIdle);
    for (Jobs *jobs : {&row_, &later_}) {
        const Jobs waiting = std::exchange(*jobs, {});
        for (const Job &job : waiting) { answerJob(job, Result::SHUTTING_DOWN); }
    }
    if (!running_ && onIdle_) { onIdle_(); }
}

Clock::time_point RequestQueue::expiryOf(const Job &job) const {
    return job.account.arrival + (isModemSilent_ ? patienceOf(job.request) : TURN_WAIT_MAX);
}

void RequestQueue::wakeBy(Clock::time_point expiry) {
    if (wake_ && *wake_ <= expiry) { return; }
    wake_ = expiry;
    wakeAt_(expiry);
}

void RequestQueue::expire(Clock::time_point now) {
    wake_.reset();
    expireIn(&row_, now);
    expireIn(&later_, now);
    fillRow();
    for (const Jobs *jobs : {&row_, &later_}) {
        for (const Job &job : *jobs) { wakeBy(expiryOf(job)); }
    }
}

void RequestQueue::expireIn(Jobs *jobs, Clock::time_point now) {
    const auto late = std::stable_partition(jobs->begin(), jobs->end(),
                                            [&](const Job &job) { return expiryOf(job) > now; });
    const std::vector<Job> expired(std::make_move_iterator(late),
                                   std::make_move_iterator(jobs->end()));
    jobs->erase(late, jobs->end());
    for (const Job &job : expired) { answerJob(job, Result::NO_ANSWER); }
}

void RequestQueue::setModemSilent(bool isSilent) {
    if (std::exchange(isModemSilent_, isSilent) != isSilent) { expire(Clock::now()); }
}

std::vector<const Account *> RequestQueue::waiting() const {
    std::vector<const Account *> accounts;
    for (const Jobs *jobs : {&row_, &later_}) {
        for (const Job &job : *jobs) { accounts.push_back(&job.account); }
    }
    return accounts;
}

} // namespace smspb::modemd
