#!/usr/bin/env bash
# Checks that docs/vantroctl.md lists the equivalent of each verb of mpc and playerctl.
#   verb_table.sh SOURCE-DIRECTORY
set -euo pipefail
export LC_ALL=C
table=$(sed -n '/^## For users of mpc and playerctl/,/^## Completion/p' "$1/docs/vantroctl.md" | grep '^|')
bad=0
# compare NAME COLUMN VERBS...: each verb must begin a code span in that column.
compare() {
    local name=$1 column=$2
    shift 2
    [ $# -gt 10 ] || { echo "$name names only $# verbs" >&2; bad=1; }
    for verb in "$@"; do
        cut -d'|' -f"$column" <<<"${table//\\|/}" | grep -qE "\`$verb[\` ]" ||
            { echo "docs/vantroctl.md says nothing of $verb of $name" >&2; bad=1; }
    done
}
compare mpc 2 $(mpc help 2>&1 | sed -nE 's/^  mpc ([a-z-]+) .*/\1/p')
compare playerctl 3 $(playerctl --help | sed -n '/^Available Commands/,$p' | sed -nE 's/^  ([a-z-]+) .*/\1/p')
exit "$bad"
