#!/usr/bin/env bash
# What the library costs on its target: 32-bit big-endian MIPS, -Os, stripped.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

need_packages "${BUILD_PACKAGES[@]}" "${MIPS_PACKAGES[@]}"
build mips --target smspb >/dev/null

library=build/mips/libsmspb.so
stripped=build/mips/libsmspb.stripped.so
mips-linux-gnu-strip -o "$stripped" "$library"

say "size on MIPS"
read -r text data bss _ < <(mips-linux-gnu-size "$stripped" | tail -n 1)
printf 'text %s, data %s, bss %s octets; file %s octets\n' "$text" "$data" "$bss" \
    "$(stat -c %s "$(readlink -f "$stripped")")"
printf 'NEEDED: %s\n' "$(mips-linux-gnu-readelf -d "$stripped" |
    sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd ' ')"
echo 'deepest stack frames, octets:'
find build/mips -name '*.su' -exec cat {} + | awk -F'\t' '{
    split($1, place, ":"); name = $1; sub(/^[^:]*:[0-9]*:[0-9]*:/, "", name)
    sub(/^.*\//, "", place[1]); print $2 "\t" place[1] ": " name }' |
    grep -E '(log_line|zeldcard_common|USBModem|SmsEncoding|SmsUtils|CSMS|CPbSIM)\.cpp' |
    sort -rn | head -n 5
