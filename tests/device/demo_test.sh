#!/bin/sh
# demo_test.sh SOURCE BUILD - the demo ends well, a program that lies makes it fail in the step that asked, and the shell takes
# commands.
set -eu

source=$1 build=$2
demo=$source/host/device/demo.sh
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
escape=$(printf '\033')

# device COMMAND [ARGUMENT]...: sets status; what it printed is in $scratch/out and $scratch/err.
device() {
    status=0
    "$source/host/device/tqdevice" --see "$source" --keep "$build" --bin "$build/device-bin" --services -- "$@" \
        >"$scratch/out" 2>"$scratch/err" </dev/null || status=$?
}

failed() {
    echo "FAILED: $1 (exit code $status)"
    cat "$scratch/out" "$scratch/err"
    exit 1
}

# says out|err TEXT
says() { grep -qF -- "$2" "$scratch/$1" || failed "says '$2'"; }

never_says() { ! grep -qF -- "$2" "$scratch/$1" || failed "never says '$2'"; }

ends_with() { [ "$status" -eq "$1" ] || failed "ends with $1"; }

# with_liar PROGRAM ARGUMENTS ANSWER EXIT COMMAND...: on a device where this program has this answer to these arguments.
# shellcheck disable=SC2016
with_liar() {
    device sh -c '
        program=$1 real=$(command -v "$1") arguments=$2 answer=$3 exit=$4
        shift 4
        mkdir /tmp/lies
        cat >"/tmp/lies/$program" <<END
#!/bin/sh
if [ "\$*" = "$arguments" ]; then echo "$answer"; exit $exit; fi
exec $real "\$@"
END
        chmod 755 "/tmp/lies/$program"
        PATH=/tmp/lies:$PATH
        exec "$@"' sh "$@"
}

# notices STEP ANSWERED PROGRAM ARGUMENTS ANSWER EXIT
notices() {
    step=$1 answered=$2
    shift 2
    with_liar "$@" "$demo"
    ends_with 1
    says err "demo: step $step is wrong: "
    says err "  expected: "
    says err "  answered: $answered"
    never_says out "steps right"
    echo "ok: step $step notices that '$1 $2' says '$3' and ends with $4"
}

device "$demo"
ends_with 0
says out "All 12 steps right"
never_says out "$escape"
echo "ok: $(tail -n 1 "$scratch/out")"

notices 1 "kernel-up check: 1" device_run start "kernel-up check: 1" 0
notices 2 "no radios (exit code 0)" tqctl "board radios" "no radios" 0
notices 3 "nothing (exit code 1)" tqctl "if set eth0 address=192.168.1.1 netmask=255.255.255.0" "" 1
notices 5 "tqctl: wifi set: radio7: no such radio or VAP (exit code 0)" \
    tqctl "wifi set radio7 mode 9" "tqctl: wifi set: radio7: no such radio or VAP" 0
notices 6 "not in two seconds" tqctl "log level netifd debug" "" 0
notices 9 1 tqctl "stat ports" "eth0.out_octets=1" 0

on_terminal() { with_liar device_run start "" 0 env "$1" script --quiet --command "$demo" /dev/null; }
on_terminal TERM=xterm
says out "${escape}[1m 1. "
on_terminal NO_COLOR=1
says out " 1. "
never_says out "$escape"
echo "ok: colours on a terminal, but none with NO_COLOR"

# shellcheck disable=SC2016
device sh -c 'printf "tqctl uci get wireless.radio0.channel\ntqctl image check\nuci get nothing.there\nexit 3\n" | "$0"' \
    "$source/host/device/shell.sh"
ends_with 3
says out "This is a simulated access point."
says out "root@tq-ap:/root# 6"
says out "root@tq-ap:/root# primary"
says out "root@tq-ap:/root# uci: Entry not found"
echo "ok: the shell"
