#!/usr/bin/env bash
# What is drawn on a terminal: top in several sizes, progress bars, colours.    terminal.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
command -v tmux >/dev/null || { echo "skipped: there is no tmux"; exit 77; }
enter_own_network "$@"
work=$(mktemp -d) || exit 1
terminal=(tmux -L "consolectl.$$" -f /dev/null)
trap '"${terminal[@]}" kill-server 2>/dev/null; rm -rf "$work"' EXIT
export LC_ALL=C.UTF-8 TERM=screen-256color

# type WIDTH HEIGHT COMMAND...: runs it in a terminal of that size, which stays when it has ended.
type()
{
    "${terminal[@]}" new -d -x "$1" -y "$2" "$(printf '%q ' "${@:3}"); echo \"ended with \$?\"; sleep 60"
}
# seen TEXT [ESCAPES]: waits until the terminal shows it; what it shows is left in $output.
seen()
{
    for _ in $(seq 100); do
        output=$("${terminal[@]}" capture-pane -p ${2+-e})
        case $output in *"$1"*) return ;; esac
        sleep 0.05
    done
    fail "never seen: $1: $output"
}
close() { "${terminal[@]}" kill-server; sleep 0.1; }

"$@" mc --seconds 100 --moving-faders 30 >"$work/mc.log" 2>&1 &
mc=$!
type 80 24 "$@" top
seen "MicInput/0/Fader/0           Mic1 Fader"
contains "consolectl top  225.0.0.46:7060  MC 127.0.0.1"
contains "Rotary     complete"
contains "busiest of 60"
contains "q quit   p pause   r reset the losses"
seen "updates 60/s" # within a second or two
[ "$(printf '%s\n' "$output" | wc -l)" = 24 ] || fail "not the whole screen: $output"
[ "$(printf '%s\n' "$output" | wc -L)" -le 80 ] || fail "too wide: $output"
"${terminal[@]}" resize-window -x 40 -y 12
seen ">" # what is cut off is marked
[ "$(printf '%s\n' "$output" | wc -L)" -le 40 ] || fail "too wide: $output"
contains "q quit"
"${terminal[@]}" resize-window -x 120 -y 40
seen "MicInput/20/Fader/0"
"${terminal[@]}" send-keys p
seen "[paused]"
still=$output
sleep 1.2 # longer than what the rates are of
seen "[paused]"
[ "$output" = "$still" ] || fail "paused, and it goes on: $output"
"${terminal[@]}" send-keys p
kill -STOP $mc
seen "SILENT for"
seen "Fader      stale"
kill -CONT $mc
seen "Fader      complete"
"${terminal[@]}" send-keys q
seen "ended with 0"
contains "messages lost"
close
# Held up until the kernel dropped what came, it counts the datagrams and the messages, until that is reset.
# shellcheck disable=SC2016
type 80 24 sh -c 'echo $$ >"$0" && exec "$@"' "$work/top" "$@" top
seen "busiest"
kill -STOP "$(cat "$work/top")"
dd if=/dev/zero bs=1000 count=20000 2>/dev/null >/dev/udp/225.0.0.46/7060
sleep 0.2 # the MC's are dropped, too
kill -CONT "$(cat "$work/top")"
sleep 1 # until the last of them is given up
seen "lost "
[[ $output =~ " lost "[1-9][0-9]*", by the kernel "[1-9] ]] || fail "nothing lost: $output"
"${terminal[@]}" send-keys r
seen "lost 0, by the kernel 0, by size 0"
"${terminal[@]}" send-keys C-c
seen "ended with 0"
close
for term in nonsense dumb; do
    type 80 24 env TERM=$term "$@" top
    seen "this terminal can't be used"
    seen "ended with 1"
    close
done
expect 1 "top into a pipe" "$@" top
contains "top needs a terminal; --format json or csv, and stats, say the same to a pipe"
output=$("$@" top --format json --count 2 --timeout 30 2>"$work/aside") || fail "top's rows: $(cat "$work/aside")"
query='[.[].time] as $times | ($times | unique | length) >= 2 and
    ([.[] | select(.kind == "datagrams")] | length >= 1 and all(.[]; .rate > 100 and .byte_rate > 1000000 and .sender != "")) and
    ([.[] | select(.kind == "type")] | length == 14 and all(.[]; .value == "complete" and .age < 1)) and
    ([.[] | select(.kind == "lost") | .value] == [0, 0]) and
    ([.[] | select(.kind == "parameter")] | length > 100 and any(.[]; .address == "MicInput/0/Fader/0" and .name == "Mic1 Fader"))'
