#!/usr/bin/env bash
# The dissector for packet tools, in tshark: what it makes of written-out datagrams, of damaged ones and of a recording.
#   dissector.sh BUILD_DIR CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
for tool in tshark text2pcap editcap; do
    command -v $tool >/dev/null || { echo "skipped: there is no $tool here"; exit 77; }
done
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
export HOME=$work XDG_CONFIG_HOME=$work # nobody's settings
build=$1
dissector=$(realpath "$build/Tools/dissector/logicalcontrols.lua")
golden=$here/../Golden/dissector
shift

dissect() { tshark -n -X "lua_script:$dissector" "$@" 2>>"$work/errors"; }

# Of frames, our part alone.
ours()
{
    dissect -O logicalcontrols,logicalcontrols_report "$@" |
        awk '/^Frame [0-9]+:/ { sub(/:.*/, ""); print; next } /^[^ ]/ { on = /^Logical Controls/ } on && NF'
}

# How many frames of a capture a filter finds.
frames() { dissect -r "$1" -Y "$2" "${@:3}" | wc -l; }

# capture FILE: of lines "SOURCE:PORT DESTINATION:PORT BYTES...", in which 00*3 are three zeros.
capture()
{
    awk '
        function hex(number, digits) { return sprintf("%0" digits "x", number) }
        function address(text,    part)
        {
            split(text, part, /[.:]/)
            return hex(part[1], 2) hex(part[2], 2) hex(part[3], 2) hex(part[4], 2)
        }
        function port(text) { sub(/.*:/, "", text); return hex(text, 4) }
        function repeat(text, count,    half)
        {
            if (count < 1)
                return ""
            half = repeat(text, int(count / 2))
            return half half (count % 2 ? text : "")
        }
        /^#/ || !NF { next }
        {
            bytes = ""
            for (i = 3; i <= NF; ++i)
                bytes = bytes (split($i, run, "*") == 2 ? repeat(run[1], run[2]) : $i)
            size = length(bytes) / 2
            ip = "4500" hex(size + 28, 4) "0000400040110000" address($1) address($2)
            bytes = ip port($1) port($2) hex(size + 8, 4) "0000" bytes
            gsub(/../, "& ", bytes)
            print "0000 " bytes
        }' | text2pcap -q -l 228 - "$1" 2>>"$work/errors" # IP without a frame around it
}

# damaged SEED COUNT: such lines, made of those on standard input with up to four bytes replaced, and some cut off.
damaged()
{
    awk -v seed="$1" -v count="$2" '
        function random(limit) { seed = seed * 16807 % 2147483647; return seed % limit }
        function byte() { return random(2) ? sprintf("%02x", random(256)) : substr("00017f80ff", 1 + 2 * random(5), 2) }
        /^#/ || /\*/ || NF < 3 { next }
        { from[++lines] = $1 " " $2 " "; $1 = $2 = ""; gsub(/ /, ""); bytes[lines] = $0 }
        END {
            while (count-- > 0) {
                line = 1 + random(lines)
                text = bytes[line]
                for (flips = 1 + random(4); flips > 0; --flips) {
                    at = 2 * random(length(text) / 2)
                    text = substr(text, 1, at) byte() substr(text, at + 3)
                }
                print from[line] (random(4) ? text : substr(text, 1, 2 + 2 * random(length(text) / 2)))
            }
        }'
}

hex() { od -An -v -tx1 | tr -d ' \n'; }

# Written out, and what is to be seen of them.
for name in datagrams updates changes; do
    capture "$work/$name.pcap" <"$golden/$name.hex"
    ours -r "$work/$name.pcap" >"$work/$name.txt"
    diff -u "$golden/$name.txt" "$work/$name.txt" >"$work/diff" || fail "$name: $(cat "$work/diff")"
done

# Looked at a second time, each fragment is led to its message.
dissect -r "$work/updates.pcap" -2 -Y logicalcontrols.total==5 -T fields -e frame.number -e logicalcontrols.joined_in \
    -e logicalcontrols.fragment >"$work/links"
