// Checks every case, then times it; with --count, under callgrind, counts its instructions.
#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <string_view>

#include "case.h"

namespace {

constexpr int COUNTED_RUNS = 100;

// One dump for each case, named after it.
int countAll() {
    for (const bench::Case &each : bench::cases()) {
        CALLGRIND_ZERO_STATS;
        CALLGRIND_TOGGLE_COLLECT;
        for (int i = 0; i < COUNTED_RUNS; i++) { each.run(); }
        CALLGRIND_TOGGLE_COLLECT;
        CALLGRIND_DUMP_STATS_AT(each.name.c_str());
    }
    return 0;
}

int timeAll(int argc, char **argv) {
    for (const bench::Case &each : bench::cases()) {
        const auto timed = [&each](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) { each.run(); }
            state.counters["logLines"] = each.logLines;
        };
        benchmark::RegisterBenchmark(each.name.c_str(), timed);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) { return 2; }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    bench::checkAll();
    return argc == 2 && std::string_view(argv[1]) == "--count" ? countAll() : timeAll(argc, argv);
}
