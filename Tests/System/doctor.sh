#!/usr/bin/env bash
# What keeps a client and an MC from hearing each other: networks that are well, and networks broken in one way each.
# doctor.sh SCHEMA LESSER_SYSTEM CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
# A network of its own also among other tests that share one: who else is there is looked at.
[ "$1" = alone ] || exec "$here/../../Tools/in-namespace" "$0" alone "$@"
shift
schema=$(realpath "$1")
lesser=$(realpath "$2")
shift 2
program=("$@")
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cd "$here/../.." || exit 1 # where its commands are pasted
declare -A broken # each network that something is amiss in

# Two networks that are well: of the machine alone, and of a cable to another.
only_lo='ip link set lo up && ip link set lo multicast on && ip route add 224.0.0.0/4 dev lo src 127.0.0.1'
# shellcheck disable=SC2016 # expanded in there
no_filter='for it in all default v0; do echo 0 >/proc/sys/net/ipv4/conf/$it/rp_filter; done'
cable="ip link set lo up && ip link add v0 type veth peer name v1 && ip address add 10.9.0.1/24 dev v0 && ip link set v0 up &&
    ip link set v1 up && ip route add 224.0.0.0/4 dev v0 && $no_filter"

# The system says a little later that an interface has a carrier, or that it has none.
settled()
{
    # shellcheck disable=SC2317 # called in there
    case $(ip -o link show v0 2>&1) in
        *LOWER_UP*"state UP"*) ;;
        *LOWER_UP* | *"state UP"*) return 1 ;;
    esac
}

# on NETWORK OPTION...: the doctor in a network that these commands make; 99 when they can't.
on()
{
    # shellcheck disable=SC2016 # expanded in there
    unshare -n bash -c "$(declare -f settled); { $1"'; } 2>"$1" >&2 || exit 99; shift
        for _ in {1..100}; do settled && break; sleep 0.01; done
        exec "$@"' bash "$work/why" "${under[@]}" "${program[@]}" doctor \
        --schema "$schema" --timeout "$timeout" "${@:2}"
}
timeout=0.1
under=() # what the doctor is run by there

# finds STATUS WHAT NETWORK AMISS ROW COMMAND [OPTION...]: that row, with that command below if any, and so much is amiss in all.
finds()
{
    output=$(on "$3" "${@:7}" 2>&1)
    got=$?
    [ $got != 99 ] || { echo "left out, as it can't be made here: $2: $(head -n 1 "$work/why")"; return 1; }
    [ "$4" = 0 ] || broken["$3, ${under[*]}, $schema, ${*:7}"]=
    [ $got = "$1" ] || fail "$2: status $got instead of $1: $output"
    contains "$5${6:+
          try: $6}
"
    amiss "$4"
}

# One more is amiss everywhere on a system whose receive buffers are small.
amiss()
{
    local all=$(($1 + small))
    case $all in
        0) contains $'\nall is well' ;;
        1) contains $'\n1 finding: the first is ' ;;
        *) contains $'\n'"$all findings: the first is " ;;
    esac
}

# heals ...: the same, and with the command pasted a client can work and the row is gone.
heals()
{
    finds "$@" || return
    expect 0 "$2, healed" on "$3 && ${6//ADDRESS/10.9.0.1}" "${@:7}"
    case $output in *"$5"*) fail "$2: healed, and still there: $output" ;; esac
}

# The network of this test itself.
expect 0 "well" "$@" doctor --schema "$schema"
small=0
case $output in *"warning   buffer"*) small=1 ;; esac
amiss 0
contains "verdict   check       subject           finding
ok        interface   lo                127.0.0.1 carries multicast: the system routes 225.0.0.46 there; nothing leaves this machine
ok        route       225.0.0.46        the MC's updates leave through lo (127.0.0.1)
ok        route       225.0.0.45        changes leave through lo (127.0.0.1)
ok        port        7060              can be had
ok        port        7050              can be had
ok        port        7070              can be had
ok        group       225.0.0.46        joined on lo; other sockets here that have: 0
"
contains "   buffer      receive           4,194,304 bytes asked for, "
contains "
ok        TTL         multicast         1: no router passes it on; MC and clients are in one network
ok        loop        multicast         on: an MC and a client on this machine hear each other
ok        round trip  225.0.0.46        a datagram to port "
contains " came back after "
contains "
note      MC          225.0.0.46:7060   nothing heard within 0.3 s: is there an MC, on this group and port?
          try: consolectl stats --timeout 3
