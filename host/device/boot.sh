#!/bin/sh
# boot.sh - what tqdevice runs first in the device's namespaces, as their process 1: builds the access point,
# runs the command on it and ends with the command's status. Not for use by itself.
#
# Arguments: BOARD PROC SEE KEEP BIN SERVICES COMMAND [ARG]...; empty where not given, SEE and KEEP one path a line.
set -eu
umask 022

board=$1 proc=$2 see=$3 keep=$4 bin=$5 services=$6
shift 6
export PATH="${bin:+$bin:}/usr/sbin:/usr/bin:/sbin:/bin"

# The machine's own /sys is covered from here on: the one directory that is always there and never holds
# somebody's files.
scratch=/sys
root=$scratch/root
state=$root/run/tqdevice
home=$(dirname "$0")
directory=$(pwd)

main() {
    trap 'echo "tqdevice: the device did not boot" >&2; exit 125' EXIT
    mount --make-rprivate /
    lay_overlay
    mount_fresh
    share "$see" ro
    share "$keep" rw
    if [ -n "$bin" ] && [ ! -d "$root$bin" ]; then share "$bin" ro; fi
    make_dev
    install_files
    make_network
    enter
    start_bus
    start_log
    await_bus
    if [ -n "$services" ]; then
        device_services
        fill_flash.sh
    fi
    date +%s.%N >/run/tqdevice/ready
    trap - EXIT
}

lay_overlay() {
    mount -t tmpfs -o mode=0755 tqdevice "$scratch"
    mkdir "$root" "$scratch/layers"
    overlay / root "$root"
    # Other file systems of the machine (a separate /usr or /home) get an overlay each, but for a mount point
    # that the options of mount(8) cannot tell.
    number=0
    while read -r _ point type _; do
        case $type in ext[234] | xfs | btrfs | f2fs | overlay | 9p | virtiofs | nfs*) ;; *) continue ;; esac
        case $point in / | *[\\,:]*) continue ;; esac
        if [ ! -d "$point" ] || [ ! -d "$root$point" ]; then continue; fi
        number=$((number + 1))
        overlay "$point" "$number" "$root$point"
    done </proc/self/mounts
}

# overlay LOWER NAME WHERE
overlay() {
    layer=$scratch/layers/$2
    mkdir "$layer" "$layer/upper" "$layer/work"
    mount -t overlay -o "lowerdir=$1,upperdir=$layer/upper,workdir=$layer/work" tqdevice "$3"
}

mount_fresh() {
    mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
    mount -t tmpfs -o mode=0755 tmpfs "$root/run"
    mount -t tmpfs -o mode=0755 tmpfs "$root/var/log"
    mount -t tmpfs -o mode=0755 tmpfs "$root/dev"
    mkdir "$root/run/lock" "$state" "$state/old"
}

# share PATHS ro|rw: for reading without what is mounted below, which a remount would leave writable.
share() {
    old_ifs=$IFS
    IFS='
'
    for path in $1; do
        mkdir -p "$root$path"
        if [ "$2" = rw ]; then
            mount --rbind "$path" "$root$path"
        else
            mount --bind "$path" "$root$path"
            mount -o remount,bind,ro "$root$path"
        fi
    done
    IFS=$old_ifs
}

make_dev() {
    cp -a /dev/null /dev/zero /dev/full /dev/random /dev/urandom /dev/tty "$root/dev"
    mkdir "$root/dev/pts" "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts "$root/dev/pts"
    mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
    ln -s pts/ptmx "$root/dev/ptmx"
    ln -s /proc/self/fd "$root/dev/fd"
    ln -s fd/0 "$root/dev/stdin"
    ln -s fd/1 "$root/dev/stdout"
    ln -s fd/2 "$root/dev/stderr"
    # Used flash is not zeros: each line of these 64 KiB is different, so that a read from the wrong place shows.
    { seq 100000 109361; printf 10; } >"$root/dev/mtdblock1"
}

