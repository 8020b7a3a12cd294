#!/usr/bin/env bash
# What the library costs, beside the most that it may: its size and its stack on the target (32-bit
# big-endian MIPS, -Os, stripped, every export), what it needs there, and the private memory of a
# process that uses it on this machine. Fails when a limit is passed.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

CODE_LIMIT=61440   # octets of text and data
BSS_LIMIT=4096     # octets
FRAME_LIMIT=4096   # octets of one function
PRIVATE_LIMIT=32   # KiB above a process without the library

need_packages "${BUILD_PACKAGES[@]}" "${MIPS_PACKAGES[@]}" python3
build=${SIZE_BUILD:-build/size}
cmake --preset mips -B "$build/mips" -DCMAKE_CXX_FLAGS=-fcallgraph-info=su >/dev/null
cmake --build "$build/mips" --target smspb >/dev/null
cmake --preset host -B "$build/host" -DSMSPB_LIBRARY_ONLY=ON >/dev/null
cmake --build "$build/host" --target smspb >/dev/null

failed=0
# row WHAT VALUE LIMIT: a line of the table, with its verdict.
row() {
    local verdict=ok
    [ "$2" -le "$3" ] || verdict=PASSED failed=1
    printf '%-52s %8s %8s  %s\n' "$1" "$2" "$3" "$verdict"
}

stripped="$build/libsmspb.so"
mips-linux-gnu-strip -o "$stripped" "$build/mips/libsmspb.so"
read -r text data bss _ < <(mips-linux-gnu-size "$stripped" | tail -n 1)
needed=$(mips-linux-gnu-readelf -d "$stripped" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
largest=$(find "$build/mips/CMakeFiles/smspb_objects.dir" -name '*.su' -exec cut -f 2 {} + | sort -rn | head -n 1)

# The least of some runs: what a process touches at its start varies by a page.
private_dirty() {
    for _ in 1 2 3 4 5; do "$1"; done | sort -n | head -n 1
}
cc -std=c11 -O2 -I. -DWITH_LIBRARY tests/size/private_dirty.c -rdynamic -L"$build/host" -lsmspb \
    -Wl,-rpath,"$(realpath "$build/host")" -o "$build/with"
cc -std=c11 -O2 -I. tests/size/private_dirty.c -rdynamic -o "$build/without"
# Pages of a file that is not yet on disk count as dirty.
sync "$build/without" "$build/with" "$build/host"/libsmspb.so.*
without=$(private_dirty "$build/without")
with=$(private_dirty "$build/with")

say "size on MIPS, memory on this machine"
printf '%-52s %8s %8s\n' what is "at most"
row "text and data ($text + $data), octets" $((text + data)) "$CODE_LIMIT"
row "bss, octets" "$bss" "$BSS_LIMIT"
row "largest frame of a function, octets" "$largest" "$FRAME_LIMIT"
row "libraries needed ($(paste -sd ' ' <<<"$needed"))" "$(grep -c . <<<"$needed")" 1
grep -qx 'libc\.so\.6' <<<"$needed" || { echo "only libc may be needed" >&2; failed=1; }
row "private dirty memory ($with - $without), KiB" $((with - without)) "$PRIVATE_LIMIT"
printf 'the file: %s octets\n\n' "$(stat -c %s "$stripped")"
scripts/deepest_path.py "$build/mips/CMakeFiles/smspb_objects.dir" exports.txt "$FRAME_LIMIT" || failed=1
exit "$failed"
