#!/bin/sh
# shell.sh - an interactive shell on the simulated device.
set -eu

cat <<'END'

This is a simulated access point. Its files, network and processes are its own, and gone when you leave.

  tqctl help                                  what the library can be asked
  tqctl uci get wireless.radio0.channel       values of the configuration files
  tqctl wifi set radio0 mode 9                their Wi-Fi settings
  tqctl image status; tqctl reboot-log list   what is in flash
  tqctl fm notify ntp-connect 192.0.2.1 123   a message to a service on the bus
  uci show wireless; ubus list                the firmware's own tools, on the same files and the same bus
  cat /var/log/messages                       what the library has to say
  exit

END
cd
echo "PS1='root@$(hostname):\${PWD}# '" >.shrc
# A terminal of the device's own: the jobs of this one belong to processes that the device cannot see.
ENV=$HOME/.shrc exec script --quiet --return --command 'sh -i' /dev/null
