#!/usr/bin/env bash
# Recordings: made, replayed, looked into, compared, broken off; and what the statistics find in them.    recordings.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
program=("$@")
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
recording=$work/a.pcap

# A change more than a second after the first datagram; the last state is the MC's.
"$@" record "$recording" --timeout 12 >"$work/record.log" 2>&1 &
record=$!
until_log "$work/record.log" "updates on"
"$@" mc --seconds 5 --moving-faders 2 --save "$work/mc" >"$work/mc.log" 2>&1 &
mc=$!
expect 0 "an MC" "$@" get MicInput/100/Fader --timeout 30
sleep 1.2
expect 0 "a change" "$@" set MicInput/100/Fader -6.5 --timeout 30
wait $mc || fail "mc: $(cat "$work/mc.log")"
kill -INT $record
wait $record || fail "record: $(cat "$work/record.log")"
output=$(cat "$work/record.log")
contains "0 dropped by the kernel; the image they lead to is whole, check word "
check=${output##* }
expect 1 "a file that is there" "$@" record "$recording" --timeout 0.2
contains "File exists"

expect 0 "where it leads to" "$@" replay "$recording" --silent --save "$work/replayed"
contains "it got there: the same check words as at the end of the recording"
contains "check word $check"
cmp "$work/mc" "$work/replayed" || fail "the recording leads elsewhere"
expect 0 "an MC's image and a recording" "$@" verify "$work/mc" "$recording"
contains "241,339      241,339"

# As it was before the change, and after it.
expect 0 "before the change" "$@" get MicInput/100/Fader --from "$recording@1"
[ "$(rows)" = '127.0.0.1 MicInput/100/Fader/0 Mic101 Fader -60' ] || fail "before: $output"
expect 0 "at the end" "$@" get MicInput/100/Fader --from "$recording"
[ "$(rows)" = '127.0.0.1 MicInput/100/Fader/0 Mic101 Fader -6.5' ] || fail "after: $output"
expect 0 "saved as it was" "$@" replay "$recording" --silent --at 1 --save "$work/then"
expect 1 "then and now" "$@" verify "$work/then" "$recording" --count 0
rows | grep -qx 'differs MicInput/100/Fader/0 Mic101 Fader -60 -6.5' || fail "then and now: $output"
expect 0 "who did it" "$@" why MicInput/100/Fader --capture "$recording"
rows | grep -qE 'client asks for -6.5 datagram [0-9]+: changes, message [0-9]+, record 0 sent$' || fail "why: $output"
rows | grep -qE 'MC grants -60 -6.5 datagram [0-9]+: update, message' || fail "why: $output"
expect 0 "what changed" "$@" watch MicInput/100/Fader --capture "$recording"
rows | grep -qE 'MicInput/100/Fader/0 Mic101 Fader -60 -6.5 client 127.0.0.1' || fail "watch: $output"

# On the network again, four times as fast: a client gets the same image.
"$@" follow --timeout 30 --until-silent 1 --save "$work/client" --format json >"$work/follow.json" 2>"$work/follow.log" &
follow=$!
sleep 0.3
expect 0 "on the network" "$@" replay "$recording" --speed 4
contains "it got there"
wait $follow || fail "follow: $(cat "$work/follow.log")"
query='[.[-1] | .String_age, .Rotary_age, .Switch_age, .Integer_age, .Fader_age, .Other_age, .Meter_age] | all(. >= 1 and . < 10)'
jq -es "$query" "$work/follow.json" >/dev/null || fail "ages after a second's silence: $(tail -n 1 "$work/follow.json")"
expect 0 "the client's image" "$@" verify "$recording" "$work/client"
cp "$recording" "$work/kept.pcap"
expect 1 "onto itself" "$@" replay "$work/kept.pcap" --silent --at 500 --save "$work/kept.pcap"
contains "kept.pcap: it is no image, and stays as it is"
cmp "$recording" "$work/kept.pcap" || fail "the recording is another one"
expect 0 "beyond its end" "$@" replay "$recording" --silent --at 500
contains "the recording ends before: this is how it was at its end"
output=$("$@" record "$work/silence.pcap" --timeout 0.3 --group 239.1.2.3 --format json 2>/dev/null)
contains '"sender": "", '
# Whether it got there is told to programs as well; what was ended early says that it proves nothing.
for ended in '' '--count 10' '--at 1'; do
    # shellcheck disable=SC2086
    "$@" replay "$recording" --silent --format json $ended 2>"$work/aside" | jq -r .proved
done >"$work/proved"
[ "$(tr '\n' ' ' <"$work/proved")" = "yes null null " ] || fail "proved: $(cat "$work/proved")"
expect 0 "ended early" "$@" replay "$recording" --silent --count 10
contains "ended before the recording: nothing is proved"
# A loop over what has no datagrams any more ends, and so does a capture that goes on with other packets for ever.
cp "$recording" "$work/looped.pcap"
timeout 20 "$@" replay "$work/looped.pcap" --loop --speed 0 --timeout 3 >"$work/loop.log" 2>&1 &
loop=$!
until_log "$work/loop.log" "replay to"
head -c 24 "$recording" >"$work/emptied" && mv "$work/emptied" "$work/looped.pcap"
wait $loop
[ $? -le 1 ] || fail "a loop over nothing: $(cat "$work/loop.log")"
cp "$recording" "$work/padded.pcap"
truncate -s 20G "$work/padded.pcap"
expect 0 "nothing but other packets" timeout 20 "$@" stats --capture "$work/padded.pcap" --timeout 1
expect 1 "not whole" "$@" replay "$recording" --silent --at 0 --save "$work/never"
contains "the image is not whole: nothing is saved"
[ ! -e "$work/never" ] || fail "it was saved"
head -c 30 "$recording" >"$work/cut.pcap"
expect 1 "the head alone" "$@" replay "$work/cut.pcap" --silent
contains "cut.pcap was broken off"
expect 1 "to another group" "$@" replay "$recording" --silent --group 239.1.2.3
contains "none of its datagrams went to 239.1.2.3:7060"
# In a loop until it is stopped; the updates of the second round are newer than those of the first.
"$@" replay "$recording" --loop --speed 20 >"$work/loop.log" 2>&1 &
loop=$!
sleep 0.1
expect 0 "a loop" "$@" watch MicInput/100/Fader --count 3 --timeout 30
expect 27 "too few" "$@" replay "$recording" --loop --count 1000000 --timeout 0.5
contains "datagrams within 0.5 seconds"
expect 0 "so many" "$@" replay "$recording" --loop --speed 0 --count 20
contains ": 20 datagrams, "
# It takes no changes: what waits for them to come back can be stopped, and says how far it got.
expect 1 "a set that is stopped" timeout --preserve-status -s INT 2 "$@" set MicInput/3/Fader -1 MicInput/4/Fader -2 --timeout 30
contains "interrupted: 0 of 2 changes back from the MC, all of them sent"
kill -INT $loop
wait $loop || fail "loop: $(cat "$work/loop.log")"

# One flipped bit, and two that cancel each other in the check word, are found and named. Faders stand behind strings, rotaries,
# switches and integers, each behind its length.
flip() # FILE OFFSET: turns the lowest bit of a byte
{
    local byte
    byte=$(od -An -tu1 -j "$2" -N 1 "$1")
    printf "\\x$(printf %x $((byte ^ 1)))" | dd of="$1" bs=1 seek="$2" conv=notrunc 2>/dev/null
}
integers=$((17 + 4 + 3151 * 13 + 4 + 65300 * 4 + 4 + 138696 / 8 + 4))
cp "$work/mc" "$work/flipped"
flip "$work/flipped" $((integers + 4 * 1000 + 3))
expect 1 "one flipped bit" "$@" verify "$work/mc" "$work/flipped"
[ "$(printf '%s\n' "$output" | grep -c differs)" = 1 ] || fail "one flipped bit: $output"
contains "Integer          14,856       14,855"
flip "$work/flipped" $((integers + 4 * 2000 + 3))
expect 1 "two that cancel" "$@" verify "$work/mc" "$work/flipped"
[ "$(printf '%s\n' "$output" | grep -c differs)" = 2 ] || fail "two that cancel: $output"
contains "NOT in step, though the check words are equal"
query='length == 9 and all(.[:2][]; .verdict == "differs" and (.address | startswith("MicInput/")))
    and ([.[2:][] | [.address, .compared, .different, .a == .b]] | .[1] == ["*/*/Rotary/*", 65300, 0, true]
        and ([.[] | .[1]] | add) == 241339 and ([.[] | .[2]] | add) == 2 and all(.[]; .[3]))
    and ([.[2:][].verdict] | sort[:2] == ["NOT in step, though the check words are equal", "in step"])'
"$@" verify "$work/mc" "$work/flipped" --format json 2>/dev/null | jq -es "$query" >/dev/null || fail "verify's JSON"

# A flipped bit of each type is found and named; their arrays stand one behind the other, each behind its length.
cp "$work/mc" "$work/flipped"
array=17 types="String Rotary Switch Integer Fader Other Meter "
for bytes in $((3151 * 13)) $((65300 * 4)) $((138696 / 8)) $((14856 * 4)) $((2765 * 4)) $((673 * 4)) 15898; do
    flip "$work/flipped" $((array + 4 + 3))
    array=$((array + 4 + bytes))
done
expect 1 "a flipped bit of each type" "$@" verify "$work/mc" "$work/flipped"
[ "$(rows | sed -nE 's|^differs [A-Za-z]+/[0-9]+/([A-Za-z]+)/.*|\1|p' | tr '\n' ' ')" = "$types" ] || fail "a bit each: $output"
[ "$(rows | sed -nE 's|^([A-Za-z]+) .* NOT in step$|\1|p' | tr '\n' ' ')" = "$types" ] || fail "a bit of each type: $output"

# The two values of a float that differs in its last bit are told apart.
cp "$work/mc" "$work/flipped"
flip "$work/flipped" $((17 + 4 + 3151 * 13 + 4 + 4 * 100 + 3))
expect 1 "a float's lowest bit" "$@" verify "$work/mc" "$work/flipped"
read -r _ _ one other <<<"$(rows | grep differs)"
[ -n "$other" ] && [ "$one" != "$other" ] || fail "the same text for two values: $output"

# Strings that differ behind their end look alike: their bytes are told.
cp "$work/mc" "$work/flipped"
flip "$work/flipped" $((17 + 4 + 12))
expect 1 "behind a string's end" "$@" verify "$work/mc" "$work/flipped"
read -r _ _ one other <<<"$(rows | grep differs)"
case $one-$other in 0x*00-"${one%00}"01) ;; *) fail "not told apart: $output" ;; esac

