#!/usr/bin/env bash
# A program that checks itself, on a network of its own.    on_own_network.sh [EMULATOR] PROGRAM [ARGUMENT]...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
set -o pipefail
# The library's line for each update that is none would fill the log.
"$@" 2>&1 | grep -v '^CMCUpdateMsg operator<< - error validating update data$' || fail "$*"
finish
