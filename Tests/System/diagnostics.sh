#!/usr/bin/env bash
# Diagnostics reports: sent, listened to, validated and shown.    diagnostics.sh SCHEMA CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
schema=$(realpath "$1")
shift
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

# What is sent.
expect 0 "a report" "$@" diagnostics send --device Osprey --id -3 --print enUpTime=7 137=3.3,1 enRoleName=
[ "$output" = '<?xml version="1.0"?><VORN version="1.0"><DEV name="Osprey" id="-3"><p i="0" v="7" e="0"/><p i="137" v="3.3" e="1"/><p i="133" v="" e="0"/></DEV></VORN>' ] ||
    fail "the report: $output"
printf '%s' "$output" >"$work/good.xml"
expect 0 "the names" "$@" diagnostics names
[ "$(printf '%s\n' "$output" | wc -l)" = 149 ] || fail "the names: $output"
expect 0 "the second one by its name" "$@" diagnostics send --print en_fx_error_id_1=7
contains '<p i="2" v="7" e="0"/>'
expect 2 "an unknown parameter" "$@" diagnostics send enUptime=7
contains "enUptime=7: is not a PARAMETER=VALUE, whose parameter is a number or a name such as enUpTime"
for text in '0=<' '0=a"b' '0=1,&' $'0=\xe9' $'0=\e['; do
    expect 2 "a value that would break the report" "$@" diagnostics send "$text"
    contains 'a report'"'"'s texts are printable ASCII without ", < and &'
done
expect 2 "a group that is none" "$@" diagnostics send --group 10.0.0.1
expect 1 "a report larger than a datagram" "$@" diagnostics send "0=$(printf '%070000d' 0)"
contains "a datagram holds 65507"

# From one process to another; what is no report is said, and fails in the end.
"$@" diagnostics listen --count 4 --timeout 30 --validate --schema "$schema" >"$work/listen.log" 2>&1 &
listen=$!
for _ in $(seq 100); do
    grep -q '^reports on' "$work/listen.log" && break
    sleep 0.1
