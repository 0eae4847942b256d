#!/usr/bin/env bash
# A device publishes its health, a monitor prints it, and the device does what the MC's image says.
#   health.sh IO_DEVICE HEALTH_MONITOR CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
device=$1 monitor=$2
shift 2
emulator=("${@:1:$#-1}")
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

"$@" mc --seconds 30 --report-period 0 >/dev/null 2>&1 &
mc=$!
"${emulator[@]}" "$monitor" >"$work/monitor.log" 2>&1 &
watching=$!
sleep 1
"${emulator[@]}" "$device" >"$work/device.log" 2>&1 &
running=$!
until_log "$work/monitor.log" "IOBOX 4"
printf '<?xml version="1.0"?><VORN version="1.0"><DEV name="MC" id="1"><p i="138" v="4.5" e="0"/></DEV></VORN>' >/dev/udp/225.0.0.60/7070
printf 'no report' >/dev/udp/225.0.0.60/7070
expect 0 "a gain" "$@" set MicInput/2/Rotary/0 42.5 --timeout 30
expect 0 "a gain that it does not have" "$@" set MicInput/1/Rotary/0 61 --timeout 30
wait $running || fail "the device"
output=$(cat "$work/device.log")
contains "switch 3: 0.0 -> 1.0"
contains "gain 2: 0.0 -> 42.5"
case $output in *"gain 1"*) fail "what it can't do: $output" ;; esac
wait $watching || fail "the monitor"
kill -TERM $mc
output=$(cat "$work/monitor.log")
contains "IOBOX 4: enUpTime=3 enGeneralMute=0 enRoleName=Stage left enRail5v=5.02"
contains "MC 1: enRail5v=4.5
warning: the 5 V rail is low"
contains "xmlParseMemory() returned NULL!"
expect 1 "a device without an MC" "${emulator[@]}" "$device"
contains "no MC"
finish
