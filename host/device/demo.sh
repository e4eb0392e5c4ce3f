#!/bin/sh
# demo.sh - shows what the simulated access point is made of, changes its configuration through libtq, by tqctl and by a C
# program, and reads each change back with another program. Every step is checked; the first wrong answer ends it.
set -eu

if [ -t 1 ]; then bold=$(printf '\033[1m') green=$(printf '\033[32m') red=$(printf '\033[31m') plain=$(printf '\033[0m'); else
    bold='' green='' red='' plain=''
fi
step=0

title() {
    step=$((step + 1))
    printf '\n%s%d. %s%s\n' "$bold" "$step" "$*" "$plain"
}

wrong() {
    printf '  %swrong:%s expected %s\n' "$red" "$plain" "$1"
    exit 1
}

show() {
    printf '%s\n' "$1" | sed "s/^./  ${green}&/; s/\$/$plain/"
}

# answers EXPECTED COMMAND [ARGUMENT]...: runs it, shows what came back, and insists on it.
answers() {
    expected=$1
    shift
    printf '  $ %s\n' "$*"
    answer=$("$@" 2>&1) || true
    show "$answer"
    [ "$answer" = "$expected" ] || wrong "$expected"
}

# fails STATUS COMMAND [ARGUMENT]...: must be refused, with that exit status.
fails() {
    expected=$1 status=0
    shift
    printf '  $ %s\n' "$*"
    answer=$("$@" 2>&1) || status=$?
    show "$answer (exit $status)"
    [ "$status" -eq "$expected" ] || wrong "exit $expected"
}

does() {
    printf '  $ %s\n' "$*"
    "$@" || wrong "exit 0, not $?"
}

printf '%sAn access point in a box%s: %s, %s configuration files, ports %s\n' "$bold" "$plain" "$(hostname)" \
    "$(find /etc/config -type f | wc -l)" "$(cd /sys/class/net && echo eth*)"

title "what it is made of: the board's facts, from the description that the device booted with"
answers "model=TQ AP 2x2
mode=managed
forward=other
radios=2
ports=2
lan_ports=1
wan_name=eth1
wan_label=WAN
wan_port=1" tqctl board show
answers "0 wifi0   ath     modes=15 bss=8 /proc/wifi0
1 wifi1   wlan    modes=240 bss=8 /proc/wifi1" tqctl board radios
answers "0 eth0    kind=1000 ability=1000 lan LAN
1 eth1    kind=100 ability=- wan WAN" tqctl board ports

title "its interfaces, as the kernel has them; each port's cable is plugged in"
does tqctl if list
answers 02:00:5e:00:01:00 cat /sys/class/net/eth0/address

title "tqctl reads what the device booted with"
answers 6 tqctl uci get wireless.radio0.channel
answers Branch-Staff tqctl uci get 'wireless.@wifi-iface[1].ssid'

title "tqctl changes a radio; uci, another program, sees it in the committed file"
does tqctl uci set wireless.radio0.channel=11
answers 11 uci get wireless.radio0.channel
answers "	option channel '11'" grep -m 1 channel /etc/config/wireless

title "the same by position: the first radio of its type"
does tqctl uci set 'wireless.@wifi-device[0].channel=36'
answers 36 uci get wireless.radio0.channel

title "a list grows and shrinks"
does tqctl uci add-list dhcp.lan.dhcp_option=3,192.168.1.254
answers "6,192.168.1.1 42,192.168.1.1 3,192.168.1.254" uci get dhcp.lan.dhcp_option
does tqctl uci del-list dhcp.lan.dhcp_option=42,192.168.1.1
answers "6,192.168.1.1 3,192.168.1.254" uci get dhcp.lan.dhcp_option

title "a C program of fifty lines on the same library (examples/uci_settings.c)"
answers "host name: tq-ap
radio1: set to channel 44, /etc/config/wireless says 44" uci_settings 44 radio1
answers 44 uci get wireless.radio1.channel

title "uci changes a value behind the library's back; the library sees it"
does uci set system.ntp.enabled=0
does uci commit system
answers 0 tqctl uci get system.ntp.enabled

title "uci stages a change; tqctl commits what waits for the daemons' files"
does uci set network.guest.mtu=1400
answers "" grep mtu.*1400 /etc/config/network
does tqctl config save network
answers "	option mtu '1400'" grep mtu.*1400 /etc/config/network

title "what is not there is said so, and changes nothing"
before=$(cksum </etc/config/wireless)
fails 1 tqctl uci get wireless.radio7.channel
fails 1 tqctl uci set wireless.radio7.channel=1
[ "$(cksum </etc/config/wireless)" = "$before" ] || wrong "an unchanged file"

title "the system log has the library's account of it"
tries=0
until grep -q radio7 /var/log/messages || [ "$tries" -eq 100 ]; do
    tries=$((tries + 1))
    sleep 0.01
done
sed -n 's/.*\(\[[a-z_]*:[0-9]*\] .*radio7.*\)/  \1/p' /var/log/messages | tail -n 3
grep -q 'radio7' /var/log/messages || wrong "a line about radio7"

printf '\n%sAll %d steps right.%s The device is thrown away now; this machine is as it was.\n' "$bold" "$step" "$plain"
