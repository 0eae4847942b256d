#!/usr/bin/env bash
# The program that fails a check on purpose.    failure_policy.sh PROGRAM...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
expect 0 "the program" "$@"
contains "CHECK: nChannels <= canMaxPaths[enMicInput] at: 
"
contains "void SetChannels(int),
"
contains " user msg: more channels than the console has
 stack frame:
  "
contains "failure_policy, main"
[ "$(grep -c CHECK: <<<"$output")" = 1 ] || fail "more than one failure: $output"
finish
