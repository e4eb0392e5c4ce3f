#!/bin/sh
# Crosses two implementations of the bus: every combination of broker, service, client and command must do the same.
#
#   ubus_cross.sh UBUSD_A UBUS_A PEER_A UBUSD_B UBUS_B PEER_B
#
# PEER is ubus_peer.c, built against the implementation's libubus. Useful where the firmware's own bus is installed: the
# workstation's must agree with it. Without it (a program that is not there) nothing is tested, which the exit status 77
# says.
set -u

[ $# -eq 6 ] || { echo "usage: $0 UBUSD_A UBUS_A PEER_A UBUSD_B UBUS_B PEER_B" >&2; exit 2; }
for program in "$@"; do
    [ -x "$program" ] || { echo "skipped: no $program"; exit 77; }
done
ubusd_a=$1 ubus_a=$2 peer_a=$3 ubusd_b=$4 ubus_b=$5 peer_b=$6

work=$(mktemp -d) || exit 2
socket=$work/bus
started=''
checks=0
wrong=0
trap 'stop_all; rm -rf "$work"' EXIT

start() {
    "$@" >>"$work/log" 2>&1 &
    started="$! $started"
}

stop_all() {
    for pid in $started; do
        kill "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    done
    started=''
}

# check WHAT COMMAND...: it must succeed.
check() {
    what=$1
    shift
    checks=$((checks + 1))
    if ! "$@" >"$work/out" 2>&1; then
        wrong=$((wrong + 1))
        echo "WRONG: $what"
        head -n 5 "$work/out" | cut -c 1-200 | sed 's/^/    /'
    fi
}

# What a command says and its exit status, without the ids, which are random, and its own name.
said() {
    command=$1
    shift
    timeout 20 "$command" -s "$socket" "$@" >"$work/said" 2>&1
    echo "exit $?" >>"$work/said"
    sed -e 's/@[0-9a-f]*$//' -e "s|$command|ubus|g" "$work/said"
}

same() {
    said "$ubus_a" "$@" >"$work/said.a"
    said "$ubus_b" "$@" >"$work/said.b"
    check "$combination: ubus $1 $2" diff "$work/said.a" "$work/said.b"
}

commands_say_the_same() {
    same -S list
    same -v list
    same list 'peer.1*'
    same list nothing
    same call peer.0 echo '{"text":"a \"quoted\" line\n","n":-1,"big":4294967296,"d":0.5,"t":{"l":[1,true,null,{}]},"e":[]}'
    same -S call peer.0 echo '{"text":"x","l":[[],{}]}'
    same call peer.0 nothing
    same call nothing echo
    same call peer.0 echo '{'
    same call peer.0 echo '[]'
    same send news '{"a":1}'
    same send news '{'
    same wait_for peer.0 peer.99
    same -t 1 wait_for nothing
}

# A peer that sends garbage, and one that dies in the middle of a message.
send_garbage() {
    head -c 100000 /dev/urandom | timeout 5 socat -u - "UNIX-CONNECT:$socket"
    printf 'GET / HTTP/1.1\r\n\r\n' | timeout 5 socat -u - "UNIX-CONNECT:$socket"
    printf '\000\004\000\001\000\000\000\000\000\000\377\000half' | timeout 5 socat -u - "UNIX-CONNECT:$socket"
    return 0
}

# clients PEER: fifty at once, with messages short enough for the firmware's broker: it drops what piles up.
clients() {
    pids='' failed=0
    for number in $(seq 50); do
        timeout 60 "$1" "$socket" call "peer.$number" 1000 20 &
        pids="$pids $!"
    done
    for pid in $pids; do
        wait "$pid" || failed=$((failed + 1))
    done
    [ "$failed" -eq 0 ]
}

# combine UBUSD SERVICE
combine() {
    combination="broker $1, service $2"
    rm -f "$socket"
    start "$1" -s "$socket"
    tries=0
    until [ -S "$socket" ] || [ "$tries" -ge 100 ]; do
        tries=$((tries + 1))
        sleep 0.05
    done
    start "$2" "$socket" serve 100
    check "$combination: objects appear" timeout 20 "$ubus_a" -s "$socket" -t 15 wait_for peer.99
    commands_say_the_same
    for client in "$peer_a" "$peer_b"; do
        check "$combination: $client calls with 64 KiB" timeout 20 "$client" "$socket" call peer.7 65536 20
        check "$combination: $client, fifty clients" clients "$client"
        send_garbage 2>>"$work/log"
        check "$combination: $client calls after garbage" timeout 20 "$client" "$socket" call peer.99 10 10
    done
    stop_all
}

for broker in "$ubusd_a" "$ubusd_b"; do
    for service in "$peer_a" "$peer_b"; do
        combine "$broker" "$service"
    done
done
echo "$checks checks, $wrong wrong"
[ "$wrong" -eq 0 ]
