#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests: on this machine, on this machine
# with AddressSanitizer and UndefinedBehaviorSanitizer, and the library's as 32-bit big-endian MIPS
# under qemu-user. Then sixteen threads under ThreadSanitizer, ten seconds of each fuzz target, the
# library's line coverage, and its size on MIPS. "test.sh nightly" fuzzes for a minute each and runs the
# static tools.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

need_packages "${BUILD_PACKAGES[@]}" "${MIPS_PACKAGES[@]}" "${CHECK_PACKAGES[@]}"

nightly=${1:-}
failed=0
tested=

# The tests of one preset wait most of the time, so the next one is built meanwhile, at the lowest
# priority.
begin_tests() {
    tested=$1
    find "build/$tested" -name '*_tests.json' -delete
    ctest --preset "$tested" >"build/$tested/tests.log" 2>&1 &
    testing=$!
}
end_tests() {
    [ -n "$tested" ] || return 0
    wait "$testing" || failed=1
    say "$tested: test"
    cat "build/$tested/tests.log"
}
trap 'jobs -p | xargs -r kill' EXIT

for preset in host asan mips coverage tsan; do
    say "$preset: build"
    (renice -n 19 "$BASHPID" >/dev/null && build "$preset")
    end_tests
    begin_tests "$preset"
done
end_tests

say "line coverage of the library"
gcovr --root . --object-directory build/coverage --filter 'comm/' --filter 'atlib/' \
    --exclude-unreachable-branches --fail-under-line 95 build/coverage || failed=1

scripts/size.sh || failed=1
if [ "$nightly" = nightly ]; then
    scripts/fuzz.sh 60 || failed=1
    scripts/lint.sh --all || failed=1
else
    scripts/fuzz.sh 10 || failed=1
fi

say "tests"
python3 scripts/count_tests.py host asan mips || failed=1
exit "$failed"
