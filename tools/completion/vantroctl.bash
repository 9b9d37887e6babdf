# bash completion for vantroctl. Commands and options are those that --help prints; nodes, sources and
# players are asked for.

# A service that does not answer must not hold up the shell: only what comes within the time is
# used.
_vantroctl_ask() {
    timeout "${_vantroctl_seconds:-0.045}" "$@" </dev/null 2>/dev/null
}

# The tops of the sources; if the word cannot be one, the list whose ids begin with its letter.
_vantroctl_nodes() {
    local top id=${2#*:} list=
    case $id in
    a*) list=artists ;;
    b*) list=albums ;;
    g*) list=genres ;;
    y*) list=years ;;
    p*) list=playlists ;;
    s*) list=songs ;;
    f*) list=folders ;;
    esac
    for top in artists albums genres years songs folders playlists; do
        [[ $2 == *:* && $top != "$id"* ]] || list=
    done
    if [[ $list ]]; then
        _vantroctl_ask "$1" browse --limit 1000 "${2%%:*}:$list"
    else
        _vantroctl_ask "$1" browse
    fi | cut -f1
}

_vantroctl_players() {
    local ring
    for ring in "${XDG_RUNTIME_DIR:-/run}"/vantro/kivo/services/vantro/*/ring \
        /run/vantro/kivo/services/vantro/*/ring; do
        [[ -e $ring ]] && ring=${ring%/ring} && printf '%s\n' "${ring##*/}"
    done
}

_vantroctl_candidates() {
    local program=$1 command=$2 prev=$3 cur=$4
    case $prev in
    --player) _vantroctl_players ;;
    --color) printf '%s\n' auto always never ;;
    --source) _vantroctl_ask "$program" sources | cut -d: -f1 ;;
    --timeout | --limit | --offset | --depth | --index | --format) ;;
    *)
        case $command,$cur in
        ,-*) "$program" --help | sed -nE 's/^  (-.,)?(--[a-z-]+).*/\2/p' ;;
        *,-*) "$program" "$command" --help | sed -nE 's/^  (-.,)?(--[a-z-]+).*/\2/p' ;;
        ,*) "$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' ;;
        browse,* | load,* | add,* | insert,* | info,* | rescan,*) _vantroctl_nodes "$program" "$cur" ;;
        delete-playlist,*) _vantroctl_ask "$program" playlists | cut -f4 ;;
        shuffle,*) printf '%s\n' on off toggle ;;
        repeat,*) printf '%s\n' off all one toggle ;;
        volume,*) printf '%s\n' mute unmute ;;
        esac
        ;;
    esac 2>/dev/null
}

_vantroctl() {
    local line=${COMP_LINE:0:COMP_POINT} words command= candidate i
    # Not COMP_WORDS: bash cuts those at the colon of a node.
    read -ra words <<<"$line"
    [[ $line != *[[:space:]] ]] || words+=("")
    local cur=${words[-1]} prev=${words[-2]}
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        case ${words[i]} in
        --player | --color | --timeout | --source | --limit | --offset | --depth | --index | --format) ((i++)) ;;
        -*) ;;
        *) command=${command:-${words[i]}} ;;
        esac
    done
    COMPREPLY=()
    local cut= quoted
    [[ $cur != *:* || $COMP_WORDBREAKS != *:* ]] || cut=${cur%"${cur##*:}"}
    while IFS= read -r candidate; do
        if [[ $candidate == "$cur"* ]]; then
            printf -v quoted %q "${candidate#"$cut"}"
            COMPREPLY+=("$quoted")
        fi
    done < <(_vantroctl_candidates "${words[0]}" "$command" "$prev" "$cur")
}

complete -F _vantroctl vantroctl
