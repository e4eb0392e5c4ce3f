# shellcheck shell=sh
# shell.sh - what an interactive shell on the simulated device starts with.
PS1="root@$(hostname):\${PWD}# "
cd /root || true
cat <<'END'

This is a simulated access point. Its files, network and processes are its own, and gone when you leave.

  tqctl uci get wireless.radio0.channel       the library, from a shell
  tqctl uci set wireless.radio0.channel=11
  uci show wireless                           the firmware's own tool, on the same files
  cat /var/log/messages                       what the library has to say
  exit

END
