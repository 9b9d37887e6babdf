#!/usr/bin/env bash
# Tests the completions with a running service, and with one that does not answer. Those for zsh and
# fish are tested if these shells are installed.
#   completion.sh SOURCE-DIRECTORY VANTROD VANTROCTL
set -euo pipefail
source=$1 vantrod=$2 vantroctl=$3
scratch=$(mktemp -d)
pid=
trap '[ -z "$pid" ] || kill -KILL "$pid"; rm -rf "$scratch"' EXIT
mkdir -m 0700 "$scratch/runtime" "$scratch/music" "$scratch/bin"
ln -s "$vantroctl" "$scratch/bin/vantroctl"
export XDG_RUNTIME_DIR=$scratch/runtime XDG_STATE_HOME=$scratch/state PATH=$scratch/bin:$PATH
head -c 16000 /dev/zero | flac -s --force-raw-format --endian=little --sign=signed --channels=1 \
    --bps=16 --sample-rate=8000 -T ALBUM=Harbour -o "$scratch/music/one.flac" -

# The second name must be quoted on a command line.
coproc running { exec "$vantrod" --audio clock --music "$scratch/music" --player main --player 'the den'; }
pid=$running_PID
while read -r line <&"${running[0]}" && [[ $line != *scanned* ]]; do :; done

vantroctl load 1:
vantroctl save 'my mix'
album=$(vantroctl browse 1:albums | cut -f1)
. "$source/tools/completion/vantroctl.bash"
# Each prints the completions of the text before the cursor, as the shell itself would show them.
in_bash() {
    COMP_LINE=$1 COMP_POINT=${#1} COMPREPLY=()
    _vantroctl
    [ ${#COMPREPLY[@]} = 0 ] || printf '%s\n' "${COMPREPLY[@]}"
}
in_fish() { # without descriptions
    fish --no-config -c "source '$source/tools/completion/vantroctl.fish'; complete -C '$1'" | cut -f1
}
in_zsh() { # the candidates that zsh finds to match
    zsh -f "$source/tests/tools/complete.zsh" "$source/tools/completion" "$1" | sort -u
}
bad=0
compare() { # SHELL: reads lines of text|wanted
    local shell=$1 text wanted got
    while IFS='|' read -r text wanted; do
        got=$("in_$shell" "$text" | tr '\n' ' ')
        [ "${got% }" = "$wanted" ] || { echo "$shell: \"$text\" gives \"$got\", not \"$wanted\"" >&2; bad=1; }
    done
}
_vantroctl_seconds=60 # this machine may be busy
export _vantroctl_seconds
compare bash <<CASES
vantroctl pl|players play playlists
vantroctl de|delete-playlist
vantroctl delete-playlist |my\\ mix
vantroctl save --|--help --replace
vantroctl --json p|players play pause previous playlists
vantroctl --pl|--player
vantroctl browse --l|--limit
vantroctl --player |main the\\ den
vantroctl --player t|the\\ den
vantroctl --source |1 1000000
vantroctl --timeout |
vantroctl --color a|auto always
vantroctl status --format |
vantroctl --player play sh|shuffle
vantroctl shuffle t|toggle
vantroctl repeat |off all one toggle
vantroctl volume m|mute
vantroctl load --play 1:al|albums
vantroctl add 1:songs 1:g|genres
vantroctl browse 1|1:artists 1:albums 1:genres 1:years 1:songs 1:folders 1:playlists
vantroctl seek |
vantroctl info ${album:0:6}|${album#1:}
CASES
for shell in fish zsh; do
    if ! command -v "$shell" >/dev/null; then
        echo "NOT tried here: the completion for $shell"
        continue
    fi
    # fish adds the quoting later.
    compare "$shell" <<CASES
vantroctl de|delete-playlist
vantroctl delete-playlist |$([ $shell = fish ] && echo 'my mix' || echo 'my\ mix')
vantroctl save --r|--replace
vantroctl --pl|--player
vantroctl --player t|$([ $shell = fish ] && echo 'the den' || echo 'the\ den')
vantroctl --timeout |
vantroctl --color al|always
vantroctl --player play sh|shuffle
vantroctl shuffle t|toggle
vantroctl load --play 1:al|1:albums
vantroctl info ${album:0:6}|$album
CASES
done

unset _vantroctl_seconds
kill -STOP "$pid"
while grep -L '^State:.*T' /proc/"$pid"/task/*/status | grep -q .; do # a thread may still answer
    sleep 0.01
done
begin=${EPOCHREALTIME/[.,]/}
got=$(in_bash "vantroctl load 1:")
took=$(((${EPOCHREALTIME/[.,]/} - begin) / 1000))
kill -CONT "$pid"
[ -z "$got" ] && [ "$took" -lt 5000 ] ||
    { echo "a service that does not answer gives \"$got\" after $took ms" >&2; bad=1; }
echo "a service that does not answer takes $took ms"
exit "$bad"
