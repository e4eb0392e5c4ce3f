#!/bin/sh
# demo.sh - an access point's day on the simulated device, told by the programs that a user has: tqctl, the examples, and for
# a second opinion the firmware's own uci and the kernel. Every answer is checked; the first wrong one ends the demo.
set -eu

if [ -t 1 ] && [ -z "${NO_COLOR-}" ] && [ "${TERM-dumb}" != dumb ]; then
    bold=$(printf '\033[1m') green=$(printf '\033[32m') red=$(printf '\033[31m') plain=$(printf '\033[0m')
else
    bold='' green='' red='' plain=''
fi
number=0 checks=0 title=''
newline='
'

# ---- how a step is told ----

step() {
    number=$((number + 1)) title=$1
    printf '\n%s%2d. %s%s\n' "$bold" "$number" "$title" "$plain"
}

# A short answer stands behind its command, a longer one below it.
show() {
    case $2 in
        '') printf '    $ %s\n' "$1" ;;
        *"$newline"*) printf '    $ %s\n%s\n' "$1" "$(printf '%s\n' "$2" | sed "s/.*/      $green&$plain/")" ;;
        *) printf '    $ %s  %s-> %s%s\n' "$1" "$green" "$2" "$plain" ;;
    esac
}

# wrong EXPECTED ANSWERED
wrong() {
    printf '\n%sdemo: step %d is wrong: %s%s\n  expected: %s\n  answered: %s\n' \
        "$red" "$number" "$title" "$plain" "$1" "$2" >&2
    exit 1
}

# run COMMAND: the text, as a user would type it; sets answer and status.
run() {
    status=0
    answer=$(sh -c "$1" 2>&1) || status=$?
    show "$1" "$answer"
    checks=$((checks + 1))
}

# answers EXPECTED COMMAND
answers() {
    run "$2"
    [ "$status:$answer" = "0:$1" ] || wrong "${1:-nothing}" "${answer:-nothing} (exit code $status)"
}

does() { answers '' "$1"; }

# refuses EXPECTED COMMAND: with this as the last word, and exit code 1.
refuses() {
    run "$2"
    [ "$status:${answer##*"$newline"}" = "1:$1" ] || wrong "$1 (exit code 1)" "${answer:-nothing} (exit code $status)"
}

# between LOW HIGH COMMAND: the number that it prints is neither below the one nor above the other, which commands print as well.
between() {
    low=$(sh -c "$1")
    run "$3"
    high=$(sh -c "$2")
    if ! [ "$low" -le "$answer" ] || ! [ "$answer" -le "$high" ]; then wrong "$low to $high" "$answer"; fi
}

# eventually COMMAND: it succeeds within two seconds.
eventually() {
    tries=0
    until sh -c "$1" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 200 ] || wrong "$1, sooner or later" "not in two seconds"
        sleep 0.01
    done
}

# ---- the day ----

# field RECORD NUMBER: of a record of the reboot log.
field() { echo "tqctl reboot-log list | grep ^$1 | cut -f $2"; }
seconds() { echo "date -d \$($(field "$1" 3)) +%s"; }

power_up() {
    step "Power-up after a run that recorded its end; then after one whose end nobody recorded"
    answers "kernel-up check: 0
record 25, cause 4: new firmware" "device_run start"
    answers "kernel-up check: 100
record 26, cause 4: Power down" "device_run start"
    answers unknown "$(field 26 4)"
}

board() {
    step "What the board is made of"
    answers "model=TQ AP 2x2
mode=managed
forward=other
radios=2
ports=2
lan_ports=1
wan_name=eth1
wan_label=WAN
wan_port=1" "tqctl board show"
    answers "0 wifi0   ath     modes=15 bss=8 /proc/wifi0
1 wifi1   wlan    modes=240 bss=8 /proc/wifi1" "tqctl board radios"
    answers 12:00:5e:00:53:24 "tqctl mac show | sed -n 's/^wlan2=//p'"
    answers TQ2041000042 "tqctl sn get"
}

addresses() {
    step "Its ports get their addresses, and the kernel has them"
    does "tqctl if set eth0 address=192.168.1.1 netmask=255.255.255.0"
    does "tqctl if set eth1 address=203.0.113.7 netmask=255.255.255.0"
    answers "203.0.113.7/24 brd 203.0.113.255" "ip -4 address show eth1 | sed -n 's/ *inet \\(.*\\) scope.*/\\1/p'"
}

