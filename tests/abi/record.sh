#!/usr/bin/env bash
# Records the interface of a library with debug information as the one that smspb.abi promises:
# record.sh [LIBRARY]. Only for a change that CONTRIBUTING.md allows; the commit says which.
set -euo pipefail
cd "$(dirname "$0")/../.."
library=${1:-build/host/libsmspb.so}
record=tests/abi/smspb.abi
abidw --no-show-locs --no-corpus-path --no-comp-dir-path --no-elf-needed \
    --exported-interfaces-only --drop-private-types --headers-dir comm --headers-dir atlib \
    "$(readlink -f "$library")" | sed -E "s# path='[^']*/(comm|atlib)/# path='\1/#" >"$record"
echo "$record: $(grep -c '<function-decl' "$record") functions from $library"
