#!/bin/sh
# abi_test.sh LIBRARY HEADER_DIRECTORY RECORD - changes a copy of the record, as the library could have changed since, and looks
# at what the comparison makes of it.
set -eu

library=$1 headers=$2 record=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
other=$scratch/other.abi

fail() {
    echo "FAILED: $*"
    cat "$scratch/log"
    exit 1
}

# changed SED-SCRIPT: the record, with something else in it than there was.
changed() {
    sed "$1" "$record" >"$other"
    ! cmp -s "$record" "$other" || fail "nothing to change: $1"
}

type_id() {
    sed -n "s/.*<type-decl name='$1' .* id='\([^']*\)'.*/\1/p" "$record"
}

compare() {
    "$(dirname "$0")/../../packaging/abi/abi.sh" "$library" "$headers" "$other" "$@" >"$scratch/log" 2>&1
}

# breaks NAME: the comparison fails, and to record the change is refused.
breaks() {
    if compare || ! grep -q 'programs that are built with libtq.so.1 would break' "$scratch/log"; then fail "$1"; fi
    cp "$other" "$scratch/before"
    if compare --renew || ! cmp -s "$other" "$scratch/before"; then fail "$1, and is recorded"; fi
    echo "ok: $1"
}

changed "s/<elf-symbol name='run_cmd' \(.*\)/&<elf-symbol name='run_cmd_as_it_was' \1/"
breaks "a function that is gone breaks programs"

changed "/<function-decl name='run_cmd'/,/<\/function-decl>/ s/<return type-id='[^']*'/<return type-id='$(type_id char)'/"
breaks "a function of another type breaks programs"

changed "/<class-decl name='if_stats'/,/<\/class-decl>/ s/\(layout-offset-in-bits=\)'64'/\1'96'/"
breaks "a structure whose members have moved breaks programs"

changed "/<elf-symbol name='run_cmd'/d; /<function-decl name='run_cmd'/,/<\/function-decl>/d"
if compare || ! grep -q 'not recorded yet' "$scratch/log"; then fail "a new function is noticed"; fi
echo "ok: a new function is noticed"
compare --renew || fail "a new function is recorded"
compare || fail "what was recorded compares equal"
echo "ok: a new function is recorded"

changed "s/soname='libtq.so.1'/soname='libtq.so.0'/; s/<elf-symbol name='run_cmd' \(.*\)/&<elf-symbol name='run_cmd_as_it_was' \1/"
compare --renew || fail "with another soname anything is recorded"
cmp "$record" "$other" >"$scratch/log" || fail "the record says how the library is, and nothing of where it was built"
echo "ok: with another soname anything is recorded"
