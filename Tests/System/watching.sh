#!/usr/bin/env bash
# Changes and what they come from: watch, why, send, and each format.    watching.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

"$@" mc --seconds 120 --moving-faders 1 >"$work/mc.log" 2>&1 &
mc=$!

# A change that a client asked for, and one that the MC made itself.
"$@" watch 'MicInput/100/*/*' --count 2 --timeout 30 >"$work/watch.log" 2>&1 &
watch=$!
until_log "$work/watch.log" "updates on 225.0.0.46:7060, interface lo (127.0.0.1), where the system routes the group"
sleep 0.5
expect 0 "two changes" "$@" set MicInput/100/Fader -6.5 MicInput/100/Name 'Say "hi", x' --timeout 30
wait $watch || fail "watch: $(cat "$work/watch.log")"
output=$(cat "$work/watch.log")
rows | grep -qE '^127.0.0.1 MicInput/100/Fader/0 .*Fader -60 -6.5 client 127.0.0.1$' || fail "the fader: $output"
rows | grep -qE '^127.0.0.1 MicInput/100/String/1 .* "Mic101" "Say "hi", x" client 127.0.0.1$' || fail "the name: $output"
contains "2 changes"
expect 0 "the MC's own" "$@" watch MicInput/0/Fader --count 3 --timeout 30
[ "$(rows | grep -cE '^127.0.0.1 MicInput/0/Fader/0 (Mic1 )?Fader -?[0-9.]+ -?[0-9.]+ MC$')" = 3 ] || fail "a moving fader: $output"

# Each format says the same, and nothing but rows on standard output.
json() { "$@" --format json 2>/dev/null | jq -es "$query" >/dev/null || fail "$*: not as it should be: $query"; }
query='length == 4 and all(.[]; .sender == "127.0.0.1" and .address == "MicInput/0/Fader/0" and .origin == "MC" and (.old | type) == "number"
    and (.time | test("^20[0-9-]+T[0-9:.]+Z$")))'
json "$@" watch MicInput/0/Fader --count 4 --timeout 30
query='length == 2 and .[0].value == -6.5 and .[1].value == "Say \"hi\", x" and .[0].name == "Say \"hi\", x Fader"'
json "$@" get MicInput/100/Fader MicInput/100/Name --timeout 30
query='length == 280 and .[0].address == "MicInput/3/Rotary/0" and .[0].type == "Rotary" and (.[0].default | type) == "number"'
json "$@" params 'MicInput/3/Rotary/*'
query='length == 1 and .[0].sent == 1 and .[0].address == "MicInput/7/Fader/0"'
json "$@" set MicInput/7/Fader 1.5 --timeout 30
query='length >= 1 and all(.[]; .String == "complete" and .Rotary_age < 1 and .types == "all complete")'
json "$@" follow --count 200 --timeout 30
expect 27 "too few updates" "$@" follow --count 100000 --timeout 1
contains "too few updates within 1 seconds"
expect 27 "not all changes" "$@" send MicInput/100/Fader --to -3 --count 100 --rate 20 --timeout 0.5
contains " of 100 changes within 0.5 seconds"
expect 0 "csv" sh -c 'exec "$@" 2>/dev/null' sh "$@" get MicInput/100/Name --format csv --timeout 30
[ "$(printf '%s\n' "$output" | sed 1d | cut -d, -f2-)" = '127.0.0.1,MicInput/100/String/1,"Say ""hi"", x Name","Say ""hi"", x"' ] ||
    fail "csv: $output"
[ "$(printf '%s\n' "$output" | head -n 1)" = time,sender,address,name,value ] || fail "csv's names: $output"

# Updates that are none, whose refusal the library prints, and names that would steer a terminal, leave each format what it is.
"$@" stats --timeout 2 --format json >"$work/stats.json" 2>"$work/stats.log" &
stats=$!
until_log "$work/stats.log" "updates on"
for _ in 1 2 3; do
    printf '\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\100%s' "$(head -c 64 /dev/zero | tr '\0' x)" >/dev/udp/225.0.0.46/7060
    sleep 0.1
