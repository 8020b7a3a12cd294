// listen: what the modem says of its own accord, as it arrives.
//
// The subscription comes first, so nothing is lost between asking the modem and hearing it. What
// arrives is taken off the subscription before and after each step that talks to the modem.
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <list>

#include <fmt/format.h>

#include "atlib/CSMS.h"
#include "platform/ipc/ipc_server.h"
#include "tools/commands.h"
#include "tools/events.h"
#include "tools/hook.h"
#include "tools/joining.h"
#include "tools/modem.h"
#include "tools/signals.h"

namespace smspb::cli {

namespace {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using namespace std::chrono_literals;

constexpr u32 NOTIFICATION = 0x10400090;
constexpr auto MANAGER_CHECK = 1s;
constexpr auto INDICATION_CHECK = 60s;
constexpr auto READ_AGAIN = 1s; // after the modem did not answer
constexpr auto READ_LIMIT = 60s;
// `send` writes a reference down right after the modem gave it; the report may be faster.
constexpr std::chrono::milliseconds MATCH_LIMIT{1000}, MATCH_AGAIN{20};
// Ctrl-C may reach us twice at once: from the terminal and from a process that passes it on.
constexpr auto SECOND_SIGNAL = 500ms;

// +CNMI, 3GPP TS 27.005, 3.4.1: <mode>,<mt>,<bm>,<ds>,<bfr>
struct IndicationMode {
    std::string text;
    bool messages = false, pages = false, reports = false;
};

std::optional<IndicationMode> indicationModeFrom(std::string_view reply) {
    static constexpr std::string_view KEY = "+CNMI:";
    const std::size_t start = reply.find(KEY);
    if (start == reply.npos) { return std::nullopt; }
    reply.remove_prefix(start + KEY.size());
    reply.remove_prefix(std::min(reply.find_first_not_of(' '), reply.size()));
    IndicationMode mode;
    mode.text = reply.substr(0, reply.find_first_of("\r\n"));
    std::array<int, 4> values{};
    const char *at = mode.text.data(), *const end = at + mode.text.size();
    for (int &value : values) {
        const auto [behind, error] = std::from_chars(at, end, value);
        if (error != std::errc()) { return std::nullopt; }
        at = behind == end ? end : behind + 1;
    }
    const bool forwards = values[0] != 0; // 0 keeps everything in the modem
    mode.messages = forwards && values[1] != 0;
    mode.pages = forwards && values[2] >= 2;
    mode.reports = forwards && values[3] != 0;
    return mode;
}

void announceEverything() {
    const u32 status = setNewMessageIndication(2, 1, 2, 1, 0);
    if (status == SMS_OK) { return; }
    throw explained(status, "make the modem announce everything", "AT+CNMI=2,1,2,1,0");
}

std::string listed(const std::vector<std::string_view> &things) {
    return fmt::format("{}", fmt::join(things, " and no "));
}

struct Arrival {
    Indication indication;
    std::string time;
    Time since;
};

struct UnmatchedReport {
    Stored report;
    std::string time;
    Time since;
};

class Listener {
public:
    Listener(const Console &console, const ListenOptions &options)
        : console_(console), options_(options), subscription_({NOTIFICATION}),
          parts_(inMilliseconds(options.partsWaitSeconds)),
          pages_(inMilliseconds(options.partsWaitSeconds)) {
        if (!options.program.empty()) {
            hook_.emplace(options.program, inMilliseconds(options.programLimitSeconds),
                          signals_.former());
        }
        if (options.timeoutSeconds > 0) {
            deadline_ = Clock::now() + inMilliseconds(options.timeoutSeconds);
        }
    }

    Exit run() {
        requireManager();
        checkIndications(true);
        console_.note("listening; Ctrl-C ends it");
        while (!isOver()) {
            handleArrivals();
            giveUpOverdue();
            matchReports();
            proceedHook();
            watchManager();
            if (!isOver()) { sleep(); }
        }
        finish();
        const bool isSilent = heardCount_ == 0 && stoppedBy_ == 0;
        if (isSilent) { console_.note("nothing came in time"); }
        return isSilent ? Exit::NOTHING_CAME : Exit::OK;
    }

private:
    static std::chrono::milliseconds inMilliseconds(double seconds) {
        return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
    }
    static std::string nowText() { return localTime(std::time(nullptr)); }