printf '%s\n' "$output" | jq -es "$query" >/dev/null || fail "top's rows: $(printf '%s\n' "$output" | cut -c 1-200 | head -n 30)"

# Progress: of a replay, and of waiting for an MC that is silent; gone when it ends. Colours are there, and not into a pipe.
expect 0 "a recording" "$@" record "$work/a.pcap" --timeout 2
kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"
type 80 24 "$@" replay "$work/a.pcap"
for _ in $(seq 200); do
    output=$("${terminal[@]}" capture-pane -p)
    printf '%s\n' "$output" | grep '^replay .* %$' >>"$work/bars"
    case $output in *"ended with"*) break ;; esac
    sleep 0.05
done
# It only grows, and is as long as its number says.
awk 'NR == 1 { first = $(NF - 1) }
     { share = $(NF - 1); full = gsub("█", ""); off = full - share * 30 / 100
       if (share < last || off < -1.5 || off > 1.5) wrong = 1
       last = share }
     END { exit wrong || last - first < 30 }' "$work/bars" || fail "the bar: $(cat "$work/bars")"
seen "ended with 0"
case $output in *"█"*) fail "the bar stays: $output" ;; esac
close
type 80 24 "$@" get MicInput/3/Fader --group 239.1.2.4 --timeout 3
seen "waiting for the MC's image ░░░"
seen "ended with 27"
close
# barred TEXT STATUS COMMAND...: it shows a bar that begins so, which is gone when it ends.
barred()
{
    output=$(timeout 60 script -qec "$(printf '%q ' "${@:3}")" /dev/null </dev/null)
    got=$?
    [ $got = "$2" ] || fail "${*:3}: status $got instead of $2: $output"
    contains "$1 ░░░"
    case ${output##*░} in *$'\r\033[K'*) ;; *) fail "${*:3}: the bar stays: $output" ;; esac
}
barred "waiting for the whole image" 27 "$@" follow --group 239.1.2.4 --timeout 0.5 --seconds 3
barred "waiting for the MC's image" 27 "$@" set MicInput/3/Fader 0 --group 239.1.2.4 --timeout 0.5
barred "$work/a.pcap" 0 "$@" verify "$work/a.pcap" "$work/a.pcap"
if "$@" --help | grep -q "^  show "; then # where there is SQLite
    barred "waiting for the MC's image" 27 "$@" show save "$work/shows" Monday --group 239.1.2.4 --timeout 0.5
fi
type 100 24 "$@" verify "$work/a.pcap" "$work/a.pcap"
seen "ended with 0"
seen $'\033[32min step' escapes
close
expect 0 "plain into a pipe" "$@" verify "$work/a.pcap" "$work/a.pcap"
case $output in *$'\033'*) fail "colours in a pipe: $output" ;; esac
"$@" mc --seconds 100 >"$work/mc.log" 2>&1 &
mc=$!
type 120 24 "$@" follow --seconds 3
seen "all complete"
[ "$(printf '%s\n' "$output" | grep -c "all complete")" = 1 ] || fail "the live line is not in its place: $output"
seen "ended with 0"
close

# What is wider than the terminal goes on in its next line, at a column's beginning, or at a word's; the terminal breaks nothing.
fits() # WHAT COMMAND...: in 80 columns
{
    type 80 40 "$@"
    seen "ended with 0"
    output=$("${terminal[@]}" capture-pane -pJ)
    [ "$(printf '%s\n' "$output" | wc -L)" -lt 80 ] || fail "the terminal broke a line: $output"
    close
}
fits "$@" watch 'MicInput/0-3/Fader' --count 4
contains "receive buffer 8,"
printf '%s\n' "$output" | grep -qE '^ {6,}-?[0-9.]+ +-?[0-9.]+ +MC$' || fail "no second line: $output"
fits "$@" get 'MicInput/0-3/Fader' --count 3
contains "(80 columns: no room for sender)"
contains "... and 1 more"
fits "$@" params 'MicInput/0/Integer/*' --count 3
contains "MicInput/0/Integer/0                   -2147483648 to 2147483647  -2147483648"
fits "$@" stats --count 30
fits "$@" doctor
contains "reports can't be validated"
fits "$@" why MicInput/0/Fader --count 3
fits "$@" mc --help
seen_help=$(printf '%s\n' "$output" | grep -c '^ \{26\}')
[ "$seen_help" -gt 5 ] || fail "the help isn't set in columns: $output"
kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"
finish
