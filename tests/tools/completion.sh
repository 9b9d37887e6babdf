#!/usr/bin/env bash
# The completion for bash, against a service that runs, and one that does not answer.
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
. "$source/tools/completion/vantroctl.bash"
completed() { # TEXT: what the text before the cursor can become
    COMP_LINE=$1 COMP_POINT=${#1} COMPREPLY=()
    _vantroctl
    [ ${#COMPREPLY[@]} = 0 ] || printf '%s ' "${COMPREPLY[@]}"
}
bad=0
_vantroctl_seconds=60 # this machine may be busy
while IFS='|' read -r text wanted; do
    got=$(completed "$text")
    [ "${got% }" = "$wanted" ] || { echo "\"$text\" gives \"$got\", not \"$wanted\"" >&2; bad=1; }
done <<CASES
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
CASES
album=$(vantroctl browse 1:albums | cut -f1)
got=$(completed "vantroctl info ${album:0:6}")
[ "$got" = "${album#1:} " ] || { echo "the album is $album, completed as $got" >&2; bad=1; }

unset _vantroctl_seconds
kill -STOP "$pid"
while grep -L '^State:.*T' /proc/"$pid"/task/*/status | grep -q .; do # a thread may still answer
    sleep 0.01
done
begin=${EPOCHREALTIME/[.,]/}
got=$(completed "vantroctl load 1:")
took=$(((${EPOCHREALTIME/[.,]/} - begin) / 1000))
kill -CONT "$pid"
[ -z "$got" ] && [ "$took" -lt 5000 ] ||
    { echo "a service that does not answer gives \"$got\" after $took ms" >&2; bad=1; }
echo "a service that does not answer takes $took ms"
exit "$bad"