ok        schema      reports           $schema: $(stat -c %s "$schema" | sed 's/\(.\)\(...\)$/\1,\2/') bytes
"
rows=$(printf '%s\n' "$output" | grep -vc '^verdict\|^all is well\|^1 finding\|^          try: ')
expect 0 "another group, port and interface" "$@" doctor --schema "$schema" --group 239.1.2.3 --port 7061 --interface lo
contains "ok        interface   lo                127.0.0.1 carries multicast: --interface names it"
contains "ok        route       239.1.2.3         not asked for: --interface names where updates go"
contains "ok        port        7061 "
contains "note      MC          239.1.2.3:7061 "

output=$("$@" doctor --schema "$schema" --count 2) || fail "status of a few"
contains "... and $((rows - 2)) more; --count 0 shows all"
[ "$(printf '%s\n' "$output" | grep -c '^ok ')" = 2 ] || fail "more than two: $output"

# For programs: a row a line, and nothing else on standard output.
output=$("$@" doctor --schema "$work/none" --format json 2>"$work/aside") || fail "status of json"
[ "$(printf '%s\n' "$output" | grep -cxE '\{"verdict": "[a-z ]+", "check": "[A-Za-z ]+", "subject": "[^"]+", "finding": "[^"]+", "command": (null|"[^"]+")\}')" = "$rows" ] ||
    fail "json: $output"
