# Sourced by the commands beside it. Installs Debian packages that are missing, and says so; where
# nothing is missing it does and prints nothing.

packages_build='g++ cmake ninja-build pkg-config git libtag1-dev libcli11-dev libfmt-dev rapidjson-dev libgtest-dev'
packages_music='flac vorbis-tools'
packages_clang='clang-14 libclang-rt-14-dev'
packages_arm='g++-arm-linux-gnueabihf qemu-user googletest'

# need PACKAGE...: returns when all of them are installed, ends the script when that cannot be.
need() {
    local missing
    missing=$(missing_packages "$@")
    [ -n "$missing" ] || return 0
    echo "installing what is missing:" $missing
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "neither root nor sudo: install these packages and start again:" $missing >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -q -y --no-install-recommends $missing </dev/null || {
        echo "could not install:" $missing >&2
        exit 1
    }
}

missing_packages() {
    local package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            printf '%s ' "$package"
        fi
    done
}
