#!/bin/sh
# openwrt_test.sh SOURCE BUILD - runs the feed's recipe with what openwrt/ has in place of the firmware's build system, on the
# workstation's libraries and with its compiler: what the recipe says of its packages, and which files get into each.
set -eu

export LC_ALL=C
source=$1 build=$2
stand_ins=$(cd "$(dirname "$0")" && pwd)/openwrt
top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT
staging=$top/staging_dir/usr

fail() {
    echo "FAILED: $*"
    exit 1
}

# check NAME EXPECTED ACTUAL
check() {
    if [ "$2" != "$3" ]; then
        printf '%s\n' "$2" >"$top/expected"
        printf '%s\n' "$3" | diff -u "$top/expected" - | sed 1,2d
        fail "$1"
    fi
    echo "ok: $1"
}

# The firmware's libraries, which are a workstation's here, as other recipes have put them into the staging directory.
stage_dependencies() {
    DESTDIR=$top/workstation cmake --install "$build" >/dev/null
    mkdir -p "$staging/include" "$staging/lib"
    cp -R "$top/workstation/usr/include/tq/host/." "$staging/include"
    cp -P "$top/workstation/usr/lib/"*/tq/*.so* "$staging/lib"
    # libnl-tiny has all of libnl that a program needs.
    rm "$staging/lib/libnl-tiny.so"
    echo 'INPUT(libnl-tiny.so.1 -lnl-genl-3 -lnl-3)' >"$staging/lib/libnl-tiny.so"
}

recipe() {
    make --no-print-directory -C "$source/packaging/openwrt/libtq" "TOPDIR=$top" \
        TARGET_CFLAGS="-O0 -isystem /usr/include/libnl3" TARGET_LDFLAGS="-Wl,-rpath-link,$staging/lib" "$@"
}

files() {
    (cd "$1" && find . ! -type d | sort)
}

needed() {
    readelf -dW "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -vE '^(libc\.so\.6|ld-linux.*|libnl-(genl-)?3.*)$' | sort
}

project() {
    sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"
}

mkdir "$top/include"
cp "$stand_ins/rules.mk" "$top"
cp "$stand_ins/package.mk" "$stand_ins/cmake.mk" "$top/include"
stage_dependencies
version=$(project CMAKE_PROJECT_VERSION) soversion=$(project TQ_SOVERSION)

check "what the recipe says of its packages" "Package: libtq$soversion
Version: $version-1
License: ISC
Section: libs
Category: Libraries
Title: Platform utility library of a Wi-Fi access point
Depends: +libubox +libubus +libuci +libnl-tiny +libtqoem
Package: tqctl
Version: $version-1
License: ISC
Section: utils
Category: Utilities
Title: Companion command of libtq
Depends: +libtq +libubox +libubus +libuci +libnl-tiny +libjson-c" "$(recipe metadata)"

files "$staging" >"$top/before"
recipe build >"$top/log" 2>&1 || { cat "$top/log"; fail "the recipe builds"; }
check "libtq is the shared object and nothing else" "./usr/lib/libtq.so.$soversion
./usr/lib/libtq.so.$version" "$(files "$top/packages/libtq$soversion")"
check "tqctl is the command and nothing else" ./usr/bin/tqctl "$(files "$top/packages/tqctl")"
check "other recipes find headers, both libraries, tq.pc and the CMake package" "$(
    (cd "$source" && find ./include/tq -type f | sort)
    echo ./lib/cmake/tq/tqConfig.cmake
    echo ./lib/cmake/tq/tqConfigVersion.cmake
    echo ./lib/cmake/tq/tqTargets-minsizerel.cmake
    echo ./lib/cmake/tq/tqTargets.cmake
    echo ./lib/libtq.a
    echo ./lib/libtq.so
    echo "./lib/libtq.so.$soversion"
    echo "./lib/libtq.so.$version"
    echo ./lib/pkgconfig/tq.pc
)" "$(files "$staging" | grep -vxFf "$top/before")"

# What each needs is what its recipe depends on.
check "libtq needs what it depends on" "libnl-tiny.so.1
libtqoem.so
libubox.so
libubus.so
libuci.so" "$(needed "$top/packages/libtq$soversion/usr/lib/libtq.so.$soversion")"
check "tqctl needs what it depends on" "libjson-c.so.5
libnl-tiny.so.1
libtq.so.$soversion
libubox.so
libubus.so
libuci.so" "$(needed "$top/packages/tqctl/usr/bin/tqctl")"
check "nothing looks for libraries where they were built" "" \
    "$(readelf -dW "$top"/packages/*/usr/*/* | grep -E 'R(UN)?PATH' || true)"

rm -r "$top/build_dir" "$staging/include/tq/oem.h" "$staging/lib/libtqoem.so"
if recipe build >"$top/log" 2>&1; then fail "without the board's library there is no package"; fi
grep -q 'host/oem' "$top/log" || { cat "$top/log"; fail "the board's library is named"; }
echo "ok: without the board's library there is no package"
