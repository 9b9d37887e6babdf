#!/usr/bin/env bash
# Checks the systemd units with systemd's own tools: each unit can be loaded, and the system units
# restrict their programs to the permissions that these need.
#   units.sh BUILD-DIRECTORY
set -euo pipefail
build=$1
command -v systemd-analyze >/dev/null || {
    echo "units: systemd-analyze is not installed: the units were NOT checked"
    exit 77
}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export XDG_RUNTIME_DIR=$scratch/runtime
mkdir -m 0700 "$XDG_RUNTIME_DIR"
fail() {
    echo "units: $*" >&2
    exit 1
}

for folder in system user; do
    mkdir "$scratch/$folder"
    for unit in "$build"/packaging/systemd/lib/systemd/"$folder"/*.service; do
        # The programs are not installed; the units are changed to use those of the build.
        sed -E "s|=[^ ]*/bin/(vantro[a-z-]*)|=$build/bin/\1|" "$unit" >"$scratch/$folder/${unit##*/}"
    done
    how=()
    [ "$folder" = system ] || how=(--user)
    said=$(systemd-analyze "${how[@]}" --man=no --recursive-errors=no verify "$scratch/$folder"/*.service 2>&1) ||
        fail "$folder: $said"
    [ -z "$said" ] || fail "$folder: $said"
done
for unit in "$scratch"/system/*.service; do
    systemd-analyze --offline=true --threshold=25 --no-pager security "$unit" >"$scratch/said" ||
        { grep -v '^✓' "$scratch/said"; fail "${unit##*/} has an exposure above 2.5 of 10"; }
    tail -n 1 "$scratch/said"
done
