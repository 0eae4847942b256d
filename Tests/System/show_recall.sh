#!/usr/bin/env bash
# The example that stores and recalls a show.    show_recall.sh SHOW_RECALL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
expect 0 "the example" "$@"
[ "$output" = "stored                 mic 1 at  -6.0 dB, mic 2 at -12.0 dB
moved                  mic 1 at -40.0 dB, mic 2 at -40.0 dB
recalled, mic 2 safe   mic 1 at  -6.0 dB, mic 2 at -40.0 dB" ] || fail "it printed: $output"
finish
