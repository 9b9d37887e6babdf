#!/usr/bin/env bash
# Installs the build into an empty prefix, moves it, and uses only what is there: the programs
# start, and programs in C and C++ are built against it by pkg-config and by CMake.
#   install.sh BUILD-DIRECTORY SOURCE-DIRECTORY
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() {
    echo "install: $*" >&2
    exit 1
}

cmake --install "$build" --prefix "$scratch/first" >"$scratch/log" || { cat "$scratch/log"; fail "cmake --install"; }
prefix="$scratch/moved to a place with spaces"
mv "$scratch/first" "$prefix"
unset LD_LIBRARY_PATH
export XDG_RUNTIME_DIR=$scratch/runtime
mkdir -m 0700 "$XDG_RUNTIME_DIR"
version=$(sed -n 's/^#define VANTRO_VERSION "\(.*\)"$/\1/p' "$prefix/include/vantro/version.h")

programs='vantrod vantroctl vantro-grantor'
pages='man1/vantrod.1 man1/vantroctl.1 man8/vantro-grantor.8'
if grep -q '^VANTRO_BUILD_MPRIS:BOOL=\(ON\|1\)$' "$build/CMakeCache.txt"; then
    programs+=' vantro-mpris'
    pages+=' man1/vantro-mpris.1'
fi
if grep -q '^VANTRO_BUILD_MPD:BOOL=\(ON\|1\)$' "$build/CMakeCache.txt"; then
    programs+=' vantro-mpd'
    pages+=' man1/vantro-mpd.1'
fi
if grep -q '^VANTRO_BUILD_WEB:BOOL=\(ON\|1\)$' "$build/CMakeCache.txt"; then
    programs+=' vantro-web'
    pages+=' man1/vantro-web.1'
fi
for program in $programs; do
    said=$("$prefix/bin/$program" --version) || fail "$program does not start"
    [ "$said" = "$program $version" ] || fail "$program says '$said', the header $version"
done
for library in vantroclient vantroplatform; do
    [ -f "$prefix/lib/lib$library.so.$version" ] || fail "lib$library.so.$version is not there"
    soname=$(readelf -d "$prefix/lib/lib$library.so" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
    [ "$soname" = "lib$library.so.${version%%.*}" ] ||
        fail "the soname of lib$library is not that of version $version"
done

# In code that strangers reach a fault ends the process: immediate binding, and checked calls.
for file in "$prefix"/bin/vantrod "$prefix/lib/libvantroclient.so" "$prefix/lib/libvantroplatform.so"; do
    facts=$(readelf -dlW "$file" && readelf --dyn-syms -W "$file")
    grep -Eq 'BIND_NOW|FLAGS.* NOW' <<<"$facts" || fail "$file is not bound at once"
    grep -q GNU_RELRO <<<"$facts" || fail "$file has no read-only relocations"
    grep -q __stack_chk_fail <<<"$facts" || fail "$file has no stack protector"
    # Where clang knows the size of a buffer, it needs no checked call; if it does not, it has
    # none for these functions. So only its options can be checked.
    if readelf -p .comment "$file" | grep -q clang; then
        grep -q -e '-D_FORTIFY_SOURCE=2' "$build/build.ninja" || fail "$file has no fortified calls"
    else
        grep -Eq '__(memcpy|vsnprintf)_chk' <<<"$facts" || fail "$file has no fortified calls"
    fi
done

# pkg-config finds the tree where it lies now.
cp "$source/examples/first_program.c" "$source"/tests/install/consumer/* "$scratch"
prefix=$scratch/moved
mv "$scratch/moved to a place with spaces" "$prefix"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
[ "$(pkg-config --modversion vantro)" = "$version" ] || fail "vantro.pc is of another version"
cc -std=c11 -Wall -Wextra -Werror "$scratch/first_program.c" -o "$scratch/by_pkg_config" \
    $(pkg-config --cflags --libs vantro) || fail "pkg-config's flags do not link"
c++ -std=c++20 -Wall -Wextra -Werror "$scratch/program.cpp" -o "$scratch/cxx_by_pkg_config" \
    $(pkg-config --cflags --libs vantro vantro-platform) || fail "pkg-config's flags do not link C++"
[ "$(LD_LIBRARY_PATH=$prefix/lib "$scratch/cxx_by_pkg_config")" = "$version" ] ||
    fail "a program built by pkg-config does not run"

for example in "$prefix"/share/doc/vantro/examples/*.c*; do
    compiler='cc -std=gnu11' modules='vantro vantro-platform'
    [[ $example != *.cpp ]] || compiler='c++ -std=c++20'
    [[ $example != *glib* ]] || modules+=' glib-2.0'
    flags=$(pkg-config --cflags --libs $modules) || continue # without GLib
    $compiler -Wall -Wextra -Werror "$example" -o "$scratch/example" $flags || fail "$example does not compile"
done

# CMake. Programs that it builds run from where they were built.
(cmake -S "$scratch" -B "$scratch/out" -DCMAKE_PREFIX_PATH="$prefix" && cmake --build "$scratch/out") \
    >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "find_package(Vantro)"; }
[ "$("$scratch/out/cxx_program")" = "$version" ] || fail "a program built by CMake does not run"
status=0
"$scratch/out/first_program" >/dev/null 2>&1 || status=$?
[ "$status" -eq 1 ] || fail "without a service the first program ends with $status"

"$source/scripts/check-examples" "$prefix"

for page in $pages; do
    grep -q '^\.SH OPTIONS' "$prefix/share/man/$page" || fail "no manual page $page"
done

# The Python package finds the library of the tree that it lies in.
said=$(PYTHONPATH=$prefix/lib/python3/dist-packages /usr/bin/python3 -c '
import vantro
print(vantro.__version__, vantro._library.library._name)')
[ "$said" = "$version $prefix/lib/libvantroclient.so.1" ] || fail "the Python package says $said"

# The runtime component alone has no header, and starts.
cmake --install "$build" --prefix "$scratch/runtime_only" --component runtime >/dev/null
[ ! -e "$scratch/runtime_only/include" ] || fail "the runtime component holds headers"
"$scratch/runtime_only/bin/vantrod" --version >/dev/null || fail "the runtime component does not start"
echo "install: $version can be installed, moved, built against and started"
