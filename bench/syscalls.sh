#!/bin/sh
# Counts the system calls of one public call: syscalls.sh TQ_ONE_CALL, in the simulated device.
# Each figure is the difference between eleven calls and one, by ten; what the called programs do in
# their own processes is not counted.
set -eu

one_call=$1
trace=/tmp/one_call.trace

# count CALL TIMES: prints "NAME N" lines of the calls made by the process itself.
count() {
    strace -o "$trace" "$one_call" "$1" "$2"
    sed -n 's/^\([a-z_0-9]*\)(.*/\1/p' "$trace" | sort | uniq -c | awk '{print $2, $1}'
}

echo '| call | system calls | which |'
echo '|---|---|---|'
"$one_call" --list | while read -r call; do
    count "$call" 1 > /tmp/once
    count "$call" 11 > /tmp/eleven
    awk -v call="$call" '
        NR == FNR { once[$1] = $2; next }
        {
            each = ($2 - once[$1]) / 10
            if (each > 0) { total += each; which = which sprintf("%s%s %g", which ? ", " : "", $1, each) }
        }
        END { printf "| `%s` | %g | %s |\n", call, total, which }' /tmp/once /tmp/eleven
done
