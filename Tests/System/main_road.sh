#!/usr/bin/env bash
# The main road: an MC and a client over multicast, a fader, a switch and a string changed at the client, noise on the wire, and
# in the end two equal images.    [GROUP=...] [PORT=...] [INTERFACE=...] main_road.sh CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
group=${GROUP-225.0.0.46} port=${PORT-7060}
link=(--group "$group" --port "$port" ${INTERFACE:+--interface "$INTERFACE"})

# Datagrams that no MC would send: random bytes of many lengths, and update messages (type 0, 1 of 1) with random bodies.
noise()
{
    for length in 0 1 19 20 21 45 1000 9000 65000 65507; do
        head -c "$length" /dev/urandom
        sleep 0.02
    done
    for _ in 1 2 3 4 5; do
        printf '\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\100'; head -c 64 /dev/urandom
        sleep 0.02
    done
}

"$@" mc --seconds 3 --save "$work/mc" "${link[@]}" >"$work/mc.log" 2>&1 &
mc=$!
"$@" follow --timeout 30 --until-silent 2 --save "$work/client" "${link[@]}" --set MicInput/100/Fader/0=-6.5 \
    --set MicInput/100/Switch/0=0 --set MicInput/100/String/1="Lead Vocal" >"$work/client.log" 2>&1 &
client=$!
sleep 0.5
# Each write of dd is one datagram.
noise | dd bs=65507 of="/dev/udp/$group/$port" 2>/dev/null
for _ in $(seq 20); do
    head -c $((RANDOM % 2000)) /dev/urandom >"/dev/udp/$group/$port"
    printf '\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\100%s' "$(head -c 64 /dev/zero | tr '\0' x)" >"/dev/udp/$group/$port"
    head -c 40 /dev/urandom >/dev/udp/225.0.0.45/7050
done
wait $mc || fail "mc: $(cat "$work/mc.log")"
wait $client || fail "follow: $(cat "$work/client.log")"

expect 0 "images in step" "$@" verify "$work/mc" "$work/client"
for type in String Rotary Switch Integer Fader Other Meter; do
    case $output in *$type*"in step"*) ;; *) fail "$type: $output" ;; esac
done
contains "241,339      241,339"
output=$(cat "$work/client.log")
contains "back from the MC  MicInput/100/Fader/0 = -6.5 after"
contains "back from the MC  MicInput/100/Switch/0 = 0 after"
contains "back from the MC  MicInput/100/String/1 = \"Lead Vocal\" after"
case $output in *" 0 bad ones"*) fail "the noise never reached the client: $output" ;; esac
output=$(cat "$work/mc.log")
rows | grep -qx '127.0.0.1 MicInput/100/Fader/0 Mic101 Fader -60 -6.5' || fail "the change at the MC: $output"
contains "3 changes applied"

# One changed byte is found and named.
cp "$work/client" "$work/changed"
printf '\377' | dd of="$work/changed" bs=1 seek=408619 conv=notrunc 2>/dev/null
expect 1 "a changed meter" "$@" verify "$work/mc" "$work/changed"
contains "Auk/1/Meter/63"
head -c 408619 "$work/client" >"$work/cut"
expect 1 "a file cut short" "$@" verify "$work/mc" "$work/cut"
contains "not a whole image"
finish
