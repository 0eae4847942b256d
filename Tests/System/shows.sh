#!/usr/bin/env bash
# Shows: saved, listed, compared, recalled with safe parameters, deleted; and files that are none.    shows.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
shows=$work/shows

"$@" mc --seconds 290 --moving-faders 0 >"$work/mc.log" 2>&1 &
mc=$!
expect 0 "save" "$@" show save "$shows" Monday --timeout 30
contains "show \"Monday\" saved to $shows: 225,441 parameters"
expect 0 "save a part" "$@" show save "$shows" "Faders only" --timeout 30 --except 'MicInput/7/*/*' --scope 'MicInput/*/Fader/*'
contains "286 parameters"
expect 1 "save over another" "$@" show save "$shows" Monday
contains "there is a show \"Monday\" already"
expect 0 "save in its place" "$@" show save "$shows" Monday --replace --timeout 30
expect 0 "list" "$@" show list "$shows"
contains "   225,441  Monday"
contains "       286  Faders only"
expect 0 "compare" "$@" show compare "$shows" Monday --timeout 30
contains "all             225,441            0                   225,441"

expect 0 "everything moved" "$@" set '*/*/Rotary/*' 0.25 '*/*/Fader/*' -20 '*/*/String/*' moved --timeout 30
expect 1 "compare" "$@" show compare "$shows" Monday --timeout 30
contains "differs  Globals/0/String/0"
contains "Rotary           65,300       65,300                         0"
expect 0 "recall a part" "$@" show recall "$shows" "Faders only" --timeout 30
contains "Fader               286          286            0            0"
contains "all                 286          286            0            0"
expect 0 "the one that was left out" "$@" get MicInput/7/Fader/0
contains "-20"
expect 0 "recall, two channels safe" "$@" show recall "$shows" Monday --safe 'MicInput/0-1/*/*' --timeout 30
contains "String            3,151        3,147            4            0"
contains "Rotary           65,300       64,740          560            0"
expect 1 "compare" "$@" show compare "$shows" Monday --timeout 30
contains "Rotary           65,300          560                    64,740"
contains "Fader             2,765            0                     2,765"
expect 0 "delete" "$@" show delete "$shows" "Faders only"
contains "show \"Faders only\" deleted"
expect 1 "delete again" "$@" show delete "$shows" "Faders only"
contains "there is no show \"Faders only\""

# What a recall would do, said before anything moves: what moves, what is safe, what is outside the scope.
expect 0 "everything back" "$@" show recall "$shows" Monday --timeout 30
expect 0 "three faders moved" "$@" set 'MicInput/1-3/Fader' 3 --timeout 30
expect 0 "one taken out of the scope" "$@" show scope "$shows" Monday MicInput/1/Fader --recall off
[ "$(rows)" = 'MicInput/1/Fader/0 Mic2 Fader store - -60' ] || fail "scope: $output"
expect 0 "a preview" "$@" show preview "$shows" Monday --safe MicInput/2/Fader --timeout 30
for row in 'MicInput/1/Fader/0 Mic2 Fader 3 -60 stays: outside the recall scope' 'MicInput/2/Fader/0 Mic3 Fader 3 -60 stays: safe' \
    'MicInput/3/Fader/0 Mic4 Fader 3 -60 moves: in the recall scope, not safe' 'all 225,440 1 1 225,438'; do
    rows | grep -qxF "$row" || fail "no \"$row\" in: $output"
done
expect 0 "nothing has moved" "$@" get 'MicInput/1-3/Fader' --timeout 30
[ "$(rows | sed 's/.* //' | tr '\n' ' ')" = '3 3 3 ' ] || fail "a preview moved something: $output"
expect 0 "a recall does as it was said" "$@" show recall "$shows" Monday --safe MicInput/2/Fader --timeout 30
expect 0 "what moved" "$@" get 'MicInput/1-3/Fader' --timeout 30
[ "$(rows | sed 's/.* //' | tr '\n' ' ')" = '3 3 -60 ' ] || fail "the recall: $output"
expect 0 "back into the scope" "$@" show scope "$shows" Monday MicInput/1/Fader --recall on
contains "recall"
expect 0 "out of the show" "$@" show scope "$shows" Monday 'MicInput/1/*/*' --store off --count 1
contains "... and "
expect 0 "and not back" "$@" show scope "$shows" Monday MicInput/1/Fader --recall on
contains "1 parameter not in the show, and out of it still"
expect 2 "both at once" "$@" show scope "$shows" Monday --recall on --store off
contains "can't be brought back"
# Two at a time change what is there, not what each has read; when it was saved stays.
saved=$("$@" show list "$shows" --format csv)
for turn in off on; do
    "$@" show scope "$shows" Monday 'MicInput/*/Fader/*' --recall $turn --count 1 >/dev/null &
    one=$!
    expect 0 "the other" "$@" show scope "$shows" Monday 'MicInput/*/Rotary/*' --recall $turn --count 1
    wait $one || fail "the one"
    recalled=$(for type in Fader Rotary; do "$@" show scope "$shows" Monday MicInput/5/$type/0 | grep -c ' recall '; done | tr '\n' ' ')
    case $turn-$recalled in off-"0 0 " | on-"1 1 ") ;; *) fail "one of two changes is lost: $turn: $recalled" ;; esac