rm -f "$work/record.log"
# An MC that began anew while it was recorded, with lower numbers: a replay without waiting gets there as well.
"$@" record "$work/restart.pcap" --timeout 30 >"$work/record.log" 2>&1 &
record=$!
until_log "$work/record.log" "updates on"
expect 0 "an MC" "$@" mc --seconds 1
sleep 1.2
expect 0 "it begins anew" "$@" mc --seconds 0.5 --seed 9
kill -INT $record
wait $record || fail "record: $(cat "$work/record.log")"
expect 0 "across a beginning" "$@" replay "$work/restart.pcap" --silent
contains "it got there"

# Broken off: by a kill, and by a cut. What is complete is there; that it is unfinished is said.
"$@" mc --seconds 60 --moving-faders 0 >"$work/mc.log" 2>&1 &
mc=$!
"$@" record "$work/killed.pcap" >"$work/record.log" 2>&1 &
record=$!
sleep 1
kill -STOP $mc # what comes last is little: nothing behind it fills a buffer
expect 0 "four changes" "$@" send MicInput/0/Fader --to 1 --count 4 --rate 0
sleep 1
{ kill -KILL $record && wait $record; } 2>/dev/null
kill -CONT $mc
expect 0 "what came a second before" "$@" stats --capture "$work/killed.pcap"
rows | grep -qE "^127.0.0.1:[0-9]+ datagrams 1 .* changes$" || fail "it isn't in the file: $output"
# Replayed with the clients' changes, which reach an MC.
"$@" mc --count 4 --timeout 10 >"$work/another.log" 2>&1 &
another=$!
until_log "$work/another.log" "changes from clients"
expect 1 "a killed recording" "$@" replay "$work/killed.pcap" --changes --speed 20
contains "the image they lead to is whole"
case $output in *"was broken off"* | *"has no end of a recording"*) ;; *) fail "a killed recording: $output" ;; esac
wait $another || fail "no changes came: $(cat "$work/another.log")"
output=$(cat "$work/another.log")
rows | grep -qE '^127.0.0.1 MicInput/0/Fader/0 Mic1 Fader -[0-9.]+ 1$' || fail "the last change: $output"
expect 0 "a stopped recording" timeout --preserve-status -s INT 1 "$@" record "$work/stopped.pcap"
expect 0 "is a whole one" "$@" replay "$work/stopped.pcap" --silent
head -c 2000000 "$recording" >"$work/cut.pcap"
expect 1 "a cut recording" "$@" stats --capture "$work/cut.pcap"
contains "the capture was broken off: truncated dump file"
expect 1 "no capture" "$@" stats --capture "$work/mc"
contains "no capture file"
expect 0 "verify a live MC" "$@" verify mc mc --timeout 30
contains "in step"
[ "$(printf '%s\n' "$output" | grep -c "^updates on ")" = 1 ] || fail "the interface is said twice: $output"
expect 1 "of another group" "$@" verify mc "$recording" --group 239.1.2.3
contains "the image that its updates to 239.1.2.3:7060 lead to is not whole"
kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"

