#!/usr/bin/env bash
# The examples that drive a player, against a service; the services with their clients.
#   players.sh BIN-DIRECTORY
set -euo pipefail
bin=$1
scratch=$(mktemp -d)
started=()
trap 'kill -KILL "${started[@]}" 2>/dev/null || true; rm -rf "$scratch"' EXIT
mkdir -m 0700 "$scratch/runtime" "$scratch/music"
export XDG_RUNTIME_DIR=$scratch/runtime XDG_STATE_HOME=$scratch/state
head -c 160000 /dev/zero | flac -s --force-raw-format --endian=little --sign=signed --channels=1 \
    --bps=16 --sample-rate=8000 -T TITLE=Larks -T ARTIST=Ann -o "$scratch/music/one.flac" -

start() { # NAME COMMAND...: its output goes into a file of that name
    : >"$scratch/$1" # there before anybody looks
    "${@:2}" >"$scratch/$1" 2>&1 &
    started+=($!)
}
soon() { # COMMAND...: until it succeeds, for a minute
    for ((tries = 0; tries < 1200; tries++)); do
        "$@" && return
        sleep 0.05
    done
    return 1
}
has() { [ "$(grep -cF -- "$2" "$scratch/$1")" -ge "${3:-1}" ]; }
shows() { # NAME TEXT [TIMES]
    soon has "$@" && return
    cat "$scratch/$1"
    echo "players.sh: $1 does not show \"$2\"" >&2
    exit 1
}
is() { [ "$1" = "$2" ] || { echo "players.sh: \"$1\", not \"$2\"" >&2; exit 1; }; }

start poll_loop "$bin/poll_loop" main
[ ! -e "$bin/glib_loop" ] || start glib_loop "$bin/glib_loop"
followers=("${started[@]}")
for run in 1 2; do # the followers outlive the service
    start vantrod "$bin/vantrod" --audio clock --music "$scratch/music"
    service=$!
    shows vantrod scanned
    start follow_player "$bin/follow_player"
    follower=$!
    start interrupted "$bin/follow_player_interruptible"
    interrupted=$!
    start search_and_play "$bin/search_and_play" larks
    shows poll_loop 'main: playing' "$run"
    [ ! -e "$bin/glib_loop" ] || shows glib_loop 'main: Larks - Ann' "$run"
    shows follow_player 'state 2 at rate 1'
    "$bin/browse" >"$scratch/browse"
    shows browse '  Songs (1)'
    shows interrupted 'state 2 at rate 1'
    for ((signals = 0; signals < 20; signals++)); do
        kill -USR1 "$interrupted" # fails if it has ended
        while grep -qs '^ShdPnd:.*[1-9a-f]' "/proc/$interrupted/status"; do sleep 0.01; done
    done
    "$bin/vantroctl" pause
    shows interrupted 'state 3 at rate'
    kill -KILL "$service"; wait "$service" || true
    wait "$follower" && exit 1
    shows interrupted 'the player can no longer be followed'
    shows search_and_play 'Larks, from music'
done

for follower in "${followers[@]}"; do
    kill -TERM "$follower"
    wait "$follower"
done

start counter_service "$bin/counter_service"
shows counter_service ready
is "$("$bin/counter_client" 40 2)" $'40\n42'
is "$("$bin/counter_client" 2147483647 1 2>&1 >/dev/null)" "counter_client: 1: Numerical result out of range"

start timer_service "$bin/timer_service"
timers=$!
shows timer_service ready
is "$("$bin/timer_client" 600 300 0 60001 2>"$scratch/late")" $'3\n2\n1'
is "$(cat "$scratch/late")" "timer_client: a timer: Numerical result out of range"
for client in 1 2 3 4 5 6; do # four places
    start "timer_client_$client" "$bin/timer_client" 50000
done
no_place='timer_client: no timer for us: Resource temporarily unavailable'
two_have_none() { [ "$(cat "$scratch"/timer_client_* | grep -cxF "$no_place")" = 2 ]; }
soon two_have_none
is "$("$bin/timer_client" 0 2>&1)" "$no_place"
kill -KILL "${started[@]: -6}" 2>/dev/null || true
is_given_back() { [ "$("$bin/timer_client" 0 2>&1)" = 1 ]; }
soon is_given_back
mapfile -t many < <(yes 500 | head -n 17) # one more than an open may have at a time
is "$("$bin/timer_client" "${many[@]}" 2>&1 >/dev/null)" "timer_client: a timer: Resource temporarily unavailable"
for wrong in x -1 4294967296 '' 5s; do
    is "$("$bin/timer_client" "$wrong" 2>&1)" "timer_client: $wrong: Invalid argument"
done
start last_timer_client "$bin/timer_client" 0 50000
shows last_timer_client 1
kill -KILL "$timers"
shows last_timer_client 'the service is gone: Connection reset by peer'