done
[ "$saved" = "$("$@" show list "$shows" --format csv)" ] || fail "it was saved at another time"
expect 0 "the first" "$@" show list "$shows" --count 1
cp "$shows" "$work/with:colon"
expect 0 "a file with a colon" "$@" get MicInput/3/Fader --from "$work/with:colon:Monday"
expect 1 "the MC and the rest of the show" "$@" verify mc "$shows:Monday" --timeout 30
[ "$(rows | grep -c differs)" = 1 ] || fail "what is not in the show is compared: $output"
rows | grep -qx 'differs MicInput/2/Fader/0 Mic3 Fader 3 -60' || fail "the safe one: $output"
case $output in *"check words are equal"*) fail "a show has no check words: $output" ;; esac

# What a first save leaves when it is broken off is told from what is no show file, and is no hindrance.
: >"$work/begun"
expect 1 "empty" "$@" show list "$work/begun"
contains "there is no show in it: it is empty, as when a first save is broken off"
expect 0 "the next save" "$@" show save "$work/begun" Monday --timeout 30
ln -s target "$work/link"
# shellcheck disable=SC2016
[ -z "${LESSER_SYSTEM-}" ] || expect 1 "no room" sh -c 'ulimit -f 0; exec "$@"' sh "$@" show save "$work/link" Monday --timeout 30
[ -L "$work/link" ] && [ ! -e "$work/target" ] || fail "left behind: $(ls -l "$work")"

# Killed at any moment of saving: each show is there whole, or as it was.
for _ in $(seq 12); do
    "$@" show save "$shows" Monday --replace --timeout 30 >/dev/null 2>&1 &
    save=$!
    sleep "0.$(printf %03d $((20 + RANDOM % 150)))"
    kill -KILL $save 2>/dev/null
    wait $save 2>/dev/null
    expect 0 "the file after a kill" "$@" show list "$shows"
    expect 0 "the show after a kill" "$@" get MicInput/3/Fader --from "$shows:Monday"
done

# At a write, the first past a limit, with the pages before it written, it fails, or is killed (with LESSER_SYSTEM, which sees to
# that): what was saved before is there, nothing of the new.
expect 0 "save" "$@" show save "$work/killed" Monday --timeout 30
blocks=$(($(stat -c %s "$work/killed") / 1024))
ends=(1) lesser=(env)
[ -z "${LESSER_SYSTEM-}" ] || ends+=($((128 + $(kill -l XFSZ))))
for save in "$((blocks + 8)) Tuesday" "$((blocks / 2)) Monday --replace"; do for end in "${ends[@]}"; do
    [ "$end" = 1 ] || lesser=(env LESSER=limit LD_PRELOAD="$LESSER_SYSTEM")
    # shellcheck disable=SC2016,SC2086
    expect "$end" "ended past block ${save%% *}" \
        "${lesser[@]}" bash -c 'ulimit -c 0 -f "$0" && exec "$@"' ${save%% *} "$@" show save "$work/killed" ${save#* } --timeout 30
    lesser=(env)
    expect 0 "the file after it" "$@" show list "$work/killed"
    case $end-$save in 1-* | *-*--replace) ;; *) contains "killed: a change of it was broken off, and is undone" ;; esac
    [ "$(printf '%s\n' "$output" | sed '/broken off/d; /^saved/d; s/.* 225,441  //')" = Monday ] || fail "the shows after it: $output"
    expect 0 "the show after it" "$@" get MicInput/3/Fader --from "$work/killed:Monday"
    contains "-60"
done; done

# What is no whole show file is refused before anything is sent.
for file in cut text empty fifo missing foreign; do
    case $file in
        cut) head -c 500000 "$shows" >"$work/cut" ;;
        text) echo "no show" >"$work/text" ;;
        empty) : >"$work/empty" ;;
        fifo) mkfifo "$work/fifo" ;;
        foreign) cp "$shows" "$work/foreign"; printf 'LCSX' | dd of="$work/foreign" bs=1 seek=68 conv=notrunc 2>/dev/null ;;
    esac
    for command in "recall $work/$file Monday" "list $work/$file" "delete $work/$file Monday" "compare $work/$file Monday"; do
        # shellcheck disable=SC2086
        expect 1 "show $command" timeout 10 "$@" show $command
        contains "$work/$file: "
        [ "$(printf '%s\n' "$output" | wc -l)" = 1 ] || fail "more than a line: $output"
    done
done
expect 1 "a folder" "$@" show list "$work"
contains "not a file"
expect 1 "save into a text" "$@" show save "$work/text" Monday
[ "$(cat "$work/text")" = "no show" ] || fail "a foreign file was written to"

# A byte of a block that changed is noticed by its check sum.
changed=$(grep -abo "Mic100" "$shows" | head -n 1 | cut -d: -f1)
cp "$shows" "$work/changed"
printf 'X' | dd of="$work/changed" bs=1 seek="$changed" conv=notrunc 2>/dev/null
expect 1 "a changed byte" "$@" show recall "$work/changed" Monday
contains "is damaged: the check sum of a block is wrong"

kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"
expect 27 "no MC" "$@" show save "$work/new" Monday --timeout 0.3
[ ! -e "$work/new" ] || fail "a file without a show was left behind"
finish
