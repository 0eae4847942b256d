#!/usr/bin/env bash
# The stub has what the module has, and lets a type checker tell right use from wrong.    stubs.sh SOURCE_DIR PYTHON
# shellcheck source-path=SCRIPTDIR source=../System/common.sh
. "$(dirname "$0")/../System/common.sh"
python=$2
cd "$1" || exit 1
"$python" -c 'import mypy' 2>/dev/null || { echo "stubs.sh: no mypy: skipped"; exit 77; }
export MYPYPATH=$PYTHONPATH
# pybind11 has a metaclass of its own.
output=$("$python" -m mypy.stubtest --concise logicalcontrols 2>&1 | grep -v 'is inconsistent, metaclass differs$')
[ -z "$output" ] || fail "the stub: $output"
check=("$python" -m mypy --strict --cache-dir=/dev/null)
expect 0 "the examples' types" "${check[@]}" Python/Examples/*.py
for wrong in 'Image().get(12)' 'Image().set("MicInput/12/Fader", None)' 'Image().block("Fadr")' 'Follower("225.0.0.46")' \
    'Follower().nothing()'; do
    expect 1 "a wrong type" "${check[@]}" -c "from logicalcontrols import *; $wrong"
    contains "Found 1 error"
done
finish
