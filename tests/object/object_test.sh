#!/bin/sh
# object_test.sh LIBRARY HEADER_DIRECTORY SONAME NEEDED... - what the finished shared object is, whatever machine it is for:
# what it needs, what leaves it, and how it is laid out.
set -eu

library=$1 headers=$2 soname=$3
shift 3
failures=0

# check NAME EXPECTED ACTUAL
check() {
    if [ "$2" = "$3" ]; then
        echo "ok: $1"
        return
    fi
    failures=$((failures + 1))
    echo "FAILED: $1"
    printf '%s\n' "$2" >"$scratch/expected"
    printf '%s\n' "$3" >"$scratch/actual"
    diff -u "$scratch/expected" "$scratch/actual" | sed 1,2d
}

dynamic() {
    readelf -dW "$library" | sed -n "s/.*($1).*\[\(.*\)\]/\1/p"
}

# The identifier that a declaration marked TQ_API declares: what stands before its parameters or array bounds, or last.
declared() {
    sed '/^[[:space:]]*#/d' "$headers"/*.h | tr '\n' ' ' |
        sed -e 's|/\*[^*]*\*\**\([^/*][^*]*\*\**\)*/| |g' -e 's/[;{}]/\n/g' |
        sed -n 's/.*TQ_API //p' | sed -e 's/ *[[(].*//' -e 's/ *$//' -e 's/.*[^A-Za-z0-9_]//' | sort
}

exported() {
    readelf -W --dyn-syms "$library" |
        awk '($5 == "GLOBAL" || $5 == "WEAK") && $7 != "UND" { print $8 }' | sort
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

check "its name is $soname" "$soname" "$(dynamic SONAME)"
check "it needs the C library and the named dependencies" \
    "$(for name in "$@"; do echo "$name"; done | sort)" "$(dynamic NEEDED | grep -v '^ld' | sort)"
check "the headers declare something" yes "$([ -n "$(declared)" ] && echo yes)"
check "what the headers mark TQ_API leaves it, without a version, and nothing else" "$(declared)" "$(exported)"
check "nothing runs when it is loaded or unloaded" "" \
    "$(readelf -dW "$library" | grep -E '\((PREINIT_ARRAY|INIT|INIT_ARRAY|FINI|FINI_ARRAY)\)' || true)"
check "its code is shared between processes (no text relocations)" "" \
    "$(readelf -dW "$library" | grep -E 'TEXTREL' || true)"
check "its relocations are done once it is loaded" NOW \
    "$(readelf -dW "$library" | grep -qE 'BIND_NOW|FLAGS.*NOW' && echo NOW)"
# What could be made read-only on MIPS is less than the padding for it.
if ! readelf -hW "$library" | grep -q 'Machine:.*MIPS'; then
    check "what they have changed is read-only then" RELRO "$(readelf -lW "$library" | grep -o RELRO | head -n 1)"
fi

[ "$failures" -eq 0 ]
