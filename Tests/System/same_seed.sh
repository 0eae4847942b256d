#!/usr/bin/env bash
# The simulated MC behind a bad network: the same seed, the same bytes.    same_seed.sh CAPTURE CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
capture=$1
shift

# run NAME SEED
run()
{
    "${emulator[@]}" "$capture" >"$work/$1" 2>"$work/$1.log" &
    capturing=$!
    for ((try = 0; try < 100; ++try)); do
        grep -qs ready "$work/$1.log" && break
        sleep 0.1
    done
    expect 0 "mc" "${program[@]}" mc --seconds 0.5 --seed "$2" --loss 5 --duplicate 5 --corrupt 5 --truncate 5 \
        --reorder 8 --delay 20
    wait $capturing || fail "capture: $(cat "$work/$1.log")"
    [ -s "$work/$1" ] || fail "nothing was captured"
}
program=("$@")
emulator=("${program[@]:0:$#-1}")
run one 7
run two 7
run other 8
cmp "$work/one" "$work/two" || fail "the same seed, other bytes"
! cmp -s "$work/one" "$work/other" || fail "another seed, the same bytes"
finish
