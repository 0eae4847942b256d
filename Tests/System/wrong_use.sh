#!/usr/bin/env bash
# What consolectl says to wrong use: one clear line, exit status 2, nothing sent.    wrong_use.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

refuse()
{
    text=$1
    shift
    expect 2 "$*" "${program[@]}" "$@"
    contains "$text"
    [ "$(printf '%s\n' "$output" | wc -l)" = 1 ] || fail "more than a line: $output"
}
program=("$@")

refuse "subcommand is required"
refuse '"NotACommand" is no subcommand, and no option' NotACommand
refuse "--port: Value 0 not in range" mc --port 0
refuse "--port: Value 65536 not in range" follow --port 65536
refuse "--port" follow --port seven
refuse "192.168.1.1 is not a multicast group" mc --group 192.168.1.1
refuse "240.0.0.1 is not a multicast group" follow --group 240.0.0.1
refuse "225.0.0.046 is not a multicast group" mc --group 225.0.0.046
refuse '--surface-rate: "nan" is no number' mc --surface-rate nan
refuse '--timeout: "nan" is no number' follow --timeout nan
refuse '"nan" is no value of type Fader' follow --set MicInput/3/Fader/0=nan
refuse "nonsense is not a multicast group" follow --group nonsense
refuse 'there is no "eth9" here; there are lo (127.0.0.1)' follow --interface eth9
refuse 'there is no "203.0.113.9" here; there are lo (127.0.0.1)' mc --interface 203.0.113.9
refuse 'there is no "" here' watch --interface "" 'MicInput/*/Fader'
refuse "--surface-rate" mc --surface-rate -5
refuse "--seconds" mc --seconds -1
refuse "--moving-faders" mc --moving-faders 145
refuse "--loss: Value 101 not in range" mc --loss 101
refuse "--duplicate: Value -1 not in range" mc --duplicate -1
refuse '--corrupt: "nan" is no number' mc --corrupt nan
refuse "--truncate" mc --truncate some
refuse "--reorder: Value 1001 not in range" mc --reorder 1001
refuse "--delay: Value 1001 not in range" mc --delay 1001
refuse "no address: Group/path/Type/parameter" follow --set MicInput/3=1
refuse "no change: ADDRESS=VALUE" follow --set MicInput/3/Fader/0
refuse '"Mic" is no parameter group' follow --set Mic/3/Fader/0=1
refuse '"Slider" is no message type' follow --set MicInput/3/Slider/0=1
refuse 'path "144" is out of range: MicInput has 0 to 143' follow --set MicInput/144/Fader/0=1
refuse 'path "-1" is out of range' follow --set MicInput/-1/Fader/0=1
refuse 'parameter "2" is out of range: MicInput/Fader has 0 to 1' follow --set MicInput/3/Fader/2=1
refuse 'parameter "99999999999" is out of range' follow --set MicInput/3/Fader/99999999999=1
refuse '"loud" is no value of type Fader' follow --set MicInput/3/Fader/0=loud
refuse '"2" is no value of type Switch' follow --set MicInput/3/Switch/0=2
refuse '"1.5" is no value of type Integer' follow --set MicInput/3/Integer/0=1.5
refuse "a console string holds 12 characters" follow --set MicInput/3/String/1=ThirteenChars
refuse "meters are set by the MC alone" follow --set MicInput/3/Meter/0=1
refuse "never sent" follow --set Globals/0/Integer/58=1
refuse "has no value: ADDRESS VALUE go in pairs" set MicInput/3/Fader/0
refuse "ADDRESS VALUE is required" set
refuse '"--time" is no address' set --time 3
refuse "names several types: one value fits only one" set 'MicInput/3/*/0' 1
refuse '"loud" is no value of type Fader' set 'MicInput/*/Fader/0' loud
refuse '"9" is no value of type Switch' set 'MicInput/0/Fader/0' 9 'MicInput/0/Switch/0' 9
refuse "meters are set by the MC alone" set '*/*/Meter/*' 1
refuse "is on the list of parameters that are never sent so" set 'Globals/0/Integer/*' 1 --direct
refuse 'path "5-3" is a range from high to low' get MicInput/5-3/Fader/0
refuse 'path "144" is out of range: MicInput has 0 to 143' get MicInput/0-144/Fader/0
refuse 'path "0,2" is no number: MicInput has 0 to 143' get MicInput/0,2/Fader/0
refuse 'path "" is no number: MicInput has 0 to 143' get MicInput/0-/Fader/0
refuse 'parameter "-1" is out of range' get MicInput/0/Fader/-1
refuse '"*/143/Meter/400" names no parameter' get '*/143/Meter/400'
refuse "--timeout: Value 0 not in range" get MicInput/0/Fader/0 --timeout 0
if "$@" --help | grep -q "^  show "; then # where there is SQLite
    refuse "a show's name has 1 to 64 characters" show save "$work/shows" ""
    refuse "a show's name has 1 to 64 characters" show save "$work/shows" "$(printf 'two\nlines')"
    refuse "NAME is required" show recall "$work/shows"
    refuse "subcommand is required" show
    refuse '"Mic" is no parameter group' web --shows "$work/shows" --safe 'Mic/*/*/*'
    refuse "--safe: it goes with --shows" web --safe 'MicInput/*/*/*'
    refuse '"Mic" is no parameter group' show save "$work/shows" Monday --scope 'Mic/*/*/*'
