# What the system tests share. Source it with the built program in CONSOLECTL (and before it, the emulator that runs it).
set -u
here=$(cd "$(dirname "$0")" && pwd)
failures=0

fail() { echo "FAILED: $*" | head -n 20; failures=$((failures + 1)); }

# expect STATUS WHAT COMMAND...: the command ends with that status; its output is left in $output.
expect()
{
    wanted=$1 what=$2
    shift 2
    output=$("$@" 2>&1)
    got=$?
    [ "$got" = "$wanted" ] || fail "$what: status $got instead of $wanted: $output"
}

# The output's rows without the note on the interface and the time they begin with, and with one blank between columns.
rows() { printf '%s\n' "$output" | sed -E '/^updates on /d; s/^[0-9]+:[0-9]+:[0-9.]+ +//; s/  +/ /g'; }

contains() { case $output in *"$1"*) ;; *) fail "no \"$1\" in: $output" ;; esac }

# until_log FILE TEXT: waits until a program that is running has said something.
until_log() { for _ in $(seq 200); do grep -qs "$2" "$1" && return; sleep 0.05; done; fail "no \"$2\" in: $(cat "$1")"; }

# Goes on inside a network namespace of its own, or ends with 77 (skipped).
enter_own_network()
{
    [ -n "${LOGICALCONTROLS_OWN_NETWORK-}" ] || exec "$here/../../Tools/in-namespace" "$0" "$@"
}

finish()
{
    [ $failures = 0 ] && echo "passed"
    [ $failures = 0 ]
    exit
}
