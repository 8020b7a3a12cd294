// Who asked for what, and what came of it: an account for each request, counters for all of them,
// and a line in the log at debug level when one is closed.
#ifndef SMSPB_PLATFORM_MODEMD_ACCOUNT_H
#define SMSPB_PLATFORM_MODEMD_ACCOUNT_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/ipc/peer.h"
#include "platform/modemd/log_limit.h"
#include "platform/modemd/records.h"

namespace smspb::modemd {

using Clock = std::chrono::steady_clock;

using Asker = ipc::Peer;

// "process 1234 (gammu)"; without a name when the process is gone.
std::string describe(const Asker &asker);

struct Account {
    Asker asker;
    Kind kind = Kind::UNKNOWN;
    std::string name;    // of the command, without the parameters that may hold numbers and texts
    std::string details; // the whole request; kept at trace level alone
    std::string program; // the asker's; kept at debug level alone, for the asker may be gone later
    Clock::time_point arrival = Clock::now();
    std::optional<Clock::time_point> begin; // when its turn came
};

struct Counters {
    std::array<std::uint64_t, KIND_COUNT> requests{};
    std::array<std::uint64_t, RESULT_COUNT> results{};
    std::uint64_t hungUp = 0; // their askers did not wait for their turn
    std::uint64_t textsSent = 0;
    std::uint64_t reports = 0;
};

class Ledger {
public:
    Account open(const Asker &asker, Kind kind);
    void close(const Account &account, const Answer &answer);
    // The asker hung up before its turn came.
    void drop(const Account &account);
    void countReport(bool isTold, std::string_view name);

    // Whether one more line about the process may go to the log. Says so itself when it begins to
    // leave them out.
    bool mayLog(const Asker &asker);

    const Counters &counters() const { return counters_; }

private:
    Counters counters_;
    LogLimit<pid_t> aboutAskers_;
    LogLimit<std::string> aboutReports_; // by their names
};

} // namespace smspb::modemd

#endif
