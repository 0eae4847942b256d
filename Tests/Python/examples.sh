#!/usr/bin/env bash
# Every example in Python does what it says.    examples.sh FOLDER PYTHON
# shellcheck source-path=SCRIPTDIR source=../System/common.sh
. "$(dirname "$0")/../System/common.sh"
enter_own_network "$@"
declare -A says=(
    [first_rig]="127.0.0.1 Lead Vocal -6.5"
    [bad_network]="updates applied: in step"
    [compare_images]="MicInput/12/Fader/0 -100.0 -> -6.5"
)
[ "$(cd "$1" && echo *.py)" = "bad_network.py compare_images.py first_rig.py" ] || fail "other examples: $(ls "$1")"
for example in "${!says[@]}"; do
    expect 0 "$example" "$2" "$1/$example.py"
    contains "${says[$example]}"
done
finish