fi
refuse "names more than one parameter" follow --set 'MicInput/*/Fader/0=1'
refuse "B is required" verify "$0"
refuse "image: no file is named" verify "" "$0"
refuse "image: no file is named" get MicInput/0/Fader --from ""
refuse '"MicInpt" is no parameter group; the nearest is MicInput' watch 'MicInpt/*/Fader'
refuse 'path "144" is out of range: MicInput has 0 to 143; the nearest is 143' why MicInput/144/Fader
refuse '"Level" is no name of a parameter' get MicInput/0/Level
refuse '"Nme" is no name of a parameter; the nearest is Name' get MicInput/0/Nme
refuse '"Fäder über" is no' get 'Fäder über/0/Name'
refuse 'holds 12 characters of one byte each' set MicInput/0/Name 'Ääääääääääää'
refuse "names more than one parameter" why 'MicInput/*/Fader'
refuse "ADDRESS is required" watch
refuse '"xml" is none of text, json, csv' watch 'MicInput/*/Fader' --format xml
for count in 1.5 0x10 1e3 "" " 3" +3 3x; do
    refuse "--count: \"$count\" is no whole number" watch 'MicInput/*/Fader' --count "$count"
done
refuse "--seed: Value 4294967296 not in range 0 to 4294967295" mc --seed 4294967296
refuse "--seed: Value -1 not in range" mc --seed -1
refuse "--id: Value 2147483648 not in range" diagnostics send --print --id 2147483648
refuse "--period: \"1s\" is no number" diagnostics send --print --period 1s
refuse "--count: Value 99999999999999999999 not in range 0 to 1000000000" watch 'MicInput/*/Fader' --count 99999999999999999999
refuse '--port: "-" is no whole number' mc --port -
refuse '"[]" is no address' params '[]'
refuse '"[MicInput/0/Fader,MicInput/1/Fader]" is no address' params '[MicInput/0/Fader,MicInput/1/Fader]'
refuse "--save: no file is named" mc --save ''
refuse "FILE: no file is named" replay ''
refuse "direct was given a disallowed flag override" set MicInput/0/Fader 1 --direct=false
refuse '"x" is no subcommand' diagnostics x
refuse '"--forms" is no option' watch --forms
refuse '"--forms" is no option' show recall x --forms
refuse '"c" is too much' verify a b c
refuse "--count: Value -1 not in range" watch 'MicInput/*/Fader' --count -1
refuse '--timeout: "nan" is no number' stats --timeout nan
refuse "it takes an ADDRESS or a --script" send
refuse "it takes an ADDRESS or a --script" send MicInput/0/Fader --script "$0"
refuse "takes no numbers from clients" send MicInput/0/Name
refuse '"5" is no value of type Switch' send MicInput/0/Switch/0 --to 5
refuse "takes no numbers from clients" send MicInput/0/Meter/0
refuse "line 1 is no SECONDS ADDRESS VALUE" send --script <(echo 'soon MicInput/0/Fader 1')
refuse "line 2 is no SECONDS ADDRESS VALUE" send --script <(printf '2 MicInput/0/Fader 1\n1 MicInput/0/Fader 1\n')
refuse '"loud" is no value of type Fader' send --script <(echo '0 MicInput/0/Fader loud')
refuse "FILE is required" record
refuse "--speed: Value -1 not in range" replay x --speed -1
refuse "excludes" replay x --loop --at 3
refuse "--web-port: Value 65536 not in range 0 to 65535" web --web-port 65536
refuse "--timeout: Value -1 not in range" web --timeout -1
refuse '"here" is no address' web --listen here
refuse '"" is no address' web --listen ""
refuse '"224.0.0.1" is no address of one machine' web --listen 224.0.0.1
refuse '"extra" is too much' web extra
refuse '"up" is none of on, off' show scope x y --recall up

refuse '"-x" is too much' verify a b -- -x
refuse '"get" is no subcommand' -- get

