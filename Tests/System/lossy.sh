#!/usr/bin/env bash
# An MC behind a bad network, and a client that is in step all the same and says what came.    lossy.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

"$@" mc --seconds 2 --save "$work/mc" --seed 7 --loss 10 --duplicate 10 --reorder 3 --truncate 2 --delay 20 >"$work/mc.log" 2>&1 &
mc=$!
"$@" follow --timeout 30 --until-silent 2 --save "$work/client" --statistics >"$work/client.log" 2>&1 &
client=$!
wait $mc || fail "mc: $(cat "$work/mc.log")"
wait $client || fail "follow: $(cat "$work/client.log")"
expect 0 "images in step" "$@" verify "$work/mc" "$work/client"
output=$(cat "$work/mc.log")
contains "a bad network, seed 7: of "
case $output in *" 0 lost"* | *" 0 duplicated"* | *" 0 cut short"* | *" 0 held back"*) fail "no fault: $output" ;; esac
contains " 0 corrupted"
output=$(cat "$work/client.log")
for text in "datagrams that completed a message" "rejected: payload longer than the datagram" "updates applied" \
    "fragments kept for a message under way" "datagrams from 127.0.0.1"; do
    contains "$text"
done
expect 0 "everything lost" "$@" mc --seconds 0.1 --loss 100
contains "0 delivered"
finish
