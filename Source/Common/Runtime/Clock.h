// The one place that time comes from.
#pragma once

#include "Runtime/Export.h"

#include <cstdint>

// Wall-clock time as the message handlers and the senders see it. A test or a simulation puts its own source in place and moves
// time by hand. Any thread may call; SetSource belongs before the threads that read the clock start.
class LOGICALCONTROLS_EXPORT CClock
{
public:
    typedef std::int64_t (*Source)();

    // Microseconds since 1970.
    static std::int64_t Microseconds();

    // Seconds since 1970, modulo 2^32: the message id of outgoing datagrams.
    static std::uint32_t Seconds();

    // Null goes back to the system's clock.
    static void SetSource(Source source);
};
