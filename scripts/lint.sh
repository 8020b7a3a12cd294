#!/usr/bin/env bash
# The static tools: clang's warnings as errors, clang-tidy and cppcheck over the library (comm/,
# atlib/), clang's warnings over the stand-ins and the tool as well. `lint.sh --all` takes clang-tidy
# and cppcheck to those too, which takes long. Fails on any finding.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

all=0
case ${1:-} in
'') ;;
--all) all=1 ;;
*)
    echo "usage: lint.sh [--all]" >&2
    exit 2
    ;;
esac
need_packages "${BUILD_PACKAGES[@]}" clang-14 clang-tidy cppcheck shellcheck python3
build=${LINT_BUILD:-build/lint}
failed=0

# The compiler's own flags of each file, from clang's point of view.
cmake --preset host -B "$build" -DCMAKE_UNITY_BUILD=OFF -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    >/dev/null
library=(comm/*.cpp atlib/*.cpp)
around=(platform/*/*.cpp tools/*.cpp)
checked=("${library[@]}")
[ "$all" -eq 0 ] || checked+=("${around[@]}")

say "clang: -Wall -Wextra -Wpedantic -Wconversion -Wshadow"
python3 - "$build/compile_commands.json" "${library[@]}" "${around[@]}" <<'PY' >"$build/syntax.txt"
import json, os, shlex, sys
wanted = {os.path.realpath(path) for path in sys.argv[2:]}
for entry in json.load(open(sys.argv[1])):
    if os.path.realpath(entry["file"]) not in wanted:
        continue
    words, skip = [], False
    for word in shlex.split(entry["command"]):
        if skip or word == "-c" or word.endswith("ccache"):
            skip = False
            continue
        skip = word in ("-o", "-MF", "-MT")
        if not skip and word not in ("-MD",):
            words.append(word)
    print(shlex.join(words + ["-fsyntax-only"]))
PY
xargs -P 2 -d '\n' -n 1 sh -c <"$build/syntax.txt" || failed=1
echo "$(wc -l <"$build/syntax.txt") files"

say "clang-tidy"
printf '%s\n' "${checked[@]}" | xargs -P 2 -n 1 clang-tidy --quiet -p "$build" 2>/dev/null || failed=1
echo "${#checked[@]} files"

say "cppcheck"
# Off, with the reason:
#   missingIncludeSystem  the system's headers are not its business
#   unusedFunction        the interface is used by other programs
#   useStlAlgorithm       the library is plain C++ that needs libc alone; a loop says as much
#   unmatchedSuppression  not every file meets every line of this list
# and around the library:
#   constParameter...     the handlers of a table share one signature
#   shadowFunction        a value may be called what the function that gives such a value is called
#   unusedStructMember    it does not see members that are reached through a table's row
off=(missingIncludeSystem unusedFunction useStlAlgorithm unmatchedSuppression)
check() {
    local standard=$1
    shift
    cppcheck --enable=all --inline-suppr --error-exitcode=1 --quiet "--std=$standard" --language=c++ \
        -I. "${off[@]/#/--suppress=}" "$@" || failed=1
}
check c++17 "${library[@]}"
if [ "$all" -eq 1 ]; then
    off+=(constParameter constParameterCallback shadowFunction unusedStructMember)
    check c++20 "${around[@]}"
fi
echo "${#checked[@]} files"

say "shellcheck"
shellcheck -x scripts/*.sh platform/modemd/service/*.{init,procd} || failed=1
exit "$failed"
