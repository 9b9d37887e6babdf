# fish completion for vantroctl. Commands and options are those that --help prints; nodes, sources and
# players are asked for, with a time limit: a service that does not answer must not hold up the shell.

# Only the output within this time is used.
function __vantroctl_seconds
    set -q _vantroctl_seconds; and echo $_vantroctl_seconds; or echo 0.045
end

function __vantroctl_command
    set -l skip 0
    for word in (commandline -opc)[2..-1]
        if test $skip = 1
            set skip 0
        else if contains -- $word --player --color --timeout --source --limit --offset --depth --index --format
            set skip 1
        else if not string match -q -- '-*' $word
            echo $word
            return
        end
    end
end

function __vantroctl_players
    for directory in $XDG_RUNTIME_DIR/vantro /run/vantro
        for ring in $directory/kivo/services/vantro/*/ring
            basename (dirname $ring)
        end
    end
end

# The tops of the sources; if the word cannot be one, the list whose ids begin with its letter.
function __vantroctl_nodes
    set -l parts (string split -m1 : -- (commandline -ct))
    set -l list
    if test (count $parts) = 2
        set -l letters a b g y p s f
        set -l tops artists albums genres years playlists songs folders
        if not string match -q -- "$parts[2]*" $tops
            set -l at (contains -i -- (string sub -l 1 -- $parts[2]) $letters)
            and set list --limit 1000 $parts[1]:$tops[$at]
        end
    end
    timeout (__vantroctl_seconds) vantroctl browse $list 2>/dev/null </dev/null | cut -f1,4
end

function __vantroctl_candidates
    set -l command (__vantroctl_command)
    set -l before (commandline -opc)[-1]
    switch $before
        case --player
            __vantroctl_players
            return
        case --color
            printf '%s\n' auto always never
            return
        case --source
            timeout (__vantroctl_seconds) vantroctl sources 2>/dev/null </dev/null | string replace -r ':.*' ''
            return
        case --timeout --limit --offset --depth --index --format
            return
    end
    if string match -q -- '-*' (commandline -ct)
        vantroctl $command --help | string replace -rf '^  (?:-.,)?(--[a-z-]+)\S*(?: \S+)*? {2,}(.*)' '$1\t$2'
    else if test -z "$command"
        vantroctl --help | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z-]+) +(.*)/\1\t\2/p'
    else
        switch $command
            case delete-playlist
                timeout (__vantroctl_seconds) vantroctl playlists 2>/dev/null </dev/null | cut -f4
            case shuffle
                printf '%s\n' on off toggle
            case repeat
                printf '%s\n' off all one toggle
            case volume
                printf '%s\n' mute unmute
            case browse load add insert info rescan
                __vantroctl_nodes
        end
    end
end

complete -c vantroctl -f -a '(__vantroctl_candidates)'