[ "$(tr '\t' ' ' <"$work/links" | sed 's/ *$//')" = '15 19
16 19
17 19
18 19
19  18,17,16,15' ] || fail "links: $(cat "$work/links")"

# A capture that has only the beginning of each.
for length in 20 28 30 47 48 60 75; do
    editcap -F pcap -s $length "$work/changes.pcap" "$work/cut.pcap" 2>>"$work/errors"
    [ "$(frames "$work/cut.pcap" logicalcontrols)" -gt 0 ] || [ $length -lt 30 ] || fail "cut at $length: not dissected"
    [ "$(frames "$work/cut.pcap" _ws.lua.error)" = 0 ] || fail "cut at $length: an error in Lua"
done
[ "$(frames "$work/cut.pcap" logicalcontrols.capture_cut)" -gt 10 ] || fail "cut: nothing said"

# Every complaint there is has been heard.
mapfile -t complaints < <(sed -n 's/.* problem("\([a-z_]*\)".*/logicalcontrols.\1/p' "$dissector")
for name in datagrams updates changes cut; do
    dissect -r "$work/$name.pcap" -T fields "${complaints[@]/#/-e}"
done | awk -F '\t' '{ for (i = 1; i <= NF; ++i) if ($i != "") heard[i] = 1 } END { for (i in heard) print i }' >"$work/heard"
[ ${#complaints[@]} -gt 10 ] || fail "complaints: ${complaints[*]}"
[ "$(wc -l <"$work/heard")" = ${#complaints[@]} ] || fail "of ${complaints[*]} only these, by number: $(sort -n "$work/heard")"

# Damaged.
cat "$golden"/*.hex | damaged 7 6000 | capture "$work/damaged.pcap"
[ "$(frames "$work/damaged.pcap" logicalcontrols)" = 6000 ] || fail "damaged: not all dissected"
dissect -r "$work/damaged.pcap" -V >"$work/damaged.txt"
grep -E -m 3 -B 3 'Lua Error|Malformed Packet' "$work/damaged.txt" >"$work/lua" && fail "damaged: $(cat "$work/lua")"
[ "$(frames "$work/damaged.pcap" '_ws.lua.error || _ws.malformed')" = 0 ] || fail "damaged: errors"

# Reports: every parameter that has a name, one that has none, and text that is none.
mapfile -t names < <("$@" diagnostics names --format csv | tail -n +2)
[ ${#names[@]} = 149 ] || fail "the names: ${#names[@]}"
values=("${names[@]%%,*}")
report=$("$@" diagnostics send --device Osprey --id -3 --print "${values[@]/%/=1,2}" 149=x)
for text in "$report" '<VORN><DEV id="4"><p v="1"/><p i="1e999" v="" e="9"></p><p' '<p i="' ''; do
    echo "10.0.0.3:40003 225.0.0.60:7070 $(printf '%s' "$text" | hex)"
done | tee "$work/reports.hex" | capture "$work/reports.pcap"
dissect -r "$work/reports.pcap" -Y frame.number==1 -T fields -E aggregator=$'\n' -e logicalcontrols_report.name >"$work/names"
diff <(printf '%s\n' "${names[@]#*,}" | tr -d '"') "$work/names" >"$work/diff" || fail "names: $(cat "$work/diff")"
dissect -r "$work/reports.pcap" -Y 'xml && logicalcontrols_report' >"$work/rows"
grep -q 'Osprey -3: 150 parameters$' "$work/rows" || fail "reports: $(cat "$work/rows")"
grep -q '? 4: 2 parameters$' "$work/rows" || fail "reports: $(cat "$work/rows")"
damaged 9 2000 <"$work/reports.hex" | capture "$work/damaged.pcap"
[ "$(frames "$work/damaged.pcap" _ws.lua.error)" = 0 ] || fail "damaged reports: errors"

# Other ports.
sed 's/:70[56]0 /:9000 /' "$golden/changes.hex" | capture "$work/ports.pcap"
[ "$(frames "$work/ports.pcap" logicalcontrols)" = 0 ] || fail "a port that is not ours"
[ "$(frames "$work/ports.pcap" logicalcontrols -o logicalcontrols.ports:9000)" = 14 ] || fail "a port that was made ours"
[ "$(frames "$work/changes.pcap" logicalcontrols)" = 14 ] || fail "a port that is ours"
[ "$(frames "$work/changes.pcap" logicalcontrols -o logicalcontrols.ports:9000)" = 0 ] || fail "a port that is ours no more"

# A recording: all of it ours, its end in words as well, nothing to complain of, every item with a name to filter by.
"$@" record "$work/live.pcap" --timeout 30 >"$work/record.log" 2>&1 &
record=$!
until_log "$work/record.log" "updates on"
"$@" mc --seconds 2.5 --save "$work/mc" >"$work/mc.log" 2>&1 &
mc=$!
expect 0 "a change" "$@" set MicInput/12/Fader -6.5 --timeout 30
expect 0 "many changes" "$@" set 'MicInput/0-99/Rotary/0-99' 0.75 --timeout 30
expect 0 "a change by itself" "$@" set MicInput/12/Name "Lead Vocal" --direct --timeout 30
wait $mc || fail "mc: $(cat "$work/mc.log")"
kill -INT $record
wait $record || fail "record: $(cat "$work/record.log")"
datagrams=$(sed -n 's/.*: \([0-9,]*\) datagrams in .*/\1/p' "$work/record.log" | tr -d ,)
dissect -r "$work/live.pcap" -T pdml >"$work/live.pdml"
[ "$(grep -c '<proto name="logicalcontrols"' "$work/live.pdml")" = "${datagrams:-none}" ] || fail "not all of $datagrams are ours"
[ "$(frames "$work/live.pcap" '!logicalcontrols && !logicalcontrols_recording')" = 0 ] || fail "not all of it is ours"
[ "$(frames "$work/live.pcap" 'data || udp.payload && !logicalcontrols && !logicalcontrols_recording')" = 0 ] || fail "bytes without a name"
check=$("$@" replay "$work/live.pcap" --silent --format json 2>/dev/null | jq -r .datagrams)
[ "$(dissect -r "$work/live.pcap" -Y logicalcontrols_recording -T fields -e logicalcontrols_recording.datagrams)" = "$check" ] || fail "the end: $check"
[ "$(frames "$work/live.pcap" 'logicalcontrols_recording.check_meter && logicalcontrols_recording.check_string')" = 1 ] || fail "no check words"
sed -n '/<proto name="logicalcontrols"/,/<\/proto>/p' "$work/live.pdml" |
    grep '<field ' | grep -m 3 -v '<field name="logicalcontrols\.' >"$work/unnamed" && fail "items without a name: $(cat "$work/unnamed")"
dissect -r "$work/live.pcap" -Y 'logicalcontrols && (_ws.expert || _ws.lua.error || _ws.malformed)' >"$work/rows"
[ ! -s "$work/rows" ] || fail "complaints of a sound recording: $(head -n 3 "$work/rows")"
dissect -r "$work/live.pcap" -Y 'logicalcontrols.address == "MicInput/12/Fader/0" && logicalcontrols.change' >"$work/rows"
grep -q ' 1 change: MicInput/12/Fader/0 = -6.5$' "$work/rows" || fail "the change: $(cat "$work/rows")"

# Its last updates: every parameter there is has the address, the role and the value that the image has.
dissect -r "$work/live.pcap" -Y logicalcontrols.update -T fields -e logicalcontrols.message_id -e logicalcontrols.update.type |
    awk '{ last[$2] = $1 } END { print last[1] ", " last[2] }' >"$work/last"
last="logicalcontrols.type == 0 && logicalcontrols.message_id in {$(cat "$work/last")}"
dissect -r "$work/live.pcap" -Y "$last" -w "$work/last.pcap"
[ "$(frames "$work/last.pcap" logicalcontrols)" = 7 ] || fail "the last updates: $last"
ours -r "$work/last.pcap" -o logicalcontrols.elements:241339 | sed -n 's/^ *\(.* = .*\)/\1/p' | sort >"$work/elements"
paste -d, <("$@" params --format csv) <("$@" get --from "$work/mc" '*/*/*/*' --format csv 2>>"$work/errors") |
    awk -F, 'NR > 1 {
        value = $1 ~ "/String/" ? "\"" $NF "\"" : $NF
        print $1 ($2 == "" ? "" : " " $2) " = " value
    }' | sort >"$work/parameters"
[ "$(wc -l <"$work/parameters")" = 241339 ] || fail "parameters: $(wc -l <"$work/parameters")"
diff "$work/parameters" "$work/elements" >"$work/diff" || fail "elements: $(head -n 6 "$work/diff")"

# Installed.
expect 0 "installed" env DESTDIR="$work/stage" cmake --install "$build" --prefix /usr
installed=$(find "$work/stage" -path '*/wireshark/plugins/logicalcontrols.lua')
cmp "$dissector" "${installed:-none}" || fail "the dissector is not where it is looked for"

grep -vE '^(Running as user "root".*|-*)$' "$work/errors" >"$work/said" && fail "said aside: $(cat "$work/said")"
finish
