#!/bin/sh
# Fills the flash as it is on a unit that has been in use: the boot loader's block and environment, both images marked as
# usable, and the reboots of its life so far.
set -eu

# The block without an entry: length, magic number; magic number, checksum. What lies behind it in the flash stays.
{
    printf '\000\020\000\000\316\372\255\013'
    head -c 4080 /dev/zero
    printf '\255\336\255\336\360\304\223\302'
} | dd of=/dev/mtdblock1 bs=4096 iflag=fullblock conv=notrunc status=none

tqctl redboot add bool boot_script true
tqctl redboot add script boot_script_data 'fis load -d %{kernel}
exec
'
tqctl redboot add int boot_script_timeout 5 boot_script
tqctl redboot add string alias/kernel kernel
tqctl redboot add string alias/rootdev rootfs
tqctl redboot add string pri_pelkin_ver 2.4.1
tqctl redboot add string qak_pelkin_ver 2.3.7
tqctl redboot add string serial_number TQ2041000042

# The environment is zero-terminated texts behind their CRC-32, which is the last but one word of what gzip writes, too.
environment=/dev/mtdblock2
printf '%s\0' bootdelay=5 Image1Stable=0 Image2Stable=0 Uboot2Stable=0 |
    dd of="$environment" bs=8188 conv=sync iflag=fullblock status=none
checksum() { gzip -c "$environment" | tail -c 8 | head -c 4; }
{ checksum && cat "$environment"; } >"$environment.new"
mv "$environment.new" "$environment"
echo "$environment 0x0 0x2000" >/etc/fw_env.config

cp /rom/reboot_cause "$(sed -n 's/^reboot_cause *= *//p' /etc/board.conf)"