radio() {
    step "Configuration: a radio's mode, and the other way round what uci has changed"
    answers 19 "tqctl wifi get radio1 mode"
    does "tqctl wifi set radio1 mode 27"
    answers "wireless.radio1.hwmode='16'
wireless.radio1.HT_BW='1'
wireless.radio1.VHT_BW='1'
wireless.radio1.HT_EXTCHA='0'" "uci show wireless.radio1 | grep -E 'hwmode|BW|EXTCHA'"
    does "uci set wireless.radio1.channel=44 && uci commit wireless"
    answers 44 "tqctl uci get wireless.radio1.channel"
    answers "9 of 12 settings changed" "wifi_day radio0 | tail -n 1"
}

security() {
    step "Configuration: a VAP from a pre-shared key to WPA2 with a RADIUS server"
    answers psk2 "uci get wireless.default_radio0.encryption"
    does "tqctl wifi set default_radio0 auth wpa2 ccmp"
    does "echo s3cret | tqctl wifi set default_radio0 radius 192.168.1.30 1812 -"
    answers "192.168.1.30 1812 ********" "tqctl wifi get default_radio0 radius"
    answers "wireless.default_radio0.encryption='wpa2'
wireless.default_radio0.auth_server='192.168.1.30'
wireless.default_radio0.auth_secret='s3cret'
wireless.default_radio0.auth_port='1812'
wireless.default_radio0.ownip='203.0.113.7'
wireless.default_radio0.eapifname='br-lan'" "uci show wireless.default_radio0 | grep -E 'encryption|auth_|ownip|eapif'"
    before=$(cksum </etc/config/wireless)
    refuses "tqctl: wifi set: radio7: no such radio or VAP" "tqctl wifi set radio7 mode 9"
    [ "$(cksum </etc/config/wireless)" = "$before" ] || wrong "/etc/config/wireless as it was" "another one"
}

daemons() {
    step "Daemons: two run, and one of them learns to say more (netifd is examples/link_daemon.c)"
    does "tqctl log level netifd notice"
    ln -s "$(command -v link_daemon)" /usr/sbin/netifd
    netifd net eth0 20 &
    netifd=$!
    dnsmasq --conf-file=/dev/null --user=root --no-resolv --no-hosts --log-facility=/tmp/dnsmasq.log \
        --address=/controller.example.net/192.168.1.10
    eventually "grep -q 'watches eth0' /var/log/messages"
    answers "netifd
dnsmasq" "tqctl ps running"

    does "tqctl if down eth0"
    eventually "grep -q 'eth0 is down' /var/log/messages"
    answers 0 "grep -c 'looked at eth0' /var/log/messages || true"
    does "tqctl log level netifd debug"
    eventually "grep -q '^net_r 7' /tmp/.loglvl.net"
    does "tqctl if up eth0"
    eventually "grep -q 'eth0 is running' /var/log/messages"
    answers "looked at eth0: running
eth0 is running" "grep -B 1 'eth0 is running' /var/log/messages | sed 's/.*\\]: //'"
    kill "$netifd"
    wait "$netifd" || wrong "netifd ends well on SIGTERM" "exit code $?"
}

controller() {
    step "The controller is lost and found; the fault management hears of it on the bus"
    # The machine's own may be a link.
    rm -f /etc/resolv.conf
    echo nameserver 127.0.0.1 >/etc/resolv.conf
    answers 192.168.1.10 "tqctl resolve controller.example.net"
    does "tqctl fm notify ac-disconnect 192.168.1.10 5246 probable_cause=timeout"
    answers 'disconnect={"addr":"192.168.1.10","port":5246,"probable_cause":"timeout"}' "tqctl bus call fm.ac last"
    does "tqctl status offline 6"
    answers "reason=Network Timeout" "tqctl status offline | head -n 1"
    does "tqctl status capwap 0"

    kill "$(pidof device_services)"
    eventually "! tqctl bus list | grep -q fm.ac"
    refuses "tqctl: fm notify: the service did not do it" "tqctl fm notify ac-connect 192.168.1.10 5246"
    does device_services
    does "tqctl fm notify ac-connect 192.168.1.10 5246"
    answers 'connect={"addr":"192.168.1.10","port":5246}' "tqctl bus call fm.ac last"
    does "tqctl status capwap 1"
    answers 1 "uci get wtp.@capwap[0].status"
}

