#!/usr/bin/env bash
# Times the library beside what people would use instead, counts instructions, and says which limits
# hold. Installs what is missing, builds, measures; about five minutes, with --quick less than one.
# The table goes to build/bench/table.md as well. Exit status 1: a limit does not hold.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

BENCH_PACKAGES=(python3 valgrind pkg-config libbenchmark-dev libosmocore-dev libgammu-dev
    libglib2.0-dev)

case "$*" in
'') effort=(--benchmark_repetitions=25 --benchmark_min_time=0.05) ;;
--quick) effort=(--benchmark_repetitions=9 --benchmark_min_time=0.01) ;;
*)
    echo "usage: scripts/bench.sh [--quick]" >&2
    exit 2
    ;;
esac

need_packages "${BUILD_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
say "building"
results=build/bench/results
rm -rf "$results"
mkdir -p "$results"
build bench >"$results/build.log" || {
    cat "$results/build.log" >&2
    exit 1
}

for program in smspb_bench smspb_bench_nolog smspb_bench_road; do
    say "$program"
    # What the library prints on standard output is no result.
    build/bench/tests/bench/$program "${effort[@]}" --benchmark_enable_random_interleaving=true \
        --benchmark_out="$results/$program.json" >/dev/null 2>"$results/$program.log" || {
        cat "$results/$program.log" >&2
        exit 1
    }
done

for program in smspb_bench smspb_bench_nolog; do
    say "$program: instructions"
    mkdir "$results/$program"
    valgrind --quiet --tool=callgrind --collect-atstart=no \
        --callgrind-out-file="$results/$program/callgrind.out" \
        build/bench/tests/bench/$program --count >/dev/null
done

say "results"
status=0
python3 tests/bench/table.py "$results" || status=$?
cp "$results/table.md" build/bench/table.md
exit "$status"