[ "$(printf '%s\n' "$output" | wc -l)" = "$rows" ] || fail "json: $output"
contains "{\"verdict\": \"warning\", \"check\": \"schema\", \"subject\": \"reports\", \"finding\": \"$work/none: No such file or directory: reports can't be validated; --schema names another file\", \"command\": \"install -D -m 644 Source/Common/Diagnostics/xml_validation.xsd $work/none\"}"
[ "$(grep -c "^[12] finding" "$work/aside") of $(wc -l <"$work/aside")" = "1 of 1" ] || fail "aside: $(cat "$work/aside")"
output=$("$@" doctor --schema "$schema" --format csv 2>/dev/null) || fail "status of csv"
[ "$(printf '%s\n' "$output" | head -n 1)" = "verdict,check,subject,finding,command" ] || fail "csv: $output"
[ "$(printf '%s\n' "$output" | sed 's/"[^"]*"/quoted/g' | grep -cxE '([^,]*,){4}[^,]*')" = $((rows + 1)) ] || fail "csv: $output"
contains '
ok,port,7060,can be had,
'
contains '
note,MC,225.0.0.46:7060,"nothing heard within 0.3 s: is there an MC, on this group and port?",consolectl stats --timeout 3
'
refuse()
{
    expect 2 "$*" "${program[@]}" doctor "${@:2}"
    contains "$1"
}
refuse "Value 0 not in range 0.01 to 60" --timeout 0
refuse '"xml" is none of text, json, csv' --format xml
refuse 'there is no "v7" here; there are lo (127.0.0.1)' --interface v7

# Who else is there.
"$@" mc --seconds 60 >"$work/mc.log" 2>&1 &
mc=$!
"$@" follow --seconds 60 >"$work/follow.log" 2>&1 &
follow=$!
for _ in $(seq 100); do
    grep -qs "the image is whole" "$work/follow.log" && break
    sleep 0.1
done
expect 0 "an MC and a client" "$@" doctor --schema "$schema"
amiss 0
contains "ok        port        7050              can be had"
contains "other sockets here that have: 1
"
contains "ok        MC          225.0.0.46:7060   heard from 127.0.0.1:"
kill -TERM $follow
wait $follow
"$@" mc --seconds 60 >"$work/other.log" 2>&1 &
other=$!
for _ in $(seq 100); do
    output=$("$@" doctor --schema "$schema")
    case $output in *"several MCs share it"*) break ;; esac
    sleep 0.1
done
contains "warning   MC          225.0.0.46:7060   several MCs share it, and meet in every client: 127.0.0.1:"
contains "
          try: consolectl stats --timeout 3"
amiss 1
kill -TERM $mc $other
wait $mc $other

# Routes.
route="route       225.0.0.46        the MC's updates go nowhere: "
to_lo='ip route replace 224.0.0.0/4 dev lo src 127.0.0.1'
heals 1 "everything is off" true 2 "failed    ${route}there is no route to it" "ip link set lo up && $to_lo"
finds 1 "everything is off" true 2 "not used  interface   lo                it is down" "ip link set lo up"
heals 1 "no route" 'ip link set lo up' 2 "failed    ${route}there is no route to it" "$to_lo"
for kind in "unreachable makes it unreachable" "prohibit prohibits it" "blackhole swallows it (blackhole)"; do
    heals 1 "${kind%% *}" "ip link set lo up && ip route add ${kind%% *} 224.0.0.0/4" 2 \
        "failed    ${route}the route to 224.0.0.0/4 ${kind#* }" "$to_lo"
    contains "ok        round trip"
done
finds 1 "what follows from no route" 'ip link set lo up' 2 \
    "note      group       225.0.0.46        not tried: there is no interface for it" ""
contains "note      round trip  225.0.0.46        not tried: there is no interface for it"
contains "note      MC          225.0.0.46:7060   not listened to: a client can't hear it"
contains " findings: the first is route 225.0.0.46: the MC's updates go nowhere: there is no route to it"
heals 1 "changes have no route" "$only_lo && ip route add prohibit 225.0.0.45" 1 \
    "failed    route       225.0.0.45        changes go nowhere: the route to 225.0.0.45/32 prohibits it" \
    "ip route replace 225.0.0.45/32 dev lo src 127.0.0.1"
finds 1 "a rule" "$only_lo && ip rule add to 225.0.0.46 prohibit" 1 "failed    ${route}a rule or a policy prohibits it" \
    "ip rule; ip route show table all; ip xfrm policy"
finds 1 "a policy" "$cable && ip xfrm policy add dir out dst 225.0.0.46/32 proto udp action block" 1 \
    "failed    ${route}a rule or a policy forbids it" "ip rule; ip route show table all; ip xfrm policy"
heals 1 "a group's own route" "$only_lo && ip route add blackhole 239.1.0.0/16" 1 \
    "failed    ${route/225.0.0.46        /239.1.2.3         }the route to 239.1.0.0/16 swallows it (blackhole)" \
    "ip route replace 239.1.0.0/16 dev lo src 127.0.0.1" --group 239.1.2.3

# Interfaces. The other end of the cable has no address.
finds 0 "a cable" "$cable" 0 "ok        interface   v0                10.9.0.1 carries multicast: the system routes 225.0.0.46 there" ""
contains "not used  interface   lo                127.0.0.1 could carry multicast and is not chosen"
contains "not used  interface   v1                it has no IPv4 address
          try: ip address add ADDRESS/24 dev v1
"
contains "ok        filter      v0                no reverse-path filter"
contains "ok        group       225.0.0.46        joined on v0; "
contains "ok        round trip  225.0.0.46        a datagram to port "
heals 1 "an interface that is down" "$cable && ip link set v0 down" 2 "failed    ${route}there is no route to it" \
    "ip link set v0 up && ip route replace 224.0.0.0/4 dev v0"
finds 1 "an interface that is down" "$cable && ip link set v0 down" 2 "not used  interface   v0                it is down" \
    "ip link set v0 up"
heals 1 "the named one is down" "$cable && ip link set v0 down" 2 \
    "failed    interface   v0                it is down" "ip link set v0 up" --interface 10.9.0.1
finds 1 "nothing is tried on an interface that is down" "$cable && ip link set v0 down" 2 \
    "note      round trip  225.0.0.46        not tried: v0 is down" "" --interface v0
finds 1 "no carrier" "$cable && ip link set v1 down" 1 \
    "failed    interface   v0                it has no carrier: is the cable in?" ""
heals 1 "no address" "$cable && ip address flush dev v0 && ip route add 224.0.0.0/4 dev v0" 2 \
    "failed    route       225.0.0.46        the MC's updates are routed to v0, which has no IPv4 address" "ip address add ADDRESS/24 dev v0"
heals 1 "another's address is lent" "$cable && ip address flush dev v0 && ip address add 10.9.1.1/24 dev v1 && ip route add 224.0.0.0/4 dev v0" 2 \
    "failed    route       225.0.0.46        the MC's updates are routed to v0, which has no IPv4 address" "ip address add ADDRESS/24 dev v0"
heals 0 "no multicast" "$cable && ip link set v0 multicast off" 1 \
    "warning   interface   v0                it doesn't do multicast" "ip link set v0 multicast on"
two="$cable && ip address add 10.9.1.1/24 dev v1"
finds 0 "two to choose from" "$two" 1 \
    "warning   choice      v0                taken because the system routes 225.0.0.46 there; --interface names another: v1" \
    "consolectl doctor --interface v1"
finds 0 "two to choose from for another group and port" "$two" 1 \
    "warning   choice      v0                taken because the system routes 239.1.2.3 there; --interface names another: v1" \
    "consolectl doctor --group 239.1.2.3 --port 7061 --interface v1" --group 239.1.2.3 --port 7061
heals 0 "named, and routed elsewhere" "$two" 1 \
    "warning   route       225.0.0.45        changes sent one by one leave through v0 (10.9.0.1), not through v1 as the rest" \
    "ip route replace 224.0.0.0/4 dev v1" --interface v1
heals 0 "named, and not routed" "$two && ip route del 224.0.0.0/4" 1 \
    "warning   route       225.0.0.45        changes sent one by one go nowhere: there is no route to it" \
    "ip route replace 224.0.0.0/4 dev v1" --interface v1
heals 0 "changes are routed elsewhere" "$two && ip route add 225.0.0.45 dev v1" 2 \
    "warning   route       225.0.0.45        changes leave through v1 (10.9.1.1), not through v0 as the rest" \
    "ip route replace 225.0.0.45/32 dev v0"
finds 0 "lo takes it all" "$cable && ip route replace 224.0.0.0/4 dev lo src 127.0.0.1" 1 \
    "warning   choice      lo                taken because the system routes 225.0.0.46 there; --interface names another: v0" \
    "consolectl doctor --interface v0"
heals 0 "a strict filter" "$cable && echo 1 >/proc/sys/net/ipv4/conf/all/rp_filter" 1 \
    "warning   filter      v0                the reverse-path filter is strict: updates are dropped whose sender isn't routed back through v0" \
    "sysctl -w net.ipv4.conf.v0.rp_filter=2"
contains "ok        filter      v0                the reverse-path filter is loose"

# Ports. A socket that nobody bound has the only port that the system may pick.
# holding PORT WHAT [ADDRESS]: that is done by one process, or by a shell and what it runs.
holding()
{
    local ports=/proc/sys/net/ipv4/ip_local_port_range known
    known="grep -qs ':$(printf %04X "$1") ' /proc/net/udp /proc/net/udp6"
    echo "$only_lo && echo $1 $1 >$ports && { (exec 3<>/dev/udp/${3-127.0.0.1}/9; $2) & } &&
        { for _ in {1..200}; do $known && break; sleep 0.01; done; $known; } && echo 32768 60999 >$ports"
}
# held STATUS WHAT PORT ROW [ADDRESS]: a process holds it; pasted, the command ends that.
held()
{
    finds "$1" "$2" "$(holding "$3" "exec sleep 5" "${@:5}")" 1 "" "" || return
    output=$(printf '%s\n' "$output" | sed 's/\(process\|kill\) [1-9][0-9]*/\1 ID/')
    contains "$4: held, and not shared, by sleep (process ID)
          try: kill ID
"
    # shellcheck disable=SC2016 # expanded in there
    expect 0 "$2, healed" on "$(holding "$3" "exec sleep 5" "${@:5}")"' && found=$("${@:2}") || true; eval "$(sed -n "s/ *try: kill/kill/p" <<<"$found")"; wait || true'
    contains "ok        port        $3              can be had"
}
held 1 "the updates' port is held" 7060 "failed    port        7060              no client here hears updates"
held 0 "the changes' port is held" 7050 "warning   port        7050              no MC here hears changes"
held 0 "the reports' port is held" 7070 "warning   port        7070              no reports can be listened to"
held 1 "held by a socket for both kinds of address" 7060 "failed    port        7060              no client here hears updates" \
    ::ffff:127.0.0.1
finds 1 "held by two" "$(holding 7060 "sleep 5; true")" 1 "" "ss -ulnp 'sport = :7060'"
contains "no client here hears updates: held, and not shared, by "
contains "bash (process "
contains "sleep (process "
contains "note      MC          225.0.0.46:7060   not listened to: a client can't hear it"
under=(setpriv --inh-caps=-net_bind_service --bounding-set=-net_bind_service)
heals 1 "a port for the privileged" "$only_lo" 1 "failed    port        99                no client here hears updates: Permission denied" \
    "sysctl -w net.ipv4.ip_unprivileged_port_start=99" --port 99
under=(setpriv --inh-caps=-all --bounding-set=-all) # who may less sees less
finds 1 "held by nobody that one sees" "$(holding 7060 "exec sleep 5")" 1 \
    "failed    port        7060              no client here hears updates: held, and not shared, by a process that is not shown here" \
    "ss -ulnp 'sport = :7060'"
under=()

# Groups, buffers, what comes back.
heals 1 "no group may be joined" "$only_lo && echo 0 >/proc/sys/net/ipv4/igmp_max_memberships" 1 \
    "failed    group       225.0.0.46        can't be joined: a socket may be in no more groups (net.ipv4.igmp_max_memberships is 0)" \
    "sysctl -w net.ipv4.igmp_max_memberships=20"
finds 1 "a warning before a failure" "$two && echo 0 >/proc/sys/net/ipv4/igmp_max_memberships" 2 \
    "note      round trip  225.0.0.46        not tried: the group can't be joined" ""
contains "findings: the first is group 225.0.0.46: can't be joined"
look="nft list ruleset; iptables -L -n -v; ip xfrm policy"
finds 1 "nothing comes in" "$cable && ip xfrm policy add dir in dst 225.0.0.46/32 proto udp action block" 1 "" "$look"
contains "failed    round trip  225.0.0.46        a datagram to port "
contains " left and didn't come back within 0.1 s: a firewall, or no loop
"
finds 1 "nothing goes out" "$cable && ip xfrm policy add dir out dst 225.0.0.46/32 proto udp action block" 1 "" "$look" --interface v0
contains "failed    round trip  225.0.0.46        a datagram to port "
contains " isn't sent: a firewall forbids it
"
under=(env LD_PRELOAD="$lesser" LESSER="loop ${LESSER-}")
finds 1 "no loop" "$cable" 2 \
    "warning   loop        multicast         off: an MC and a client on this machine don't hear each other" ""
contains " left and didn't come back within 0.1 s: a firewall, or no loop
"
under=(env LD_PRELOAD="$lesser" LESSER=buffer)
finds 0 "a small buffer" "$only_lo" $((1 - small)) \
    "warning   buffer      receive           4,194,304 bytes asked for, 425,984 in force: a busy client loses updates" \
    "sysctl -w net.core.rmem_max=4194304"
under=()

# What is sent for a try goes to no port where somebody may listen, whatever else the system has to pick from.
timeout=0.01
for _ in {1..10}; do
    finds 0 "three ports to pick from" "$only_lo && echo 7060 7062 >/proc/sys/net/ipv4/ip_local_port_range" 0 "" "" || break
    case $output in *"a datagram to port 7061 came back"* | *"a datagram to port 7062 came back"*) ;; *) fail "its port: $output" ;; esac
