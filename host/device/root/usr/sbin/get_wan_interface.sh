#!/bin/sh
# Prints the name of the WAN interface, as the network configuration has it.
exec uci get network.wan.device
