#!/usr/bin/env bash
# The echo service and its client as processes of their own, in both modes.
#   echo.sh SERVICE CLIENT
set -euo pipefail
service=$1
client=$2
XDG_RUNTIME_DIR=$(mktemp -d)
export XDG_RUNTIME_DIR
pid=
trap '[ -z "$pid" ] || kill -KILL "$pid"; rm -rf "$XDG_RUNTIME_DIR"' EXIT

fail() {
    echo "echo.sh: $*" >&2
    exit 1
}

# refused STATUS TEXT COMMAND...: the command must end with that status and say that on stderr.
refused() {
    local wanted=$1 text=$2 status=0 said
    shift 2
    said=$(timeout 60 "$@" 2>&1 >/dev/null) || status=$?
    [ "$status" = "$wanted" ] || fail "$* ended with $status, not $wanted"
    [[ $said == *"$text"* ]] || fail "$* said: $said"
}

refused 2 usage: "$client"
refused 2 usage: "$client" one two
for wrong in --nonsense "--threads" "--threads 0" "--threads 65" "--threads 2x"; do
    # shellcheck disable=SC2086
    refused 2 usage: "$service" $wrong
done

long=$(printf '%0100000d' 7) # longer than the service's first buffer
for mode in "--threads 3" "--names"; do
    refused 1 "no echo service" "$client" hello
    # shellcheck disable=SC2086
    coproc running { exec "$service" $mode; }
    pid=$running_PID
    read -r line <&"${running[0]}"
    [ "$line" = "echo_service: ready" ] || fail "the service said: $line"
    for text in "hello there" "" "$long"; do
        [ "$("$client" "$text")" = "$text" ] || fail "no echo of ${#text} characters"
    done
    # shellcheck disable=SC2086
    refused 1 "another echo service runs" "$service" $mode
    kill -TERM "$pid"
    wait "$pid" || fail "the service ended with $?"
    pid=
    left=$(find "$XDG_RUNTIME_DIR" ! -type d)
    [ -z "$left" ] || fail "left behind: $left"
done