done
# Held up while more comes than the kernel keeps; an emulator doesn't pass on what the kernel says of that.
kill -STOP $stats
dd if=/dev/zero bs=1000 count=20000 2>/dev/null >/dev/udp/225.0.0.46/7060
kill -CONT $stats
wait $stats || fail "stats: $(cat "$work/stats.log")"
jq -es 'map(select(.what == "updates that failed to decode: code 104, invalid"))[0].count == 3' "$work/stats.json" >/dev/null ||
    fail "refusals among the rows: $(cat "$work/stats.json")"
jq -es "map(select(.kind == \"kernel\"))[0].count >= $(($# == 1))" "$work/stats.json" >/dev/null ||
    fail "nothing dropped: $(cat "$work/stats.json")"
# The MC's 50 updates of two datagrams and 10 of five are 150 of 56,000 bytes a second: fewer where that is slow.
query='map(select(.what == "updates" and .kind == "datagrams")) | max_by(.byte_rate / .rate) | .rate > 10 and .rate < 300 and
    .byte_rate > 40000 * .rate and .byte_rate < 70000 * .rate'
jq -es "$query" "$work/stats.json" >/dev/null || fail "rates: $(cat "$work/stats.json")"
# Of five surface updates and one rotary update, each type has those that carry it.
query='map(select(.kind == "type")) | group_by(.sender) | max_by(.[0].count) | map({(.what): .count}) | add |
    keys == ["Fader", "Integer", "Meter", "Other", "Rotary", "String", "Switch"] and .Fader == .Meter and .Rotary == .String and
    .Rotary > 0 and .Fader > 2 * .Rotary and .Fader < 10 * .Rotary'
jq -es "$query" "$work/stats.json" >/dev/null || fail "types: $(cat "$work/stats.json")"
expect 0 "a name of controls" "$@" set MicInput/101/Name $'\e[31m\xc2\x9b\xe2\x80\xae' --timeout 30
for format in text json csv; do
    output=$("$@" get MicInput/101/Name --format $format --timeout 30 2>/dev/null)
    case $output in *$'\e'* | *$'\xc2\x9b'* | *$'\xe2\x80\xae'*) fail "controls in $format: $output" ;; esac
done
expect 0 "named again" "$@" set MicInput/101/Name Mic102 --timeout 30

# A ramp, asked for by one client and granted by the MC, each write with its datagram.
"$@" why MicInput/12/Fader --count 7 --timeout 30 >"$work/why.log" 2>&1 &
why=$!
until_log "$work/why.log" "what a client sets with the simple sender is sent"
sleep 0.5
expect 0 "a ramp" "$@" send MicInput/12/Fader --from -60 --to 0 --count 4 --rate 10
contains "4 changes sent in 0.3"
wait $why || fail "why: $(cat "$work/why.log")"
output=$(cat "$work/why.log")
for value in -60 -40 -20 0; do
    rows | grep -qE "client asks for $value datagram [0-9]+: changes, message [0-9]+, record 0 sent$" || fail "asked for $value: $output"
done
rows | grep -qE 'MC grants -20 0 datagram [0-9]+: update, message [0-9]+ updates have no filter$' || fail "granted: $output"
contains "7 writes; 0 in the end" # the first is what it was already: granted without a change
# What the simple sender never sends, and the queue does.
"$@" why Globals/0/Integer/58 --count 2 --timeout 30 >"$work/why.log" 2>&1 &
why=$!
until_log "$work/why.log" "Globals/0/Integer/58: what a client sets with the simple sender is not sent: fixed filter list"
sleep 0.5
expect 0 "through the queue" "$@" set Globals/0/Integer/58 77 --timeout 30
wait $why || fail "why: $(cat "$work/why.log")"
output=$(cat "$work/why.log")
contains "sent, though on the fixed filter list"

