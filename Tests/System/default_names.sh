#!/usr/bin/env bash
# The program that prints defaults.    default_names.sh PROGRAM...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
expect 0 "the program" "$@"
[ "$output" = 'MicInput 3: "IN3", "Mic3"
AuxReturn 3: "AR3", "AuxR3"
Master 3: "M3", ""
VCAGroups 3: "VCA3", "VCA3"
KestrelDevice 3: "", "Kestrel 3"
a mic input'"'"'s fader starts at -100.0 dB' ] || fail "$output"
finish
