#!/usr/bin/env bash
# A text goes out and comes back: command line tool, library, modem manager, simulated modem, and the
# way back. Installs what is missing, builds, shows it, stops everything.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/common.sh"

need_packages "${BUILD_PACKAGES[@]}"
say "building"
build host --target smspb-cli smspb-modemd smspb-simmodem | tail -n 1

export SMSPB_RUNTIME_DIR
SMSPB_RUNTIME_DIR=$(mktemp -d)
tty="$SMSPB_RUNTIME_DIR/modem"
own_number=+15550001000
smspb=build/host/tools/smspb

stop() {
    kill "${manager:-}" "${modem:-}" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$SMSPB_RUNTIME_DIR"
}
trap stop EXIT

# Waits for the line in which a program says that it is ready.
await_ready() {
    for _ in $(seq 100); do
        grep -q '^ready' "$1" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "not ready after 10 seconds:" >&2
    cat "$1" >&2
    return 1
}

run() {
    printf '\n$ smspb'
    local word
    for word in "$@"; do
        case $word in
        *' '*) printf " '%s'" "$word" ;;
        *) printf ' %s' "$word" ;;
        esac
    done
    printf '\n'
    "$smspb" "$@"
}

say "starting the simulated modem and the modem manager"
build/host/platform/simmodem/smspb-simmodem --link "$tty" --number "$own_number" \
    >"$SMSPB_RUNTIME_DIR/modem.log" 2>&1 &
modem=$!
await_ready "$SMSPB_RUNTIME_DIR/modem.log"
build/host/platform/modemd/smspb-modemd --device "$tty" >"$SMSPB_RUNTIME_DIR/manager.log" 2>&1 &
manager=$!
await_ready "$SMSPB_RUNTIME_DIR/manager.log"
echo "modem on $tty, own number $own_number"

say "a short text, a long one, and one that the GSM alphabet does not have"
run init
run send "$own_number" "Hello from the router."
run send "$own_number" "$(printf 'This text is longer than one message holds, so it travels in segments and is joined again. %.0s' 1 2 3)"
run send "$own_number" "Привет, 世界! Καλημέρα 🙂"

say "what came back"
run inbox
run storage

say "stopping"