# A script, and a burst that is all there.
printf '# a comment\n0 MicInput/20/Name Lead Vocal\n0.2 MicInput/20/Fader -3.5\n' >"$work/script"
expect 0 "a script" "$@" send --script "$work/script"
contains "2 changes sent in 0.2"
expect 0 "a burst" "$@" send 'MicInput/*/Rotary/0-9' --to 0.5 --from 0.5 --rate 0
contains "1,440 changes sent"
sleep 0.5
expect 0 "what came of it" "$@" get MicInput/20/Name MicInput/20/Fader MicInput/143/Rotary/9 --timeout 30
[ "$(rows | sed 's/.* //' | tr '\n' ' ')" = 'Vocal" -3.5 0.5 ' ] || fail "the script and the burst: $output"
expect 27 "too few" "$@" watch MicInput/50/Fader --count 1 --timeout 0.5
contains "0 changes within 0.5 seconds"
expect 27 "no MC's changes" "$@" why MicInput/50/Fader --timeout 0.3

expect 1 "nowhere to print so many to" timeout 20 sh -c 'exec "$@" >/dev/full' sh "$@" watch MicInput/0/Fader --count 3 --timeout 10
case $output in *seconds*) fail "a full disk is no time-out: $output" ;; esac
expect 1 "nowhere to print to" timeout 20 sh -c 'exec "$@" >/dev/full' sh "$@" watch MicInput/0/Fader
contains "standard output takes no more"

# A follower that runs is told of by what the kernel dropped of it.
"$@" follow --seconds 60 >"$work/follow.log" 2>&1 &
follow=$!
until_log "$work/follow.log" "updates on"
kill -STOP $follow
dd if=/dev/zero bs=1000 count=20000 2>/dev/null >/dev/udp/225.0.0.46/7060
expect 0 "stats beside it" "$@" stats --count 10 --timeout 30
rows | grep -qE "^kernel [1-9][0-9,]* of .* \(process $follow\), since it began$" || fail "no drops of process $follow: $output"
kill -CONT $follow
kill $follow
wait $follow

# On two interfaces: what is chosen is what is listened to, whatever others of this machine have joined; and the simple sender goes
# where the system routes it, or not at all.
# Not under an emulator, which lets no socket choose its interface.
if [ $# = 1 ] && ip link add a0 type veth peer name a1 2>/dev/null && ip address add 10.9.1.1/24 dev a0 && ip link set a0 up && ip link set a1 up; then
    sleep 1.2 # until it has its carrier
    "$@" follow --interface lo --seconds 60 >"$work/follow.log" 2>&1 &
    follow=$!
    until_log "$work/follow.log" "updates on"
    expect 27 "the other interface" "$@" stats --interface a0 --timeout 0.5
    contains "0 datagrams in"
    for direct in "set --direct MicInput/9/Fader 1" "follow --set MicInput/9/Fader=1 --seconds 1"; do
        # shellcheck disable=SC2086
        expect 2 "the simple sender elsewhere" "$@" $direct --interface a0
        contains "such changes go where the system routes 225.0.0.45, and that is lo, not a0"
    done
    kill $follow
    wait $follow
fi

# A stop that is asked for is an end like any other, but for a hang-up that is to be ignored.
(trap '' HUP && exec "$@" stats --timeout 1 >"$work/stats.log" 2>&1) &
stats=$!
until_log "$work/stats.log" "updates on"
began=$EPOCHREALTIME
kill -HUP $stats
wait $stats || fail "stats: $(cat "$work/stats.log")"
[ $((${EPOCHREALTIME/./} - ${began/./})) -gt 500000 ] || fail "a hang-up that is ignored ended it"
rm -f "$work/watch.log"
"$@" watch 'MicInput/0/Fader' >"$work/watch.log" 2>&1 &
watch=$!
until_log "$work/watch.log" "MicInput/0/Fader/0"
kill -INT $watch
wait $watch || fail "an interrupted watch: $(tail -n 2 "$work/watch.log")"
tail -n 1 "$work/watch.log" | grep -qE '^[0-9,]+ changes?' || fail "no summary: $(tail -n 2 "$work/watch.log")"

kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"
expect 0 "changes at an MC" "$@" mc --seconds 0.3 --format json
finish
