#!/usr/bin/env bash
# What runs the documents' commands, on documents that are right and on such as are not.    run_documents_test.sh
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

# page STATUS TEXT WANTED...: of a document with this text, in which ' stands for `, it says all that is wanted.
page()
{
    printf '%s\n' "${2//\'/\`}" >"$work/page.md"
    expect "$1" "$2" env LIMIT=2 "$here/run_documents.sh" "$work/page.md"
    shift 2
    for wanted; do contains "$wanted"; done
}
# block STATUS LINES WANTED...
# shellcheck disable=SC2016
block() { page "$1" "'''console
$2
'''" "${@:3}"; }

block 0 '$ echo one; echo two
one
two' "1 commands" passed
block 0 '$ seq 9
1
...
8
...'
block 0 '$ seq 3
...
1
...
3
...'
block 0 '$ echo "a (b) [c] *.+? {d} | ^e$ \\f"; echo "took 12 ms."
a (b) [c] *.+? {d} | ^e$ \f
took ... ms.'
block 0 '$ echo one \
    two
one two'
block 0 '$ mkdir a && cd a && x=5
$ echo ${PWD##*/} $x
a 5'
block 0 '$ false
$ echo $?
1'
block 0 '$ echo "blanks   "
blanks'
block 0 '$ (echo begun; exec sleep 1000) &
begun
$ kill $!'
block 0 '$ (sleep 0.5; echo begun; exec sleep 1000) &   # and goes on
begun'
block 1 '$ true && echo one # two
one
two'
page 0 "in the beginning
'''text
\$ false
'''
'''console not-run: it fails
\$ false
'''" "left out: false (it fails)" "1 commands left out" "0 commands"
page 0 "'''text a.txt
of the page
'''
'''console
\$ cat a.txt
of the page
'''"

block 1 '$ echo one
two' "page.md:2: echo one: not as the document says" "< two" "> one"
block 1 '$ echo one' "> one"
block 1 '$ true
one' "< one"
block 1 '$ echo one two
one'
block 1 '$ printf "one\ntwo\n"
one...'
block 1 '$ echo aXb
a.b'
block 1 '$ seq 4
1
...
3'
block 1 '$ false
$ echo on
on' "false: status 1"
block 1 '$ exit 3'
block 1 '$ false' "false: status 1"
block 1 '$ no_such_command
...' "no_such_command: status 127"
block 1 '$ sleep 60' "sleep 60: not done within 2 seconds"
block 1 '$ (sleep 1000; echo late) &
late' "< late"
block 1 'what is this' "what is this the output of?"
page 1 "'''console
\$ true" "a block never ends"
page 1 "'''console not-run
\$ true
'''" "has no reason"

expect 1 "no document" "$here/run_documents.sh" "$work/none.md"
contains "none.md"

# Nothing goes on behind it.
block 0 '$ sleep 4711 &'
[ -z "$(pgrep -f '^sleep 4711$')" ] || fail "a program goes on"
finish
