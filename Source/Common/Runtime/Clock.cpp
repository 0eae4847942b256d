#include "Runtime/Clock.h"

#include <sys/time.h>

#include <atomic>

namespace
{

std::int64_t SystemMicroseconds()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return std::int64_t(now.tv_sec) * 1000000 + now.tv_usec;
}

std::atomic<CClock::Source> g_Source{&SystemMicroseconds};

} // namespace

std::int64_t CClock::Microseconds()
{
    return g_Source.load(std::memory_order_acquire)();
}

std::uint32_t CClock::Seconds()
{
    return static_cast<std::uint32_t>(Microseconds() / 1000000);
}

void CClock::SetSource(Source source)
{
    g_Source.store(source != nullptr ? source : &SystemMicroseconds, std::memory_order_release);
}
