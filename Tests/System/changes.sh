#!/usr/bin/env bash
# Changes to an MC, in batches and one by one, and reading them back.    changes.sh CONTROL_SURFACE CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
surface=$1
shift
emulator=("${@:1:$#-1}")

"$@" mc --seconds 60 --moving-faders 0 --save "$work/mc" >"$work/mc.log" 2>&1 &
mc=$!
expect 0 "the control surface" "${emulator[@]}" "$surface"
contains "Mic1 -60.0 | Mic2 -60.0"
contains "Mic1 -10.0 | Mic2 -10.0"
contains "all moved"

expect 0 "one change" "$@" set MicInput/12/Fader/0 -6.5 --timeout 30
contains "MicInput/12/Fader/0  -60 -> -6.5, back from the MC"
expect 0 "one change, in a datagram of its own" "$@" set MicInput/12/String/1 "Lead Vocal" --direct --timeout 30
contains "MicInput/12/String/1  \"Mic13\" -> \"Lead Vocal\""
expect 0 "what was changed" "$@" get MicInput/12/Fader/0 MicInput/12/String/1
[ "$(rows)" = '127.0.0.1 MicInput/12/Fader/0 Lead Vocal Fader -6.5
127.0.0.1 MicInput/12/String/1 Lead Vocal Name "Lead Vocal"' ] || fail "get: $output"
expect 0 "wildcards" "$@" get 'MicInput/10-13/String/*'
[ "$(rows | wc -l)" = 8 ] || fail "wildcards: $output"
rows | grep -qx '127.0.0.1 MicInput/12/String/1 Lead Vocal Name "Lead Vocal"' || fail "wildcards: $output"

# 10,000 changes of 29 bytes fit in five datagrams; as many again that the MC has already are not sent.
before=$(grep -c "in a datagram" "$work/mc.log")
expect 0 "a burst" "$@" set 'MicInput/0-99/Rotary/0-99' 0.75 --timeout 30
contains "10,000 parameters: 10,000 changes sent"
case $output in
    *"sent again"*) ;; # a datagram was lost: there are more of them
    *) [ $(($(grep -c "in a datagram" "$work/mc.log") - before)) = 5 ] || fail "the burst: $(tail "$work/mc.log")" ;;
esac
expect 0 "the burst once more" "$@" set 'MicInput/0-99/Rotary/0-99' 0.75
contains "10,000 parameters: 0 changes sent"
expect 0 "two at once" "$@" set 'MicInput/0-1/Rotary/0' 0.5 'MicInput/2/Integer/1' 77 --timeout 30
contains "3 parameters: 3 changes sent"
expect 0 "a parameter twice" "$@" set 'MicInput/*/Fader/0' -11 MicInput/3/Fader/0 -7 --timeout 30
contains "145 parameters: 144 changes sent"
case $output in *"sent again"*) fail "the change that was taken back was sent: $output" ;; esac
expect 0 "the last counts" "$@" get MicInput/2-3/Fader/0
[ "$(rows)" = '127.0.0.1 MicInput/2/Fader/0 Mic3 Fader -11
127.0.0.1 MicInput/3/Fader/0 Mic4 Fader -7' ] || fail "get: $output"
for text in -x [x] '[a,b]'; do
    expect 0 "the text $text" "$@" set --timeout 30 MicInput/3/String/1 "$text"
    contains "-> \"$text\""
done
expect 0 "a text that is an option, too" "$@" set --timeout 30 -- MicInput/3/String/1 -h
contains "-> \"-h\""
expect 0 "the first of many" "$@" set 'MicInput/*/Rotary/9' 0.25 --count 2 --timeout 30
contains "2 parameters: 2 changes sent"
expect 0 "they alone" "$@" get 'MicInput/*/Rotary/9'
[ "$(rows | grep -c ' 0.25$')" = 2 ] || fail "more than two: $output"
expect 1 "nowhere to print to" sh -c 'exec "$@" >/dev/full' sh "$@" get MicInput/3/Fader/0 --timeout 30
contains "standard output takes no more"

kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"
output=$(tail -n 1 "$work/mc.log")
contains " changes applied, 0 refused"
# A moving fader stays where a client puts it.
"$@" mc --seconds 60 >"$work/mc.log" 2>&1 &
mc=$!
expect 0 "a moving fader" "$@" set MicInput/12/Fader/0 -6.5 --timeout 30
expect 0 "the control surface at a moving MC" "${emulator[@]}" "$surface"
kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"

"$@" get MicInput/12/Fader/0 --timeout 30 >"$work/get.log" 2>&1 &
get=$!
sleep 0.5
kill -TERM $get
wait $get
[ $? = 1 ] || fail "an interrupted get: $(cat "$work/get.log")"
output=$(cat "$work/get.log")
contains "interrupted"
expect 1 "the control surface without an MC" "${emulator[@]}" "$surface"
contains "no answer from an MC"
expect 27 "no MC" "$@" set MicInput/12/Fader/0 0 --timeout 0.3
contains "no image from an MC on 225.0.0.46:7060 within 0.3 seconds"
expect 27 "no MC" "$@" get MicInput/12/Fader/0 --timeout 0.3
finish
