#!/usr/bin/env bash
# The first program of the README, run beside an MC.    first_client.sh FIRST_CLIENT CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
client=$1
shift
emulator=("${@:1:$#-1}")

"$@" mc --seconds 9 --moving-faders 0 >/dev/null 2>&1 &
mc=$!
expect 0 "the first client" "${emulator[@]}" "$client"
contains "mic input 1 is at -60.0 dB; the image is whole"
wait $mc || fail "mc"
finish
