# Sourced by the commands beside it. Installs Debian packages that are missing, and says so; if none
# is missing it does and prints nothing.

packages_build='g++ cmake ninja-build pkg-config git libtag1-dev libsqlite3-dev libicu-dev libexpat1-dev nettle-dev libcli11-dev libtomlplusplus-dev libfmt-dev rapidjson-dev libmpv-dev libsystemd-dev libmicrohttpd-dev libgtest-dev scdoc'
packages_music='flac vorbis-tools'
packages_test='libglib2.0-dev locales python3 python3-pil python3-pytest mypy dbus-daemon playerctl mpc libmpdclient-dev'
packages_browser='chromium chromium-driver'
packages_docs='doxygen mandoc'
packages_package='dpkg-dev lintian'
packages_clang='clang-14 libclang-rt-14-dev'
packages_arm='g++-arm-linux-gnueabihf qemu-user qemu-user-binfmt binfmt-support googletest'

# need PACKAGE...: returns when all of them are installed, ends the script when that cannot be.
need() {
    local missing
    missing=$(missing_packages "$@")
    [ -n "$missing" ] || return 0
    echo "installing what is missing:" $missing
    if ! as_root apt-get update -q ||
        ! as_root apt-get install -q -y --no-install-recommends $missing </dev/null; then
        echo "could not install:" $missing >&2
        exit 1
    fi
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        DEBIAN_FRONTEND=noninteractive "$@"
    else
        sudo env DEBIAN_FRONTEND=noninteractive "$@"
    fi
}

missing_packages() {
    local package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            printf '%s ' "$package"
        fi
    done
}
