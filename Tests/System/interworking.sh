#!/usr/bin/env bash
# Two machines on one network, this one and one of the other byte order: each is the other's MC, writes shows and images that the
# other reads, and sends the same bytes for the same seed.    interworking.sh FOLDER-OF-NATIVE-PROGRAMS CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
native=("$1/consolectl") capture=$1/capture
for program in "${native[0]}" "$capture"; do
    [ -x "$program" ] || { echo "skipped: there is no $program, which cmake --build --preset dev makes"; exit 77; }
done
enter_own_network "$@"
shift
target=("$@")
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

native() { "${native[@]}" "$@"; }
target() { "${target[@]}" "$@"; }

# start_mc MACHINE ARGUMENT...: goes on as process $mc; finish_mc waits for it.
start_mc()
{
    local -n program=$1
    "${program[@]}" mc "${@:2}" >"$work/mc.log" 2>&1 &
    mc=$!
}
finish_mc() { wait $mc || fail "mc: $(cat "$work/mc.log")"; }

# in_step MC CLIENT: three changes made at the client, and in the end two equal images, which both machines can tell.
in_step()
{
    local at=$work/$1-$2
    start_mc "$1" --seconds 3 --save "$at.mc"
    expect 0 "$2 follows $1" "$2" follow --timeout 30 --until-silent 2 --save "$at.client" --set MicInput/100/Fader/0=-6.5 \
        --set MicInput/100/Switch/0=0 --set MicInput/100/String/1="Lead Vocal"
    contains "back from the MC  MicInput/100/Fader/0 = -6.5 after"
    contains "back from the MC  MicInput/100/Switch/0 = 0 after"
    contains "back from the MC  MicInput/100/String/1 = \"Lead Vocal\" after"
    finish_mc
    for machine in native target; do
        expect 0 "$machine compares" $machine verify "$at.mc" "$at.client"
        contains "241,339      241,339"
    done
    cmp "$at.mc" "$at.client" || fail "the files differ"
}
in_step native target
in_step target native

# shows WRITER READER: what one saved the other lists, finds unchanged, finds changed, and recalls.
shows()
{
    local file=$work/$1-$2.shows
    expect 0 "$1 saves" "$1" show save "$file" Monday --timeout 30
    contains "225,441 parameters"
    expect 0 "$2 lists" "$2" show list "$file"
    contains "   225,441  Monday"
    expect 0 "$2 compares" "$2" show compare "$file" Monday --timeout 30
    contains "all             225,441            0                   225,441"
    expect 0 "everything moved" "$1" set '*/*/Rotary/*' 0.25 '*/*/String/*' moved --timeout 30
    expect 0 "$2 recalls" "$2" show recall "$file" Monday --timeout 30
    contains "Rotary           65,300       65,300"
    contains "String            3,151        3,151"
    expect 0 "$1 compares" "$1" show compare "$file" Monday --timeout 30
}
start_mc native --seconds 100 --moving-faders 0
shows native target
shows target native
kill -TERM "$mc"
finish_mc

# recorded MC RECORDER: the other machine replays what one recorded, and gets where it led.
recorded()
{
    local -n recorder=$2
    "${recorder[@]}" record "$work/$2.pcap" --timeout 60 >"$work/record.log" 2>&1 &
    local recording=$!
    until_log "$work/record.log" "updates on"
    start_mc "$1" --seconds 1
    finish_mc
    kill -INT $recording
    wait $recording || fail "record: $(cat "$work/record.log")"
    expect 0 "$1 replays" "$1" replay "$work/$2.pcap" --silent
    contains "it got there"
}
recorded native target
recorded target native

# captured MACHINE: what it sends for a seed, taken down by this machine.
captured()
{
    "$capture" >"$work/$1.capture" 2>"$work/$1.log" &
    local capturing=$!
    for ((try = 0; try < 100; ++try)); do
        grep -qs ready "$work/$1.log" && break
        sleep 0.1
    done
    expect 0 "mc" "$1" mc --seconds 0.5 --seed 7 --loss 5 --duplicate 5 --corrupt 5 --truncate 5 --reorder 8 --delay 20
    wait $capturing || fail "capture: $(cat "$work/$1.log")"
    [ -s "$work/$1.capture" ] || fail "nothing was captured"
}
captured native
captured target
cmp "$work/native.capture" "$work/target.capture" || fail "the same seed, other bytes"
finish
