#!/bin/sh
# debian_test.sh PACKAGE_DIRECTORY EXAMPLE VERSION - installs the Debian packages on the device, builds and runs a program with
# them, and takes them away again. The device's root is thrown away afterwards.
set -eu

packages=$1 example=$2 version=$3
soname=libtq.so.${version%%.*}
library=libtq${version%%.*}
scratch=$(mktemp -d)

fail() {
    echo "FAILED: $*"
    exit 1
}

# check NAME EXPECTED COMMAND...: what the command prints.
check() {
    name=$1 expected=$2
    shift 2
    actual=$("$@") || fail "$name: $* ended with $?"
    [ "$actual" = "$expected" ] || fail "$name: $* printed: $actual"
    echo "ok: $name"
}

installed() {
    dpkg-query -W -f "\${Status} \${Version}" "$1"
}

needed() {
    readelf -dW "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' '
}

# What a program that is built with the packages depends on.
dependencies() {
    mkdir -p "$scratch/debian"
    touch "$scratch/debian/control"
    (cd "$scratch" && dpkg-shlibdeps -O "$1" 2>/dev/null)
}

# The files that a package has brought, without the directories that others have as well.
files() {
    dpkg -L "$1" | while read -r file; do [ -d "$file" ] || echo "$file"; done
}

known_to_linker() {
    ldconfig -p | grep -c "$1" || true
}

[ -f /etc/config/wireless ] || fail "not on the simulated device"
if command -v tqctl >/dev/null; then fail "tqctl is there already"; fi
[ -z "$(ls /usr/lib/*/libtq.so* 2>/dev/null)" ] || fail "libtq is installed already"

dpkg --force-unsafe-io -i "$packages/${library}_${version}_"*.deb "$packages/libtq-dev_${version}_"*.deb \
    "$packages/tqctl_${version}_"*.deb >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "dpkg -i"; }
for package in "$library" libtq-dev tqctl; do
    check "$package is installed" "install ok installed $version" installed "$package"
    [ -f "/usr/share/doc/$package/copyright" ] || fail "$package: no copyright"
done
check "the library's package has the library and nothing to build with" "$soname $soname.${version#*.}" \
    sh -c "dpkg -L $library | sed -n 's,.*/\(libtq\.so.*\),\1,p' | sort | xargs"
check "the linker finds the library" 1 known_to_linker "$soname"
check "it does not find what is beside it" 0 known_to_linker 'libuci\.so'

# shellcheck disable=SC2046
cc "$example" $(pkg-config --cflags --libs tq) -o "$scratch/program"
check "a program needs the library by its soname" "$soname libc.so.6 " needed "$scratch/program"
check "and so its package depends on the library's" "shlibs:Depends=libc6 (>= 2.34), $library (>= $version)" \
    dependencies "$scratch/program"
check "it runs" "host name: $(uname -n)
radio0: set to channel 44, /etc/config/wireless says 44" "$scratch/program" 44
check "tqctl runs" 44 tqctl uci get wireless.radio0.channel
check "tqctl has its manual page" 1 sh -c 'dpkg -L tqctl | grep -c /man/man1/tqctl.1'

files "$library" >"$scratch/files"
files libtq-dev >>"$scratch/files"
files tqctl >>"$scratch/files"
dpkg --force-unsafe-io -P tqctl libtq-dev "$library" >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "dpkg -P"; }
left=''
while read -r file; do if [ -e "$file" ]; then left="$left $file"; fi; done <"$scratch/files"
[ -z "$left" ] || fail "left behind:$left"
echo "ok: nothing stays of $(wc -l <"$scratch/files") files"
check "the linker has forgotten the library" 0 known_to_linker "$soname"
