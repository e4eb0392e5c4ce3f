#!/bin/sh
# shared_test.sh SOURCE BUILD - what the device shares is there for all its users, also below a directory that is its owner's
# only; the directory itself stays closed.
set -eu
umask 022

source=$1 build=$2
home=$(mktemp -d "$build/home.XXXXXX")
trap 'rm -rf "$home"' EXIT
mkdir "$home/tree"
echo shared >"$home/tree/file"

failed() {
    echo "FAILED: $1"
    exit 1
}

[ "$(stat -c %a "$home")" = 700 ] || failed "the directory is its owner's only"
said=$("$source/host/device/tqdevice" --see "$home/tree" -- \
    setpriv --reuid=65534 --regid=65534 --clear-groups cat "$home/tree/file") || failed "another user reads the file"
[ "$said" = shared ] || failed "the file is the shared one"
[ "$(stat -c %a "$home")" = 700 ] || failed "the machine's directory stays closed"
