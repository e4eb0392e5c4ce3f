#!/bin/sh
# /sbin/reboot of the simulated device: writes down that it was called, and how.
echo "reboot${*:+ $*}" >>/run/tqdevice/reboot
