#!/usr/bin/env bash
# The live page in a real browser.    page.sh MODULES CONSOLECTL...    MODULES: the folder that Tests/Web/install filled
#   page.sh --update MODULES CONSOLECTL...    makes the documentation's pictures anew
set -u
here=$(cd "$(dirname "$0")" && pwd)
[ -n "${LOGICALCONTROLS_OWN_NETWORK-}" ] || exec "$here/../../Tools/in-namespace" "$0" "$@"
updated=
[ "$1" != --update ] || { updated=$here/../../Documentation; shift; }
for needed in /usr/bin/chromium "$1/node_modules/playwright-core"; do
    [ -e "$needed" ] || { echo "skipped: there is no $needed, see packages.debian and Tests/Web/install"; exit 77; }
done
command -v node >/dev/null || { echo "skipped: there is no node"; exit 77; }
exec timeout 280 node "$here/page.mjs" "$1" "$updated" "${@:2}"
