#!/usr/bin/env bash
# Updates through bad networks, over real sockets.    bad_network.sh [EMULATOR] BAD_NETWORK [UPDATES]
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
set -o pipefail
# The library's line for each update that is none would fill the log.
"$@" 2>&1 | grep -v '^CMCUpdateMsg operator<< - error validating update data$' || fail "$*"
finish