bandwidth() {
    step "Bandwidth limits: of an SSID, of a station, and how many stations a VAP takes"
    does "tqctl bw set ssid ath0 2048 8192"
    does "tqctl bw set station ath0 00:00:5e:00:53:2a 512 1024"
    does "tqctl bw set max-stations ath0 32"
    does "tqctl bw del ssid ath0"
    answers 'set={"class_type":2,"vap_name":"ath0","macaddr":"00:00:5e:00:53:2a","up":512,"down":1024}
del={"class_type":0,"vap_name":"ath0"}' "tqctl bus call bwctrl last"
    answers 'set={"vap_name":"ath0","maxassoc":32}' "tqctl bus call bwctrl.maxassoc last"
}

statistics() {
    step "Statistics: 100 datagrams of 1000 bytes leave by the LAN port, and the counters tell"
    sent=/sys/class/net/eth0/statistics/tx_bytes
    before=$(cat "$sent")
    does "tqctl arp add eth0 192.168.1.77 00:00:5e:00:53:77"
    does "head -c 100000 /dev/zero | socat -u -b 1000 - UDP-SENDTO:192.168.1.77:9"
    between "echo $((before + 100 * 1042))" "cat $sent" "tqctl stat ports | sed -n 's/^eth0.out_octets=//p'"
    between "echo $((before + 100 * 1042))" "cat $sent" "tqctl flow show $(cat /sys/class/net/eth0/ifindex) | sed -n s/out=//p"
    uptime="sed 's/\\..*//' /proc/uptime"
    between "$uptime" "expr 1 + \$($uptime)" "tqctl stat uptime | sed s/.*=//"
    answers "$(sed -n 's/^MemTotal: *\([0-9]*\) kB/\1/p' /proc/meminfo)" "tqctl stat mem | sed -n s/total_kb=//p"
    between "echo 0" "echo 100" "tqctl stat cpu | sed -n s/usage_percent=//p"
}

clock() {
    step "The clock is synchronised, and the records that had no time get theirs"
    does "tqctl fm notify ntp-connect 192.0.2.123 123"
    booted="date -d @\$((\$(date +%s) - \$(sed 's/\\..*//' /proc/uptime))) +%s"
    does "device_run clock"
    answers corrected "$(field 26 4)"
    between "expr \$($booted) - 12" "expr \$($booted) - 9" "$(seconds 26)"
    answers "$(($(sh -c "$(seconds 26)") - $(sh -c "$(field 26 5)") - 10))" "$(seconds 25)"
    answers "2023-11-14T22:14:10Z" "$(field 24 3)"
}

image() {
    step "The other image is started next time; then it is the first one again"
    block="head -c 4096 /dev/mtdblock1 | cksum"
    before=$(sh -c "$block")
    answers "active=primary
next=primary
primary_version=2.4.1
backup_version=2.3.7
primary_usable=true
backup_usable=true" "tqctl image status"
    answers backup "tqctl image switch --yes"
    answers '"kernel bak" "rootfs bak"' "head -c 4096 /dev/mtdblock1 | tr '\\0' '\\n' | grep ' bak' | paste -sd ' '"
    answers primary "tqctl image switch --yes"
    answers "$before" "$block"
}

reboot() {
    step "A reboot that says why, and the next power-up knows"
    # On this device the command reboot only writes down that it was called.
    device_run reboot 2 "image 2.4.2" &
    device_run=$!
    eventually "grep -qx reboot /run/tqdevice/reboot"
    show "device_run reboot 2 'image 2.4.2'" "reboot"
    kill "$device_run"
    wait "$device_run" 2>/dev/null || true
    answers "kernel-up check: 0
record 27, cause 2: image 2.4.2" "device_run start"
    answers synchronised "$(field 27 4)"
    answers "25 26 27" "tqctl reboot-log list 3 | cut -f 1 | sort | paste -sd ' '"
}

printf '%sA day of an access point%s: %s, %s configuration files, ports %s\n' "$bold" "$plain" "$(hostname)" \
    "$(find /etc/config -type f | wc -l)" "$(cd /sys/class/net && echo eth*)"
for part in power_up board addresses radio security daemons controller bandwidth statistics clock image reboot; do
    "$part"
done
printf '\n%sAll %d steps right, %d answers checked.%s The device is thrown away now; this machine is as it was.\n' \
    "$bold" "$number" "$checks" "$plain"
