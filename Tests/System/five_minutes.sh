#!/usr/bin/env bash
# The README's first five minutes, as they stand there: each command answers within a second, and as it should.
#   five_minutes.sh README CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
readme=$(cat "$1")
shift
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
mkdir bin
printf '#!/bin/sh\nexec %s "$@"\n' "$(printf '%q ' "$@")" >bin/consolectl
chmod +x bin/consolectl
PATH=$work/bin:$PATH

# What each of them says, in their order; the simulated MCs go on beside them.
answers=("round trip" "" "8 changes" "MicInput/100/Fader/0  -60 -> -6.5, back from the MC after" "" "messages lost"
    "the image they lead to is whole" "it got there: the same check words as at the end of the recording" "241,339      241,339")
commands=$(sed -n '/^## The first five minutes/,$s/^\$ //p' <<<"$readme")
[ "$(wc -l <<<"$commands")" = "${#answers[@]}" ] || fail "there are other commands: $commands"

five_minutes()
{
    late=
    local number=0 command begin status microseconds
    rm -f five five.pcap
    while IFS= read -r command; do
        begin=$EPOCHREALTIME
        eval "$command" >"answer.$number" 2>&1 </dev/null
        status=$?
        microseconds=$((${EPOCHREALTIME//[^0-9]/} - ${begin//[^0-9]/}))
        output=$(cat "answer.$number")
        [ $status = 0 ] || fail "$command: status $status: $output"
        contains "${answers[number]}"
        [ $microseconds -lt 1000000 ] || late="$late; $command: $microseconds us"
        case $command in *"&  "*) sleep 0.3 ;; esac # it says where it is before one types on
        number=$((number + 1))
    done <<<"$commands"
    kill $!
    wait
}
# On a machine that does other work beside, one time of three is enough.
for _ in 1 2 3; do
    five_minutes
    [ -n "$late" ] || break
done
[ -z "$late" ] || fail "later than a second, three times$late"
finish
