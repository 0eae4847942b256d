#!/usr/bin/env bash
# The two programs about health: a device publishes, a monitor prints.    health.sh DEVICE MONITOR [EMULATOR...]
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
device=$1 monitor=$2
shift 2
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

"$@" "$monitor" >"$work/monitor.log" 2>&1 &
watching=$!
sleep 1
expect 0 "the device" "$@" "$device"
printf '<?xml version="1.0"?><VORN version="1.0"><DEV name="MC" id="1"><p i="138" v="4.5" e="0"/></DEV></VORN>' >/dev/udp/225.0.0.60/7070
printf 'no report' >/dev/udp/225.0.0.60/7070
wait $watching || fail "the monitor"
output=$(cat "$work/monitor.log")
contains "IOBOX 4: enUpTime=2 enGeneralMute=0 enRoleName=Stage left enRail5v=5.02"
contains "MC 1: enRail5v=4.5
warning: the 5 V rail is low"
contains "xmlParseMemory() returned NULL!"
finish
