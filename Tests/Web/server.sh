#!/usr/bin/env bash
# The live page's server: what it answers, to whom, and what stalled browsers and nonsense cost it.    server.sh CONSOLECTL...
set -u
here=$(cd "$(dirname "$0")" && pwd)
[ -n "${LOGICALCONTROLS_OWN_NETWORK-}" ] || exec "$here/../../Tools/in-namespace" "$0" "$@"
exec timeout 280 python3 -B "$here/server.py" "$@"
