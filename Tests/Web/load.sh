#!/usr/bin/env bash
# What ten browsers cost the live page's server.    load.sh SECONDS CONSOLECTL...
set -u
here=$(cd "$(dirname "$0")" && pwd)
[ -n "${LOGICALCONTROLS_OWN_NETWORK-}" ] || exec "$here/../../Tools/in-namespace" "$0" "$@"
exec timeout 280 python3 -B "$here/load.py" "$@"
