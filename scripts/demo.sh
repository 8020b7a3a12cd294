#!/usr/bin/env bash
# Texts go out and come back, reports, pages and USSD answers arrive, contacts are kept: command line
# tool, library, modem manager and simulated modem. Installs what is missing, builds, shows it, stops
# everything. SMSPB_MANAGER names another program to take for the modem manager.
set -euo pipefail
manager_program=${SMSPB_MANAGER:+$(realpath "$SMSPB_MANAGER")}
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
    kill "${listener:-}" "${manager:-}" "${modem:-}" 2>/dev/null || true
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

# A command line as a user would type it.
show() {
    printf '\n$ %s' "$1"
    shift
    local word
    for word in "$@"; do
        case $word in
        *' '* | *'*'* | '') printf " '%s'" "$word" ;;
        *) printf ' %s' "$word" ;;
        esac
    done
    printf '\n'
}

run() {
    show smspb "$@"
    "$smspb" "$@"
}

# Lets something happen to the simulated modem.
happen() {
    show 'smspb-simmodem ctl' "$@"
    build/host/platform/simmodem/smspb-simmodem ctl --link "$tty" "$@" >/dev/null
}

# Waits until `listen` has begun, or has shown as many lines as given.
await_lines() {
    for _ in $(seq 100); do
        [ "$(wc -l <"$1")" -ge "$2" ] && return 0
        sleep 0.1
    done
    return 1
}

say "starting the simulated modem and the modem manager"
build/host/platform/simmodem/smspb-simmodem --link "$tty" --number "$own_number" \
    >"$SMSPB_RUNTIME_DIR/modem.log" 2>&1 &
modem=$!
await_ready "$SMSPB_RUNTIME_DIR/modem.log"
"${manager_program:-build/host/platform/modemd/smspb-modemd}" --device "$tty" >"$SMSPB_RUNTIME_DIR/manager.log" 2>&1 &
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

say "what comes of itself: a long text, a flash message, a report, a two-page broadcast"
show 'smspb listen --init --timeout 60 &'
"$smspb" listen --init --timeout 60 >"$SMSPB_RUNTIME_DIR/heard" 2>"$SMSPB_RUNTIME_DIR/listen.log" &
listener=$!
for _ in $(seq 100); do
    "$smspb" at 'AT+CNMI?' 2>/dev/null | grep -q '2,1,2,1,0' && break
    sleep 0.1
done
happen text +4917012345678 "$(printf 'A long text comes in parts and is shown once it is whole. %.0s' 1 2 3 4)"
happen text Alert "Flash!" --class 0
run send --report "$own_number" "Tell me when it is there."
happen page "This page is longer than the 93 characters of one page, so the network broadcasts it in two, and they are joined again." --id 50
await_lines "$SMSPB_RUNTIME_DIR/heard" 5 || true
sleep 0.5
kill "$listener" 2>/dev/null || true
wait "$listener" 2>/dev/null || true
echo
cat "$SMSPB_RUNTIME_DIR/heard"

say "USSD: an answer, and a menu of two steps"
run ussd '*100#'
run ussd '*103#' --reply 2 --reply 50

say "the SIM's phonebook"
run contacts add 'Anna Müller' +491701234567
run contacts add Ωmega '*100#'
run contacts list
run contacts find müll
run contacts export --format csv
run contacts delete 1-250

say "stopping"