    bool isOver() const {
        return stoppedBy_ != 0 || isSatisfied() || (deadline_ && Clock::now() >= *deadline_);
    }
    bool isSatisfied() const { return options_.once && heardCount_ > 0; }

    // Everything that was announced so far.
    void takeNotifications() {
        while (auto block = subscription_.receive(0ms)) {
            const auto payload = block->payload();
            const std::string_view text(reinterpret_cast<const char *>(payload.data()),
                                        payload.size());
            for (std::string &report : splitReports(text.substr(0, text.find('\0')))) {
                arrivals_.push_back({classify(std::move(report)), nowText(), Clock::now()});
            }
        }
    }

    void handleArrivals() {
        takeNotifications();
        while (!arrivals_.empty() && !isOver() && Clock::now() >= readAgain_) {
            Arrival arrival = std::move(arrivals_.front());
            arrivals_.pop_front();
            if (!handle(arrival)) {
                arrivals_.push_front(std::move(arrival));
                readAgain_ = Clock::now() + READ_AGAIN;
            }
            takeNotifications();
            takeSignals();
        }
    }

    // False when the modem did not answer, and it is worth asking again.
    bool handle(Arrival &arrival) {
        const Indication &indication = arrival.indication;
        switch (indication.what) {
        case Indication::What::STORED:
        case Indication::What::STORED_REPORT: return handleStored(arrival);
        case Indication::What::DIRECT:
        case Indication::What::DIRECT_REPORT: {
            Stored message;
            message.pdu = indication.pdu;
            message.announced = indication.raw;
            decode(message);
            take(std::move(message), arrival);
            return true;
        }
        case Indication::What::PAGE: takePage(arrival); return true;
        default: emit(plainEvent(indication, arrival.time)); return true;
        }
    }

    bool handleStored(Arrival &arrival) {
        const Indication &place = arrival.indication;
        try {
            select(place.storage);
            const std::string what = fmt::format("read message {}", place.index);
            auto stored =
                storedFrom(askWithin("+CMGR", place.storage, place.index, what), place.index);
            if (!stored) {
                throw Failure(Exit::NO_MESSAGE, fmt::format("there is no message {} in {} any more",
                                                            place.index, place.storage));
            }
            stored->storage = place.storage;
            stored->announced = place.raw;
            arrival.indication.pdu = stored->pdu;
            take(*std::move(stored), arrival);
        } catch (const Failure &failure) {
            selected_.reset();
            const bool isSilent =
                failure.exit == Exit::NO_ANSWER || failure.exit == Exit::NO_MANAGER;
            if (isSilent && Clock::now() - arrival.since < READ_LIMIT) { return false; }
            emit(brokenEvent(place, failure.what(), arrival.time));
        }
        return true;
    }

    // Chooses the storage in the same command line, so that no other process comes between; for a
    // modem that does not take two commands in a line, it is selected already.
    static std::string askWithin(std::string_view command, const std::string &storage, u32 index,
                                 const std::string &what) {
        std::string reply =
            cli::run(fmt::format("AT+CPMS=\"{}\";{}={}", storage, command, index), what);
        if (!errorOf(reply)) { return reply; }
        return ask(fmt::format("AT{}={}", command, index), what);
    }

    void select(const std::string &storage) {
        if (selected_ && selectedName_ == storage) { return; }
        selected_.reset();
        selected_.emplace(storage);
        selectedName_ = storage;
    }

    void take(Stored message, const Arrival &arrival) {
        if (!message.message) {
            return emit(brokenEvent(arrival.indication, message.problem, arrival.time));
        }
        if (message.message->report) {
            reports_.push_back({std::move(message), arrival.time, Clock::now()});
            return matchReports();
        }
        if (auto group = parts_.add(std::move(message), Clock::now())) {
            emit(messageEvent(group->take(), arrival.time));
        }
    }

    void takePage(const Arrival &arrival) {
        const auto octets = octetsFrom(arrival.indication.pdu);
        auto page = octets ? pageFrom(*octets) : std::nullopt;
        if (!page) {
            return emit(brokenEvent(arrival.indication, "not a page: its header is incomplete",
                                    arrival.time));
        }
        page->raw = arrival.indication.raw;
        if (const auto group = pages_.add(*std::move(page), Clock::now())) {
            emit(pageEvent(*group, arrival.time));
        }
    }

