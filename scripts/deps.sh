# Sourced by the other commands in this directory. Installs Debian packages that are missing and
# reports it. If none is missing, it does nothing and prints nothing.

packages_build='g++ cmake ninja-build pkg-config git libtag1-dev libsqlite3-dev libicu-dev libexpat1-dev nettle-dev libcli11-dev libtomlplusplus-dev libfmt-dev rapidjson-dev libmpv-dev libsystemd-dev libmicrohttpd-dev libpcre2-dev libgtest-dev scdoc'
packages_music='flac vorbis-tools'
packages_test='libglib2.0-dev locales python3 python3-pil python3-pytest mypy dbus-daemon playerctl mpc libmpdclient-dev zsh fish pulseaudio dosfstools ncmpcpp tmux snapserver snapclient'
packages_browser='chromium chromium-driver'
packages_docs='doxygen mandoc'
packages_package='dpkg-dev lintian python3-pip python3-setuptools python3-wheel'
packages_clang='clang-14 libclang-rt-14-dev'
packages_arm='g++-arm-linux-gnueabihf qemu-user qemu-user-binfmt binfmt-support googletest'

# need PACKAGE...: returns when all of them are installed, and ends the script if they cannot be
# installed.
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
