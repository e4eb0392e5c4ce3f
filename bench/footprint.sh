#!/bin/sh
# footprint.sh BUILD-TREE SIZE STRIP BUDGET - the page about what each source adds to the shared object, and what the whole
# of it is; fails where something takes more than the budget file grants it. SIZE and STRIP are the target's own tools.
set -eu

tree=$1 size=$2 strip=$3 budget=$4

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$strip" --strip-unneeded --remove-section=.comment --remove-section=.note -o "$scratch/libtq.so" "$tree/src/libtq.so"

# sections FILE: bytes of code, constants, initialised and zeroed data, which is also the order of the table.
sections() {
    "$size" -A "$1" | awk '
        /^\.text/ { code += $2 }
        /^\.(rodata|data\.rel\.ro)/ { constants += $2; next }
        /^\.s?data/ { data += $2 }
        /^\.s?bss/ { zeroed += $2 }
        END { print code + 0, constants + 0, data + 0, zeroed + 0 }'
}

{
    for object in "$tree"/src/CMakeFiles/tq_objects.dir/*/*.o; do
        subsystem=$(basename "$(dirname "$object")")
        echo "$subsystem $(basename "$object" .cpp.o) $(sections "$object")"
    done
    echo "whole libtq.so $(sections "$scratch/libtq.so") $(wc -c <"$scratch/libtq.so")"
} >"$scratch/sizes"

cat <<'END'
# Footprint

Bytes of `libtq.so` for the access point's machine: 32-bit little-endian MIPS, MIPS16e code, the C library musl, `-Os`,
stripped. Made by `./run footprint`, which fails where a source, the object or its data outgrow
[the budget](../bench/footprint.budget); whoever needs more raises it there, in a commit that says why.

What a function costs on this machine before it does anything: 20 to 24 bytes to find the library's addresses, where it uses
any; 12 a call that leaves the library or stays in its source, 8 one to another of its sources; 8 for the address of a text or
a table; about 30 a log line, besides its text. 419 exported names take 16 KB in any build: their texts, their entries and what
the loader finds them by. MIPS16e takes a third off the code of the plain instruction set; link-time optimization takes nothing
more off it.

The aim is 98304 bytes, 96 KiB. What is too much is spread over all of them: no source takes more than 6 KB.

The library needs no C++ run-time library, runs nothing when it is loaded, and has relocations for nothing but addresses that a
public table or another library's structure holds.

END

awk '
    NR == FNR {
        if (NF == 2 && $1 !~ /^#/) granted[$1] = $2
        next
    }
    FNR == 1 {
        print "| subsystem | source | code | constants | data | zeroed | code and constants | budget |"
        print "|---|---|---|---|---|---|---|---|"
    }
    function hold(name, bytes) {
        if (!(name in granted)) {
            print "footprint: no budget for " name >"/dev/stderr"
            failed = 1
        } else if (bytes > granted[name]) {
            print "footprint: " name " takes " bytes " bytes, its budget is " granted[name] >"/dev/stderr"
            failed = 1
        }
        seen[name] = 1
    }
    $1 != "whole" {
        hold($2, $3 + $4)
        printf "| %s | %s | %d | %d | %d | %d | %d | %d |\n", $1, $2, $3, $4, $5, $6, $3 + $4, granted[$2]
        next
    }
    {
        hold($2, $7)
        hold("data", $5 + $6)
        printf "\nThe object as it is stripped: %d bytes of %d granted; code %d, constants %d, the rest symbols and what the loader " \
            "needs. Data, initialised and zeroed: %d bytes of %d granted.\n", $7, granted[$2], $3, $4, $5 + $6, granted["data"]
    }
    END {
        for (name in granted) if (!(name in seen)) {
            print "footprint: a budget for " name ", which is not there" >"/dev/stderr"
            failed = 1
        }
        exit failed
    }' "$budget" "$scratch/sizes"