    void giveUpOverdue() {
        while (!isOver()) {
            auto group = parts_.takeOverdue(Clock::now());
            if (!group) { break; }
            emit(messageEvent(group->take(), nowText()));
        }
        while (!isOver()) {
            const auto group = pages_.takeOverdue(Clock::now());
            if (!group) { break; }
            emit(pageEvent(*group, nowText()));
        }
    }

    // Reports keep their order as far as they are matched.
    void matchReports(bool isLastTime = false) {
        for (auto place = reports_.begin(); place != reports_.end() && !isSatisfied();) {
            const Message &message = *place->report.message;
            const auto sent = findSent(message.report->reference, message.number);
            const bool waits = !sent && Clock::now() - place->since < MATCH_LIMIT && !isLastTime;
            if (waits) {
                ++place;
                continue;
            }
            emit(reportEvent(place->report, sent, place->time));
            place = reports_.erase(place);
        }
    }

    void emit(Event event) {
        heardCount_++;
        console_.say(lineOf(event));
        console_.document(event.json);
        if (std::fflush(stdout) != 0) {
            throw Failure(Exit::UNEXPECTED,
                          fmt::format("cannot write the event: {}", std::strerror(errno)));
        }
        if (!hook_) { return removePlaces(event); }
        if (!hook_->add(std::move(event))) {
            console_.note(fmt::format("{} falls behind: {} events wait for it, this one is skipped",
                                      options_.program, hook_->waitingCount()));
        }
        proceedHook();
    }

    void removePlaces(const Event &event) {
        if (!options_.remove) { return; }
        for (const Place &place : event.places) {
            try {
                removePlace(place);
            } catch (const Failure &failure) {
                selected_.reset();
                console_.complain(failure);
            }
        }
    }

    // Another process may have deleted the message meanwhile, and the modem put a new one there.
    void removePlace(const Place &place) {
        select(place.storage);
        const std::string what = fmt::format("delete message {} in {}", place.index, place.storage);
        const auto stored =
            storedFrom(askWithin("+CMGR", place.storage, place.index, what), place.index);
        if (!stored || stored->pdu != place.pdu) { return; }
        askWithin("+CMGD", place.storage, place.index, what);
    }

    void proceedHook() {
        while (hook_) {
            auto done = hook_->proceed(Clock::now());
            if (!done) { return; }
            if (done->problem.empty()) {
                removePlaces(done->event);
            } else {
                console_.note(fmt::format("{} {}", options_.program, done->problem));
            }
        }
    }

    void watchManager() {
        if (Clock::now() < managerCheck_) { return; }
        managerCheck_ = Clock::now() + MANAGER_CHECK;
        const bool isThere = hasManager();
        if (isThere != isManagerThere_) {
            console_.note(isThere ? "the modem manager is back"
                                  : "the modem manager is gone; listening goes on when it is back");
            isManagerThere_ = isThere;
            indicationCheck_ = Clock::now();
        }
        if (isThere && Clock::now() >= indicationCheck_) { checkIndications(false); }
    }

    // A modem that was plugged in again has forgotten what it was to announce.
    void checkIndications(bool isFirst) {
        indicationCheck_ = Clock::now() + INDICATION_CHECK;
        try {
            if (options_.init && isFirst) { announceEverything(); }
            std::string complaint = indicationComplaint();
            if (!complaint.empty() && options_.init && !isFirst) {
                announceEverything();
                complaint.clear();
                console_.note("the modem had forgotten to announce; told again");
            }
            complain(complaint);
        } catch (const Failure &failure) {
            if (isFirst) { throw; }
            complain(failure.what());
        }
    }

    // What the modem keeps to itself; empty when it announces everything.
    static std::string indicationComplaint() {
        const std::string reply = cli::run("AT+CNMI?", "ask what the modem announces");
        const auto mode = indicationModeFrom(reply);
        if (!mode) { return "the modem does not tell what it announces (AT+CNMI?)"; }
        std::vector<std::string_view> lacking;
        if (!mode->messages) { lacking.emplace_back("messages"); }
        if (!mode->reports) { lacking.emplace_back("delivery reports"); }
        if (!mode->pages) { lacking.emplace_back("cell broadcast pages"); }
        if (lacking.empty()) { return ""; }
        return fmt::format("the modem announces no {} (AT+CNMI: {}); smspb listen --init turns "
                           "them on",
                           listed(lacking), mode->text);
    }