install_files() {
    rm -rf "$root/etc/config"
    cp -RL "$home/root/." "$root"
    mkdir -p "$root/rom/etc" "$root/usr/config"
    cp -R "$root/etc/config" "$root/rom/etc/config"
    cp "${board:-$home/../../boards/dual-radio.conf}" "$root/etc/board.conf"
    cp "$root/etc/board.conf" "$root/rom/etc/board.conf"
    hostname tq-ap
    # The machine's own may be a link to its init system.
    rm -f "$root/sbin/reboot"
    install -m 755 "$home/reboot.sh" "$root/sbin/reboot"
}

# The name in each section [port N] of the board's description.
ports() {
    sed -n '/^[[:space:]]*\[/h
        /^[[:space:]]*name[[:space:]]*=/ {
            G
            s/^[^=]*=[[:space:]]*\([^[:space:]]*\).*\n[[:space:]]*\[[[:space:]]*port[[:space:]].*/\1/p
        }' "$root/etc/board.conf"
}

# Each port is one end of a veth pair; the other end, its cable, is plugged in.
make_network() {
    {
        echo link set lo up
        number=0
        for port in $(ports); do
            echo "link add $port address 02:00:5e:00:01:$(printf %02x "$number") type veth peer name cable$number"
            echo "link set $port up"
            echo "link set cable$number up"
            number=$((number + 1))
        done
    } | ip -batch -
}

enter() {
    make_proc
    mount -t sysfs -o ro,nosuid,nodev,noexec sysfs "$root/sys"
    cd "$root"
    pivot_root . run/tqdevice/old
    if [ -n "$proc" ]; then compose /run/tqdevice/proc /proc; fi
    umount -l run/tqdevice/old
    rmdir run/tqdevice/old
    cd "$directory" 2>/dev/null || cd /
}

# The kernel's knobs are the machine's, except the network's, which the device has of its own.
make_proc() {
    mkdir "$state/proc"
    mount -t proc -o nosuid,nodev,noexec proc "$state/proc"
    mount --bind "$state/proc/sys/net" "$state/proc/sys/net"
    mount --rbind "$state/proc/sys" "$state/proc/sys"
    mount -o remount,bind,ro "$state/proc/sys"
    : >"$state/sysrq-trigger"
    if [ -e "$state/proc/sysrq-trigger" ]; then
        mount --bind "$state/sysrq-trigger" "$state/proc/sysrq-trigger"
    fi
    if [ -z "$proc" ]; then
        mount --rbind "$state/proc" "$root/proc"
        return
    fi
    mount -t tmpfs -o mode=0555 tmpfs "$root/proc"
    cp -R "$proc/." "$root/proc"
}

# compose FROM INTO: links from INTO what it lacks of FROM.
compose() (
    for entry in "$1"/*; do
        name=${entry##*/}
        if [ ! -e "$2/$name" ]; then
            ln -s "$entry" "$2/$name"
        elif [ -d "$entry" ] && [ -d "$2/$name" ]; then
            compose "$entry" "$2/$name"
        fi
    done
)

# The broker of the programs that were built, or the machine's own; without either the device has no bus.
start_bus() {
    bus=/run/ubus/ubus.sock
    command -v ubusd >/dev/null || { bus=''; return 0; }
    ubusd </dev/null &
    broker=$!
}

await_bus() { [ -z "$bus" ] || await "$bus" "$broker"; }

start_log() {
    socat -u UNIX-RECV:/dev/log,mode=0666 OPEN:/var/log/messages,creat,append &
    await /dev/log $!
}

# await SOCKET PROCESS: until it is there, or who is to make it has died.
await() {
    until [ -S "$1" ]; do
        kill -0 "$2" 2>/dev/null || { echo "tqdevice: nobody is there to make $1" >&2; exit 125; }
        sleep 0.005
    done
}

main
export HOME=/root
unset TMPDIR
status=0
setpriv --bounding-set=-mknod,-sys_boot,-sys_module,-sys_rawio,-sys_time,-syslog -- "$@" || status=$?
exit "$status"
