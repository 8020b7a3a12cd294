#!/usr/bin/env bash
# Runs every fuzz target, two at a time: `fuzz.sh [SECONDS]` each so long (60 without), `fuzz.sh
# --runs N` each so often. Fails on a finding; what was found lies in build/fuzz/findings, what was
# learnt in build/fuzz/corpus, where the next run begins. FUZZ_TARGETS="pdu_text utf8" runs those
# alone, FUZZ_BUILD names another build directory.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

case ${1:-60} in
--runs) limit="-runs=${2:?fuzz.sh --runs needs a number}" ;;
*[!0-9]*)
    sed -n 2,5p "scripts/fuzz.sh" | cut -c 3- >&2
    exit 2
    ;;
*) limit="-max_total_time=${1:-60}" ;;
esac

need_packages "${BUILD_PACKAGES[@]}" clang-14 libclang-rt-14-dev
fuzz_build=${FUZZ_BUILD:-build/fuzz}
say "fuzz: build"
cmake --preset fuzz -B "$fuzz_build" >/dev/null
cmake --build "$fuzz_build" --target fuzz | tail -n 1
findings="$fuzz_build/findings"
logs="$fuzz_build/logs"
mkdir -p "$findings" "$logs"

fuzz_one() {
    local target=$1 program="$fuzz_build/tests/fuzz/fuzz_$1" learnt="$fuzz_build/corpus/$1"
    mkdir -p "$learnt"
    "$program" "$limit" -timeout=10 -rss_limit_mb=2048 -max_len=2048 -print_final_stats=1 \
        -artifact_prefix="$findings/$target-" "$learnt" "tests/fuzz/corpus/$target" \
        >"$logs/$target.log" 2>&1 || echo "$target" >>"$logs/failed"
}
export -f fuzz_one
export fuzz_build limit findings logs

say "fuzz: run"
rm -f "$logs/failed"
if [ -n "${FUZZ_TARGETS:-}" ]; then
    read -ra targets <<<"$FUZZ_TARGETS"
else
    targets=(tests/fuzz/corpus/*)
fi
printf '%s\n' "${targets[@]##*/}" | xargs -P 2 -I{} bash -c 'fuzz_one {}'

printf '%-20s %12s %10s %10s  %s\n' target executions per-second coverage finding
for target in "${targets[@]##*/}"; do
    log="$logs/$target.log"
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    coverage=$(grep -ao 'cov: [0-9]*' "$log" | tail -n 1 | cut -c 6-)
    finding=$(grep -am1 -E '^does not hold|runtime error|^==[0-9]+== ?ERROR: ' "$log" || true)
    printf '%-20s %12s %10s %10s  %s\n' "$target" "${executions:--}" "${rate:--}" \
        "${coverage:--}" "${finding:-none}"
done
if [ -s "$logs/failed" ]; then
    echo "Findings are in $findings, what was said of them in $logs." >&2
    exit 1
fi
