#!/usr/bin/env bash
# The folders are the order of dependence: a file includes only from its own folder and from those below it.
#   check_includes.sh SOURCE_DIR
set -u
cd "$1/Source" || exit 1
bad=0

# allow FOLDER PATTERN: what the files there may include with quotes, beside their own folder.
allow()
{
    found=$(grep -rnE '^#include "' "$1" | grep -vE "#include \"($2|${1#Common/})(/|\\.h|\")" || true)
    [ -z "$found" ] || { echo "$found"; bad=1; }
}

allow InHouse/RySocketIO "RySocketIO"
allow Common/Runtime "Runtime"
allow Common/LogicalControls "Runtime|RyGConsoleString|Messages/PPCPacket|ClientComms/SimpleUDPPPCSender"
allow Common/Messages "Runtime|RyGConsoleString|LogicalControls/ParameterModel"
allow Common/Diagnostics "Runtime"
allow Common/ClientComms "Runtime|RyGConsoleString|RySocketIO|LogicalControls|Messages"

# The sender stands below the image, so it must not see it.
if grep -n 'ConsoleBitmapArray\|ParameterArray' Common/ClientComms/SimpleUDPPPCSender.* Common/ClientComms/UDPPacket.* \
    Common/ClientComms/MsgHandlerBase.* Common/ClientComms/ClientMsgHandler.*; then
    bad=1
fi
# Public headers hide the C++ library's and the system's threads and sockets, and say Boost only for wire integers.
if grep -rnE '#include <(boost/(asio|beast)|libxml|thread|mutex|sys/socket)' --include='*.h' --exclude=ReportLimits.h Common; then
    bad=1
fi
# No bytes are swapped or widened by hand outside the places that say so.
if grep -rnE '\b(hton|ntoh)[sl]\(|bswap|reinterpret_cast<(const )?(std::)?(u?int(8|16|32|64)_t|int|float|long|short)\b' Common |
    grep -vE '(SimpleUDPPPC|DiagnosticsSocket)Sender.cpp:.*htons\('; then
    bad=1
fi
# On the console's C library a function that throws out of these leaves the next caller waiting for ever.
if grep -rnE '(call|pthread)_once' .; then
    bad=1
fi
[ $bad = 0 ] && echo passed
exit $bad