# A capture made by hand: its numbers are known.
words() { printf "$(printf %08x "$@" | sed 's/../\\x&/g')"; }
packet() # SECOND ADDRESS PORT TEXT: from 127.0.0.1
{
    local length=$((28 + ${#4}))
    words "$1" 0 $length $length $((0x45000000 + length)) 0 0x01110000 0x7f000001 "$2" $((0x1b940000 + $3)) $((length - 20 << 16))
    printf %s "$4"
}
{
    words 0xa1b2c3d4 0x00020004 0 0 65535 101
    for second in 10 11 11 12; do packet $second 0xe100002e 7060 "twenty-four bytes of all"; done
    packet 13 0x7f000001 9 "consolectl: end of recording, datagrams 4, dropped 7, check words 0 0 0 0 0 0 0"
} >"$work/made.pcap"
expect 0 "a made capture" "$@" stats --capture "$work/made.pcap"
rows | grep -qx "127.0.0.1:7060 datagrams 4 2.0 48 others" || fail "four datagrams of 24 bytes in two seconds: $output"
rows | grep -qE "^kernel 7 3.5 the receive" || fail "seven dropped in two seconds: $output"

# arrive DATAGRAMS SPEED [ARGUMENT...]: within how many $milliseconds they come at that speed.
arrive()
{
    rm -f "$work/stats.log" # the last one says what is waited for
    "${program[@]}" stats --count "$1" --timeout 30 >"$work/stats.log" 2>&1 &
    local stats=$!
    until_log "$work/stats.log" "updates on"
    expect 0 "at speed $2" "${program[@]}" replay "$work/made.pcap" --speed "${@:2}"
    wait $stats || fail "stats: $(cat "$work/stats.log")"
    milliseconds=$(sed -nE "s/^$1 datagrams in ([0-9]+)\.([0-9]{3}) s,.*/\1\2/p" "$work/stats.log")
}
arrive 4 0
[ "$milliseconds" -lt 1500 ] || fail "as fast as it goes: two seconds in $milliseconds ms"
arrive 4 4
[ "$milliseconds" -gt 300 ] && [ "$milliseconds" -lt 1500 ] || fail "four times as fast: two seconds in $milliseconds ms"
arrive 3 0.5 --at 1
[ "$milliseconds" -gt 1500 ] || fail "half as fast: a second in $milliseconds ms"

# A network that loses: each lost message has its line, and they are as many as the MC says datagrams were lost in.
"$@" record "$work/lossy.pcap" --timeout 4 >"$work/record.log" 2>&1 &
record=$!
sleep 0.3
expect 0 "a lossy MC" "$@" mc --seconds 2 --loss 4 --seed 11
wait $record || fail "record: $(cat "$work/record.log")"
expect 0 "its statistics" "$@" stats --capture "$work/lossy.pcap"
lost=$(printf '%s\n' "$output" | grep -cE ' lost .* message [0-9]+: (fragments? .* of [25] (is|are) missing|none of it came)$')
[ "$lost" -gt 3 ] || fail "lost messages: $output"
contains "$lost messages lost"
rows | grep -qE "^fragments $lost [0-9.]+ messages that never came whole$" || fail "the sum of the lost: $output"
for layer in kernel "frame size" header ring decode; do contains "$layer"; done
"$@" stats --capture "$work/lossy.pcap" --format json 2>/dev/null |
    jq -es "map(select(.kind == \"lost\")) | length == $lost" >/dev/null || fail "stats's JSON"
finish
