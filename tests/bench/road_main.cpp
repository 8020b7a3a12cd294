// One command on its whole road: library, modem manager, simulated modem and back, all of them
// processes of their own; beside it the two bare round trips that are on this road.
#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

#include "atlib/USBModem.h"
#include "echo.h"
#include "support/process.h"

namespace bench {
namespace {

class Road {
public:
    Road()
        : socket_(directory_.path() / "echo"),
          modem_({SIMMODEM_PROGRAM, "--link", (directory_.path() / "modem").string()}) {
        setenv("SMSPB_RUNTIME_DIR", directory_.path().c_str(), 1);
        if (!modem_.prints("ready")) { throw std::runtime_error("the modem does not get ready"); }
        const std::string tty = (directory_.path() / "modem").string();
        manager_ = std::make_unique<support::Program>(
            std::vector<std::string>{MODEMD_PROGRAM, "--device", tty});
        if (!manager_->prints("ready")) {
            throw std::runtime_error("the manager does not get ready");
        }
    }
    const SocketEcho &socket() const { return socket_; }
    const TerminalEcho &terminal() const { return terminal_; }

private:
    support::PrivateDirectory directory_;
    SocketEcho socket_;
    TerminalEcho terminal_;
    support::Program modem_;
    std::unique_ptr<support::Program> manager_;
};

using Clock = std::chrono::steady_clock;

struct Trip {
    const char *name;
    bool (*make)(const Road &); // false: no answer, or another one
};

bool askModem(const Road & /*road*/) {
    char *reply = writeComm("AT\r", 3000, 2, "OK", "ERROR");
    const bool isAnswer = reply != nullptr && std::strcmp(reply, "\r\nOK\r\n") == 0;
    std::free(reply);
    return isAnswer;
}

bool overSocket(const Road &road) { return road.socket().roundTrip() == SocketEcho::ANSWER_OCTETS; }

bool overTerminal(const Road &road) {
    return road.terminal().roundTrip() == TerminalEcho::ANSWER_OCTETS;
}

constexpr Trip TRIPS[] = {
    {  "command, whole road/ours",     askModem},
    {"command, whole road/socket",   overSocket},
    {   "command, whole road/pty", overTerminal},
};

// What `share` of them do not exceed.
double quantile(std::vector<double> *all, double share) {
    const auto at = static_cast<std::ptrdiff_t>(share * static_cast<double>(all->size() - 1));
    std::nth_element(all->begin(), all->begin() + at, all->end());
    return (*all)[static_cast<std::size_t>(at)];
}

// Several processes ask as fast as they are answered.
constexpr int ASKERS = 8;
constexpr int COMMANDS_EACH = 250;

bool askFromAll(const Road &road) {
    std::vector<pid_t> askers;
    for (int i = 0; i < ASKERS; i++) {
        const pid_t asker = fork();
        if (asker == 0) {
            bool isAnswered = true;
            for (int j = 0; j < COMMANDS_EACH; j++) { isAnswered = askModem(road) && isAnswered; }
            _exit(isAnswered ? 0 : 1);
        }
        askers.push_back(asker);
    }
    bool isAnswered = true;
    for (const pid_t asker : askers) {
        int status = -1;
        isAnswered = waitpid(asker, &status, 0) == asker && status == 0 && isAnswered;
    }
    return isAnswered;
}

void timeAskers(benchmark::State &state, const Road &road) {
    double seconds = 0, commands = 0;
    for ([[maybe_unused]] auto _ : state) {
        const Clock::time_point begin = Clock::now();
        if (!askFromAll(road)) { state.SkipWithError("not every one is answered"); }
        seconds += std::chrono::duration<double>(Clock::now() - begin).count();
        commands += ASKERS * COMMANDS_EACH;
    }
    state.counters["commands_per_second"] = commands / seconds;
}

// The three take turns, so that each finds the processors and the scheduler as the others do; only
// one of them counts. Its median is told: a mean would be that of the few trips in which another
// process of the machine had its turn.
void timeTrip(benchmark::State &state, const Road &road, const Trip &counted) {
    std::vector<double> nanoseconds;
    for ([[maybe_unused]] auto _ : state) {
        for (const Trip &trip : TRIPS) {
            const Clock::time_point begin = Clock::now();
            if (!trip.make(road)) { state.SkipWithError("another answer"); }
            const std::chrono::duration<double, std::nano> took = Clock::now() - begin;
            if (&trip == &counted) { nanoseconds.push_back(took.count()); }
        }
    }
    if (nanoseconds.empty()) { return; }
    const double sum = std::accumulate(nanoseconds.begin(), nanoseconds.end(), 0.0);
    state.counters["trip"] = quantile(&nanoseconds, 0.5);
    state.counters["p99"] = quantile(&nanoseconds, 0.99);
    state.counters["mean"] = sum / static_cast<double>(nanoseconds.size());
}

int timeAll(const Road &road, int argc, char **argv) {
    for (const Trip &trip : TRIPS) {
        if (!trip.make(road)) {
            std::fprintf(stderr, "%s: another answer\n", trip.name);
            return 1;
        }
        benchmark::RegisterBenchmark(trip.name,
                                     [&](benchmark::State &state) { timeTrip(state, road, trip); });
    }
    benchmark::RegisterBenchmark("commands of eight processes/ours", [&](benchmark::State &state) {
        timeAskers(state, road);
    })->Iterations(1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) { return 2; }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace
} // namespace bench

int main(int argc, char **argv) {
    try {
        const bench::Road road;
        return bench::timeAll(road, argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