# A file that isn't there is no wrong use, whoever is to read it.
for reader in "verify /nonexistent/a $0" "get MicInput/0/Fader --from /nonexistent/a" "stats --capture /nonexistent/a" \
    "replay /nonexistent/a --silent" "send --script /nonexistent/a"; do
    # shellcheck disable=SC2086
    expect 1 "no file: $reader" "$@" $reader
    contains "/nonexistent/a: "
done
expect 1 "no image" "$@" verify /nonexistent/a /nonexistent/b
contains "/nonexistent/a: there is no such file; an image is mc (live),"

head -c 1000 /dev/zero | tr '\0' 1 >"$work/wide"
expect 1 "a line without end" "$@" send --script "$work/wide"
contains "a line of it is too long, or can't be read"
expect 1 "a file that grows too large" sh -c 'ulimit -f 100; exec "$@" >"$0"' "$work/large" "$@" params
expect 0 "version" "$@" --version
[[ $output =~ ^consolectl\ [0-9.]+$ ]] || fail "version: $output"
expect 0 "help" "$@" --help
contains "consolectl mc"
expect 0 "help of mc" "$@" mc --help
contains "--surface-rate"
expect 27 "no MC" "$@" follow --timeout 0.3 --seconds 5
contains "no whole image within 0.3 seconds"
# An image is saved where a file is or may be, and nowhere else; where a link leads, the file is replaced.
folder=$(mktemp -d) || exit 1
mkfifo "$folder/fifo"
echo precious >"$folder/image.new"
ln -s real "$folder/link"
ln -s sub/made "$folder/dangling"
ln -s dangling "$folder/two"
mkdir "$folder/sub"
ln -s loop "$folder/loop"
for other in "$folder" "$folder/fifo" /dev/null; do
    expect 1 "no file" timeout 10 "$@" mc --seconds 0.1 --save "$other"
    contains "$other: not a file"
done
cp "$0" "$folder/text"
expect 1 "no image" "$@" mc --seconds 20 --save "$folder/text"
contains "$folder/text: it is no image, and stays as it is"
cmp -s "$0" "$folder/text" || fail "it was replaced"
rm "$folder/text"
expect 0 "beside another file" "$@" mc --seconds 0.1 --save "$folder/image"
chmod 640 "$folder/image"
expect 0 "once more" "$@" mc --seconds 0.1 --save "$folder/image"
[ "$(stat -c %a "$folder/image")" = 640 ] || fail "its rights are others: $(ls -l "$folder/image")"
chmod 644 "$folder/image"
cp "$folder/image" "$folder/before"
expect 27 "what isn't whole" "$@" follow --timeout 0.3 --save "$folder/image"
cmp -s "$folder/image" "$folder/before" || fail "an image that isn't whole took a file's place"
rm "$folder/before"
cp "$folder/image" "$folder/real" # where no image is, none is put
expect 0 "through a link" "$@" mc --seconds 0.1 --save "$folder/link"
[ -L "$folder/link" ] && cmp -s "$folder/real" "$folder/image" || fail "the link or its file is gone"
expect 0 "through links to what isn't there yet" "$@" mc --seconds 0.1 --save "$folder/two"
[ -L "$folder/two" ] && [ -L "$folder/dangling" ] && cmp -s "$folder/sub/made" "$folder/image" || fail "not where the links lead"
expect 1 "a link to itself" timeout 10 "$@" mc --seconds 0.1 --save "$folder/loop"
contains "$folder/loop: Too many levels of symbolic links"
[ "$(cat "$folder/image.new")" = precious ] || fail "another file was written to"
[ "$(cd "$folder" && echo *)" = "dangling fifo image image.new link loop real sub two" ] || fail "left behind: $(ls "$folder")"
rm -r "$folder"
expect 1 "no room for the file" "$@" mc --seconds 0.1 --save /nonexistent/folder/image
contains "No such file or directory"
mkfifo "$work/fifo"
head -c 500000 /dev/zero >"$work/long"
for file in /dev/zero "$work/fifo" "$work/long"; do
    expect 1 "no image: $file" timeout 10 "$@" verify "$file" "$work/long"
done
expect 1 "an address that isn't here" "$@" web --listen 203.0.113.9 --web-port 0 --timeout 1
contains "203.0.113.9 port 0 can't be listened to: Cannot assign requested address"
if "$@" --help | grep -q "^  show "; then
    expect 1 "no file of shows" "$@" web --shows /nonexistent/shows --timeout 1
    contains "/nonexistent/shows"
fi
expect 1 "no multicast route" unshare -n "$@" follow --timeout 1
contains "can't be joined"
expect 1 "no multicast route" unshare -n "$@" mc --seconds 0.2
finish