    void complain(const std::string &complaint) {
        if (complaint != complaint_ && !complaint.empty()) { console_.note(complaint); }
        complaint_ = complaint;
    }

    void takeSignals() {
        for (int signal = signals_.take(); signal != 0; signal = signals_.take()) {
            if (signal == SIGCHLD) { continue; }
            if (stoppedBy_ == 0) { stoppedAt_ = Clock::now(); }
            isUrgent_ = stoppedBy_ != 0 && Clock::now() - stoppedAt_ > SECOND_SIGNAL;
            stoppedBy_ = signal;
        }
    }

    void sleep() {
        Time next = std::min(managerCheck_, deadline_.value_or(Time::max()));
        for (const auto &deadline :
             {parts_.deadline(), pages_.deadline(), hook_ ? hook_->deadline() : std::nullopt}) {
            next = std::min(next, deadline.value_or(Time::max()));
        }
        if (!reports_.empty()) { next = std::min(next, Clock::now() + MATCH_AGAIN); }
        if (!arrivals_.empty()) { next = std::min(next, readAgain_); }
        awaitUntil(next);
    }

    void awaitUntil(Time next) {
        // Others read from whatever is selected: no longer than a burst.
        selected_.reset();
        pollfd waits[] = {
            {     signals_.fd(), POLLIN, 0},
            {subscription_.fd(), POLLIN, 0}
        };
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
        poll(waits, std::size(waits), static_cast<int>(std::clamp<std::int64_t>(left, 0, 1000)));
        takeSignals();
    }

    // What came is shown, and the programs of the events are waited for.
    void finish() {
        if (!isSatisfied()) { showRest(); }
        const std::size_t left = arrivals_.size() + parts_.size() + pages_.size() + reports_.size();
        if (isSatisfied() && left != 0) {
            console_.note(fmt::format("{} more not shown, as --once asks", left));
        }
        awaitHook();
        selected_.reset();
    }

    void showRest() {
        takeNotifications();
        for (; !arrivals_.empty() && !isSatisfied(); arrivals_.pop_front()) {
            Arrival &arrival = arrivals_.front();
            if (handle(arrival)) { continue; }
            emit(brokenEvent(arrival.indication, "the modem does not answer", arrival.time));
        }
        if (isSatisfied()) { return; }
        matchReports(true);
        while (auto group = parts_.takeAny()) { emit(messageEvent(group->take(), nowText())); }
        while (const auto group = pages_.takeAny()) { emit(pageEvent(*group, nowText())); }
    }

    void awaitHook() {
        if (!hook_) { return; }
        // A second signal ends also the program that runs.
        for (proceedHook(); !hook_->isIdle() && !isUrgent_; proceedHook()) {
            pollfd wait{signals_.fd(), POLLIN, 0};
            poll(&wait, 1, 100);
            takeSignals();
        }
        if (!hook_->isIdle()) {
            console_.note(fmt::format("{}: {} events are left to it", options_.program,
                                      hook_->waitingCount()));
        }
    }

    const Console &console_;
    const ListenOptions &options_;
    SignalWatch signals_;
    ipc::Subscription subscription_;
    std::deque<Arrival> arrivals_;
    Joiner<PartGroup> parts_;
    Joiner<PageGroup> pages_;
    std::list<UnmatchedReport> reports_;
    std::optional<Hook> hook_;
    std::optional<SelectedStorage> selected_;
    std::string selectedName_;
    std::string complaint_; // the last one about indications
    std::optional<Time> deadline_;
    Time readAgain_{}, managerCheck_{}, indicationCheck_{}, stoppedAt_{};
    std::size_t heardCount_ = 0;
    bool isManagerThere_ = true;
    bool isUrgent_ = false;
    int stoppedBy_ = 0; // a signal
};

} // namespace

Exit listen(const Console &console, const ListenOptions &options) {
    console.keepDocumentsToOneLine();
    return Listener(console, options).run();
}

} // namespace smspb::cli