done
expect 0 "two reports" "$@" diagnostics send --count 2 --period 0.2
contains "report of SURFACE 1 sent to 225.0.0.60:7070"
if [ $# = 1 ]; then # an emulator does not let a socket choose its interface
    expect 0 "through an interface" "$@" diagnostics send --interface lo --group 225.0.0.61 --format json
    contains '"sender": "127.0.0.1"'
    contains "reports to 225.0.0.61:7070, interface lo (127.0.0.1), as --interface says"
fi
expect 0 "a third" "$@" diagnostics send --device "Condor Router AES50 Port" --id 2 -- -4=x
printf 'no report' >/dev/udp/225.0.0.60/7070
printf '<?xml version="1.0"?><!DOCTYPE VORN><VORN version="1.0"/>' >/dev/udp/225.0.0.60/7070
printf '<?xml version="1.0"?><VORN><DEV name="a" id="1"><p i="0" v="" e=""/></DEV></VORN>' >/dev/udp/225.0.0.60/7070
wait $listen
[ $? = 1 ] || fail "listening to what is no report"
output=$(cat "$work/listen.log")
contains "SURFACE 1 from 127.0.0.1: 10 parameters, its first report, valid"
contains "       0  enUpTime                         3600    0"
contains "SURFACE 1 from 127.0.0.1: 10 parameters, 0."
contains "Condor Router AES50 Port 2 from 127.0.0.1: 1 parameter, its first report, valid"
contains "      -4  -     x      0"
contains "no report  9 bytes from 127.0.0.1  it does not begin as XML"
contains "no report  57 bytes from 127.0.0.1  line 1: a document type declaration is not allowed"
contains "not valid: line 1: Element 'VORN': The attribute 'version' is required but missing."
contains "reports: 4, devices: 3, refused: 3, lost: 0"
contains "consolectl: 3 of what came was no valid report"
expect 27 "silence" "$@" diagnostics listen --count 1 --timeout 0.3
contains "reports: 0, devices: 0, refused: 0, lost: 0
consolectl: 0 reports within 0.3 seconds"

# The MC's own.
"$@" mc --seconds 60 --report-period 0.2 >"$work/mc.log" 2>&1 &
mc=$!
expect 0 "the MC's reports" "$@" diagnostics listen --count 3 --timeout 30 --validate --schema "$schema"
contains "MC 1 from 127.0.0.1: 7 parameters, 0."
contains "     133  enRoleName     Simulated MC  0"
kill -TERM $mc
wait $mc || fail "mc: $(cat "$work/mc.log")"

# In files.
expect 0 "a table" "$@" diagnostics show "$work/good.xml"
contains "Osprey -3: 3 parameters, written "
contains "     137  enMuteStatusenRail3v3  3.3    1"
expect 0 "a valid file" "$@" diagnostics validate "$work/good.xml" --schema "$schema"
contains "is valid: Osprey -3, 3 parameters"
printf '<?xml version="1.0"?>\n<VORN version="1.0"><DEV name="a" id="1">\n<p i="0" v="1" e="0"/>\n<p i="x" v="1" e="0"/></DEV></VORN>' >"$work/bad.xml"
expect 1 "an invalid file" "$@" diagnostics validate "$work/bad.xml" --schema "$schema"
contains "bad.xml is not valid: line 4: Element 'p', attribute 'i': 'x' is not a valid value of the atomic type 'xs:int'."
printf '<?xml version="1.0"?>\n<VORN version="1.0">\n<DEV name="a" id="1"></VORN>' >"$work/broken.xml"
expect 1 "no XML" "$@" diagnostics validate "$work/broken.xml" --schema "$schema"
contains "broken.xml is not valid: line 3: Opening and ending tag mismatch: DEV line 3 and VORN"
printf '<?xml version="1.0"?><VORN version="1.0"><!-- 1 --><!-- 2 --><DEV name="a" id="1"/></VORN>' >"$work/hidden.xml"
expect 1 "a device that the reader does not find" "$@" diagnostics validate "$work/hidden.xml" --schema "$schema"
contains "hidden.xml is valid, but the reader finds no device in it"
: >"$work/empty"
for file in "$work/empty" "$work/none" "$work"; do
    expect 1 "no report to show" "$@" diagnostics show "$file"
    expect 1 "no report to validate" "$@" diagnostics validate "$file" --schema "$schema"
    expect 1 "no schema" "$@" diagnostics validate "$work/good.xml" --schema "$file"
done
expect 1 "no schema to listen with" "$@" diagnostics listen --validate --schema "$work/none"
contains "no schema to validate against can be read at $work/none; --schema names another"
mkfifo "$work/nobody"
expect 1 "a schema from a pipe into which nobody writes" timeout 10 "$@" diagnostics validate "$work/good.xml" --schema "$work/nobody"
contains "can't be read as XML"
expect 0 "a schema in a pipe" "$@" diagnostics validate "$work/good.xml" --schema <(cat "$schema")
printf '<?xml version="1.0"?><VORN version="1.0"><DEV name="A&#x9b;31m&#10;FAKE" id="1"/></VORN>' >"$work/forged.xml"
expect 1 "a forged line" "$@" diagnostics show "$work/forged.xml"
case $output in *"FAKE"*) fail "a report forges a line: $output" ;; esac
head -c 65508 /dev/zero >"$work/long.xml"
expect 1 "more than a datagram" "$@" diagnostics show "$work/long.xml"
contains "is too long for a report, which is one datagram"
expect 0 "an MC without reports and without standard input" timeout 20 "$@" mc --seconds 0.3 --report-period 0 <&-
expect 1 "a schema that is none" "$@" diagnostics validate "$work/good.xml" --schema "$work/good.xml"
contains "is not valid: "

# The schema where it is installed, on a file system of this test's own.
installed()
{
    mount -t tmpfs tmpfs /opt && mkdir -p /opt/orvik/bin && cp "$0" /opt/orvik/bin/xml_validation.xsd || exit 77
    exec "$@"
}
output=$(unshare -m bash -c "$(declare -f installed); installed \"\$@\"" "$schema" "$@" diagnostics validate "$work/good.xml" 2>&1)
case $?:$output in
    0:*"is valid: Osprey -3, 3 parameters"*) ;;
    77:* | 1:unshare*) echo "no file system of our own: the installed schema was not tried" ;;
    *) fail "the installed schema: $output" ;;
esac
finish
