#!/bin/sh
# abi.sh LIBRARY HEADER_DIRECTORY RECORD [--renew] - compares the binary interface of the library, which has to have debug
# information, with the recorded one; or records it anew, which an incompatible change allows only together with a new soname.
set -eu

library=$1 headers=$2 record=$3 renew=${4-}
now=$(mktemp)
trap 'rm -f "$now"' EXIT

soname() {
    readelf -dW "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'
}

recorded_soname() {
    sed -n "s/.*soname='\([^']*\)'.*/\1/p" "$record"
}

# Without places, paths and numbers that move with every edit, so that the record changes with the interface only.
abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only --drop-undefined-syms --no-elf-needed \
    --no-show-locs --no-comp-dir-path --no-corpus-path --type-id-style hash --out-file "$now" "$library"
sed -i "s,\(<abi-instr .*path='\)[^']*\(src/\),\1\2," "$now"

# The report goes to standard output; 0 where nothing differs.
differences() {
    abidiff "$@" "$record" "$now"
}

if [ "$renew" = --renew ]; then
    if [ -f "$record" ] && [ "$(soname)" = "$(recorded_soname)" ] && ! differences --no-added-syms; then
        echo "$record: what changed is incompatible, and $(soname) has programs: it needs another soname (docs/abi.md)" >&2
        exit 1
    fi
    cp "$now" "$record"
    echo "$record: recorded"
    exit 0
fi

if differences --harmless; then
    echo "ok: $record"
    exit 0
fi
if differences --no-added-syms >/dev/null; then
    echo "FAILED: $record: the change is compatible, but not recorded yet: ./run abi --renew"
else
    echo "FAILED: $record: programs that are built with $(recorded_soname) would break (docs/abi.md)"
fi
exit 1
