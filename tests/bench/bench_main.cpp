// Times every case, after its result has been checked.
#include <benchmark/benchmark.h>

#include "case.h"

int main(int argc, char **argv) {
    bench::checkAll();
    for (const bench::Case &each : bench::cases()) {
        benchmark::RegisterBenchmark(each.name.c_str(), [run = each.run](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) { run(); }
        });
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) { return 1; }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
