#!/bin/sh
# install_test.sh CMAKE BUILD_TREE EXAMPLE COMPILER GENERATOR - installs the build into a fresh prefix and uses it from there
# as another project would: by find_package() and by pkg-config.
set -eu

cmake=$1 build=$2 example=$3 compiler=$4 generator=$5
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

# Without arguments the example says how it is used and ends with 1, once the dynamic linker has found everything.
runs() {
    status=0
    "$1" 2>"$scratch/usage" || status=$?
    if [ "$status" -ne 1 ] || ! grep -q '^Usage:' "$scratch/usage"; then
        echo "FAILED: $1 ended with $status"
        cat "$scratch/usage"
        exit 1
    fi
    echo "ok: $1"
}

"$cmake" --install "$build" --prefix "$prefix" >"$scratch/log"

mkdir "$scratch/package"
cat >"$scratch/package/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES C)
find_package(tq 1.0 REQUIRED)
add_executable(example "$example")
target_link_libraries(example PRIVATE tq::tq)
END
"$cmake" -S "$scratch/package" -B "$scratch/package/build" -G "$generator" -DCMAKE_C_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$prefix" >"$scratch/log" || { cat "$scratch/log"; exit 1; }
"$cmake" --build "$scratch/package/build" >"$scratch/log" || { cat "$scratch/log"; exit 1; }
runs "$scratch/package/build/example"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tq.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
"$compiler" -std=c99 "$example" $(pkg-config --cflags --libs tq) -Wl,-rpath,"$(pkg-config --variable=libdir tq)" \
    -Wl,--fatal-warnings -o "$scratch/by-pkg-config"
runs "$scratch/by-pkg-config"

"$prefix/bin/tqctl" --help >"$scratch/help"
echo "ok: tqctl --help"
find "$prefix" -type f -o -type l | sed "s,^$prefix/,  ," | sort
