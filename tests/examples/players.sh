#!/usr/bin/env bash
# The examples that drive a player, against a service; the counter and its client.
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
shows() { # NAME TEXT [TIMES]
    for ((tries = 0; tries < 1200; tries++)); do
        [ "$(grep -cF -- "$2" "$scratch/$1")" -ge "${3:-1}" ] && return
        sleep 0.05
    done
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
    start search_and_play "$bin/search_and_play" larks
    shows poll_loop 'main: playing' "$run"
    [ ! -e "$bin/glib_loop" ] || shows glib_loop 'main: Larks - Ann' "$run"
    shows follow_player 'state 2 at rate 1'
    "$bin/browse" >"$scratch/browse"
    shows browse '  Songs (1)'
    kill -KILL "$service"; wait "$service" || true
    wait "$follower" && exit 1
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