done
timeout=0.1

# The schema. Where it is to be installed may have any name.
unread=": reports can't be validated; --schema names another file"
install="install -D -m 644 Source/Common/Diagnostics/xml_validation.xsd"
schema=$work/new/schema.xsd
heals 0 "no schema" "$only_lo" 1 "warning   schema      reports           $schema: No such file or directory$unread" "$install $schema"
schema="$work/it's one"
heals 0 "no schema, of an odd name" "$only_lo" 1 "warning   schema      reports           $schema: No such file or directory$unread" \
    "$install '$work/it'\\''s one'"
: >"$schema"
heals 0 "an empty schema" "$only_lo" 1 "warning   schema      reports           $schema: it is empty$unread" "$install '$work/it'\\''s one'"
schema=$work
finds 0 "a folder for a schema" "$only_lo" 1 "warning   schema      reports           $work: Is a directory$unread" ""
schema=$work/new/schema.xsd
chmod 0 "$schema"
under=(setpriv --inh-caps=-all --bounding-set=-all)
heals 0 "a schema for others" "$only_lo" 1 "warning   schema      reports           $schema: Permission denied$unread" "chmod a+r $schema"

# What the system doesn't tell is no failure.
under=(unshare -m sh -c 'mount -t tmpfs tmpfs /proc && exec "$@"' sh)
finds 0 "no /proc" "$cable" 0 "note      filter      v0                not known here: the system doesn't show rp_filter" ""
contains "note      group       225.0.0.46        joined; who else has is not known here"

# A second at most, also when nothing comes back. A machine that is busy with other things may need a second try.
under=()
timeout=0.3
for _ in 1 2 3; do
    start=$(date +%s%N)
    output=$(on "$cable && ip xfrm policy add dir in dst 225.0.0.46/32 proto udp action block")
    taken=$(($(date +%s%N) - start))
    [ "$taken" -gt 1000000000 ] || break
done
[ "$taken" -le 1000000000 ] || fail "it took $taken ns"

echo "${#broken[@]} networks were broken"
[ ${#broken[@]} -ge 8 ] || fail "too few"
finish
