#!/usr/bin/env bash
# Each option and command that --help prints is in the manual page, and the other way round.
#   man_pages.sh SOURCE-DIRECTORY PROGRAM...
set -euo pipefail
export LC_ALL=C
source=$1
shift
bad=0
for program in "$@"; do
    name=${program##*/}
    help=$("$program" --help)
    commands=$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' <<<"$help")
    for command in $commands; do
        help+=$'\n'$("$program" "$command" --help)
    done
    page=$(cat "$source/docs/man/$name".[18].scd)
    has=$(
        grep -E '^  -' <<<"$help" | grep -oE -- '--[a-z][a-z-]*'
        printf '%s\n' $commands
    )
    # The beginning of each entry, in the two chapters that have such entries.
    says=$(awk '/^# / { chapter = $2 } chapter ~ /^(OPTIONS|COMMANDS)$/ && /^\*/' <<<"$page" |
        grep -oE '\*(--)?[a-z][a-z-]*\*' | tr -d '*')
    diff -u --label "$name --help" --label "the page of $name" \
        <(sort -u <<<"$has" | grep .) <(sort -u <<<"$says") || bad=1
done
exit "$bad"
